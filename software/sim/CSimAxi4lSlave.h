#pragma once
// CSimAxi4lSlave: a simulated AXI4-Lite slave behind its mailbox at `base` on its port
// (control and status at base, address at base + 4, write data at + 8, read data at + 12). A command written to control
// (0xF0001 write, 0xF0101 read) makes the busy bit (bit 0) read as set for the next
// `busyPolls` reads of control, then the transaction completes: a write stores the write
// data at the address in the slave's own registers, a read puts the value there into the
// read data register. kForever keeps it busy for good.
//
// Thread contract: the device's, one thread.

#include <cstdint>
#include <limits>
#include <map>

#include "CSimFpgaPort.h"

class CSimAxi4lSlave : public CSimFpgaPort {
public:
    static constexpr unsigned int kForever = std::numeric_limits<unsigned int>::max();

    CSimAxi4lSlave(unsigned int base, unsigned int busyPolls) : m_base(base & 0x3FF), m_busyPolls(busyPolls) {}

    void Write(unsigned int address, uint32_t value) override;
    uint32_t Read(unsigned int address) override;

    uint32_t GetAxiRegister(uint32_t address) const;

private:
    void Complete();

    unsigned int m_base;
    unsigned int m_busyPolls;
    unsigned int m_pollsLeft = 0;
    uint32_t m_command = 0;
    std::map<uint32_t, uint32_t> m_axi;
};
