#include "TempRoot.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "RuntimeRoot.h"

CTempRoot::CTempRoot() {
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/proj-root-XXXXXX";
    if (!mkdtemp(&pattern[0])) {
        throw std::runtime_error("cannot make a temporary runtime root");
    }
    m_dir = pattern;
    NRuntimeRoot::SetRoot(m_dir);
}

CTempRoot::~CTempRoot() {
    NRuntimeRoot::SetRoot("/");
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
}

std::string CTempRoot::MakeDir(const std::string& systemPath) const {
    const std::string path = Path(systemPath);
    std::filesystem::create_directories(path);
    return path;
}

std::string CTempRoot::WriteFile(const std::string& systemPath, const std::string& contents) const {
    const std::string path = Path(systemPath);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

std::string CTempRoot::ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream contents;
    contents << in.rdbuf();
    return contents.str();
}
