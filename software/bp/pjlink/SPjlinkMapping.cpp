#include "SPjlinkMapping.h"

#include "CException.h"

namespace {

[[noreturn]] void Fail(const std::string& member, const std::string& what) {
    THROW_EXCEPTION("\"pjlink\": \"%s\" must be %s", member.c_str(), what.c_str());
}

void ReadText(const Json::Value& object, const char* member, size_t maxLength, std::string& out) {
    if (!object.isMember(member)) {
        return;
    }
    const Json::Value& value = object[member];
    if (!value.isString() || value.asString().size() > maxLength) {
        Fail(member, "a text of at most " + std::to_string(maxLength) + " bytes");
    }
    out = value.asString();
    for (char c : out) {
        if (c < 0x20 || c > 0x7E) {
            Fail(member, "printable ASCII");
        }
    }
}

// "XXX" or "XXX+YYYY" (a per-lamp code is a bare "XXX": the lamp's subcode is added).
void CheckCode(const char* member, const std::string& code, bool bare) {
    const bool ok = code.empty() || code.size() == 3 || (!bare && code.size() == 8 && code[3] == '+');
    if (!ok || code.find_first_of(" \"()") != std::string::npos) {
        Fail(member, bare ? "a control code of 3 characters" : "a control code \"XXX\" or \"XXX+YYYY\"");
    }
}

bool IsInputNumber(const std::string& number) {
    return number.size() == 2 && number[0] >= '1' && number[0] <= '6' &&
           ((number[1] >= '1' && number[1] <= '9') || (number[1] >= 'A' && number[1] <= 'Z'));
}

}  // namespace

SPjlinkMapping SPjlinkMapping::FromJson(const Json::Value& pjlink, const Json::Value& lamps) {
    SPjlinkMapping mapping;
    mapping.inputs = {{"31", 1, "HDMI"}, {"32", 2, "DisplayPort"}, {"33", 3, "SDI"}, {"61", 4, "Service input"}};
    mapping.errorGroups[1] = {"LAMP"};
    mapping.errorGroups[5] = {"SYST", "LASER"};
    if (!pjlink.isNull() && !pjlink.isObject()) {
        THROW_EXCEPTION("\"pjlink\" must be an object");
    }
    const Json::Value& p = pjlink.isNull() ? Json::Value::nullSingleton() : pjlink;
    static const char* const kKnown[] = {
        "port", "noticePort", "passwordFile", "accessLevel", "power", "powerState", "input", "videoMute", "audioMute", "freeze",
        "name", "speakerVolume", "microphoneVolume", "filterHours", "inputResolution", "lampHours", "lampType",
        "errors", "manufacturer", "product", "information", "serialNumber", "softwareVersion",
        "recommendedResolution", "filterModel", "interface", "linkUpAddress"};
    for (const std::string& member : p.getMemberNames()) {
        bool known = false;
        for (const char* name : kKnown) {
            known = known || member == name;
        }
        if (!known) {
            THROW_EXCEPTION("\"pjlink\": unknown member \"%s\"", member.c_str());
        }
    }
    for (const auto& port : {std::make_pair("port", &mapping.port), std::make_pair("noticePort", &mapping.noticePort)}) {
        const Json::Value& value = p[port.first];
        if (!value.isNull()) {
            if (!value.isUInt() || value.asUInt() < 1 || value.asUInt() > 65535) {
                Fail(port.first, "1..65535");
            }
            *port.second = static_cast<uint16_t>(value.asUInt());
        }
    }
    if (p.isMember("accessLevel")) {
        if (!p["accessLevel"].isInt() || p["accessLevel"].asInt() < 1 || p["accessLevel"].asInt() > 6) {
            Fail("accessLevel", "1..6");
        }
        mapping.accessLevel = p["accessLevel"].asInt();
    }
    ReadText(p, "passwordFile", 4096, mapping.passwordFile);
    struct SCode {
        const char* member;
        std::string* code;
    };
    const SCode codes[] = {{"power", &mapping.power},
                           {"powerState", &mapping.powerState},
                           {"videoMute", &mapping.videoMute},
                           {"audioMute", &mapping.audioMute},
                           {"freeze", &mapping.freeze},
                           {"name", &mapping.name},
                           {"speakerVolume", &mapping.speakerVolume},
                           {"microphoneVolume", &mapping.microphoneVolume},
                           {"filterHours", &mapping.filterHours},
                           {"inputResolution", &mapping.inputResolution},
                           {"lampHours", &mapping.lampHours},
                           {"lampType", &mapping.lampType}};
    for (const SCode& code : codes) {
        ReadText(p, code.member, 8, *code.code);
        CheckCode(code.member, *code.code, code.code == &mapping.lampHours || code.code == &mapping.lampType);
    }
    if (p.isMember("input")) {
        const Json::Value& input = p["input"];
        if (!input.isObject() || !input["code"].isString() || !input["inputs"].isArray()) {
            Fail("input", "{\"code\": control, \"inputs\": [{\"number\", \"value\", \"name\"}]}");
        }
        mapping.input = input["code"].asString();
        CheckCode("input", mapping.input, false);
        mapping.inputs.clear();
        for (const Json::Value& entry : input["inputs"]) {
            SInput made;
            if (!entry.isObject() || !entry["number"].isString() || !IsInputNumber(entry["number"].asString()) ||
                !entry["value"].isInt() || (entry.isMember("name") && !entry["name"].isString()) ||
                entry.get("name", "").asString().size() > 64) {
                Fail("input", "a list of {\"number\": \"11\"..\"6Z\", \"value\": list value, \"name\": text}");
            }
            made.number = entry["number"].asString();
            made.value = entry["value"].asInt();
            made.name = entry.get("name", "Input " + made.number).asString();
            if (mapping.FindInput(made.number) || mapping.FindInputValue(made.value)) {
                Fail("input", "free of repeated numbers and values");
            }
            mapping.inputs.push_back(made);
        }
    }
    if (p.isMember("errors")) {
        const Json::Value& errors = p["errors"];
        if (!errors.isObject()) {
            Fail("errors", "an object of status group lists");
        }
        for (size_t i = 0; i < 6; ++i) {
            if (!errors.isMember(kErrorCategories[i])) {
                continue;
            }
            const Json::Value& groups = errors[kErrorCategories[i]];
            if (!groups.isArray()) {
                Fail(std::string("errors.") + kErrorCategories[i], "a list of status group names");
            }
            mapping.errorGroups[i].clear();
            for (const Json::Value& group : groups) {
                if (!group.isString()) {
                    Fail(std::string("errors.") + kErrorCategories[i], "a list of status group names");
                }
                mapping.errorGroups[i].push_back(group.asString());
            }
        }
    }
    ReadText(p, "manufacturer", kMaxText, mapping.manufacturer);
    ReadText(p, "product", kMaxText, mapping.product);
    ReadText(p, "information", kMaxText, mapping.information);
    ReadText(p, "serialNumber", kMaxText, mapping.serialNumber);
    ReadText(p, "softwareVersion", kMaxText, mapping.softwareVersion);
    ReadText(p, "recommendedResolution", kMaxText, mapping.recommendedResolution);
    ReadText(p, "filterModel", kMaxText, mapping.filterModel);
    ReadText(p, "interface", 15, mapping.interface);
    ReadText(p, "linkUpAddress", 15, mapping.linkUpAddress);

    if (lamps.isNull()) {
        mapping.lampPositions = {"A1"};
    }
    for (const Json::Value& lamp : lamps) {
        if (lamp.isObject() && lamp["position"].isString()) {
            mapping.lampPositions.push_back(lamp["position"].asString());
        }
    }
    return mapping;
}

void SPjlinkMapping::SplitCode(const std::string& joined, std::string& code, std::string& subcode) {
    const size_t plus = joined.find('+');
    code = joined.substr(0, plus);
    subcode = plus == std::string::npos ? "" : joined.substr(plus + 1);
}

bool SPjlinkMapping::IsClass1Input(const std::string& number) {
    return IsInputNumber(number) && number[0] <= '5' && number[1] <= '9';
}

const SPjlinkMapping::SInput* SPjlinkMapping::FindInput(const std::string& number) const {
    for (const SInput& input : inputs) {
        if (input.number == number) {
            return &input;
        }
    }
    return nullptr;
}

const SPjlinkMapping::SInput* SPjlinkMapping::FindInputValue(int value) const {
    for (const SInput& input : inputs) {
        if (input.value == value) {
            return &input;
        }
    }
    return nullptr;
}
