// The "macro" module: saving and deleting with the protocol's checks, trigger times
// (weekdays, the weeks rule, both changes of summer time in a zone that has them), and
// macros run over TCP to a stand-in for the projector's ASCII server.

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "C4jFixture.h"
#include "CC4jMacro.h"
#include "LocalSockets.h"

namespace {

// A hand-set "now" in the process's zone, which the fixture makes Europe/Berlin.
class CTestLocalTime : public CSystemLocalTime {
public:
    int64_t Now() const override { return now; }
    int64_t At(const char* local) const {
        struct tm parts {};
        strptime(local, "%Y/%m/%d %H:%M:%S", &parts);
        return FromLocal(parts);
    }
    int64_t now = 0;
};

class CC4jMacroTest : public CC4jFixture {
protected:
    CC4jMacroTest() {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
        localTime.now = localTime.At("2026/11/25 09:00:00");  // a Wednesday
        listener = ListenLocal(port);
        macros = std::make_unique<CC4jMacro>(server, localTime, port);
        macros->Initialize();
        client = Connect();
        server.SetClientAccessLevel(client->id, ACCESS_OPERATOR);  // saving macros needs a login
    }
    ~CC4jMacroTest() override { close(listener); }

    static std::string Timed(const std::string& date, const std::string& time, const std::string& days = "",
                             int weeks = 0) {
        return R"({"type": "timed", "date": ")" + date + R"(", "time": ")" + time + R"(", "reoccur": )" +
               (days.empty() && weeks == 0 ? "false" : "true") + R"(, "weeks": )" + std::to_string(weeks) +
               R"(, "days": [)" + days + "]}";
    }
    std::string Saved(int idx, const std::string& trigger, const std::string& cmd = "(BRI 70)") {
        return R"({"idx": )" + std::to_string(idx) + R"(, "name": "m)" + std::to_string(idx) +
               R"(", "active": true, "trigger": [)" + trigger + R"(], "action": [{"cmd": ")" + cmd + R"("}]})";
    }
    std::string Local(int64_t moment) const {
        struct tm parts {};
        localTime.ToLocal(moment, parts);
        char text[32];
        strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S %Z", &parts);
        return text;
    }
    // What the stand-in server received within a second.
    std::string Received() {
        if (accepted < 0) {
            accepted = accept(listener, nullptr, nullptr);
        }
        std::string got;
        char buffer[256];
        for (int i = 0; i < 100; ++i) {
            const ssize_t count = recv(accepted, buffer, sizeof buffer, MSG_DONTWAIT);
            if (count > 0) {
                got.append(buffer, static_cast<size_t>(count));
            } else if (!got.empty()) {
                break;
            }
            usleep(10000);
        }
        return got;
    }

    CTestLocalTime localTime;
    int listener = -1;
    int accepted = -1;
    unsigned short port = 0;
    std::unique_ptr<CC4jMacro> macros;
    TClient client;
};

}  // namespace

TEST_F(CC4jMacroTest, SavingChecksParamsSlotAndMembersAndStoresEveryChange) {
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_USER));
    for (const char* method : {"macro:save", "macro:delete", "macro:test"}) {
        EXPECT_EQ(ErrorCode(*client, method, Saved(1, Timed("2027/01/01", "08:00:00"))), ERR_INVALID_ACCESS_GROUP);
    }
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_OPERATOR));
    EXPECT_EQ(Result(*client, "macro:getMax"), 24);
    EXPECT_EQ(ErrorCode(*client, "macro:save"), ERR_TOO_FEW_PARAMETERS);
    for (int idx : {0, 25}) {
        EXPECT_EQ(ErrorCode(*client, "macro:save", Saved(idx, Timed("2027/01/01", "08:00:00"))), ERR_CHANNEL_NOT_FOUND);
    }
    EXPECT_EQ(ErrorCode(*client, "macro:save", R"({"idx": 3, "name": "x", "active": true, "action": []})"),
              ERR_INVALID_PARAMETER);
    Result(*client, "macro:addListener", R"({"sendNow": false})");
    for (int idx : {24, 1}) {
        EXPECT_EQ(Result(*client, "macro:save", Saved(idx, Timed("2027/01/01", "08:00:00"))), J("{}"));
    }
    EXPECT_EQ(Next(*client)["method"], "macro:notifyList");
    const Json::Value list = Result(*client, "macro:getList");
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["idx"], 1);  // kept in slot order
    EXPECT_EQ(J(CTempRoot::ReadFile(root.Path("/var/data/macros/macros.json"))), list);

    // Every member is checked before anything is stored: each of these answers 3 and
    // changes neither the list nor the file, so nothing saved can stop the next start.
    const std::string file = CTempRoot::ReadFile(root.Path("/var/data/macros/macros.json"));
    const std::string good = R"x("name": "m", "active": true, "trigger": [], "action": [{"cmd": "(BRI 1)"}])x";
    for (const std::string& bad : std::vector<std::string>{
             R"({"idx": 2, "name": {}, "active": true, "trigger": [], "action": []})",
             R"({"idx": 2, "name": "m", "active": "yes", "trigger": [], "action": []})",
             R"({"idx": 2, "name": "m", "active": true, "trigger": {}, "action": []})",
             R"({"idx": 2, "name": "m", "active": true, "trigger": [], "action": [{"cmd": 5}]})",
             R"({"idx": 2, "name": "m", "active": true, "trigger": [{"type": "gpio", "pin": 32, "trans": true}], "action": []})",
             R"({"idx": 2, "name": "m", "active": true, "trigger": [{"type": "gpio", "pin": 1}], "action": []})",
             R"({"idx": 2, "name": "m", "active": true, "trigger": [{"type": "cron"}], "action": []})",
             R"({"idx": 2, "name": "m", "active": true, "action": [], "trigger": [)" + Timed("2027/02/30x", "08:00:00") + "]}",
             R"({"idx": 2, "name": "m", "active": true, "action": [], "trigger": [)" + Timed("2027/01/01", "08:00:00", R"("mon")", 53) + "]}",
             R"({"idx": 2, "name": "m", "active": true, "action": [], "trigger": [)" + Timed("2027/01/01", "08:00:00", R"("monday")") + "]}",
             R"({"idx": 2, "active": true, "trigger": [], "action": [], "lastRun": {"date": 1}, "name": "m"})",
         }) {
        EXPECT_EQ(ErrorCode(*client, "macro:save", bad), ERR_INVALID_PARAMETER) << bad.substr(0, 200);
    }
    EXPECT_EQ(CTempRoot::ReadFile(root.Path("/var/data/macros/macros.json")), file);
    // What the file may hold at load is what a save may make of it.
    const std::string big = R"(, "active": true, "trigger": [], "action": [], "name": ")" +
                            std::string(CC4jMacro::kMaxFileBytes / 3, 'n') + "\"}";
    EXPECT_EQ(Result(*client, "macro:save", R"({"idx": 2)" + big), J("{}"));
    EXPECT_EQ(Result(*client, "macro:save", R"({"idx": 3)" + big), J("{}"));
    EXPECT_EQ(ErrorCode(*client, "macro:save", R"({"idx": 4)" + big), ERR_INVALID_PARAMETER);
    EXPECT_EQ(Result(*client, "macro:save", R"({"idx": 2, )" + good + "}"), J("{}"));

    EXPECT_EQ(ErrorCode(*client, "macro:delete", R"({"idx": [24, 2, 3, 7]})"), ERR_CHANNEL_NOT_FOUND);
    EXPECT_TRUE(log.Logged("CC4jMacro::Delete - Unable to retrieve index 7"));
    EXPECT_EQ(Result(*client, "macro:getList").size(), 1u);
    EXPECT_EQ(J(CTempRoot::ReadFile(root.Path("/var/data/macros/macros.json"))).size(), 1u);
}

TEST_F(CC4jMacroTest, TriggerTimesFollowWeekdaysTheWeeksRuleAndBothChangesOfSummerTime) {
    const struct {
        const char* now;
        std::string trigger;
        const char* lastRun;
        const char* next;  // "" for none
    } cases[] = {
        {"2026/11/25 09:00:00", Timed("2026/11/23", "08:00:00", R"("mon", "fri")"), "", "2026/11/27 08:00:00 CET"},
        {"2026/11/25 09:00:00", Timed("2026/11/23", "08:00:00", R"("mon", "fri")", 1), "", "2026/11/27 08:00:00 CET"},
        {"2026/11/28 09:00:00", Timed("2026/11/23", "08:00:00", R"("mon", "fri")", 1), "", "2026/12/07 08:00:00 CET"},
        {"2026/11/25 09:00:00", Timed("2026/11/25", "08:00:00"), "", ""},  // once, and past
        {"2026/11/25 09:00:00", Timed("2026/11/25", "10:00:00"), "", "2026/11/25 10:00:00 CET"},
        // 02:30 does not exist on 2027/03/28: it runs once, at 03:30 summer time.
        {"2027/03/28 00:00:00", Timed("2027/03/01", "02:30:00", R"("sun")"), "", "2027/03/28 03:30:00 CEST"},
        // 02:30 happens twice on 2026/10/25: once it has run that day, the next is a week on.
        {"2026/10/25 00:00:00", Timed("2026/10/01", "02:30:00", R"("sun")"), "", "2026/10/25 02:30:00 CEST"},
        {"2026/10/25 02:30:01", Timed("2026/10/01", "02:30:00", R"("sun")"), "2026/10/25 02:30:00",
         "2026/11/01 02:30:00 CET"},
        // Each time of day runs once a day: a run earlier that day (another time, a GPIO
        // edge) does not cancel a later one.
        {"2026/11/25 09:00:00", Timed("2026/11/23", "18:00:00", R"("wed")"), "2026/11/25 08:00:00",
         "2026/11/25 18:00:00 CET"},
        // Past January 2038, also where long is 32 bits.
        {"2040/01/31 09:00:00", Timed("2039/12/01", "08:00:00", R"("mon", "fri")"), "", "2040/02/03 08:00:00 CET"},
    };
    for (const auto& c : cases) {
        localTime.now = localTime.At(c.now);
        const int64_t lastRun = *c.lastRun ? localTime.At(c.lastRun) : -1;
        const int64_t next = macros->GetNextTriggerTime(J(c.trigger), lastRun);
        EXPECT_EQ(next < 0 ? "" : Local(next), c.next) << c.now << " " << c.trigger;
    }
    EXPECT_LT(macros->GetNextTriggerTime(J(R"({"date": "2026/13/01", "time": "08:00:00"})"), -1), 0);
}

TEST_F(CC4jMacroTest, DueMacrosAndGpioEdgesSendTheirCommandsAndRecordTheRun) {
    Result(*client, "macro:save", Saved(1, Timed("2026/11/25", "09:00:05"), "(BRI 70)"));
    Result(*client, "macro:save", Saved(2, R"({"type": "gpio", "pin": 3, "trans": true})", "(LMP 1)"));
    Result(*client, "macro:save", Saved(3, R"({"type": "gpio", "pin": 3, "trans": false})", "(LMP 0)"));
    macros->Update(0, 0);
    localTime.now += 5;
    macros->Update(0, 0);
    EXPECT_EQ(Received(), "(BRI 70)");
    EXPECT_TRUE(log.Logged("Executing the time based macro"));
    macros->Update(0, 1u << 3);
    EXPECT_EQ(Received(), "(LMP 1)");
    macros->Update(1u << 3, 0);
    EXPECT_EQ(Received(), "(LMP 0)");
    EXPECT_TRUE(log.Logged("Executing macro due to high to low transition in GPIO pin: 3"));
    const Json::Value stored = J(CTempRoot::ReadFile(root.Path("/var/data/macros/macros.json")));
    EXPECT_EQ(stored[0]["lastRun"], J(R"({"date": "2026/11/25", "time": "09:00:05"})"));

    close(listener);  // the ASCII server goes away
    listener = -1;
    close(accepted);
    macros->OnProjEthernetSerialPortChange(1);
    macros->Update(0, 0);  // notices the closed connection
    Result(*client, "macro:test", R"x({"action": [{"cmd": "(BRI?)"}]})x");
    EXPECT_TRUE(log.Logged("Not connected when Macro Executing action - Test"));
}

TEST_F(CC4jMacroTest, AnUnreadableFileIsKeptAsideAndTheHandlerStartsEmpty) {
    const std::string bad[] = {R"([{"idx": 99}])",
                               R"([{"idx": 1, "name": "m", "active": "yes", "trigger": [], "action": []}])",
                               "[" + std::string(CC4jMacro::kMaxFileBytes, ' ') + "]"};
    for (const std::string& text : bad) {
        root.WriteFile("/var/data/macros/macros.json", text);
        CC4jMacro fresh(server, localTime, port);
        fresh.Initialize();
        EXPECT_EQ(fresh.GetMacros().size(), 0u);
        EXPECT_TRUE(std::filesystem::exists(root.Path("/var/data/macros/macros.json.rejected")));
        std::filesystem::remove(root.Path("/var/data/macros/macros.json.rejected"));
    }
    EXPECT_EQ(log.Count("Unable to read macro configuration"), 3u);
}
