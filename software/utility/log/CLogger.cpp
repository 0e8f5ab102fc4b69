#include "CLogger.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <vector>

namespace {

std::mutex& RegistryMutex() {
    static std::mutex mutex;
    return mutex;
}

std::map<std::string, CLogger*>& Registry() {
    static std::map<std::string, CLogger*> registry;
    return registry;
}

}  // namespace

CLogger::CLogger() : m_name(ReadProcessName()), m_maxMessageLength(kDefaultMessageLength) {}

CLogger::~CLogger() {
    std::lock_guard<std::mutex> lock(RegistryMutex());
    auto& registry = Registry();
    for (auto it = registry.begin(); it != registry.end();) {
        it = it->second == this ? registry.erase(it) : std::next(it);
    }
}

std::string CLogger::ReadProcessName() {
    // The process's own executable link is read from the real /proc (not through the
    // runtime root): it names this process, it is not one of the system's stored paths.
    char link[64];
    snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(getpid()));
    char target[4096];
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length <= 0) {
        return "unknown";
    }
    const std::string path(target, static_cast<size_t>(length));
    const size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return name.empty() ? "unknown" : name;
}

void CLogger::Initialize(const std::string& name, size_t maxMessageLength) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_name = name;
    m_maxMessageLength = maxMessageLength;
}

void CLogger::AddLogRule(ELogLevel level, ILogFile* sink) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (sink) {
        m_rules[level] = sink;
    } else {
        m_rules.erase(level);
    }
    const unsigned n = static_cast<unsigned>(level);
    if (n < 32) {
        const uint32_t mask = m_enabledLevels.load(std::memory_order_relaxed);
        m_enabledLevels.store(sink ? mask | (1u << n) : mask & ~(1u << n), std::memory_order_relaxed);
    }
}

static_assert(LOG_LEVEL_DEBUG < 32, "every level has a bit of the mask");

bool CLogger::IsLevelEnabled(ELogLevel level) const {
    const unsigned n = static_cast<unsigned>(level);
    return n < 32 && ((m_enabledLevels.load(std::memory_order_relaxed) >> n) & 1u) != 0;
}

ILogFile* CLogger::GetLoggers(ELogLevel level) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_rules.find(level);
    return it == m_rules.end() ? nullptr : it->second;
}

std::string CLogger::GetName() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_name;
}

void CLogger::RegisterLogger(const std::string& key, CLogger* logger) {
    std::lock_guard<std::mutex> lock(RegistryMutex());
    Registry()[key] = logger;
}

void CLogger::UnregisterLogger(const std::string& key) {
    std::lock_guard<std::mutex> lock(RegistryMutex());
    Registry().erase(key);
}

std::map<std::string, CLogger*> CLogger::GetLoggerMap() {
    std::lock_guard<std::mutex> lock(RegistryMutex());
    return Registry();
}

void CLogger::HandleLog(ELogLevel level, EFyiCode code, const char* fmt, va_list args) noexcept {
    try {
        ILogFile* sink = nullptr;
        std::string name;
        size_t maxLength = 0;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            const auto it = m_rules.find(level);
            if (it == m_rules.end()) {
                return;
            }
            sink = it->second;
            name = m_name;
            maxLength = m_maxMessageLength;
        }

        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm utc{};
        gmtime_r(&now.tv_sec, &utc);
        char prefix[128];
        snprintf(prefix, sizeof prefix, "%04d-%02d-%02d %02d:%02d:%02d.%03ld %s %s: ", utc.tm_year + 1900,
                 utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, now.tv_nsec / 1000000L,
                 GetLogLevelName(level), name.c_str());

        std::vector<char> body(maxLength + 1);
        const int written = vsnprintf(body.data(), body.size(), fmt, args);
        if (written <= 0 || body[0] == '\0') {
            return;
        }
        sink->Write(std::string(prefix) + body.data(), level, code);
    } catch (...) {
        // A failing sink (full disk, missing syslog node) must never reach the caller.
    }
}
