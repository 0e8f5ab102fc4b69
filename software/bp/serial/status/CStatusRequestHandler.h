#pragma once
// CStatusRequestHandler: answers the IPC status requests (code "STA") from the status
// database: one item, one group, or the global alerts. The layout of requests, replies
// and error replies is NStatusMessage.h.
//
// Registered with the dispatcher as the exclusive handler of "STA": commands of that
// code are declined (HandleIpcCommand keeps the base's false), so the dispatcher answers
// them "not found". A request never throws to its sender: every failure becomes one error
// reply.
//
// Lifetime: dispatcher and database are not owned and must outlive the handler.
// Thread contract: the controller's event thread only, like the database.

#include <list>
#include <string>

#include "control/CCustomEventHandler.h"

class CStatusDb;

class CStatusRequestHandler : public CCustomEventHandler {
public:
    // Throws like CCustomEventHandler when "STA" already has a handler.
    CStatusRequestHandler(CEventDispatcher& dispatcher, CStatusDb& database);

protected:
    // Always true: every status request gets its replies or one error reply.
    bool HandleIpcRequest(const CIpcMessage& request, std::list<CIpcMessage>& replies) override;

private:
    void Answer(const CIpcMessage& request, std::list<CIpcMessage>& replies);
    void AnswerItem(const CIpcMessage& request, const std::string& group, short index, std::list<CIpcMessage>& replies);
    void AnswerGroup(const CIpcMessage& request, const std::string& group, std::list<CIpcMessage>& replies);
    void AnswerAlerts(const CIpcMessage& request, std::list<CIpcMessage>& replies);

    CStatusDb& m_database;
};
