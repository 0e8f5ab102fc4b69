#pragma once
// CAxi4lPtBus: an AXI4-Lite slave inside the FPGA, reached through a mailbox of four
// registers on a packet-bus port: offset 0 control and status (bit 0 busy), 4 the AXI
// address, 8 the write data, 12 the read data.
//
//   Write  address and data staged, then 0xF0001 written to control (acknowledged); the
//          busy bit is polled (ReadField) until clear, for at most 1 ms.
//   Read   address staged, 0xF0101 to control, the same wait, then the read data.
// The block forms throw "Not implemented".
//
// Lifetime: the bus and the clock outlive it. Thread contract: one thread, as the bus.
// Errors: "Timeout waiting AXI4-Lite write transaction to finish" (or "read"), and what
// the bus throws.

#include <cstdint>

#include "CPtRegisterBank.h"
#include "time/IMonotonicClock.h"

class CAxi4lPtBus {
public:
    static constexpr unsigned int kControl = 0;
    static constexpr unsigned int kAddress = 4;
    static constexpr unsigned int kWriteData = 8;
    static constexpr unsigned int kReadData = 12;
    static constexpr uint32_t kWriteCommand = 0xF0001;
    static constexpr uint32_t kReadCommand = 0xF0101;
    static constexpr unsigned int kBusyTimeoutMs = 1;

    CAxi4lPtBus(IPtBus& bus, unsigned char port, unsigned int baseAddress, const IMonotonicClock& clock);

    virtual void Write(unsigned int address, unsigned int value);
    virtual unsigned int Read(unsigned int address);
    virtual void Write(unsigned int address, const unsigned int* data, unsigned int count);
    virtual void Read(unsigned int address, unsigned int* data, unsigned int count);
    virtual ~CAxi4lPtBus() = default;

private:
    void WaitIdle(const char* what);

    CPtRegisterBank m_mailbox;
    const IMonotonicClock& m_clock;
};
