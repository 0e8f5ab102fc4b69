#pragma once
// CException: the one exception type of the foundation, transport and hardware
// classes. It records where it was thrown, the formatted message and, when asked,
// the errno value that was current at the throw.
//
// Throw through THROW_EXCEPTION / THROW_ERRNO_EXCEPTION so that function, file and
// line are filled in. errno is captured before the message is formatted, so the
// formatting cannot disturb it.

#include <exception>
#include <string>

class CException : public std::exception {
public:
    CException(const char* function, const char* file, int line, bool withErrno, const char* fmt, ...)
        __attribute__((format(printf, 6, 7)));

    // The message alone, exactly as formatted ("Invalid code %s" with its argument).
    const std::string& GetMessage() const { return m_message; }
    const std::string& GetFunction() const { return m_function; }
    const std::string& GetFile() const { return m_file; }
    int GetLine() const { return m_line; }
    bool HasErrno() const { return m_withErrno; }
    // The errno value captured at the throw; 0 when the exception carries none.
    int GetErrno() const { return m_errno; }

    // "message" or, with errno, "message: <strerror> (errno N)"; then " [function file:line]".
    const char* what() const noexcept override { return m_what.c_str(); }

private:
    std::string m_function;
    std::string m_file;
    int m_line;
    bool m_withErrno;
    int m_errno;
    std::string m_message;
    std::string m_what;
};

#define THROW_EXCEPTION(...) throw CException(__func__, __FILE__, __LINE__, false, __VA_ARGS__)
#define THROW_ERRNO_EXCEPTION(...) throw CException(__func__, __FILE__, __LINE__, true, __VA_ARGS__)
