#include "status/CStatusRequestHandler.h"

#include <climits>
#include <utility>
#include <vector>

#include "CException.h"
#include "ipc/NIpcMsgUtil.h"
#include "status/CStatusDb.h"
#include "status/NStatusMessage.h"

namespace {

void PushError(const CIpcMessage& request, EError error, const std::string& text, std::list<CIpcMessage>& replies) {
    CIpcMessage reply = request.EmptyReply();
    NIpcMsgUtil::MakeErrorResponse(reply, error, text);
    replies.push_back(std::move(reply));
}

// Adds a reply holding one status. A status too large for one datagram could never be
// sent, and its sender would wait in vain, so it fails the whole request instead.
void PushStatus(const CIpcMessage& request, const SStatus& status, std::list<CIpcMessage>& replies) {
    CIpcMessage reply = request.EmptyReply();
    NStatusMessage::EncodeStatus(status, reply);
    CIpcMessage probe(reply);
    unsigned char* bytes = nullptr;
    const int size = probe.SerializeMessage(bytes);
    if (size < 0 || static_cast<unsigned>(size) >= CIpcMessage::kMaxMessageSize) {
        THROW_EXCEPTION("Status %s:%d is too long for one reply", status.group.c_str(), status.index);
    }
    replies.push_back(std::move(reply));
}

}  // namespace

CStatusRequestHandler::CStatusRequestHandler(CEventDispatcher& dispatcher, CStatusDb& database)
    : CCustomEventHandler(NStatusMessage::kStatusCode, dispatcher, true), m_database(database) {}

bool CStatusRequestHandler::HandleIpcRequest(const CIpcMessage& request, std::list<CIpcMessage>& replies) {
    // Built aside, so that a failure half-way is answered by the error reply alone.
    std::list<CIpcMessage> answer;
    try {
        Answer(request, answer);
    } catch (const CException& e) {
        answer.clear();
        PushError(request, ERR_REQUEST_THREW, e.GetMessage(), answer);
    }
    replies.splice(replies.end(), answer);
    return true;
}

void CStatusRequestHandler::Answer(const CIpcMessage& request, std::list<CIpcMessage>& replies) {
    const std::string subcode = request.GetSubCode();
    if (subcode == NStatusMessage::kAlarmSubcode) {
        AnswerAlerts(request, replies);
        return;
    }
    if (!subcode.empty()) {
        PushError(request, ERR_UNKNOWN_REQUEST, "Unknown status request " + subcode, replies);
        return;
    }
    std::string group;
    if (!request.GetArg(0, group)) {
        PushError(request, ERR_TOO_FEW_PARAMETERS, "Missing status group", replies);
        return;
    }
    if (request.IsNumberArg(0)) {
        PushError(request, ERR_INVALID_PARAMETER, "Status group must be text", replies);
        return;
    }
    std::string indexText;
    if (!request.GetArg(1, indexText)) {
        AnswerGroup(request, group, replies);
        return;
    }
    int index = 0;
    if (!request.IsNumberArg(1) || !request.GetArg(1, index) || index < SHRT_MIN || index > SHRT_MAX) {
        PushError(request, ERR_INVALID_PARAMETER, "Status index must be a number from -32768 to 32767", replies);
        return;
    }
    AnswerItem(request, group, static_cast<short>(index), replies);
}

void CStatusRequestHandler::AnswerItem(const CIpcMessage& request, const std::string& group, short index,
                                       std::list<CIpcMessage>& replies) {
    if (!m_database.IsValidIndex(group, index)) {
        PushError(request, ERR_UNKNOWN_REQUEST, "Cannot find status group or item", replies);
        return;
    }
    PushStatus(request, m_database.GetStatusValue(group, index), replies);
}

void CStatusRequestHandler::AnswerGroup(const CIpcMessage& request, const std::string& group,
                                        std::list<CIpcMessage>& replies) {
    if (!m_database.HasGroup(group)) {
        PushError(request, ERR_UNKNOWN_REQUEST, "Cannot find status group", replies);
        return;
    }
    const std::vector<SStatus> items = m_database.GetOrderedStatusGroup(group);
    if (items.empty()) {
        replies.push_back(request.EmptyReply());  // the requester still needs its one answer
        return;
    }
    for (const SStatus& item : items) {
        PushStatus(request, item, replies);
    }
}

void CStatusRequestHandler::AnswerAlerts(const CIpcMessage& request, std::list<CIpcMessage>& replies) {
    const std::vector<SStatus>& alarms = m_database.GetAlarmList();
    CIpcMessage summary = request.EmptyReply();
    NStatusMessage::EncodeSummary(m_database.GetAlarmSummary(), static_cast<unsigned>(alarms.size()), summary);
    replies.push_back(summary);
    for (const SStatus& alarm : alarms) {
        PushStatus(request, alarm, replies);
    }
}
