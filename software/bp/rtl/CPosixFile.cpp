#include "CPosixFile.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "CException.h"
#include "RuntimeRoot.h"

CPosixFile::CPosixFile(const std::string& systemPath) {
    const std::string path = NRuntimeRoot::Path(systemPath);
    m_fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (m_fd < 0) {
        THROW_ERRNO_EXCEPTION("Failed open on %s", path.c_str());
    }
}

CPosixFile::~CPosixFile() { close(m_fd); }

int CPosixFile::Ioctl(unsigned long command, void* argument) {
    int result;
    do {
        result = ioctl(m_fd, command, argument);
    } while (result < 0 && errno == EINTR);
    return result;
}
