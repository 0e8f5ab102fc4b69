#pragma once
// CLogger: the ILog implementation. Each call is formatted into one line
//   "YYYY-MM-DD hh:mm:ss.mmm LEVL name: body"   (UTC time)
// and handed to the one sink registered for exactly that level; a level without a
// sink is dropped (it is never passed on to another level's sink).
//
// Ownership: sinks are owned by the caller and must outlive every use of the logger
// (or be removed with AddLogRule(level, nullptr) first).
// Thread contract: every method may be called from any thread; the rule table is
// guarded by the logger's own mutex, and sinks serialise their own writes.
// IsLevelEnabled reads a mask of the levels that have a sink instead, without the lock:
// it is asked on the hot paths before a line is made (a lock and an unlock cost 32-bit
// ARM some 200 instructions), and a check racing a change of the rules may see either
// state, as it could with the lock.
//
// A process-wide registry (RegisterLogger, UnregisterLogger, GetLoggerMap) lets parts of
// a process find its loggers by name; a logger leaves the registry when destroyed.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "ILog.h"
#include "ILogFile.h"

class CLogger : public ILog {
public:
    static constexpr size_t kDefaultMessageLength = 1024;

    // Name: the base name of this process's executable ("unknown" when unreadable).
    CLogger();
    ~CLogger() override;
    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

    // Sets the name written into every line and the largest body length (longer bodies
    // are cut to this many characters).
    void Initialize(const std::string& name, size_t maxMessageLength = kDefaultMessageLength);

    // Sets or replaces the sink of one level; nullptr removes it.
    void AddLogRule(ELogLevel level, ILogFile* sink);
    // The sink of one level, or nullptr.
    ILogFile* GetLoggers(ELogLevel level) const;
    std::string GetName() const;
    // True when the level has a sink.
    bool IsLevelEnabled(ELogLevel level) const override;

    // The process-wide registry. A second logger registered under a taken name replaces
    // the first. GetLoggerMap returns a snapshot.
    static void RegisterLogger(const std::string& key, CLogger* logger);
    static void UnregisterLogger(const std::string& key);
    static std::map<std::string, CLogger*> GetLoggerMap();

protected:
    void HandleLog(ELogLevel level, EFyiCode code, const char* fmt, va_list args) noexcept override;

private:
    static std::string ReadProcessName();

    mutable std::mutex m_mutex;
    std::string m_name;
    size_t m_maxMessageLength;
    std::map<ELogLevel, ILogFile*> m_rules;
    // Bit n set: level n has a sink (every level is below 32). Written under m_mutex.
    std::atomic<uint32_t> m_enabledLevels{0};
};
