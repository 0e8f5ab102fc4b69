#include "CC4jControl.h"

#include <charconv>
#include <climits>
#include <string_view>
#include <utility>

#include "CException.h"
#include "SameText.h"
#include "control/CCustomEventHandler.h"
#include "dispatch/CNotificationManager.h"
#include "jsonrpc/CompactWriter.h"
#include "jsonrpc/Handler.h"
#include "text/NErrorText.h"

namespace {

using EValue = Json::Rpc::SDirectRequest::EValue;

// A direct request's id as the log lines name it (GetId): an integer within int's range,
// else -1.
int IdOf(std::string_view idText) {
    long long id = 0;
    const char* const end = idText.data() + idText.size();
    const auto [last, error] = std::from_chars(idText.data(), end, id);
    if (error != std::errc() || last != end || id < INT_MIN || id > INT_MAX) {
        return -1;
    }
    return static_cast<int>(id);
}

// The value a "set" names: params "value", or the element after the code.
Json::Value RequestedValue(const Json::Value& params) {
    if (params.isArray()) {
        return params.size() > 1 ? params[1] : Json::Value();
    }
    return params.isObject() ? params.get("value", Json::Value()) : Json::Value();
}

}  // namespace

CC4jControl::CC4jControl(CJsonRpcServer& server) : CC4jBaseControlHandler(server, "control", 1) {
    const struct {
        bool (CC4jControl::*method)(const Json::Value&, Json::Value&);
        const char* name;
        bool legacy;
    } methods[] = {
        {&CC4jControl::Get, "get", true},
        {&CC4jControl::Set, "set", true},
        {&CC4jControl::GetProperties, "getProperties", true},
        {&CC4jControl::GetAttributes, "getAttributes", true},
        {&CC4jControl::AddListener, "addListener", true},
        {&CC4jControl::RemoveListener, "removeListener", true},
    };
    for (const auto& m : methods) {
        const auto direct = m.method == &CC4jControl::Get   ? &CC4jControl::GetDirect
                            : m.method == &CC4jControl::Set ? &CC4jControl::SetDirect
                                                            : nullptr;
        Publish(*this, m.method, "control:" + std::string(m.name), direct);
        Publish(*this, m.method, m.name, direct);
    }
    Publish(*this, &CC4jControl::RemoveAllListeners, "removeAllListeners");
    Publish(*this, &CC4jControl::GetListenerList, "getListenerList");
    GetDispatcher().SetJsonNotifier(this);
}

CC4jControl::~CC4jControl() { GetDispatcher().SetJsonNotifier(nullptr); }

bool CC4jControl::TryCustomHandler(const Json::Value& request, Json::Value& response, const std::string& code,
                                   bool command) {
    const Json::Value& params = request["params"];
    CCustomEventHandler* handler = GetDispatcher().GetCustomHandler(code.substr(0, 3));
    if (!handler) {
        return false;
    }
    try {
        CIpcMessage message = ConvertParamsToIpc(params);
        message.SetFlags(command ? 0 : MSG_FLAG_REQUEST);
        std::list<CIpcMessage> replies;
        bool answered = false;
        if (command) {
            CIpcMessage reply = message.EmptyReply();
            answered = handler->HandleCommand(message, reply);
            replies.push_back(std::move(reply));
        } else {
            answered = handler->HandleRequest(message, replies);
        }
        if (!answered) {
            return false;
        }
        for (const CIpcMessage& reply : replies) {
            int error = 0;
            if (reply.GetArg(CIpcMessage::kErrorCodeParm, error) && error != 0) {
                std::string text;
                reply.GetArg(CIpcMessage::kErrorTextParm, text);
                MakeErrorResponse(request, response, static_cast<EError>(error), text);
                return true;
            }
        }
        InitResponseObj(request, response);
        if (!response.isNull()) {
            const Json::Value value = ConvertFromIpcReply(replies);
            if (params.isObject()) {
                response["result"]["value"] = value;
            } else {
                response["result"] = value;
            }
        }
    } catch (const CException& e) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, e.GetMessage());
    }
    return true;
}

CProjCon* CC4jControl::FindControl(const Json::Value& request, Json::Value& response, const std::string& code) {
    CProjCon* control = GetDispatcher().GetControl(code);
    if (!control) {
        GetLog().LogError("%s NOT FOUND!", code.c_str());
        MakeErrorResponse(request, response, ERR_CONTROL_NOT_FOUND);
        return nullptr;
    }
    if (!IsAdmitted(request, *control)) {
        GetLog().LogWarning("Client%s not logged in for executing the protected code: %s ",
                            GetClientIdString(request).c_str(), code.c_str());
        MakeErrorResponse(request, response, ERR_INVALID_ACCESS_GROUP);
        return nullptr;
    }
    return control;
}

bool CC4jControl::Get(const Json::Value& request, Json::Value& response) {
    if (!IsResponseRequired(request)) {
        return true;
    }
    const Json::Value& params = request["params"];
    const std::string code = NJsonValueParser::GetCodeFromParams(params);
    const bool debug = GetLog().IsLevelEnabled(LOG_LEVEL_DEBUG);
    const std::string client = debug ? GetClientIdString(request) : std::string();
    GetLog().LogDebug("Recv'd 'get' from %s: %s", client.c_str(), code.c_str());
    if (!TryCustomHandler(request, response, code, false)) {
        if (CProjCon* control = FindControl(request, response, code)) {
            InitResponseObj(request, response);
            Json::Value result = params.isObject() ? Json::Value(Json::objectValue) : Json::Value();
            AddValueToResult(*control, result);
            response[Json::StaticString("result")] = std::move(result);
        }
    }
    GetLog().LogDebug("Completed 'get' from %s: %s", client.c_str(), code.c_str());
    return true;
}

bool CC4jControl::GetDirect(const Json::Rpc::SDirectRequest& request, int clientId, std::string& reply) {
    // Under debug logging the general way runs, whose log lines name the request.
    if ((request.paramsObject && !SameText(request.member, "code")) || request.valueKind != EValue::kNone ||
        GetLog().IsLevelEnabled(LOG_LEVEL_DEBUG)) {
        return false;
    }
    std::string code;
    const CProjCon* control = FindDirect(request, clientId, code);
    if (!control) {
        return false;
    }
    AppendValueAnswer(request, *control, reply);
    return true;
}

CProjCon* CC4jControl::FindDirect(const Json::Rpc::SDirectRequest& request, int clientId, std::string& code) const {
    code = NJsonValueParser::MakeCode(request.param);
    if (GetDispatcher().GetCustomHandler(code.substr(0, 3))) {
        return nullptr;
    }
    // An unknown code and a refusal are logged and answered the general way.
    CProjCon* control = GetDispatcher().GetControl(code);
    return control && IsAdmitted(clientId, *control) ? control : nullptr;
}

void CC4jControl::AppendValueAnswer(const Json::Rpc::SDirectRequest& request, const CProjCon& control,
                                    std::string& reply) {
    // Members in name order, as the compact writer writes the general way's response.
    reply.append(R"({"id":)").append(request.idText).append(R"(,"jsonrpc":"2.0","result":)");
    if (request.paramsObject) {
        reply.append(R"({"value":)");
    }
    Json::Rpc::AppendCompact(ValueOf(control), reply);
    if (request.paramsObject) {
        reply.push_back('}');
    }
    reply.push_back('}');
}

bool CC4jControl::SetDirect(const Json::Rpc::SDirectRequest& request, int clientId, std::string& reply) {
    if (request.valueKind == EValue::kNone ||
        (request.paramsObject && (!SameText(request.member, "code") || !SameText(request.valueMember, "value")))) {
        return false;
    }
    std::string code;
    CProjCon* control = FindDirect(request, clientId, code);
    // A refusal of the client's level and a value of the wrong type are answered (and
    // logged) the general way, before anything has changed.
    if (!control || control->GetAccessGroup() > GetChangeLevel(clientId)) {
        return false;
    }
    const int type = control->GetDisplayType();
    const bool text = IsTextType(type);
    const bool action = IsActionType(type);
    if (text != (request.valueKind == EValue::kString) && !action) {
        return false;
    }
    // From here on the request is answered here whatever happens: the general way would
    // change the control a second time.
    const size_t before = reply.size();
    try {
        const std::string client = GetClientIdString(clientId, IdOf(request.idText));
        EError result = ERR_NONE;
        if (text) {
            const std::string value(request.value);
            GetLog().Log("Recv'd 'set' from %s: %s (%s)", client.c_str(), code.c_str(), value.c_str());
            result = control->SetText(value, CHANGE_NORMAL);
        } else {
            const int number = action ? 1 : request.number;
            GetLog().Log("Recv'd 'set' from %s: %s (%d)", client.c_str(), code.c_str(), number);
            result = control->SetValue(number, CHANGE_NORMAL);
        }
        if (result == ERR_NONE) {
            AppendValueAnswer(request, *control, reply);
        } else {
            Json::Rpc::AppendDirectError(request, static_cast<int>(result),
                                         control->IsReadOnly() ? "This control is read-only"
                                                               : NErrorText::GetErrorString(result),
                                         reply);
        }
    } catch (...) {
        // What the handler answers for a method that throws; out of memory, nothing.
        reply.resize(before);
        try {
            Json::Rpc::AppendDirectError(request, Json::Rpc::INTERNAL_ERROR, "Internal error", reply);
        } catch (...) {
            reply.resize(before);
        }
    }
    return true;
}

bool CC4jControl::Set(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const std::string code = NJsonValueParser::GetCodeFromParams(params);
    const std::string client = GetClientIdString(request);
    if (TryCustomHandler(request, response, code, true)) {
        return true;
    }
    CProjCon* control = FindControl(request, response, code);
    if (!control) {
        return true;
    }
    if (control->GetAccessGroup() > GetChangeLevel(request)) {
        GetLog().LogWarning("Client%s at access level %d may not change %s (access group %d)", client.c_str(),
                            static_cast<int>(GetServer().GetRequestAccessLevel(GetClientFd(request))), code.c_str(),
                            static_cast<int>(control->GetAccessGroup()));
        MakeErrorResponse(request, response, ERR_INVALID_ACCESS_GROUP);
        return true;
    }
    const Json::Value value = RequestedValue(params);
    const int type = control->GetDisplayType();
    EError result = ERR_NONE;
    if (IsTextType(type)) {
        if (!value.isString()) {
            MakeErrorResponse(request, response, ERR_INVALID_PARAMETER);
            return true;
        }
        GetLog().Log("Recv'd 'set' from %s: %s (%s)", client.c_str(), code.c_str(), value.asCString());
        result = control->SetText(value.asString(), CHANGE_NORMAL);
    } else if (IsActionType(type)) {
        GetLog().Log("Recv'd 'set' from %s: %s (%d)", client.c_str(), code.c_str(), 1);
        result = control->SetValue(1, CHANGE_NORMAL);
    } else if (value.isBool() || value.isInt()) {
        const int number = value.isBool() ? (value.asBool() ? 1 : 0) : value.asInt();
        GetLog().Log("Recv'd 'set' from %s: %s (%d)", client.c_str(), code.c_str(), number);
        result = control->SetValue(number, CHANGE_NORMAL);
    } else {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER);
        return true;
    }
    if (result != ERR_NONE) {
        MakeErrorResponse(request, response, result, control->IsReadOnly() ? "This control is read-only" : "");
        return true;
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        Json::Value standing = params.isObject() ? Json::Value(Json::objectValue) : Json::Value();
        AddValueToResult(*control, standing);
        response["result"] = standing;
    }
    return true;
}

bool CC4jControl::Describe(const Json::Value& request, Json::Value& response,
                           const std::function<bool(const CProjCon&, Json::Value&)>& build) {
    const std::string code = NJsonValueParser::GetCodeFromParams(request["params"]);
    const CProjCon* control = FindControl(request, response, code);
    if (!control) {
        return true;
    }
    Json::Value result(Json::objectValue);
    if (!build(*control, result)) {
        MakeErrorResponse(request, response, ERR_COMMAND_NOT_EXECUTED);
        return true;
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = result;
    }
    return true;
}

bool CC4jControl::GetProperties(const Json::Value& request, Json::Value& response) {
    const bool compact = !request["params"].isObject();
    return Describe(request, response, [compact](const CProjCon& control, Json::Value& result) {
        return AddPropToResult(control, result, compact) && AddValueToResult(control, result);
    });
}

bool CC4jControl::GetAttributes(const Json::Value& request, Json::Value& response) {
    return Describe(request, response,
                    [](const CProjCon& control, Json::Value& result) { return AddAttrToResult(control, result); });
}

std::list<std::string> CC4jControl::GetNotifyMethods(const Json::Value& params) const {
    std::list<std::string> codes;
    auto add = [&codes](const Json::Value& value) {
        std::string code;
        if (NJsonValueParser::ParseCode(value, code)) {
            codes.push_back(code);
        }
    };
    if (params.isArray()) {
        for (const Json::Value& element : params) {
            add(element);
        }
    } else if (params.isObject()) {
        const Json::Value& code = params["code"];
        if (code.isArray()) {
            for (const Json::Value& element : code) {
                add(element);
            }
        } else {
            add(code);
        }
    }
    return codes;
}

bool CC4jControl::AddListener(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const std::string address = GetClientDescriptor(request);
    const std::list<std::string> codes = GetNotifyMethods(params);
    const bool sendNow = NJsonValueParser::GetBoolFromObj(params, "sendNow", true).second;
    std::string joined;
    for (const std::string& code : codes) {
        joined += code + " ";
    }
    GetLog().LogDebug("Recv'd 'addListener' from %s: %s %s", GetClientIdString(request).c_str(), joined.c_str(),
                      sendNow ? "(sendnow)" : "");
    if (address.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Can't find client identifier");
        return true;
    }
    for (const std::string& code : codes) {
        if (!FindControl(request, response, code)) {
            return true;
        }
    }
    CNotificationManager& registry = GetDispatcher().GetNotificationManager();
    for (const std::string& code : codes) {
        registry.NotifyRegister(code, address);
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"]["count"] = static_cast<int>(codes.size());
    }
    if (sendNow) {
        for (const std::string& code : codes) {
            SendNotification(code, {address});
        }
    }
    return true;
}

bool CC4jControl::RemoveListener(const Json::Value& request, Json::Value& response) {
    return CC4jBaseHandler::RemoveListener(request, response);
}

bool CC4jControl::RemoveAllListeners(const Json::Value& request, Json::Value& response) {
    const std::string address = GetClientDescriptor(request);
    if (address.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Can't find client identifier");
        return true;
    }
    const std::string keys = GetDispatcher().GetNotificationManager().NotifyUnregisterAll(address);
    InitResponseObj(request, response);
    if (!response.isNull()) {
        Json::Value removed(Json::arrayValue);
        size_t start = 0;
        for (size_t blank = keys.find(' '); blank != std::string::npos; blank = keys.find(' ', start)) {
            removed.append(keys.substr(start, blank - start));
            start = blank + 1;
        }
        response["result"]["removed"] = removed;
    }
    return true;
}

bool CC4jControl::GetListenerList(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    std::string client;
    if (params.isObject() && params["client"].isInt()) {
        client = CNotificationManager::MakeAddrFromSocket(params["client"].asInt());
    } else if (params.isObject() && params["client"].isString()) {
        client = params["client"].asString();
    }
    const CNotificationManager& registry = GetDispatcher().GetNotificationManager();
    Json::Value list(Json::arrayValue);
    for (const std::string& key : registry.GetKeys()) {
        const CNotificationManager::SEntry entry = registry.GetNotifyList(key);
        int count = 0;
        for (const auto* registrations : {&entry.ipc, &entry.json}) {
            for (const CNotificationManager::SRegistration& registration : *registrations) {
                if (client.empty()) {
                    ++count;
                } else if (registration.address == client) {
                    count += registration.count;
                }
            }
        }
        if (count > 0) {
            Json::Value item;
            item["code"] = key;
            item["count"] = count;
            list.append(item);
        }
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = list;
    }
    return true;
}

Json::Value CC4jControl::MakeNotifyText(const CProjCon& control) const {
    Json::Value notification;
    notification["jsonrpc"] = "2.0";
    notification["method"] = "control:notify";
    notification["params"]["code"] = control.GetCode();
    Json::Value value;
    AddValueToResult(control, value);
    notification["params"]["value"] = value;
    return notification;
}

void CC4jControl::SendNotification(const std::string& key, const std::list<std::string>& clients) {
    const CProjCon* control = GetDispatcher().GetControl(key);
    if (!control) {
        return;
    }
    // The kept list is taken out for this notification (one sent meanwhile fills its own)
    // and assigned over: its nodes and strings are the last notification's.
    SJsonNotify notify;
    notify.recipients.swap(m_recipients);
    if (control->GetAccessGroup() != ACCESS_PROTECTED) {
        notify.recipients = clients;  // every client is admitted: no address need be read
    } else {
        notify.recipients.clear();
        for (const std::string& client : clients) {
            if (IsAdmitted(CJsonRpcServer::GetJsonClientDescriptorFromString(client), *control)) {
                notify.recipients.push_back(client);
            }
        }
    }
    if (!notify.recipients.empty()) {
        notify.key = control->GetCode();
        notify.message = Json::Rpc::Handler::GetString(MakeNotifyText(*control));
        GetServer().NotifyPush(notify);
    }
    m_recipients.swap(notify.recipients);
}

void CC4jControl::MakeNotification(const CProjCon& control, ENotifyType, const std::list<std::string>& recipients) {
    SendNotification(control.GetCode(), recipients);
}
