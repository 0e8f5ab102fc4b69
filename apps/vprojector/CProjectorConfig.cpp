#include "CProjectorConfig.h"

#include <arpa/inet.h>

#include <fstream>
#include <limits>
#include <sstream>

#include "CException.h"
#include "text/NAsciiCodeUtils.h"

bool CSimulatedHardware::ApplyControlValue(const std::string& code, int value) {
    const auto it = m_refusedValues.find(code);
    const bool refused = it != m_refusedValues.end() && it->second.count(value) != 0;
    m_log.LogDebug("Hardware %s %s = %d", refused ? "refuses" : "takes", code.c_str(), value);
    const auto plant = m_plants.find(code);
    return !refused && (plant == m_plants.end() || plant->second->ApplyControlValue(code, value));
}

bool CSimulatedHardware::ApplyControlText(const std::string& code, const std::string& text) {
    const auto it = m_refusedTexts.find(code);
    const bool refused = it != m_refusedTexts.end() && it->second.count(text) != 0;
    m_log.LogDebug("Hardware %s %s = \"%s\"", refused ? "refuses" : "takes", code.c_str(), text.c_str());
    return !refused;
}

namespace {

const std::set<std::string> kControlMembers = {
    "code",    "type",     "persistent", "min",     "max",     "default", "access", "name",
    "help",    "decimals", "readOnly",   "softMin", "softMax", "softMinEnabled", "softMaxEnabled",
    "list",    "text",     "refuse"};
const std::set<std::string> kEntryMembers = {"value", "text", "textId", "shown", "selectable", "icon"};

bool IsIntIn(const Json::Value& value, long long low, long long high) {
    return value.isIntegral() && !value.isBool() && value.asLargestInt() >= low && value.asLargestInt() <= high;
}

int IntOr(const Json::Value& object, const char* name, int fallback) {
    return object.isMember(name) ? object[name].asInt() : fallback;
}

bool BoolOr(const Json::Value& object, const char* name, bool fallback) {
    return object.isMember(name) ? object[name].asBool() : fallback;
}

}  // namespace

CProjectorConfig::CProjectorConfig(const std::string& path) : m_path(path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        Fail("", "cannot be read");
    }
    std::stringstream text;
    text << file.rdbuf();
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    builder["allowComments"] = true;
    std::string errors;
    const std::string contents = text.str();
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        if (!reader->parse(contents.data(), contents.data() + contents.size(), &m_root, &errors)) {
            std::string reason;
            for (const char c : errors) {  // jsoncpp reports over several lines
                if (c == '\n') {
                    if (!reason.empty() && reason.back() != ' ') {
                        reason += ' ';
                    }
                } else if (!(c == ' ' && (reason.empty() || reason.back() == ' ')) && c != '*') {
                    reason += c;
                }
            }
            while (!reason.empty() && reason.back() == ' ') {
                reason.pop_back();
            }
            Fail("", "not valid JSON: " + reason);
        }
    } catch (const Json::Exception& e) {
        Fail("", std::string("not valid JSON: ") + e.what());
    }
    if (!m_root.isObject()) {
        Fail("", "the top level must be an object");
    }
    for (const std::string& member : m_root.getMemberNames()) {
        if (member != "controls" && member != "statusGroups" && member != "users" && member != "menu" &&
            member != "formatter" && member != "laser" && member != "lamps" && member != "power" &&
            member != "family" && member != "multicast" && member != "unicast" && member != "pjlink" &&
            member != "ipcAccess" && member != "udpAccessLevel" && member != "web" &&
            member != "snmp") {
            Fail("", "unknown member \"" + member + "\"");
        }
    }
    if (!m_root["controls"].isArray()) {
        Fail("", "\"controls\" must be an array");
    }
    if (m_root.isMember("statusGroups") && !m_root["statusGroups"].isArray()) {
        Fail("", "\"statusGroups\" must be an array");
    }
    if (m_root.isMember("users") && !m_root["users"].isArray()) {
        Fail("", "\"users\" must be an array");
    }
    if (m_root.isMember("menu") && !m_root["menu"].isString()) {
        Fail("", "\"menu\" must be a file name");
    }
    if (m_root.isMember("laser")) {
        const Json::Value& laser = m_root["laser"];
        if (!laser.isObject() || !laser["host"].isString() || laser["host"].asString().empty() ||
            !laser["port"].isUInt() || laser["port"].asUInt() < 1 || laser["port"].asUInt() > 65535) {
            Fail("", "\"laser\" must be {\"host\": name or address, \"port\": 1..65535}");
        }
    }
    if (m_root.isMember("formatter")) {
        const Json::Value& formatter = m_root["formatter"];
        if (!formatter.isObject() || !formatter["sequence"].isString() ||
            (formatter.isMember("hdr") && !formatter["hdr"].isBool())) {
            Fail("", "\"formatter\" must be {\"sequence\": name, \"hdr\": true or false}");
        }
    }
    CheckLamps();
    CheckGroup();
    try {
        GetPjlink();
        GetIpcAccess();
        GetSnmp();
    } catch (const CException& e) {
        Fail("", e.GetMessage());
    }
    std::set<std::string> codes;
    for (const Json::Value& control : m_root["controls"]) {
        CheckControl(control, codes);
    }
    std::set<std::string> groups;
    for (const Json::Value& group : m_root["statusGroups"]) {
        const std::string name = group.isObject() && group["name"].isString() ? group["name"].asString() : "";
        const std::string where = "status group " + (name.empty() ? std::string("?") : name);
        if (name.empty() || !groups.insert(name).second) {
            Fail(where, name.empty() ? "needs a \"name\"" : "duplicate name");
        }
        if ((group.isMember("label") && !IsIntIn(group["label"], 0, 2341)) ||
            (group.isMember("icon") && !group["icon"].isString()) || !group["items"].isArray()) {
            Fail(where, "needs \"items\" (array); \"label\" is a text id, \"icon\" a text");
        }
        std::set<long long> indexes;
        for (const Json::Value& item : group["items"]) {
            if (!item.isObject() || !IsIntIn(item["idx"], -32768, 32767) ||
                !indexes.insert(item["idx"].asLargestInt()).second ||
                (item.isMember("label") && !IsIntIn(item["label"], 0, 2341)) ||
                (item.isMember("value") && !item["value"].isString()) ||
                (item.isMember("number") && !IsIntIn(item["number"], INT32_MIN, INT32_MAX)) ||
                (item.isMember("severity") && !IsIntIn(item["severity"], 0, 3))) {
                Fail(where, "each item needs a unique \"idx\"; \"label\" is a text id, \"value\" a text, "
                            "\"number\" an integer, \"severity\" 0..3");
            }
        }
    }
}

void CProjectorConfig::Fail(const std::string& where, const std::string& reason) const {
    THROW_EXCEPTION("%s: %s%s%s", m_path.c_str(), where.c_str(), where.empty() ? "" : ": ", reason.c_str());
}

void CProjectorConfig::CheckControl(const Json::Value& control, std::set<std::string>& codes) const {
    if (!control.isObject() || !control["code"].isString()) {
        Fail("control ?", "needs a \"code\"");
    }
    std::string code = control["code"].asString();
    const std::string where = "control " + code;
    if (!NAsciiCodeUtils::ValidateCode(code) || (code.size() != 3 && code.size() != 8)) {
        Fail(where, "invalid code (three letters or digits, optionally \"+\" and four more)");
    }
    if (!codes.insert(code).second) {
        Fail(where, "duplicate code");
    }
    for (const std::string& member : control.getMemberNames()) {
        if (kControlMembers.count(member) == 0) {
            Fail(where, "unknown member \"" + member + "\"");
        }
    }
    if (!IsIntIn(control["type"], 100, 799)) {
        Fail(where, "\"type\" must be a display type from 100 to 799");
    }
    const int type = control["type"].asInt();
    for (const char* name : {"persistent", "readOnly", "softMinEnabled", "softMaxEnabled"}) {
        if (control.isMember(name) && !control[name].isBool()) {
            Fail(where, std::string("\"") + name + "\" must be true or false");
        }
    }
    for (const char* name : {"min", "max", "softMin", "softMax", "name", "help"}) {
        if (control.isMember(name) && !IsIntIn(control[name], INT32_MIN, INT32_MAX)) {
            Fail(where, std::string("\"") + name + "\" must be an integer");
        }
    }
    if (control.isMember("access") && !IsIntIn(control["access"], 0, 6)) {
        Fail(where, "\"access\" must be 0..6");
    }
    if (control.isMember("decimals") && !IsIntIn(control["decimals"], 0, 255)) {
        Fail(where, "\"decimals\" must be 0..7");
    }
    if (control.isMember("default")) {
        const bool wantText = IsTextType(type);
        const bool ok = wantText ? control["default"].isString()
                                 : (IsBooleanType(type) ? control["default"].isBool() ||
                                                              IsIntIn(control["default"], 0, 1)
                                                        : IsIntIn(control["default"], INT32_MIN, INT32_MAX));
        if (!ok) {
            Fail(where, wantText ? "\"default\" must be a text" : "\"default\" must be a number");
        }
    }
    if (control.isMember("text") && !control["text"].isString()) {
        Fail(where, "\"text\" must be a text");
    }
    if (IsIntegerType(type) && (!control.isMember("min") || !control.isMember("max"))) {
        Fail(where, "an integer control needs \"min\" and \"max\"");
    }
    if (control.isMember("list")) {
        if (!IsListType(type) || !control["list"].isArray()) {
            Fail(where, "\"list\" is an array, for list controls (400..499) only");
        }
        std::set<long long> values;
        for (const Json::Value& entry : control["list"]) {
            if (!entry.isObject() || !IsIntIn(entry["value"], INT32_MIN, INT32_MAX) ||
                !values.insert(entry["value"].asLargestInt()).second) {
                Fail(where, "each list entry needs a unique integer \"value\"");
            }
            for (const std::string& member : entry.getMemberNames()) {
                if (kEntryMembers.count(member) == 0) {
                    Fail(where, "unknown list entry member \"" + member + "\"");
                }
            }
            if ((entry.isMember("text") && !entry["text"].isString()) ||
                (entry.isMember("icon") && !entry["icon"].isString()) ||
                (entry.isMember("textId") && !IsIntIn(entry["textId"], 0, 2341)) ||
                (entry.isMember("shown") && !entry["shown"].isBool()) ||
                (entry.isMember("selectable") && !entry["selectable"].isBool())) {
                Fail(where, "list entry members have the wrong type");
            }
        }
    }
    if (control.isMember("refuse")) {
        if (!control["refuse"].isArray()) {
            Fail(where, "\"refuse\" must be an array");
        }
        for (const Json::Value& refused : control["refuse"]) {
            if (IsTextType(type) ? !refused.isString() : !IsIntIn(refused, INT32_MIN, INT32_MAX)) {
                Fail(where, IsTextType(type) ? "\"refuse\" holds texts" : "\"refuse\" holds numbers");
            }
        }
    }
}

std::unique_ptr<CProjCon> CProjectorConfig::MakeControl(const Json::Value& control, CEventDispatcher& dispatcher,
                                                        CSimulatedHardware& hardware) const {
    const std::string code = control["code"].asString();
    const EDisplayType type = static_cast<EDisplayType>(control["type"].asInt());
    const bool persistent = BoolOr(control, "persistent", false);
    const EAccessLevel access = static_cast<EAccessLevel>(IntOr(control, "access", ACCESS_OPERATOR));
    const int name = IntOr(control, "name", 0);
    const int help = IntOr(control, "help", 0);
    const bool readOnly = BoolOr(control, "readOnly", false);
    if (IsBooleanType(type)) {
        const Json::Value& fallback = control["default"];
        const bool value = fallback.isBool() ? fallback.asBool() : IntOr(control, "default", 0) != 0;
        return std::make_unique<CProjCon>(type, dispatcher, hardware, code, persistent, value, access, name, help,
                                          readOnly);
    }
    if (IsIntegerType(type)) {
        const int min = control["min"].asInt();
        const int max = control["max"].asInt();
        auto made = std::make_unique<CProjCon>(type, dispatcher, hardware, code, persistent, min, max,
                                               IntOr(control, "default", min), access, name, help,
                                               static_cast<unsigned char>(IntOr(control, "decimals", 0)), readOnly);
        if (control.isMember("softMin") || control.isMember("softMax")) {
            const EError result =
                made->SetSoftRange(IntOr(control, "softMin", min), BoolOr(control, "softMinEnabled", false),
                                   IntOr(control, "softMax", max), BoolOr(control, "softMaxEnabled", false),
                                   CHANGE_STORE_ONLY);
            if (result != ERR_NONE) {
                Fail("control " + code, "soft limits must lie inside min..max (type 203 only)");
            }
        }
        return made;
    }
    if (IsTextType(type)) {
        const bool address = type == DT_IPV4_ADDRESS;
        return std::make_unique<CProjCon>(type, dispatcher, hardware, code, persistent, IntOr(control, "min", address ? 7 : 0),
                                          IntOr(control, "max", address ? 15 : 64),
                                          control.get("default", address ? "0.0.0.0" : "").asString(), access, name,
                                          help, readOnly);
    }
    if (IsListType(type)) {
        const Json::Value& list = control["list"];
        const int fallback = list.size() > 0 ? list[0]["value"].asInt() : 0;
        auto made = std::make_unique<CProjCon>(type, dispatcher, hardware, code, persistent,
                                               IntOr(control, "default", fallback), access, name, help, readOnly);
        std::vector<SListEntry> entries;
        for (const Json::Value& item : list) {
            SListEntry entry;
            entry.value = item["value"].asInt();
            entry.text = item.get("text", "").asString();
            entry.textId = IntOr(item, "textId", 0);
            entry.shown = BoolOr(item, "shown", true);
            entry.selectable = BoolOr(item, "selectable", true);
            entry.iconPath = item.get("icon", "").asString();
            entries.push_back(entry);
        }
        made->AddList(entries);
        SListEntry standing;
        if (!made->GetListEntry(made->GetValue(), standing)) {
            Fail("control " + code, "\"default\" is not a value of its \"list\"");
        }
        return made;
    }
    if (IsActionType(type)) {
        return std::make_unique<CProjCon>(type, dispatcher, hardware, code, persistent, access, name, help, 0,
                                          readOnly);
    }
    return std::make_unique<CProjCon>(type, dispatcher, hardware, code, name, help, control.get("text", "").asString());
}

std::vector<std::unique_ptr<CProjCon>> CProjectorConfig::BuildControls(CEventDispatcher& dispatcher,
                                                                       CSimulatedHardware& hardware) const {
    std::vector<std::unique_ptr<CProjCon>> controls;
    for (const Json::Value& control : m_root["controls"]) {
        const std::string code = control["code"].asString();
        try {
            controls.push_back(MakeControl(control, dispatcher, hardware));
        } catch (const CException& e) {
            if (e.GetMessage().rfind(m_path + ":", 0) == 0) {
                throw;
            }
            Fail("control " + code, e.GetMessage());
        }
        for (const Json::Value& refused : control["refuse"]) {
            if (refused.isString()) {
                hardware.RefuseText(controls.back()->GetCode(), refused.asString());
            } else {
                hardware.RefuseValue(controls.back()->GetCode(), refused.asInt());
            }
        }
    }
    return controls;
}

void CProjectorConfig::BuildStatus(CStatusDb& database) const {
    for (const Json::Value& group : m_root["statusGroups"]) {
        std::vector<std::string> values;
        const Json::Value& items = group["items"];
        values.reserve(items.size());
        std::vector<SStatusDesc> descriptions;
        for (const Json::Value& item : items) {
            values.push_back(item.get("value", "").asString());
            descriptions.push_back(SStatusDesc{static_cast<short>(item["idx"].asInt()),
                                               IntOr(item, "label", 0),
                                               static_cast<short>(IntOr(item, "severity", 0)),
                                               values.back().c_str(),
                                               IntOr(item, "number", 0),
                                               nullptr,
                                               0});
        }
        try {
            database.AddStatusGroup(descriptions.data(), static_cast<int>(descriptions.size()),
                                    group["name"].asString(), IntOr(group, "label", 0),
                                    group.get("icon", "").asString());
        } catch (const CException& e) {
            Fail("status group " + group["name"].asString(), e.GetMessage());
        }
    }
}

std::string CProjectorConfig::GetSequenceName() const { return m_root["formatter"].get("sequence", "").asString(); }

CIpcAccessPolicy CProjectorConfig::GetIpcAccess() const { return CIpcAccessPolicy::FromJson(m_root["ipcAccess"]); }

SSnmpConfig CProjectorConfig::GetSnmp() const { return SSnmpConfig::FromJson(m_root["snmp"]); }

SPjlinkMapping CProjectorConfig::GetPjlink() const { return SPjlinkMapping::FromJson(m_root["pjlink"], m_root["lamps"]); }

std::string CProjectorConfig::GetMenuFile() const { return m_root.get("menu", "menu.json").asString(); }

void CProjectorConfig::CheckGroup() const {
    if (m_root.isMember("multicast")) {
        const Json::Value& group = m_root["multicast"];
        in_addr address{};
        const bool groupOk = group.isObject() && group.get("group", "239.192.0.1").isString() &&
                             inet_pton(AF_INET, group.get("group", "239.192.0.1").asCString(), &address) == 1 &&
                             (ntohl(address.s_addr) >> 28) == 0xE;
        if (!groupOk || !IsIntIn(group.get("port", 3004), 1, 65535) || !group.get("interface", "lo").isString()) {
            Fail("", "\"multicast\" must be {\"group\": 224.0.0.0..239.255.255.255, \"port\": 1..65535, "
                     "\"interface\": name}");
        }
    }
    if (m_root.isMember("unicast") &&
        (!m_root["unicast"].isObject() || !IsIntIn(m_root["unicast"].get("port", 3005), 0, 65535))) {
        Fail("", "\"unicast\" must be {\"port\": 0..65535} (0: any free port)");
    }
    if (!IsIntIn(m_root.get("udpAccessLevel", ACCESS_USER), ACCESS_USER, ACCESS_PROTECTED)) {
        Fail("", "\"udpAccessLevel\" must be 1..6");
    }
    if (m_root.isMember("web")) {
        const Json::Value& web = m_root["web"];
        const bool ok = web.isObject() && IsIntIn(web.get("httpPort", 0), 0, 65535) &&
                        IsIntIn(web.get("httpsPort", 0), -1, 65535) && web.get("plainHttp", true).isBool() &&
                        web.get("root", "").isString();
        if (!ok) {
            Fail("", "\"web\" must be {\"httpPort\": 0..65535, \"httpsPort\": -1..65535, \"plainHttp\": true or false, "
                     "\"root\": folder}");
        }
    }
}

SWebConfig CProjectorConfig::GetWeb() const {
    const Json::Value& web = m_root["web"];
    SWebConfig config;
    config.httpPort = web.get("httpPort", 0).asInt();
    config.httpsPort = web.get("httpsPort", 0).asInt();
    config.plainHttp = web.get("plainHttp", true).asBool();
    config.root = web.get("root", "").asString();
    if (!config.root.empty() && config.root[0] != '/') {
        config.root = m_path.substr(0, m_path.rfind('/') + 1) + config.root;
    }
    return config;
}

CSyncPlant::SConfig CProjectorConfig::GetGroup() const {
    CSyncPlant::SConfig config;
    const Json::Value& group = m_root["multicast"];
    config.group = group.get("group", config.group).asString();
    config.port = static_cast<unsigned short>(group.get("port", config.port).asUInt());
    config.interface = group.get("interface", config.interface).asString();
    config.unicastPort = static_cast<unsigned short>(m_root["unicast"].get("port", config.unicastPort).asUInt());
    return config;
}

void CProjectorConfig::CheckLamps() const {
    if (m_root.isMember("family") && !m_root["family"].isUInt()) {
        Fail("", "\"family\" must be an unsigned number");
    }
    if (m_root.isMember("power")) {
        const Json::Value& power = m_root["power"];
        if (!power.isObject() || !IsIntIn(power.get("cooldownS", 60), 0, 3600) ||
            !IsIntIn(power.get("warmupS", 0), 0, 600)) {
            Fail("", "\"power\" must be {\"cooldownS\": 0..3600, \"warmupS\": 0..600}");
        }
    }
    if (!m_root.isMember("lamps")) {
        return;
    }
    const Json::Value& lamps = m_root["lamps"];
    if (!lamps.isArray() || lamps.size() > CLmmNdefTagAdapter::kPositions) {
        Fail("", "\"lamps\" must be an array of at most 6 lamps");
    }
    std::set<std::string> positions;
    for (const Json::Value& lamp : lamps) {
        const std::string position = lamp.isObject() ? lamp.get("position", "").asString() : "";
        bool known = false;
        for (unsigned int i = 0; i < CLmmNdefTagAdapter::kPositions; ++i) {
            known = known || position == CLmmNdefTagAdapter::PositionName(i);
        }
        const Json::Value& type = lamp.isObject() ? lamp["type"] : Json::Value();
        if (!known || !positions.insert(position).second ||
            (!type.isNull() && (!type.isString() || type.asString().empty() ||
                                type.asString().size() > CLampMemoryDevice::kTypeLength))) {
            Fail("lamp " + position, "needs a unique \"position\" A1, A2, A3, B1, B2 or B3; \"type\" is a text of "
                                     "1..32 characters");
        }
    }
}

std::vector<CLampPlant::SLampConfig> CProjectorConfig::GetLamps() const {
    std::vector<CLampPlant::SLampConfig> lamps;
    if (!m_root.isMember("lamps")) {
        return {{"A1", kDefaultLampType}};
    }
    for (const Json::Value& lamp : m_root["lamps"]) {
        lamps.push_back({lamp["position"].asString(), lamp.get("type", kDefaultLampType).asString()});
    }
    return lamps;
}
