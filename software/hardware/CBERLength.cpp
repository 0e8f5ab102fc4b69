#include "CBERLength.h"

namespace LibFusion {

unsigned int CBERLength::berBytesLength(uint32_t value) {
    return value < 128 ? 1 : value < 256 ? 2 : value < 65536 ? 3 : value < (1u << 24) ? 4 : 0;
}

unsigned int CBERLength::encode(uint32_t value, uint8_t* out) {
    const unsigned int bytes = berBytesLength(value);
    if (bytes == 1) {
        out[0] = static_cast<uint8_t>(value);
    } else if (bytes > 1) {
        out[0] = static_cast<uint8_t>(0x80 | (bytes - 1));
        for (unsigned int i = 1; i < bytes; ++i) {
            out[i] = static_cast<uint8_t>(value >> (8 * (bytes - 1 - i)));
        }
    }
    return bytes;
}

unsigned int CBERLength::decode(const uint8_t* in, uint32_t available, uint32_t& value) {
    value = 0;
    if (available == 0) {
        return 0;
    }
    if ((in[0] & 0x80) == 0) {
        value = in[0];
        return 1;
    }
    const unsigned int count = in[0] & 0x7F;
    if (count < 1 || count > 3 || available < count + 1) {
        return 0;
    }
    uint32_t decoded = 0;
    for (unsigned int i = 1; i <= count; ++i) {
        decoded = decoded << 8 | in[i];
    }
    value = decoded;
    return count + 1;
}

bool CBERLength::needsMore(const uint8_t* in, uint32_t available) {
    if (available == 0) {
        return true;
    }
    const unsigned int count = in[0] & 0x7F;
    return (in[0] & 0x80) != 0 && count >= 1 && count <= 3 && available < count + 1;
}

}  // namespace LibFusion
