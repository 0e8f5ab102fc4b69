#pragma once
// EmulatedCommand: the command that starts one of this build's programs from a test. In
// the cross build the tests run under user-mode emulation (PROJ_EMULATOR, qemu-arm) and
// the kernel cannot start an ARM program by itself, so the program runs through the
// emulator too, and so do the programs it starts (VPROJECTOR_EMULATOR, unless a test set
// one of its own). Natively the command is returned as it is.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#ifndef PROJ_EMULATOR
#define PROJ_EMULATOR ""
#endif

inline std::vector<std::string> EmulatedCommand(std::vector<std::string> command) {
    if (*PROJ_EMULATOR != '\0') {
        setenv("VPROJECTOR_EMULATOR", PROJ_EMULATOR, 0);
        command.insert(command.begin(), PROJ_EMULATOR);
    }
    return command;
}

// Whether the system (or the emulator) lets a socket choose its outgoing multicast
// interface: qemu-arm 7.2 answers IP_MULTICAST_IF with ENOPROTOOPT, so a multicast group
// cannot be joined under it, though it can on the projector.
inline bool CanChooseMulticastInterface() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    in_addr loopback{htonl(INADDR_LOOPBACK)};
    const bool ok = setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback) == 0 || errno != ENOPROTOOPT;
    close(fd);
    return ok;
}
