#include "CDomainSocket.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "CException.h"
#include "RuntimeRoot.h"

static_assert(sizeof(sockaddr_un) == 110, "the address is a 2-byte family and a 108-character path");

namespace {

// Room for the credentials and for a few descriptors a sender might pass, which are closed
// at once (what does not fit is discarded by the kernel).
constexpr size_t kControlSpace = CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(16 * sizeof(int));

// The address of a path of 1 to kMaxPathLength characters, and its length as the kernel is
// told it: only the family and the path are written, since zeroing all 110 bytes for each
// datagram cost 32-bit ARM more than the rest of a send.
socklen_t FillAddress(sockaddr_un& address, const char* path, size_t pathLength) {
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, pathLength + 1);
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + pathLength + 1);
}

}  // namespace

CDomainSocket::CDomainSocket()
    : m_fd(-1), m_address{}, m_credentials{}, m_hasCredentials(false), m_passesCredentials(false),
      m_receiveTimeoutMs(~0u) {
    m_address.sun_family = AF_UNIX;
}

CDomainSocket::CDomainSocket(const char* path) : CDomainSocket() { Create(path); }

CDomainSocket::CDomainSocket(CDomainSocket&& other) noexcept
    : m_fd(other.m_fd), m_address(other.m_address), m_credentials(other.m_credentials),
      m_hasCredentials(other.m_hasCredentials), m_passesCredentials(other.m_passesCredentials),
      m_receiveTimeoutMs(other.m_receiveTimeoutMs) {
    other.m_fd = -1;
}

CDomainSocket& CDomainSocket::operator=(CDomainSocket&& other) noexcept {
    if (this != &other) {
        Close();
        m_fd = other.m_fd;
        m_address = other.m_address;
        m_credentials = other.m_credentials;
        m_hasCredentials = other.m_hasCredentials;
        m_passesCredentials = other.m_passesCredentials;
        m_receiveTimeoutMs = other.m_receiveTimeoutMs;
        other.m_fd = -1;
    }
    return *this;
}

CDomainSocket::~CDomainSocket() { Close(); }

void CDomainSocket::Close() {
    if (m_fd != -1) {
        close(m_fd);
        m_fd = -1;
        if (m_address.sun_path[0] != '\0') {
            unlink(m_address.sun_path);
        }
    }
}

sockaddr_un CDomainSocket::MakeAddress(const char* path) {
    if (strlen(path) > kMaxPathLength) {
        THROW_EXCEPTION("Socket path too long: %s", path);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path);
    return address;
}

void CDomainSocket::Create(const char* path) {
    if (!path) {
        path = "";
    }
    Close();
    const sockaddr_un address = MakeAddress(path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        THROW_ERRNO_EXCEPTION("Socket failed on %s", path);
    }
    if (path[0] != '\0') {
        unlink(path);
        const socklen_t length = static_cast<socklen_t>(strlen(path) + sizeof(address.sun_family));
        if (bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
            const int error = errno;
            close(fd);
            errno = error;
            THROW_ERRNO_EXCEPTION("Socket bind failed on %s", path);
        }
    }
    m_fd = fd;
    m_address = address;
    m_passesCredentials = false;
    m_receiveTimeoutMs = ~0u;
}

void CDomainSocket::EnableCredentials() {
    const int on = 1;
    if (m_fd == -1 || setsockopt(m_fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) {
        THROW_ERRNO_EXCEPTION("Socket credentials failed on %s", m_address.sun_path);
    }
    m_passesCredentials = true;
}

bool CDomainSocket::GetCredentials(ucred& credentials) const {
    if (m_hasCredentials) {
        credentials = m_credentials;
    }
    return m_hasCredentials;
}

int CDomainSocket::Receive(unsigned char* buffer, int length, int flags, CDomainSocket* from) {
    if (m_fd == -1) {
        THROW_EXCEPTION("Uninitialized socket");
    }
    sockaddr_un sender;
    for (;;) {
        ssize_t received = 0;
        socklen_t senderLength = sizeof sender;
        bool hasCredentials = false;
        ucred credentials{};
        if (m_passesCredentials) {
            alignas(cmsghdr) unsigned char control[kControlSpace];
            iovec data{buffer, static_cast<size_t>(length)};
            msghdr header{};
            header.msg_name = &sender;
            header.msg_namelen = senderLength;
            header.msg_iov = &data;
            header.msg_iovlen = 1;
            header.msg_control = control;
            header.msg_controllen = sizeof control;
            received = recvmsg(m_fd, &header, flags | MSG_CMSG_CLOEXEC);
            if (received >= 0) {
                TakeControl(header, credentials, hasCredentials);
                senderLength = header.msg_namelen;
            }
        } else {
            // Without room for control data the kernel installs no descriptor a sender
            // passed (it releases them), and the plain call costs less than recvmsg's
            // header copies on every request.
            received = from ? recvfrom(m_fd, buffer, static_cast<size_t>(length), flags,
                                       reinterpret_cast<sockaddr*>(&sender), &senderLength)
                            : recv(m_fd, buffer, static_cast<size_t>(length), flags);
        }
        if (received >= 0) {
            if (from) {
                SetSender(sender, senderLength, credentials, hasCredentials, *from);
            }
            return static_cast<int>(received);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return -1;
        }
        if (errno != EINTR) {
            THROW_ERRNO_EXCEPTION("Socket recvfrom failed on %s", m_address.sun_path);
        }
    }
}

void CDomainSocket::TakeControl(msghdr& header, ucred& credentials, bool& hasCredentials) {
    hasCredentials = false;
    for (cmsghdr* part = CMSG_FIRSTHDR(&header); part; part = CMSG_NXTHDR(&header, part)) {
        if (part->cmsg_level != SOL_SOCKET) {
            continue;
        }
        if (part->cmsg_type == SCM_CREDENTIALS && part->cmsg_len >= CMSG_LEN(sizeof(ucred))) {
            memcpy(&credentials, CMSG_DATA(part), sizeof credentials);
            hasCredentials = true;
        } else if (part->cmsg_type == SCM_RIGHTS) {
            const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (size_t i = 0; i < count; ++i) {
                int fd = -1;
                memcpy(&fd, CMSG_DATA(part) + i * sizeof(int), sizeof fd);
                close(fd);
            }
        }
    }
}

void CDomainSocket::SetSender(sockaddr_un& sender, socklen_t length, const ucred& credentials, bool hasCredentials,
                              CDomainSocket& from) {
    // The kernel writes only as much of the address as the sender bound: nothing of the path
    // for an unbound sender, which so has an empty one, and a path without its terminator,
    // which gets one here (a 108-character path loses its last character to it).
    const size_t pathLength = length > offsetof(sockaddr_un, sun_path) ? length - offsetof(sockaddr_un, sun_path) : 0;
    sender.sun_family = AF_UNIX;
    sender.sun_path[std::min(pathLength, kMaxPathLength)] = '\0';
    from.m_address = sender;
    from.m_credentials = credentials;
    from.m_hasCredentials = hasCredentials;
}

int CDomainSocket::RecvBatchNoBlock(SDomainDatagram* slots, int count) {
    if (m_fd == -1) {
        THROW_EXCEPTION("Uninitialized socket");
    }
    count = std::min(count, kMaxBatch);
    sockaddr_un senders[kMaxBatch];
    iovec data[kMaxBatch];
    mmsghdr headers[kMaxBatch];
    alignas(cmsghdr) unsigned char control[kMaxBatch][kControlSpace];
    // Only what the kernel reads is set: it writes the rest, up to the lengths it reports.
    for (int i = 0; i < count; ++i) {
        data[i] = iovec{slots[i].buffer, static_cast<size_t>(slots[i].capacity)};
        headers[i].msg_hdr.msg_name = &senders[i];
        headers[i].msg_hdr.msg_namelen = sizeof senders[i];
        headers[i].msg_hdr.msg_iov = &data[i];
        headers[i].msg_hdr.msg_iovlen = 1;
        headers[i].msg_hdr.msg_control = m_passesCredentials ? control[i] : nullptr;
        headers[i].msg_hdr.msg_controllen = m_passesCredentials ? sizeof control[i] : 0;
    }
    for (;;) {
        const int received = recvmmsg(m_fd, headers, static_cast<unsigned>(count), MSG_DONTWAIT | MSG_CMSG_CLOEXEC,
                                      nullptr);
        if (received >= 0) {
            for (int i = 0; i < received; ++i) {
                bool hasCredentials = false;
                ucred credentials{};
                TakeControl(headers[i].msg_hdr, credentials, hasCredentials);
                SetSender(senders[i], headers[i].msg_hdr.msg_namelen, credentials, hasCredentials, slots[i].from);
                slots[i].length = static_cast<int>(headers[i].msg_len);
            }
            return received;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return 0;
        }
        if (errno != EINTR) {
            THROW_ERRNO_EXCEPTION("Socket recvfrom failed on %s", m_address.sun_path);
        }
    }
}

int CDomainSocket::RecvFrom(unsigned char* buffer, int length, int flags, CDomainSocket* from) {
    const int received = Receive(buffer, length, flags, from);
    return received < 0 ? 0 : received;
}

int CDomainSocket::RecvFromNoBlock(unsigned char* buffer, int length, int flags, CDomainSocket* from) {
    return RecvFrom(buffer, length, flags | MSG_DONTWAIT, from);
}

int CDomainSocket::RecvFromTimed(unsigned char* buffer, int length, CDomainSocket* from, unsigned int timeoutMs) {
    if (timeoutMs == 0) {
        return Receive(buffer, length, MSG_DONTWAIT, from);
    }
    if (m_fd != -1 && timeoutMs != m_receiveTimeoutMs) {
        timeval timeout{};
        timeout.tv_sec = static_cast<time_t>(timeoutMs / 1000);
        timeout.tv_usec = static_cast<suseconds_t>((timeoutMs % 1000) * 1000);
        if (setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
            THROW_ERRNO_EXCEPTION("Socket recvfrom failed on %s", m_address.sun_path);
        }
        m_receiveTimeoutMs = timeoutMs;
    }
    return Receive(buffer, length, 0, from);
}

int CDomainSocket::SendTo(const unsigned char* data, int length, const char* path, int flags) {
    if (m_fd == -1) {
        THROW_EXCEPTION("Uninitialized socket");
    }
    path = path ? path : "";
    const size_t pathLength = strlen(path);
    sockaddr_un to;
    socklen_t toLength = sizeof to;
    if (pathLength == 0 || pathLength > kMaxPathLength) {
        to = MakeAddress(path);  // empty: all zeros, as it always meant here; too long: throws
    } else {
        toLength = FillAddress(to, path, pathLength);
    }
    for (;;) {
        const ssize_t sent = sendto(m_fd, data, static_cast<size_t>(length), flags,
                                    reinterpret_cast<const sockaddr*>(&to), toLength);
        if (sent >= 0) {
            return static_cast<int>(sent);
        }
        if (errno != EINTR) {
            THROW_ERRNO_EXCEPTION("Socket sendto failed from %s to %s", m_address.sun_path, to.sun_path);
        }
    }
}

int CDomainSocket::SendToEach(const unsigned char* data, int length, const std::string* const* paths, int count,
                              int flags) {
    if (m_fd == -1) {
        THROW_EXCEPTION("Uninitialized socket");
    }
    count = std::min(count, kMaxSendBatch);
    sockaddr_un to[kMaxSendBatch];
    iovec bytes{const_cast<unsigned char*>(data), static_cast<size_t>(length)};
    mmsghdr headers[kMaxSendBatch];
    int ready = 0;
    for (; ready < count; ++ready) {
        const std::string& path = *paths[ready];
        const size_t pathLength = path.size();
        if (pathLength == 0 || pathLength > kMaxPathLength) {
            break;  // the caller's SendTo of this one, or its own check, says why it cannot go
        }
        headers[ready] = mmsghdr{};
        headers[ready].msg_hdr.msg_name = &to[ready];
        headers[ready].msg_hdr.msg_namelen = FillAddress(to[ready], path.c_str(), pathLength);
        headers[ready].msg_hdr.msg_iov = &bytes;
        headers[ready].msg_hdr.msg_iovlen = 1;
    }
    if (ready == 0) {
        return 0;
    }
    for (;;) {
        const int sent = sendmmsg(m_fd, headers, static_cast<unsigned>(ready), flags);
        if (sent >= 0) {
            return sent;
        }
        if (errno != EINTR) {
            return 0;
        }
    }
}

int CDomainSocket::SendTo(const unsigned char* data, int length, const CDomainSocket& to, int flags) {
    return SendTo(data, length, to.m_address.sun_path, flags);
}

void CDomainSocket::Connect(const char* path) {
    if (m_fd == -1) {
        THROW_EXCEPTION("Uninitialized socket");
    }
    const sockaddr_un to = MakeAddress(path ? path : "");
    if (connect(m_fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        THROW_ERRNO_EXCEPTION("Socket connect failed from %s to %s", m_address.sun_path, to.sun_path);
    }
}

void CDomainSocket::SetSockAddr(const char* path) {
    m_address = sockaddr_un{};
    m_address.sun_family = AF_UNIX;
    strncpy(m_address.sun_path, path ? path : "", sizeof m_address.sun_path);
    m_address.sun_path[kMaxPathLength] = '\0';
}

void CDomainSocket::SetQueueDepth(unsigned int depth) {
    const std::string path = NRuntimeRoot::Path("/proc/sys/net/unix/max_dgram_qlen");
    const int fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0) {
        THROW_ERRNO_EXCEPTION("Unable to set the datagram queue depth in %s", path.c_str());
    }
    char text[16];
    const int length = snprintf(text, sizeof text, "%u\n", depth);
    const ssize_t written = write(fd, text, static_cast<size_t>(length));
    const int error = errno;
    close(fd);
    if (written != length) {
        errno = error;
        THROW_ERRNO_EXCEPTION("Unable to set the datagram queue depth in %s", path.c_str());
    }
}
