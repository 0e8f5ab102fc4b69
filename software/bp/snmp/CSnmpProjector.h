#pragma once
// CSnmpProjector: the SNMP front-end's copy of the projector, kept over an event link: every
// control (from the controller's catalog, then from its change notifications), the status
// items of the configured groups, the active alarms and the lamps. SNMP requests are
// answered from this copy, so a walk of thousands of objects costs the controller nothing;
// changes go to the controller the road of every front-end's change, at the configured
// access level, and what now stands is copied back.
//
// Status and alarms: the controller announces status changes to its JSON clients only, so
// RefreshStatus reads the alarm list (one request) and the status groups (one request
// each) and tells what alarms were raised or cleared since the last refresh; the owner
// calls it a few times a second, never per SNMP request.
//
// Lamps: one per position that has a lamp hours control ("<lampHours>+LP<position>"),
// in position order, with its type from "<lampType>+LP<position>".
//
// A control above the access level is listed with its kind and flags but no value, and is
// not listened to (the controller would refuse its reads too).
//
// Lifetime: the link outlives it. Thread contract: the link's thread.

#include <map>
#include <string>
#include <vector>

#include "EError.h"
#include "NControlCatalog.h"
#include "SPjlinkMapping.h"
#include "link/CEventLink.h"
#include "log/ILog.h"
#include "status/StatusTypes.h"

class CSnmpProjector {
public:
    // Every exchange waits at most this long, well inside a manager's usual time-out.
    static constexpr unsigned int kTimeoutMs = 2000;

    struct SLamp {
        std::string position;
        const SCatalogControl* hours = nullptr;
        const SCatalogControl* type = nullptr;  // null when the lamp has no type control
    };
    struct SAlarm {
        std::string group;
        short item = 0;
        int severity = 0;
        std::string text;
        int row = 0;  // its row in the alarm list (from 1); for an ended alarm, the row it had
    };

    // codes: the power, power state, input, name and lamp codes and the identity texts;
    // statusGroups: the groups the status table lists, in this order.
    CSnmpProjector(CEventLink& link, const SPjlinkMapping& codes, std::vector<std::string> statusGroups,
                   int accessLevel, ILog& log);

    // Reads the catalog and registers for the changes of every readable control. The
    // copy is replaced only when the catalog was read; false (logged) when it was not.
    bool Load();
    bool IsLoaded() const { return m_loaded; }

    // Applies the waiting change notifications; true when the power state changed.
    bool ProcessNotifications();

    // Reads status and alarms again. `raised` gets the alarms that are new or changed
    // severity, `cleared` those that ended (with severity 0). False when the controller
    // could not be read (nothing is changed then).
    bool RefreshStatus(std::vector<SAlarm>& raised, std::vector<SAlarm>& cleared);

    // Controls, by joined code; null when absent.
    const SCatalogControl* Find(const std::string& code) const;
    const std::map<std::string, SCatalogControl>& GetControls() const { return m_controls; }
    bool IsReadable(const SCatalogControl& control) const { return control.accessGroup <= m_accessLevel; }

    // A change through the controller: ERR_INVALID_ACCESS_GROUP above the access level,
    // ERR_WRONG_CONTROL_TYPE for a number to a text control or the reverse, else the
    // controller's answer. What now stands is copied back in every case it was told.
    EError SetValue(const std::string& code, int value);
    EError SetText(const std::string& code, const std::string& text);

    int GetNotifyDescriptor() const { return m_link.GetNotifyDescriptor(); }
    const SPjlinkMapping& GetCodes() const { return m_codes; }
    const std::vector<SLamp>& GetLamps() const { return m_lamps; }
    const std::vector<SStatus>& GetStatus() const { return m_status; }
    const std::vector<SAlarm>& GetAlarms() const { return m_alarms; }
    // The power state (0 standby, 1 on, 2 cooling, 3 warming up); -1 when unknown.
    int GetPowerState() const;

private:
    void FindLamps();
    void Apply(const CIpcMessage& notification);

    CEventLink& m_link;
    SPjlinkMapping m_codes;
    std::vector<std::string> m_statusGroups;
    int m_accessLevel;
    ILog& m_log;
    bool m_loaded = false;
    std::map<std::string, SCatalogControl> m_controls;
    std::vector<SLamp> m_lamps;
    std::vector<SStatus> m_status;
    std::vector<SAlarm> m_alarms;
};
