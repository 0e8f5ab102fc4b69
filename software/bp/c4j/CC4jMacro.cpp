#include "CC4jMacro.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>

#include "CException.h"
#include "NFileUtil.h"
#include "RuntimeRoot.h"
#include "control/CProjCon.h"

namespace {

const char* const kDays[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

bool ParseLocal(const std::string& date, const std::string& time, struct tm& local) {
    local = tm{};
    const std::string text = date + " " + time;
    const char* end = strptime(text.c_str(), "%Y/%m/%d %H:%M:%S", &local);
    return end && *end == '\0';
}

std::string Format(const struct tm& local, const char* format) {
    char text[32];
    strftime(text, sizeof text, format, &local);
    return text;
}

int SecondOfDay(const struct tm& local) { return (local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec; }

bool IsDateAndTime(const Json::Value& value) {
    struct tm ignored {};
    return value.isObject() && value["date"].isString() && value["time"].isString() &&
           ParseLocal(value["date"].asString(), value["time"].asString(), ignored);
}

// Why a trigger cannot be kept, or "" when it can.
std::string TriggerProblem(const Json::Value& trigger) {
    if (!trigger.isObject() || !trigger["type"].isString()) {
        return "a trigger is not an object with a \"type\"";
    }
    const std::string type = trigger["type"].asString();
    if (type == "gpio") {
        return trigger["pin"].isUInt() && trigger["pin"].asUInt() < CC4jMacro::kGpioPins && trigger["trans"].isBool()
                   ? ""
                   : "a gpio trigger needs \"pin\" 0..31 and \"trans\" true or false";
    }
    if (type != "timed") {
        return "unknown trigger type \"" + type + "\"";
    }
    if (!IsDateAndTime(trigger)) {
        return "a timed trigger needs \"date\" YYYY/MM/DD and \"time\" HH:MM:SS";
    }
    if (trigger.isMember("reoccur") && !trigger["reoccur"].isBool()) {
        return "\"reoccur\" is true or false";
    }
    if (trigger.isMember("weeks") &&
        (!trigger["weeks"].isUInt() || trigger["weeks"].asUInt() > CC4jMacro::kMaxWeeks)) {
        return "\"weeks\" is 0.." + std::to_string(CC4jMacro::kMaxWeeks);
    }
    if (trigger.isMember("days")) {
        if (!trigger["days"].isArray()) {
            return "\"days\" is an array of weekday names";
        }
        for (const Json::Value& day : trigger["days"]) {
            if (!day.isString() || std::find(std::begin(kDays), std::end(kDays), day.asString()) == std::end(kDays)) {
                return "\"days\" holds only \"sun\" .. \"sat\"";
            }
        }
    }
    return "";
}

// Why a macro cannot be stored (or loaded), or "" when every member has its type and range:
// nothing that reaches the file may stop the next start.
std::string MacroProblem(const Json::Value& macro) {
    if (!macro.isObject()) {
        return "a macro is an object";
    }
    if (!macro["idx"].isUInt() || macro["idx"].asUInt() < 1 || macro["idx"].asUInt() > CC4jMacro::kMaxMacros) {
        return "\"idx\" is 1..24";
    }
    if (!macro["name"].isString()) {
        return "\"name\" is a string";
    }
    if (!macro["active"].isBool()) {
        return "\"active\" is true or false";
    }
    if (!macro["trigger"].isArray()) {
        return "\"trigger\" is an array";
    }
    for (const Json::Value& trigger : macro["trigger"]) {
        const std::string problem = TriggerProblem(trigger);
        if (!problem.empty()) {
            return problem;
        }
    }
    if (!macro["action"].isArray()) {
        return "\"action\" is an array";
    }
    for (const Json::Value& action : macro["action"]) {
        if (!action.isObject() || !action["cmd"].isString()) {
            return "an action is an object with a \"cmd\" string";
        }
    }
    if (macro.isMember("lastRun") && !IsDateAndTime(macro["lastRun"])) {
        return "\"lastRun\" needs \"date\" YYYY/MM/DD and \"time\" HH:MM:SS";
    }
    return "";
}

}  // namespace

CC4jMacro::CC4jMacro(CJsonRpcServer& server, const ILocalTime& time, unsigned short asciiPort)
    : CC4jBaseHandler(server, "macro", 1), m_time(time), m_port(asciiPort) {
    Publish(*this, &CC4jMacro::GetMax, "macro:getMax");
    Publish(*this, &CC4jMacro::GetList, "macro:getList");
    Publish(*this, &CC4jMacro::Save, "macro:save");
    Publish(*this, &CC4jMacro::Delete, "macro:delete");
    Publish(*this, &CC4jMacro::Test, "macro:test");
    Publish<CC4jBaseHandler>(*this, &CC4jBaseHandler::AddListener, "macro:addListener");
    Publish<CC4jBaseHandler>(*this, &CC4jBaseHandler::RemoveListener, "macro:removeListener");
}

void CC4jMacro::Initialize(const std::string& path) {
    GetLog().Log("CC4jMacro::Initialize - %s", path.c_str());
    if (path.empty()) {
        THROW_EXCEPTION("Unable to find macro configuration - path not specified.");
    }
    m_path = path;
    const std::string folder = std::filesystem::path(NRuntimeRoot::Path(path)).parent_path().string();
    if (!std::filesystem::exists(folder)) {
        GetLog().Log("Creating folder %s", folder.c_str());
        std::error_code ignored;
        std::filesystem::create_directories(folder, ignored);
    }
    try {
        LoadMacroFile(path);
    } catch (const CException& e) {
        // Nothing may overwrite what the user had: the file goes aside, the macros start empty.
        const std::string file = NRuntimeRoot::Path(path);
        std::string aside = file + ".rejected";
        for (int n = 1; std::filesystem::exists(aside); ++n) {
            aside = file + ".rejected." + std::to_string(n);
        }
        std::error_code ignored;
        std::filesystem::rename(file, aside, ignored);
        GetLog().LogError("%s; kept as %s, starting without macros", e.GetMessage().c_str(), aside.c_str());
        m_macros = Json::Value(Json::arrayValue);
    }
    UpdateTriggers();
}

void CC4jMacro::LoadMacroFile(const std::string& path) {
    const std::string file = NRuntimeRoot::Path(path);
    std::string text;
    std::string reason;
    const NFileUtil::EReadResult read = NFileUtil::ReadFile(file, kMaxFileBytes + 1, text, reason);
    if (read == NFileUtil::EReadResult::MISSING) {
        m_macros = Json::Value(Json::arrayValue);
        return;
    }
    Json::Value macros;
    Json::CharReaderBuilder builder;
    std::string error;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (read != NFileUtil::EReadResult::READ || text.size() > kMaxFileBytes ||
        !reader->parse(text.data(), text.data() + text.size(), &macros, &error) || !macros.isArray()) {
        THROW_EXCEPTION("Unable to read macro configuration %s", file.c_str());
    }
    std::set<unsigned int> slots;
    for (const Json::Value& macro : macros) {
        const std::string problem = MacroProblem(macro);
        if (!problem.empty() || !slots.insert(macro["idx"].asUInt()).second) {
            THROW_EXCEPTION("Unable to read macro configuration %s (%s)", file.c_str(),
                            problem.empty() ? "a slot twice" : problem.c_str());
        }
    }
    m_macros = macros;
}

bool CC4jMacro::SaveToFile() {
    const bool saved = !m_path.empty() && NFileUtil::WriteFileAtomically(NRuntimeRoot::Path(m_path),
                                                                         Json::Rpc::Handler::GetString(m_macros) + "\n",
                                                                         0644);
    GetLog().Log("SaveToFile result: %d", saved ? 1 : 0);
    return saved;
}

void CC4jMacro::SendNotification(const std::string&, const std::list<std::string>& clients) {
    SJsonNotify notify;
    Json::Value message;
    message["jsonrpc"] = "2.0";
    message["method"] = kNotifyMethod;
    message["params"] = m_macros;
    notify.message = Json::Rpc::Handler::GetString(message);
    notify.recipients = clients;
    notify.key = kNotifyMethod;
    GetServer().NotifyPush(notify);
}

void CC4jMacro::NotifyList() {
    std::list<std::string> clients;
    GetDispatcher().GetC4jNotifyRecipientList(kNotifyMethod, clients);
    if (!clients.empty()) {
        SendNotification(kNotifyMethod, clients);
    }
}

bool CC4jMacro::GetMax(const Json::Value& request, Json::Value& response) {
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = kMaxMacros;
    }
    return true;
}

bool CC4jMacro::GetList(const Json::Value& request, Json::Value& response) {
    const std::string client = GetClientIdString(request);
    GetLog().Log("Recv'd %s from %s", "macro:getList", client.c_str());
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = m_macros;
    }
    GetLog().Log("Completed %s from %s", "macro:getList", client.c_str());
    return true;
}

bool CC4jMacro::Save(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const std::string client = GetClientIdString(request);
    GetLog().Log("Recv'd %s from %s", "macro:save", client.c_str());
    const Json::Value& params = request["params"];
    if (!params.isObject() || params.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS);
        return true;
    }
    if (!params["idx"].isUInt() || params["idx"].asUInt() < 1 || params["idx"].asUInt() > kMaxMacros) {
        MakeErrorResponse(request, response, ERR_CHANNEL_NOT_FOUND);
        return true;
    }
    for (const char* member : {"name", "active", "trigger", "action"}) {
        if (!params.isMember(member)) {
            MakeErrorResponse(request, response, ERR_INVALID_PARAMETER);
            return true;
        }
    }
    Json::Value macro(Json::objectValue);
    for (const char* member : {"idx", "name", "active", "trigger", "action", "lastRun"}) {
        if (params.isMember(member)) {
            macro[member] = params[member];
        }
    }
    const std::string problem = MacroProblem(macro);
    if (!problem.empty()) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Invalid macro: " + problem);
        return true;
    }
    const Json::Value before = m_macros;
    Json::Value macros(Json::arrayValue);
    bool placed = false;
    for (const Json::Value& existing : m_macros) {
        const unsigned int slot = existing["idx"].asUInt();
        if (!placed && slot >= macro["idx"].asUInt()) {
            macros.append(macro);
            placed = true;
        }
        if (slot != macro["idx"].asUInt()) {
            macros.append(existing);
        }
    }
    if (!placed) {
        macros.append(macro);
    }
    // The file is refused at load above this size: what could not be loaded is not saved.
    const size_t bytes = Json::Rpc::Handler::GetString(macros).size() + 1;
    if (bytes > kMaxFileBytes) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER,
                          "Invalid macro: the macros would take " + std::to_string(bytes) + " bytes, more than " +
                              std::to_string(kMaxFileBytes));
        return true;
    }
    m_macros = macros;
    if (!SaveToFile()) {
        m_macros = before;
        MakeErrorResponse(request, response, ERR_BAD_FILE);
        return true;
    }
    UpdateTriggers();
    NotifyList();
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    GetLog().Log("Completed %s from %s", "macro:save", client.c_str());
    return true;
}

bool CC4jMacro::Delete(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const std::string client = GetClientIdString(request);
    GetLog().Log("Recv'd %s from %s", "macro:delete", client.c_str());
    const Json::Value& params = request["params"];
    if (!params.isObject() || !params["idx"].isArray()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS);
        return true;
    }
    bool missing = false;
    for (const Json::Value& slot : params["idx"]) {
        Json::Value kept(Json::arrayValue);
        bool found = false;
        for (const Json::Value& macro : m_macros) {
            if (slot.isUInt() && macro["idx"].asUInt() == slot.asUInt()) {
                found = true;
            } else {
                kept.append(macro);
            }
        }
        if (!found) {
            GetLog().LogError("CC4jMacro::Delete - Unable to retrieve index %d from %s", slot.asInt(),
                              m_path.c_str());
            missing = true;
        }
        m_macros = kept;
    }
    const bool saved = SaveToFile();
    UpdateTriggers();
    NotifyList();
    if (missing || !saved) {
        MakeErrorResponse(request, response, missing ? ERR_CHANNEL_NOT_FOUND : ERR_BAD_FILE);
        return true;
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    GetLog().Log("Completed %s from %s", "macro:delete", client.c_str());
    return true;
}

bool CC4jMacro::Test(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const Json::Value& params = request["params"];
    if (!params.isObject() || !params["action"].isArray()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS);
        return true;
    }
    for (const Json::Value& action : params["action"]) {
        if (!ExecuteAction("Test", action)) {
            break;
        }
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    return true;
}

unsigned short CC4jMacro::CurrentPort() const {
    const CProjCon* port = GetDispatcher().GetControl("NET+PORT");
    return port ? static_cast<unsigned short>(port->GetValue()) : m_port;
}

bool CC4jMacro::Connect() {
    const unsigned short port = CurrentPort();
    GetLog().Log("CC4jMacro::Update - Connecting to port: %d", port);
    m_replies.clear();
    return m_connection.Connect("127.0.0.1", port, 1000) == 0;
}

bool CC4jMacro::ExecuteAction(const std::string& name, const Json::Value& action) {
    if (!m_connection.IsConnected()) {
        Connect();
    }
    if (!m_connection.IsConnected()) {
        GetLog().LogError("Not connected when Macro Executing action - %s", name.c_str());
        return false;
    }
    if (!action.isObject() || !action["cmd"].isString()) {
        GetLog().LogError("Command not found");
        return true;
    }
    const std::string command = action["cmd"].asString();
    GetLog().Log("Macro Executing Command: %s - %s", name.c_str(), command.c_str());
    if (m_connection.Send(reinterpret_cast<const uint8_t*>(command.data()), command.size()) != 0) {
        GetLog().LogError("Macro Failed to execute: %s", command.c_str());
    }
    return true;
}

void CC4jMacro::ProcessAction(Json::Value& macro) {
    const std::string name = macro["name"].asString();
    if (!macro["action"].isArray()) {
        GetLog().LogError("!!! Action not retrieved correctly!");
        return;
    }
    for (const Json::Value& action : macro["action"]) {
        if (!ExecuteAction(name, action)) {
            break;
        }
    }
    struct tm local {};
    if (m_time.ToLocal(m_time.Now(), local)) {
        macro["lastRun"]["date"] = Format(local, "%Y/%m/%d");
        macro["lastRun"]["time"] = Format(local, "%H:%M:%S");
    }
}

void CC4jMacro::ReadReplies() {
    uint8_t buffer[1024];
    int count;
    while ((count = m_connection.Receive(buffer, sizeof buffer)) > 0) {
        m_replies.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(count));
    }
    for (size_t end = m_replies.find(')'); end != std::string::npos; end = m_replies.find(')')) {
        const std::string reply = m_replies.substr(0, end + 1);
        m_replies.erase(0, end + 1);
        if (reply.find("ERR") != std::string::npos) {
            GetLog().LogError("Macro command answered with an error: %s", reply.c_str());
        }
    }
    if (m_replies.size() > 4096) {
        m_replies.clear();  // not the protocol: nothing to wait for
    }
}

int64_t CC4jMacro::LastRunOf(const Json::Value& macro) const {
    struct tm local {};
    const Json::Value& last = macro["lastRun"];
    if (!last.isObject() || !ParseLocal(last["date"].asString(), last["time"].asString(), local)) {
        return -1;
    }
    return m_time.FromLocal(local);
}

int64_t CC4jMacro::GetNextTriggerTime(const Json::Value& trigger, int64_t lastRun) const {
    struct tm start {};
    if (!trigger.isObject() || !trigger["date"].isString() || !trigger["time"].isString() ||
        !ParseLocal(trigger["date"].asString(), trigger["time"].asString(), start)) {
        return -1;
    }
    const int64_t now = m_time.Now();
    if (!trigger.get("reoccur", false).asBool()) {
        const int64_t at = m_time.FromLocal(start);
        return at > now && at > lastRun ? at : -1;
    }
    unsigned int days = 0;
    for (const Json::Value& day : trigger["days"]) {
        for (unsigned int d = 0; d < 7; ++d) {
            if (day.isString() && day.asString() == kDays[d]) {
                days |= 1u << d;
            }
        }
    }
    if (days == 0) {
        days = 0x7F;
    }
    const int weeks = trigger["weeks"].isUInt() ? static_cast<int>(std::min(trigger["weeks"].asUInt(), kMaxWeeks)) : 0;
    // Calendar days are walked at noon, where no change of summer time can move the date.
    struct tm noon = start;
    noon.tm_hour = 12;
    noon.tm_min = noon.tm_sec = 0;
    const int64_t startNoon = m_time.FromLocal(noon);
    struct tm startLocal {};
    if (startNoon < 0 || !m_time.ToLocal(startNoon, startLocal)) {
        return -1;
    }
    struct tm lastLocal {};
    const bool ranBefore = lastRun >= 0 && m_time.ToLocal(lastRun, lastLocal);
    const int64_t today = (now - startNoon) / 86400;
    for (int64_t k = today < 1 ? 0 : today - 1; k <= today + 7 * (weeks + 1) + 7; ++k) {
        struct tm day {};
        if (!m_time.ToLocal(startNoon + k * 86400, day)) {
            return -1;
        }
        const int64_t week = (k + startLocal.tm_wday) / 7;
        if (!(days & (1u << day.tm_wday)) || week % (weeks + 1) != 0) {
            continue;
        }
        if (ranBefore && day.tm_year == lastLocal.tm_year && day.tm_yday == lastLocal.tm_yday &&
            SecondOfDay(lastLocal) >= SecondOfDay(start)) {
            continue;  // this time of day ran today already, whatever the clocks do that night
        }
        struct tm at = day;
        at.tm_hour = start.tm_hour;
        at.tm_min = start.tm_min;
        at.tm_sec = start.tm_sec;
        const int64_t moment = m_time.FromLocal(at);
        if (moment > now) {
            return moment;
        }
    }
    return -1;
}

void CC4jMacro::UpdateTriggers() {
    m_timed.clear();
    m_gpio.clear();
    for (const Json::Value& macro : m_macros) {
        if (!macro["idx"].isUInt()) {
            GetLog().LogError("*** Unable to retrieve index");
            continue;
        }
        if (!macro.get("active", false).asBool() || !macro["trigger"].isArray()) {
            continue;
        }
        const unsigned int slot = macro["idx"].asUInt();
        const int64_t lastRun = LastRunOf(macro);
        for (const Json::Value& trigger : macro["trigger"]) {
            const std::string type = trigger.get("type", "").asString();
            if (type == "timed") {
                const int64_t at = GetNextTriggerTime(trigger, lastRun);
                if (at >= 0) {
                    m_timed.emplace(at, slot);
                }
            } else if (type == "gpio" && trigger["pin"].isUInt() && trigger["pin"].asUInt() < kGpioPins) {
                m_gpio.emplace(trigger["pin"].asUInt(), std::make_pair(slot, trigger.get("trans", true).asBool()));
            }
        }
    }
}

void CC4jMacro::Update(uint32_t oldGpio, uint32_t newGpio) {
    ReadReplies();
    std::set<unsigned int> due;
    const int64_t now = m_time.Now();
    for (auto it = m_timed.begin(); it != m_timed.end() && it->first <= now; ++it) {
        due.insert(it->second);
    }
    bool ran = false;
    auto run = [this, &ran](unsigned int slot) {
        for (Json::Value& macro : m_macros) {
            if (macro["idx"].asUInt() == slot) {
                ProcessAction(macro);
                ran = true;
            }
        }
    };
    for (unsigned int slot : due) {
        GetLog().Log("Executing the time based macro");
        run(slot);
    }
    const uint32_t changed = oldGpio ^ newGpio;
    for (const auto& entry : m_gpio) {
        const uint32_t bit = 1u << entry.first;
        const bool rising = (newGpio & bit) != 0;
        if ((changed & bit) && rising == entry.second.second) {
            GetLog().Log(rising ? "Executing macro due to low to high transition in GPIO pin: %d"
                                : "Executing macro due to high to low transition in GPIO pin: %d",
                         entry.first);
            run(entry.second.first);
        }
    }
    if (ran) {
        UpdateTriggers();
        SaveToFile();
        NotifyList();
    }
}
