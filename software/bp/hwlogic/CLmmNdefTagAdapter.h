#pragma once
// CLmmNdefTagAdapter: a lamp's NFC tag as the lamp memory sees it. The tag is an NDEF
// tag (NNdefTagProtocol); the lamp memory module (LMM) is the payload of the first
// record of type kRecordType, which this adapter finds (ParseTag) and exposes as an
// EEPROM of its own (CNdefPayLoadArea). Writes are made safe by a backup file per lamp
// position: "/var/data/lamp/lmm_backup<position>.dat" (CBackupHandler), positions
// 0..5 being "A1", "A2", "A3", "B1", "B2", "B3".
//
// FormatTag(label) gives a blank or foreign tag the layout this system uses: the
// capability container, one NDEF message of a text record (the label) and the LMM record
// filling the rest of the tag, and the terminator, written as one backed-up transaction.
// The LMM payload is then blank (0xFF) until CLampMemoryDevice::Format.
//
// Lifetime: tag and log outlive it; the payload area and backup handler live as long as
// the adapter. Thread contract: the owner's thread.
// Errors: CException (tag faults, malformed structures, the texts named below).

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "CBackupHandler.h"
#include "CLampMemoryDevice.h"
#include "CNdefPayLoadArea.h"
#include "IEeprom.h"
#include "log/ILog.h"

class CLmmNdefTagAdapter {
public:
    static constexpr const char* kRecordType = "application/x-lamp-memory";
    static constexpr const char* kFlashPath = "/var/data/lamp/";
    static constexpr const char* kBackupFileName = "lmm_backup%s.dat";
    static constexpr unsigned int kPositions = 6;

    // "A1".."B3"; nullptr outside 0..5.
    static const char* PositionName(unsigned int position);

    // Throws "Invalid lamp position %u" outside 0..5.
    CLmmNdefTagAdapter(IEeprom& tag, unsigned int position, ILog& log);

    // Puts back a write the last run left unfinished, then looks for the LMM record;
    // false when the tag has none (no container, no NDEF message or no such record).
    bool ParseTag();
    void FormatTag(const std::string& label);
    // Initialises `device` (built over GetPayloadArea): throws "Lost communication with
    // LMM after tag has been detected" (after reporting it) when the tag does not answer,
    // logs "Corrupted lamp data detected. LMM state: %d" unless the LMM is valid.
    void InitializeLmm(CLampMemoryDevice& device);

    CNdefPayLoadArea& GetPayloadArea() { return m_area; }
    CBackupHandler& GetBackupHandler() { return m_backup; }
    const std::string& GetPositionName() const { return m_position; }

    // Communication faults go to this handler (or the log without one).
    void SetCommErrHandler(std::function<void(const std::string&)> handler) { m_commErr = std::move(handler); }
    void ReportCommunicationFault(const std::string& text);

private:
    IEeprom& m_tag;
    ILog& m_log;
    std::string m_position;
    CNdefPayLoadArea m_area;
    CBackupHandler m_backup;
    std::function<void(const std::string&)> m_commErr;
};
