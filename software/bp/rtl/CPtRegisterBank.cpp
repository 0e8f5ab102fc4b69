#include "CPtRegisterBank.h"

#include <cstring>

#include "CException.h"

namespace {

// 64 bits, so that no byte count near 4 GiB wraps to a small word count.
uint64_t Words(uint64_t bytes) { return (bytes + 3) / 4; }

}  // namespace

CPtRegisterBank::CPtRegisterBank(IPtBus& bus, unsigned char port, unsigned int baseAddress, unsigned int size)
    : CPtResource(bus, port, baseAddress), m_size(size), m_shadow(new uint32_t[Words(size) + 1]()), m_owner(true) {
    FindDirectWords();
}

CPtRegisterBank::CPtRegisterBank(const CPtRegisterBank& other)
    : CPtResource(other), m_size(other.m_size), m_shadow(other.m_shadow), m_owner(false) {
    FindDirectWords();
}

void CPtRegisterBank::FindDirectWords() {
    // The bus sees addresses cut to 16 bits; a bank that wraps there goes through it. The
    // range covers the register at offset == size, which the bounds check lets through.
    const unsigned int base = GetBaseAddress();
    if (uint64_t{base} + m_size + 4 <= 0x10000) {
        m_direct = GetBus().GetDirectWords(GetPort(), base, static_cast<unsigned int>(Words(GetSize()) * 4 + 4),
                                           m_directSwap);
    }
}

CPtRegisterBank::CPtRegisterBank(CPtRegisterBank& parent, unsigned int offset, unsigned int size)
    : CPtResource(parent.GetBus(), parent.GetPort(), parent.GetBaseAddress() + offset), m_size(size),
      m_shadow(nullptr), m_owner(false) {
    parent.AddressCheck(offset);
    if (size > parent.m_size - offset) {
        THROW_EXCEPTION("Address out of range (%#llx).  Bank size: %#x",
                        static_cast<unsigned long long>(offset) + size, parent.GetSize());
    }
    m_shadow = parent.m_shadow + ShadowIndex(offset);
    FindDirectWords();
}

CPtRegisterBank::~CPtRegisterBank() {
    if (m_owner) {
        delete[] m_shadow;
    }
}

void CPtRegisterBank::ThrowBadAddress(unsigned int offset) const {
    if (offset % 4 != 0) {
        THROW_EXCEPTION("Address must be aligned to 32 bit boundary (%#x)", offset);
    }
    THROW_EXCEPTION("Address out of range (%#x).  Bank size: %#x", offset, GetSize());
}

unsigned int CPtRegisterBank::RangeCheck(unsigned int offset, uint64_t count) const {
    AddressCheck(offset);
    const uint64_t end = offset + 4 * count;
    if (end > m_size) {
        THROW_EXCEPTION("Address out of range (%#llx).  Bank size: %#x", static_cast<unsigned long long>(end),
                        GetSize());
    }
    return static_cast<unsigned int>(count);
}

uint32_t CPtRegisterBank::ReadShadowBits(unsigned int offset, unsigned int shift, uint32_t mask) const {
    AddressCheck(offset);
    return shift >= 32 ? 0 : (m_shadow[ShadowIndex(offset)] & mask) >> shift;
}

uint32_t CPtRegisterBank::ReadField(unsigned int offset, unsigned int shift, uint32_t mask) {
    AddressCheck(offset);
    GetBus().Request(GetPort(), BusAddress(offset), static_cast<const unsigned int*>(nullptr), 0, &Shadow(offset), 1,
                     true, kAccessTimeoutMs);
    return ReadShadowBits(offset, shift, mask);
}

void CPtRegisterBank::PostWord(unsigned int offset) {
    GetBus().Send(GetPort(), BusAddress(offset), &Shadow(offset), 1, false);
}

void CPtRegisterBank::WriteFieldWait(unsigned int offset, uint32_t value, unsigned int shift, uint32_t mask) {
    WriteShadowBits(offset, value, shift, mask);
    GetBus().Request(GetPort(), BusAddress(offset), &Shadow(offset), 1, static_cast<unsigned int*>(nullptr), 0, false,
                     kAccessTimeoutMs);
}

void CPtRegisterBank::ApplyShadowRange(unsigned int offset, unsigned int count) {
    RangeCheck(offset, count);
    GetBus().Send(GetPort(), BusAddress(offset), &Shadow(offset), count, true);
}

void CPtRegisterBank::ApplyShadowRangeWait(unsigned int offset, unsigned int count) {
    RangeCheck(offset, count);
    GetBus().Request(GetPort(), BusAddress(offset), &Shadow(offset), count, static_cast<unsigned int*>(nullptr), 0,
                     true, kAccessTimeoutMs);
}

void CPtRegisterBank::RefreshShadowRange(unsigned int offset, unsigned int count, unsigned int timeoutMs) {
    RangeCheck(offset, count);
    GetBus().Request(GetPort(), BusAddress(offset), static_cast<const unsigned int*>(nullptr), 0, &Shadow(offset),
                     count, true, timeoutMs);
}

void CPtRegisterBank::Flush(unsigned int timeoutMs) {
    GetBus().Request(GetPort(), BusAddress(0), static_cast<const unsigned int*>(nullptr), 0,
                     static_cast<unsigned int*>(nullptr), 0, true, timeoutMs);
}

void CPtRegisterBank::ReadData(void* buffer, unsigned int offset, unsigned int length, unsigned int timeoutMs) {
    const unsigned int aligned = offset & ~3u;
    RefreshShadowRange(aligned, RangeCheck(aligned, Words(uint64_t{offset - aligned} + length)), timeoutMs);
    memcpy(buffer, reinterpret_cast<const unsigned char*>(&Shadow(aligned)) + (offset - aligned), length);
}

void CPtRegisterBank::WriteData(const void* buffer, unsigned int offset, unsigned int length) {
    const unsigned int aligned = offset & ~3u;
    const unsigned int words = RangeCheck(aligned, Words(uint64_t{offset - aligned} + length));
    memcpy(reinterpret_cast<unsigned char*>(&Shadow(aligned)) + (offset - aligned), buffer, length);
    ApplyShadowRange(aligned, words);
}

void CPtRegisterBank::WriteDataWait(const void* buffer, unsigned int offset, unsigned int length,
                                    unsigned int timeoutMs) {
    WriteData(buffer, offset, length);
    Flush(timeoutMs);
}
