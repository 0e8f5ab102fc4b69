#include "CStaticFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

// Closes the descriptor it holds when it goes.
class CFd {
public:
    explicit CFd(int fd) : m_fd(fd) {}
    ~CFd() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    CFd(const CFd&) = delete;
    CFd& operator=(const CFd&) = delete;
    int Get() const { return m_fd; }
    void Reset(int fd) {
        if (m_fd >= 0) {
            close(m_fd);
        }
        m_fd = fd;
    }

private:
    int m_fd;
};

bool EndsWith(const std::string& text, const char* suffix) {
    const size_t length = strlen(suffix);
    return text.size() >= length && text.compare(text.size() - length, length, suffix) == 0;
}

}  // namespace

const char* CStaticFiles::ContentType(const std::string& name) {
    static const struct {
        const char* extension;
        const char* type;
    } kTypes[] = {
        {".html", "text/html; charset=utf-8"}, {".js", "text/javascript; charset=utf-8"},
        {".mjs", "text/javascript; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
        {".json", "application/json"}, {".svg", "image/svg+xml"}, {".png", "image/png"},
        {".ico", "image/x-icon"}, {".webp", "image/webp"}, {".woff2", "font/woff2"},
        {".txt", "text/plain; charset=utf-8"}, {".map", "application/json"},
    };
    for (const auto& entry : kTypes) {
        if (EndsWith(name, entry.extension)) {
            return entry.type;
        }
    }
    return "application/octet-stream";
}

bool CStaticFiles::Find(const std::string& relativePath, bool acceptsGzip, SFile& file) const {
    if (acceptsGzip && !EndsWith(relativePath, ".gz") && Read(relativePath + ".gz", file)) {
        file.gzip = true;
    } else if (!Read(relativePath, file)) {
        return false;
    }
    file.contentType = ContentType(relativePath);
    return true;
}

bool CStaticFiles::Read(const std::string& relativePath, SFile& file) const {
    CFd dir(open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.Get() < 0 || relativePath.empty()) {
        return false;
    }
    std::string::size_type start = 0;
    for (std::string::size_type slash; (slash = relativePath.find('/', start)) != std::string::npos;
         start = slash + 1) {
        const std::string segment = relativePath.substr(start, slash - start);
        dir.Reset(openat(dir.Get(), segment.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (dir.Get() < 0) {
            return false;
        }
    }
    CFd fd(openat(dir.Get(), relativePath.c_str() + start, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 0 ||
        static_cast<uint64_t>(info.st_size) > kMaxFileBytes) {
        return false;
    }
    std::string body(static_cast<size_t>(info.st_size), '\0');
    size_t done = 0;
    while (done < body.size()) {
        const ssize_t got = read(fd.Get(), &body[done], body.size() - done);
        if (got <= 0) {
            return false;  // changed under us; the next request sees the new file
        }
        done += static_cast<size_t>(got);
    }
    char etag[64];
    snprintf(etag, sizeof etag, "\"%llx-%llx.%lx\"", static_cast<unsigned long long>(info.st_size),
             static_cast<unsigned long long>(info.st_mtim.tv_sec), static_cast<unsigned long>(info.st_mtim.tv_nsec));
    file.body = std::move(body);
    file.etag = etag;
    file.modifiedSeconds = static_cast<int64_t>(info.st_mtim.tv_sec);
    file.gzip = false;
    return true;
}
