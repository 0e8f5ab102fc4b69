#pragma once
// CLogComposite: a sink that writes every line to two to six other sinks, in the order
// given. A sink that throws does not keep the line from the others; the first error is
// rethrown after all have been tried.
// The member sinks are not owned and must outlive the composite.

#include <initializer_list>
#include <vector>

#include "ILogFile.h"

class CLogComposite : public ILogFile {
public:
    // Throws CException unless 2 to 6 non-null sinks are given.
    CLogComposite(std::initializer_list<ILogFile*> sinks);
    void Write(const std::string& line, ELogLevel level, EFyiCode code) override;

private:
    std::vector<ILogFile*> m_sinks;
};
