#pragma once
// CSerialPortsFixture: the controller fixture plus what the serial handler reads from it:
// the port controls, a free TCP port in NET+PORT, and pseudo-terminals linked in place of
// the PRTA and PRTB devices (only PRTA enabled). The helpers talk to the handler's ports
// as a client would: raw bytes over the pty master or a TCP socket on 127.0.0.1.

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "ControllerFixture.h"
#include "FreePort.h"
#include "LocalSockets.h"
#include "Pty.h"

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
