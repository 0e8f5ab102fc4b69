#pragma once
// CChildSupervisor: runs one helper program as a child process and keeps it running: a
// child that dies is started again (after kRestartDelayMs, with a log line), while the
// controller goes on serving. As a periodic task of the dispatcher it looks at the child
// without blocking, at most once every kCheckIntervalMs: a loop that is busy turns once per
// request, and looking at every turn would cost each request a waitpid and a read.
//
// Stop ends the child with SIGTERM, waits up to kStopWaitMs for it, then SIGKILLs it, and
// removes the IPC sockets it may have left under "/var/run/ui/" (files named
// "<child pid>_..."), so a killed child leaves nothing behind.
//
// Keep-alive: Watch(pid, seconds, name) registers the child (only the current child, by
// its pid) to report again within `seconds`; each report renews the deadline. A child
// that misses it is logged ("Process %s (%d) missed its keep-alive; restarting it"),
// killed and restarted like one that died; the new child is watched once it reports.
//
// Ready line: after WatchReadyLine the child's standard output comes to the supervisor,
// which reads it in Update; a line beginning "ready" makes IsReady true (until the child
// ends), every other line is passed on to this process's standard output. So whoever
// talks to the child can wait until it listens instead of finding it absent.
//
// A build that runs under user-mode emulation (the ARM build on a PC, where the kernel
// cannot run ARM programs by itself) starts its children through the emulator named by
// the environment variable VPROJECTOR_EMULATOR ("qemu-arm"): "<emulator> <program> ...".
//
// Thread contract: the controller's loop thread only, except IsReady (any thread).

#include <sys/types.h>

#include <atomic>
#include <string>
#include <vector>

#include "dispatch/CEventDispatcher.h"
#include "log/ILog.h"
#include "time/CTimer.h"

class CChildSupervisor : public IPeriodicTask {
public:
    static constexpr unsigned int kRestartDelayMs = 1000;
    static constexpr unsigned int kStopWaitMs = 5000;
    // The loop's longest wait, so an idle loop looks at the child as often as before.
    static constexpr unsigned int kCheckIntervalMs = 100;
    static constexpr const char* kEmulatorVariable = "VPROJECTOR_EMULATOR";

    CChildSupervisor(ILog& log, const IMonotonicClock& clock, const std::string& program,
                     const std::vector<std::string>& arguments);
    ~CChildSupervisor() override;

    // Starts the child; false (with a log line) when it cannot be started.
    bool Start();
    void Stop();
    void Update() override;
    pid_t GetPid() const { return m_pid; }
    // False when `pid` is not the running child or `seconds` is 0.
    bool Watch(pid_t pid, unsigned int seconds, const std::string& name);
    // Call before Start.
    void WatchReadyLine() { m_watchReady = true; }
    bool IsReady() const { return m_ready; }

private:
    void RemoveLeftovers(pid_t pid);
    void ReadOutput();
    void CloseOutput();

    ILog& m_log;
    const IMonotonicClock& m_clock;
    std::string m_program;
    std::vector<std::string> m_arguments;
    pid_t m_pid = -1;
    bool m_running = false;
    CTimer m_restart;
    CTimer m_check;
    bool m_watched = false;
    std::string m_watchName;
    uint32_t m_watchSince = 0;
    uint64_t m_watchMs = 0;
    bool m_watchReady = false;
    int m_output = -1;  // read end of the child's standard output
    std::string m_partial;
    std::atomic<bool> m_ready{false};
};
