#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ThrownMessage.h"
#include "status/CStatusDb.h"
#include "text/NText.h"

namespace {

const SStatusDesc kLamp[] = {
    {1, 101, 0, "Off", 0, nullptr, 0},
    {3, 103, 0, "", 0, "detail", 0},
    {-2, 102, kStatusStickyFlag, "", 0, nullptr, 0},
};
const SStatusDesc kFan[] = {{7, 201, 0, "", 0, nullptr, 0}};

struct SCountingListener : IStatusListener {
    int calls = 0;
    void StatusAlarmsChanged() override { ++calls; }
};

class CStatusDbTest : public ::testing::Test {
protected:
    CStatusDbTest() : db(4, "test", [this](int id) { return texts.count(id) ? texts[id] : NText::GetString(id); }) {
        db.AddStatusGroup(kLamp, 3, "Lamp", 301, "lamp.png");
        db.AttachListener(&listener);
    }

    // "group:index" of every alarm, in list order.
    std::vector<std::string> Alarms() const {
        std::vector<std::string> keys;
        for (const SStatus& alarm : db.GetAlarmList()) {
            keys.push_back(alarm.group + ":" + std::to_string(alarm.index));
        }
        return keys;
    }

    std::map<int, std::string> texts{{101, "Power"}, {102, "Hours"}, {301, "Lamp group"}};
    CStatusDb db;
    SCountingListener listener;
};

using Keys = std::vector<std::string>;

TEST_F(CStatusDbTest, StickyBitIsKeptFromTheOldFlagsOnly) {
    db.UpdateStatusValue("Lamp", -2, 1, 1200);
    EXPECT_EQ(db.GetStatusValue("Lamp", -2).flags, kStatusStickyFlag | 1);
    db.UpdateStatusValue("Lamp", -2, 0, 1300);
    EXPECT_EQ(db.GetStatusValue("Lamp", -2).flags, kStatusStickyFlag);
    db.UpdateStatusValue("Lamp", 1, kStatusStickyFlag | 1, "x");  // cannot be gained by an update
    EXPECT_EQ(db.GetStatusValue("Lamp", 1).flags, 1);
}

TEST_F(CStatusDbTest, AlarmsOrderBySignedFlagsThenGroupsInOrderOfAddingThenIndex) {
    db.AddStatusGroup(kFan, 1, "Fan");
    db.AddStatusGroup(kFan, 1, "Aux");
    db.UpdateStatusValue("Fan", 7, 2, "f");
    db.UpdateStatusValue("Aux", 7, 1, "a");
    db.UpdateStatusValue("Lamp", 3, 1, "b");
    db.UpdateStatusValue("Lamp", 1, 1, "a");
    db.UpdateStatusValue("Lamp", -2, static_cast<short>(0x8001), "c");  // negative as a signed word
    EXPECT_EQ(Alarms(), (Keys{"Lamp:-2", "Lamp:1", "Lamp:3", "Aux:7", "Fan:7"}));
}

TEST_F(CStatusDbTest, AlarmCopyFollowsEveryLaterStore) {
    db.UpdateStatusValue("Lamp", 1, 1, "a");
    db.UpdateStatusValue("Lamp", 3, 1, "b");
    db.UpdateStatusValue("Lamp", 1, 1, "a", "new detail");      // same value: number and text only
    db.UpdateStatusValue("Lamp", 1, 1 | 0x10, "a", "new detail");  // other flag bits move it
    ASSERT_EQ(Alarms(), (Keys{"Lamp:3", "Lamp:1"}));
    EXPECT_EQ(db.GetAlarmList()[1].text, "new detail");
    EXPECT_EQ(db.GetAlarmList()[1].labelText, "Power");
}

TEST_F(CStatusDbTest, ListenerHearsOnlyWhenAGroupMaskChangesAndTheSameStoreChangesNothing) {
    db.UpdateStatusValue("Lamp", 1, 1, 42, "a");
    const std::vector<SStatus> before = db.GetAlarmList();
    db.UpdateStatusValue("Lamp", 1, 1, 42, "a");
    ASSERT_EQ(db.GetAlarmCount(), 1u);
    EXPECT_EQ(db.GetAlarmList()[0].value, before[0].value);
    EXPECT_EQ(db.GetAlarmList()[0].flags, before[0].flags);
    EXPECT_EQ(listener.calls, 1);
    db.UpdateStatusValue("Lamp", 3, 1, "b");  // mask stays 1
    db.UpdateStatusValue("Lamp", 1, 1, "changed");
    EXPECT_EQ(listener.calls, 1);
    db.UpdateStatusValue("Lamp", 1, 2, "c");  // mask 1 -> 3
    EXPECT_EQ(listener.calls, 2);
    db.RemoveStatusItem("Lamp", 1);  // mask 3 -> 1
    EXPECT_EQ(listener.calls, 3);
    EXPECT_EQ(Alarms(), Keys{"Lamp:3"});
    EXPECT_FALSE(db.IsValidIndex("Lamp", 1));
}

TEST_F(CStatusDbTest, AddedGroupKeepsItemsByIndexAndListsInitialAlarms) {
    std::vector<short> indexes;
    for (const SStatus& item : db.GetOrderedStatusGroup("Lamp")) {
        indexes.push_back(item.index);
    }
    EXPECT_EQ(indexes, (std::vector<short>{-2, 1, 3}));
    EXPECT_TRUE(db.IsValidIndex("Lamp", -2));
    EXPECT_FALSE(db.IsValidIndex("Lamp", 2));
    EXPECT_FALSE(db.IsValidIndex("Nope", 1));

    const SStatusDesc failing[] = {{4, 0, 3, "bad", 0, nullptr, 0}};
    db.AddStatusGroup(failing, 1, "Fan");
    EXPECT_EQ(Alarms(), Keys{"Fan:4"});
    EXPECT_EQ(db.GetAlarmSummary(), 3);
    EXPECT_EQ(listener.calls, 1);
}

TEST_F(CStatusDbTest, BadCallsAreReportedAndChangeNothing) {
    db.UpdateStatusValue("Lamp", 1, 1, "a");
    const SStatusDesc twice[] = {{1, 0, 1, "", 0, nullptr, 0}, {1, 0, 0, "", 0, nullptr, 0}};
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[&] { db.FindGroupIndex("Nope"); }, "Status group does not exist Nope"},
        {[&] { db.GetStatusValue("Nope", 1); }, "Cannot retrieve invalid status group Nope:1"},
        {[&] { db.GetStatusValue("Lamp", 9); }, "Cannot retrieve invalid status item Lamp:9"},
        {[&] { db.UpdateStatusValue("Lamp", 9, 1, "x"); }, "Cannot update invalid status item Lamp:9"},
        {[&] { db.UpdateStatusValue("Nope", 1, 1, 5); }, "Cannot update invalid status item Nope:1"},
        {[&] { db.RemoveStatusItem("Lamp", 9); }, "Cannot remove invalid status item Lamp:9"},
        {[&] { db.AddStatusGroup(kFan, 1, "Lamp"); }, "Status group already exists Lamp"},
        {[&] { db.AddStatusGroup(kFan, -1, "Fan"); }, "Invalid status descriptions for group Fan"},
        {[&] { db.AddStatusGroup(kFan, 1, ""); }, "Invalid status group name"},
        {[&] { db.AddStatusGroup(twice, 2, "Fan"); }, "Duplicate status item Fan:1"},
        {[&] {
             CStatusDb small(1, "small");
             small.AddStatusGroup(kFan, 1, "Fan");
             small.AddStatusGroup(kFan, 1, "Aux");
         },
         "Cannot create status group Aux, statusDB is at its capacity (1)"},
    };
    for (const auto& [action, message] : cases) {
        EXPECT_EQ(ThrownMessage(action), message);
    }
    EXPECT_FALSE(db.StoreStatusValue("Lamp", 9, 1, "x", 0, ""));
    EXPECT_FALSE(db.HasGroup("Fan"));
    EXPECT_EQ(Alarms(), Keys{"Lamp:1"});
    EXPECT_EQ(db.GetAlarmSummary(), 1);
    EXPECT_EQ(db.GetOrderedStatusGroup("Lamp").size(), 3u);
    EXPECT_EQ(listener.calls, 1);
}

TEST_F(CStatusDbTest, SummaryStartsWithTheAlarmWordThenGroupsInOrderOfAdding) {
    db.AddStatusGroup(kFan, 1, "Fan", 0, "fan.png");
    db.UpdateStatusValue("Fan", 7, 2, "stalled");
    Keys entries;
    for (const SStatusSummaryEntry& entry : db.GetSummary()) {
        entries.push_back(entry.code + " " + std::to_string(entry.value) + " " + entry.label + " " + entry.icon);
    }
    EXPECT_EQ(entries, (Keys{"ALRM 2 Alarms ", "Lamp 0 Lamp group lamp.png", "Fan 2  fan.png"}));
}

TEST_F(CStatusDbTest, SwitchLanguageFetchesEveryCachedTextAgain) {
    db.UpdateStatusValue("Lamp", 1, 1, "a");
    texts[101] = "Puissance";
    texts[301] = "Lampe";
    EXPECT_EQ(db.GetStatusValue("Lamp", 1).labelText, "Power");
    db.SwitchLanguage();
    EXPECT_EQ(db.GetStatusValue("Lamp", 1).labelText, "Puissance");
    EXPECT_EQ(db.GetAlarmList()[0].labelText, "Puissance");
    EXPECT_EQ(db.GetSummary()[1].label, "Lampe");
}

}  // namespace
