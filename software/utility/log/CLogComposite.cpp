#include "CLogComposite.h"

#include <exception>

#include "CException.h"

CLogComposite::CLogComposite(std::initializer_list<ILogFile*> sinks) : m_sinks(sinks) {
    if (m_sinks.size() < 2 || m_sinks.size() > 6) {
        THROW_EXCEPTION("A composite log needs 2 to 6 sinks, %zu given", m_sinks.size());
    }
    for (ILogFile* sink : m_sinks) {
        if (!sink) {
            THROW_EXCEPTION("A composite log cannot hold a null sink");
        }
    }
}

void CLogComposite::Write(const std::string& line, ELogLevel level, EFyiCode code) {
    std::exception_ptr firstError;
    for (ILogFile* sink : m_sinks) {
        try {
            sink->Write(line, level, code);
        } catch (...) {
            if (!firstError) {
                firstError = std::current_exception();
            }
        }
    }
    if (firstError) {
        std::rethrow_exception(firstError);
    }
}
