#include "CSimAxi4lSlave.h"

namespace {

constexpr unsigned int kControl = 0;
constexpr unsigned int kAddress = 4;
constexpr unsigned int kWriteData = 8;
constexpr unsigned int kReadData = 12;
constexpr uint32_t kWriteCommand = 0xF0001;
constexpr uint32_t kReadCommand = 0xF0101;

}  // namespace

void CSimAxi4lSlave::Write(unsigned int address, uint32_t value) {
    CSimFpgaPort::Write(address, value);
    if ((address & 0x3FF) == m_base + kControl && (value == kWriteCommand || value == kReadCommand)) {
        m_command = value;
        m_pollsLeft = m_busyPolls;
        if (m_pollsLeft == 0) {
            Complete();
        }
    }
}

uint32_t CSimAxi4lSlave::Read(unsigned int address) {
    if ((address & 0x3FF) == m_base + kControl && m_command != 0) {
        if (m_pollsLeft > 0) {
            if (m_pollsLeft != kForever) {
                --m_pollsLeft;
            }
            return 1;
        }
        Complete();
    }
    return CSimFpgaPort::Read(address);
}

void CSimAxi4lSlave::Complete() {
    if (m_command == kWriteCommand) {
        m_axi[Peek(m_base + kAddress)] = Peek(m_base + kWriteData);
    } else if (m_command == kReadCommand) {
        Register(m_base + kReadData) = GetAxiRegister(Peek(m_base + kAddress));
    }
    m_command = 0;
    Register(m_base + kControl) &= ~1u;
}

uint32_t CSimAxi4lSlave::GetAxiRegister(uint32_t address) const {
    const auto it = m_axi.find(address);
    return it == m_axi.end() ? 0 : it->second;
}
