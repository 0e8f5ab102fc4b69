#include "net/NNetInterface.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// One interface request; false with errno set.
bool Ask(const std::string& name, unsigned long question, ifreq& request) {
    if (name.empty() || name.size() >= IFNAMSIZ) {
        errno = ENODEV;
        return false;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    memcpy(request.ifr_name, name.c_str(), name.size());
    const bool ok = ioctl(fd, question, &request) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return ok;
}

}  // namespace

namespace NNetInterface {

bool GetIPv4Address(const std::string& name, in_addr& address) {
    ifreq request{};
    request.ifr_addr.sa_family = AF_INET;
    if (!Ask(name, SIOCGIFADDR, request)) {
        return false;
    }
    sockaddr_in found{};
    memcpy(&found, &request.ifr_addr, sizeof found);
    address = found.sin_addr;
    return true;
}

bool GetMacAddress(const std::string& name, std::string& mac) {
    ifreq request{};
    if (!Ask(name, SIOCGIFHWADDR, request)) {
        return false;
    }
    char text[18];
    const auto* bytes = reinterpret_cast<const unsigned char*>(request.ifr_hwaddr.sa_data);
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
             bytes[5]);
    mac = text;
    return true;
}

bool BindToDevice(int socket, const std::string& name) {
    return setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, name.c_str(), static_cast<socklen_t>(name.size())) == 0;
}

}  // namespace NNetInterface
