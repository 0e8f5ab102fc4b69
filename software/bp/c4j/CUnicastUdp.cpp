#include "CUnicastUdp.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>

#include "CException.h"
#include "net/NNetInterface.h"

void CUnicastUdpServer::UnicastBind(const std::string& interface) {
    if (!Bind()) {
        THROW_EXCEPTION("Error binding to unicast server socket: %s", strerror(errno));
    }
    if (!interface.empty() && !NNetInterface::BindToDevice(GetSocket(), interface)) {
        const int error = errno;
        Close();
        THROW_EXCEPTION("Error setting the network interface to %s: %s", interface.c_str(), strerror(error));
    }
}

void CUnicastUdpServer::AddDescriptors(CPollSet& poll) {
    if (GetSocket() >= 0) {
        poll.Add(GetSocket(), true, false);
    }
}

void CUnicastUdpServer::ProcessReady(const CPollSet& poll) {
    if (GetSocket() >= 0 && poll.IsReadable(GetSocket())) {
        ServeWaiting();
    }
}

void CUnicastUdpClient::UnicastConnect(const std::string& interface) {
    if (!Connect()) {
        THROW_EXCEPTION("Error building unicast client socket: %s", strerror(errno));
    }
    if (!interface.empty() && !NNetInterface::BindToDevice(GetSocket(), interface)) {
        const int error = errno;
        Close();
        THROW_EXCEPTION("Error setting the network interface to %s: %s", interface.c_str(), strerror(error));
    }
}

void CUnicastUdpClient::SetIp(const std::string& address) {
    if (!SetAddress(address)) {
        THROW_EXCEPTION("Invalid IP Address given : [%s]", address.c_str());
    }
}

void CUnicastUdpClient::SetRecvTimeout(unsigned int ms) {
    timeval timeout{};
    timeout.tv_sec = static_cast<time_t>(ms / 1000);
    timeout.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
    if (setsockopt(GetSocket(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        THROW_EXCEPTION("Error setting a timeout for a UnicastUdpClient receive socket: %s", strerror(errno));
    }
}

bool CUnicastUdpClient::Call(const std::string& request, std::string& answer) {
    if (!Send(request)) {
        return false;
    }
    char buffer[Json::Rpc::UdpServer::kDatagramSize];
    const ssize_t size = recv(GetSocket(), buffer, sizeof buffer, 0);
    if (size < 0) {
        return false;
    }
    answer.assign(buffer, static_cast<size_t>(size));
    return true;
}
