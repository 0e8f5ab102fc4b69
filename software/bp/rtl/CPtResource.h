#pragma once
// CPtResource: a piece of an FPGA block: the bus it is reached through, the block's port
// and the resource's base address inside the port (a multiple of 4).
//
// Lifetime: the bus outlives the resource. Errors: the constructor throws CException
// "Base address must be aligned to 32 bit boundary (%#x)".

#include "IPtBus.h"

class CPtResource {
public:
    CPtResource(IPtBus& bus, unsigned char port, unsigned int baseAddress);
    virtual ~CPtResource() = default;

    IPtBus& GetBus() const { return m_bus; }
    unsigned char GetPort() const { return m_port; }
    unsigned int GetBaseAddress() const { return m_base; }

private:
    IPtBus& m_bus;
    unsigned char m_port;
    unsigned int m_base;
};
