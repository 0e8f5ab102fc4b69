// The "status" module over real TCP: groups, items and alarms of a status database, and
// what group, summary and alarm listeners are sent when the database changes (alarm
// bursts coalesced on the hand-driven clock).

#include "C4jFixture.h"

namespace {

const SStatusDesc kLamp[] = {{1, 101, 0, "120", 120, nullptr, 0}, {2, 102, 0, "off", 0, nullptr, 0}};
const SStatusDesc kSignal[] = {{1, 201, 2, "lost", 0, nullptr, 0}};

const char* const kLampItems = R"([{"idx":1,"group":"LAMP","status":0,"value":"120","desc":"Lamp hours"},
                                   {"idx":2,"group":"LAMP","status":0,"value":"off","desc":"Lamp \"A\" state"}])";
const char* const kSignalAlarm = R"({"idx":1,"group":"SIGN","status":2,"value":"lost","desc":"Sync"})";

class CC4jStatusTest : public CC4jFixture {
protected:
    void SetUp() override {
        status.AddStatusGroup(kLamp, 2, "LAMP", 29, "lamp");
        status.AddStatusGroup(kSignal, 1, "SIGN");
        client = Connect();
    }

    static Json::Value Message(const std::string& method, const std::string& params) {
        return J(R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params + "}");
    }

    TClient client;
};

}  // namespace

TEST_F(CC4jStatusTest, ItemsAreFoundByGroupAndIndex) {
    EXPECT_EQ(Result(*client, "status:getItems", R"({"group":"LAMP"})"), J(kLampItems));
    EXPECT_EQ(Result(*client, "status:getItem", R"({"group":"LAMP","idx":2})"), J(kLampItems)[1]);
    EXPECT_EQ(Result(*client, "status:getItem", R"(["LAMP",2])"), J(kLampItems)[1]);
    EXPECT_EQ(Result(*client, "status:getAlarms"), J(std::string("[") + kSignalAlarm + "]"));

    const Json::Value pastTheEnd = Call(*client, "status:getItem", R"(["LAMP",3])");
    EXPECT_EQ(pastTheEnd["error"], J(R"({"code":9,"message":"Cannot find status group or item"})"));
    EXPECT_EQ(ErrorCode(*client, "status:getItem", R"({"group":"NONE","idx":1})"), ERR_UNKNOWN_REQUEST);
    EXPECT_EQ(Call(*client, "status:getItems", R"({"group":"NONE"})")["error"]["message"], "Cannot find status group");
}

TEST_F(CC4jStatusTest, GroupListenerGetsTheItemsAtOnceAndThenEachChange) {
    EXPECT_EQ(Result(*client, "status:addListener", R"({"group":"LAMP"})"), J("{}"));
    EXPECT_EQ(Next(*client), Message("status:notifyItems", kLampItems));
    status.UpdateStatusValue("LAMP", 2, 0, "on");
    // The message is formatted by hand: it must still be JSON with the quotes escaped.
    EXPECT_EQ(Next(*client), Message("status:notify", R"([{"idx":2,"group":"LAMP","status":0,"value":"on",
                                                           "desc":"Lamp \"A\" state"}])"));
    status.UpdateStatusValue("SIGN", 1, 2, "weak");  // another group
    EXPECT_TRUE(Quiet(*client));

    Result(*client, "status:removeListener", R"(["LAMP"])");
    status.UpdateStatusValue("LAMP", 2, 0, "off");
    EXPECT_TRUE(Quiet(*client));
}

TEST_F(CC4jStatusTest, AlarmBurstReachesListenersAsOneMessageWithTheFinalList) {
    Result(*client, "status:addAlarmListener");
    status.UpdateStatusValue("LAMP", 1, 1, 130);
    clock.AdvanceMs(30);
    status.UpdateStatusValue("LAMP", 2, 3, "fault");
    clock.AdvanceMs(30);
    status.UpdateStatusValue("LAMP", 1, 0, 130);
    clock.AdvanceMs(39);
    EXPECT_TRUE(Quiet(*client));

    clock.AdvanceMs(1);
    loop->RunOnce(0);
    EXPECT_EQ(Next(*client), Message("status:notifyAlarms", std::string("[") + kSignalAlarm + R"(,
        {"idx":2,"group":"LAMP","status":3,"value":"fault","desc":"Lamp \"A\" state"}])"));
    EXPECT_TRUE(Quiet(*client));
}

TEST_F(CC4jStatusTest, SummaryListenerHearsWhenAGroupsMaskChanges) {
    Result(*client, "status:addGroupListener");
    EXPECT_EQ(Next(*client)["method"], "status:notifyGroupSummary");
    status.UpdateStatusValue("LAMP", 1, 0, 121);  // no alarm involved
    EXPECT_TRUE(Quiet(*client));

    status.UpdateStatusValue("LAMP", 1, 1, 122);
    EXPECT_EQ(Next(*client), Message("status:notifyGroupSummary",
                                     R"([{"name":"Lamp Info","group":"LAMP","status":1,"icon":"lamp"},
                                         {"name":"SIGN","group":"SIGN","status":2}])"));
    EXPECT_TRUE(Quiet(*client));

    Result(*client, "status:removeGroupListener");
    status.UpdateStatusValue("LAMP", 1, 0, 122);
    EXPECT_TRUE(Quiet(*client));
}

TEST_F(CC4jStatusTest, UnknownGroupsAreRefusedAndTheOtherNotifyMethodsCarryTheSameState) {
    EXPECT_EQ(ErrorCode(*client, "status:addListener", R"({"group":["LAMP","BRI"]})"), ERR_UNKNOWN_REQUEST);
    EXPECT_TRUE(Registry().GetKeys().empty());
    EXPECT_EQ(ErrorCode(*client, "status:addAlarmListener", R"({"notifyMethod":"status:notifyItems"})"),
              ERR_INVALID_PARAMETER);

    Result(*client, "status:addAlarmListener", R"({"notifyMethod":"status:alarmNotify","sendNow":true})");
    EXPECT_EQ(Next(*client), Message("status:alarmNotify", std::string("[") + kSignalAlarm + "]"));
    Result(*client, "status:addGroupListener", R"({"notifyMethod":"status:groupNotify","sendNow":false})");
    status.UpdateStatusValue("SIGN", 1, 0, "locked");
    EXPECT_EQ(Next(*client), Message("status:groupNotify", R"([{"name":"Lamp Info","group":"LAMP","status":0,
                                                                "icon":"lamp"},{"name":"SIGN","group":"SIGN","status":0}])"));
    clock.AdvanceMs(CC4jStatus::kAlarmDelayMs);
    loop->RunOnce(0);
    EXPECT_EQ(Next(*client), Message("status:alarmNotify", "[]"));
    EXPECT_TRUE(Quiet(*client));
    Result(*client, "status:removeAlarmListener", R"({"notifyMethod":"status:alarmNotify"})");
    EXPECT_EQ(Registry().GetKeys(), std::vector<std::string>{"status:groupNotify"});
}
