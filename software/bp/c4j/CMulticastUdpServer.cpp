#include "CMulticastUdpServer.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "CException.h"
#include "net/NNetInterface.h"

CMulticastUdpServer::CMulticastUdpServer(const std::string& group, unsigned short port)
    : Json::Rpc::UdpServer("0.0.0.0", port, true), m_group(group) {}

void CMulticastUdpServer::MulticastBind(const std::string& interface) {
    if (!Bind()) {
        THROW_EXCEPTION("Error binding to multicast server socket: %s", strerror(errno));
    }
    if (!NNetInterface::BindToDevice(GetSocket(), interface)) {
        const int error = errno;
        Close();
        THROW_EXCEPTION("Error setting the network interface to %s: %s", interface.c_str(), strerror(error));
    }
    ip_mreq membership{};
    if (!NNetInterface::GetIPv4Address(interface, membership.imr_interface)) {
        const int error = errno;
        Close();
        THROW_EXCEPTION("Could not obtain the network address of the network interface %s: %s", interface.c_str(),
                        strerror(error));
    }
    if (inet_pton(AF_INET, m_group.c_str(), &membership.imr_multiaddr) != 1) {
        Close();
        THROW_EXCEPTION("Error subscribing to multicast address: %s", "not a dotted IPv4 address");
    }
    if (setsockopt(GetSocket(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        const int error = errno;
        Close();
        THROW_EXCEPTION("Error subscribing to multicast address: %s", strerror(error));
    }
}

void CMulticastUdpServer::SetReceiveBufferSize(int bytes) {
    if (setsockopt(GetSocket(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        THROW_EXCEPTION("Unable to set the socket's receive buffer size: %s", strerror(errno));
    }
}

bool CMulticastUdpServer::Recv() {
    if (GetSocket() < 0) {
        return false;
    }
    if (!m_filter.empty()) {
        char peek = 0;
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        if (recvfrom(GetSocket(), &peek, 1, MSG_PEEK | MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &length) <
            0) {
            return false;
        }
        char address[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &sender.sin_addr, address, sizeof address);
        if (m_filter != address) {
            char dropped[kDatagramSize];
            recv(GetSocket(), dropped, sizeof dropped, MSG_DONTWAIT);
            return true;
        }
    }
    return ReadAndDispatch();
}
