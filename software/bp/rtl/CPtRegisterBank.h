#pragma once
// CPtRegisterBank: a block of FPGA registers with a software shadow (one word per
// register) and field read-modify-write. Offsets are byte offsets in the bank; fields are
// (shift, mask) with the mask in register position.
//
// Shadows: a bank built from (bus, port, base, size) owns a zero-filled shadow of
// ceil(size/4) words. A copy, and a sub-bank (parent, offset, size) based at parent base +
// offset, share their parent's shadow (from word offset/4) and never free it, so the
// parent must outlive them. A field staged through any of them is seen by all. An owned
// shadow has one spare word past the end, so the access at offset == size that the
// bounds check lets through stays inside it.
//
//   ReadShadowBits / WriteShadowBits  the shadow only, no bus access
//   ReadField        refreshes the word from the FPGA (Request, 10 ms), then reads it
//   WriteField       updates the shadow word, then posts it (Send)
//   WriteFieldWait   the same, acknowledged (Request, 10 ms)
//   ApplyShadowRange[Wait], RefreshShadowRange, Flush (an empty request: a barrier behind
//   every posted write before it), ReadData, WriteData[Wait] (bytes through the shadow,
//   moving every word from offset rounded down to 4 through the word holding the last
//   byte, so an unaligned start still moves its tail)
// The shadow keeps a value written even when the bus call throws afterwards. The bus is
// given the hardware address (base + offset) cut to 16 bits. On a bus whose registers are
// plain memory (IPtBus::GetDirectWords) a bank lying wholly inside it posts a single
// register (WriteField) by storing it there directly, as the bus would, without a call.
//
// Errors throw CException: "Address must be aligned to 32 bit boundary (%#x)", "Address
// out of range (%#x).  Bank size: %#x" (an offset equal to the size passes, as the bank
// has always checked), and what the bus throws.
// Thread contract: one thread, as the bus; the shared shadow is not synchronised.

#include <cstddef>
#include <cstdint>

#include "CPtResource.h"

class CPtRegisterBank : public CPtResource {
public:
    static constexpr unsigned int kAccessTimeoutMs = 10;

    CPtRegisterBank(IPtBus& bus, unsigned char port, unsigned int baseAddress, unsigned int size);
    CPtRegisterBank(const CPtRegisterBank& other);
    CPtRegisterBank(CPtRegisterBank& parent, unsigned int offset, unsigned int size);
    ~CPtRegisterBank() override;
    CPtRegisterBank& operator=(const CPtRegisterBank&) = delete;

    unsigned int GetSize() const { return static_cast<unsigned int>(m_size); }

    void AddressCheck(unsigned int offset) const {
        if (__builtin_expect((offset & 3u) != 0 || offset > m_size, 0)) {
            ThrowBadAddress(offset);
        }
    }
    unsigned int HwAddr(unsigned int offset) const { return GetBaseAddress() + offset; }
    static unsigned int ShadowIndex(unsigned int offset) { return offset / 4; }

    uint32_t ReadShadowBits(unsigned int offset, unsigned int shift = 0, uint32_t mask = 0xFFFFFFFF) const;
    void WriteShadowBits(unsigned int offset, uint32_t value, unsigned int shift = 0, uint32_t mask = 0xFFFFFFFF) {
        AddressCheck(offset);
        uint32_t& word = Shadow(offset);
        const uint32_t placed = shift >= 32 ? 0 : value << shift;
        // The same as word ^ (mask & (word ^ placed)), with only two steps depending on
        // the old word.
        word = (word & ~mask) | (placed & mask);
    }
    uint32_t ReadField(unsigned int offset, unsigned int shift = 0, uint32_t mask = 0xFFFFFFFF);
    void WriteField(unsigned int offset, uint32_t value, unsigned int shift = 0, uint32_t mask = 0xFFFFFFFF) {
        WriteShadowBits(offset, value, shift, mask);
        if (m_direct) {
            const uint32_t word = Shadow(offset);
            m_direct[ShadowIndex(offset)] = m_directSwap ? __builtin_bswap32(word) : word;
        } else {
            PostWord(offset);
        }
    }
    void WriteFieldWait(unsigned int offset, uint32_t value, unsigned int shift = 0, uint32_t mask = 0xFFFFFFFF);

    void ApplyShadowRange(unsigned int offset, unsigned int count);
    void ApplyShadowRangeWait(unsigned int offset, unsigned int count);
    void RefreshShadowRange(unsigned int offset, unsigned int count, unsigned int timeoutMs);
    void Flush(unsigned int timeoutMs);

    void ReadData(void* buffer, unsigned int offset, unsigned int length, unsigned int timeoutMs);
    void WriteData(const void* buffer, unsigned int offset, unsigned int length);
    void WriteDataWait(const void* buffer, unsigned int offset, unsigned int length, unsigned int timeoutMs);

private:
    unsigned short BusAddress(unsigned int offset) const { return static_cast<unsigned short>(HwAddr(offset)); }
    uint32_t& Shadow(unsigned int offset) { return m_shadow[ShadowIndex(offset)]; }
    // Checks both ends of a range of `count` words from offset (the end in 64 bits, so a
    // count near 2^30 cannot wrap into range); returns the count, which then fits.
    unsigned int RangeCheck(unsigned int offset, uint64_t count) const;
    void FindDirectWords();
    [[noreturn]] void ThrowBadAddress(unsigned int offset) const;
    void PostWord(unsigned int offset);

    // size_t rather than the registers' own type: a store to a mapped register cannot
    // alias it, so a loop of writes keeps it in a register (WriteField's fast path).
    size_t m_size;
    uint32_t* m_shadow;
    bool m_owner;
    volatile unsigned int* m_direct = nullptr;  // the bank's first register, when direct
    bool m_directSwap = false;
};
