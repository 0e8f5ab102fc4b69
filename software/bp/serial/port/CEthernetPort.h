#pragma once
// CEthernetPort: one accepted TCP connection of the ASCII command protocol (port id 16).
// Its name is the peer, "dotted-address-port" as CServerSocket::Accept gives it.
//
// Ownership: takes the connected descriptor and closes it when destroyed, also when the
// constructor throws.
// Thread contract: the thread of the port's handler only.

#include <string>

#include "CCommPort.h"

class CEthernetPort : public CCommPort {
public:
    // Makes fd non-blocking; throws "Failed to set port %s non-blocking" (with errno).
    CEthernetPort(const std::string& name, int fd);

    // Discards the input waiting now: reads chunks of kBufferSize while they come back
    // full, at most kFlushLimit bytes, so a peer that keeps sending cannot hold the caller.
    // Throws "Failed to read from port %s".
    void Flush() override;

    static constexpr unsigned int kFlushLimit = 64 * kBufferSize;
};
