#include "CC4jStatus.h"

#include "CException.h"
#include "dispatch/CNotificationManager.h"

namespace {

// A JSON string literal of text, quotes included.
std::string Quoted(const std::string& text) { return Json::Rpc::Handler::GetString(Json::Value(text)); }

}  // namespace

CC4jStatus::CC4jStatus(CJsonRpcServer& server, CStatusDb& database)
    : CC4jBaseHandler(server, "status", 1), m_database(database) {
    Publish(*this, &CC4jStatus::GetGroups, "status:getGroups");
    Publish(*this, &CC4jStatus::GetItems, "status:getItems");
    Publish(*this, &CC4jStatus::GetItem, "status:getItem");
    Publish(*this, &CC4jStatus::AddListener, "status:addListener");
    Publish(*this, &CC4jStatus::RemoveListener, "status:removeListener");
    Publish(*this, &CC4jStatus::GetAlarms, "status:getAlarms");
    Publish(*this, &CC4jStatus::AddGroupListener, "status:addGroupListener");
    Publish(*this, &CC4jStatus::RemoveGroupListener, "status:removeGroupListener");
    Publish(*this, &CC4jStatus::AddAlarmListener, "status:addAlarmListener");
    Publish(*this, &CC4jStatus::RemoveAlarmListener, "status:removeAlarmListener");
    m_database.AttachListener(this);
}

CC4jStatus::~CC4jStatus() { m_database.AttachListener(nullptr); }

Json::Value CC4jStatus::GroupEntries() const {
    Json::Value groups(Json::arrayValue);
    bool first = true;
    for (const SStatusSummaryEntry& entry : m_database.GetSummary()) {
        if (first) {
            first = false;  // the global "ALRM" word is not a group
            continue;
        }
        Json::Value group;
        group["name"] = entry.label.empty() ? entry.code : entry.label;
        group["group"] = entry.code;
        group["status"] = entry.value;
        if (!entry.icon.empty()) {
            group["icon"] = entry.icon;
        }
        groups.append(group);
    }
    return groups;
}

Json::Value CC4jStatus::ItemEntry(const SStatus& item) const {
    Json::Value entry;
    entry["idx"] = item.index;
    entry["group"] = item.group;
    entry["status"] = StatusSeverity(item.flags);
    entry["value"] = item.value;
    entry["desc"] = item.labelText;
    return entry;
}

Json::Value CC4jStatus::AlarmEntries() const {
    Json::Value alarms(Json::arrayValue);
    for (const SStatus& alarm : m_database.GetAlarmList()) {
        alarms.append(ItemEntry(alarm));
    }
    return alarms;
}

bool CC4jStatus::GetGroups(const Json::Value& request, Json::Value& response) {
    const std::string client = GetClientIdString(request);
    GetLog().LogDebug("Recv'd 'status:getGroups' from %s", client.c_str());
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = GroupEntries();
    }
    GetLog().LogDebug("Completed 'status:getGroups' from %s", client.c_str());
    return true;
}

bool CC4jStatus::GetItems(const Json::Value& request, Json::Value& response) {
    const auto group = NJsonValueParser::GetStringFromObj(request["params"], "group", "");
    if (!group.first || !m_database.HasGroup(group.second)) {
        MakeErrorResponse(request, response, ERR_UNKNOWN_REQUEST, "Cannot find status group");
        return true;
    }
    Json::Value items(Json::arrayValue);
    for (const SStatus& item : m_database.GetOrderedStatusGroup(group.second)) {
        items.append(ItemEntry(item));
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = items;
    }
    return true;
}

bool CC4jStatus::GetItem(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const auto group = params.isArray() ? NJsonValueParser::GetStringFromArray2(params, 0, "")
                                        : NJsonValueParser::GetStringFromObj(params, "group", "");
    const auto idx = params.isArray() ? NJsonValueParser::GetIntFromArray2(params, 1, 0)
                                      : NJsonValueParser::GetIntFromObj(params, "idx", 0);
    try {
        if (!group.first || !idx.first || !m_database.HasGroup(group.second)) {
            THROW_EXCEPTION("Cannot find status group %s", group.second.c_str());
        }
        if (idx.second < -32768 || idx.second > 32767 ||
            !m_database.IsValidIndex(group.second, static_cast<short>(idx.second))) {
            THROW_EXCEPTION("Cannot find status item %d in group %s", idx.second, group.second.c_str());
        }
        const SStatus item = m_database.GetStatusValue(group.second, static_cast<short>(idx.second));
        InitResponseObj(request, response);
        if (!response.isNull()) {
            response["result"] = ItemEntry(item);
        }
    } catch (const CException& e) {
        GetLog().LogDebug("%s", e.GetMessage().c_str());
        MakeErrorResponse(request, response, ERR_UNKNOWN_REQUEST, "Cannot find status group or item");
    }
    return true;
}

bool CC4jStatus::GetAlarms(const Json::Value& request, Json::Value& response) {
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = AlarmEntries();
    }
    return true;
}

std::list<std::string> CC4jStatus::GetNotifyMethods(const Json::Value& params) const {
    if (params.isObject() && params["notifyMethod"].isString()) {
        const std::string method = params["notifyMethod"].asString();
        if (method == "status:notifyGroupSummary") {
            return {"SUMM"};
        }
        if (method == "status:notifyAlarms") {
            return {"ALRM"};
        }
        if (method == kGroupNotify || method == kAlarmNotify) {
            return {method};
        }
    }
    std::list<std::string> groups;
    if (params.isArray()) {
        for (const Json::Value& element : params) {
            if (element.isString()) {
                groups.push_back(element.asString());
            }
        }
        return groups;
    }
    for (const std::string& group : NJsonValueParser::GetStringsFromObj(params, "group")) {
        groups.push_back(group);
    }
    return groups;
}

bool CC4jStatus::AddListener(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const std::list<std::string> groups = GetNotifyMethods(params);
    const bool sendNow = NJsonValueParser::GetBoolFromObj(params, "sendNow", true).second;
    std::string joined;
    for (const std::string& group : groups) {
        joined += group + " ";
    }
    GetLog().LogDebug("Recv'd 'status:addListener' from %s: %s %s", GetClientIdString(request).c_str(),
                      joined.c_str(), sendNow ? "(sendNow)" : "");
    if (groups.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Missing status group");
        return true;
    }
    const std::string address = GetClientDescriptor(request);
    if (address.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Can't find client identifier");
        return true;
    }
    for (const std::string& group : groups) {
        if (!m_database.HasGroup(group)) {
            MakeErrorResponse(request, response, ERR_UNKNOWN_REQUEST, "Cannot find status group");
            return true;
        }
    }
    for (const std::string& group : groups) {
        GetDispatcher().GetNotificationManager().NotifyRegister(group, address);
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    if (sendNow) {
        for (const std::string& group : groups) {
            SendNotification(group, {address});
        }
    }
    return true;
}

bool CC4jStatus::RemoveListener(const Json::Value& request, Json::Value& response) {
    const std::list<std::string> groups = GetNotifyMethods(request["params"]);
    if (groups.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Missing status group");
        return true;
    }
    return CC4jBaseHandler::RemoveListener(request, response);
}

bool CC4jStatus::ChangeKey(const Json::Value& request, Json::Value& response, const std::string& key, bool add,
                           bool sendNowDefault) {
    const std::string address = GetClientDescriptor(request);
    if (address.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Can't find client identifier");
        return true;
    }
    CNotificationManager& registry = GetDispatcher().GetNotificationManager();
    const bool sendNow = add && NJsonValueParser::GetBoolFromObj(request["params"], "sendNow", sendNowDefault).second;
    if (add) {
        registry.NotifyRegister(key, address);
    } else {
        registry.NotifyUnregister(key, address, false);
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    if (sendNow) {
        SendNotification(key, {address});
    }
    return true;
}

bool CC4jStatus::ListenerKey(const Json::Value& request, Json::Value& response, const std::string& standard,
                             const char* alternative, std::string& key) {
    const auto method = NJsonValueParser::GetStringFromObj(request["params"], "notifyMethod", "");
    if (!method.first || method.second == alternative) {
        key = method.first ? alternative : standard;
        return true;
    }
    MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Unsupported notifyMethod " + method.second);
    return false;
}

bool CC4jStatus::AddGroupListener(const Json::Value& request, Json::Value& response) {
    std::string key;
    return !ListenerKey(request, response, "SUMM", kGroupNotify, key) || ChangeKey(request, response, key, true, true);
}

bool CC4jStatus::RemoveGroupListener(const Json::Value& request, Json::Value& response) {
    std::string key;
    return !ListenerKey(request, response, "SUMM", kGroupNotify, key) || ChangeKey(request, response, key, false, true);
}

bool CC4jStatus::AddAlarmListener(const Json::Value& request, Json::Value& response) {
    const bool sendNow = NJsonValueParser::GetBoolFromObj(request["params"], "sendNow", false).second;
    GetLog().LogDebug("Recv'd 'status:addAlarmListener' from %s %s", GetClientIdString(request).c_str(),
                      sendNow ? "sendNow" : "");
    std::string key;
    return !ListenerKey(request, response, "ALRM", kAlarmNotify, key) || ChangeKey(request, response, key, true, false);
}

bool CC4jStatus::RemoveAlarmListener(const Json::Value& request, Json::Value& response) {
    std::string key;
    return !ListenerKey(request, response, "ALRM", kAlarmNotify, key) ||
           ChangeKey(request, response, key, false, false);
}

void CC4jStatus::Push(const std::string& key, const std::string& method, const Json::Value& params,
                      unsigned int delayMs) {
    SJsonNotify notify;
    GetDispatcher().GetC4jNotifyRecipientList(key, notify.recipients);
    if (notify.recipients.empty()) {
        return;
    }
    Json::Value message;
    message["jsonrpc"] = "2.0";
    message["method"] = method;
    message["params"] = params;
    notify.message = Json::Rpc::Handler::GetString(message);
    notify.key = method;
    if (delayMs == 0) {
        GetServer().NotifyPush(notify);
    } else {
        GetServer().NotifyPush(method, notify, delayMs);
    }
}

void CC4jStatus::SendNotification(const std::string& key, const std::list<std::string>& clients) {
    Json::Value message;
    message["jsonrpc"] = "2.0";
    if (key == "SUMM" || key == kGroupNotify) {
        message["method"] = key == "SUMM" ? "status:notifyGroupSummary" : kGroupNotify;
        message["params"] = GroupEntries();
    } else if (key == "ALRM" || key == kAlarmNotify) {
        message["method"] = key == "ALRM" ? "status:notifyAlarms" : kAlarmNotify;
        message["params"] = AlarmEntries();
    } else if (m_database.HasGroup(key)) {
        message["method"] = "status:notifyItems";
        message["params"] = Json::Value(Json::arrayValue);
        for (const SStatus& item : m_database.GetOrderedStatusGroup(key)) {
            message["params"].append(ItemEntry(item));
        }
    } else {
        return;
    }
    SJsonNotify notify;
    notify.message = Json::Rpc::Handler::GetString(message);
    notify.recipients = clients;
    notify.key = message["method"].asString() + "." + key;
    GetServer().NotifyPush(notify);
}

void CC4jStatus::Notify(const std::string& group, int idx, const std::string& desc, int status,
                        const std::string& value) {
    SJsonNotify notify;
    GetDispatcher().GetC4jNotifyRecipientList(group, notify.recipients);
    if (notify.recipients.empty()) {
        return;
    }
    notify.message = "{\"jsonrpc\":\"2.0\",\"method\":\"status:notify\",\"params\":[{\"idx\":" + std::to_string(idx) +
                     ",\"group\":" + Quoted(group) + ",\"status\":" + std::to_string(status) +
                     ",\"desc\":" + Quoted(desc) + ",\"value\":" + Quoted(value) + "}]}";
    notify.key = "status:notify." + group + "." + std::to_string(idx);
    GetServer().NotifyPush(notify);
}

void CC4jStatus::NotifySummary() {
    const Json::Value groups = GroupEntries();
    Push("SUMM", "status:notifyGroupSummary", groups, 0);
    Push(kGroupNotify, kGroupNotify, groups, 0);
}

void CC4jStatus::NotifyAlarms() {
    const Json::Value alarms = AlarmEntries();
    Push("ALRM", "status:notifyAlarms", alarms, kAlarmDelayMs);
    Push(kAlarmNotify, kAlarmNotify, alarms, kAlarmDelayMs);
}

void CC4jStatus::StatusAlarmsChanged() {
    NotifySummary();
    NotifyAlarms();
}

void CC4jStatus::StatusItemChanged(const SStatus& item, short oldFlags) {
    Notify(item.group, item.index, item.labelText, StatusSeverity(item.flags), item.value);
    if (StatusSeverity(item.flags) != 0 || StatusSeverity(oldFlags) != 0) {
        NotifyAlarms();
    }
}
