#include "jsonrpc/Server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Json {
namespace Rpc {

Server::Server(const std::string& address, unsigned short port) : m_address(address), m_port(port) {}

Server::~Server() { Close(); }

bool Server::Bind() {
    Close();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    if (inet_pton(AF_INET, m_address.c_str(), &address.sin_addr) != 1) {
        return false;
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return false;
    }
    // A restarted server must not wait out the TIME_WAIT connections of its predecessor.
    const int one = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return false;
    }
    m_socket = fd;
    return true;
}

bool Server::Listen(int backlog) const { return m_socket >= 0 && listen(m_socket, backlog) == 0; }

void Server::Close() {
    if (m_socket >= 0) {
        close(m_socket);
        m_socket = -1;
    }
}

unsigned short Server::GetPort() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (m_socket < 0 || getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

}  // namespace Rpc
}  // namespace Json
