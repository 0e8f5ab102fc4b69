#include "NFileUtil.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace NFileUtil {

EReadResult ReadFile(const std::string& path, size_t maxBytes, std::string& contents, std::string& error) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        const int code = errno;
        error = strerror(code);
        return code == ENOENT ? EReadResult::MISSING : EReadResult::FAILED;
    }
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        close(fd);
        error = "not a regular file";
        return EReadResult::FAILED;
    }
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            error = strerror(errno);
            close(fd);
            return EReadResult::FAILED;
        }
        if (n == 0) {
            break;
        }
        // Checked while reading, not from fstat: the file may grow meanwhile.
        if (text.size() + static_cast<size_t>(n) > maxBytes) {
            error = "file too large";
            close(fd);
            return EReadResult::FAILED;
        }
        text.append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    contents.swap(text);
    return EReadResult::READ;
}

std::string TemporaryPathFor(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return directory + "." + name + ".tmp";
}

namespace {

bool WriteAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n == 0) {
                errno = EIO;
            }
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool WriteFileAtomically(const std::string& path, const std::string& contents, mode_t mode) {
    const std::string temporary = TemporaryPathFor(path);
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0) {
        return false;
    }
    // fchmod: a temporary file left by a power cut may carry another mode.
    bool written = fchmod(fd, mode) == 0 && WriteAll(fd, contents) && fsync(fd) == 0;
    int error = errno;
    if (close(fd) != 0 && written) {
        written = false;
        error = errno;
    }
    if (written && rename(temporary.c_str(), path.c_str()) != 0) {
        written = false;
        error = errno;
    }
    if (!written) {
        unlink(temporary.c_str());
        errno = error;
        return false;
    }
    SyncDirectoryOf(path);
    return true;
}

void SyncDirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int dir = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        fsync(dir);
        close(dir);
    }
}

std::string GetExecutableDir() {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) {
        return "";
    }
    const std::string path(self, static_cast<size_t>(length));
    return path.substr(0, path.rfind('/'));
}

bool InstallIfMissing(const std::string& from, const std::string& to, size_t maxBytes) {
    std::error_code error;
    if (std::filesystem::exists(to, error)) {
        return false;
    }
    std::string contents;
    std::string reason;
    if (ReadFile(from, maxBytes, contents, reason) != EReadResult::READ) {
        return false;
    }
    std::filesystem::create_directories(std::filesystem::path(to).parent_path(), error);
    return WriteFileAtomically(to, contents, 0644);
}

}  // namespace NFileUtil
