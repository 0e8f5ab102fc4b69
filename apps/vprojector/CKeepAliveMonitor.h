#pragma once
// CKeepAliveMonitor: the virtual projector's process monitor for "system:keepAlive". A
// process reports that it lives and when it will report again; one that misses its
// time, or ends, is logged once ("Process %s (%d) missed its keep-alive" / "Process %s
// (%d) ended") and forgotten until it reports again. Reports for a process that does not
// exist, or with 0 seconds, are refused.
//
// Lifetime: clock and log outlive it. Thread contract: the controller's loop (Update is
// its periodic task).

#include <signal.h>

#include <cerrno>
#include <map>
#include <string>

#include "IProcessMonitor.h"
#include "dispatch/CEventDispatcher.h"
#include "log/ILog.h"
#include "time/IMonotonicClock.h"

class CKeepAliveMonitor : public IProcessMonitor, public IPeriodicTask {
public:
    CKeepAliveMonitor(const IMonotonicClock& clock, ILog& log) : m_clock(clock), m_log(log) {}

    bool KeepAlive(int pid, unsigned int seconds, const std::string& name) override {
        if (pid <= 0 || seconds == 0 || (kill(pid, 0) != 0 && errno == ESRCH)) {
            return false;
        }
        m_watched[pid] = {name, m_clock.GetCount(), uint64_t{seconds} * 1000};
        return true;
    }

    void Update() override {
        const uint32_t now = m_clock.GetCount();
        for (auto it = m_watched.begin(); it != m_watched.end();) {
            const bool ended = kill(it->first, 0) != 0 && errno == ESRCH;
            if (ended || m_clock.CountsToMs(it->second.since, now) > it->second.allowedMs) {
                m_log.LogError(ended ? "Process %s (%d) ended" : "Process %s (%d) missed its keep-alive",
                               it->second.name.c_str(), it->first);
                it = m_watched.erase(it);
            } else {
                ++it;
            }
        }
    }

private:
    struct SWatched {
        std::string name;
        uint32_t since;
        uint64_t allowedMs;
    };
    const IMonotonicClock& m_clock;
    ILog& m_log;
    std::map<int, SWatched> m_watched;
};
