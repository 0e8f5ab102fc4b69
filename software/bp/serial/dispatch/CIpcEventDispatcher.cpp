#include "dispatch/CIpcEventDispatcher.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

#include "CException.h"
#include "RuntimeRoot.h"
#include "control/CCustomEventHandler.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"
#include "ipc/NIpcMsgUtil.h"
#include "text/NAsciiCodeUtils.h"
#include "text/NErrorText.h"
#include "text/NText.h"

namespace {

const unsigned char kNoModifier = 0;

// The request's empty reply (code, subcode, sequence, sender) carrying an error.
CIpcMessage ErrorReplyTo(const CIpcMessage& message, EError error, const std::string& text) {
    CIpcMessage reply = message.EmptyReply();
    NIpcMsgUtil::MakeErrorResponse(reply, error, text);
    return reply;
}

std::string TextOf(int textId, const std::string& fallback) {
    if (textId == 0) {
        return fallback;
    }
    try {
        return NText::GetString(textId);
    } catch (const CException&) {
        return fallback;
    }
}

std::string JoinedCode(const CIpcMessage& message) {
    return NAsciiCodeUtils::JoinCode(message.GetCode(), message.GetSubCode(), '+');
}

}  // namespace

CIpcEventDispatcher::CIpcEventDispatcher(CEventDispatcher& dispatcher, const char* socketPath, ILog& log)
    : m_dispatcher(dispatcher), m_log(log), m_server(socketPath), m_outbox(m_server.GetSocket(), log),
      m_internalPrefix(NRuntimeRoot::Path("/var/run/ui/") + std::to_string(getpid()) + "_") {
    m_server.EnableCredentials();
    m_dispatcher.SetIpcEventDispatcher(this);
}

CIpcEventDispatcher::~CIpcEventDispatcher() { m_dispatcher.SetIpcEventDispatcher(nullptr); }

bool CIpcEventDispatcher::IsInternalSender(const std::string& address) const {
    return address.compare(0, m_internalPrefix.size(), m_internalPrefix) == 0;
}

int CIpcEventDispatcher::TakeAccessLevel(CIpcMessage& message) const {
    int level = ACCESS_USER;
    std::string raw;
    if (message.GetArg(kAccessLevelParm, raw)) {
        int parsed = 0;
        if (message.GetArg(kAccessLevelParm, parsed)) {
            level = parsed;  // a level that is not a clean number grants nothing beyond the default
        }
        message.RemoveArg(kAccessLevelParm);
    }
    return std::min(level, static_cast<int>(m_senderCap));
}

EAccessLevel CIpcEventDispatcher::SenderCap(const CIpcMessage& message) {
    ucred sender{};
    if (!m_server.GetSenderCredentials(sender)) {
        return ACCESS_USER;  // no word from the kernel: the sender proves nothing
    }
    const EAccessLevel cap = m_policy.Cap(sender);
    int stated = ACCESS_USER;
    if (cap < ACCESS_PROTECTED && message.GetArg(kAccessLevelParm, stated) && stated > cap &&
        m_cappedUids.size() < CIpcAccessPolicy::kMaxCachedUsers && m_cappedUids.insert(sender.uid).second) {
        m_log.LogWarning("IPC sender uid %u (pid %d) states access level %d; its level is capped at %d",
                         static_cast<unsigned>(sender.uid), static_cast<int>(sender.pid), stated, cap);
    }
    return cap;
}

bool CIpcEventDispatcher::ProcessEvents() {
    CIpcMessage& message = m_request;
    bool complete = false;
    try {
        if (!m_server.TryGetMessage(message, &complete)) {
            return false;
        }
    } catch (const CException& e) {
        m_log.LogError("Receiving on the controller socket failed: %s", e.GetMessage().c_str());
        return true;
    }
    if (!complete) {
        return true;
    }
    m_senderCap = SenderCap(message);

    const std::string& sender = message.GetReplyAddress();  // nothing below changes it
    // Only the log lines name an internal sender: a request that logs nothing (a query)
    // does not compare the paths.
    const auto internal = [this, &sender] { return IsInternalSender(sender) ? "(internal)" : ""; };
    std::list<CIpcMessage>& replies = m_replies;
    m_replyPool.Recycle(replies);  // the last message's, sent by now
    try {
        if (message.HasFlag(MSG_FLAG_REQUEST)) {
            if (message.IsCode("DGN")) {
                m_log.Log("Processing DGN from %s: (%s) %s", sender.c_str(),
                          CIpcMessage::GetMsgAsString(message).c_str(), internal());
            }
            ProcessRequests(message, replies);
        } else {
            std::string argument;
            message.GetArg(0, argument);
            int key = 0;
            if (message.IsCode("KEY") && message.GetArg(0, key)) {
                m_log.Log("Processing CMD from %s: %s (%#x) %s", sender.c_str(), JoinedCode(message).c_str(),
                          static_cast<unsigned>(key), internal());
            } else {
                m_log.Log("Processing CMD from %s: %s (set:%s) %s", sender.c_str(), JoinedCode(message).c_str(),
                          argument.c_str(), internal());
            }
            CIpcMessage& reply = AddReplyTo(message, replies);
            if (message.IsCode("NOT")) {
                try {
                    ProcessNotificationRequests(message);
                } catch (const CException& e) {
                    NIpcMsgUtil::MakeErrorResponse(reply, ERR_INVALID_PARAMETER,
                                                   "Notification System Error: " + e.GetMessage());
                }
            } else {
                ProcessCommands(message, reply);
            }
        }
    } catch (const std::exception& e) {
        // Nothing a sender does may take the controller down; it learns of the fault.
        m_log.LogError("Processing %s from %s threw: %s", JoinedCode(message).c_str(), sender.c_str(), e.what());
        replies.clear();
        replies.push_back(ErrorReplyTo(message, ERR_REQUEST_THREW, NErrorText::GetErrorString(ERR_REQUEST_THREW)));
    }
    m_senderCap = ACCESS_PROTECTED;  // a direct call later is the controller's own

    if (message.HasFlag(MSG_FLAG_REPLY_WANTED)) {
        if (replies.empty()) {
            m_log.LogError("Sender expecting response - Response list empty!");
            replies.push_back(ErrorReplyTo(message, ERR_NO_RESPONSE, NErrorText::GetErrorString(ERR_NO_RESPONSE)));
        }
        SendReplies(replies);
    }
    return true;
}

CIpcMessage& CIpcEventDispatcher::AddReplyTo(const CIpcMessage& request, std::list<CIpcMessage>& replies) {
    CIpcMessage& reply = m_replyPool.Next();
    reply.AssignEmptyReply(request);
    m_replyPool.MoveNextTo(replies);
    return reply;
}

void CIpcEventDispatcher::AddDescriptors(CPollSet& poll) const {
    poll.Add(m_server.GetDescriptor(), true, m_outbox.IsWaitingForOwnRoom());
    m_outbox.AddDescriptors(poll);
}

bool CIpcEventDispatcher::Deliver(CIpcMessage& message, const std::string& address, const char* what) {
    if (address.empty()) {
        m_log.LogError("Unable to send %s: no address", what);
        return false;
    }
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);
    if (size >= static_cast<int>(CIpcMessage::kMaxMessageSize)) {
        m_log.LogError("Unable to send %s to %s: %d bytes do not fit one message", what, address.c_str(), size);
        return false;
    }
    return m_outbox.Send(data, size, address);
}

void CIpcEventDispatcher::SendReplies(std::list<CIpcMessage>& replies) {
    for (const CIpcMessage& reply : replies) {
        const size_t size = reply.GetSerializedSize();
        if (size >= CIpcMessage::kMaxMessageSize) {
            // Half an answer would mislead; the sender learns why it gets none.
            m_log.LogError("Reply to %s of %zu bytes does not fit one message", reply.GetReplyAddress().c_str(), size);
            char text[80];
            snprintf(text, sizeof text, "Reply too large for one message (%zu bytes)", size);
            CIpcMessage error = ErrorReplyTo(reply, ERR_COMM_FAILURE, text);
            replies.clear();
            replies.push_back(std::move(error));
            break;
        }
    }
    size_t left = replies.size();
    for (CIpcMessage& reply : replies) {
        --left;
        const uint16_t flags = reply.GetFlags();
        reply.SetFlags(static_cast<uint16_t>(left > 0 ? flags | MSG_FLAG_MORE_FOLLOWS : flags & ~MSG_FLAG_MORE_FOLLOWS));
        if (!Deliver(reply, reply.GetReplyAddress(), "reply")) {
            return;
        }
    }
}

void CIpcEventDispatcher::ProcessCommands(CIpcMessage& command, CIpcMessage& reply) {
    const int level = TakeAccessLevel(command);
    CCustomEventHandler* handler = m_dispatcher.GetCustomHandler(command.GetCode());
    if (handler && handler->HandleCommand(command, reply)) {
        return;
    }
    const std::string code = JoinedCode(command);
    CProjCon* control = handler && handler->IsExclusive() ? nullptr : m_dispatcher.GetControl(code);
    if (!control) {
        m_log.LogError("%s NOT FOUND!", code.c_str());
        NIpcMsgUtil::MakeErrorResponse(reply, ERR_CONTROL_NOT_FOUND, NErrorText::GetErrorString(ERR_CONTROL_NOT_FOUND));
        return;
    }
    if (control->GetAccessGroup() > level) {
        NIpcMsgUtil::MakeErrorResponse(reply, ERR_INVALID_ACCESS_GROUP,
                                       NErrorText::GetErrorString(ERR_INVALID_ACCESS_GROUP));
        return;
    }

    EError result = ERR_NONE;
    bool textArgument = false;
    const unsigned count = command.GetNumArgs();
    if (count == 0) {
        if (!IsActionType(control->GetDisplayType())) {
            NIpcMsgUtil::MakeErrorResponse(reply, ERR_TOO_FEW_PARAMETERS,
                                           NErrorText::GetErrorString(ERR_TOO_FEW_PARAMETERS));
            return;
        }
        result = control->SetValue(1, CHANGE_NORMAL);
    } else if (count > 1) {
        NIpcMsgUtil::MakeErrorResponse(reply, ERR_TOO_MANY_PARAMETERS,
                                       NErrorText::GetErrorString(ERR_TOO_MANY_PARAMETERS));
        return;
    } else {
        unsigned char modifier = kNoModifier;
        std::string text;
        if (!command.GetArg(0, text)) {
            NIpcMsgUtil::MakeErrorResponse(reply, ERR_INVALID_PARAMETER,
                                           NErrorText::GetErrorString(ERR_INVALID_PARAMETER));
            return;
        }
        if (command.GetModifier(0, modifier) && modifier != kNoModifier) {
            NIpcMsgUtil::MakeErrorResponse(reply, ERR_INVALID_PARAMETER, "Unsupported modifier");
            return;
        }
        if (command.IsNumberArg(0)) {
            int value = 0;
            if (!command.GetArg(0, value)) {
                NIpcMsgUtil::MakeErrorResponse(reply, ERR_INVALID_PARAMETER,
                                               NErrorText::GetErrorString(ERR_INVALID_PARAMETER));
                return;
            }
            result = control->SetValue(value, CHANGE_NORMAL);
        } else {
            textArgument = true;
            result = control->SetText(text, CHANGE_NORMAL);
        }
    }

    reply.ClearArgs();
    if (result != ERR_NONE) {
        NIpcMsgUtil::MakeErrorResponse(reply, result, control->IsReadOnly() ? "This control is read-only" : "");
    }
    // What now stands goes back in every case, so a refused sender learns the value.
    if (textArgument) {
        reply.AddArg(0, control->GetText());
    } else {
        reply.AddArg(0, control->GetValue());
    }
}

void CIpcEventDispatcher::ProcessRequests(CIpcMessage& request, std::list<CIpcMessage>& replies) {
    const int level = TakeAccessLevel(request);
    CCustomEventHandler* handler = m_dispatcher.GetCustomHandler(request.GetCode());
    if (handler && handler->HandleRequest(request, replies)) {
        return;
    }
    replies.clear();
    const std::string code = JoinedCode(request);
    const CProjCon* control = handler && handler->IsExclusive() ? nullptr : m_dispatcher.GetControl(code);
    if (!control) {
        m_log.LogError("%s NOT FOUND!", code.c_str());
        replies.push_back(
            ErrorReplyTo(request, ERR_CONTROL_NOT_FOUND, NErrorText::GetErrorString(ERR_CONTROL_NOT_FOUND)));
        return;
    }
    if (control->GetAccessGroup() > level) {
        replies.push_back(
            ErrorReplyTo(request, ERR_INVALID_ACCESS_GROUP, NErrorText::GetErrorString(ERR_INVALID_ACCESS_GROUP)));
        return;
    }
    if (request.GetNumArgs() > 1) {
        replies.push_back(
            ErrorReplyTo(request, ERR_TOO_MANY_PARAMETERS, NErrorText::GetErrorString(ERR_TOO_MANY_PARAMETERS)));
        return;
    }
    unsigned char modifier = kNoModifier;
    if (request.GetNumArgs() == 1 && request.GetModifier(0, modifier) && modifier != kNoModifier) {
        AnswerAttribute(*control, request, modifier, replies);
        return;
    }
    AnswerValue(*control, request, replies);
}

void CIpcEventDispatcher::AnswerAttribute(const CProjCon& control, const CIpcMessage& request,
                                          unsigned char modifier, std::list<CIpcMessage>& replies) {
    if (modifier == 'L') {
        AnswerList(control, request, replies);
        return;
    }
    CIpcMessage reply = request.EmptyReply();
    const EDisplayType type = control.GetDisplayType();
    switch (modifier) {
    case 'C':
        reply.AddArg(0, control.GetConfirmText() != 0 ? 1 : 0, PARM_TEXT, modifier);
        break;
    case 'D':
        if (IsTextType(type)) {
            reply.AddArg(0, control.GetDefaultText(), modifier);
        } else {
            reply.AddArg(0, control.GetDefaultValue(), PARM_TEXT, modifier);
        }
        break;
    case 'E':
        reply.AddArg(0, control.GetEnabled() ? 0 : 1, PARM_TEXT, modifier);
        break;
    case 'G':
        reply.AddArg(0, static_cast<int>(control.GetAccessGroup()), PARM_TEXT, modifier);
        break;
    case 'H':
        reply.AddArg(0, TextOf(control.GetHelpText(), ""), modifier);
        break;
    case 'M':
        reply.AddArg(0, control.GetMinValue(), PARM_TEXT, modifier);
        reply.AddArg(1, control.GetMaxValue());
        break;
    case 'N':
        reply.AddArg(0, TextOf(control.GetNameText(), ""), modifier);
        break;
    case 'T':
        reply.AddArg(0, static_cast<int>(type), PARM_TEXT, modifier);
        break;
    default:
        NIpcMsgUtil::MakeErrorResponse(reply, ERR_INVALID_PARAMETER, "Unsupported modifier");
        break;
    }
    replies.push_back(std::move(reply));
}

void CIpcEventDispatcher::AnswerList(const CProjCon& control, const CIpcMessage& request,
                                     std::list<CIpcMessage>& replies) {
    if (!IsListType(control.GetDisplayType())) {
        replies.push_back(ErrorReplyTo(request, ERR_UNKNOWN_REQUEST, "Invalid list / Not a list control"));
        return;
    }
    auto entryReply = [&](int shown, int selectable, int value, const std::string& text) {
        CIpcMessage reply = request.EmptyReply();
        reply.AddArg(0, shown, PARM_TEXT, 'L');
        reply.AddArg(1, selectable);
        reply.AddArg(2, value, static_cast<EParmFlags>(PARM_NUMBER | 5));
        reply.AddArg(3, text);
        replies.push_back(std::move(reply));
    };

    // The whole list is asked for with a bare number argument (flags 0x40 without a digit
    // count, the delimiter bit ignored); any other argument selects the entry of its value.
    EParmFlags flags = PARM_TEXT;
    request.GetArgFlags(0, flags);
    const bool wholeList = (flags & ~PARM_CHAR_DELIMITER) == PARM_NUMBER;
    if (wholeList) {
        for (const SListEntry& entry : control.GetList()) {
            entryReply(entry.shown, entry.selectable, entry.value, TextOf(entry.textId, entry.text));
        }
    } else {
        int value = 0;
        SListEntry entry;
        if (!request.GetArg(0, value) || !control.GetListEntry(value, entry)) {
            replies.push_back(ErrorReplyTo(request, ERR_INVALID_VALUE, NErrorText::GetErrorString(ERR_INVALID_VALUE)));
            return;
        }
        entryReply(entry.shown, entry.selectable, entry.value, TextOf(entry.textId, entry.text));
    }
    entryReply(0, 0, 111, "--END--");
}

void CIpcEventDispatcher::AnswerValue(const CProjCon& control, const CIpcMessage& request,
                                      std::list<CIpcMessage>& replies) {
    const EDisplayType type = control.GetDisplayType();
    if (IsActionType(type)) {
        replies.push_back(ErrorReplyTo(request, ERR_INVALID_PARAMETER, "This control can not be read"));
        return;
    }
    CIpcMessage& reply = AddReplyTo(request, replies);
    if (IsTextType(type)) {
        reply.AddArg(0, control.GetText());
    } else {
        reply.AddArg(0, control.GetValue());
        if (IsListType(type)) {
            SListEntry entry;
            reply.AddArg(3, control.GetListEntry(control.GetValue(), entry) ? TextOf(entry.textId, entry.text) : "");
        }
    }
}

void CIpcEventDispatcher::ProcessNotificationRequests(const CIpcMessage& request) {
    std::string address;
    if (!request.GetArg(kNotifyAddressParm, address) || address.empty()) {
        THROW_EXCEPTION("No notification address in parameter %d", kNotifyAddressParm);
    }
    CNotificationManager& registry = m_dispatcher.GetNotificationManager();
    if (request.GetSubCode() == "@@@@") {
        const std::string keys = registry.NotifyUnregisterAll(address);
        m_log.LogDebug("Unregistered %s from: %s", address.c_str(), keys.c_str());
        return;
    }

    // Every registration is checked before any is applied: a bad one changes nothing.
    struct SChange {
        std::string key;
        unsigned char modifier;
    };
    std::vector<SChange> changes;
    for (const CIpcMessage::Arg& arg : request.GetArgs()) {
        if (arg.first == kNotifyAddressParm || arg.first == kAccessLevelParm) {
            continue;
        }
        const std::string& key = arg.second.text;
        const unsigned char modifier = arg.second.modifier;
        if (key.empty() || (modifier != 'R' && modifier != 'U' && modifier != 'W')) {
            THROW_EXCEPTION("Invalid notification registration '%s' (modifier %d)", key.c_str(), modifier);
        }
        changes.push_back(SChange{key, modifier});
    }
    for (const SChange& change : changes) {
        if (change.modifier == 'R') {
            registry.NotifyRegister(change.key, address);
        } else {
            registry.NotifyUnregister(change.key, address, change.modifier == 'W');
        }
    }
}

void CIpcEventDispatcher::MakeNotification(const CProjCon& control, ENotifyType type,
                                           const std::list<std::string>& recipients) {
    std::string code;
    std::string subcode;
    NAsciiCodeUtils::SplitCode(control.GetCode(), code, subcode);
    CIpcMessage notification;
    notification.SetCode(code);
    notification.SetSubCode(subcode == "!!!!" ? "" : subcode);
    const char* name = control.GetCode().c_str();
    if (type & NOTIFY_VALUE) {
        if (IsTextType(control.GetDisplayType())) {
            m_log.LogDebug("Notifying with text: %s %s", name, control.GetText().c_str());
            notification.AddArg(0, control.GetText());
        } else {
            m_log.LogDebug("Notifying with value: %s %d", name, control.GetValue());
            notification.AddArg(0, control.GetValue());
        }
    }
    if (type & NOTIFY_RANGE) {
        m_log.LogDebug("Notifying with min/max: %s %d/%d", name, control.GetMinValue(), control.GetMaxValue());
        notification.AddArg(kMinimumParm, control.GetMinValue());
        notification.AddArg(kMaximumParm, control.GetMaxValue());
    }
    if (type & NOTIFY_ENABLED) {
        m_log.LogDebug("Notifying with enabled: %s %d", name, control.GetEnabled() ? 1 : 0);
        notification.AddArg(kEnabledParm, control.GetEnabled() ? 1 : 0);
    }
    if (type & NOTIFY_LIST) {
        m_log.LogDebug("Notifying with list rebuild: %s size:%d", name, static_cast<int>(control.GetListSize()));
        notification.AddArg(kListSizeParm, static_cast<int>(control.GetListSize()));
    }
    SendIpcNotifications(notification, recipients);
}

void CIpcEventDispatcher::SendIpcNotifications(CIpcMessage& notification, const std::list<std::string>& recipients) {
    unsigned char* data = nullptr;
    const int size = notification.SerializeMessage(data);
    if (size >= static_cast<int>(CIpcMessage::kMaxMessageSize)) {
        m_log.LogError("Unable to send notification: %d bytes do not fit one message", size);
        return;
    }
    m_outbox.SendToEach(data, size, recipients, [this](const std::string& address) {
        m_log.LogError("Unable to send notification to %s", address.c_str());
    });
}
