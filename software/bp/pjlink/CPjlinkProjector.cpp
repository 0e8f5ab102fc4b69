#include "CPjlinkProjector.h"

#include <algorithm>
#include <list>

#include "CException.h"

namespace {

const char kUndefined[] = "ERR1";
const char kBadParameter[] = "ERR2";
const char kUnavailable[] = "ERR3";
const char kFailure[] = "ERR4";

bool IsClass2Only(const std::string& command) {
    static const char* const kClass2[] = {"SNUM", "SVER", "INNM", "IRES", "RRES", "FILT",
                                          "RLMP", "RFIL", "SVOL", "MVOL", "FREZ"};
    return std::find(std::begin(kClass2), std::end(kClass2), command) != std::end(kClass2);
}

}  // namespace

CPjlinkProjector::CPjlinkProjector(CEventLink& link, const SPjlinkMapping& mapping) : m_link(link), m_mapping(mapping) {}

template <typename TExchange>
EError CPjlinkProjector::Guarded(const std::string& joined, TExchange exchange) {
    std::string code;
    std::string subcode;
    SPjlinkMapping::SplitCode(joined, code, subcode);
    try {
        return exchange(code, subcode);
    } catch (const CException&) {
        return ERR_COMM_FAILURE;  // a message that cannot be made: a failure, never a crash
    }
}

EError CPjlinkProjector::Get(const std::string& joined, int& value) {
    return Guarded(joined, [&](const std::string& code, const std::string& subcode) {
        return m_link.GetValue(m_mapping.accessLevel, code, subcode, value, kTimeoutMs);
    });
}

EError CPjlinkProjector::GetText(const std::string& joined, std::string& text) {
    return Guarded(joined, [&](const std::string& code, const std::string& subcode) {
        return m_link.GetText(m_mapping.accessLevel, code, subcode, text, kTimeoutMs);
    });
}

EError CPjlinkProjector::Set(const std::string& joined, int value) {
    return Guarded(joined, [&](const std::string& code, const std::string& subcode) {
        return m_link.SetValue(m_mapping.accessLevel, code, subcode, value, false, kTimeoutMs);
    });
}

std::string CPjlinkProjector::ErrorAnswer(EError error) {
    switch (error) {
        case ERR_NONE:
            return "OK";
        case ERR_INVALID_VALUE:
        case ERR_INVALID_PARAMETER:
        case ERR_WRONG_CONTROL_TYPE:
            return kBadParameter;
        case ERR_CONTROL_NOT_FOUND:
        case ERR_SUBCONTROL_NOT_FOUND:
            return kUndefined;
        case ERR_HARDWARE_REFUSED:
        case ERR_DISABLED_CONTROL:
        case ERR_INVALID_ACCESS_GROUP:
        case ERR_SYSTEM_BUSY:
        case ERR_COMM_TIMEOUT:
            return kUnavailable;
        default:
            return kFailure;
    }
}

std::string CPjlinkProjector::Execute(char pjlinkClass, const std::string& command, const std::string& parameter) {
    if ((pjlinkClass != '1' && pjlinkClass != '2') || (pjlinkClass == '1' && IsClass2Only(command))) {
        return kUndefined;
    }
    const bool query = parameter == "?";
    if (command == "POWR") {
        return Power(parameter);
    }
    if (command == "INPT") {
        return Input(pjlinkClass, parameter);
    }
    if (command == "AVMT") {
        return Mute(parameter);
    }
    if (command == "SVOL" || command == "MVOL") {
        return Step(command == "SVOL" ? m_mapping.speakerVolume : m_mapping.microphoneVolume, parameter);
    }
    if (command == "FREZ") {
        return OnOff(m_mapping.freeze, parameter);
    }
    if (command == "INNM") {
        return InputName(parameter);
    }
    // Everything else is a query.
    static const char* const kQueries[] = {"ERST", "LAMP", "INST", "NAME", "INF1", "INF2", "INFO", "CLSS", "SNUM",
                                           "SVER", "IRES", "RRES", "FILT", "RLMP", "RFIL"};
    if (std::find(std::begin(kQueries), std::end(kQueries), command) == std::end(kQueries)) {
        return kUndefined;
    }
    if (!query) {
        return kBadParameter;
    }
    if (command == "ERST") {
        return Errors();
    }
    if (command == "LAMP") {
        return Lamps();
    }
    if (command == "INST") {
        return Inputs(pjlinkClass);
    }
    if (command == "NAME") {
        return ReadText(m_mapping.name);
    }
    if (command == "CLSS") {
        return "2";
    }
    if (command == "IRES") {
        return ReadText(m_mapping.inputResolution);
    }
    if (command == "FILT") {
        return ReadNumber(m_mapping.filterHours);
    }
    if (command == "RLMP") {
        return LampTypes();
    }
    // A projector without a filter, or one that cannot tell its best resolution, has no
    // answer; the information texts are answered even when empty.
    const struct {
        const char* command;
        const std::string& text;
        bool optional;
    } texts[] = {{"INF1", m_mapping.manufacturer, false},         {"INF2", m_mapping.product, false},
                 {"INFO", m_mapping.information, false},          {"SNUM", m_mapping.serialNumber, false},
                 {"SVER", m_mapping.softwareVersion, false},      {"RRES", m_mapping.recommendedResolution, true},
                 {"RFIL", m_mapping.filterModel, true}};
    for (const auto& text : texts) {
        if (command == text.command) {
            return text.optional && text.text.empty() ? kUndefined : text.text;
        }
    }
    return kUndefined;
}

std::string CPjlinkProjector::Power(const std::string& parameter) {
    if (parameter == "0" || parameter == "1") {
        return ErrorAnswer(Set(m_mapping.power, parameter == "1" ? 1 : 0));
    }
    if (parameter != "?") {
        return kBadParameter;
    }
    int state = 0;
    const EError error = Get(m_mapping.PowerStateCode(), state);
    if (error != ERR_NONE) {
        return ErrorAnswer(error);
    }
    return state >= 0 && state <= 3 ? std::to_string(state) : kFailure;
}

std::string CPjlinkProjector::Input(char pjlinkClass, const std::string& parameter) {
    if (parameter != "?") {
        const SPjlinkMapping::SInput* input = m_mapping.FindInput(parameter);
        if (!input || (pjlinkClass == '1' && !SPjlinkMapping::IsClass1Input(parameter))) {
            return kBadParameter;
        }
        return ErrorAnswer(Set(m_mapping.input, input->value));
    }
    int value = 0;
    const EError error = Get(m_mapping.input, value);
    if (error != ERR_NONE) {
        return ErrorAnswer(error);
    }
    const SPjlinkMapping::SInput* input = m_mapping.FindInputValue(value);
    if (!input || (pjlinkClass == '1' && !SPjlinkMapping::IsClass1Input(input->number))) {
        return kUnavailable;  // an input PJLink has no number for (in this class)
    }
    return input->number;
}

std::string CPjlinkProjector::Mute(const std::string& parameter) {
    if (parameter == "?") {
        int video = 0;
        int audio = 0;
        EError error = m_mapping.videoMute.empty() ? ERR_NONE : Get(m_mapping.videoMute, video);
        if (error == ERR_NONE && !m_mapping.audioMute.empty()) {
            error = Get(m_mapping.audioMute, audio);
        }
        if (error != ERR_NONE) {
            return ErrorAnswer(error);
        }
        return video && audio ? "31" : video ? "11" : audio ? "21" : "30";
    }
    if (parameter.size() != 2 || parameter[0] < '1' || parameter[0] > '3' ||
        (parameter[1] != '0' && parameter[1] != '1')) {
        return kBadParameter;
    }
    const int on = parameter[1] - '0';
    const bool video = parameter[0] != '2';
    const bool audio = parameter[0] != '1';
    if ((video && m_mapping.videoMute.empty()) || (audio && m_mapping.audioMute.empty())) {
        return kBadParameter;  // this projector cannot mute that
    }
    EError error = video ? Set(m_mapping.videoMute, on) : ERR_NONE;
    if (error == ERR_NONE && audio) {
        error = Set(m_mapping.audioMute, on);
    }
    return ErrorAnswer(error);
}

std::string CPjlinkProjector::Errors() {
    std::string digits;
    for (const std::vector<std::string>& groups : m_mapping.errorGroups) {
        int worst = 0;
        for (const std::string& group : groups) {
            std::list<SStatus> items;
            const EError error = Guarded(group, [&](const std::string&, const std::string&) {
                return m_link.GetStatusGroup(m_mapping.accessLevel, group, items, kTimeoutMs);
            });
            if (error != ERR_NONE) {
                return ErrorAnswer(error);
            }
            for (const SStatus& item : items) {
                worst = std::max(worst, std::min(StatusSeverity(item.flags), 2));
            }
        }
        digits += static_cast<char>('0' + worst);
    }
    return digits;
}

std::string CPjlinkProjector::Lamps() {
    if (m_mapping.lampPositions.empty() || m_mapping.lampHours.empty()) {
        return kUndefined;
    }
    int state = 0;
    EError error = Get(m_mapping.PowerStateCode(), state);
    std::string answer;
    for (const std::string& position : m_mapping.lampPositions) {
        int hours = 0;
        if (error == ERR_NONE) {
            error = Get(m_mapping.lampHours + "+LP" + position, hours);
        }
        if (error != ERR_NONE) {
            return LampAnswer(error);
        }
        const bool lit = state == 1 || state == 3;
        answer += (answer.empty() ? "" : " ") + std::to_string(std::min(std::max(hours, 0), 99999)) + (lit ? " 1" : " 0");
    }
    return answer;
}

std::string CPjlinkProjector::LampAnswer(EError error) {
    // A configured lamp without its controls: its lamp memory could not be read.
    const bool missing = error == ERR_CONTROL_NOT_FOUND || error == ERR_SUBCONTROL_NOT_FOUND;
    return missing ? kFailure : ErrorAnswer(error);
}

std::string CPjlinkProjector::Inputs(char pjlinkClass) {
    std::string list;
    for (const SPjlinkMapping::SInput& input : m_mapping.inputs) {
        if (pjlinkClass == '2' || SPjlinkMapping::IsClass1Input(input.number)) {
            list += (list.empty() ? "" : " ") + input.number;
        }
    }
    return list.empty() ? kUndefined : list;
}

std::string CPjlinkProjector::InputName(const std::string& parameter) {
    if (parameter.size() != 3 || parameter[0] != '?') {
        return kBadParameter;
    }
    const SPjlinkMapping::SInput* input = m_mapping.FindInput(parameter.substr(1));
    return input ? input->name : kBadParameter;
}

std::string CPjlinkProjector::Step(const std::string& code, const std::string& parameter) {
    if (code.empty()) {
        return kUndefined;
    }
    if (parameter != "0" && parameter != "1") {
        return kBadParameter;
    }
    int value = 0;
    EError error = Get(code, value);
    if (error == ERR_NONE) {
        error = Set(code, parameter == "1" ? value + 1 : value - 1);
    }
    return ErrorAnswer(error == ERR_INVALID_VALUE ? ERR_NONE : error);
}

std::string CPjlinkProjector::OnOff(const std::string& code, const std::string& parameter) {
    if (code.empty()) {
        return kUndefined;
    }
    if (parameter == "0" || parameter == "1") {
        return ErrorAnswer(Set(code, parameter == "1" ? 1 : 0));
    }
    if (parameter != "?") {
        return kBadParameter;
    }
    int value = 0;
    const EError error = Get(code, value);
    return error == ERR_NONE ? (value ? "1" : "0") : ErrorAnswer(error);
}

std::string CPjlinkProjector::ReadNumber(const std::string& code) {
    if (code.empty()) {
        return kUndefined;
    }
    int value = 0;
    const EError error = Get(code, value);
    return error == ERR_NONE ? std::to_string(value) : ErrorAnswer(error);
}

std::string CPjlinkProjector::ReadText(const std::string& code) {
    if (code.empty()) {
        return kUndefined;
    }
    std::string text;
    const EError error = GetText(code, text);
    if (error != ERR_NONE) {
        return ErrorAnswer(error);
    }
    // The answer must stay one printable line of at most 64 bytes.
    text.resize(std::min<size_t>(text.size(), 64));
    for (char& c : text) {
        if (c < 0x20 || c > 0x7E) {
            c = '?';
        }
    }
    return text;
}

std::string CPjlinkProjector::LampTypes() {
    if (m_mapping.lampPositions.empty() || m_mapping.lampType.empty()) {
        return kUndefined;
    }
    std::string types;
    for (const std::string& position : m_mapping.lampPositions) {
        std::string type;
        const EError error = GetText(m_mapping.lampType + "+LP" + position, type);
        if (error != ERR_NONE) {
            return LampAnswer(error);
        }
        if (!type.empty() && (" " + types + " ").find(" " + type + " ") == std::string::npos) {
            types += (types.empty() ? "" : " ") + type;
        }
    }
    return types;
}
