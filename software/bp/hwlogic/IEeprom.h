#pragma once
// IEeprom: a byte-addressed EEPROM (a lamp's NFC tag, or a window of one). Writes are
// done page by page by the device; a write may stop part-way through (a power cut), so
// callers that need all-or-nothing go through CBackupHandler.
//
// Page size, total size and UID are the chip's: the lamp tag's reader driver answers
// them; here the tag is simulated (CSimLampTag: 8 KiB in pages of 4 bytes, an 8-byte
// UID). Reader self-tests (RF test) are the reader driver's and not part of this view.
//
// Thread contract: one thread at a time (the owner's).
// Errors: Read and Write throw CException when the device does not answer or the range
// runs past GetSize().

#include <cstdint>

class IEeprom {
public:
    virtual ~IEeprom() = default;
    virtual uint32_t GetSize() const = 0;
    virtual uint32_t GetPageSize() const = 0;
    // The chip's unique id (0 where the device has none).
    virtual uint64_t GetUid() const = 0;
    virtual void Read(uint32_t offset, uint8_t* data, uint32_t size) = 0;
    virtual void Write(uint32_t offset, const uint8_t* data, uint32_t size) = 0;
};
