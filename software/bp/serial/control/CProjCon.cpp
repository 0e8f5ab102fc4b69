#include "control/CProjCon.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <exception>

#include "CException.h"
#include "dispatch/CEventDispatcher.h"
#include "text/NAsciiCodeUtils.h"

namespace {

// Reads "a.b.c.d" with decimal parts of at most 255; false for anything else.
bool ParseDottedQuad(const std::string& text, int parts[4]) {
    size_t position = 0;
    for (int i = 0; i < 4; ++i) {
        if (position >= text.size() || text[position] < '0' || text[position] > '9') {
            return false;
        }
        long part = 0;
        while (position < text.size() && text[position] >= '0' && text[position] <= '9') {
            part = part * 10 + (text[position] - '0');
            if (part > 255) {
                return false;
            }
            ++position;
        }
        parts[i] = static_cast<int>(part);
        if (i < 3) {
            if (position >= text.size() || text[position] != '.') {
                return false;
            }
            ++position;
        }
    }
    return position == text.size();
}

}  // namespace

CProjCon::CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
                   bool persistent, EAccessLevel access, int nameId, int helpId)
    : m_dispatcher(dispatcher), m_proxy(proxy), m_persistent(persistent), m_nameTextId(nameId),
      m_helpTextId(helpId), m_accessLevel(access), m_displayType(type), m_code(code) {}

CProjCon::CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
                   bool persistent, int min, int max, int defaultValue, EAccessLevel access, int nameId, int helpId,
                   unsigned char decimals, bool readOnly)
    : CProjCon(type, dispatcher, proxy, code, persistent, access, nameId, helpId) {
    if (min > max) {
        THROW_EXCEPTION("Invalid min/max range %d < %d", min, max);
    }
    if (defaultValue < min || defaultValue > max) {
        THROW_EXCEPTION("Invalid default value %d < %d < %d", min, defaultValue, max);
    }
    if (!IsIntegerType(type)) {
        THROW_EXCEPTION("Invalid integer type %d", static_cast<int>(type));
    }
    if (decimals > 7) {
        THROW_EXCEPTION("Invalid number of decimals %d", decimals);
    }
    m_min = m_softMin = min;
    m_max = m_softMax = max;
    m_defaultValue = m_value = defaultValue;
    m_decimals = decimals;
    AddToDispatcher(code);
    int checked = defaultValue;
    const EError result = LimitValue(checked, CHANGE_STORE_ONLY);
    if (result != ERR_NONE) {
        THROW_EXCEPTION("Add Control %s invalid default value: %d.  Err: %d", m_code.c_str(), defaultValue, result);
    }
    SetReadOnly(readOnly);
}

CProjCon::CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
                   bool persistent, bool defaultValue, EAccessLevel access, int nameId, int helpId, bool readOnly)
    : CProjCon(DT_BOOLEAN, dispatcher, proxy, code, persistent, access, nameId, helpId) {
    if (!IsBooleanType(type)) {
        THROW_EXCEPTION("Invalid boolean type %d", static_cast<int>(type));
    }
    m_min = 0;
    m_max = 1;
    m_defaultValue = m_value = defaultValue ? 1 : 0;
    AddToDispatcher(code);
    SetReadOnly(readOnly);
}

CProjCon::CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
                   bool persistent, EAccessLevel access, int nameId, int helpId, int continueTextId, bool readOnly)
    : CProjCon(DT_ACTION, dispatcher, proxy, code, persistent, access, nameId, helpId) {
    if (!IsActionType(type)) {
        THROW_EXCEPTION("Invalid action type %d", static_cast<int>(type));
    }
    m_continueTextId = continueTextId;
    AddToDispatcher(code);
    SetReadOnly(readOnly);
}

CProjCon::CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
                   bool persistent, int defaultValue, EAccessLevel access, int nameId, int helpId, bool readOnly)
    : CProjCon(type, dispatcher, proxy, code, persistent, access, nameId, helpId) {
    if (!IsListType(type)) {
        THROW_EXCEPTION("Invalid list type %d", static_cast<int>(type));
    }
    m_defaultValue = m_value = m_min = m_max = defaultValue;
    AddToDispatcher(code);
    SetReadOnly(readOnly);
}

CProjCon::CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
                   int nameId, int helpId, const std::string& text)
    : CProjCon(type, dispatcher, proxy, code, false, ACCESS_OPERATOR, nameId, helpId) {
    if (!IsMenuType(type) && !IsCustomType(type)) {
        THROW_EXCEPTION("Invalid menu/custom type %d", static_cast<int>(type));
    }
    m_text = m_defaultText = text;
    AddToDispatcher(code);
    UpdateEnabled();
}

CProjCon::CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
                   bool persistent, int minLength, int maxLength, const std::string& defaultText, EAccessLevel access,
                   int nameId, int helpId, bool readOnly)
    : CProjCon(type, dispatcher, proxy, code, persistent, access, nameId, helpId) {
    const int length = static_cast<int>(defaultText.size());
    switch (static_cast<int>(type)) {
    case DT_TEXT:
    case DT_TEXT_301:
    case DT_TEXT_303:
        if (minLength > maxLength) {
            THROW_EXCEPTION("Invalid min/max range %d < %d", minLength, maxLength);
        }
        if (maxLength > static_cast<int>(kMaxControlTextLength)) {
            THROW_EXCEPTION("Invalid text length limit %d (at most %zu)", maxLength, kMaxControlTextLength);
        }
        if (length < minLength || length > maxLength) {
            THROW_EXCEPTION("Invalid default string length %d < %s < %d", minLength, defaultText.c_str(), maxLength);
        }
        break;
    case DT_IPV4_ADDRESS:
    case DT_TEXT_FREE:
    case DT_TEXT_FREE_305:
        break;
    default:
        THROW_EXCEPTION("Invalid string type %d", static_cast<int>(type));
    }
    m_min = minLength;
    m_max = maxLength;
    m_text = m_defaultText = defaultText;
    AddToDispatcher(code);
    std::string checked = defaultText;
    const EError result = LimitText(checked, CHANGE_STORE_ONLY);
    if (result != ERR_NONE) {
        THROW_EXCEPTION("Add Control %s invalid default value: %s.  Err: %d", m_code.c_str(), defaultText.c_str(),
                        result);
    }
    m_text = m_defaultText = checked;
    SetReadOnly(readOnly);
}

CProjCon::~CProjCon() {
    if (m_registered && m_dispatcher.GetControl(m_code) == this) {
        m_dispatcher.RemoveControl(m_code);
    }
}

void CProjCon::AddToDispatcher(const std::string& code) {
    m_code = code;
    if (!NAsciiCodeUtils::ValidateCode(m_code)) {
        THROW_EXCEPTION("%s Invalid control code", m_code.c_str());
    }
    if (!m_dispatcher.AddControl(*this)) {
        m_dispatcher.GetLog().LogError("%s Control already exists.", m_code.c_str());
        THROW_EXCEPTION("%s Control already exists.", m_code.c_str());
    }
    m_registered = true;
}

void CProjCon::Announce(ENotifyType type) {
    // A change has happened by now; a listener that cannot be told must not undo that
    // for the others, nor for the stored value.
    try {
        m_dispatcher.SendNotificationMessage(*this, type);
    } catch (const std::exception& e) {
        m_dispatcher.GetLog().LogError("%s Announcing a change failed: %s", m_code.c_str(), e.what());
    }
}

void CProjCon::MarkChanged() {
    if (m_persistent) {
        m_savePending = true;
        m_dispatcher.NoteSavePending();
    }
    Announce(NOTIFY_VALUE);
}

bool CProjCon::Apply(int value) {
    try {
        return m_proxy.ApplyControlValue(m_code, value);
    } catch (const std::exception& e) {
        m_dispatcher.GetLog().LogError("%s ApplyValue(%d) threw: %s", m_code.c_str(), value, e.what());
    } catch (...) {
        m_dispatcher.GetLog().LogError("%s ApplyValue(%d) threw", m_code.c_str(), value);
    }
    return false;
}

bool CProjCon::Apply(const std::string& text) {
    try {
        return m_proxy.ApplyControlText(m_code, text);
    } catch (const std::exception& e) {
        m_dispatcher.GetLog().LogError("%s ApplyText(%s) threw: %s", m_code.c_str(), text.c_str(), e.what());
    } catch (...) {
        m_dispatcher.GetLog().LogError("%s ApplyText(%s) threw", m_code.c_str(), text.c_str());
    }
    return false;
}

EError CProjCon::LimitValue(int& value, EChangeMode mode) const {
    const int type = m_displayType;
    if (IsBooleanType(type) || IsIntegerType(type)) {
        value = std::min(std::max(value, m_min), m_max);
        if (type == DT_INTEGER_SOFT_LIMITS) {
            if (m_softMinEnabled && value < m_softMin) {
                value = m_softMin;
            }
            // The soft maximum applies whenever it is non-zero; its enabled flag is not
            // consulted here, and clients rely on that.
            if (m_softMax != 0 && value > m_softMax) {
                value = m_softMax;
            }
        }
        return ERR_NONE;
    }
    if (IsListType(type)) {
        if (m_list.empty()) {
            return ERR_INVALID_VALUE;
        }
        const auto entry = std::find_if(m_list.begin(), m_list.end(),
                                        [value](const SListEntry& e) { return e.value == value; });
        if (entry == m_list.end()) {
            return ERR_INVALID_VALUE;
        }
        if (!entry->selectable && !IsModeForced(mode)) {
            return ERR_DISABLED_CONTROL;
        }
        return ERR_NONE;
    }
    if (IsActionType(type) || IsMenuType(type) || IsCustomType(type)) {
        value = m_defaultValue;
        return ERR_NONE;
    }
    return ERR_WRONG_CONTROL_TYPE;
}

EError CProjCon::LimitText(std::string& text, EChangeMode) const {
    if (text.find('\0') != std::string::npos) {
        return ERR_INVALID_PARAMETER;  // no message, file or listener could carry it
    }
    const int length = static_cast<int>(text.size());
    switch (static_cast<int>(m_displayType)) {
    case DT_TEXT:
    case DT_TEXT_301:
    case DT_TEXT_303:
        if (length > m_max) {
            text.resize(static_cast<size_t>(m_max < 0 ? 0 : m_max));
        } else if (length < m_min) {
            return ERR_INVALID_VALUE;
        }
        return ERR_NONE;
    case DT_TEXT_FREE:
    case DT_TEXT_FREE_305:
        return text.size() > kMaxControlTextLength ? ERR_INVALID_VALUE : ERR_NONE;
    case DT_IPV4_ADDRESS: {
        if (length < m_min || length > m_max) {
            return ERR_INVALID_VALUE;
        }
        int parts[4];
        if (!ParseDottedQuad(text, parts)) {
            return ERR_INVALID_VALUE;
        }
        char rewritten[16];
        snprintf(rewritten, sizeof rewritten, "%d.%d.%d.%d", parts[0], parts[1], parts[2], parts[3]);
        in_addr address{};
        if (inet_pton(AF_INET, rewritten, &address) != 1) {
            m_dispatcher.GetLog().LogError("Invalid IP address, verification failed (%s)", rewritten);
            return ERR_INVALID_VALUE;
        }
        text = rewritten;
        return ERR_NONE;
    }
    default:
        return ERR_WRONG_CONTROL_TYPE;
    }
}

EError CProjCon::SetValue(int requested, EChangeMode mode) {
    if (!m_enabled && !IsModeForced(mode)) {
        return ERR_DISABLED_CONTROL;
    }
    int value = requested;
    const EError limited = LimitValue(value, mode);
    if (limited != ERR_NONE) {
        return limited;
    }
    const int old = m_value;
    if (value == old) {
        if (IsMenuType(m_displayType)) {
            return ERR_NONE;
        }
        if (!(mode & CHANGE_STORE_ONLY) && !Apply(value)) {
            m_dispatcher.GetLog().LogError("%s ApplyValue(%d) failed!!! reverting value: %d", m_code.c_str(), value,
                                           old);
            Announce(NOTIFY_VALUE);
            return ERR_HARDWARE_REFUSED;
        }
        if (value != requested || IsCustomType(m_displayType)) {
            MarkChanged();
        }
        return ERR_NONE;
    }
    m_value = value;
    if (!(mode & CHANGE_STORE_ONLY) && !Apply(value)) {
        m_dispatcher.GetLog().LogError("%s ApplyValue(%d) failed!!! reverting value: %d", m_code.c_str(), value, old);
        m_value = old;
        Announce(NOTIFY_VALUE);
        return ERR_HARDWARE_REFUSED;
    }
    MarkChanged();
    return ERR_NONE;
}

EError CProjCon::SetText(const std::string& requested, EChangeMode mode) {
    if (!m_enabled && !IsModeForced(mode)) {
        return ERR_DISABLED_CONTROL;
    }
    std::string text = requested;
    const EError limited = LimitText(text, mode);
    if (limited != ERR_NONE) {
        return limited;
    }
    const bool unchanged = text == m_text;
    const std::string old = m_text;
    m_text = text;
    if (!(mode & CHANGE_STORE_ONLY) && !Apply(text)) {
        m_dispatcher.GetLog().LogError("%s ApplyText(%s) failed!!! reverting text: %s", m_code.c_str(), text.c_str(),
                                       old.c_str());
        m_text = old;
        // Unlike a refused value, a refused text is not announced: the old text stands
        // unchanged for every listener.
        return ERR_HARDWARE_REFUSED;
    }
    if (!unchanged) {
        MarkChanged();
    }
    return ERR_NONE;
}

bool CProjCon::UpdateHardware() {
    const EError result =
        IsTextType(m_displayType) ? SetText(m_text, CHANGE_UPDATE_HARDWARE) : SetValue(m_value, CHANGE_UPDATE_HARDWARE);
    if (result != ERR_NONE) {
        m_dispatcher.GetLog().LogError("%s UpdateHardware() failed", m_code.c_str());
        return false;
    }
    return true;
}

EError CProjCon::Refresh(EChangeMode mode) {
    if (mode & CHANGE_STORE_ONLY) {
        Announce(NOTIFY_VALUE);
        return ERR_NONE;
    }
    if (IsMenuType(m_displayType)) {
        return ERR_NONE;
    }
    return IsTextType(m_displayType) ? SetText(GetText(), mode) : SetValue(m_value, mode);
}

void CProjCon::SetDefaultValue(int value) {
    if (value == m_defaultValue) {
        return;
    }
    int checked = value;
    if (LimitValue(checked, CHANGE_NORMAL) != ERR_NONE || checked != value) {
        THROW_EXCEPTION("New default value for %s (%d) is not valid", m_code.c_str(), value);
    }
    m_defaultValue = value;
}

void CProjCon::SetDefaultText(const std::string& text) {
    if (text == m_defaultText) {
        return;
    }
    std::string checked = text;
    if (LimitText(checked, CHANGE_NORMAL) != ERR_NONE) {
        THROW_EXCEPTION("New default text for %s (%s) is not valid", m_code.c_str(), text.c_str());
    }
    m_defaultText = checked;
}

EError CProjCon::SetRange(int min, int max, EChangeMode mode) {
    const int type = m_displayType;
    const bool lengthLimited = type == DT_TEXT || type == DT_TEXT_301 || type == DT_TEXT_303 || type == DT_IPV4_ADDRESS;
    if (!IsIntegerType(type) && !lengthLimited) {
        return ERR_WRONG_CONTROL_TYPE;
    }
    if (min > max || (lengthLimited && (min < 0 || max > static_cast<int>(kMaxControlTextLength)))) {
        return ERR_INVALID_VALUE;
    }
    if (min == m_min && max == m_max) {
        return ERR_NONE;
    }
    m_min = min;
    m_max = max;
    m_softMin = std::min(std::max(m_softMin, min), max);
    m_softMax = std::min(std::max(m_softMax, min), max);
    if (!lengthLimited) {
        m_defaultValue = std::min(std::max(m_defaultValue, min), max);
    }
    Announce(NOTIFY_RANGE);
    // The value must end inside the new range even on a disabled control.
    const EChangeMode relimit = m_enabled || IsModeForced(mode) ? mode : CHANGE_UPDATE_HARDWARE;
    if (lengthLimited) {
        std::string text = m_text;
        return LimitText(text, relimit) == ERR_NONE && text == m_text ? ERR_NONE : SetText(text, relimit);
    }
    return SetValue(m_value, relimit);
}

EError CProjCon::SetSoftRange(int softMin, bool softMinEnabled, int softMax, bool softMaxEnabled, EChangeMode mode) {
    if (m_displayType != DT_INTEGER_SOFT_LIMITS) {
        return ERR_WRONG_CONTROL_TYPE;
    }
    if (softMin > softMax || softMin < m_min || softMax > m_max) {
        return ERR_INVALID_VALUE;
    }
    m_softMin = softMin;
    m_softMinEnabled = softMinEnabled;
    m_softMax = softMax;
    m_softMaxEnabled = softMaxEnabled;
    Announce(NOTIFY_RANGE);
    return SetValue(m_value, m_enabled || IsModeForced(mode) ? mode : CHANGE_UPDATE_HARDWARE);
}

void CProjCon::UpdateEnabled() {
    const bool enabled = m_progEnabled && !m_reserved && !m_readOnly && !m_locked;
    if (enabled != m_enabled) {
        m_enabled = enabled;
        Announce(NOTIFY_ENABLED);
    }
}

void CProjCon::SetReadOnly(bool readOnly) {
    m_readOnly = readOnly;
    UpdateEnabled();
}

void CProjCon::SetReserved(bool reserved) {
    m_reserved = reserved;
    UpdateEnabled();
}

void CProjCon::SetLocked(bool locked) {
    m_locked = locked;
    UpdateEnabled();
}

void CProjCon::SetProgEnabled(bool enabled) {
    m_progEnabled = enabled;
    UpdateEnabled();
}

void CProjCon::RequireList() const {
    if (!IsListType(m_displayType)) {
        THROW_EXCEPTION("%s is not a list control", m_code.c_str());
    }
}

void CProjCon::ListChanged() {
    if (!m_list.empty()) {
        const auto bounds = std::minmax_element(m_list.begin(), m_list.end(),
                                                [](const SListEntry& a, const SListEntry& b) { return a.value < b.value; });
        m_min = bounds.first->value;
        m_max = bounds.second->value;
    }
    Announce(NOTIFY_LIST);
}

void CProjCon::AddList(const std::vector<SListEntry>& entries) {
    RequireList();
    for (const SListEntry& entry : entries) {
        const auto it = std::find_if(m_list.begin(), m_list.end(),
                                     [&](const SListEntry& e) { return e.value == entry.value; });
        if (it != m_list.end()) {
            *it = entry;
        } else {
            m_list.push_back(entry);
        }
    }
    ListChanged();
}

void CProjCon::SetListEntry(const SListEntry& entry) { AddList({entry}); }

bool CProjCon::RemoveListEntry(int value) {
    RequireList();
    const auto it = std::find_if(m_list.begin(), m_list.end(), [value](const SListEntry& e) { return e.value == value; });
    if (it == m_list.end()) {
        return false;
    }
    m_list.erase(it);
    ListChanged();
    return true;
}

void CProjCon::ClearList() {
    RequireList();
    m_list.clear();
    ListChanged();
}

bool CProjCon::GetListEntry(int value, SListEntry& entry) const {
    const auto it = std::find_if(m_list.begin(), m_list.end(), [value](const SListEntry& e) { return e.value == value; });
    if (it == m_list.end()) {
        return false;
    }
    entry = *it;
    return true;
}
