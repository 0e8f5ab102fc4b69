#include "CLogConsole.h"

CLogConsole::CLogConsole(FILE* stream) : m_stream(stream) {}

void CLogConsole::Write(const std::string& line, ELogLevel, EFyiCode) {
    std::lock_guard<std::mutex> lock(m_mutex);
    fwrite(line.data(), 1, line.size(), m_stream);
    fputc('\n', m_stream);
    fflush(m_stream);
}
