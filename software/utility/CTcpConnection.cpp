#include "CTcpConnection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

int CTcpConnection::Fail(int error) {
    m_lastError = error;
    Disconnect();
    return error;
}

int CTcpConnection::Connect(const std::string& host, unsigned short port, unsigned int timeoutMs) {
    Disconnect();
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) {
        m_lastError = EHOSTUNREACH;
        return m_lastError;
    }
    sockaddr_in address = *reinterpret_cast<sockaddr_in*>(found->ai_addr);
    freeaddrinfo(found);
    address.sin_port = htons(port);

    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_fd < 0) {
        return Fail(errno);
    }
    if (connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno != EINPROGRESS) {
            return Fail(errno);
        }
        pollfd watched{m_fd, POLLOUT, 0};
        int ready;
        do {
            ready = poll(&watched, 1, static_cast<int>(timeoutMs));
        } while (ready < 0 && errno == EINTR);
        if (ready <= 0) {
            return Fail(ready == 0 ? ETIMEDOUT : errno);
        }
        int error = 0;
        socklen_t length = sizeof error;
        getsockopt(m_fd, SOL_SOCKET, SO_ERROR, &error, &length);
        if (error != 0) {
            return Fail(error);
        }
    }
    const int one = 1;
    setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    m_lastError = 0;
    return 0;
}

void CTcpConnection::Disconnect() {
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
}

int CTcpConnection::Send(const uint8_t* data, size_t length) {
    if (m_fd < 0) {
        m_lastError = ENOTCONN;
        return m_lastError;
    }
    size_t sent = 0;
    while (sent < length) {
        const ssize_t count = send(m_fd, data + sent, length - sent, MSG_NOSIGNAL);
        if (count > 0) {
            sent += static_cast<size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd watched{m_fd, POLLOUT, 0};
            if (poll(&watched, 1, static_cast<int>(kConnectTimeoutMs)) > 0) {
                continue;
            }
            return Fail(ETIMEDOUT);
        }
        return Fail(count < 0 ? errno : EPIPE);
    }
    m_lastError = 0;
    return 0;
}

int CTcpConnection::Receive(uint8_t* buffer, size_t capacity) {
    if (m_fd < 0) {
        m_lastError = ENOTCONN;
        return -1;
    }
    const ssize_t count = recv(m_fd, buffer, capacity, MSG_DONTWAIT);
    if (count > 0) {
        return static_cast<int>(count);
    }
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
        return 0;
    }
    Fail(count == 0 ? ECONNRESET : errno);
    return -1;
}
