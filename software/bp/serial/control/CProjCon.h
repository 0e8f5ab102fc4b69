#pragma once
// CProjCon: one control of the projector: a named, typed setting, action or menu,
// registered under its code with the controller's CEventDispatcher.
//
// A control validates every change (limits, lists, text rules), hands accepted changes to
// the application's IControlProxy, restores the old value when the application refuses,
// announces changes through CEventDispatcher::SendNotificationMessage and, when
// persistent, marks itself for saving.
//
// Lifetime: the constructor registers the control with the dispatcher and the destructor
// removes it; dispatcher and proxy must outlive the control.
// Thread contract: used only on the controller's event thread; no locks.
// Texts: no text control holds a NUL character (refused with 3: no message, file or
// listener could carry it) or more than kMaxControlTextLength bytes (free text refuses
// longer ones with 104; length limits cannot be set above it).
//
// Errors: construction and programming errors throw CException; changes never throw
// (a listener that cannot be told is logged; the change stands and is stored) and
// return EError codes: 0 accepted (also when clamped or replaced), 3 text with a NUL, 103 wrong kind,
// 104 out of range / not in the list / list empty, 105 disabled or entry not selectable,
// 112 refused by the application and reverted.
//
// Range changes (SetRange, SetSoftRange) store the new limits, announce them
// (NOTIFY_RANGE) and re-limit the current value through SetValue with the caller's mode
// (CHANGE_UPDATE_HARDWARE on a disabled control, so the value always ends inside the
// range), which applies and announces it when it had to move. A default that falls outside a new
// range is moved inside it. List editing (AddList, SetListEntry, RemoveListEntry,
// ClearList) announces NOTIFY_LIST, keeps minimum and maximum at the smallest and largest
// entry value, and never changes the current value: choosing another value is a hardware
// change only the application may decide on.

#include <string>
#include <vector>

#include "EError.h"
#include "control/ControlTypes.h"
#include "control/IControlProxy.h"

class CEventDispatcher;

class CProjCon {
public:
    // Integer (200..299): checks min <= max, min <= default <= max, the type and
    // decimals <= 7, in that order; soft limits start at min and max, disabled.
    CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
             bool persistent, int min, int max, int defaultValue, EAccessLevel access, int nameId, int helpId,
             unsigned char decimals, bool readOnly);
    // Boolean (100..199): range 0..1; the display type stored is always 100.
    CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
             bool persistent, bool defaultValue, EAccessLevel access, int nameId, int helpId, bool readOnly);
    // Action (500..599): the display type stored is always 500.
    CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
             bool persistent, EAccessLevel access, int nameId, int helpId, int continueTextId, bool readOnly);
    // List (400..499): value = default; entries are added afterwards.
    CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
             bool persistent, int defaultValue, EAccessLevel access, int nameId, int helpId, bool readOnly);
    // Menu (600..699) or custom (700..799): never persistent.
    CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
             int nameId, int helpId, const std::string& text);
    // Text (300..399): 300, 301, 303 length-limited, 304, 305 free, 306 IPv4 address.
    CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
             bool persistent, int minLength, int maxLength, const std::string& defaultText, EAccessLevel access,
             int nameId, int helpId, bool readOnly);

    virtual ~CProjCon();
    CProjCon(const CProjCon&) = delete;
    CProjCon& operator=(const CProjCon&) = delete;

    virtual std::string GetText() const { return m_text; }

    // Changes.
    EError SetValue(int value, EChangeMode mode = CHANGE_NORMAL);
    EError SetText(const std::string& text, EChangeMode mode = CHANGE_NORMAL);
    EError LimitValue(int& value, EChangeMode mode) const;
    EError LimitText(std::string& text, EChangeMode mode) const;
    // Throws "New default value for %s (%d) is not valid" / "New default text ...".
    void SetDefaultValue(int value);
    void SetDefaultText(const std::string& text);
    // 103 for kinds without a range (boolean, list, action, menu, custom, free text);
    // 104 when min > max (nothing changes). Text kinds take lengths.
    EError SetRange(int min, int max, EChangeMode mode = CHANGE_NORMAL);
    // Type 203 only (else 103); soft limits must lie inside [min, max] with
    // softMin <= softMax (else 104).
    EError SetSoftRange(int softMin, bool softMinEnabled, int softMax, bool softMaxEnabled,
                        EChangeMode mode = CHANGE_NORMAL);
    EError Refresh(EChangeMode mode = CHANGE_NORMAL);
    // Applies the current value or text to the hardware again; false (and a log line)
    // when that fails.
    bool UpdateHardware();

    // Flags that make up the enabled state: enabled = program-enabled and not reserved,
    // not read-only, not locked. A change of the result is announced (NOTIFY_ENABLED).
    void SetReadOnly(bool readOnly);
    void SetReserved(bool reserved);
    void SetLocked(bool locked);
    void SetProgEnabled(bool enabled);

    void SetNameText(int id) { m_nameTextId = id; }
    void SetHelpText(int id) { m_helpTextId = id; }
    void SetConfirmText(int id) { m_confirmTextId = id; }
    void SetContinueText(int id) { m_continueTextId = id; }
    void SetWaitText(int id) { m_waitTextId = id; }
    void SetIconPath(const std::string& path) { m_iconPath = path; }

    // Lists (list kinds only; other kinds throw CException).
    void AddList(const std::vector<SListEntry>& entries);
    // Replaces the entry of equal value, or appends.
    void SetListEntry(const SListEntry& entry);
    // False when no entry has that value.
    bool RemoveListEntry(int value);
    void ClearList();
    bool GetListEntry(int value, SListEntry& entry) const;
    const std::vector<SListEntry>& GetList() const { return m_list; }
    size_t GetListSize() const { return m_list.size(); }

    // Reading.
    const std::string& GetCode() const { return m_code; }
    int GetValue() const { return m_value; }
    const std::string& GetDefaultText() const { return m_defaultText; }
    int GetDefaultValue() const { return m_defaultValue; }
    int GetMinValue() const { return m_min; }
    int GetMaxValue() const { return m_max; }
    int GetSoftMinValue() const { return m_softMin; }
    int GetSoftMaxValue() const { return m_softMax; }
    bool IsSoftMinEnabled() const { return m_softMinEnabled; }
    bool IsSoftMaxEnabled() const { return m_softMaxEnabled; }
    EDisplayType GetDisplayType() const { return m_displayType; }
    int GetDecimals() const { return m_decimals; }
    bool GetEnabled() const { return m_enabled; }
    bool IsReadOnly() const { return m_readOnly; }
    bool IsReserved() const { return m_reserved; }
    bool IsLocked() const { return m_locked; }
    bool IsProgEnabled() const { return m_progEnabled; }
    bool IsPersistent() const { return m_persistent; }
    EAccessLevel GetAccessGroup() const { return m_accessLevel; }
    int GetNameText() const { return m_nameTextId; }
    int GetHelpText() const { return m_helpTextId; }
    int GetConfirmText() const { return m_confirmTextId; }
    int GetContinueText() const { return m_continueTextId; }
    int GetWaitText() const { return m_waitTextId; }
    const std::string& GetIconPath() const { return m_iconPath; }

    // Set by an accepted change of a persistent control; cleared by the storage once it
    // has written the control.
    bool IsSavePending() const { return m_savePending; }
    void ClearSavePending() { m_savePending = false; }

private:
    // The shared start of every constructor.
    CProjCon(EDisplayType type, CEventDispatcher& dispatcher, IControlProxy& proxy, const std::string& code,
             bool persistent, EAccessLevel access, int nameId, int helpId);
    void AddToDispatcher(const std::string& code);
    void UpdateEnabled();
    void Announce(ENotifyType type);
    void MarkChanged();
    bool Apply(int value);
    bool Apply(const std::string& text);
    void RequireList() const;
    void ListChanged();
    bool IsModeForced(EChangeMode mode) const { return (mode & (CHANGE_UPDATE_HARDWARE | CHANGE_STORE_ONLY)) != 0; }

    CEventDispatcher& m_dispatcher;
    IControlProxy& m_proxy;
    bool m_savePending = false;
    bool m_persistent = false;
    bool m_enabled = true;
    bool m_readOnly = false;
    bool m_reserved = false;
    bool m_locked = false;
    bool m_progEnabled = true;
    int m_nameTextId = 0;
    int m_helpTextId = 0;
    int m_confirmTextId = 0;
    int m_continueTextId = 0;
    int m_waitTextId = 0;
    EAccessLevel m_accessLevel = ACCESS_OPERATOR;
    int m_defaultValue = 0;
    int m_value = 0;
    int m_min = 0;
    int m_max = 0;
    int m_softMin = 0;
    int m_softMax = 0;
    bool m_softMinEnabled = false;
    bool m_softMaxEnabled = false;
    int m_decimals = 0;
    EDisplayType m_displayType;
    std::string m_defaultText;
    std::string m_text;
    std::string m_code;
    std::string m_iconPath;
    std::vector<SListEntry> m_list;
    bool m_registered = false;
};
