#pragma once
// CControllerLoop: the controller's one event thread. The IPC event dispatcher and the
// JSON-RPC server touch the same controls, so both are driven from this one loop and
// nothing needs a lock:
//
//   each turn:  poll over the controller's IPC socket (and, for writing, the IPC
//               receivers whose replies wait in the outbox), the JSON-RPC listening socket and
//               every JSON-RPC client (for writing too while its output is queued), and a
//               wake-up pipe; the wait ends at the next queued JSON notification's
//               deadline and at most after kMaxWaitMs;
//               and every added source's descriptors; the wait also ends at the
//               earliest deadline a source gives;
//               then the waiting IPC messages (up to kMaxIpcPerTurn), the IPC replies
//               that can go on now, the
//               JSON-RPC traffic that is ready, the work posted from other threads, the
//               dispatcher's periodic duties (stored values) and the due notifications.
//
// Other threads reach the controller only through Post (the function runs on the loop
// thread at its next turn) and Stop; both may be called from any thread, and Stop also
// from a signal handler.
//
// Lifetime: the dispatcher, the IPC dispatcher and the JSON server (which may be null)
// outlive the loop.

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "CJsonRpcServer.h"
#include "ipc/CPollSet.h"
#include "dispatch/CEventDispatcher.h"
#include "dispatch/CIpcEventDispatcher.h"

// More work for the loop: descriptors to watch, what to do when they are ready (called
// every turn, ready or not), and an optional deadline.
class ILoopSource {
public:
    virtual ~ILoopSource() = default;
    virtual void AddDescriptors(CPollSet& poll) = 0;
    virtual void ProcessReady(const CPollSet& poll) = 0;
    // Milliseconds until the source needs a turn; -1 when it does not.
    virtual int GetNextDeadlineMs() const { return -1; }
};

class CControllerLoop {
public:
    static constexpr int kMaxWaitMs = 100;
    static constexpr int kMaxIpcPerTurn = 64;

    CControllerLoop(CEventDispatcher& dispatcher, CIpcEventDispatcher& ipc, CJsonRpcServer* json);
    ~CControllerLoop();
    CControllerLoop(const CControllerLoop&) = delete;
    CControllerLoop& operator=(const CControllerLoop&) = delete;

    // One turn, waiting at most timeoutMs (less when a notification falls due sooner).
    void RunOnce(int timeoutMs = kMaxWaitMs);
    // Turns until Stop.
    void Run();
    void Stop();
    bool IsStopping() const { return m_stop; }
    void Post(std::function<void()> work);
    // The source must outlive the loop (or be removed first).
    void AddSource(ILoopSource& source) { m_sources.push_back(&source); }
    void RemoveSource(ILoopSource& source);

private:
    void Wake();

    CEventDispatcher& m_dispatcher;
    CIpcEventDispatcher& m_ipc;
    CJsonRpcServer* m_json;
    std::atomic<bool> m_stop{false};
    int m_wakePipe[2] = {-1, -1};
    std::mutex m_workMutex;  // guards m_work, the only state other threads touch
    std::deque<std::function<void()>> m_work;
    std::vector<ILoopSource*> m_sources;
    // A turn's wait and the work it takes over, kept from turn to turn so that a turn
    // allocates nothing once they have grown to the loop's size (loop thread only).
    CPollSet m_poll;
    std::deque<std::function<void()>> m_running;
};
