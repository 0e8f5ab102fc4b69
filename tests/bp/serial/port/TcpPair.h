#pragma once
// A connected TCP pair on 127.0.0.1 for the port tests, whose ends still held are closed
// with it.

#include <sys/socket.h>
#include <unistd.h>

#include "LocalSockets.h"

struct STcpPair {
    // bufferBytes > 0 shrinks the buffers between server and client, so that a client
    // that does not read soon blocks the server.
    explicit STcpPair(int bufferBytes = 0) {
        unsigned short port = 0;
        const int listener = ListenLocal(port, 1);
        client = ConnectLocal(port, bufferBytes);
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
