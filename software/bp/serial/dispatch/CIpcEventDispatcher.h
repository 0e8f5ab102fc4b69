#pragma once
// CIpcEventDispatcher: the controller's IPC front door. It owns the controller's socket,
// takes one message at a time off it, applies commands to controls, answers requests
// (values, attributes, lists), records notification registrations ("NOT") and sends
// change notifications to the registered IPC listeners.
//
// Commands and requests never throw to their sender: every failure is an error reply
// (parameter 220 = EError, 221 = text). An answer that cannot travel (a reply of 4096
// bytes or more) is replaced by one error reply 111 saying so, so the sender never waits
// for a reply that was never sent.
//
// Replies and notifications go out through a CIpcOutbox: what a receiver's full queue
// cannot take now waits for that receiver alone and follows in order as it reads, so
// every reply of a long list arrives and a slow receiver never stalls the controller.
// The owner's loop polls the outbox (AddDescriptors) and lets it send (ProcessReady).
//
// Wire conventions served here:
//  - parameter 231 on a command or request: the access level the sender states (1 when
//    absent), capped by what the kernel says of the sender (SCM_CREDENTIALS, enabled on
//    the socket) under the access policy (CIpcAccessPolicy): the lower of the two
//    counts. The first time a sender of some uid is capped, its uid and pid are logged.
//    Status requests ("STA") and registrations ("NOT") arrive on this same socket and
//    pass the same cap to what they run;
//  - a notification carries the control's code and subcode and, per bit of its type in
//    the order 1, 4, 2, 8: argument 0 = value (text for text controls), 241/242 = min/max,
//    240 = enabled, 243 = number of list entries;
//  - "NOT" commands: parameter 232 = the listener's notification address; arguments 0..n
//    = joined codes whose modifier says R register, U unregister (counted) or W unregister
//    whatever the count; subcode "@@@@" unregisters the address from everything;
//  - a request answered by several replies flags every reply but the last "more follows";
//  - attribute requests ("C", "D", "E", "G", "H", "L", "M", "N", "T" as argument 0's
//    modifier): "C" answers 1 when the control asks for confirmation (it has a confirm
//    text), else 0; "H" answers the control's help text (by its help text id).
//
// Lifetime: attaches itself to the dispatcher in its constructor and detaches in its
// destructor; the dispatcher must outlive it.
// Thread contract: owned by the controller's event thread, like the dispatcher.

#include <list>
#include <set>
#include <string>

#include "EError.h"
#include "control/ControlTypes.h"
#include "dispatch/CIpcAccessPolicy.h"
#include "ipc/CIpcMessagePool.h"
#include "ipc/CIpcOutbox.h"
#include "ipc/CIpcServer.h"
#include "ipc/CPollSet.h"
#include "log/ILog.h"

class CEventDispatcher;
class CProjCon;

class CIpcEventDispatcher {
public:
    static constexpr unsigned short kAccessLevelParm = 231;
    static constexpr unsigned short kNotifyAddressParm = 232;
    static constexpr unsigned short kEnabledParm = 240;
    static constexpr unsigned short kMinimumParm = 241;
    static constexpr unsigned short kMaximumParm = 242;
    static constexpr unsigned short kListSizeParm = 243;

    // socketPath is already resolved through the runtime root.
    CIpcEventDispatcher(CEventDispatcher& dispatcher, const char* socketPath, ILog& log);
    ~CIpcEventDispatcher();
    CIpcEventDispatcher(const CIpcEventDispatcher&) = delete;
    CIpcEventDispatcher& operator=(const CIpcEventDispatcher&) = delete;

    // Handles at most one waiting message; returns at once (false) when none is waiting
    // (CIpcServer::TryGetMessage: a drain ends without a system call to find it empty).
    bool ProcessEvents();
    // True while messages received in one batch wait to be handled: the socket may then
    // poll as empty, so the loop must not wait for it.
    bool HasReceivedMessages() const { return m_server.HasReceivedMessages(); }
    // The controller socket's descriptor, for the event loop's select.
    int GetDescriptor() const { return m_server.GetDescriptor(); }
    // The controller socket for reading and the outbox's waiting receivers for writing.
    void AddDescriptors(CPollSet& poll) const;
    // Sends what waiting receivers take now (the controller socket is read by
    // ProcessEvents).
    void ProcessReady(const CPollSet& poll) { m_outbox.ProcessReady(poll); }
    std::string GetSocketPath() const { return m_server.GetPath(); }
    // Replaces the default policy (only root and the controller's user above level 1).
    void SetAccessPolicy(const CIpcAccessPolicy& policy) { m_policy = policy; }

    // The reply keeps the command's header; parameter 231 is taken off the command. Called
    // directly (not for a message off the socket), the stated level is not capped.
    void ProcessCommands(CIpcMessage& command, CIpcMessage& reply);
    void ProcessRequests(CIpcMessage& request, std::list<CIpcMessage>& replies);
    // Throws CException on a malformed registration; ProcessEvents turns that into an
    // error reply.
    void ProcessNotificationRequests(const CIpcMessage& request);

    void MakeNotification(const CProjCon& control, ENotifyType type, const std::list<std::string>& recipients);
    void SendIpcNotifications(CIpcMessage& notification, const std::list<std::string>& recipients);

private:
    // The level the message states (parameter 231, taken off), capped for its sender.
    int TakeAccessLevel(CIpcMessage& message) const;
    // The cap for the message just received, logged the first time a uid is capped.
    EAccessLevel SenderCap(const CIpcMessage& message);
    void AnswerAttribute(const CProjCon& control, const CIpcMessage& request, unsigned char modifier,
                         std::list<CIpcMessage>& replies);
    void AnswerList(const CProjCon& control, const CIpcMessage& request, std::list<CIpcMessage>& replies);
    void AnswerValue(const CProjCon& control, const CIpcMessage& request, std::list<CIpcMessage>& replies);
    bool IsInternalSender(const std::string& address) const;
    void SendReplies(std::list<CIpcMessage>& replies);
    // Appends request's empty reply to replies, made in a spare of the pool.
    CIpcMessage& AddReplyTo(const CIpcMessage& request, std::list<CIpcMessage>& replies);
    // Serialises and sends (or queues); false with a log line when it cannot travel.
    bool Deliver(CIpcMessage& message, const std::string& address, const char* what);

    CEventDispatcher& m_dispatcher;
    ILog& m_log;
    CIpcServer m_server;
    CIpcOutbox m_outbox;
    std::string m_internalPrefix;
    CIpcAccessPolicy m_policy;
    EAccessLevel m_senderCap = ACCESS_PROTECTED;  // of the message being processed
    std::set<uid_t> m_cappedUids;                 // logged once each
    // The message being processed and its replies, kept from one message to the next with
    // a few answered replies to reuse, so that answering allocates nothing once warmed up.
    CIpcMessage m_request;
    std::list<CIpcMessage> m_replies;
    CIpcMessagePool m_replyPool{4};
};
