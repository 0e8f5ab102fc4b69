#include "link/CEventLink.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "CException.h"
#include "RuntimeRoot.h"
#include "dispatch/CIpcEventDispatcher.h"
#include "status/NStatusMessage.h"
#include "text/NAsciiCodeUtils.h"

namespace {

const char kControllerSocket[] = "/var/run/ui/main_controller.socket";

std::string LinkName(const char* name) {
    if (!name || !*name) {
        THROW_EXCEPTION("Invalid socket name - a unique name must be specified");
    }
    std::string cleaned(name);
    for (char& c : cleaned) {
        if (c == '/') {
            c = '_';
        }
    }
    return cleaned.substr(0, 37);
}

CIpcMessage Message(const std::string& code, const std::string& subcode) {
    CIpcMessage message;
    message.SetCode(code);
    message.SetSubCode(subcode);
    return message;
}

bool ReadError(const CIpcMessage& reply, EError& error) {
    int code = 0;
    if (!reply.GetArg(CIpcMessage::kErrorCodeParm, code)) {
        return false;
    }
    error = static_cast<EError>(code);
    return true;
}

}  // namespace

CEventLink::CEventLink(ILog& log, const char* name) : m_log(log), m_name(LinkName(name)) {
    const std::string stem = NRuntimeRoot::Path("/var/run/ui/") + std::to_string(getpid()) + "_" + m_name + "_";
    const std::string controller = NRuntimeRoot::Path(kControllerSocket);
    const std::string clientPath = FirstFreePath(stem, "");
    m_client = std::make_unique<CIpcClient>(controller.c_str(), clientPath.c_str());
    const std::string notifyPath = FirstFreePath(stem, ".notify");
    m_notifyServer = std::make_unique<CIpcServer>(notifyPath.c_str());
}

CEventLink::~CEventLink() = default;

std::string CEventLink::FirstFreePath(const std::string& stem, const std::string& suffix) {
    for (unsigned counter = 0;; ++counter) {
        const std::string path = stem + std::to_string(counter) + suffix;
        struct stat info;
        if (stat(path.c_str(), &info) != 0) {
            return path;
        }
    }
}

EError CEventLink::InitializeLink() {
    m_initialized = true;
    return ERR_NONE;
}

EError CEventLink::Exchange(int accessLevel, CIpcMessage& message, std::list<CIpcMessage>& replies,
                            unsigned int timeoutMs) {
    m_spareReplies.Recycle(replies);
    if (accessLevel != kNoAccessLevel) {
        if (message.GetNumArgs() >= CIpcMessage::kMaxNumParms) {
            return ERR_TOO_MANY_PARAMETERS;  // a full message has no room for the access level
        }
        message.AddArg(CIpcEventDispatcher::kAccessLevelParm, accessLevel);
    }
    if (!m_initialized) {
        const EError result = InitializeLink();
        if (!m_initialized) {
            return result;
        }
    }
    try {
        if (timeoutMs == 0) {
            message.SetFlags(static_cast<uint16_t>(message.GetFlags() & ~MSG_FLAG_REPLY_WANTED));
            m_client->TransmitMessage(message);
            return ERR_NONE;
        }
        bool arrived = m_client->TransmitMessage(message, m_spareReplies.Next(), timeoutMs);
        while (arrived) {
            m_spareReplies.MoveNextTo(replies);
            const CIpcMessage& reply = replies.back();
            EError error = ERR_NONE;
            if (ReadError(reply, error)) {
                return error;
            }
            if (!reply.HasFlag(MSG_FLAG_MORE_FOLLOWS)) {
                return ERR_NONE;
            }
            arrived = m_client->MessageWait(m_spareReplies.Next(), timeoutMs);
        }
    } catch (const CException& e) {
        m_log.LogError("%s cannot reach the controller: %s", m_name.c_str(), e.GetMessage().c_str());
        // An absent or busy controller is, to the caller, a controller that did not
        // answer in time, and may answer later; anything else (a message too large to
        // send, a path too long) fails the same way every time.
        switch (e.GetErrno()) {
        case ENOENT:
        case ECONNREFUSED:
        case EAGAIN:
        case ENOBUFS:
        case EINTR:
            return ERR_COMM_TIMEOUT;
        default:
            return ERR_COMM_FAILURE;
        }
    }
    return ERR_COMM_TIMEOUT;
}

EError CEventLink::WithRetries(int accessLevel, CIpcMessage& message, std::list<CIpcMessage>& replies,
                               unsigned int timeoutMs) {
    unsigned int delay = m_retryDelay;
    bool retried = false;
    // The code is made into text only for these logs: Exchange never changes it.
    for (;;) {
        const EError outcome = Exchange(accessLevel, message, replies, timeoutMs);
        if (outcome == ERR_NONE || outcome == ERR_COMM_FAILURE || !CheckForRetryAndSleep(outcome, delay)) {
            if (retried) {
                m_log.Log("%s successful, returned:%d, %s+%s", m_name.c_str(), outcome, message.GetCode().c_str(),
                          message.GetSubCode().c_str());
            }
            return outcome;
        }
        m_log.LogWarning("%s busy or not responding (%d). Retrying after %ds, %s+%s", m_name.c_str(), outcome, delay,
                         message.GetCode().c_str(), message.GetSubCode().c_str());
        retried = true;
    }
}

bool CEventLink::CheckForRetryAndSleep(EError, unsigned int& delay) {
    if (m_retryMode == 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(static_cast<uint64_t>(delay) * m_retryUnitMs));
        return true;
    }
    if (m_retryMode == 2) {
        if (delay > 7) {
            return false;
        }
        delay *= 2;
        std::this_thread::sleep_for(std::chrono::milliseconds(static_cast<uint64_t>(delay) * m_retryUnitMs));
        return true;
    }
    return false;
}

EError CEventLink::SendCommand(int accessLevel, CIpcMessage& command, CIpcMessage& reply, unsigned int timeoutMs) {
    std::list<CIpcMessage> replies;
    const EError result = WithRetries(accessLevel, command, replies, timeoutMs);
    if (!replies.empty()) {
        reply = replies.back();  // a copy: the caller's reply and the spare keep their storage
    }
    m_spareReplies.Recycle(replies);
    return result;
}

EError CEventLink::SendRequest(int accessLevel, CIpcMessage& request, std::list<CIpcMessage>& replies,
                               unsigned int timeoutMs) {
    request.SetFlags(static_cast<uint16_t>(request.GetFlags() | MSG_FLAG_REQUEST));
    return WithRetries(accessLevel, request, replies, timeoutMs);
}

EError CEventLink::ReadOne(int accessLevel, const std::string& code, const std::string& subcode,
                           CIpcMessage& reply, unsigned int timeoutMs) {
    CIpcMessage request = Message(code, subcode);
    std::list<CIpcMessage> replies;
    const EError result = SendRequest(accessLevel, request, replies, timeoutMs);
    if (result != ERR_NONE) {
        return result;
    }
    const bool one = replies.size() == 1;
    if (one) {
        reply = replies.front();
    }
    m_spareReplies.Recycle(replies);
    return one ? ERR_NONE : ERR_INVALID_PARAMETER;
}

EError CEventLink::GetValue(int accessLevel, const std::string& code, const std::string& subcode, int& value,
                            unsigned int timeoutMs) {
    value = 0;
    CIpcMessage reply;
    const EError result = ReadOne(accessLevel, code, subcode, reply, timeoutMs);
    int read = 0;
    if (result == ERR_NONE && !reply.GetArg(0, read)) {
        return ERR_CONTROL_NOT_FOUND;
    }
    value = read;
    return result;
}

EError CEventLink::GetText(int accessLevel, const std::string& code, const std::string& subcode, std::string& text,
                           unsigned int timeoutMs) {
    text.clear();
    CIpcMessage reply;
    const EError result = ReadOne(accessLevel, code, subcode, reply, timeoutMs);
    if (result == ERR_NONE && !reply.IsTextArg(0)) {
        return ERR_CONTROL_NOT_FOUND;
    }
    reply.GetArg(0, text);
    return result;
}

EError CEventLink::SetValue(int accessLevel, const std::string& code, const std::string& subcode, int& value,
                            bool readBack, unsigned int timeoutMs) {
    CIpcMessage command = Message(code, subcode);
    command.AddArg(0, value);
    CIpcMessage reply;
    const EError result = SendCommand(accessLevel, command, reply, timeoutMs);
    int standing = 0;
    if (readBack && timeoutMs != 0 && reply.IsNumberArg(0) && reply.GetArg(0, standing)) {
        value = standing;
    }
    return result;
}

EError CEventLink::SetText(int accessLevel, const std::string& code, const std::string& subcode, std::string& text,
                           bool readBack, unsigned int timeoutMs) {
    CIpcMessage command = Message(code, subcode);
    command.AddArg(0, text);
    CIpcMessage reply;
    const EError result = SendCommand(accessLevel, command, reply, timeoutMs);
    std::string standing;
    if (readBack && timeoutMs != 0 && reply.IsTextArg(0) && reply.GetArg(0, standing)) {
        text = standing;
    }
    return result;
}

EError CEventLink::GetStatus(int accessLevel, const std::string& group, short index, SStatus& status) {
    CIpcMessage request;
    NStatusMessage::MakeItemRequest(request, group, index);
    std::list<CIpcMessage> replies;
    const EError result = SendRequest(accessLevel, request, replies, kDefaultTimeoutMs);
    if (result != ERR_NONE) {
        return result;
    }
    return replies.size() == 1 && NStatusMessage::DecodeStatus(replies.front(), status) ? ERR_NONE
                                                                                         : ERR_INVALID_PARAMETER;
}

EError CEventLink::GetStatusGroup(int accessLevel, const std::string& group, std::list<SStatus>& items,
                                  unsigned int timeoutMs) {
    items.clear();
    CIpcMessage request;
    NStatusMessage::MakeGroupRequest(request, group);
    std::list<CIpcMessage> replies;
    const EError result = SendRequest(accessLevel, request, replies, timeoutMs);
    if (result != ERR_NONE) {
        return result;
    }
    for (const CIpcMessage& reply : replies) {
        if (reply.GetNumArgs() == 0) {
            continue;  // the one reply of an empty group
        }
        SStatus status;
        if (!NStatusMessage::DecodeStatus(reply, status)) {
            items.clear();
            return ERR_INVALID_PARAMETER;
        }
        items.push_back(status);
    }
    return ERR_NONE;
}

EError CEventLink::GetGlobalAlerts(int accessLevel, SStatusConditionSet& alerts) {
    alerts = SStatusConditionSet();
    CIpcMessage request;
    NStatusMessage::MakeAlertsRequest(request);
    std::list<CIpcMessage> replies;
    const EError result = SendRequest(accessLevel, request, replies, kDefaultTimeoutMs);
    if (result != ERR_NONE) {
        return result;
    }
    unsigned count = 0;
    if (replies.empty() || !NStatusMessage::DecodeSummary(replies.front(), alerts.summary, count) ||
        replies.size() != count + 1) {
        alerts = SStatusConditionSet();
        return ERR_INVALID_PARAMETER;
    }
    for (auto it = std::next(replies.begin()); it != replies.end(); ++it) {
        SStatus status;
        if (!NStatusMessage::DecodeStatus(*it, status)) {
            alerts = SStatusConditionSet();
            return ERR_INVALID_PARAMETER;
        }
        alerts.alarms.push_back(status);
    }
    return ERR_NONE;
}

void CEventLink::MakeNotifyMessage(const std::string& code, const std::string& subcode, CIpcMessage& msg, bool first,
                                   bool second) {
    const unsigned char modifier = first ? 'R' : second ? 'W' : 'U';
    msg.AddArg(static_cast<unsigned short>(msg.GetNumArgs()), NAsciiCodeUtils::JoinCode(code, subcode), modifier);
}

EError CEventLink::SendNotifyRequest(CIpcMessage& request) {
    CIpcMessage reply;
    return SendCommand(kNoAccessLevel, request, reply, kDefaultTimeoutMs);
}

EError CEventLink::SendRegistrations(const std::list<SControlSet>& controls, const std::string& address,
                                     bool first, bool second) {
    if (controls.empty()) {
        return ERR_NONE;
    }
    CIpcMessage request = Message("NOT", "");
    for (const SControlSet& control : controls) {
        MakeNotifyMessage(control.code, control.subcode, request, first, second);
    }
    request.AddArg(CIpcEventDispatcher::kNotifyAddressParm, address);
    return SendNotifyRequest(request);
}

EError CEventLink::NotifyRegister(const std::list<SControlSet>& controls, const std::string& address) {
    return SendRegistrations(controls, address, true, false);
}

EError CEventLink::NotifyRegister(const std::string& code, const std::string& subcode, const std::string& address) {
    return NotifyRegister(std::list<SControlSet>{SControlSet{code, subcode}}, address);
}

EError CEventLink::NotifyUnregister(const std::list<SControlSet>& controls, const std::string& address, bool force) {
    return SendRegistrations(controls, address, false, force);
}

EError CEventLink::NotifyUnregister(const std::string& code, const std::string& subcode, const std::string& address,
                                    bool force) {
    return NotifyUnregister(std::list<SControlSet>{SControlSet{code, subcode}}, address, force);
}

EError CEventLink::NotifyUnregisterAll(const std::string& address) {
    CIpcMessage request = Message("NOT", "@@@@");
    request.AddArg(CIpcEventDispatcher::kNotifyAddressParm, address);
    return SendNotifyRequest(request);
}

bool CEventLink::ProcessNotify(std::list<CIpcMessage>& out) {
    bool any = false;
    CIpcMessage notification;
    bool complete = false;
    while (m_notifyServer->TryGetMessage(notification, &complete)) {
        if (complete) {
            out.push_back(notification);
            any = true;
        }
    }
    return any;
}
