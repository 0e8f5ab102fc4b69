#pragma once
// CLogFileByDate: a sink that writes into one file per calendar day (local date),
// named directory + prefix + "YYYY-MM-DD" (year first, so the files sort by date).
//
// All such sinks of a process are listed in one process-wide list and share one current
// date. Whenever the date is found changed (Update, which every Write runs first), every
// sink starts the new day: it closes its file, deletes its own files (those whose name
// begins with its prefix followed by a date) that are keepDays days or more older than
// the new day, and opens the new day's file for appending. keepDays 0 keeps every file.
//
// The directory is taken as given (the host resolves it through the runtime root); a
// missing "/" at its end is added.
// Thread contract: every method may be called from any thread; the list, the shared
// date and the files are guarded by one process-wide mutex.

#include <cstdio>
#include <ctime>
#include <string>

#include "ILogFile.h"

class CLogFileByDate : public ILogFile {
public:
    // Opens today's file. Throws CException when the directory cannot be opened
    // ("Cannot locate log-by-date directory: <dir>") or the file cannot be created.
    CLogFileByDate(const std::string& directory, const std::string& prefix, unsigned keepDays);
    ~CLogFileByDate() override;
    CLogFileByDate(const CLogFileByDate&) = delete;
    CLogFileByDate& operator=(const CLogFileByDate&) = delete;

    void Write(const std::string& line, ELogLevel level, EFyiCode code) override;

    // Checks the real-time clock for a day change.
    static void Update();
    // Checks for a day change as of `now`; the seam through which tests move the date.
    static void Update(time_t now);

    // Size in bytes of the current file. Throws "log file isn't available" without one.
    long GetSize() const;
    // Path of the current day's file.
    std::string GetFileName() const;

private:
    static void UpdateLocked(time_t now);
    void StartDayLocked();

    std::string m_directory;
    std::string m_prefix;
    unsigned m_keepDays;
    std::string m_fileName;
    FILE* m_file;
};
