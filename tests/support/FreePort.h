#pragma once
// FreeUdpPort: a UDP port no socket on this host uses right now, for a test's servers.

#include "jsonrpc/UdpServer.h"

inline unsigned short FreeUdpPort() {
    Json::Rpc::UdpServer probe("0.0.0.0", 0);
    probe.Bind();
    return probe.GetPort();
}
