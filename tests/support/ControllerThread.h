#pragma once
// CControllerThread: a real controller for tests: a CIpcEventDispatcher serving a socket
// under the test's runtime root, driven on a thread of its own exactly like the
// controller's event loop (select on the socket, one message per turn, then the
// dispatcher's periodic duties). Controls belong to that thread while it runs: a test
// touches them through RunOnController, which executes a function there and waits.

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "dispatch/CEventDispatcher.h"
#include "dispatch/CIpcEventDispatcher.h"

class CControllerThread {
public:
    // socketPath is already resolved through the runtime root.
    CControllerThread(CEventDispatcher& dispatcher, const std::string& socketPath, ILog& log);
    ~CControllerThread();

    void Start();
    void Stop();
    void RunOnController(const std::function<void()>& work);
    CIpcEventDispatcher& GetIpc() { return *m_ipc; }

private:
    void Loop();

    std::unique_ptr<CIpcEventDispatcher> m_ipc;
    CEventDispatcher& m_dispatcher;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_work;
};
