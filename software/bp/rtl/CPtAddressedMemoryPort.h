#pragma once
// CPtAddressedMemoryPort: a memory inside an FPGA block reached through an address
// register followed by a data register (address + 4): the address is written first (the
// whole register), then the data stream through the data port (CPtMemoryPort), which
// the block advances itself.
//
// Lifetime: the bus (or the bank it was built from) outlives the port.
// Errors: what the bus throws.

#include <cstdint>

#include "CPtMemoryPort.h"
#include "CPtRegisterBank.h"

class CPtAddressedMemoryPort {
public:
    CPtAddressedMemoryPort(IPtBus& bus, unsigned char port, unsigned int address);
    CPtAddressedMemoryPort(CPtRegisterBank& bank, unsigned int offset);

    void ReadDataAtAddress(uint32_t address, uint32_t* buffer, unsigned int count, unsigned int timeoutMs);
    // A time-out of 0 posts the data; any other waits for each chunk's acknowledgement.
    void WriteDataAtAddress(uint32_t address, const uint32_t* buffer, unsigned int count, unsigned int timeoutMs);

private:
    CPtRegisterBank m_addressRegister;
    CPtMemoryPort m_data;
};
