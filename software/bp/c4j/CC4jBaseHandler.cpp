#include "CC4jBaseHandler.h"

#include <cstdio>

#include "CException.h"
#include "dispatch/CNotificationManager.h"
#include "text/NAsciiCodeUtils.h"
#include "text/NErrorText.h"

CC4jBaseHandler::CC4jBaseHandler(CJsonRpcServer& server, const std::string& module, unsigned int version)
    : m_server(server), m_module(module), m_version(version) {
    m_server.RegisterModule(module, version);
    Publish(*this, &CC4jBaseHandler::Version, module + ":version");
}

CC4jBaseHandler::~CC4jBaseHandler() = default;

bool CC4jBaseHandler::Version(const Json::Value& request, Json::Value& response) {
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"]["version"] = m_version;
    }
    return true;
}

void CC4jBaseHandler::InitResponseObj(const Json::Value& request, Json::Value& response) {
    if (!IsResponseRequired(request)) {
        response = Json::Value();
        return;
    }
    // Names and the version as static strings: jsoncpp keeps the literal instead of a copy.
    response[Json::StaticString("id")] = request["id"];
    response[Json::StaticString("jsonrpc")] = Json::StaticString("2.0");
}

void CC4jBaseHandler::MakeResultResponse(const Json::Value& request, Json::Value& response, const Json::Value& result) {
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = result;
    }
}

void CC4jBaseHandler::MakeErrorResponse(const Json::Value& request, Json::Value& response, EError code,
                                        const std::string& message) {
    if (!IsResponseRequired(request)) {
        response = Json::Value();
        return;
    }
    response = Json::Value(Json::objectValue);
    response["id"] = request["id"];
    response["jsonrpc"] = "2.0";
    response["error"]["code"] = static_cast<int>(code);
    response["error"]["message"] = message.empty() ? NErrorText::GetErrorString(code) : message;
}

void CC4jBaseHandler::NewFormatErrorResponse(const Json::Value& request, Json::Value& response, EError code,
                                             const std::string& message) {
    response.removeMember("result");
    response.removeMember("error");
    const Json::Value& params = request["params"];
    if (!params.isArray()) {
        return;
    }
    for (const Json::Value& target : params) {
        Json::Value error;
        if (target.isObject() && target.isMember("port") && !target["port"].isNull()) {
            error["port"] = NJsonValueParser::GetUIntFromObj(target, "port", 0).second;
        }
        error["code"] = static_cast<int>(code);
        error["message"] = message.empty() ? NErrorText::GetErrorString(code) : message;
        response["error"].append(error);
    }
}

int CC4jBaseHandler::GetId(const Json::Value& request) {
    return NJsonValueParser::GetIntFromObj(request, "id", -1).second;
}

bool CC4jBaseHandler::IsRefusedBelow(const Json::Value& request, Json::Value& response,
                                     EAccessLevel required) const {
    const EAccessLevel level = m_server.GetRequestAccessLevel(GetClientFd(request));
    if (level >= required) {
        return false;
    }
    GetLog().LogWarning("Client%s at access level %d may not call %s: it needs %d", GetClientIdString(request).c_str(),
                        static_cast<int>(level), request["method"].asString().c_str(), static_cast<int>(required));
    MakeErrorResponse(request, response, ERR_INVALID_ACCESS_GROUP);
    return true;
}

int CC4jBaseHandler::GetClientFd(const Json::Value& request) {
    return NJsonValueParser::GetIntFromObj(request, "fd", -1).second;
}

std::string CC4jBaseHandler::GetClientDescriptor(const Json::Value& request) {
    return CNotificationManager::MakeAddrFromSocket(GetClientFd(request));
}

std::string CC4jBaseHandler::GetClientIdString(const Json::Value& request) {
    return GetClientIdString(GetClientFd(request), GetId(request));
}

std::string CC4jBaseHandler::GetClientIdString(int clientFd, int id) {
    char text[40];
    snprintf(text, sizeof text, "[ID:%d.%d]", clientFd, id);
    return text;
}

std::list<std::string> CC4jBaseHandler::GetNotifyMethods(const Json::Value& params) const {
    const std::vector<std::string> methods = NJsonValueParser::GetStringsFromObj(params, "notifyMethod");
    return std::list<std::string>(methods.begin(), methods.end());
}

void CC4jBaseHandler::SendNotification(const std::string&, const std::list<std::string>&) {}

bool CC4jBaseHandler::AddListener(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const std::list<std::string> keys = GetNotifyMethods(params);
    const std::string address = GetClientDescriptor(request);
    if (address.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Can't find client identifier");
        return true;
    }
    CNotificationManager& registry = GetDispatcher().GetNotificationManager();
    for (const std::string& key : keys) {
        registry.NotifyRegister(key, address);
    }
    if (NJsonValueParser::GetBoolFromObj(params, "sendNow", true).second) {
        for (const std::string& key : keys) {
            SendNotification(key, {address});
        }
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    return true;
}

bool CC4jBaseHandler::RemoveListener(const Json::Value& request, Json::Value& response) {
    const std::string address = GetClientDescriptor(request);
    if (address.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Can't find client identifier");
        return true;
    }
    for (const std::string& key : GetNotifyMethods(request["params"])) {
        GetDispatcher().GetNotificationManager().NotifyUnregister(key, address, false);
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    return true;
}

namespace {

void AddJsonArgument(CIpcMessage& message, unsigned short id, const Json::Value& element) {
    if (element.isBool()) {
        message.AddArg(id, element.asBool() ? 1 : 0);
    } else if (element.isInt()) {
        message.AddArg(id, element.asInt());
    } else if (element.isString()) {
        message.AddArg(id, element.asString());
    } else {
        THROW_EXCEPTION("Unsupported JSON type: %d (%s)", static_cast<int>(element.type()),
                        Json::Rpc::Handler::GetString(element).c_str());
    }
}

}  // namespace

CIpcMessage CC4jBaseHandler::ConvertParamsToIpc(const Json::Value& params) {
    if (!params.isArray() && !params.isObject()) {
        THROW_EXCEPTION("Unsupported JSON container: %d", static_cast<int>(params.type()));
    }
    std::string code;
    std::string subcode;
    NAsciiCodeUtils::SplitCode(NJsonValueParser::GetCodeFromParams(params), code, subcode);
    CIpcMessage message(MSG_TYPE_STANDARD);
    if (code.size() != 3) {
        THROW_EXCEPTION("Invalid code %s", code.c_str());
    }
    message.SetCode(code);
    message.SetSubCode(subcode == "!!!!" || subcode == "@@@@" ? "" : subcode);
    if (params.isArray()) {
        for (Json::ArrayIndex i = 1; i < params.size(); ++i) {
            AddJsonArgument(message, static_cast<unsigned short>(i - 1), params[i]);
        }
    } else if (params.isMember("value")) {
        const Json::Value& value = params["value"];
        if (value.isArray()) {
            for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
                AddJsonArgument(message, static_cast<unsigned short>(i), value[i]);
            }
        } else {
            AddJsonArgument(message, 0, value);
        }
    }
    return message;
}

namespace {

Json::Value ArgumentValue(const CIpcMessage& message, unsigned short id) {
    int number = 0;
    if (message.IsNumberArg(id) && message.GetArg(id, number)) {
        return number;
    }
    std::string text;
    message.GetArg(id, text);
    return text;
}

}  // namespace

Json::Value CC4jBaseHandler::ConvertFromIpcReply(const CIpcMessage& reply) {
    const std::vector<CIpcMessage::Arg>& args = reply.GetArgs();
    if (args.empty()) {
        return Json::Value();
    }
    if (args.size() == 1) {
        return ArgumentValue(reply, args.front().first);
    }
    Json::Value values(Json::arrayValue);
    for (const CIpcMessage::Arg& arg : args) {
        values.append(ArgumentValue(reply, arg.first));
    }
    return values;
}

Json::Value CC4jBaseHandler::ConvertFromIpcReply(const std::list<CIpcMessage>& replies) {
    if (replies.empty()) {
        return Json::Value();
    }
    if (replies.size() == 1) {
        return ConvertFromIpcReply(replies.front());
    }
    Json::Value values(Json::arrayValue);
    for (const CIpcMessage& reply : replies) {
        values.append(ConvertFromIpcReply(reply));
    }
    return values;
}
