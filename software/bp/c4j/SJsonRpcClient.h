#pragma once
// SJsonRpcClient: one accepted JSON-RPC TCP connection: its socket, its identifier, its
// peer name for log lines, its access level, the unterminated tail of what it sent, and
// the bytes queued for it that the socket has not taken yet.
//
// Identifiers come from one process-wide counter that starts at 0 and only grows, so an
// identifier is never reused while the process runs and a reconnecting client is a new
// client. Owned by CJsonRpcTcpServer; used on the server's event thread only.

#include <map>
#include <string>

#include "control/ControlTypes.h"
#include "jsonrpc/NulFramer.h"

struct SJsonRpcClient {
    SJsonRpcClient(int socket, const std::string& peer)
        : fd(socket), id(mGlobalId++), peerName(peer) {}

    int fd;
    unsigned int id;
    std::string peerName;  // "a.b.c.d-port"
    EAccessLevel accessLevel = ACCESS_USER;
    CNulFramer receiveBuffer;
    std::string output;    // queued, not yet sent
    size_t outputSent = 0; // bytes of `output` already sent
    // Notifications refused while the backlog was over its bound, the latest per key; sent
    // once the backlog has drained.
    std::map<std::string, std::string> missed;

    static unsigned int mGlobalId;
};
