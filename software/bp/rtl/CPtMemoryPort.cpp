#include "CPtMemoryPort.h"

#include <algorithm>

#include "NPtPacket.h"

namespace {

template <typename T>
constexpr unsigned int ChunkItems() {
    return sizeof(T) == 4 ? NPtPacket::kMaxWords : NPtPacket::kMaxBytes;
}

}  // namespace

CPtMemoryPort::CPtMemoryPort(IPtBus& bus, unsigned char port, unsigned int address)
    : CPtResource(bus, port, address) {}

CPtMemoryPort::CPtMemoryPort(CPtRegisterBank& bank, unsigned int offset)
    : CPtResource(bank.GetBus(), bank.GetPort(), bank.HwAddr(offset)) {}

template <typename T>
void CPtMemoryPort::ReadItems(T* buffer, unsigned int count, unsigned int timeoutMs) {
    for (unsigned int done = 0; done < count;) {
        const unsigned int chunk = std::min(count - done, ChunkItems<T>());
        GetBus().Request(GetPort(), Address(), static_cast<const T*>(nullptr), 0, buffer + done, chunk, false,
                         timeoutMs);
        done += chunk;
    }
}

template <typename T>
void CPtMemoryPort::WriteItems(const T* buffer, unsigned int count, unsigned int timeoutMs) {
    for (unsigned int done = 0; done < count;) {
        const unsigned int chunk = std::min(count - done, ChunkItems<T>());
        if (timeoutMs == 0) {
            GetBus().Send(GetPort(), Address(), buffer + done, chunk, false);
        } else {
            GetBus().Request(GetPort(), Address(), buffer + done, chunk, static_cast<T*>(nullptr), 0, false,
                             timeoutMs);
        }
        done += chunk;
    }
}

uint32_t CPtMemoryPort::Read(unsigned int timeoutMs) {
    uint32_t value = 0;
    ReadItems(&value, 1, timeoutMs);
    return value;
}

uint8_t CPtMemoryPort::ReadByte(unsigned int timeoutMs) {
    uint8_t value = 0;
    ReadItems(&value, 1, timeoutMs);
    return value;
}

void CPtMemoryPort::Read(uint32_t* buffer, unsigned int count, unsigned int timeoutMs) {
    ReadItems(buffer, count, timeoutMs);
}

void CPtMemoryPort::Read(uint8_t* buffer, unsigned int count, unsigned int timeoutMs) {
    ReadItems(buffer, count, timeoutMs);
}

void CPtMemoryPort::Write(uint32_t value, unsigned int timeoutMs) { WriteItems(&value, 1, timeoutMs); }

void CPtMemoryPort::WriteByte(uint8_t value, unsigned int timeoutMs) { WriteItems(&value, 1, timeoutMs); }

void CPtMemoryPort::Write(const uint32_t* buffer, unsigned int count, unsigned int timeoutMs) {
    WriteItems(buffer, count, timeoutMs);
}

void CPtMemoryPort::Write(const uint8_t* buffer, unsigned int count, unsigned int timeoutMs) {
    WriteItems(buffer, count, timeoutMs);
}
