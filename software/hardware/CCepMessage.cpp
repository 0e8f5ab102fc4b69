#include "CCepMessage.h"

#include <cstring>

#include "CBERLength.h"
#include "CCRC.h"

namespace LibFusion {

namespace {

// Where the header fields of each version lie.
struct SLayout {
    unsigned int objectId;
    unsigned int objectIdBytes;
    unsigned int errorCode;
    int destination;  // -1: not in this version
    unsigned int source;
    unsigned int security;
    unsigned int crc;
    unsigned int sequence;
};
constexpr SLayout kVersion1 = {7, 1, 8, -1, 10, 11, 12, 14};
constexpr SLayout kVersion2 = {7, 2, 9, 11, 12, 13, 14, 16};

const SLayout& LayoutOf(uint8_t version) { return version == VERSION_1 ? kVersion1 : kVersion2; }

uint16_t Get16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | at[1] << 8); }

void Put16(uint8_t* at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

// CRC-16/ARC of a frame whose CRC field (at crcAt) counts as zero.
uint16_t FrameCrc(const uint8_t* frame, uint32_t length, unsigned int crcAt) {
    static const uint8_t kZero[2] = {0, 0};
    uint16_t crc = CCRC::calcCRC16(0, frame, crcAt);
    crc = CCRC::calcCRC16(crc, kZero, 2);
    return CCRC::calcCRC16(crc, frame + crcAt + 2, length - crcAt - 2);
}

}  // namespace

constexpr uint8_t CCepMessage::kStartMarker[4];

void CCepMessage::Set(uint32_t key, uint8_t type, const void* data, uint32_t length) {
    SProperty& property = m_properties[key];
    property.type = type;
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    property.data.assign(bytes, bytes + length);
}

void CCepMessage::setArrayUInt8(uint32_t key, const uint8_t* values, uint32_t count, uint8_t type) {
    // The element size follows from the type code; the values are given as bytes.
    const uint32_t size = type == PROPERTY_ARRAY_UINT16 ? 2 : type == PROPERTY_ARRAY_UINT32 ? 4
                          : type == PROPERTY_ARRAY_UINT64 ? 8 : 1;
    Set(key, type, values, count * size);
}

void CCepMessage::setArrayInt8(uint32_t key, const int8_t* values, uint32_t count) {
    Set(key, PROPERTY_ARRAY_INT8, values, count);
}

void CCepMessage::setArrayInt16(uint32_t key, const int16_t* values, uint32_t count) {
    Set(key, PROPERTY_ARRAY_INT16, values, count * 2);
}

void CCepMessage::setArrayInt32(uint32_t key, const int32_t* values, uint32_t count) {
    Set(key, PROPERTY_ARRAY_INT32, values, count * 4);
}

void CCepMessage::setArrayInt64(uint32_t key, const int64_t* values, uint32_t count) {
    Set(key, PROPERTY_ARRAY_INT64, values, count * 8);
}

void CCepMessage::setArrayBool(uint32_t key, const bool* values, uint32_t count) {
    std::vector<uint8_t> bytes(count);
    for (uint32_t i = 0; i < count; ++i) {
        bytes[i] = values[i] ? 1 : 0;
    }
    Set(key, PROPERTY_ARRAY_BOOL, bytes.data(), count);
}

const CCepMessage::SProperty* CCepMessage::getProperty(uint32_t key) const {
    const auto it = m_properties.find(key);
    return it == m_properties.end() ? nullptr : &it->second;
}

bool CCepMessage::getUnsigned(uint32_t key, unsigned int bytes, uint64_t& value) const {
    const SProperty* property = getProperty(key);
    if (!property || bytes > 8 || property->data.size() < bytes) {
        return false;
    }
    value = 0;
    for (unsigned int i = 0; i < bytes; ++i) {
        value |= static_cast<uint64_t>(property->data[i]) << (8 * i);
    }
    return true;
}

bool CCepMessage::getString(uint32_t key, std::string& text) const {
    const SProperty* property = getProperty(key);
    if (!property) {
        return false;
    }
    text.assign(property->data.begin(), property->data.end());
    return true;
}

std::vector<uint8_t> CCepMessage::toBytes(uint8_t version, bool withCrc) {
    if (version != VERSION_1) {
        version = VERSION_2;
    }
    const unsigned int typeBytes = version == VERSION_2 ? 1 : 0;
    uint32_t block = 0;
    for (const auto& entry : m_properties) {
        const uint32_t n = static_cast<uint32_t>(entry.second.data.size()) + typeBytes;
        block += 4 + CBERLength::berBytesLength(n) + n;
    }
    std::vector<uint8_t> frame(kHeaderSize + CBERLength::berBytesLength(block) + block, 0);
    const SLayout& layout = LayoutOf(version);
    memcpy(frame.data(), kStartMarker, 4);
    frame[4] = version;
    frame[5] = m_minor;
    frame[6] = m_command;
    if (layout.objectIdBytes == 2) {
        Put16(&frame[layout.objectId], m_objectId);
    } else {
        frame[layout.objectId] = static_cast<uint8_t>(m_objectId);
    }
    Put16(&frame[layout.errorCode], m_errorCode);
    if (layout.destination >= 0) {
        frame[static_cast<unsigned>(layout.destination)] = m_destination;
    }
    frame[layout.source] = m_source;
    frame[layout.security] = m_security;
    frame[layout.sequence] = m_sequence;
    uint8_t* at = frame.data() + kHeaderSize;
    at += CBERLength::encode(block, at);
    for (const auto& entry : m_properties) {
        for (int i = 0; i < 4; ++i) {
            *at++ = static_cast<uint8_t>(entry.first >> (8 * i));
        }
        const uint32_t n = static_cast<uint32_t>(entry.second.data.size()) + typeBytes;
        at += CBERLength::encode(n, at);
        if (typeBytes) {
            *at++ = entry.second.type;
        }
        if (!entry.second.data.empty()) {
            memcpy(at, entry.second.data.data(), entry.second.data.size());
            at += entry.second.data.size();
        }
    }
    if (withCrc) {
        m_crc = FrameCrc(frame.data(), static_cast<uint32_t>(frame.size()), layout.crc);
    }
    Put16(&frame[layout.crc], m_crc);
    return frame;
}

uint8_t CCepMessage::CheckMessageHeader(const uint8_t* buffer, uint32_t length) {
    if (length < kHeaderSize + 1 || memcmp(buffer, kStartMarker, 4) != 0) {
        return 0;
    }
    return buffer[4];
}

bool CCepMessage::fromBytes(const uint8_t* buffer, uint32_t length, uint32_t& consumed, bool checkCrc) {
    const uint8_t version = CheckMessageHeader(buffer, length);
    if (version != VERSION_1 && version != VERSION_2) {
        return Fail(DECODE_BAD_HEADER);
    }
    const SLayout& layout = LayoutOf(version);
    uint32_t block = 0;
    const unsigned int berBytes = CBERLength::decode(buffer + kHeaderSize, length - kHeaderSize, block);
    if (berBytes == 0) {
        consumed = 0;
        return Fail(CBERLength::needsMore(buffer + kHeaderSize, length - kHeaderSize) ? DECODE_INCOMPLETE
                                                                                       : DECODE_BAD_HEADER);
    }
    const uint64_t frameLength = uint64_t{kHeaderSize} + berBytes + block;
    consumed = frameLength > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(frameLength);
    if (length < frameLength) {
        return Fail(DECODE_INCOMPLETE);
    }
    const uint16_t received = Get16(buffer + layout.crc);
    if (checkCrc && FrameCrc(buffer, static_cast<uint32_t>(frameLength), layout.crc) != received) {
        return Fail(DECODE_CRC_MISMATCH);
    }
    // Properties first, into a map of their own, so a bad block changes nothing.
    std::map<uint32_t, SProperty> properties;
    const uint8_t* at = buffer + kHeaderSize + berBytes;
    const uint8_t* end = at + block;
    while (at < end) {
        uint32_t n = 0;
        const unsigned int lengthBytes = end - at >= 4 ? CBERLength::decode(at + 4, static_cast<uint32_t>(end - at - 4), n) : 0;
        if (lengthBytes == 0 || static_cast<uint64_t>(end - at) < 4u + lengthBytes + n ||
            (version == VERSION_2 && n == 0)) {
            return Fail(DECODE_INCOMPLETE);
        }
        const uint32_t key = static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
                             static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
        const uint8_t* data = at + 4 + lengthBytes;
        SProperty& property = properties[key];
        if (version == VERSION_2) {
            property.type = data[0];
            property.data.assign(data + 1, data + n);
        } else {
            property.type = PROPERTY_UNTYPED;
            property.data.assign(data, data + n);
        }
        at = data + n;
    }
    m_major = version;
    m_minor = buffer[5];
    m_command = buffer[6];
    m_objectId = layout.objectIdBytes == 2 ? Get16(buffer + layout.objectId) : buffer[layout.objectId];
    m_errorCode = Get16(buffer + layout.errorCode);
    m_destination = layout.destination >= 0 ? buffer[layout.destination] : 0;
    m_source = buffer[layout.source];
    m_security = buffer[layout.security];
    m_crc = received;
    m_sequence = buffer[layout.sequence];
    m_decodedVersion = static_cast<EVERSION>(version);
    m_properties.swap(properties);
    m_decodingError = DECODE_OK;
    return true;
}

}  // namespace LibFusion
