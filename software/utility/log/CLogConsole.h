#pragma once
// CLogConsole: a sink that writes each line to a console stream, standard error by
// default, so that standard output stays free for a program's own results.
// The stream is not owned and must outlive the sink. Writes are serialised by a mutex.

#include <cstdio>
#include <mutex>

#include "ILogFile.h"

class CLogConsole : public ILogFile {
public:
    explicit CLogConsole(FILE* stream = stderr);
    void Write(const std::string& line, ELogLevel level, EFyiCode code) override;

private:
    FILE* m_stream;
    std::mutex m_mutex;
};
