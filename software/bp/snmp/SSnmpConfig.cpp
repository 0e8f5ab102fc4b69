#include "SSnmpConfig.h"

#include "CException.h"

SSnmpConfig SSnmpConfig::FromJson(const Json::Value& snmp) {
    SSnmpConfig config;
    if (snmp.isNull()) {
        return config;
    }
    if (!snmp.isObject()) {
        THROW_EXCEPTION("\"snmp\" must be an object");
    }
    for (const std::string& member : snmp.getMemberNames()) {
        if (member != "agentx" && member != "accessLevel" && member != "enterprise") {
            THROW_EXCEPTION("\"snmp\": unknown member \"%s\"", member.c_str());
        }
    }
    if (snmp.isMember("agentx")) {
        const Json::Value& agentx = snmp["agentx"];
        if (!agentx.isString() || agentx.asString().empty() || agentx.asString().size() > 100) {
            THROW_EXCEPTION("\"snmp\": \"agentx\" must be a socket path of 1 to 100 bytes");
        }
        config.agentx = agentx.asString();
    }
    if (snmp.isMember("accessLevel")) {
        const Json::Value& level = snmp["accessLevel"];
        if (!level.isInt() || level.asInt() < 1 || level.asInt() > 6) {
            THROW_EXCEPTION("\"snmp\": \"accessLevel\" must be 1..6");
        }
        config.accessLevel = level.asInt();
    }
    if (snmp.isMember("enterprise")) {
        const Json::Value& enterprise = snmp["enterprise"];
        if (!enterprise.isUInt() || enterprise.asUInt() < 1) {
            THROW_EXCEPTION("\"snmp\": \"enterprise\" must be a number from 1 to 4294967295");
        }
        config.enterprise = enterprise.asUInt();
    }
    return config;
}
