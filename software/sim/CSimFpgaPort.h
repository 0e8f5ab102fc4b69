#pragma once
// CSimFpgaPort: one simulated FPGA block behind the packet bus: 256 32-bit registers over
// the 1 KiB of byte addresses a packet header reaches, and optional addressed memories:
// writing a memory's address register sets its pointer, and each word written to or read
// from its data register goes to or comes from the memory at the pointer, which then
// advances (as the formatter's tables and sequence memory work). A word past a memory's
// end is dropped on write and reads as 0.
//
// Subclasses give a block behaviour of its own by overriding Write and Read.
// Thread contract: the device's, one thread.

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>

class CSimFpgaPort {
public:
    static constexpr unsigned int kRegisters = 256;

    virtual ~CSimFpgaPort() = default;

    void AddMemory(unsigned int addressRegister, unsigned int dataRegister, uint32_t words);

    // One word written to, or read from, a register by a packet (side effects included).
    virtual void Write(unsigned int address, uint32_t value);
    virtual uint32_t Read(unsigned int address);

    // Without side effects, for tests and integrators.
    uint32_t Peek(unsigned int address) const { return m_registers[(address & 0x3FF) / 4]; }
    // Word `index` of the memory behind dataRegister; 0 when there is none.
    uint32_t PeekMemory(unsigned int dataRegister, uint32_t index) const;

protected:
    uint32_t& Register(unsigned int address) { return m_registers[(address & 0x3FF) / 4]; }

private:
    struct SFreeWords {
        void operator()(uint32_t* words) const { std::free(words); }
    };
    struct SMemory {
        unsigned int addressRegister;
        uint32_t size;
        // From calloc: the pages of a large memory are the system's zero pages until
        // written, so a simulated table costs the process only what the plant writes.
        std::unique_ptr<uint32_t[], SFreeWords> words;
    };
    SMemory* MemoryAtData(unsigned int address);

    uint32_t m_registers[kRegisters] = {};
    std::map<unsigned int, SMemory> m_memories;  // by data register
};
