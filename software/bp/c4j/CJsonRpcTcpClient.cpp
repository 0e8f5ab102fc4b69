#include "CJsonRpcTcpClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "CException.h"

CJsonRpcTcpClient::CJsonRpcTcpClient(const std::string& address, unsigned short port) {
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &server.sin_addr) != 1) {
        THROW_EXCEPTION("Unable to connect to server %s:%d (not an IPv4 address)", address.c_str(), port);
    }
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0 || connect(m_fd, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) {
        const int error = errno;
        if (m_fd >= 0) {
            close(m_fd);
        }
        errno = error;
        THROW_ERRNO_EXCEPTION("Unable to connect to server %s:%d", address.c_str(), port);
    }
    const int one = 1;
    setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

CJsonRpcTcpClient::~CJsonRpcTcpClient() { close(m_fd); }

void CJsonRpcTcpClient::Send(const std::string& text) {
    std::string message = text;
    message.push_back('\0');
    size_t done = 0;
    while (done < message.size()) {
        const ssize_t sent = send(m_fd, message.data() + done, message.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            THROW_ERRNO_EXCEPTION("Unable to send data to server");
        }
        done += static_cast<size_t>(sent);
    }
}

bool CJsonRpcTcpClient::ProcessReceivedData(std::deque<std::string>& messages) {
    char buffer[4096];
    const ssize_t received = recv(m_fd, buffer, sizeof buffer, MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
        return false;
    }
    if (received <= 0) {
        THROW_ERRNO_EXCEPTION("Unable to recv data from server");
    }
    if (!m_framer.Add(buffer, static_cast<size_t>(received), messages)) {
        THROW_EXCEPTION("Unable to recv data from server (message without end)");
    }
    return true;
}

bool CJsonRpcTcpClient::Recv(std::deque<std::string>& messages, bool wait, unsigned int timeoutMs) {
    const size_t before = messages.size();
    while (!m_ready.empty()) {
        messages.push_back(std::move(m_ready.front()));
        m_ready.pop_front();
    }
    pollfd entry{m_fd, POLLIN, 0};
    if (messages.size() == before && wait && poll(&entry, 1, static_cast<int>(timeoutMs)) <= 0) {
        return false;
    }
    while (ProcessReceivedData(messages)) {
    }
    return messages.size() > before;
}

bool CJsonRpcTcpClient::Recv(std::string& message, unsigned int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_ready.empty()) {
        // Past the deadline the poll still looks once without waiting, so what has already
        // arrived is taken (a time-out of 0 reads without waiting instead of never reading).
        const auto left = std::max<std::chrono::milliseconds::rep>(
            0, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
                   .count());
        pollfd entry{m_fd, POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(left)) <= 0) {
            return false;
        }
        while (ProcessReceivedData(m_ready)) {
        }
    }
    message = std::move(m_ready.front());
    m_ready.pop_front();
    return true;
}
