#pragma once
// CFlashStorage: keeps the values of persistent controls across power cycles, one file
// per control named by its code ("BRI", "NET+PORT") in one directory, by default
// "/var/data/controls/" under the runtime root. A value file holds the control's value
// in decimal ("%d"), or its text for text controls (display types 300..399), with no
// line ending.
//
// Saving never loses the old value: a control's file is written to a temporary file in
// the same directory, flushed to the disk, and renamed over the old file (then the
// directory itself is flushed). Power lost at any instant leaves either the old or the
// new file whole; a leftover temporary file is ignored and replaced by the next save.
// A file that cannot be read or parsed loads nothing: the control keeps its default and
// the reason is logged.
//
// Loading goes through SetValue / SetText with CHANGE_UPDATE_HARDWARE, so that a stored
// value reaches the hardware even on a read-only or disabled control; a value the control
// refuses today (out of a range that has since changed) leaves the default and is logged.
//
// As a periodic task of the dispatcher, Update() saves the controls whose save-pending
// flag is set once the save delay has passed since a pending change was first seen, so a
// burst of changes costs one write per control. It looks at its controls only when the
// dispatcher has noted a change that left a save pending since it last looked (and once
// after each save, for a write that failed), not at every turn of the loop.
//
// Controls are bound by code and looked up at each load or save, so a control may be
// destroyed before the storage. Thread contract: the controller's event thread only.

#include <set>
#include <string>

#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"
#include "log/ILog.h"
#include "time/CTimer.h"
#include "time/IMonotonicClock.h"

class CFlashStorage : public IPeriodicTask {
public:
    static constexpr const char* kDefaultDirectory = "/var/data/controls/";
    static constexpr unsigned int kDefaultSaveDelayMs = 1000;

    // directory is a system path, resolved through the runtime root; it is created when
    // missing ("Create storage for %s error: %s" is logged when that fails). Registers
    // itself as a periodic task of the dispatcher until destroyed.
    CFlashStorage(CEventDispatcher& dispatcher, ILog& log, const IMonotonicClock& clock,
                  const std::string& directory = kDefaultDirectory, unsigned int saveDelayMs = kDefaultSaveDelayMs);
    ~CFlashStorage() override;
    CFlashStorage(const CFlashStorage&) = delete;
    CFlashStorage& operator=(const CFlashStorage&) = delete;

    // Binds a control by its code; throws CException for a control that is not persistent.
    void Bind(const CProjCon& control);
    // Binds every persistent control registered with the dispatcher now.
    void BindAllPersistent();

    // Loads every bound control from its file (at start, after the controls exist).
    void LoadAll();
    // Writes the bound controls whose save is pending, or all of them when forced;
    // returns how many files were written.
    unsigned int Save(bool force = false);
    void Update() override;

    // The file of a code.
    std::string GetFilePath(const std::string& code) const { return m_directory + code; }

private:
    void Load(CProjCon& control);
    bool Write(const CProjCon& control);

    CEventDispatcher& m_dispatcher;
    ILog& m_log;
    std::string m_directory;
    std::set<std::string> m_bound;
    CTimer m_saveTimer;
    bool m_pendingSeen = false;
    uint32_t m_savesSeen = 0;  // the dispatcher's GetSavesNoted() when last looked
    bool m_rescan = true;      // look at the next Update whatever the count
};
