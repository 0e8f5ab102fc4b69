#pragma once
// CLampMemoryDevice: the lamp memory module (LMM) kept in a lamp tag's NDEF record: a
// header and a ring of lamp records, one per lamp installed, the newest holding the
// usage of the lamp in place.
//
// Header (54 bytes at offset 0, little-endian):
//   0 "ML" | 2 version (1) | 4 format id u32 | 16 first entry offset u32 | 20 entry size
//   u32 | 24 entries in the ring u16 | 26 pages the data use u16 | 28 records ever written
//   u16 | 30 format text, NUL-terminated, at most 23 characters; other bytes kept as read.
// Format(id, text) lays the ring out after the header at 64 in entries of 112 bytes, as
// many as the area holds (at most 65535), with no records.
//
// Record entry, at first + size x ((n - 1) mod entries), n counting from 1:
//   0 lamp type (text of at most 32 characters, NUL-terminated) | 33 serial number (20)
//   | 54 install date u32 (seconds since 1970 UTC, unsigned: good until 2106) | 58 hours
//   the lamp had before it came to this projector, in seconds u32 | 64 usage: ten u32
//   counters (on-time s, strikes, failed strikes, unexpected offs, six more kept as they
//   are) and three u16 values (kept as they are).
// A text without its NUL makes the record corrupt ("Corrupted lamp record."): it is
// returned with both texts empty and `corrupt` set.
//
// States: 0 not initialised, 1 no device answering (also when the tag stops answering
// while Initialize reads it), 2 no "ML" mark (blank or foreign data), 3 wrong version,
// 4 valid. A version-1 header whose ring does not fit its pages
// or the area ("LMM layout does not fit: %s") is treated as state 3: its records cannot
// be read safely.
//
// Every change (CreateNewRecord, UpdateLampUsage, EraseAllLampEntries,
// EraseDeviceToBlank, Format) is one flush of the write care-taker, i.e. one backed-up
// transaction: after a power cut the next start sees the old data or the new, whole.
//
// Lifetime: area, backup handler and log outlive it. Thread contract: the owner's thread.
// Errors: CException, with the texts named here; a failed change leaves the device as
// it was before the change.

#include <cstdint>
#include <string>
#include <vector>

#include "CBackupHandler.h"
#include "CEepromWriteCareTaker.h"
#include "CNdefPayLoadArea.h"
#include "log/ILog.h"

struct SLmmLampUsage {
    static constexpr size_t kCounters = 10;
    static constexpr size_t kValues = 3;
    uint32_t counters[kCounters] = {};
    uint16_t values[kValues] = {};

    uint32_t& OnTimeS() { return counters[0]; }
    uint32_t& Strikes() { return counters[1]; }
    uint32_t& FailedStrikes() { return counters[2]; }
    uint32_t& UnexpectedOffs() { return counters[3]; }
    uint32_t OnTimeS() const { return counters[0]; }
    bool operator==(const SLmmLampUsage& other) const;
};

struct SLmmLampRecord {
    std::string type;
    std::string serial;
    uint32_t installDate = 0;
    uint32_t preInstalledS = 0;
    SLmmLampUsage usage;
    bool corrupt = false;
    bool operator==(const SLmmLampRecord& other) const;
};

class CLampMemoryDevice {
public:
    enum EState { STATE_NOT_INITIALISED = 0, STATE_NO_DEVICE = 1, STATE_BLANK = 2, STATE_WRONG_VERSION = 3,
                  STATE_VALID = 4 };
    static constexpr uint16_t kLmmMarkLittleEndian = 0x4C4D;  // "ML"
    static constexpr uint8_t kVersion = 1;
    static constexpr uint32_t kHeaderSize = 54;
    static constexpr uint32_t kFirstEntryOffset = 64;
    static constexpr uint32_t kEntrySize = 112;
    static constexpr uint32_t kRecordBytes = 110;
    static constexpr size_t kTypeLength = 32;
    static constexpr size_t kSerialLength = 20;
    static constexpr size_t kFormatTextLength = 23;

    // The area is read where the adapter placed it at Initialize.
    CLampMemoryDevice(CNdefPayLoadArea& area, CBackupHandler& backup, ILog& log);

    EState Initialize();
    EState GetState() const { return m_state; }

    bool HasValidLampRecord() const { return m_state == STATE_VALID && m_written > 0; }
    uint32_t GetTotalLampRecordCount() const { return m_state == STATE_VALID ? m_written : 0; }
    uint32_t GetValidLampRecordCount() const;
    uint32_t GetRingSize() const { return m_entries; }
    uint32_t ReadLampOnTimeSFromRecord(uint32_t number) const;
    // Record `number`, one of the valid ones (the newest GetValidLampRecordCount).
    SLmmLampRecord ReadLampRecord(uint32_t number) const;
    // "There is no valid lamp record on LMM." without one.
    SLmmLampRecord GetCurLampRecordInfo() const;
    // The current lamp's usage; "LMM is invalid." unless valid, zero without a record.
    SLmmLampUsage GetMasterLampUsage() const;
    // The valid records, oldest first, as read by the last ReadHistoryLampUsage.
    const std::vector<SLmmLampRecord>& GetHistory() const { return m_history; }
    void ReadHistoryLampUsage();

    // A new lamp: the next record, which becomes the current one. "LMM is invalid."
    // unless valid; texts longer than their fields throw.
    void CreateNewRecord(const SLmmLampRecord& record);
    // The current lamp's usage; "There is no valid lamp record on LMM." without one.
    void UpdateLampUsage(const SLmmLampUsage& usage);
    void EraseAllLampEntries();
    // The whole area to 0xFF: state 2 afterwards.
    void EraseDeviceToBlank();
    void Format(uint32_t id, const std::string& text);

private:
    // Reads the header and loads the care-taker; the state found. Throws on tag faults.
    EState Load();
    uint32_t EntryOffset(uint32_t number) const;
    uint32_t Get(uint32_t offset, int bytes) const;
    void Put(uint32_t offset, uint32_t value, int bytes);
    void Commit();
    void CheckValid() const;

    CNdefPayLoadArea& m_area;
    ILog& m_log;
    CEepromWriteCareTaker m_care;
    EState m_state = STATE_NOT_INITIALISED;
    uint32_t m_firstEntry = 0;
    uint32_t m_entrySize = 0;
    uint32_t m_entries = 0;
    uint32_t m_written = 0;
    std::vector<SLmmLampRecord> m_history;
};
