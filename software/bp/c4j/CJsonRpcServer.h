#pragma once
// CJsonRpcServer: the JSON-RPC API server of the controller: the TCP transport, the
// method table every handler publishes its methods into, the module registry, client
// access levels, and the notification queue.
//
// Notifications: NotifyPush(n) sends at once; NotifyPush(key, n, delayMs) queues under a
// key: a second push of a queued key replaces its message and recipients but keeps the
// first push's deadline, so a burst of changes sends only the latest state once the
// first change's delay has run out. Update() sends what is due. Sending to a client that
// is gone drops its registrations (CNotificationManager::NotifyUnregisterAll); a client
// too far behind (EAGAIN) gets the message once it has caught up, or a later one of the
// same key instead (see CJsonRpcTcpServer); any other failure drops the client's
// registrations. A client whose connection ends loses its
// registrations too.
//
// Access levels of requests: a TCP client's is its own (1 until "session:connect" raises
// it); a request without a TCP client (a datagram on the unicast port or the multicast
// group) acts at the datagram level (SetDatagramAccessLevel, 1 unless configured), and
// while a CRunAs lives, at the level it names instead (the sync module runs a queued
// request at the level of the client that queued it). The handlers hold every request to
// that level: a control's change is refused (117) where an IPC command of a sender at the
// level would be, and methods that change the projector beyond one control state the level
// they need.
//
// Built-in methods: "getModules" (the modules in name order, each {"module","version"})
// and "getC4JVersion" (2).
//
// Lifetime: the dispatcher, clock and log outlive the server. The server owns the method
// objects handed to AddMethod. Thread contract: one thread runs ProcessMessages (or the
// controller's loop that drives AddDescriptors/ProcessReady/Update) and with it every
// method and every send; NotifyPush must be called on that thread. Nothing locks.
// Errors: Initialize throws CException "Bind failed" / "Listen failed"; ProcessMessages
// on an uninitialized server throws "Uninitialized JSON server".

#include <deque>
#include <map>
#include <memory>
#include <string>

#include "CJsonRpcTcpServer.h"
#include "SJsonNotify.h"
#include "dispatch/CEventDispatcher.h"
#include "time/CTimer.h"
#include "time/IMonotonicClock.h"

class CJsonRpcServer : public CJsonRpcTcpServer {
public:
    static constexpr int kC4jVersion = 2;

    struct SQueuedNotify {
        SJsonNotify notify;
        CTimer timer;
        unsigned int delayMs;
    };

    // Binds bindAddress:port (port 0 = any free port, see GetPort()) and listens.
    CJsonRpcServer(CEventDispatcher& dispatcher, unsigned short port, const IMonotonicClock& clock, ILog& log,
                   const std::string& bindAddress = "0.0.0.0");
    ~CJsonRpcServer() override;

    void Initialize();
    bool IsInitialized() const { return m_initialized; }
    // The server owns the method from now on.
    void AddMethod(Json::Rpc::CallbackMethod* method) { Json::Rpc::Server::AddMethod(method); }
    void RegisterModule(const std::string& name, unsigned int version) { m_modules[name] = version; }

    // Update, then one pass of WaitMessage with a 10 ms time-out.
    void ProcessMessages();
    void NotifyPush(const SJsonNotify& notify);
    void NotifyPush(const std::string& key, const SJsonNotify& notify, unsigned int delayMs);
    void Update();
    // Milliseconds until the next queued notification is due; -1 when none is queued.
    int GetNextDeadlineMs() const;

    // Runs one request text as a TCP request of clientId would run.
    void ProcessOutOfBandMessage(const std::string& text, Json::Value& response, int clientId);
    // The client id in a "JSON_TCP.<id>" address; -1 when there is none.
    static int GetJsonClientDescriptorFromString(const std::string& address);

    // The level a request of clientId (a TCP client, or -1 for none) acts at; see above.
    EAccessLevel GetRequestAccessLevel(int clientId) const;
    void SetDatagramAccessLevel(EAccessLevel level) { m_datagramLevel = level; }
    // Requests without a TCP client act at `level` while this lives (one at a time).
    class CRunAs {
    public:
        CRunAs(CJsonRpcServer& server, EAccessLevel level) : m_server(server), m_before(server.m_runAs) {
            server.m_runAs = level;
        }
        ~CRunAs() { m_server.m_runAs = m_before; }
        CRunAs(const CRunAs&) = delete;
        CRunAs& operator=(const CRunAs&) = delete;

    private:
        CJsonRpcServer& m_server;
        EAccessLevel m_before;
    };

    bool GetModules(const Json::Value& request, Json::Value& response);
    bool GetC4jVersion(const Json::Value& request, Json::Value& response);

    CEventDispatcher& GetDispatcher() const { return m_dispatcher; }
    ILog& GetLog() const { return CJsonRpcTcpServer::GetLog(); }
    const IMonotonicClock& GetClock() const { return m_clock; }

protected:
    void OnClientClosed(const SJsonRpcClient& client) override;

private:
    void SendOneNotification(const SJsonNotify& notify);

    CEventDispatcher& m_dispatcher;
    const IMonotonicClock& m_clock;
    bool m_initialized = false;
    std::map<std::string, unsigned int> m_modules;
    std::map<std::string, SQueuedNotify> m_queued;
    EAccessLevel m_datagramLevel = ACCESS_USER;
    EAccessLevel m_runAs = ACCESS_NONE;  // none: the datagram level
};
