#include "CLogBuffer.h"

#include "CException.h"

CLogBuffer::CLogBuffer(size_t capacity) : m_capacity(capacity) {
    if (capacity == 0) {
        THROW_EXCEPTION("Log buffer capacity must be at least 1");
    }
}

void CLogBuffer::Write(const std::string& line, ELogLevel level, EFyiCode code) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_entries.size() == m_capacity) {
        m_entries.pop_front();
    }
    m_entries.push_back(SEntry{line, level, code});
}

size_t CLogBuffer::GetNumEntries() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries.size();
}

std::string CLogBuffer::GetLine(size_t index) const { return GetEntry(index).line; }

CLogBuffer::SEntry CLogBuffer::GetEntry(size_t index) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (index >= m_entries.size()) {
        THROW_EXCEPTION("Log buffer entry %zu out of range (%zu held)", index, m_entries.size());
    }
    return m_entries[index];
}

std::string CLogBuffer::GetContents() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string contents;
    for (const SEntry& entry : m_entries) {
        contents += entry.line;
        contents += '\n';
    }
    return contents;
}

void CLogBuffer::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
}
