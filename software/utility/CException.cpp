#include "CException.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "StringFormat.h"

CException::CException(const char* function, const char* file, int line, bool withErrno, const char* fmt, ...)
    : m_function(function ? function : ""), m_file(file ? file : ""), m_line(line), m_withErrno(withErrno),
      m_errno(withErrno ? errno : 0) {
    va_list args;
    va_start(args, fmt);
    m_message = NStringFormat::FormatV(fmt, args);
    va_end(args);

    m_what = m_message;
    if (m_withErrno) {
        char buf[128];
        m_what += NStringFormat::Format(": %s (errno %d)", strerror_r(m_errno, buf, sizeof buf), m_errno);
    }
    m_what += NStringFormat::Format(" [%s %s:%d]", m_function.c_str(), m_file.c_str(), m_line);
}
