#include "jsonrpc/UdpClient.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "jsonrpc/UdpServer.h"

namespace Json {
namespace Rpc {

UdpClient::UdpClient(const std::string& address, unsigned short port) : m_address(address), m_port(port) {}

UdpClient::~UdpClient() { Close(); }

bool UdpClient::Connect() {
    Close();
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return m_socket >= 0;
}

void UdpClient::Close() {
    if (m_socket >= 0) {
        close(m_socket);
        m_socket = -1;
    }
}

bool UdpClient::SetAddress(const std::string& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        return false;
    }
    m_address = address;
    return true;
}

bool UdpClient::Send(const std::string& text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    if (m_socket < 0 || inet_pton(AF_INET, m_address.c_str(), &address.sin_addr) != 1) {
        errno = m_socket < 0 ? EBADF : EINVAL;
        return false;
    }
    return sendto(m_socket, text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                  sizeof address) == static_cast<ssize_t>(text.size());
}

bool UdpClient::Recv(std::string& text, sockaddr_in& sender, unsigned int timeoutMs) {
    if (m_socket < 0) {
        return false;
    }
    pollfd waiting{m_socket, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(timeoutMs)) <= 0) {
        return false;
    }
    char buffer[UdpServer::kDatagramSize];
    socklen_t length = sizeof sender;
    const ssize_t size =
        recvfrom(m_socket, buffer, sizeof buffer, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &length);
    if (size < 0) {
        return false;
    }
    text.assign(buffer, static_cast<size_t>(size));
    return true;
}

}  // namespace Rpc
}  // namespace Json
