#pragma once
// CC4jMacro: the "macro" module (version 1): up to 24 user macros, each a named list of
// ASCII protocol commands run on triggers: a time of day (once, or recurring on chosen
// weekdays) or an edge on a GPIO input pin. A macro runs by sending its commands over a
// TCP connection to the projector's own ASCII server on "127.0.0.1" at the Ethernet
// serial port (the control "NET"+"PORT" when the dispatcher has it, or the last port
// given to OnProjEthernetSerialPortChange).
//
//   macro:getMax       24
//   macro:getList      the macro array
//   macro:save         {"idx" 1..24, "name", "active", "trigger", "action"}: stored in its
//                      slot; errors 5 no params, 6 bad idx, 3 a member missing, of the
//                      wrong type or out of range (the message says which), or the macros
//                      outgrowing kMaxFileBytes, 113 the file not written; on any error
//                      the macros and the file stay as they were
//   macro:delete       {"idx": [slots]}: 5 no params, 6 a slot not found (the others go)
//   macro:test         {"action": [...]}: run at once as "Test", nothing saved
//   macro:addListener / removeListener, pushes "macro:notifyList" with the array
// save, delete and test need kChangeLevel (117 below it).
//
// File: "/var/data/macros/macros.json" (the folder created with "Creating folder %s"),
// written whole to a temporary file and renamed over the old one. A file that cannot be
// read at start is reported, moved aside to "macros.json.rejected" (then ".rejected.1"...)
// so that nothing overwrites it, and the handler starts empty; so is a file over
// kMaxFileBytes or one holding a macro that macro:save would refuse.
//
// Decisions left open by the protocol:
//   - A command is sent as its "cmd" text and nothing more: ASCII messages carry their own
//     parentheses. Replies are read without waiting on each Update; an error reply ("ERR"
//     or an error code in it) is logged as "Macro command answered with an error: %s".
//   - "weeks" is the number of weeks skipped after each active week: 0 every week, 1 every
//     other week... up to kMaxWeeks (once a year), which bounds the search for the next
//     run; the week of the start date is active, weeks starting on Sunday. Recurring
//     triggers with no "days" run every day.
//   - A trigger time runs at most once per local calendar day: it is skipped on a day the
//     macro already ran at or after that time of day. So on the night the clocks go back a
//     02:30 trigger runs once (the first 02:30), on the night they go forward, when 02:30
//     does not exist, it runs once at 03:30; a second time later that day, a GPIO run
//     before the time, or a save carrying the "lastRun" of an earlier run cancels nothing.
//   - Update is called by the host at least every 100 ms (the virtual projector's loop).
//
// Lifetime: server and local time outlive it. Thread contract: the server's thread.

#include <cstdint>
#include <map>
#include <string>

#include "CC4jBaseHandler.h"
#include "CTcpConnection.h"
#include "time/ILocalTime.h"

class CC4jMacro : public CC4jBaseHandler {
public:
    static constexpr unsigned int kMaxMacros = 24;
    static constexpr EAccessLevel kChangeLevel = ACCESS_OPERATOR;
    static constexpr unsigned int kMaxWeeks = 52;
    static constexpr unsigned int kGpioPins = 32;
    // The largest macro file, at save and at load alike.
    static constexpr size_t kMaxFileBytes = 1024 * 1024;
    static constexpr const char* kDirectory = "/var/data/macros/";
    static constexpr const char* kFileName = "macros.json";
    static constexpr const char* kNotifyMethod = "macro:notifyList";

    CC4jMacro(CJsonRpcServer& server, const ILocalTime& time, unsigned short asciiPort);
    ~CC4jMacro() override = default;

    // Loads the macros from `path` (a system path); see above for a file that cannot be
    // read. Throws "Unable to find macro configuration - path not specified." for "".
    void Initialize(const std::string& path = std::string(kDirectory) + kFileName);

    bool GetMax(const Json::Value& request, Json::Value& response);
    bool GetList(const Json::Value& request, Json::Value& response);
    bool Save(const Json::Value& request, Json::Value& response);
    bool Delete(const Json::Value& request, Json::Value& response);
    bool Test(const Json::Value& request, Json::Value& response);
    std::list<std::string> GetNotifyMethods(const Json::Value&) const override { return {kNotifyMethod}; }
    void SendNotification(const std::string& key, const std::list<std::string>& clients) override;

    virtual void OnProjAddressChange(int) {}
    virtual void OnProjEthernetSerialPortChange(unsigned short port) { m_port = port; }
    bool Connect();

    // Runs what is due: timed macros whose time has come, then GPIO macros whose pin made
    // their edge between the two input states (bit n = pin n).
    void Update(uint32_t oldGpio, uint32_t newGpio);
    void UpdateTriggers();
    // The next moment a timed trigger fires after now, for a macro last run at lastRun
    // (-1: never); -1 when it fires no more or cannot be read.
    int64_t GetNextTriggerTime(const Json::Value& trigger, int64_t lastRun) const;
    const Json::Value& GetMacros() const { return m_macros; }

private:
    void LoadMacroFile(const std::string& path);
    bool SaveToFile();
    void ProcessAction(Json::Value& macro);
    bool ExecuteAction(const std::string& name, const Json::Value& action);
    void ReadReplies();
    void NotifyList();
    unsigned short CurrentPort() const;
    int64_t LastRunOf(const Json::Value& macro) const;

    const ILocalTime& m_time;
    unsigned short m_port;
    std::string m_path;
    Json::Value m_macros{Json::arrayValue};
    std::multimap<int64_t, unsigned int> m_timed;               // moment -> slot
    std::multimap<unsigned int, std::pair<unsigned int, bool>> m_gpio;  // pin -> slot, rising
    CTcpConnection m_connection;
    std::string m_replies;
};
