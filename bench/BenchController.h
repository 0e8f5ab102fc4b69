#pragma once
// CBenchController: a controller for benchmarks, under the benchmark's private runtime
// root (SocketDir): a dispatcher whose integer controls accept every value, and its IPC
// front door, served by Serve() on a pinned thread through the controller's own event loop
// (without a JSON-RPC server), or driven in-process by the benchmark itself.
//
// Controls are added before Serve(); from then on they belong to the serving thread.
// Logging has no sinks, so it costs only its level check.

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CControllerLoop.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"
#include "dispatch/CIpcEventDispatcher.h"
#include "log/CLogger.h"

class CBenchController {
public:
    CBenchController();
    ~CBenchController();

    void AddInteger(const std::string& code, int min, int max, int value);
    void Serve();
    CIpcEventDispatcher& Ipc() { return *m_ipc; }
    // The CPU time the serving thread has used so far.
    double GetCpuSeconds();
    ILog& Log() { return m_log; }

private:
    class CAcceptAll : public IControlProxy {
    public:
        bool ApplyControlValue(const std::string&, int) override { return true; }
        bool ApplyControlText(const std::string&, const std::string&) override { return true; }
    };

    CLogger m_log;
    CAcceptAll m_proxy;
    CEventDispatcher m_dispatcher;
    std::vector<std::unique_ptr<CProjCon>> m_controls;
    std::unique_ptr<CIpcEventDispatcher> m_ipc;
    std::unique_ptr<CControllerLoop> m_loop;
    std::thread m_thread;
};
