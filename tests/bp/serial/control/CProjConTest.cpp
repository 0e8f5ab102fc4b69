#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "CException.h"
#include "RecordingNotifier.h"
#include "BufferedLog.h"
#include "RecordingProxy.h"
#include "ThrownMessage.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"

namespace {

EDisplayType Type(int type) { return static_cast<EDisplayType>(type); }

SListEntry Entry(int value, bool selectable = true, const std::string& text = "") {
    return {value, 0, 0, true, selectable, text, ""};
}

class CProjConTest : public ::testing::Test {
protected:
    CProjConTest() : m_dispatcher(m_log) {
        m_dispatcher.SetJsonNotifier(&m_notifier);
        for (const char* code : {"BRI", "INP", "NAM", "IPA", "MNU", "CUS"}) {
            m_dispatcher.GetNotificationManager().NotifyRegister(code, "JSON_TCP.1");
        }
    }

    std::unique_ptr<CProjCon> Integer(int min, int max, int value, int type = DT_INTEGER, bool persistent = false,
                                      bool readOnly = false, unsigned char decimals = 0) {
        return std::make_unique<CProjCon>(Type(type), m_dispatcher, m_proxy, "BRI", persistent, min, max, value,
                                          ACCESS_OPERATOR, 0, 0, decimals, readOnly);
    }
    std::unique_ptr<CProjCon> Text(int type, int minLength, int maxLength, const std::string& text,
                                   const std::string& code = "NAM") {
        return std::make_unique<CProjCon>(Type(type), m_dispatcher, m_proxy, code, true, minLength, maxLength, text,
                                          ACCESS_OPERATOR, 0, 0, false);
    }
    std::unique_ptr<CProjCon> List(int value, int type = DT_LIST, const std::string& code = "INP") {
        return std::make_unique<CProjCon>(Type(type), m_dispatcher, m_proxy, code, false, value, ACCESS_OPERATOR, 0,
                                          0, false);
    }
    std::unique_ptr<CProjCon> Action(int type, const std::string& code, int continueText = 0) {
        return std::make_unique<CProjCon>(Type(type), m_dispatcher, m_proxy, code, false, ACCESS_OPERATOR, 0, 0,
                                          continueText, false);
    }
    std::unique_ptr<CProjCon> Boolean(int type, const std::string& code = "BRI") {
        return std::make_unique<CProjCon>(Type(type), m_dispatcher, m_proxy, code, false, false, ACCESS_OPERATOR, 0,
                                          0, false);
    }
    std::unique_ptr<CProjCon> Menu(int type, const std::string& code) {
        return std::make_unique<CProjCon>(Type(type), m_dispatcher, m_proxy, code, 0, 0, "text");
    }

    std::vector<int> NoticeTypes() const {
        std::vector<int> types;
        for (const auto& notice : m_notifier.notices) {
            types.push_back(notice.type);
        }
        return types;
    }
    bool Logged(const std::string& text) const { return m_log.Logged(text); }

    CBufferedLog m_log{64};
    CEventDispatcher m_dispatcher;
    CRecordingProxy m_proxy;
    CRecordingNotifier m_notifier;
};

TEST_F(CProjConTest, ConstructorRejectsInvalidArgumentsAndLeavesNoRegistration) {
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[&] { Integer(10, 0, 5); }, "Invalid min/max range 10 < 0"},
        {[&] { Integer(0, 10, 11); }, "Invalid default value 0 < 11 < 10"},
        {[&] { Integer(0, 10, 5, 300); }, "Invalid integer type 300"},
        {[&] { Integer(0, 10, 5, DT_INTEGER, false, false, 8); }, "Invalid number of decimals 8"},
        {[&] { Boolean(200); }, "Invalid boolean type 200"},
        {[&] { List(0, DT_INTEGER, "BRI"); }, "Invalid list type 200"},
        {[&] { Action(DT_BOOLEAN, "BRI"); }, "Invalid action type 100"},
        {[&] { Menu(500, "BRI"); }, "Invalid menu/custom type 500"},
        {[&] { Text(300, 5, 2, "abc", "BRI"); }, "Invalid min/max range 5 < 2"},
        {[&] { Text(303, 2, 4, "abcdef", "BRI"); }, "Invalid default string length 2 < abcdef < 4"},
        {[&] { Text(302, 0, 9, "abc", "BRI"); }, "Invalid string type 302"},
        {[&] { Text(DT_IPV4_ADDRESS, 7, 15, "abc", "BRI"); }, "Add Control BRI invalid default value: abc.  Err: 104"},
        {[&] { Text(DT_IPV4_ADDRESS, 0, 15, "1.2.3.400", "bri"); },
         "Add Control BRI invalid default value: 1.2.3.400.  Err: 104"},
    };
    for (const auto& [make, message] : cases) {
        EXPECT_EQ(ThrownMessage(make), message);
        EXPECT_EQ(m_dispatcher.GetControl("BRI"), nullptr) << message;
    }
    EXPECT_EQ(ThrownMessage([&] { Boolean(100, "1AB"); }), "1AB Invalid control code");
    EXPECT_NE(Integer(0, 10, 5), nullptr);
}

TEST_F(CProjConTest, RegistersOnceUnderUpperCasedCodeUntilDestroyedWithItsBaseDisplayType) {
    auto action = Action(550, "ACT", 7);
    EXPECT_EQ(action->GetDisplayType(), DT_ACTION);
    EXPECT_EQ(action->GetContinueText(), 7);
    auto first = Boolean(150, "bri");
    EXPECT_EQ(first->GetCode(), "BRI");
    EXPECT_EQ(first->GetDisplayType(), DT_BOOLEAN);
    EXPECT_EQ(m_dispatcher.GetControl("BRI"), first.get());
    EXPECT_EQ(ThrownMessage([&] { Integer(0, 10, 5); }), "BRI Control already exists.");
    EXPECT_EQ(ThrownMessage([&] { Boolean(100, "Bri"); }), "BRI Control already exists.");
    EXPECT_EQ(m_dispatcher.GetControl("BRI"), first.get());
    first.reset();
    EXPECT_EQ(m_dispatcher.GetControl("BRI"), nullptr);
}

TEST_F(CProjConTest, ClampedValueIsAppliedAndNotifiedEvenWhenUnchanged) {
    auto control = Integer(0, 100, 100);
    EXPECT_EQ(control->SetValue(150), ERR_NONE);
    EXPECT_EQ(control->GetValue(), 100);
    ASSERT_EQ(m_proxy.calls.size(), 1u);
    EXPECT_EQ(m_proxy.calls[0].value, 100);
    ASSERT_EQ(NoticeTypes(), std::vector<int>{NOTIFY_VALUE});
    EXPECT_EQ(m_notifier.notices[0].value, 100);

    // The same value asked for exactly reaches the hardware again but is no news.
    EXPECT_EQ(control->SetValue(100), ERR_NONE);
    EXPECT_EQ(m_proxy.calls.size(), 2u);
    EXPECT_EQ(m_notifier.notices.size(), 1u);
}

TEST_F(CProjConTest, SoftMaximumLimitsEvenWhenDisabledSoftMinimumOnlyWhenEnabled) {
    auto control = Integer(0, 100, 50, DT_INTEGER_SOFT_LIMITS);
    EXPECT_EQ(control->SetSoftRange(10, false, 80, false), ERR_NONE);
    EXPECT_EQ(control->SetValue(90), ERR_NONE);
    EXPECT_EQ(control->GetValue(), 80);
    EXPECT_EQ(control->SetValue(5), ERR_NONE);
    EXPECT_EQ(control->GetValue(), 5);

    // Enabling the soft minimum moves the current value up to it.
    EXPECT_EQ(control->SetSoftRange(10, true, 80, false), ERR_NONE);
    EXPECT_EQ(control->GetValue(), 10);
    control->SetValue(0);
    EXPECT_EQ(control->GetValue(), 10);

    EXPECT_EQ(control->SetSoftRange(20, true, 10, true), ERR_INVALID_VALUE);
    EXPECT_EQ(control->SetSoftRange(0, true, 101, true), ERR_INVALID_VALUE);
    control.reset();
    EXPECT_EQ(Integer(0, 100, 50)->SetSoftRange(0, true, 80, true), ERR_WRONG_CONTROL_TYPE);
}

TEST_F(CProjConTest, ListTakesOnlyItsSelectableEntriesUnlessForced) {
    auto control = List(1);
    EXPECT_EQ(control->SetValue(1), ERR_INVALID_VALUE);
    control->AddList({Entry(1), Entry(2), Entry(3, false)});

    EXPECT_EQ(control->SetValue(7), ERR_INVALID_VALUE);
    EXPECT_EQ(control->GetValue(), 1);
    EXPECT_EQ(control->SetValue(3), ERR_DISABLED_CONTROL);
    EXPECT_EQ(control->GetValue(), 1);
    for (EChangeMode mode : {CHANGE_UPDATE_HARDWARE, CHANGE_STORE_ONLY}) {
        control->SetValue(1);
        EXPECT_EQ(control->SetValue(3, mode), ERR_NONE) << mode;
        EXPECT_EQ(control->GetValue(), 3) << mode;
    }
}

TEST_F(CProjConTest, MenuIgnoresItsCurrentValueButCustomAnnouncesItAgain) {
    auto menu = Menu(DT_MENU, "MNU");
    EXPECT_EQ(menu->SetValue(0), ERR_NONE);
    EXPECT_EQ(menu->Refresh(CHANGE_NORMAL), ERR_NONE);
    EXPECT_EQ(menu->Refresh(CHANGE_UPDATE_HARDWARE), ERR_NONE);
    EXPECT_TRUE(m_proxy.calls.empty());
    EXPECT_TRUE(m_notifier.notices.empty());

    auto custom = Menu(DT_CUSTOM, "CUS");
    EXPECT_EQ(custom->SetValue(custom->GetValue()), ERR_NONE);
    EXPECT_EQ(m_proxy.calls.size(), 1u);
    EXPECT_EQ(NoticeTypes(), std::vector<int>{NOTIFY_VALUE});
}

TEST_F(CProjConTest, TextIsNormalisedCutOrRejectedAndKindsAreNotMixed) {
    auto control = Text(DT_IPV4_ADDRESS, 7, 15, "0.0.0.0", "IPA");
    EXPECT_EQ(control->SetText("010.1.1.1"), ERR_NONE);
    EXPECT_EQ(control->GetText(), "10.1.1.1");
    for (const char* bad : {"256.1.1.1", "1.2.3", "1.2.3.4.5", "a.b.c.d", "1.2.3.4.", "1..2.3", "1.2.3.-4"}) {
        EXPECT_EQ(control->SetText(bad), ERR_INVALID_VALUE) << bad;
        EXPECT_EQ(control->GetText(), "10.1.1.1") << bad;
    }
    EXPECT_EQ(m_log.GetContents(), "");  // an address is rejected quietly

    auto text = Text(DT_TEXT, 2, 5, "abc");
    EXPECT_EQ(text->SetText("abcdefgh"), ERR_NONE);
    EXPECT_EQ(text->GetText(), "abcde");
    EXPECT_EQ(text->SetText("a"), ERR_INVALID_VALUE);
    EXPECT_EQ(text->GetText(), "abcde");
    EXPECT_EQ(text->SetValue(1), ERR_WRONG_CONTROL_TYPE);

    auto number = Integer(0, 10, 5);
    EXPECT_EQ(number->SetText("7"), ERR_WRONG_CONTROL_TYPE);
    EXPECT_EQ(number->GetValue(), 5);
}

TEST_F(CProjConTest, ReadOnlyControlTakesOnlyForcedChangesAndUpdateHardwareStillReappliesIt) {
    auto control = Integer(0, 100, 5, DT_INTEGER, false, true);
    EXPECT_FALSE(control->GetEnabled());
    m_notifier.notices.clear();
    EXPECT_EQ(control->SetValue(6), ERR_DISABLED_CONTROL);
    EXPECT_EQ(control->GetValue(), 5);

    EXPECT_EQ(control->SetValue(6, CHANGE_STORE_ONLY), ERR_NONE);
    EXPECT_EQ(control->GetValue(), 6);
    EXPECT_TRUE(m_proxy.calls.empty());
    ASSERT_EQ(NoticeTypes(), std::vector<int>{NOTIFY_VALUE});

    EXPECT_EQ(control->SetValue(7, CHANGE_UPDATE_HARDWARE), ERR_NONE);
    EXPECT_TRUE(control->UpdateHardware());
    ASSERT_EQ(m_proxy.calls.size(), 2u);
    EXPECT_EQ(m_proxy.calls[0].value, 7);
    EXPECT_EQ(m_proxy.calls[1].value, 7);

    m_proxy.refusedValues = {7};
    EXPECT_FALSE(control->UpdateHardware());
    EXPECT_TRUE(Logged("BRI UpdateHardware() failed"));
    m_proxy.calls.clear();
    m_notifier.notices.clear();
    EXPECT_EQ(control->Refresh(CHANGE_STORE_ONLY), ERR_NONE);
    EXPECT_TRUE(m_proxy.calls.empty());
    EXPECT_EQ(NoticeTypes(), std::vector<int>{NOTIFY_VALUE});
}

TEST_F(CProjConTest, EnabledCombinesFlagsAndAnnouncesEachChangeOnce) {
    auto control = Integer(0, 10, 5);
    const std::vector<std::function<void(bool)>> disablers = {
        [&](bool on) { control->SetReadOnly(on); },
        [&](bool on) { control->SetReserved(on); },
        [&](bool on) { control->SetLocked(on); },
        [&](bool on) { control->SetProgEnabled(!on); },
    };
    for (size_t i = 0; i < disablers.size(); ++i) {
        m_notifier.notices.clear();
        disablers[i](true);
        disablers[i](true);
        EXPECT_FALSE(control->GetEnabled()) << i;
        disablers[(i + 1) % disablers.size()](true);
        disablers[i](false);
        EXPECT_FALSE(control->GetEnabled()) << i;
        disablers[(i + 1) % disablers.size()](false);
        EXPECT_TRUE(control->GetEnabled()) << i;
        EXPECT_EQ(NoticeTypes(), (std::vector<int>{NOTIFY_ENABLED, NOTIFY_ENABLED})) << i;
    }
}

TEST_F(CProjConTest, RefusedChangeRevertsWithoutPendingSaveAndOnlyAValueIsAnnouncedAgain) {
    auto control = Integer(0, 100, 10, DT_INTEGER, true);
    m_proxy.refusedValues = {30};
    m_proxy.throwValues = {40};
    for (int refused : {30, 40}) {
        m_notifier.notices.clear();
        EXPECT_EQ(control->SetValue(refused), ERR_HARDWARE_REFUSED) << refused;
        EXPECT_EQ(control->GetValue(), 10);
        ASSERT_EQ(NoticeTypes(), std::vector<int>{NOTIFY_VALUE});
        EXPECT_EQ(m_notifier.notices[0].value, 10);
        EXPECT_TRUE(Logged("BRI ApplyValue(" + std::to_string(refused) + ") failed!!! reverting value: 10"));
        EXPECT_FALSE(control->IsSavePending());
    }

    auto text = Text(DT_TEXT_FREE, 0, 0, "abc");
    m_proxy.refusedTexts = {"bad"};
    m_notifier.notices.clear();
    EXPECT_EQ(text->SetText("bad"), ERR_HARDWARE_REFUSED);
    EXPECT_EQ(text->GetText(), "abc");
    EXPECT_TRUE(m_notifier.notices.empty());
    EXPECT_TRUE(Logged("NAM ApplyText(bad) failed!!! reverting text: abc"));
    EXPECT_FALSE(text->IsSavePending());
}

TEST_F(CProjConTest, TextWithANulOrOverTheLimitIsRefusedAndAFailingListenerCannotUndoAChange) {
    auto text = Text(DT_TEXT_FREE, 0, 0, "abc");
    EXPECT_EQ(text->SetText(std::string("a\0b", 3)), ERR_INVALID_PARAMETER);
    EXPECT_EQ(text->SetText(std::string(kMaxControlTextLength + 1, 'x')), ERR_INVALID_VALUE);
    EXPECT_EQ(text->GetText(), "abc");
    EXPECT_THROW(Text(DT_TEXT, 0, static_cast<int>(kMaxControlTextLength) + 1, "", "LNG"), CException);
    EXPECT_EQ(text->SetRange(0, static_cast<int>(kMaxControlTextLength) + 1), ERR_WRONG_CONTROL_TYPE);

    struct CFailingNotifier : IControlNotifier {
        void MakeNotification(const CProjCon&, ENotifyType, const std::list<std::string>&) override {
            throw CException("MakeNotification", "test", 1, false, "listener gone");
        }
    } failing;
    m_dispatcher.SetJsonNotifier(&failing);
    EXPECT_EQ(text->SetText(std::string(kMaxControlTextLength, 'y')), ERR_NONE);
    EXPECT_EQ(text->GetText().size(), kMaxControlTextLength);
    EXPECT_TRUE(text->IsSavePending());
    EXPECT_TRUE(Logged("NAM Announcing a change failed: listener gone"));
    m_dispatcher.SetJsonNotifier(&m_notifier);
}

TEST_F(CProjConTest, SetRangeAnnouncesAndClampsValueAndDefaultAndAnInvalidNewDefaultThrows) {
    auto control = Integer(0, 100, 80);
    EXPECT_EQ(control->SetRange(0, 50), ERR_NONE);
    EXPECT_EQ(control->GetMaxValue(), 50);
    EXPECT_EQ(control->GetValue(), 50);
    EXPECT_EQ(control->GetDefaultValue(), 50);
    EXPECT_EQ(NoticeTypes(), (std::vector<int>{NOTIFY_RANGE, NOTIFY_VALUE}));
    EXPECT_EQ(m_notifier.notices.back().value, 50);

    m_notifier.notices.clear();
    EXPECT_EQ(control->SetRange(60, 10), ERR_INVALID_VALUE);
    EXPECT_EQ(control->GetMinValue(), 0);
    EXPECT_EQ(control->GetMaxValue(), 50);
    EXPECT_TRUE(m_notifier.notices.empty());
    EXPECT_EQ(ThrownMessage([&] { control->SetDefaultValue(51); }), "New default value for BRI (51) is not valid");
    control->SetDefaultValue(0);
    EXPECT_EQ(control->GetDefaultValue(), 0);

    auto address = Text(DT_IPV4_ADDRESS, 7, 15, "1.1.1.1", "IPA");
    EXPECT_EQ(ThrownMessage([&] { address->SetDefaultText("abc"); }), "New default text for IPA (abc) is not valid");
    EXPECT_EQ(address->GetDefaultText(), "1.1.1.1");
    control.reset();
    EXPECT_EQ(Boolean(100)->SetRange(0, 5), ERR_WRONG_CONTROL_TYPE);
    EXPECT_EQ(List(1)->SetRange(0, 5), ERR_WRONG_CONTROL_TYPE);
}

TEST_F(CProjConTest, ListEditingAnnouncesAndTracksBoundsButKeepsValue) {
    auto control = List(5);
    control->AddList({Entry(5), Entry(2), Entry(9)});
    EXPECT_EQ(control->GetMinValue(), 2);
    EXPECT_EQ(control->GetMaxValue(), 9);

    control->SetListEntry(Entry(2, true, "two"));
    ASSERT_EQ(control->GetListSize(), 3u);
    EXPECT_EQ(control->GetList()[1].text, "two");
    EXPECT_EQ(control->GetList()[2].value, 9);

    EXPECT_TRUE(control->RemoveListEntry(9));
    EXPECT_FALSE(control->RemoveListEntry(42));
    EXPECT_EQ(control->GetMaxValue(), 5);
    EXPECT_TRUE(control->RemoveListEntry(5));
    control->ClearList();
    EXPECT_EQ(control->GetListSize(), 0u);
    EXPECT_EQ(control->GetValue(), 5);
    EXPECT_EQ(NoticeTypes(), std::vector<int>(5, NOTIFY_LIST));
    EXPECT_TRUE(m_proxy.calls.empty());

    auto number = Integer(0, 10, 5);
    EXPECT_THROW(number->AddList({Entry(1)}), CException);
    EXPECT_THROW(number->SetListEntry(Entry(1)), CException);
    EXPECT_THROW(number->RemoveListEntry(1), CException);
    EXPECT_THROW(number->ClearList(), CException);
}

}  // namespace
