#pragma once
// CC4jStatus: the "status" module (version 1): the status database to JSON clients:
// groups with their summary state, a group's items, one item, the active alarms, and
// listening per group, to the group summary ("SUMM") and to the alarms ("ALRM").
//
//   group entry  {"name": display name, "group": id, "status": alarm mask, "icon"}
//   item entry   {"idx", "group", "status": severity, "value": value string, "desc":
//                 the item's label text}
//   status:getGroups, getItems {"group"}, getItem {"group","idx"} or [group, idx],
//   getAlarms; addListener / removeListener {"group": id or [ids], "sendNow" (default
//   true)}; addGroupListener / removeGroupListener ("SUMM", "sendNow" default true);
//   addAlarmListener / removeAlarmListener ("ALRM", "sendNow" default FALSE: an alarm
//   listener gets the current list only when it asks for it). addListener names groups
//   that exist (error 9 "Cannot find status group" otherwise; nothing is registered).
//
// The group and alarm listeners choose the method of their pushes with "notifyMethod":
// the group listener "status:notifyGroupSummary" (the default, key "SUMM") or
// "status:groupNotify" (key "status:groupNotify"); the alarm listener
// "status:notifyAlarms" (the default, key "ALRM") or "status:alarmNotify" (key
// "status:alarmNotify"). Both names of a pair carry the same params; any other
// notifyMethod is error 3.
//
// Pushes: a stored item change goes at once to its group's listeners as
// {"jsonrpc":"2.0","method":"status:notify","params":[item entry]}, formatted directly
// with every string JSON-escaped (so a description holding a quotation mark cannot break
// or inject into the message; no length cut, which could break it too); a change of the
// alarm picture goes to "SUMM" listeners as "status:notifyGroupSummary", and any change
// touching an alarm to "ALRM" listeners as "status:notifyAlarms" through the keyed push
// with a 100 ms delay, so a burst reaches them as one message with the latest list.
// Errors: 9 "Cannot find status group" / "Cannot find status group or item", 5 "Missing
// status group" / "Can't find client identifier".
//
// Lifetime: attaches itself as the database's listener until destroyed; the database
// outlives it. Thread contract: the server's thread, which is also the controller's.

#include "CC4jBaseHandler.h"
#include "status/CStatusDb.h"

class CC4jStatus : public CC4jBaseHandler, public IStatusListener {
public:
    static constexpr unsigned int kAlarmDelayMs = 100;
    static constexpr const char* kGroupNotify = "status:groupNotify";
    static constexpr const char* kAlarmNotify = "status:alarmNotify";

    CC4jStatus(CJsonRpcServer& server, CStatusDb& database);
    ~CC4jStatus() override;

    bool GetGroups(const Json::Value& request, Json::Value& response);
    bool GetItems(const Json::Value& request, Json::Value& response);
    bool GetItem(const Json::Value& request, Json::Value& response);
    bool GetAlarms(const Json::Value& request, Json::Value& response);
    bool AddListener(const Json::Value& request, Json::Value& response) override;
    bool RemoveListener(const Json::Value& request, Json::Value& response) override;
    bool AddGroupListener(const Json::Value& request, Json::Value& response);
    bool RemoveGroupListener(const Json::Value& request, Json::Value& response);
    bool AddAlarmListener(const Json::Value& request, Json::Value& response);
    bool RemoveAlarmListener(const Json::Value& request, Json::Value& response);

    std::list<std::string> GetNotifyMethods(const Json::Value& params) const override;
    void SendNotification(const std::string& key, const std::list<std::string>& clients) override;

    void StatusAlarmsChanged() override;
    void StatusItemChanged(const SStatus& item, short oldFlags) override;

    // The pushes, also usable by a host that changes the database behind its back.
    void Notify(const std::string& group, int idx, const std::string& desc, int status, const std::string& value);
    void NotifySummary();
    void NotifyAlarms();

private:
    Json::Value GroupEntries() const;
    Json::Value ItemEntry(const SStatus& item) const;
    Json::Value AlarmEntries() const;
    // The registry key of a group or alarm listener request: `standard`, or `alternative`
    // when its notifyMethod names that; false (error 3 answered) for any other method.
    bool ListenerKey(const Json::Value& request, Json::Value& response, const std::string& standard,
                     const char* alternative, std::string& key);
    bool ChangeKey(const Json::Value& request, Json::Value& response, const std::string& key, bool add,
                   bool sendNowDefault);
    void Push(const std::string& key, const std::string& method, const Json::Value& params, unsigned int delayMs);

    CStatusDb& m_database;
};
