#pragma once
// CEventLink: how a process that is not the controller reaches the controls. It owns an
// IPC client bound to a socket of its own that talks to the controller socket
// "/var/run/ui/main_controller.socket", and a second socket on which the controller
// delivers change notifications. Typed calls become IPC commands and requests; replies
// become values and EError codes.
//
// Socket paths (under the runtime root): "/var/run/ui/<pid>_<name>_<n>" for the client
// and "/var/run/ui/<pid>_<name>_<m>.notify" for notifications, where <name> is the
// link's name with "/" replaced by "_" and cut to 37 characters, and n, m are the first
// counters (from 0) whose path does not exist yet.
//
// Retries (SendCommand and SendRequest alike): mode 0 never retries; mode 1 retries
// after the retry delay for as long as the failure lasts; mode 2 doubles the delay before
// each retry (2, 4, 8 s from the default of 1 s) and gives up once the delay is above 7.
// The retry time unit is one second; SetRetryTimeUnitMs shortens it for tests. A
// failure no retry can mend ends the exchange at once in every mode with 111: a message
// that cannot be sent (too large, a bad path), or a controller's answer of 111 (its
// reply was too large to travel).
//
// Notification registrations ("NOT" commands): parameter 232 carries the listener's
// notification address; each argument is a joined code whose modifier says R register,
// U unregister once, W unregister whatever the count ("force"); subcode "@@@@" removes
// the address from everything.
//
// Status reads use the "STA" requests of NStatusMessage.
//
// Lifetime: the constructor creates both socket files, the destructor removes them.
// Thread contract: one thread uses a link at a time; a process that needs parallel
// exchanges makes several links. Notifications are read by the owner, usually after a
// select on GetNotifyDescriptor().
// Errors: results are EError codes (110 on time-out or an absent controller, 111 for a
// message that cannot be sent, the controller's parameter 220 as it is); nothing throws
// once the link is built.

#include <list>
#include <memory>
#include <string>

#include "EError.h"
#include "control/ControlTypes.h"
#include "ipc/CIpcClient.h"
#include "ipc/CIpcMessagePool.h"
#include "ipc/CIpcServer.h"
#include "log/ILog.h"
#include "status/SStatusConditionSet.h"
#include "status/StatusTypes.h"

class CEventLink {
public:
    static constexpr unsigned int kDefaultTimeoutMs = 15000;
    // "DGN", "TST" and "BST" may run for minutes.
    static constexpr unsigned int kLongTimeoutMs = 210000;
    static constexpr int kNoAccessLevel = -1;

    // Throws "Invalid socket name - a unique name must be specified" for an empty name.
    CEventLink(ILog& log, const char* name);
    virtual ~CEventLink();
    CEventLink(const CEventLink&) = delete;
    CEventLink& operator=(const CEventLink&) = delete;

    // Sends a command and waits up to timeoutMs for its reply (0: send only, no reply
    // wanted, result 0). An access level other than kNoAccessLevel travels as parameter 231.
    virtual EError SendCommand(int accessLevel, CIpcMessage& command, CIpcMessage& reply, unsigned int timeoutMs);
    // Sends a request and collects its replies in order while they say "more follows".
    virtual EError SendRequest(int accessLevel, CIpcMessage& request, std::list<CIpcMessage>& replies,
                               unsigned int timeoutMs);
    // Prepares the link before its first exchange; the base only marks it initialised.
    virtual EError InitializeLink();

    int GetNotifyDescriptor() const { return m_notifyServer->GetDescriptor(); }
    std::string GetNotifySocketName() const { return m_notifyServer->GetPath(); }
    std::string GetClientSocketName() const { return m_client->GetOwnPath(); }
    const std::string& GetName() const { return m_name; }

    void SetRetryMode(int mode) { m_retryMode = mode; }
    int GetRetryMode() const { return m_retryMode; }
    void SetRetryDelay(unsigned int seconds) { m_retryDelay = seconds; }
    unsigned int GetRetryDelay() const { return m_retryDelay; }
    void SetRetryTimeUnitMs(unsigned int ms) { m_retryUnitMs = ms; }

    // Typed reads and writes. A failed read leaves 0 (or "") in the output. A set sends the
    // new value as argument 0; with readBack the value (text) that now stands, which the
    // controller returns even when it refused, is written back into the argument.
    EError GetValue(int accessLevel, const std::string& code, const std::string& subcode, int& value,
                    unsigned int timeoutMs = kDefaultTimeoutMs);
    EError GetText(int accessLevel, const std::string& code, const std::string& subcode, std::string& text,
                   unsigned int timeoutMs = kDefaultTimeoutMs);
    EError SetValue(int accessLevel, const std::string& code, const std::string& subcode, int& value, bool readBack,
                    unsigned int timeoutMs = kDefaultTimeoutMs);
    EError SetText(int accessLevel, const std::string& code, const std::string& subcode, std::string& text,
                   bool readBack, unsigned int timeoutMs = kDefaultTimeoutMs);

    EError GetStatus(int accessLevel, const std::string& group, short index, SStatus& status);
    EError GetStatusGroup(int accessLevel, const std::string& group, std::list<SStatus>& items,
                          unsigned int timeoutMs = kDefaultTimeoutMs);
    EError GetGlobalAlerts(int accessLevel, SStatusConditionSet& alerts);

    EError NotifyRegister(const std::list<SControlSet>& controls, const std::string& address);
    EError NotifyRegister(const std::string& code, const std::string& subcode, const std::string& address);
    EError NotifyUnregister(const std::list<SControlSet>& controls, const std::string& address, bool force);
    EError NotifyUnregister(const std::string& code, const std::string& subcode, const std::string& address,
                            bool force);
    EError NotifyUnregisterAll(const std::string& address);

    // Appends code (or code+subcode) as the next positional argument of msg with the
    // modifier R when first is set, else W when second is set, else U.
    static void MakeNotifyMessage(const std::string& code, const std::string& subcode, CIpcMessage& msg, bool first,
                                  bool second);

    // Drains the notification socket without blocking; true when anything arrived.
    bool ProcessNotify(std::list<CIpcMessage>& out);

    // The retry rule: true (after sleeping) when the exchange is to be tried again.
    bool CheckForRetryAndSleep(EError error, unsigned int& delay);

private:
    static std::string FirstFreePath(const std::string& stem, const std::string& suffix);
    // Every exchange starts by taking the caller's replies back as spares, and receives into
    // a spare that then moves into the caller's list: a caller that keeps its list from one
    // exchange to the next receives into storage grown before instead of allocating anew.
    EError Exchange(int accessLevel, CIpcMessage& message, std::list<CIpcMessage>& replies, unsigned int timeoutMs);
    EError WithRetries(int accessLevel, CIpcMessage& message, std::list<CIpcMessage>& replies, unsigned int timeoutMs);
    EError SendNotifyRequest(CIpcMessage& request);
    // A request answered by exactly one reply (the reads of GetValue and GetText).
    EError ReadOne(int accessLevel, const std::string& code, const std::string& subcode, CIpcMessage& reply,
                   unsigned int timeoutMs);
    // One "NOT" command for the list; first/second pick the modifier (MakeNotifyMessage).
    EError SendRegistrations(const std::list<SControlSet>& controls, const std::string& address, bool first,
                             bool second);

    ILog& m_log;
    std::string m_name;
    std::unique_ptr<CIpcClient> m_client;
    std::unique_ptr<CIpcServer> m_notifyServer;
    int m_retryMode = 0;
    unsigned int m_retryDelay = 1;
    unsigned int m_retryUnitMs = 1000;
    bool m_initialized = false;
    CIpcMessagePool m_spareReplies{4};
};
