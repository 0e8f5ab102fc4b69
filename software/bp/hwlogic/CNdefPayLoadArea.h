#pragma once
// CNdefPayLoadArea: the payload of the tag's lamp memory record as an EEPROM of its own:
// offsets count from the payload's first byte, and nothing outside it can be reached.
// The adapter places it when it finds the record (size 0 until then).
//
// Lifetime: the tag outlives it. Thread contract: the owner's thread.
// Errors: CException for a range outside the payload, and what the tag throws.

#include "IEeprom.h"

// The LMM record's payload as an EEPROM: offsets from the payload's first byte.
class CNdefPayLoadArea : public IEeprom {
public:
    explicit CNdefPayLoadArea(IEeprom& tag) : m_tag(tag) {}
    void Place(uint32_t tagOffset, uint32_t size) { m_offset = tagOffset, m_size = size; }
    uint32_t GetTagOffset() const { return m_offset; }
    uint32_t GetSize() const override { return m_size; }
    uint32_t GetPageSize() const override { return m_tag.GetPageSize(); }
    uint64_t GetUid() const override { return m_tag.GetUid(); }
    void Read(uint32_t offset, uint8_t* data, uint32_t size) override;
    void Write(uint32_t offset, const uint8_t* data, uint32_t size) override;

private:
    IEeprom& m_tag;
    uint32_t m_offset = 0;
    uint32_t m_size = 0;
};
