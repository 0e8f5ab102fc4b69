#include "CCRC.h"

namespace LibFusion {

namespace {

struct SCrc16Tables {
    uint16_t slice[8][256];
    SCrc16Tables() {
        for (unsigned int byte = 0; byte < 256; ++byte) {
            uint16_t crc = static_cast<uint16_t>(byte);
            for (int bit = 0; bit < 8; ++bit) {
                crc = static_cast<uint16_t>(crc & 1 ? (crc >> 1) ^ 0xA001 : crc >> 1);
            }
            slice[0][byte] = crc;
        }
        // slice[k][b]: the CRC of byte b followed by k zero bytes.
        for (int k = 1; k < 8; ++k) {
            for (unsigned int byte = 0; byte < 256; ++byte) {
                const uint16_t prev = slice[k - 1][byte];
                slice[k][byte] = static_cast<uint16_t>((prev >> 8) ^ slice[0][prev & 0xFF]);
            }
        }
    }
};

struct SCrc32Table {
    uint32_t table[256];
    SCrc32Table() {
        for (uint32_t byte = 0; byte < 256; ++byte) {
            uint32_t crc = byte;
            for (int bit = 0; bit < 8; ++bit) {
                crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
            }
            table[byte] = crc;
        }
    }
};

const SCrc16Tables kCrc16;
const SCrc32Table kCrc32;

}  // namespace

uint16_t CCRC::calcCRC16Bytewise(uint16_t seed, const uint8_t* data, size_t length) {
    uint16_t crc = seed;
    for (size_t i = 0; i < length; ++i) {
        crc = static_cast<uint16_t>((crc >> 8) ^ kCrc16.slice[0][(crc ^ data[i]) & 0xFF]);
    }
    return crc;
}

uint16_t CCRC::calcCRC16(uint16_t seed, const uint8_t* data, size_t length) {
    uint32_t crc = seed;
    const auto& t = kCrc16.slice;
    while (length >= 8) {
        // The CRC's two bytes fold into the first two data bytes; each of the eight bytes
        // then contributes its CRC shifted by the bytes that follow it.
        const uint32_t a = (data[0] | static_cast<uint32_t>(data[1]) << 8) ^ crc;
        crc = t[7][a & 0xFF] ^ t[6][a >> 8] ^ t[5][data[2]] ^ t[4][data[3]] ^ t[3][data[4]] ^ t[2][data[5]] ^
              t[1][data[6]] ^ t[0][data[7]];
        data += 8;
        length -= 8;
    }
    return calcCRC16Bytewise(static_cast<uint16_t>(crc), data, length);
}

uint32_t CCRC::calcCRC32(uint32_t seed, const uint8_t* data, size_t length) {
    uint32_t crc = seed;
    for (size_t i = 0; i < length; ++i) {
        crc = (crc >> 8) ^ kCrc32.table[(crc ^ data[i]) & 0xFF];
    }
    return ~crc;
}

}  // namespace LibFusion
