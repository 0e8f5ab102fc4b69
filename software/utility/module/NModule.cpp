#include "NModule.h"

#include <dlfcn.h>

#include <string>

#include "CException.h"

void* NModule::LoadEntry(const void* anchor, const char* fileName, const char* entry, const char* what) {
    Dl_info holder{};
    std::string path = fileName;
    if (dladdr(anchor, &holder) && holder.dli_fname) {
        const std::string library = holder.dli_fname;
        const size_t slash = library.rfind('/');
        if (slash != std::string::npos) {
            path = library.substr(0, slash + 1) + fileName;
        }
    }
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!module) {
        THROW_EXCEPTION("Unable to load %s: %s", what, dlerror());
    }
    void* address = dlsym(module, entry);
    if (!address) {
        THROW_EXCEPTION("Unable to load %s: %s has no %s", what, path.c_str(), entry);
    }
    return address;
}
