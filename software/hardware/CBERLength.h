#pragma once
// CBERLength: the length fields of the light-source link: below 128 one byte; below 256
// 0x81 and one byte; below 65536 0x82 and two bytes; below 2^24 0x83 and three bytes (big-
// endian); larger values cannot be encoded. Decoding a first byte with the top bit set
// takes its low 7 bits as the count of following bytes, which must be 1 to 3 and present.
//
// Thread contract: static functions without state.

#include <cstdint>

namespace LibFusion {

class CBERLength {
public:
    // Bytes the encoding of value takes; 0 when it cannot be encoded.
    static unsigned int berBytesLength(uint32_t value);
    // Writes the encoding (out must hold berBytesLength bytes); the bytes written, 0 when
    // the value cannot be encoded.
    static unsigned int encode(uint32_t value, uint8_t* out);
    // Reads a length from at most `available` bytes; the bytes consumed, 0 (and value 0)
    // when they do not hold a valid one.
    static unsigned int decode(const uint8_t* in, uint32_t available, uint32_t& value);
    // Whether the bytes begin a valid multi-byte length whose following bytes have not all
    // arrived (decode gives 0 for it too, but more bytes can still make it whole).
    static bool needsMore(const uint8_t* in, uint32_t available);
};

}  // namespace LibFusion
