#pragma once
// ILogFile: a sink that receives finished log lines (prefix and body, no newline).
// A sink may throw; CLogger catches and drops whatever a sink throws.
//
// Thread contract: Write may be called from any thread; every sink serialises its own
// writes.

#include <string>

#include "ILog.h"

class ILogFile {
public:
    virtual ~ILogFile() = default;
    virtual void Write(const std::string& line, ELogLevel level, EFyiCode code) = 0;
};
