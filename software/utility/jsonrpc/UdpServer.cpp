#include "jsonrpc/UdpServer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Json {
namespace Rpc {

namespace {

constexpr int kMaxPerServe = 64;

}  // namespace

UdpServer::UdpServer(const std::string& address, unsigned short port, bool sharePort)
    : m_address(address), m_port(port), m_sharePort(sharePort) {}

UdpServer::~UdpServer() { Close(); }

bool UdpServer::Bind() {
    Close();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    if (inet_pton(AF_INET, m_address.c_str(), &address.sin_addr) != 1) {
        errno = EINVAL;
        return false;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return false;
    }
    const int one = 1;
    if ((m_sharePort && setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0) ||
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return false;
    }
    m_socket = fd;
    return true;
}

void UdpServer::Close() {
    if (m_socket >= 0) {
        close(m_socket);
        m_socket = -1;
    }
}

unsigned short UdpServer::GetPort() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (m_socket < 0 || getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

bool UdpServer::ReadAndDispatch() {
    char buffer[kDatagramSize];
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t size =
        recvfrom(m_socket, buffer, sizeof buffer, MSG_TRUNC, reinterpret_cast<sockaddr*>(&sender), &length);
    if (size < 0) {
        return false;
    }
    Json::Value response;
    if (static_cast<size_t>(size) > sizeof buffer) {
        response = Handler::MakeError(Json::Value(), INVALID_REQUEST, "Datagram larger than 1500 bytes");
    } else {
        m_handler.Process(std::string(buffer, static_cast<size_t>(size)), response, kClientId);
    }
    if (response.isNull()) {
        return true;
    }
    std::string text = Handler::GetString(response);
    if (text.size() > kDatagramSize) {
        const Json::Value id = response.isObject() ? response["id"] : Json::Value();
        text = Handler::GetString(Handler::MakeError(id, INTERNAL_ERROR, "Response too large for one datagram"));
    }
    sendto(m_socket, text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&sender), length);
    return true;
}

bool UdpServer::Recv() { return m_socket >= 0 && ReadAndDispatch(); }

bool UdpServer::WaitMessage(unsigned int timeoutMs) {
    if (m_socket < 0) {
        return false;
    }
    pollfd waiting{m_socket, POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(timeoutMs)) > 0 && Recv();
}

void UdpServer::ServeWaiting() {
    for (int i = 0; i < kMaxPerServe && Recv(); ++i) {
    }
}

}  // namespace Rpc
}  // namespace Json
