#include "NNdefTagProtocol.h"

#include <cstring>

#include "CException.h"

namespace NNdefTagProtocol {

namespace {

// Throws unless `count` bytes from `offset` lie inside a buffer of `size`.
void Need(size_t size, size_t offset, size_t count, const char* what) {
    if (offset > size || count > size - offset) {
        THROW_EXCEPTION("%s at offset %zu runs past the end (%zu bytes)", what, offset, size);
    }
}

void Room(size_t capacity, size_t needed) {
    if (needed > capacity) {
        THROW_EXCEPTION("Receiving buffer overflow");
    }
}

uint32_t LengthFieldSize(uint32_t length) { return length < 0xFF ? 1 : 3; }

}  // namespace

SCapabilityContainerField SCapabilityContainerField::Parse(const uint8_t* bytes, size_t size) {
    SCapabilityContainerField cc;
    if (size < kCcSize || bytes[0] != kCcMagic) {
        return cc;
    }
    cc.valid = true;
    cc.majorVersion = static_cast<uint8_t>(bytes[1] >> 6);
    cc.minorVersion = static_cast<uint8_t>((bytes[1] >> 4) & 3);
    cc.readGranted = ((bytes[1] >> 2) & 3) == 0;
    cc.writeGranted = (bytes[1] & 3) == 0;
    cc.extended = (bytes[3] & 0x04) != 0;
    cc.feature = (bytes[3] & 0x01) != 0;
    cc.memorySize = bytes[2] == 0xFF && cc.extended ? 0 : bytes[2] * 8u;
    return cc;
}

void SCapabilityContainerField::Generate(uint8_t* out, size_t capacity) const {
    Room(capacity, kCcSize);
    if (!valid) {
        memset(out, 0xFF, kCcSize);
        return;
    }
    const bool large = extended || memorySize > kLargestShortMemory;
    out[0] = kCcMagic;
    out[1] = static_cast<uint8_t>((majorVersion & 3) << 6 | (minorVersion & 3) << 4 | (readGranted ? 0 : 0x0C) |
                                  (writeGranted ? 0 : 0x03));
    out[2] = large ? 0xFF : static_cast<uint8_t>(memorySize / 8);
    out[3] = static_cast<uint8_t>((large ? 0x04 : 0) | (feature ? 0x01 : 0));
}

STlvBlock ParseTlvBlock(const uint8_t* data, size_t size, size_t offset) {
    Need(size, offset, 1, "TLV block");
    STlvBlock block;
    block.type = data[offset];
    block.offset = static_cast<uint32_t>(offset);
    if (block.type == TLV_NULL || block.type == TLV_TERMINATOR) {
        return block;
    }
    if (block.type < TLV_LOCK_CONTROL || block.type > TLV_PROPRIETARY) {
        THROW_EXCEPTION("Invalid TLV block type");
    }
    Need(size, offset + 1, 1, "TLV length");
    block.length = data[offset + 1];
    block.headerSize = 2;
    if (block.length == 0xFF) {
        Need(size, offset + 2, 2, "TLV length");
        block.length = static_cast<uint32_t>(data[offset + 2]) << 8 | data[offset + 3];
        block.headerSize = 4;
    }
    Need(size, offset + block.headerSize, block.length, "TLV value");
    return block;
}

std::vector<STlvBlock> RetrieveAllTlvs(const uint8_t* data, size_t size) {
    std::vector<STlvBlock> blocks;
    for (size_t offset = kCcSize; offset < size;) {
        const STlvBlock block = ParseTlvBlock(data, size, offset);
        if (block.type == TLV_TERMINATOR) {
            break;
        }
        if (block.type != TLV_NULL) {
            blocks.push_back(block);
        }
        offset += block.TotalSize();
    }
    return blocks;
}

std::vector<SRecordHeader> RetrieveRecordHeaders(const uint8_t* data, size_t size, const STlvBlock& message) {
    Need(size, message.ValueOffset(), message.length, "NDEF message");
    const size_t end = message.ValueOffset() + message.length;
    std::vector<SRecordHeader> records;
    for (size_t at = message.ValueOffset(); at < end;) {
        SRecordHeader record;
        record.offset = static_cast<uint32_t>(at);
        Need(end, at, 2, "NDEF record header");
        record.flags = data[at];
        const uint8_t typeLength = data[at + 1];
        at += 2;
        if (record.flags & kShortRecord) {
            Need(end, at, 1, "NDEF record header");
            record.payloadLength = data[at++];
        } else {
            Need(end, at, 4, "NDEF record header");
            record.payloadLength = static_cast<uint32_t>(data[at]) << 24 | static_cast<uint32_t>(data[at + 1]) << 16 |
                                   static_cast<uint32_t>(data[at + 2]) << 8 | data[at + 3];
            at += 4;
        }
        uint8_t idLength = 0;
        if (record.flags & kIdPresent) {
            Need(end, at, 1, "NDEF record header");
            idLength = data[at++];
        }
        Need(end, at, typeLength, "NDEF record type");
        record.type.assign(reinterpret_cast<const char*>(data + at), typeLength);
        at += typeLength;
        Need(end, at, idLength, "NDEF record id");
        record.id.assign(reinterpret_cast<const char*>(data + at), idLength);
        at += idLength;
        Need(end, at, record.payloadLength, "NDEF record payload");
        record.payloadOffset = static_cast<uint32_t>(at);
        at += record.payloadLength;
        records.push_back(record);
        if (record.flags & kMessageEnd) {
            break;
        }
    }
    return records;
}

uint32_t SRecord::Size() const {
    const uint32_t payloadBytes = static_cast<uint32_t>(payload.size());
    return 2 + (payloadBytes < 256 ? 1 : 4) + static_cast<uint32_t>(type.size()) + payloadBytes;
}

SRecord STextRecord::ToRecord() const {
    std::string body = text;
    if (body.size() < fieldLength) {
        body.append(fieldLength - body.size(), ' ');
    }
    return {kTnfWellKnown, "T", std::string("\x02" "en", 3) + body};
}

namespace {

uint32_t RecordsLength(const std::vector<SRecord>& records) {
    uint32_t length = 0;
    for (const SRecord& record : records) {
        length += record.Size();
    }
    return length;
}

}  // namespace

uint32_t SMessageTlv::Size() const {
    const uint32_t length = RecordsLength(records);
    return 1 + LengthFieldSize(length) + length;
}

size_t SMessageTlv::Generate(uint8_t* out, size_t capacity) const {
    for (const SRecord& record : records) {
        if (record.type.size() > 0xFF) {
            THROW_EXCEPTION("NDEF record type longer than 255 bytes");
        }
    }
    const uint32_t length = RecordsLength(records);
    if (length > 0xFFFF) {
        THROW_EXCEPTION("NDEF message longer than 65535 bytes");
    }
    Room(capacity, Size());
    size_t at = 0;
    out[at++] = TLV_NDEF_MESSAGE;
    if (LengthFieldSize(length) == 1) {
        out[at++] = static_cast<uint8_t>(length);
    } else {
        out[at++] = 0xFF;
        out[at++] = static_cast<uint8_t>(length >> 8);
        out[at++] = static_cast<uint8_t>(length);
    }
    for (size_t i = 0; i < records.size(); ++i) {
        const SRecord& record = records[i];
        const uint32_t payloadBytes = static_cast<uint32_t>(record.payload.size());
        const bool isShort = payloadBytes < 256;
        out[at++] = static_cast<uint8_t>((i == 0 ? kMessageBegin : 0) | (i + 1 == records.size() ? kMessageEnd : 0) |
                                         (isShort ? kShortRecord : 0) | (record.tnf & 0x07));
        out[at++] = static_cast<uint8_t>(record.type.size());
        if (isShort) {
            out[at++] = static_cast<uint8_t>(payloadBytes);
        } else {
            for (int shift = 24; shift >= 0; shift -= 8) {
                out[at++] = static_cast<uint8_t>(payloadBytes >> shift);
            }
        }
        memcpy(out + at, record.type.data(), record.type.size());
        at += record.type.size();
        memcpy(out + at, record.payload.data(), payloadBytes);
        at += payloadBytes;
    }
    return at;
}

}  // namespace NNdefTagProtocol
