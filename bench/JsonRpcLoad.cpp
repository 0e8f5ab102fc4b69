#include "JsonRpcLoad.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

[[noreturn]] void Fail(const char* what) {
    fprintf(stderr, "JSON-RPC load: %s: %s\n", what, strerror(errno));
    abort();
}

sockaddr_in Loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void SetNoDelay(int fd) {
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

int CountNuls(const char* data, size_t length) {
    int count = 0;
    const char* const end = data + length;
    for (const char* p = data; (p = static_cast<const char*>(memchr(p, '\0', static_cast<size_t>(end - p)))); ++p) {
        ++count;
    }
    return count;
}

}  // namespace

CJsonRpcLoad::CJsonRpcLoad(unsigned short port, int connections) {
    const sockaddr_in address = Loopback(port);
    m_connections.resize(static_cast<size_t>(connections));
    for (int i = 0; i < connections; ++i) {
        if (i > 0 && i % 32 == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            Fail("connect");
        }
        SetNoDelay(fd);
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        m_connections[static_cast<size_t>(i)].fd = fd;
        m_all.push_back(static_cast<size_t>(i));
    }
}

CJsonRpcLoad::~CJsonRpcLoad() {
    for (SConnection& connection : m_connections) {
        close(connection.fd);
    }
}

void CJsonRpcLoad::Send(SConnection& connection, const std::string& request, int copies, Clock::time_point now) {
    for (int i = 0; i < copies; ++i) {
        connection.output.append(request);
        connection.output.push_back('\0');
        connection.outstanding.push_back(now);
    }
    if (!Flush(connection)) {
        Fail("send");
    }
}

bool CJsonRpcLoad::Flush(SConnection& connection) {
    while (connection.outputSent < connection.output.size()) {
        const ssize_t sent = send(connection.fd, connection.output.data() + connection.outputSent,
                                  connection.output.size() - connection.outputSent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            connection.outputSent += static_cast<size_t>(sent);
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return true;
        } else if (!(sent < 0 && errno == EINTR)) {
            return false;
        }
    }
    connection.output.clear();
    connection.outputSent = 0;
    return true;
}

int CJsonRpcLoad::Receive(SConnection& connection, bool keep) {
    const ssize_t received = recv(connection.fd, m_receiveArea, sizeof m_receiveArea, MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
        return 0;
    }
    if (received <= 0) {
        return -1;
    }
    const size_t length = static_cast<size_t>(received);
    if (!keep) {
        const int count = CountNuls(m_receiveArea, length);
        connection.received += static_cast<uint64_t>(count);
        return count;
    }
    int count = 0;
    for (size_t i = 0; i < length; ++i) {
        if (m_receiveArea[i] == '\0') {
            connection.last.swap(connection.partial);
            connection.partial.clear();
            ++count;
        } else {
            connection.partial.push_back(m_receiveArea[i]);
        }
    }
    connection.received += static_cast<uint64_t>(count);
    return count;
}

bool CJsonRpcLoad::Poll(const std::vector<size_t>& which, int timeoutMs) {
    m_pollFds.resize(which.size());
    for (size_t i = 0; i < which.size(); ++i) {
        const SConnection& connection = m_connections[which[i]];
        m_pollFds[i].fd = connection.fd;
        m_pollFds[i].events = static_cast<short>(POLLIN | (connection.outputSent < connection.output.size() ? POLLOUT : 0));
        m_pollFds[i].revents = 0;
    }
    int ready;
    do {
        ready = poll(m_pollFds.data(), m_pollFds.size(), timeoutMs);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) {
        Fail("poll");
    }
    return ready > 0;
}

bool CJsonRpcLoad::Run(const std::string& request, uint64_t total, int inFlight, int timeoutMs) {
    uint64_t sent = 0;
    uint64_t answered = 0;
    Clock::time_point now = Clock::now();
    for (SConnection& connection : m_connections) {
        connection.received = 0;
        connection.outstanding.clear();
        const int copies = static_cast<int>(std::min<uint64_t>(static_cast<uint64_t>(inFlight), total - sent));
        if (copies > 0) {
            Send(connection, request, copies, now);
            sent += static_cast<uint64_t>(copies);
        }
    }
    while (answered < total) {
        if (!Poll(m_all, timeoutMs)) {
            return false;
        }
        for (size_t i = 0; i < m_connections.size(); ++i) {
            const short events = m_pollFds[i].revents;
            if (events == 0) {
                continue;
            }
            SConnection& connection = m_connections[i];
            if ((events & POLLOUT) && !Flush(connection)) {
                return false;
            }
            if ((events & (POLLIN | POLLHUP | POLLERR)) == 0) {
                continue;
            }
            const int count = Receive(connection, false);
            if (count < 0) {
                return false;
            }
            if (count == 0) {
                continue;
            }
            now = Clock::now();
            for (int k = 0; k < count && !connection.outstanding.empty(); ++k) {
                m_latenciesNs.push_back(static_cast<uint64_t>(
                    std::chrono::duration_cast<std::chrono::nanoseconds>(now - connection.outstanding.front()).count()));
                connection.outstanding.pop_front();
            }
            connection.received = 0;
            answered += static_cast<uint64_t>(count);
            const int copies = static_cast<int>(std::min<uint64_t>(static_cast<uint64_t>(count), total - sent));
            if (copies > 0) {
                Send(connection, request, copies, now);
                sent += static_cast<uint64_t>(copies);
            }
        }
    }
    return true;
}

bool CJsonRpcLoad::RequestOnAll(const std::string& text, int timeoutMs) {
    const Clock::time_point now = Clock::now();
    for (SConnection& connection : m_connections) {
        connection.received = 0;
        Send(connection, text, 1, now);
    }
    const bool answered = WaitForEach(1, timeoutMs, true);
    for (SConnection& connection : m_connections) {
        connection.outstanding.clear();
    }
    return answered;
}

bool CJsonRpcLoad::WaitForEach(int count, int timeoutMs, bool keep) {
    const uint64_t wanted = static_cast<uint64_t>(count);
    // Only the connections still short are polled, so the wait gets cheaper as it ends.
    m_waiting.clear();
    for (size_t i = 0; i < m_connections.size(); ++i) {
        if (m_connections[i].received < wanted) {
            m_waiting.push_back(i);
        }
    }
    while (!m_waiting.empty()) {
        if (!Poll(m_waiting, timeoutMs)) {
            return false;
        }
        size_t kept = 0;
        for (size_t k = 0; k < m_waiting.size(); ++k) {
            const short events = m_pollFds[k].revents;
            SConnection& connection = m_connections[m_waiting[k]];
            if ((events & POLLOUT) && !Flush(connection)) {
                return false;
            }
            if ((events & (POLLIN | POLLHUP | POLLERR)) && Receive(connection, keep) < 0) {
                return false;
            }
            if (connection.received < wanted) {
                m_waiting[kept++] = m_waiting[k];
            }
        }
        m_waiting.resize(kept);
    }
    for (SConnection& connection : m_connections) {
        connection.received -= wanted;
    }
    return true;
}

double CWorkTimer::MeanMicroseconds(uint64_t count) const {
    for (int wait = 0; m_count.load() < count; ++wait) {
        if (wait == 1000) {
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return count == 0 ? 0 : static_cast<double>(m_ns.load()) / 1e3 / static_cast<double>(count);
}

CNulEchoServer::CNulEchoServer(std::string reply, std::function<void()> onStart, std::string notification)
    : m_reply(std::move(reply)), m_notification(std::move(notification)), m_onStart(std::move(onStart)) {
    m_reply.push_back('\0');
    m_notification.push_back('\0');
    if (pipe2(m_stopPipe, O_CLOEXEC) != 0 || pipe2(m_broadcastPipe, O_CLOEXEC) != 0) {
        Fail("pipe");
    }
    sockaddr_in address = Loopback(0);
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    socklen_t length = sizeof address;
    if (m_listener < 0 || bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listener, 64) != 0 ||
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        Fail("echo listen");
    }
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { Serve(); });
}

CNulEchoServer::~CNulEchoServer() {
    const char stop = 1;
    [[maybe_unused]] const ssize_t written = write(m_stopPipe[1], &stop, 1);
    m_thread.join();
    close(m_listener);
    close(m_stopPipe[0]);
    close(m_stopPipe[1]);
    close(m_broadcastPipe[0]);
    close(m_broadcastPipe[1]);
}

void CNulEchoServer::Broadcast() {
    const char go = 1;
    [[maybe_unused]] const ssize_t written = write(m_broadcastPipe[1], &go, 1);
}

void CNulEchoServer::Serve() {
    if (m_onStart) {
        m_onStart();
    }
    struct SClient {
        int fd;
        std::string output;
        size_t outputSent;
    };
    std::vector<SClient> clients;
    std::vector<pollfd> fds;
    char buffer[4096];
    auto flush = [](SClient& client) {
        while (client.outputSent < client.output.size()) {
            const ssize_t sent = send(client.fd, client.output.data() + client.outputSent,
                                      client.output.size() - client.outputSent, MSG_DONTWAIT | MSG_NOSIGNAL);
            if (sent > 0) {
                client.outputSent += static_cast<size_t>(sent);
            } else if (sent < 0 && errno == EINTR) {
                continue;
            } else {
                return sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
            }
        }
        client.output.clear();
        client.outputSent = 0;
        return true;
    };
    for (;;) {
        fds.clear();
        fds.push_back({m_stopPipe[0], POLLIN, 0});
        fds.push_back({m_listener, POLLIN, 0});
        fds.push_back({m_broadcastPipe[0], POLLIN, 0});
        for (const SClient& client : clients) {
            fds.push_back({client.fd, static_cast<short>(POLLIN | (client.output.empty() ? 0 : POLLOUT)), 0});
        }
        if (poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            Fail("echo poll");
        }
        if (fds[0].revents) {
            break;
        }
        if (fds[1].revents & POLLIN) {
            const int fd = accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd >= 0) {
                SetNoDelay(fd);
                clients.push_back({fd, std::string(), 0});
            }
        }
        if (fds[2].revents & POLLIN) {
            char go = 0;
            if (read(m_broadcastPipe[0], &go, 1) == 1) {
                const auto start = std::chrono::steady_clock::now();
                for (SClient& client : clients) {
                    client.output.append(m_notification);
                    flush(client);
                }
                m_broadcastTime.Add(std::chrono::steady_clock::now() - start);
            }
        }
        // Only the clients that were polled (a client accepted above has no entry yet).
        const size_t polled = fds.size() - 3;
        for (size_t i = 0; i < polled; ++i) {
            const short events = fds[i + 3].revents;
            SClient& client = clients[i];
            bool open = true;
            if (events & POLLOUT) {
                open = flush(client);
            }
            if (open && (events & (POLLIN | POLLHUP | POLLERR))) {
                const ssize_t received = recv(client.fd, buffer, sizeof buffer, MSG_DONTWAIT);
                if (received > 0) {
                    for (int n = CountNuls(buffer, static_cast<size_t>(received)); n > 0; --n) {
                        client.output.append(m_reply);
                    }
                    open = flush(client);
                } else if (received == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
                    open = false;
                }
            }
            if (!open) {
                close(client.fd);
                client.fd = -1;
            }
        }
        clients.erase(std::remove_if(clients.begin(), clients.end(), [](const SClient& c) { return c.fd < 0; }),
                      clients.end());
    }
    for (const SClient& client : clients) {
        close(client.fd);
    }
}
