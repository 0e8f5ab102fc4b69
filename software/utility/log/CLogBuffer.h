#pragma once
// CLogBuffer: a sink that keeps the last `capacity` lines in memory, for a diagnostic
// page or a test to read back. Entry 0 is the oldest line kept.
// Thread contract: every method may be called from any thread (own mutex).

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>

#include "ILogFile.h"

class CLogBuffer : public ILogFile {
public:
    struct SEntry {
        std::string line;
        ELogLevel level;
        EFyiCode code;
    };

    // Throws CException for a capacity of 0.
    explicit CLogBuffer(size_t capacity);

    void Write(const std::string& line, ELogLevel level, EFyiCode code) override;

    size_t GetNumEntries() const;
    // Throws CException when index is not below GetNumEntries().
    std::string GetLine(size_t index) const;
    SEntry GetEntry(size_t index) const;
    // Every kept line, oldest first, each ended by "\n".
    std::string GetContents() const;
    void Clear();

private:
    const size_t m_capacity;
    mutable std::mutex m_mutex;
    std::deque<SEntry> m_entries;
};
