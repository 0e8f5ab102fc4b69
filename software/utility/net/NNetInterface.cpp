#include "net/NNetInterface.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace NNetInterface {

bool GetIPv4Address(const std::string& name, in_addr& address) {
    if (name.empty() || name.size() >= IFNAMSIZ) {
        errno = ENODEV;
        return false;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    ifreq request{};
    memcpy(request.ifr_name, name.c_str(), name.size());
    request.ifr_addr.sa_family = AF_INET;
    const bool ok = ioctl(fd, SIOCGIFADDR, &request) == 0;
    const int error = errno;
    close(fd);
    if (!ok) {
        errno = error;
        return false;
    }
    sockaddr_in found{};
    memcpy(&found, &request.ifr_addr, sizeof found);
    address = found.sin_addr;
    return true;
}

bool BindToDevice(int socket, const std::string& name) {
    return setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, name.c_str(), static_cast<socklen_t>(name.size())) == 0;
}

}  // namespace NNetInterface
