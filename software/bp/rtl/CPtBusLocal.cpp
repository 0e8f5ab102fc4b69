#include "CPtBusLocal.h"

#include <cstdint>

#include "CException.h"
#include "NPtPacket.h"

namespace {

unsigned int Swap(unsigned int value, bool swap) { return swap ? __builtin_bswap32(value) : value; }

}  // namespace

CPtBusLocal::CPtBusLocal(volatile unsigned char* base, unsigned int size, bool swap)
    : m_base(base), m_size(size), m_swap(swap) {}

void CPtBusLocal::CheckRange(unsigned int address, unsigned int count, unsigned int itemBytes, bool increment) const {
    if (count == 0) {
        return;
    }
    const unsigned long long span = increment ? static_cast<unsigned long long>(count) * itemBytes : itemBytes;
    const unsigned long long start = itemBytes == 4 ? (address & ~3u) : address;
    if (start + span > m_size) {
        THROW_EXCEPTION("PtBus local: access outside the region (0x%X + %llu bytes, region of %u bytes)", address,
                        span, m_size);
    }
}

void CPtBusLocal::Send(unsigned char, unsigned char, unsigned short, unsigned short, const unsigned int*, unsigned int,
                       bool, bool, bool, bool) {
    THROW_EXCEPTION("Not implemented");
}

void CPtBusLocal::Send(unsigned char, unsigned char, unsigned short, unsigned short, const unsigned char*,
                       unsigned int, bool, bool, bool, bool) {
    THROW_EXCEPTION("Not implemented");
}

void CPtBusLocal::Send(unsigned char, unsigned char, unsigned char, bool, bool, bool, bool) {
    THROW_EXCEPTION("Not implemented");
}

void CPtBusLocal::Send(unsigned char, unsigned short address, const unsigned int* data, unsigned int count,
                       bool increment) {
    CheckRange(address, count, 4, increment);
    volatile unsigned int* word = Word(address);
    for (unsigned int i = 0; i < count; ++i) {
        word[increment ? i : 0] = Swap(data[i], m_swap);
    }
}

void CPtBusLocal::Send(unsigned char, unsigned short address, const unsigned char* data, unsigned int count,
                       bool increment) {
    CheckRange(address, count, 1, increment);
    for (unsigned int i = 0; i < count; ++i) {
        m_base[address + (increment ? i : 0)] = data[i];
    }
}

void CPtBusLocal::Receive(unsigned char, unsigned short address, unsigned int* data, unsigned int count,
                          bool increment, unsigned int) {
    CheckRange(address, count, 4, increment);
    volatile unsigned int* word = Word(address);
    for (unsigned int i = 0; i < count; ++i) {
        data[i] = Swap(word[increment ? i : 0], m_swap);
    }
}

void CPtBusLocal::Receive(unsigned char, unsigned short address, unsigned char* data, unsigned int count,
                          bool increment, unsigned int) {
    // Whole words are read (a register reads as a word), each once; their bytes are handed
    // out in memory order from the address's own byte, so a partial first or last word is
    // cut.
    if (count == 0) {
        return;
    }
    const unsigned int skip = address & 3u;
    const unsigned int words = static_cast<unsigned int>((uint64_t{skip} + count + 3) / 4);
    CheckRange(address, words, 4, increment);
    volatile unsigned int* word = Word(address);
    for (unsigned int w = 0; w < words; ++w) {
        const unsigned int value = Swap(word[increment ? w : 0], m_swap);
        const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&value);
        for (unsigned int b = w == 0 ? skip : 0; b < 4 && 4 * w + b - skip < count; ++b) {
            data[4 * w + b - skip] = bytes[b];
        }
    }
}

void CPtBusLocal::Request(unsigned char port, unsigned short address, const unsigned int* txData,
                          unsigned int txCount, unsigned int* rxData, unsigned int rxCount, bool increment,
                          unsigned int timeoutMs) {
    NPtPacket::RequireOneDirection(port, address, txCount, rxCount);
    Send(port, address, txData, txCount, increment);
    Receive(port, address, rxData, rxCount, increment, timeoutMs);
}

void CPtBusLocal::Request(unsigned char port, unsigned short address, const unsigned char* txData,
                          unsigned int txCount, unsigned char* rxData, unsigned int rxCount, bool increment,
                          unsigned int timeoutMs) {
    NPtPacket::RequireOneDirection(port, address, txCount, rxCount);
    Send(port, address, txData, txCount, increment);
    Receive(port, address, rxData, rxCount, increment, timeoutMs);
}

volatile unsigned int* CPtBusLocal::GetDirectWords(unsigned char, unsigned int address, unsigned int size,
                                                   bool& swap) {
    if (address % 4 != 0 || static_cast<unsigned long long>(address) + size > m_size) {
        return nullptr;
    }
    swap = m_swap;
    return Word(address);
}

bool CPtBusLocal::IsDmaReady() { THROW_EXCEPTION("Not supported"); }

void CPtBusLocal::DmaReset() { THROW_EXCEPTION("Not supported"); }

void CPtBusLocal::DmaSend(unsigned char, unsigned short, const unsigned char*, unsigned int, bool,
                          const unsigned char*, unsigned int, unsigned int) {
    THROW_EXCEPTION("Not supported");
}
