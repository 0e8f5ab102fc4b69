#pragma once
// CPtMemoryPort: a streaming data port of an FPGA block (a FIFO register): every item of
// a transfer goes to, or comes from, the one address (increment false).
//
// Reads are acknowledged requests. A write with a time-out of 0 is posted (Send); any
// other time-out makes it a request that returns once the FPGA has taken it. Buffers, read
// or written, are cut into chunks of at most 256 words or 1024 bytes, one packet each in
// turn, since the packet bus refuses larger payloads.
//
// Lifetime: the bus (or the bank it was built from) outlives the port.
// Errors: what the bus throws.

#include <cstdint>

#include "CPtRegisterBank.h"

class CPtMemoryPort : public CPtResource {
public:
    CPtMemoryPort(IPtBus& bus, unsigned char port, unsigned int address);
    CPtMemoryPort(CPtRegisterBank& bank, unsigned int offset);

    uint32_t Read(unsigned int timeoutMs);
    uint8_t ReadByte(unsigned int timeoutMs);
    void Read(uint32_t* buffer, unsigned int count, unsigned int timeoutMs);
    void Read(uint8_t* buffer, unsigned int count, unsigned int timeoutMs);

    void Write(uint32_t value, unsigned int timeoutMs);
    void WriteByte(uint8_t value, unsigned int timeoutMs);
    void Write(const uint32_t* buffer, unsigned int count, unsigned int timeoutMs);
    void Write(const uint8_t* buffer, unsigned int count, unsigned int timeoutMs);

private:
    unsigned short Address() const { return static_cast<unsigned short>(GetBaseAddress()); }
    template <typename T>
    void ReadItems(T* buffer, unsigned int count, unsigned int timeoutMs);
    template <typename T>
    void WriteItems(const T* buffer, unsigned int count, unsigned int timeoutMs);
};
