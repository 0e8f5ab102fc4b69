#include "RuntimeRoot.h"

namespace NRuntimeRoot {
namespace {

std::string& Root() {
    static std::string root = "/";
    return root;
}

}  // namespace

void SetRoot(const std::string& root) {
    std::string cleaned = root;
    while (cleaned.size() > 1 && cleaned.back() == '/') {
        cleaned.pop_back();
    }
    Root() = cleaned.empty() ? "/" : cleaned;
}

const std::string& GetRoot() { return Root(); }

std::string Path(const std::string& absolutePath) {
    const std::string& root = Root();
    if (root == "/" || absolutePath.empty() || absolutePath[0] != '/') {
        return absolutePath;
    }
    return root + absolutePath;
}

}  // namespace NRuntimeRoot
