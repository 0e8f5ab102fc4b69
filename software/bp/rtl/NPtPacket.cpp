#include "NPtPacket.h"

#include "CException.h"

namespace NPtPacket {

namespace {

uint64_t Bit(bool on, unsigned position) { return on ? uint64_t{1} << position : 0; }

}  // namespace

uint64_t MakeHeader(EType type, unsigned port, unsigned address, unsigned lengthBytes, bool increment,
                    unsigned replyBytes) {
    return uint64_t{type} | Bit(increment, 7) | (uint64_t{lengthBytes & 0x7FFu} << 16) |
           (uint64_t{replyBytes & 0x7FFu} << 32) | (uint64_t{address & 0x3FFu} << 48) |
           (uint64_t{port & 0x3Fu} << 58);
}

uint64_t MakeReplyHeader(unsigned port, unsigned address, unsigned lengthBytes, bool increment) {
    return uint64_t{TYPE_REPLY} | Bit(increment, 7) | (uint64_t{port & 0x3Fu} << 10) |
           (uint64_t{lengthBytes & 0x7FFu} << 16) | (uint64_t{address & 0x3FFu} << 48);
}

bool IsExpectedReply(uint64_t received, uint64_t expected) {
    return ((received >> 32) & 0xFFFF0000u) == ((expected >> 32) & 0xFFFF0000u) &&
           (static_cast<uint32_t>(received) & kReplyCheckMask) == (static_cast<uint32_t>(expected) & kReplyCheckMask);
}

uint64_t MakeGenericHeader(unsigned type, unsigned subType, unsigned fieldA, unsigned fieldB, unsigned lengthBytes,
                           bool flag0, bool flag1, bool flag2, bool flag3) {
    return uint64_t{type & 0xFu} | (uint64_t{subType & 0xFu} << 12) | Bit(flag0, 11) | Bit(flag1, 10) |
           Bit(flag2, 9) | Bit(flag3, 8) | (uint64_t{lengthBytes & 0x7FFu} << 16) |
           (uint64_t{fieldA & 0x3FFFu} << 32) | (uint64_t{fieldB & 0x3FFFu} << 48);
}

uint64_t MakeShortHeader(unsigned first, unsigned second, unsigned third, bool flag0, bool flag1, bool flag2,
                         bool flag3) {
    return uint64_t{TYPE_GENERIC} | (uint64_t{first & 0x3u} << 8) | (uint64_t{second & 0xFu} << 12) |
           (uint64_t{third & 0xFFu} << 56) | Bit(flag0, 52) | Bit(flag1, 44) | Bit(flag2, 40) | Bit(flag3, 48);
}

void RequireOneDirection(unsigned port, unsigned address, unsigned int txCount, unsigned int rxCount) {
    if (txCount != 0 && rxCount != 0) {
        THROW_EXCEPTION("PtBus Request: [%d][0x%04X]:Request should not read and write in a single transaction, "
                        "this is a firmware limitation",
                        port, address);
    }
}

}  // namespace NPtPacket
