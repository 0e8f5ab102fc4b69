#pragma once
// ILog: the logging interface handed to nearly every class of the system.
// One call formats one line; the implementation decides where it goes (CLogger routes
// each level to one sink). Logging never throws to the caller.
//
// Thread contract: implementations must accept calls from any thread.

#include <cstdarg>

// Log levels, numbered as the syslog severities they correspond to.
enum ELogLevel {
    LOG_LEVEL_ERROR = 3,    // "ERR "
    LOG_LEVEL_WARNING = 4,  // "WARN"
    LOG_LEVEL_FYI = 5,      // "FYI "
    LOG_LEVEL_INFO = 6,     // "INFO"
    LOG_LEVEL_DEBUG = 7,    // "DBG "
};

// The four-character level name written into every line ("????" outside 3..7).
const char* GetLogLevelName(ELogLevel level);

// Event classes of the notice-level ("FYI") lines. The code travels with the line to the
// sink, so that a sink can file events by kind (an operator's event log, for example).
enum EFyiCode {
    FYI_GENERAL = 0,
    FYI_STARTUP = 1,
    FYI_SHUTDOWN = 2,
    FYI_SETTING_CHANGED = 3,
    FYI_LOGIN = 4,
    FYI_ALARM = 5,
};

class ILog {
public:
    virtual ~ILog() = default;

    void Log(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void LogDebug(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void LogFYI(EFyiCode code, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
    void LogWarning(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void LogError(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    // Whether a line of this level goes anywhere, so that a caller can skip building the
    // arguments of lines nobody reads. The default says yes.
    virtual bool IsLevelEnabled(ELogLevel level) const {
        (void)level;
        return true;
    }

protected:
    // One call: format and deliver. Must not throw.
    virtual void HandleLog(ELogLevel level, EFyiCode code, const char* fmt, va_list args) noexcept = 0;
};
