#include "CMulticastUdpClient.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "CException.h"
#include "net/NNetInterface.h"

void CMulticastUdpClient::MulticastConnect(const std::string& interface) {
    if (!Connect()) {
        THROW_EXCEPTION("Could not build multicast client socket: %s", strerror(errno));
    }
    in_addr address{};
    if (!NNetInterface::GetIPv4Address(interface, address) ||
        setsockopt(GetSocket(), IPPROTO_IP, IP_MULTICAST_IF, &address, sizeof address) != 0) {
        const int error = errno;
        Close();
        THROW_EXCEPTION("Could not set the outgoing multicast interface to %s: %s", interface.c_str(), strerror(error));
    }
    const unsigned char loop = 1;
    if (setsockopt(GetSocket(), IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop) != 0) {
        const int error = errno;
        Close();
        THROW_EXCEPTION("Could not enable multicast loopback: %s", strerror(error));
    }
}

bool CMulticastUdpClient::ProcessReceivedData(SJsonRpcMulticastResponse& response, const char* data, size_t size) {
    response.text.append(data, size);
    if (!response.text.empty() && (response.text[0] == '\0' || (response.text[0] >= '0' && response.text[0] <= '9'))) {
        printf("Ignoring response: %c\n", response.text[0] == '\0' ? ' ' : response.text[0]);
        fflush(stdout);
        response.text.clear();
        return false;
    }
    return true;
}
