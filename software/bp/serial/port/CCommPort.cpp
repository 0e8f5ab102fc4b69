#include "CCommPort.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "CException.h"

namespace {

using Clock = std::chrono::steady_clock;

struct SSubCode {
    unsigned char id;
    const char* code;
};

constexpr SSubCode kSubCodes[] = {{PORT_A, "PRTA"}, {PORT_B, "PRTB"}, {PORT_C, "PRTC"}, {PORT_USB, "PUSB"}};

// Waits until fd reports one of events (or an error or hang-up, which the caller's next
// read or write then reports) or until deadline: 1 ready, 0 time-out, -1 failed (errno).
int WaitUntil(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd watched{fd, events, 0};
        const int ready = poll(&watched, 1, left <= 0 ? 0 : static_cast<int>(left < INT_MAX ? left : INT_MAX));
        if (ready >= 0 || errno != EINTR) {
            return ready;
        }
    }
}

bool WouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

}  // namespace

std::string CCommPort::GetPortSubCode(unsigned char id) {
    id = GetRoutingBit(id);
    for (const SSubCode& entry : kSubCodes) {
        if (entry.id == id) {
            return entry.code;
        }
    }
    return "";
}

unsigned char CCommPort::GetPortId(const std::string& name) {
    if (name.empty()) {
        return PORT_ETHERNET;
    }
    for (const SSubCode& entry : kSubCodes) {
        if (name == entry.code) {
            return entry.id;
        }
    }
    return PORT_NONE;
}

CCommPort::CCommPort(unsigned char id, int fd, const std::string& name) : m_portId(id), m_fd(fd), m_name(name) {}

CCommPort::~CCommPort() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

int CCommPort::ReadString(unsigned char* buffer, unsigned short length) {
    for (;;) {
        const ssize_t got = read(m_fd, buffer, length);
        if (got >= 0) {
            return static_cast<int>(got);
        }
        if (WouldBlock(errno)) {
            return -1;
        }
        if (errno != EINTR) {
            THROW_ERRNO_EXCEPTION("Failed to read from port %s", m_name.c_str());
        }
    }
}

unsigned char CCommPort::ReadChar() {
    unsigned char c = 0;
    return ReadString(&c, 1) == 1 ? c : 0;
}

int CCommPort::BufferedReadComplete(unsigned char* out, unsigned int outSize, char terminator,
                                    unsigned int timeoutMs) {
    if (m_fd < 0) {
        THROW_EXCEPTION("Failed read on %s (%s)", m_name.c_str(), "Port not open");
    }
    if (!out) {
        outSize = 0;
    }
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    unsigned int searched = 0;  // m_buffer[0, searched) is known to hold no terminator
    for (;;) {
        const void* found = memchr(m_buffer + searched, static_cast<unsigned char>(terminator), m_held - searched);
        if (found) {
            return TakeRecord(static_cast<unsigned int>(static_cast<const unsigned char*>(found) - m_buffer), out,
                              outSize);
        }
        searched = m_held;
        if (m_held == kBufferSize) {
            m_held = 0;
            if (outSize > kBufferSize) {
                THROW_EXCEPTION("Failed read on %s (%s %c %s)", m_name.c_str(),
                                "Receive buffer full without containing '", terminator, "' character.");
            }
            THROW_EXCEPTION("Failed read on %s (%s)", m_name.c_str(), "Output buffer too small.");
        }
        const int ready = WaitUntil(m_fd, POLLIN, deadline);
        if (ready < 0) {
            THROW_ERRNO_EXCEPTION("Failed read on %s (%s)", m_name.c_str(), strerror(errno));
        }
        if (ready == 0) {
            return -1;
        }
        const ssize_t got = read(m_fd, m_buffer + m_held, kBufferSize - m_held);
        if (got == 0) {
            THROW_EXCEPTION("Failed read on %s (%s)", m_name.c_str(), "Connection closed");
        }
        if (got < 0) {
            if (WouldBlock(errno) || errno == EINTR) {
                continue;  // woken without data after all; wait for the rest of the time
            }
            THROW_ERRNO_EXCEPTION("Failed read on %s (%s)", m_name.c_str(), strerror(errno));
        }
        m_held = static_cast<unsigned short>(m_held + got);
    }
}

int CCommPort::TakeRecord(unsigned int index, unsigned char* out, unsigned int outSize) {
    if (index >= outSize) {
        // What follows the record cannot be trusted to start a record; start clean.
        m_held = 0;
        THROW_EXCEPTION("Failed read on %s (%s)", m_name.c_str(), "Output buffer too small.");
    }
    const unsigned int length = index + 1;
    memcpy(out, m_buffer, length);
    memmove(m_buffer, m_buffer + length, m_held - length);
    m_held = static_cast<unsigned short>(m_held - length);
    return static_cast<int>(length);
}

long CCommPort::WriteSome(const unsigned char* data, unsigned long length) {
    if (m_fd != m_typeCheckedFd) {
        struct stat info;
        m_isSocket = fstat(m_fd, &info) == 0 && S_ISSOCK(info.st_mode);
        m_typeCheckedFd = m_fd;
    }
    if (m_isSocket) {
        return send(m_fd, data, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    return write(m_fd, data, length);
}

size_t CCommPort::WriteNow(const unsigned char* data, size_t length) {
    size_t written = 0;
    while (written < length) {
        errno = 0;
        const long sent = WriteSome(data + written, static_cast<unsigned long>(length - written));
        if (sent > 0) {
            written += static_cast<size_t>(sent);
            continue;
        }
        if (sent == 0) {
            THROW_EXCEPTION("Failed write to port %s (write() return 0. %zu of %zu bytes written)", m_name.c_str(),
                            written, length);
        }
        if (errno == EINTR) {
            continue;
        }
        if (!WouldBlock(errno)) {
            THROW_ERRNO_EXCEPTION("Failed to write to port %s", m_name.c_str());
        }
        break;
    }
    return written;
}

bool CCommPort::WriteString(const unsigned char* data, int length) {
    if (length == 0) {
        return true;
    }
    if (length < 0 || !data) {
        return false;
    }
    const size_t size = static_cast<size_t>(length);
    const size_t written = HasQueuedOutput() ? 0 : WriteNow(data, size);
    if (written == size) {
        return true;
    }
    if (m_queued.size() - m_queuedSent + size - written > kMaxQueuedBytes) {
        if (m_isSocket) {
            THROW_EXCEPTION("Failed to write to port %s (peer not reading)", m_name.c_str());
        }
        if (written == 0) {
            return false;  // dropped whole; the stream stays framed
        }
    }
    // A message begun on the line is always finished, or the peer would see it cut.
    m_queued.append(reinterpret_cast<const char*>(data) + written, size - written);
    return true;
}

void CCommPort::WriteQueued() {
    m_queuedSent += WriteNow(reinterpret_cast<const unsigned char*>(m_queued.data()) + m_queuedSent,
                             m_queued.size() - m_queuedSent);
    if (m_queuedSent == m_queued.size()) {
        m_queued.clear();
        m_queuedSent = 0;
    } else if (m_queuedSent > kMaxQueuedBytes) {
        m_queued.erase(0, m_queuedSent);
        m_queuedSent = 0;
    }
}

bool CCommPort::WriteChar(unsigned char c) {
    for (;;) {
        const long sent = WriteSome(&c, 1);
        if (sent == 1) {
            return true;
        }
        if (sent == 0 || WouldBlock(errno)) {
            return false;
        }
        if (errno != EINTR) {
            THROW_ERRNO_EXCEPTION("Failed to write to port %s", m_name.c_str());
        }
    }
}

void CCommPort::Flush() {}
