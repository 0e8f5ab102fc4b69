#pragma once
// CBackupHandler: makes a write to a lamp tag all-or-nothing. Before the tag is written,
// the bytes about to be overwritten are saved to a backup file in flash; the backup goes
// once the write is complete. A start that finds a backup knows the last write was cut
// short and puts the saved bytes back, so the tag holds the old data whole.
//
//   StartTransaction()               (restores a backup left over first, see below)
//   BackUpTag({{offset, size}, ...}) saves the tag's current bytes of every range the
//                                    transaction will write, durably, before any write
//   WriteTag(offset, data, size)     any number, each inside a backed-up range
//   CompleteTransaction()            removes the backup: the new data stand
//   CheckPendingWrite() / RestoreTag() at start: is there a complete backup, put it back
//   ClearBackup()                    drops a backup without restoring it
//
// Backup file (little-endian; written through NFileUtil::WriteFileAtomically):
//   0   4  "LMMB"
//   4   2  format version 1
//   6   2  number of ranges n (1..4096)
//   8   8  UID of the tag the bytes came from
//   16     n x { offset u32, size u32, the tag's bytes before the write }
//   end 4  CRC-32 (zlib) of every byte before it
// A backup is complete only when the magic, version and UID are right, the ranges end
// exactly where the CRC begins, lie inside the tag, and the CRC matches. Anything else is
// a torn backup: since the tag is written only after the backup is durable, a torn backup
// means the tag was never touched, so it is dropped ("Discarded incomplete lamp tag
// backup %s"). A complete backup of another tag (the lamp was changed while the power was
// off) is dropped too ("Discarded lamp tag backup %s of another tag").
//
// StartTransaction finds a backup left by a write that failed while running (the tag
// stopped answering) and restores it first, so a transaction always starts from whole
// data. It throws when a transaction is already open.
//
// Lifetime: the tag and log outlive it. Thread contract: the owner's thread.
// Errors: tag faults, a backup that cannot be written, and misuse (a write outside the
// backed-up ranges, no open transaction) throw CException; a backup that cannot be
// written leaves the tag untouched.

#include <cstdint>
#include <string>
#include <vector>

#include "IEeprom.h"
#include "log/ILog.h"

class CBackupHandler {
public:
    struct SRange {
        uint32_t offset;
        uint32_t size;
    };
    static constexpr uint32_t kMaxRanges = 4096;

    // `path` is the backup file's system path (under the runtime root).
    CBackupHandler(IEeprom& tag, const std::string& path, ILog& log);

    void StartTransaction();
    void BackUpTag(const std::vector<SRange>& ranges);
    void WriteTag(uint32_t offset, const uint8_t* data, uint32_t size);
    void CompleteTransaction();
    // Ends an open transaction without completing it (a write failed); its backup stays
    // for the next StartTransaction or start.
    void AbandonTransaction() { m_open = false; m_ranges.clear(); }

    bool CheckPendingWrite();
    // Puts a complete backup back and removes it; false when there was none.
    bool RestoreTag();
    void ClearBackup();
    const std::string& GetPath() const { return m_path; }

private:
    struct SBackup {
        uint64_t uid = 0;
        std::vector<std::pair<SRange, std::string>> ranges;
    };
    // Reads the backup file; false (and the reason) when missing or torn.
    bool ReadBackup(SBackup& backup, std::string& reason) const;

    IEeprom& m_tag;
    std::string m_path;
    ILog& m_log;
    bool m_open = false;
    std::vector<SRange> m_ranges;
};
