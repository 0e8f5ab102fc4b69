#pragma once
// NNdefTagProtocol: the NFC Forum structures a lamp tag is formatted with: the 4-byte
// capability container, TLV blocks, the NDEF message TLV and its records (text and MIME).
//
// Layouts (multi-byte lengths big-endian):
//   capability container  E1 | major<<6 minor<<4 read<<2 write | size/8 (FF above 2040)
//                         | bit 2 extended size, bit 0 feature flag
//   TLV                   type | length (one byte, or FF and two bytes) | value; types 0
//                         (NULL) and 254 (terminator) are one byte with no length
//   record                flags (80 begin, 40 end, 10 short, 08 id present, low 3 bits
//                         type name format) | type length | payload length (one byte when
//                         short, else four) | [id length] | type | [id] | payload
//
// A record whose payload is 256 bytes or more takes the long form (four-byte payload
// length, no short flag), a text record too: the one-byte length cannot say more.
//
// MIME types: a record built without a type carries kDefaultTypeString, the registered
// generic type for opaque bytes. The projector's own data carry vendor types of their
// own (the lamp memory: CLmmNdefTagAdapter::kRecordType), so a default record is never
// taken for one of them.
//
// Parsers read only inside the buffer they are given: a structure that runs past it (or
// past its message) throws CException naming the offset; an unknown TLV type throws
// "Invalid TLV block type". Generators check the room left first and throw "Receiving
// buffer overflow" before writing anything.
//
// Thread contract: none (pure functions and values).

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace NNdefTagProtocol {

constexpr uint8_t kCcMagic = 0xE1;
constexpr uint32_t kCcSize = 4;
constexpr uint32_t kLargestShortMemory = 2040;

struct SCapabilityContainerField {
    bool valid = false;
    uint8_t majorVersion = 1;
    uint8_t minorVersion = 0;
    bool readGranted = true;
    bool writeGranted = true;
    // Bytes; 0 with `extended` when the container says only "above 2040".
    uint32_t memorySize = 0;
    bool extended = false;
    bool feature = false;

    static SCapabilityContainerField Parse(const uint8_t* bytes, size_t size);
    // 4 bytes; an invalid container is written as FF FF FF FF.
    void Generate(uint8_t* out, size_t capacity) const;
};

enum ETlvType : uint8_t {
    TLV_NULL = 0,
    TLV_LOCK_CONTROL = 1,
    TLV_MEMORY_CONTROL = 2,
    TLV_NDEF_MESSAGE = 3,
    TLV_PROPRIETARY = 4,
    TLV_TERMINATOR = 254,
};

struct STlvBlock {
    uint8_t type = TLV_NULL;
    uint32_t offset = 0;  // of the type byte
    uint32_t length = 0;  // of the value
    uint32_t headerSize = 1;
    uint32_t TotalSize() const { return headerSize + length; }
    uint32_t ValueOffset() const { return offset + headerSize; }
};

// The block at `offset`; its value must lie inside the buffer.
STlvBlock ParseTlvBlock(const uint8_t* data, size_t size, size_t offset);
// The blocks after the capability container up to the terminator (or the buffer's end).
std::vector<STlvBlock> RetrieveAllTlvs(const uint8_t* data, size_t size);

// Type name formats.
constexpr uint8_t kTnfWellKnown = 1;
constexpr uint8_t kTnfMediaType = 2;

constexpr uint8_t kMessageBegin = 0x80;
constexpr uint8_t kMessageEnd = 0x40;
constexpr uint8_t kShortRecord = 0x10;
constexpr uint8_t kIdPresent = 0x08;

struct SRecordHeader {
    uint8_t flags = 0;
    uint32_t offset = 0;  // of the flags byte
    std::string type;
    std::string id;
    uint32_t payloadOffset = 0;
    uint32_t payloadLength = 0;
    uint8_t Tnf() const { return flags & 0x07; }
    uint32_t TotalSize() const { return payloadOffset + payloadLength - offset; }
};

// The records of an NDEF message TLV, up to the one marked message-end.
std::vector<SRecordHeader> RetrieveRecordHeaders(const uint8_t* data, size_t size, const STlvBlock& message);

// A record to generate; flags other than the type name format are set by the message.
struct SRecord {
    uint8_t tnf = kTnfMediaType;
    std::string type;
    std::string payload;
    uint32_t Size() const;
};

// Text record ("T", UTF-8, language "en"); with a field length the text is padded with
// blanks to it (a longer text sets the field length to its own).
struct STextRecord {
    std::string text;
    size_t fieldLength = 0;
    SRecord ToRecord() const;
};

struct SMimeApplicationOctStreamRecord {
    static constexpr const char* kDefaultTypeString = "application/octet-stream";
    std::string type = kDefaultTypeString;
    std::string payload;
    SRecord ToRecord() const { return {kTnfMediaType, type, payload}; }
};

// The NDEF message TLV: type 3, the length of its records, the records (the first marked
// message-begin, the last message-end).
struct SMessageTlv {
    std::vector<SRecord> records;
    uint32_t Size() const;
    // Bytes written.
    size_t Generate(uint8_t* out, size_t capacity) const;
};

}  // namespace NNdefTagProtocol
