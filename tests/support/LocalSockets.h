#pragma once
// Sockets of tests on 127.0.0.1: addresses, a listener on a port of the kernel's choice,
// client connections, and reading from any descriptor until an expected text arrived.

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>

inline sockaddr_in Loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A listening socket on a free port, which `port` receives; -1 on failure.
inline int ListenLocal(unsigned short& port, int backlog = 4) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(fd, backlog) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        close(fd);
        return -1;
    }
    port = ntohs(address.sin_port);
    return fd;
}

// A blocking client connected to 127.0.0.1:port, or -1 when nothing accepts there. A
// receiveBuffer is set before connecting, so that the advertised window stays small too.
inline int ConnectLocal(unsigned short port, int receiveBuffer = 0) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    const sockaddr_in address = Loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Reads until `expected` arrived, the writer closed or `seconds` passed, and returns
// everything read; `turn` runs between reads (a loop that runs in the test's thread).
inline std::string ReadUntil(int fd, const std::string& expected, int seconds = 10,
                             const std::function<void()>& turn = nullptr) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::string got;
    while (got.find(expected) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        pollfd watched{fd, POLLIN, 0};
        if (poll(&watched, 1, turn ? 0 : 50) == 1) {
            char chunk[256];
            const ssize_t count = read(fd, chunk, sizeof chunk);
            if (count <= 0) {
                break;
            }
            got.append(chunk, static_cast<size_t>(count));
        } else if (turn) {
            turn();
        }
    }
    return got;
}

// Sends `text` over a new connection and reads until `expected` (or 10 s); the answer read.
inline std::string TcpExchange(unsigned short port, const std::string& text, const std::string& expected) {
    const int fd = ConnectLocal(port);
    const bool sent = fd >= 0 && send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    const std::string got = sent ? ReadUntil(fd, expected) : "";
    if (fd >= 0) {
        close(fd);
    }
    return got;
}
