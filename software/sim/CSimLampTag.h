#pragma once
// CSimLampTag: a simulated M24LR64-class NFC lamp tag: an 8 KiB EEPROM written in pages
// of 4 bytes, an 8-byte UID, and its contents kept in an image file (a plain dump of the
// EEPROM) so that they survive restarts; a new image starts blank (all 0xFF).
//
// Every byte a write stores reaches the file at once, so a power cut leaves the file as
// the tag would be. Fault injection:
//   FailAfter(n)     a write stops after n more bytes and throws; the tag answers again
//   CutPowerAfter(n) a write stops after n more bytes and throws, and so does every later
//                    call until PowerOn (the test's stand-in for a restart)
//   SetPresent(false) nothing answers (no tag in the reader's field)
//
// Lifetime: owns its file descriptor. Thread contract: one thread at a time.
// Errors: CException ("Lamp tag not answering", a range outside the tag, file faults).

#include <cstdint>
#include <string>
#include <vector>

#include "IEeprom.h"

class CSimLampTag : public IEeprom {
public:
    static constexpr uint32_t kSize = 8192;
    static constexpr uint32_t kPageSize = 4;
    static constexpr uint32_t kNever = UINT32_MAX;

    // `path`: the image file's system path; created blank when missing. Throws when it
    // cannot be opened or is not kSize bytes.
    CSimLampTag(const std::string& path, uint64_t uid);
    ~CSimLampTag() override;
    CSimLampTag(const CSimLampTag&) = delete;
    CSimLampTag& operator=(const CSimLampTag&) = delete;

    uint32_t GetSize() const override { return kSize; }
    uint32_t GetPageSize() const override { return kPageSize; }
    uint64_t GetUid() const override { return m_uid; }
    void Read(uint32_t offset, uint8_t* data, uint32_t size) override;
    void Write(uint32_t offset, const uint8_t* data, uint32_t size) override;

    void FailAfter(uint32_t bytes) { m_budget = bytes, m_cutPower = false; }
    void CutPowerAfter(uint32_t bytes) { m_budget = bytes, m_cutPower = true; }
    void PowerOn() { m_powered = true, m_budget = kNever; }
    void SetPresent(bool present) { m_present = present; }
    // Bytes stored since construction.
    uint64_t GetBytesWritten() const { return m_written; }
    const std::vector<uint8_t>& GetImage() const { return m_image; }

private:
    void Check(uint32_t offset, uint32_t size) const;

    int m_fd = -1;
    uint64_t m_uid;
    std::vector<uint8_t> m_image;
    uint32_t m_budget = kNever;
    bool m_cutPower = false;
    bool m_powered = true;
    bool m_present = true;
    uint64_t m_written = 0;
};
