#pragma once
// CCepMessage: one message of the light-source link: an 18-byte header, then the BER
// length of a property block, then the properties (key, BER length, and in version 2 a
// type byte) in ascending key order. All header integers are little-endian.
//
//   offset  version 2                      version 1
//   0-3     start marker 7B 02 34 2B       the same
//   4       version                        version
//   5, 6    minor version, command code    the same
//   7       object ID (2 bytes)            object ID (low byte)
//   8       -                              error code (2 bytes)
//   9       error code (2 bytes)           -
//   10      -                              source ID
//   11, 12  destination ID, source ID      security ID, CRC (2 bytes, 12-13)
//   13      security ID                    -
//   14      CRC (2 bytes)                  sequence number
//   16, 17  sequence number, 0             0
// The CRC is CRC-16/ARC over the whole frame with its own two bytes taken as zero. A
// version-1 property carries no type byte and decodes with type 0xFF.
//
// Decoding never throws and never reads outside the given bytes, however the lengths
// lie: a problem is reported by a false result and getDecodingError(): 121 a bad header
// (short, no start marker, a version other than 1 or 2, a block length that is no valid
// BER length), 122 incomplete (the frame, or its block length, runs past the bytes, or a
// property runs past the block), 123 CRC mismatch; 120 after success.
//
// Thread contract: not locked; one thread uses a message at a time.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace LibFusion {

enum EVERSION : uint8_t { VERSION_1 = 1, VERSION_2 = 2 };

enum ECOMMAND_IDS : uint8_t { COMMAND_SET = 1, COMMAND_GET = 2 };

enum EPROPERTY_TYPES : uint8_t {
    PROPERTY_DATA = 0,
    PROPERTY_UINT8 = 1,
    PROPERTY_INT8 = 2,
    PROPERTY_UINT16 = 3,
    PROPERTY_INT16 = 4,
    PROPERTY_UINT32 = 5,
    PROPERTY_INT32 = 6,
    PROPERTY_UINT64 = 7,
    PROPERTY_INT64 = 8,
    PROPERTY_BOOL = 9,
    PROPERTY_STRING = 12,
    PROPERTY_XML = 15,
    PROPERTY_ARRAY_UINT8 = 31,
    PROPERTY_ARRAY_INT8 = 32,
    PROPERTY_ARRAY_UINT16 = 33,
    PROPERTY_ARRAY_INT16 = 34,
    PROPERTY_ARRAY_UINT32 = 35,
    PROPERTY_ARRAY_INT32 = 36,
    PROPERTY_ARRAY_UINT64 = 37,
    PROPERTY_ARRAY_INT64 = 38,
    PROPERTY_ARRAY_BOOL = 39,
    PROPERTY_UNTYPED = 0xFF,  // a property decoded from a version-1 frame
};

enum EDECODING_ERRORS : uint16_t {
    DECODE_OK = 120,
    DECODE_BAD_HEADER = 121,
    DECODE_INCOMPLETE = 122,
    DECODE_CRC_MISMATCH = 123,
};

class CCepMessage {
public:
    static constexpr uint32_t kHeaderSize = 18;
    static constexpr uint8_t kStartMarker[4] = {0x7B, 0x02, 0x34, 0x2B};

    struct SProperty {
        uint8_t type;
        std::vector<uint8_t> data;
        bool operator==(const SProperty& other) const { return type == other.type && data == other.data; }
    };

    CCepMessage() = default;
    CCepMessage(const CCepMessage& other) = default;
    CCepMessage& operator=(const CCepMessage& other) = default;
    void copyMsgData(const CCepMessage& other) { *this = other; }

    void setCommandCode(uint8_t code) { m_command = code; }
    void setObjectID(uint16_t id) { m_objectId = id; }
    void setErrorCode(uint16_t code) { m_errorCode = code; }
    void setDestinationID(uint8_t id) { m_destination = id; }
    void setSourceID(uint8_t id) { m_source = id; }
    void setSecurityID(uint8_t id) { m_security = id; }
    void setCrc(uint16_t crc) { m_crc = crc; }
    void setSequenceNumber(uint8_t number) { m_sequence = number; }
    uint8_t getMajorVersion() const { return m_major; }
    uint8_t getMinorVersion() const { return m_minor; }
    uint8_t getCommandCode() const { return m_command; }
    uint16_t getObjectID() const { return m_objectId; }
    uint16_t getErrorCode() const { return m_errorCode; }
    uint8_t getDestinationID() const { return m_destination; }
    uint8_t getSourceID() const { return m_source; }
    uint8_t getSecurityID() const { return m_security; }
    uint16_t getCrc() const { return m_crc; }
    uint8_t getSequenceNumber() const { return m_sequence; }
    EVERSION getDecodedVersion() const { return m_decodedVersion; }
    uint16_t getDecodingError() const { return m_decodingError; }

    // Properties; setting a key again replaces its type and data.
    void setData(uint32_t key, const uint8_t* data, uint32_t length) { Set(key, PROPERTY_DATA, data, length); }
    void setUInt8(uint32_t key, uint8_t value) { SetNumber(key, PROPERTY_UINT8, value); }
    void setInt8(uint32_t key, int8_t value) { SetNumber(key, PROPERTY_INT8, value); }
    void setUInt16(uint32_t key, uint16_t value) { SetNumber(key, PROPERTY_UINT16, value); }
    void setInt16(uint32_t key, int16_t value) { SetNumber(key, PROPERTY_INT16, value); }
    void setUInt32(uint32_t key, uint32_t value) { SetNumber(key, PROPERTY_UINT32, value); }
    void setInt32(uint32_t key, int32_t value) { SetNumber(key, PROPERTY_INT32, value); }
    void setUInt64(uint32_t key, uint64_t value) { SetNumber(key, PROPERTY_UINT64, value); }
    void setInt64(uint32_t key, int64_t value) { SetNumber(key, PROPERTY_INT64, value); }
    void setBool(uint32_t key, bool value) { SetNumber<uint8_t>(key, PROPERTY_BOOL, value ? 1 : 0); }
    void setString(uint32_t key, const std::string& text) { SetText(key, PROPERTY_STRING, text); }
    void setXml(uint32_t key, const std::string& text) { SetText(key, PROPERTY_XML, text); }
    // The unsigned array forms take their type code (31, 33, 35 or 37).
    void setArrayUInt8(uint32_t key, const uint8_t* values, uint32_t count, uint8_t type = PROPERTY_ARRAY_UINT8);
    void setArrayInt8(uint32_t key, const int8_t* values, uint32_t count);
    void setArrayInt16(uint32_t key, const int16_t* values, uint32_t count);
    void setArrayInt32(uint32_t key, const int32_t* values, uint32_t count);
    void setArrayInt64(uint32_t key, const int64_t* values, uint32_t count);
    void setArrayBool(uint32_t key, const bool* values, uint32_t count);

    bool hasProperty(uint32_t key) const { return m_properties.count(key) != 0; }
    const SProperty* getProperty(uint32_t key) const;
    const std::map<uint32_t, SProperty>& getProperties() const { return m_properties; }
    // The first bytes of a property as an unsigned number of `bytes` (1, 2, 4 or 8), or
    // as text; false when the key is absent or shorter.
    bool getUnsigned(uint32_t key, unsigned int bytes, uint64_t& value) const;
    bool getString(uint32_t key, std::string& text) const;
    bool getXml(uint32_t key, std::string& text) const { return getString(key, text); }
    // Typed reads of the number properties (whatever type byte they came with; a
    // version-1 property has none).
    bool getUInt8(uint32_t key, uint8_t& value) const { return GetNumber(key, value); }
    bool getInt8(uint32_t key, int8_t& value) const { return GetNumber(key, value); }
    bool getUInt16(uint32_t key, uint16_t& value) const { return GetNumber(key, value); }
    bool getInt16(uint32_t key, int16_t& value) const { return GetNumber(key, value); }
    bool getUInt32(uint32_t key, uint32_t& value) const { return GetNumber(key, value); }
    bool getInt32(uint32_t key, int32_t& value) const { return GetNumber(key, value); }
    bool getUInt64(uint32_t key, uint64_t& value) const { return GetNumber(key, value); }
    bool getInt64(uint32_t key, int64_t& value) const { return GetNumber(key, value); }
    bool getBool(uint32_t key, bool& value) const {
        uint8_t byte = 0;
        const bool found = GetNumber(key, byte);
        value = byte != 0;
        return found;
    }

    // The frame in the given version (1 or 2; any other is written as 2). With withCrc
    // the CRC is computed and stored (also in the message); otherwise the CRC set is sent.
    std::vector<uint8_t> toBytes(uint8_t version, bool withCrc);
    // The version byte of a frame's header, or 0 when length < 19 or the start marker is
    // missing.
    static uint8_t CheckMessageHeader(const uint8_t* buffer, uint32_t length);
    // Decodes the frame at the start of buffer; consumed gets the frame's length once its
    // block length is read (0 before: a length cut short is incomplete, not an empty
    // block). The buffer is only read.
    bool fromBytes(const uint8_t* buffer, uint32_t length, uint32_t& consumed, bool checkCrc);

private:
    void Set(uint32_t key, uint8_t type, const void* data, uint32_t length);
    template <typename T>
    void SetNumber(uint32_t key, uint8_t type, T value) {
        Set(key, type, &value, sizeof value);
    }
    void SetText(uint32_t key, uint8_t type, const std::string& text) {
        Set(key, type, text.data(), static_cast<uint32_t>(text.size()));
    }
    template <typename T>
    bool GetNumber(uint32_t key, T& value) const {
        uint64_t raw = 0;
        if (!getUnsigned(key, sizeof(T), raw)) {
            return false;
        }
        value = static_cast<T>(raw);
        return true;
    }
    bool Fail(uint16_t error) {
        m_decodingError = error;
        return false;
    }

    uint8_t m_major = 2;
    uint8_t m_minor = 0;
    uint8_t m_command = COMMAND_GET;
    uint16_t m_objectId = 0;
    uint16_t m_errorCode = 0;
    uint8_t m_destination = 0;
    uint8_t m_source = 0;
    uint8_t m_security = 0;
    uint16_t m_crc = 0;
    uint8_t m_sequence = 0;
    EVERSION m_decodedVersion = VERSION_2;
    uint16_t m_decodingError = DECODE_OK;
    std::map<uint32_t, SProperty> m_properties;
};

}  // namespace LibFusion
