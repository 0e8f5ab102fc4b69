#include "CSimModule.h"

CSimModule::CSimModule(CJsonRpcServer& server, CStatusDb& database, const CFormatterPlant* formatter, CSimGpio* gpio,
                       CLampPlant* lamps)
    : CC4jBaseHandler(server, "sim", 1), m_database(database), m_formatter(formatter), m_gpio(gpio), m_lamps(lamps) {
    Publish(*this, &CSimModule::SetStatus, "sim:setStatus");
    Publish(*this, &CSimModule::ReadRegister, "sim:readRegister");
    Publish(*this, &CSimModule::SetGpio, "sim:setGpio");
    Publish(*this, &CSimModule::SetLampUsage, "sim:setLampUsage");
    Publish(*this, &CSimModule::ReplaceLamp, "sim:replaceLamp");
}

bool CSimModule::SetLampUsage(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const auto position = NJsonValueParser::GetStringFromObj(params, "position", "");
    const auto onTime = NJsonValueParser::GetUIntFromObj(params, "onTimeS", 0);
    std::string error = "Expected {\"position\": \"A1\"..\"B3\", \"onTimeS\": seconds}";
    if (!position.first || !onTime.first || !m_lamps) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, error);
        return true;
    }
    error.clear();
    m_lamps->SetLampUsage(position.second, onTime.second, error);
    return LampAnswer(request, response, error);
}

bool CSimModule::ReplaceLamp(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const auto position = NJsonValueParser::GetStringFromObj(params, "position", "");
    const auto type = NJsonValueParser::GetStringFromObj(params, "type", "");
    std::string error = "Expected {\"position\": \"A1\"..\"B3\", \"type\": text of 1..32 characters}";
    if (!position.first || !type.first || type.second.empty() || type.second.size() > CLampMemoryDevice::kTypeLength ||
        !m_lamps) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, error);
        return true;
    }
    error.clear();
    m_lamps->ReplaceLamp(position.second, type.second, error);
    return LampAnswer(request, response, error);
}

bool CSimModule::LampAnswer(const Json::Value& request, Json::Value& response, const std::string& error) {
    if (!error.empty()) {
        const bool noLamp = error.rfind("No lamp", 0) == 0;
        MakeErrorResponse(request, response, noLamp ? ERR_INVALID_PARAMETER : ERR_COMM_FAILURE, error);
        return true;
    }
    MakeResultResponse(request, response, Json::Value(Json::objectValue));
    return true;
}

bool CSimModule::SetGpio(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const auto pin = NJsonValueParser::GetUIntFromObj(params, "pin", 0);
    const Json::Value& level = params.isObject() ? params["level"] : Json::Value();
    const bool known = level.isBool() || (level.isUInt() && level.asUInt() <= 1);
    if (!pin.first || !known || !m_gpio || !m_gpio->Set(pin.second, level.isBool() ? level.asBool() : level.asUInt() == 1)) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Expected {\"pin\": 0..31, \"level\": 0 or 1}");
        return true;
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    return true;
}

bool CSimModule::ReadRegister(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const auto port = NJsonValueParser::GetUIntFromObj(params, "port", 0);
    const auto offset = NJsonValueParser::GetUIntFromObj(params, "offset", 0);
    uint32_t value = 0;
    if (!port.first || !offset.first || !m_formatter || !m_formatter->ReadRegister(port.second, offset.second, value)) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER,
                          "Expected {\"port\", \"offset\"} of a register of the simulated FPGA");
        return true;
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"]["value"] = value;
    }
    return true;
}

bool CSimModule::SetStatus(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const auto group = NJsonValueParser::GetStringFromObj(params, "group", "");
    const auto idx = NJsonValueParser::GetIntFromObj(params, "idx", 0);
    if (!group.first || !idx.first || idx.second < -32768 || idx.second > 32767) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Expected {\"group\": text, \"idx\": number}");
        return true;
    }
    const short index = static_cast<short>(idx.second);
    if (!m_database.IsValidIndex(group.second, index)) {
        MakeErrorResponse(request, response, ERR_UNKNOWN_REQUEST, "Cannot find status group or item");
        return true;
    }
    const SStatus current = m_database.GetStatusValue(group.second, index);
    const auto value = NJsonValueParser::GetStringFromObj(params, "value", current.value);
    const auto number = NJsonValueParser::GetIntFromObj(params, "number", current.number);
    const auto severity = NJsonValueParser::GetIntFromObj(params, "severity", StatusSeverity(current.flags));
    if ((params.isMember("value") && !value.first) || (params.isMember("number") && !number.first) ||
        (params.isMember("severity") && (!severity.first || severity.second < 0 || severity.second > 3))) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER,
                          "\"value\" is a text, \"number\" an integer, \"severity\" 0..3");
        return true;
    }
    const short flags = static_cast<short>((current.flags & ~kStatusSeverityMask) | severity.second);
    m_database.StoreStatusValue(group.second, index, flags, value.second, number.second, current.text);
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    return true;
}
