#include "CSimFpgaPort.h"

#include <new>

void CSimFpgaPort::AddMemory(unsigned int addressRegister, unsigned int dataRegister, uint32_t words) {
    uint32_t* zeroed = static_cast<uint32_t*>(std::calloc(words ? words : 1, sizeof(uint32_t)));
    if (!zeroed) {
        throw std::bad_alloc();
    }
    m_memories[dataRegister & 0x3FF] = SMemory{addressRegister & 0x3FF, words, {zeroed, SFreeWords()}};
}

CSimFpgaPort::SMemory* CSimFpgaPort::MemoryAtData(unsigned int address) {
    const auto it = m_memories.find(address & 0x3FF);
    return it == m_memories.end() ? nullptr : &it->second;
}

void CSimFpgaPort::Write(unsigned int address, uint32_t value) {
    if (SMemory* memory = MemoryAtData(address)) {
        uint32_t& pointer = Register(memory->addressRegister);
        if (pointer < memory->size) {
            memory->words[pointer] = value;
        }
        ++pointer;
        return;
    }
    Register(address) = value;
}

uint32_t CSimFpgaPort::Read(unsigned int address) {
    if (SMemory* memory = MemoryAtData(address)) {
        uint32_t& pointer = Register(memory->addressRegister);
        const uint32_t value = pointer < memory->size ? memory->words[pointer] : 0;
        ++pointer;
        return value;
    }
    return Register(address);
}

uint32_t CSimFpgaPort::PeekMemory(unsigned int dataRegister, uint32_t index) const {
    const auto it = m_memories.find(dataRegister & 0x3FF);
    return it == m_memories.end() || index >= it->second.size ? 0 : it->second.words[index];
}
