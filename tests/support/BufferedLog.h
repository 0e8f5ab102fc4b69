#pragma once
// CBufferedLog: a logger whose every level (up to `mostVerbose`) goes to an in-memory
// ring, so that a test can ask what was logged.

#include <string>

#include "log/CLogBuffer.h"
#include "log/CLogger.h"

class CBufferedLog : public CLogger {
public:
    explicit CBufferedLog(size_t capacity = 1000, ELogLevel mostVerbose = LOG_LEVEL_DEBUG) : m_buffer(capacity) {
        Initialize("test");
        for (int level = LOG_LEVEL_ERROR; level <= mostVerbose; ++level) {
            AddLogRule(static_cast<ELogLevel>(level), &m_buffer);
        }
    }

    bool Logged(const std::string& text) const { return Count(text) > 0; }
    size_t Count(const std::string& text) const {
        const std::string all = m_buffer.GetContents();
        size_t count = 0;
        for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
            ++count;
        }
        return count;
    }
    std::string GetContents() const { return m_buffer.GetContents(); }
    void Clear() { m_buffer.Clear(); }

private:
    CLogBuffer m_buffer;
};
