#include "ILog.h"

const char* GetLogLevelName(ELogLevel level) {
    switch (level) {
    case LOG_LEVEL_ERROR: return "ERR ";
    case LOG_LEVEL_WARNING: return "WARN";
    case LOG_LEVEL_FYI: return "FYI ";
    case LOG_LEVEL_INFO: return "INFO";
    case LOG_LEVEL_DEBUG: return "DBG ";
    }
    return "????";
}

#define FORWARD_TO_HANDLE_LOG(level, code)  \
    va_list args;                           \
    va_start(args, fmt);                    \
    HandleLog(level, code, fmt, args);      \
    va_end(args)

void ILog::Log(const char* fmt, ...) { FORWARD_TO_HANDLE_LOG(LOG_LEVEL_INFO, FYI_GENERAL); }
void ILog::LogDebug(const char* fmt, ...) { FORWARD_TO_HANDLE_LOG(LOG_LEVEL_DEBUG, FYI_GENERAL); }
void ILog::LogFYI(EFyiCode code, const char* fmt, ...) { FORWARD_TO_HANDLE_LOG(LOG_LEVEL_FYI, code); }
void ILog::LogWarning(const char* fmt, ...) { FORWARD_TO_HANDLE_LOG(LOG_LEVEL_WARNING, FYI_GENERAL); }
void ILog::LogError(const char* fmt, ...) { FORWARD_TO_HANDLE_LOG(LOG_LEVEL_ERROR, FYI_GENERAL); }
