#pragma once
// CSerialPortsFixture: the controller fixture plus what the serial handler reads from it:
// the port controls, a free TCP port in NET+PORT, and pseudo-terminals linked in place of
// the PRTA and PRTB devices (only PRTA enabled). The helpers talk to the handler's ports
// as a client would: raw bytes over the pty master or a TCP socket on 127.0.0.1.

#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>

#include "ControllerFixture.h"

// A pseudo-terminal whose slave stands in for a serial device under the runtime root.
struct SPty {
    SPty(const CTempRoot& root, const std::string& device) {
        EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
        char name[64] = {};
        EXPECT_EQ(ptsname_r(master, name, sizeof name), 0);
        root.MakeDir("/dev");
        unlink(root.Path(device).c_str());
        EXPECT_EQ(symlink(name, root.Path(device).c_str()), 0);
    }
    ~SPty() {
        CloseMaster();
        close(slave);
    }
    SPty(const SPty&) = delete;
    SPty& operator=(const SPty&) = delete;
    // The device goes away: the slave side hangs up.
    void CloseMaster() {
        if (master >= 0) {
            close(master);
        }
        master = -1;
    }

    int master = -1;
    int slave = -1;
};

inline sockaddr_in Loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A TCP port nobody listens on right now.
inline unsigned short FreePort() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    close(fd);
    return ntohs(address.sin_port);
}

// A connected client socket, or -1 when nothing accepts on the port. A receive buffer
// size other than 0 is set before connecting.
inline int Connect(unsigned short port, int receiveBuffer = 0) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    const sockaddr_in address = Loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Writes what the descriptor takes now; sockets without SIGPIPE.
inline size_t WriteSome(int fd, const std::string& bytes) {
    ssize_t written = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (written < 0 && errno == ENOTSOCK) {
        written = write(fd, bytes.data(), bytes.size());
    }
    return written > 0 ? static_cast<size_t>(written) : 0;
}

inline void WriteAll(int fd, const std::string& bytes) {
    EXPECT_EQ(WriteSome(fd, bytes), bytes.size());
}

// Reads until `expected` has arrived (or 10 s passed) and returns everything read;
// `turn` runs between reads (the handler's loop when it runs in the test's thread).
inline std::string ReadUntil(int fd, const std::string& expected, const std::function<void()>& turn = nullptr) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string got;
    while (got.find(expected) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        pollfd watched{fd, POLLIN, 0};
        if (poll(&watched, 1, turn ? 0 : 50) == 1) {
            char chunk[256];
            const ssize_t count = read(fd, chunk, sizeof chunk);
            if (count <= 0) {
                break;
            }
            got.append(chunk, static_cast<size_t>(count));
        } else if (turn) {
            turn();
        }
    }
    return got;
}

// True when the peer closed the connection (end of stream within 10 s).
inline bool ClosedByPeer(int fd) {
    pollfd watched{fd, POLLIN, 0};
    char byte = 0;
    return poll(&watched, 1, 10000) == 1 && read(fd, &byte, 1) == 0;
}

class CSerialPortsFixture : public CControllerFixture {
protected:
    CSerialPortsFixture() : serverPort(FreePort()) {
        static const struct {
            const char* code;
            int max;
            int value;
        } kControls[] = {{"RAL", 3, 1},      {"RAL+PRTA", 3, 1}, {"RAL+PRTB", 3, 0},      {"RAL+PRTC", 3, 0},
                         {"BDR+PRTA", 7, 2}, {"MDE+PRTA", 2, 0}, {"FLW+PRTA", 2, 1},      {"PTL+PRTA", 1, 0},
                         {"RAL+PUSB", 3, 1}, {"ADR", 1023, 0},   {"NTR", 3, 0},      {"KEY+BKEY", 65535, 0}, {"EME", 1, 0}};
        controller->RunOnController([this] {
            for (const auto& control : kControls) {
                controls.push_back(std::make_unique<CProjCon>(DT_INTEGER, dispatcher, proxy, control.code, false, 0,
                                                              control.max, control.value, ACCESS_OPERATOR, 0, 0, 0,
                                                              false));
            }
        });
        SetControl("NET", "PORT", serverPort);
    }

    void SetControl(const std::string& code, const std::string& subcode, int value) {
        int standing = value;
        EXPECT_EQ(link->SetValue(ACCESS_OPERATOR, code, subcode, standing, true), ERR_NONE) << code << subcode;
        EXPECT_EQ(standing, value) << code << subcode;
    }

    unsigned short serverPort;
    SPty prta{root, "/dev/ttymxc0"};
    SPty prtb{root, "/dev/ttymxc2"};
};
