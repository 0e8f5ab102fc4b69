#include "NFreePort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <random>
#include <set>

bool NFreePort::IsFree(int port) {
    bool free = true;
    for (int type : {SOCK_STREAM, SOCK_DGRAM}) {
        const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<unsigned short>(port));
        free = free && fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        close(fd);
    }
    return free;
}

int NFreePort::Pick() {
    static std::minstd_rand random(static_cast<unsigned int>(getpid()) ^ static_cast<unsigned int>(time(nullptr)));
    static std::set<int> handedOut;
    int firstOutgoing = 32768;
    std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> firstOutgoing;
    const int low = 10000;
    for (int attempt = 0; attempt < 64 && firstOutgoing > low + 1000; ++attempt) {
        const int port = low + static_cast<int>(random() % static_cast<unsigned int>(firstOutgoing - low));
        if (handedOut.count(port) == 0 && IsFree(port)) {
            handedOut.insert(port);
            return port;
        }
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t length = sizeof address;
    int port = 0;
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    close(fd);
    return port;
}
