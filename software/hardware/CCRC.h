#pragma once
// CCRC: the checksums of the light-source link.
//
//   calcCRC16  CRC-16/ARC (reflected polynomial 0x8005, no final XOR; the message layer
//              passes seed 0; check value 0xBB3D for "123456789"). It runs on the hot
//              path of every frame: eight table lookups per 8 bytes (slicing-by-8), the
//              plain byte-wise table (calcCRC16Bytewise) for the tail and as the reference.
//   calcCRC32  the standard reflected CRC-32 (polynomial 0x04C11DB7) from the seed as
//              given, the result inverted.
// Both variants of CRC-16 give the same result for every input; the tables are built once,
// before main, and only read afterwards, so any thread may call.

#include <cstddef>
#include <cstdint>

namespace LibFusion {

class CCRC {
public:
    static uint16_t calcCRC16(uint16_t seed, const uint8_t* data, size_t length);
    static uint16_t calcCRC16Bytewise(uint16_t seed, const uint8_t* data, size_t length);
    static uint32_t calcCRC32(uint32_t seed, const uint8_t* data, size_t length);
};

}  // namespace LibFusion
