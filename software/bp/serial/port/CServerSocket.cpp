#include "CServerSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "CException.h"
#include "RuntimeRoot.h"

CServerSocket::CServerSocket(unsigned short port, bool localOnly)
    : m_port(port), m_address(htonl(localOnly ? INADDR_LOOPBACK : INADDR_ANY)) {}

CServerSocket::~CServerSocket() { Close(); }

void CServerSocket::Close() {
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
}

void CServerSocket::CloseAndThrow(const char* message) {
    const int error = errno;
    Close();
    errno = error;
    THROW_ERRNO_EXCEPTION("%s", message);
}

int CServerSocket::Init() {
    Close();
    m_keepAliveWarnings.clear();
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        THROW_ERRNO_EXCEPTION("Error clearing old socket");
    }
    // Held in m_fd at once so that every throw below closes it again.
    m_fd = fd;
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        CloseAndThrow("Error clearing old socket");
    }
    WriteKeepAliveSetting("/proc/sys/net/ipv4/tcp_keepalive_time", "120");
    WriteKeepAliveSetting("/proc/sys/net/ipv4/tcp_keepalive_intvl", "30");
    WriteKeepAliveSetting("/proc/sys/net/ipv4/tcp_keepalive_probes", "3");
    if (setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on) != 0) {
        CloseAndThrow("Failed to set keepalive");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    address.sin_addr.s_addr = m_address;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        CloseAndThrow("Failed binding");
    }
    if (listen(fd, kBacklog) != 0) {
        CloseAndThrow("Failed listening");
    }
    return fd;
}

void CServerSocket::WriteKeepAliveSetting(const char* systemPath, const char* value) {
    const std::string path = NRuntimeRoot::Path(systemPath);
    const int fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    const size_t length = strlen(value);
    const bool written = fd >= 0 && write(fd, value, length) == static_cast<ssize_t>(length);
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!written) {
        m_keepAliveWarnings.push_back("Cannot set " + path + " to " + value + ": " + strerror(error));
    }
}

int CServerSocket::Accept(std::string& peerName) {
    sockaddr_in peer{};
    for (;;) {
        socklen_t length = sizeof peer;
        const int fd = accept4(m_fd, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
        if (fd >= 0) {
            char address[INET_ADDRSTRLEN] = "";
            inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
            char name[kMaxPeerName + 1];
            snprintf(name, sizeof name, "%s-%d", address, ntohs(peer.sin_port));
            peerName = name;
            return fd;
        }
        if (errno != EINTR) {
            THROW_ERRNO_EXCEPTION("Failed to accept incoming connection");
        }
    }
}

unsigned short CServerSocket::GetPort() const {
    if (m_fd < 0) {
        return m_port;
    }
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    if (getsockname(m_fd, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
        THROW_ERRNO_EXCEPTION("Failed to read the bound port");
    }
    return ntohs(bound.sin_port);
}
