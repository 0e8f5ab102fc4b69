#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CException.h"
#include "ManualClock.h"
#include "RecordingProxy.h"
#include "BufferedLog.h"
#include "TempRoot.h"
#include "control/CFlashStorage.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"

namespace {

namespace fs = std::filesystem;

const std::string kDir = "/var/data/controls/";

class CFlashStorageTest : public ::testing::Test {
protected:
    CFlashStorageTest() : m_dispatcher(m_log) {
        m_storage.BindAllPersistent();
    }

    std::string File(const std::string& code) const { return m_root.Path(kDir + code); }
    void Store(const std::string& code, const std::string& contents) { m_root.WriteFile(kDir + code, contents); }
    bool Logged(const std::string& text) const { return m_log.Logged(text); }

    CTempRoot m_root;
    CBufferedLog m_log{64};
    CManualClock m_clock;
    CEventDispatcher m_dispatcher;
    CRecordingProxy m_proxy;
    CProjCon m_bri{DT_INTEGER, m_dispatcher, m_proxy, "BRI", true, 0, 100, 50, ACCESS_OPERATOR, 0, 0, 0, false};
    CProjCon m_name{DT_TEXT_FREE, m_dispatcher, m_proxy, "NAM", true, 0, 0, "proj", ACCESS_OPERATOR, 0, 0, false};
    CProjCon m_volatile{DT_INTEGER, m_dispatcher, m_proxy, "TMP", false, 0, 9, 1, ACCESS_OPERATOR, 0, 0, 0, false};
    CFlashStorage m_storage{m_dispatcher, m_log, m_clock, kDir, 1000};
};

TEST_F(CFlashStorageTest, SaveWritesPendingControlsOrAllWhenForcedButNeverBindsANonPersistentOne) {
    EXPECT_THROW(m_storage.Bind(m_volatile), CException);
    m_bri.SetValue(70);
    m_volatile.SetValue(5);
    EXPECT_EQ(m_storage.Save(), 1u);
    EXPECT_EQ(CTempRoot::ReadFile(File("BRI")), "70");
    EXPECT_FALSE(m_bri.IsSavePending());
    EXPECT_FALSE(fs::exists(File("NAM")));
    EXPECT_EQ(m_storage.Save(), 0u);

    EXPECT_EQ(m_storage.Save(true), 2u);
    EXPECT_EQ(CTempRoot::ReadFile(File("NAM")), "proj");
    EXPECT_FALSE(fs::exists(File("TMP")));
}

TEST_F(CFlashStorageTest, LoadAllRestoresValuesAndTextsEvenOfReadOnlyControls) {
    CProjCon locked(DT_INTEGER, m_dispatcher, m_proxy, "LCK", true, 0, 9, 1, ACCESS_OPERATOR, 0, 0, 0, true);
    m_storage.Bind(locked);
    Store("BRI", "-0");
    Store("NAM", "lobby projector");
    Store("LCK", "3");
    Store("TMP", "7");
    m_bri.SetValue(20);
    m_storage.LoadAll();
    EXPECT_EQ(m_bri.GetValue(), 0);
    EXPECT_EQ(m_name.GetText(), "lobby projector");
    EXPECT_EQ(locked.GetValue(), 3);
    EXPECT_EQ(m_volatile.GetValue(), 1);
    for (const CProjCon* control : {&m_bri, &m_name, &locked}) {
        EXPECT_FALSE(control->IsSavePending()) << control->GetCode();
    }
    EXPECT_EQ(m_storage.Save(), 0u);
}

TEST_F(CFlashStorageTest, EveryKindAtItsLimitsLoadsBackAfterARestart) {
    std::string everyByte;
    for (int c = 1; c < 256; ++c) {
        everyByte += static_cast<char>(c);
    }
    std::string longest(kMaxControlTextLength, 'x');
    longest.replace(0, everyByte.size(), everyByte);
    // One controller's worth of persistent controls, built anew for each "boot".
    auto boot = [this](CEventDispatcher& dispatcher) {
        std::vector<std::unique_ptr<CProjCon>> made;
        auto add = [&made](CProjCon* control) { made.emplace_back(control); };
        add(new CProjCon(DT_INTEGER, dispatcher, m_proxy, "LOW", true, INT_MIN, INT_MAX, 0, ACCESS_OPERATOR, 0, 0, 0,
                         false));
        add(new CProjCon(DT_INTEGER, dispatcher, m_proxy, "TOP", true, INT_MIN, INT_MAX, 0, ACCESS_OPERATOR, 0, 0, 0,
                         false));
        add(new CProjCon(DT_BOOLEAN, dispatcher, m_proxy, "ONF", true, false, ACCESS_OPERATOR, 0, 0, false));
        add(new CProjCon(DT_LIST, dispatcher, m_proxy, "INP", true, 1, ACCESS_OPERATOR, 0, 0, false));
        made.back()->AddList({SListEntry{1, 0, 0, true, true, "a", ""}, SListEntry{99999, 0, 0, true, true, "b", ""}});
        add(new CProjCon(DT_TEXT_FREE, dispatcher, m_proxy, "BIG", true, 0, 0, "", ACCESS_OPERATOR, 0, 0, false));
        add(new CProjCon(DT_TEXT, dispatcher, m_proxy, "ALL", true, 0, 255, "", ACCESS_OPERATOR, 0, 0, false));
        add(new CProjCon(DT_TEXT_303, dispatcher, m_proxy, "WSP", true, 0, 16, "", ACCESS_OPERATOR, 0, 0, false));
        add(new CProjCon(DT_IPV4_ADDRESS, dispatcher, m_proxy, "IPA", true, 7, 15, "0.0.0.0", ACCESS_OPERATOR, 0, 0,
                         false));
        return made;
    };
    const std::map<std::string, std::string> wanted = {
        {"LOW", std::to_string(INT_MIN)}, {"TOP", std::to_string(INT_MAX)}, {"ONF", "1"},
        {"INP", "99999"}, {"BIG", longest}, {"ALL", everyByte}, {"WSP", " \r\n a \t\n"}, {"IPA", "255.255.255.255"}};
    auto standing = [](const CProjCon& control) {
        return IsTextType(control.GetDisplayType()) ? control.GetText() : std::to_string(control.GetValue());
    };
    {
        CEventDispatcher first(m_log);
        auto made = boot(first);
        for (auto& control : made) {
            const std::string& value = wanted.at(control->GetCode());
            const EError result = IsTextType(control->GetDisplayType()) ? control->SetText(value)
                                                                        : control->SetValue(std::stoi(value));
            ASSERT_EQ(result, ERR_NONE) << control->GetCode();
            ASSERT_EQ(standing(*control), value) << control->GetCode();
        }
        CFlashStorage storage(first, m_log, m_clock, kDir, 1000);
        storage.BindAllPersistent();
        EXPECT_EQ(storage.Save(), made.size());
    }
    CEventDispatcher second(m_log);
    auto made = boot(second);
    CFlashStorage storage(second, m_log, m_clock, kDir, 1000);
    storage.BindAllPersistent();
    storage.LoadAll();
    for (auto& control : made) {
        EXPECT_EQ(standing(*control), wanted.at(control->GetCode())) << control->GetCode();
    }
}

TEST_F(CFlashStorageTest, MissingOrUnreadableFileKeepsDefault) {
    m_storage.LoadAll();
    EXPECT_TRUE(Logged("Load default value of BRI : 50"));
    for (const char* contents : {"12abc", "", "99999999999", "-99999999999", "70\n", "0x10"}) {
        m_log.Clear();
        Store("BRI", contents);
        m_storage.LoadAll();
        EXPECT_EQ(m_bri.GetValue(), 50) << contents;
        EXPECT_TRUE(Logged("Load value of BRI error: ")) << contents;
    }
    EXPECT_TRUE(m_proxy.calls.empty());
}

TEST_F(CFlashStorageTest, StoredValueOutsideTodaysRangeIsLimitedByTheControl) {
    Store("BRI", "150");
    CProjCon input(DT_LIST, m_dispatcher, m_proxy, "INP", true, 1, ACCESS_OPERATOR, 0, 0, false);
    input.AddList({{1, 0, 0, true, true, "", ""}, {2, 0, 0, true, true, "", ""}});  // entries 1 and 2
    m_storage.Bind(input);
    Store("INP", "7");
    m_storage.LoadAll();
    // An integer is clamped and kept (the file is rewritten only at its next change)...
    EXPECT_EQ(m_bri.GetValue(), 100);
    EXPECT_FALSE(m_bri.IsSavePending());
    // ...while a list entry that no longer exists leaves the default.
    EXPECT_EQ(input.GetValue(), 1);
    EXPECT_TRUE(Logged("Load value of INP error: "));
}

TEST_F(CFlashStorageTest, FailedSaveKeepsOldFileAndSavePending) {
    // The temporary file cannot be made: the good file stays as it was.
    Store("BRI", "70");
    m_root.MakeDir(kDir + ".BRI.tmp");
    m_bri.SetValue(80);
    EXPECT_EQ(m_storage.Save(), 0u);
    EXPECT_TRUE(Logged("Save value of BRI error: "));
    EXPECT_TRUE(m_bri.IsSavePending());
    EXPECT_EQ(CTempRoot::ReadFile(File("BRI")), "70");

    // The directory has gone and a file stands in its place.
    fs::remove_all(m_root.Path(kDir));
    m_root.WriteFile("/var/data/controls", "not a directory");
    EXPECT_EQ(m_storage.Save(), 0u);
    EXPECT_EQ(m_log.Count("Save value of BRI error: "), 2u);
    EXPECT_TRUE(m_bri.IsSavePending());
    EXPECT_EQ(CTempRoot::ReadFile(m_root.Path("/var/data/controls")), "not a directory");
}

TEST_F(CFlashStorageTest, AWriteThatFailedInTheLoopIsTriedAgainAfterTheDelay) {
    m_root.MakeDir(kDir + ".BRI.tmp");
    m_bri.SetValue(80);
    m_dispatcher.Update();
    m_clock.AdvanceMs(1000);
    m_dispatcher.Update();
    EXPECT_TRUE(Logged("Save value of BRI error: "));

    fs::remove(m_root.Path(kDir + ".BRI.tmp"));
    m_dispatcher.Update();  // no change since: still pending all the same
    m_clock.AdvanceMs(1000);
    m_dispatcher.Update();
    EXPECT_EQ(CTempRoot::ReadFile(File("BRI")), "80");
    EXPECT_FALSE(m_bri.IsSavePending());
}

TEST_F(CFlashStorageTest, DispatcherUpdateSavesBurstOnceAfterTheDelay) {
    m_bri.SetValue(60);
    m_dispatcher.Update();
    m_clock.AdvanceMs(999);
    m_bri.SetValue(61);
    m_bri.SetValue(62);
    m_dispatcher.Update();
    EXPECT_FALSE(fs::exists(File("BRI")));

    m_clock.AdvanceMs(1);
    m_dispatcher.Update();
    EXPECT_EQ(CTempRoot::ReadFile(File("BRI")), "62");
    for (int i = 0; i < 3; ++i) {
        m_clock.AdvanceMs(5000);
        m_dispatcher.Update();
    }
    EXPECT_EQ(m_log.Count("save value of BRI"), 1u);

    // A later change waits its own delay from the moment it is seen.
    m_bri.SetValue(63);
    m_dispatcher.Update();
    m_clock.AdvanceMs(999);
    m_dispatcher.Update();
    EXPECT_EQ(CTempRoot::ReadFile(File("BRI")), "62");
    m_clock.AdvanceMs(1);
    m_dispatcher.Update();
    EXPECT_EQ(CTempRoot::ReadFile(File("BRI")), "63");
}


}  // namespace
