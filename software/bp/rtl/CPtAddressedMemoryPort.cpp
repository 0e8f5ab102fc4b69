#include "CPtAddressedMemoryPort.h"

CPtAddressedMemoryPort::CPtAddressedMemoryPort(IPtBus& bus, unsigned char port, unsigned int address)
    : m_addressRegister(bus, port, address, 4), m_data(bus, port, address + 4) {}

CPtAddressedMemoryPort::CPtAddressedMemoryPort(CPtRegisterBank& bank, unsigned int offset)
    : CPtAddressedMemoryPort(bank.GetBus(), bank.GetPort(), bank.HwAddr(offset)) {}

void CPtAddressedMemoryPort::ReadDataAtAddress(uint32_t address, uint32_t* buffer, unsigned int count,
                                               unsigned int timeoutMs) {
    m_addressRegister.WriteField(0, address);
    m_data.Read(buffer, count, timeoutMs);
}

void CPtAddressedMemoryPort::WriteDataAtAddress(uint32_t address, const uint32_t* buffer, unsigned int count,
                                                unsigned int timeoutMs) {
    m_addressRegister.WriteField(0, address);
    m_data.Write(buffer, count, timeoutMs);
}
