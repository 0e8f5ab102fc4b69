#pragma once
// TCP helpers of the port tests on 127.0.0.1: a client connection, and a connected pair
// whose ends still held are closed with it.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

// A blocking client connected to 127.0.0.1:port, or -1. A receiveBuffer is set before
// connecting, so that the advertised window stays small too.
inline int ConnectLocal(unsigned short port, int receiveBuffer = 0) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

struct STcpPair {
    // bufferBytes > 0 shrinks the buffers between server and client, so that a client
    // that does not read soon blocks the server.
    explicit STcpPair(int bufferBytes = 0) {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(listener, 1);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        client = ConnectLocal(ntohs(address.sin_port), bufferBytes);
        server = client >= 0 ? accept4(listener, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (server >= 0 && bufferBytes > 0) {
            setsockopt(server, SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
        }
        close(listener);
    }
    ~STcpPair() {
        CloseClient();
        close(server);
    }

    // Hands the server end to a port, which then owns it.
    int ReleaseServer() {
        const int fd = server;
        server = -1;
        return fd;
    }
    void CloseClient() {
        close(client);
        client = -1;
    }

    int server = -1;
    int client = -1;
};
