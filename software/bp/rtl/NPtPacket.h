#pragma once
// NPtPacket: the 64-bit header of the FPGA packet protocol (bit 0 least significant):
//
//   bits 0-3    type: 9 posted write, 10 request, 11 reply, 8 the short generic packet
//   bit 7       address increment
//   bits 16-26  payload length in bytes
//   bits 32-42  request only: expected reply payload length in bytes
//   bits 48-57  register address (its low 10 bits)
//   bits 58-63  port (its low 6 bits); in a reply the port stands in bits 10-15 instead
//
// A reply is accepted only when bits 48-63 hold exactly the address (port bits zero) and
// the low word masked with kReplyCheckMask equals length << 16 | increment << 7 | 11 |
// port << 10 (IsExpectedReply).

#include <cstdint>

namespace NPtPacket {

enum EType : unsigned {
    TYPE_GENERIC = 8,
    TYPE_POSTED_WRITE = 9,
    TYPE_REQUEST = 10,
    TYPE_REPLY = 11,
};

constexpr uint32_t kReplyCheckMask = 0x07FFFC8F;
constexpr unsigned kMaxWords = 256;
constexpr unsigned kMaxBytes = 1024;

// A posted write or request header (replyBytes only for requests).
uint64_t MakeHeader(EType type, unsigned port, unsigned address, unsigned lengthBytes, bool increment,
                    unsigned replyBytes = 0);
// The reply a request of (port, address, increment) expects with lengthBytes of payload.
uint64_t MakeReplyHeader(unsigned port, unsigned address, unsigned lengthBytes, bool increment);
bool IsExpectedReply(uint64_t received, uint64_t expected);

inline unsigned Type(uint64_t header) { return static_cast<unsigned>(header & 0xF); }
inline bool Increment(uint64_t header) { return ((header >> 7) & 1) != 0; }
inline unsigned Length(uint64_t header) { return static_cast<unsigned>((header >> 16) & 0x7FF); }
inline unsigned ReplyLength(uint64_t header) { return static_cast<unsigned>((header >> 32) & 0x7FF); }
inline unsigned Address(uint64_t header) { return static_cast<unsigned>((header >> 48) & 0x3FF); }
inline unsigned Port(uint64_t header) { return static_cast<unsigned>((header >> 58) & 0x3F); }
inline unsigned ReplyPort(uint64_t header) { return static_cast<unsigned>((header >> 10) & 0x3F); }

// The generic packet with a payload: type bits 0-3, subType 12-15, flag0..flag3 in bits
// 11, 10, 9, 8, length 16-26, fieldA (14 bits) 32-45, fieldB (14 bits) 48-61.
uint64_t MakeGenericHeader(unsigned type, unsigned subType, unsigned fieldA, unsigned fieldB, unsigned lengthBytes,
                           bool flag0, bool flag1, bool flag2, bool flag3);
// The short generic packet: type 8, first (2 bits) bits 8-9, second (4 bits) 12-15, third
// 56-63, flags in bits 52, 44, 40, 48 in argument order.
uint64_t MakeShortHeader(unsigned first, unsigned second, unsigned third, bool flag0, bool flag1, bool flag2,
                         bool flag3);

// The firmware cannot read and write in one request: throws "PtBus Request: [%d][0x%04X]:
// Request should not read and write in a single transaction, this is a firmware
// limitation" when both counts are non-zero.
void RequireOneDirection(unsigned port, unsigned address, unsigned int txCount, unsigned int rxCount);

}  // namespace NPtPacket
