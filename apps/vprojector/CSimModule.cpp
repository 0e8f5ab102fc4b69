#include "CSimModule.h"

CSimModule::CSimModule(CJsonRpcServer& server, CStatusDb& database, const CFormatterPlant* formatter, CSimGpio* gpio)
    : CC4jBaseHandler(server, "sim", 1), m_database(database), m_formatter(formatter), m_gpio(gpio) {
    Publish(*this, &CSimModule::SetStatus, "sim:setStatus");
    Publish(*this, &CSimModule::ReadRegister, "sim:readRegister");
    Publish(*this, &CSimModule::SetGpio, "sim:setGpio");
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
