#include "CSelectWrapper.h"

#include <cerrno>

#include "CException.h"

namespace {

timeval MsToTimeval(unsigned int ms) {
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(ms / 1000);
    tv.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
    return tv;
}

}  // namespace

CSelectWrapper::CSelectWrapper() : m_maxFd(-1), m_timeout{} { FD_ZERO(&m_set); }

void CSelectWrapper::Zero() {
    FD_ZERO(&m_set);
    m_maxFd = -1;
}

void CSelectWrapper::Set(int fd) {
    if (fd < 0 || fd >= FD_SETSIZE) {
        THROW_EXCEPTION("Descriptor %d cannot be watched by select", fd);
    }
    FD_SET(fd, &m_set);
    if (fd > m_maxFd) {
        m_maxFd = fd;
    }
}

void CSelectWrapper::Clear(int fd) {
    if (fd >= 0 && fd < FD_SETSIZE) {
        FD_CLR(fd, &m_set);
    }
}

bool CSelectWrapper::IsSet(int fd) const { return fd >= 0 && fd < FD_SETSIZE && FD_ISSET(fd, &m_set); }

void CSelectWrapper::SetTimeoutMs(unsigned int ms) { m_timeout = MsToTimeval(ms); }

int CSelectWrapper::Select(timeval& timeout) { return Wait(false, timeout); }

int CSelectWrapper::Select(unsigned int ms) {
    timeval timeout = MsToTimeval(ms);
    return Wait(false, timeout);
}

int CSelectWrapper::Select() { return Wait(false, m_timeout); }

int CSelectWrapper::SelectWrite(timeval& timeout) { return Wait(true, timeout); }

int CSelectWrapper::SelectWrite(unsigned int ms) {
    timeval timeout = MsToTimeval(ms);
    return Wait(true, timeout);
}

int CSelectWrapper::SelectWrite() { return Wait(true, m_timeout); }

int CSelectWrapper::Wait(bool forWrite, timeval& timeout) {
    const fd_set watched = m_set;
    for (;;) {
        int ready = forWrite ? select(m_maxFd + 1, nullptr, &m_set, nullptr, &timeout)
                             : select(m_maxFd + 1, &m_set, nullptr, nullptr, &timeout);
        if (ready >= 0) {
            return ready;
        }
        if (errno != EINTR) {
            THROW_ERRNO_EXCEPTION("Select error");
        }
        m_set = watched;
    }
}
