#pragma once
// SSnmpConfig: the SNMP front-end's settings, from the "snmp" member of the projector's
// configuration. Every member has a default, so an empty object (or none) serves:
//
//   "agentx"       path of the master agent's AgentX socket ("/var/agentx/master")
//   "accessLevel"  the access level reads and changes are made with (2, operator);
//                  a control above it is listed without its value and refuses changes
//   "enterprise"   the enterprise number the module is served under (32473, the number
//                  set aside for documentation); the objects lie under
//                  1.3.6.1.4.1.<enterprise>.1
//
// Thread contract: a plain value.

#include <json/json.h>

#include <cstdint>
#include <string>

struct SSnmpConfig {
    static constexpr uint32_t kDocumentationEnterprise = 32473;

    std::string agentx = "/var/agentx/master";
    int accessLevel = 2;
    uint32_t enterprise = kDocumentationEnterprise;

    // Throws CException naming the member and what it must be; null gives the defaults.
    static SSnmpConfig FromJson(const Json::Value& snmp);
};
