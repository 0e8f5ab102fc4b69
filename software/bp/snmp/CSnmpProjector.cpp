#include "CSnmpProjector.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <list>

#include "CException.h"
#include "control/ControlTypes.h"
#include "dispatch/CIpcEventDispatcher.h"

namespace {

// So many codes fit one registration message with room to spare.
constexpr size_t kCodesPerRegistration = 100;

bool ParseInt(const std::string& text, int& value) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const long parsed = strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || parsed < INT_MIN || parsed > INT_MAX) {
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

std::string Joined(const std::string& code, const std::string& subcode) {
    return subcode.empty() ? code : code + "+" + subcode;
}

}  // namespace

CSnmpProjector::CSnmpProjector(CEventLink& link, const SPjlinkMapping& codes, std::vector<std::string> statusGroups,
                               int accessLevel, ILog& log)
    : m_link(link), m_codes(codes), m_statusGroups(std::move(statusGroups)), m_accessLevel(accessLevel), m_log(log) {}

bool CSnmpProjector::Load() {
    CIpcMessage request;
    NControlCatalog::MakeRequest(request);
    std::list<CIpcMessage> replies;
    const EError error = m_link.SendRequest(m_accessLevel, request, replies, kTimeoutMs);
    if (error != ERR_NONE) {
        m_log.LogWarning("SNMP: the control catalog cannot be read (error %d)", error);
        return false;
    }
    std::map<std::string, SCatalogControl> controls;
    for (const CIpcMessage& reply : replies) {
        SCatalogControl control;
        if (NControlCatalog::DecodeControl(reply, control)) {
            if (!IsReadable(control)) {
                control.value = 0;
                control.text.clear();
            }
            const std::string code = control.code;
            controls.emplace(code, std::move(control));
        }
    }
    m_controls = std::move(controls);
    FindLamps();

    std::list<SControlSet> batch;
    auto registerBatch = [&] {
        if (!batch.empty() && m_link.NotifyRegister(batch, m_link.GetNotifySocketName()) != ERR_NONE) {
            m_log.LogWarning("SNMP: no change notifications of %zu controls", batch.size());
        }
        batch.clear();
    };
    for (const auto& entry : m_controls) {
        if (!IsReadable(entry.second)) {
            continue;
        }
        SControlSet control;
        SPjlinkMapping::SplitCode(entry.first, control.code, control.subcode);
        batch.push_back(control);
        if (batch.size() == kCodesPerRegistration) {
            registerBatch();
        }
    }
    registerBatch();
    m_loaded = true;
    m_log.Log("SNMP: %zu controls, %zu lamps", m_controls.size(), m_lamps.size());
    return true;
}

void CSnmpProjector::FindLamps() {
    m_lamps.clear();
    const std::string prefix = m_codes.lampHours + "+LP";
    for (auto it = m_controls.lower_bound(prefix); it != m_controls.end() && it->first.compare(0, prefix.size(), prefix) == 0;
         ++it) {
        SLamp lamp;
        lamp.position = it->first.substr(prefix.size());
        lamp.hours = &it->second;
        lamp.type = Find(m_codes.lampType + "+LP" + lamp.position);
        m_lamps.push_back(lamp);
    }
}

const SCatalogControl* CSnmpProjector::Find(const std::string& code) const {
    const auto found = m_controls.find(code);
    return found == m_controls.end() ? nullptr : &found->second;
}

int CSnmpProjector::GetPowerState() const {
    const SCatalogControl* state = Find(m_codes.PowerStateCode());
    return state && IsReadable(*state) ? state->value : -1;
}

bool CSnmpProjector::ProcessNotifications() {
    std::list<CIpcMessage> notifications;
    m_link.ProcessNotify(notifications);
    const int before = GetPowerState();
    for (const CIpcMessage& notification : notifications) {
        Apply(notification);
    }
    return GetPowerState() != before;
}

void CSnmpProjector::Apply(const CIpcMessage& notification) {
    const auto found = m_controls.find(Joined(notification.GetCode(), notification.GetSubCode()));
    if (found == m_controls.end()) {
        return;  // a control that came after the catalog was read
    }
    SCatalogControl& control = found->second;
    std::string text;
    int number = 0;
    if (notification.GetArg(0, text)) {
        if (IsTextType(control.displayType)) {
            control.text = text;
        } else if (ParseInt(text, number)) {
            control.value = number;
        }
    }
    if (notification.GetArg(CIpcEventDispatcher::kMinimumParm, text) && ParseInt(text, number)) {
        control.minimum = number;
    }
    if (notification.GetArg(CIpcEventDispatcher::kMaximumParm, text) && ParseInt(text, number)) {
        control.maximum = number;
    }
    if (notification.GetArg(CIpcEventDispatcher::kEnabledParm, text) && ParseInt(text, number)) {
        control.enabled = number != 0;
    }
}

bool CSnmpProjector::RefreshStatus(std::vector<SAlarm>& raised, std::vector<SAlarm>& cleared) {
    SStatusConditionSet alerts;
    if (m_link.GetGlobalAlerts(m_accessLevel, alerts) != ERR_NONE) {
        return false;
    }
    std::vector<SStatus> status;
    for (const std::string& group : m_statusGroups) {
        std::list<SStatus> items;
        if (m_link.GetStatusGroup(m_accessLevel, group, items, kTimeoutMs) != ERR_NONE) {
            continue;  // a configured group the controller does not have
        }
        status.insert(status.end(), items.begin(), items.end());
    }
    std::vector<SAlarm> alarms;
    for (const SStatus& item : alerts.alarms) {
        alarms.push_back({item.group, item.index, StatusSeverity(item.flags), item.value,
                          static_cast<int>(alarms.size()) + 1});
    }
    auto findIn = [](const std::vector<SAlarm>& list, const SAlarm& alarm) {
        for (const SAlarm& other : list) {
            if (other.group == alarm.group && other.item == alarm.item) {
                return &other;
            }
        }
        return static_cast<const SAlarm*>(nullptr);
    };
    for (const SAlarm& alarm : alarms) {
        const SAlarm* old = findIn(m_alarms, alarm);
        if (!old || old->severity != alarm.severity) {
            raised.push_back(alarm);
        }
    }
    for (const SAlarm& old : m_alarms) {
        if (!findIn(alarms, old)) {
            SAlarm ended = old;
            ended.severity = 0;
            for (const SStatus& item : status) {
                if (item.group == old.group && item.index == old.item) {
                    ended.text = item.value;
                }
            }
            cleared.push_back(ended);
        }
    }
    m_status = std::move(status);
    m_alarms = std::move(alarms);
    return true;
}

EError CSnmpProjector::SetValue(const std::string& joined, int value) {
    const auto found = m_controls.find(joined);
    if (found == m_controls.end()) {
        return ERR_CONTROL_NOT_FOUND;
    }
    SCatalogControl& control = found->second;
    if (!IsReadable(control)) {
        return ERR_INVALID_ACCESS_GROUP;
    }
    if (IsTextType(control.displayType)) {
        return ERR_WRONG_CONTROL_TYPE;
    }
    std::string code;
    std::string subcode;
    SPjlinkMapping::SplitCode(joined, code, subcode);
    EError error = ERR_COMM_FAILURE;
    try {
        error = m_link.SetValue(m_accessLevel, code, subcode, value, true, kTimeoutMs);
    } catch (const CException&) {
        return ERR_COMM_FAILURE;  // a message that cannot be made
    }
    if ((error == ERR_NONE || error == ERR_HARDWARE_REFUSED || error == ERR_INVALID_VALUE) &&
        !IsActionType(control.displayType)) {
        control.value = value;
    }
    return error;
}

EError CSnmpProjector::SetText(const std::string& joined, const std::string& text) {
    const auto found = m_controls.find(joined);
    if (found == m_controls.end()) {
        return ERR_CONTROL_NOT_FOUND;
    }
    SCatalogControl& control = found->second;
    if (!IsReadable(control)) {
        return ERR_INVALID_ACCESS_GROUP;
    }
    if (!IsTextType(control.displayType)) {
        return ERR_WRONG_CONTROL_TYPE;
    }
    std::string code;
    std::string subcode;
    SPjlinkMapping::SplitCode(joined, code, subcode);
    std::string standing = text;
    EError error = ERR_COMM_FAILURE;
    try {
        error = m_link.SetText(m_accessLevel, code, subcode, standing, true, kTimeoutMs);
    } catch (const CException&) {
        return ERR_COMM_FAILURE;  // a text the wire cannot carry
    }
    if (error == ERR_NONE || error == ERR_HARDWARE_REFUSED || error == ERR_INVALID_VALUE) {
        control.text = standing;
    }
    return error;
}
