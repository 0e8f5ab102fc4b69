// The controller's IPC front door end to end: a real controller thread serving a socket
// under a temporary root, reached by real event links.

#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ControllerFixture.h"
#include "ipc/CDomainSocket.h"
#include "ipc/CIpcClient.h"

namespace {

class CIpcEventDispatcherTest : public CControllerFixture {
protected:
    // One request exchange; the replies in order.
    std::list<CIpcMessage> Request(const std::string& code, const std::string& subcode, int access,
                                   unsigned char modifier = 0, int argument = -1, EParmFlags flags = PARM_TEXT) {
        CIpcMessage request = Message(code, subcode);
        if (modifier != 0) {
            request.AddArg(0, argument < 0 ? 0 : argument, flags, modifier);
        }
        std::list<CIpcMessage> replies;
        link->SendRequest(access, request, replies, 5000);
        return replies;
    }

    // The single reply of a request (an empty message, after a failure, when there is not exactly one).
    static CIpcMessage Only(const std::list<CIpcMessage>& replies) {
        EXPECT_EQ(replies.size(), 1u);
        return replies.size() == 1 ? replies.front() : CIpcMessage();
    }

    // A command setting `code` to `value`, optionally with a modifier.
    CIpcMessage Set(const std::string& code, int value, unsigned char modifier = 0) const {
        CIpcMessage command = Message(code);
        command.AddArg(0, value, PARM_TEXT, modifier);
        return command;
    }

    std::list<std::string> Recipients(const std::string& code) {
        std::list<std::string> recipients;
        controller->RunOnController([&] { dispatcher.GetIpcNotifyRecipientList(code, recipients); });
        return recipients;
    }

    EError Command(CIpcMessage command, CIpcMessage& reply, int access = ACCESS_OPERATOR) {
        return link->SendCommand(access, command, reply, 5000);
    }
};

}  // namespace

TEST_F(CIpcEventDispatcherTest, ASetAnswersTheValueThatStandsAndIsLoggedAsInternal) {
    int value = 150;
    EXPECT_EQ(link->SetValue(ACCESS_OPERATOR, "BRI", "", value, true), ERR_NONE);
    EXPECT_EQ(value, 100);  // clamped, and the value that stands comes back
    EXPECT_TRUE(Logged("Processing CMD from " + link->GetClientSocketName() + ": BRI (set:150) (internal)"));
}

TEST_F(CIpcEventDispatcherTest, CommandErrorsCarryTheValueThatStands) {
    CIpcMessage reply;
    EXPECT_EQ(Command(Set("XXX", 1), reply), ERR_CONTROL_NOT_FOUND);
    EXPECT_TRUE(Logged("XXX NOT FOUND!"));

    EXPECT_EQ(Command(Message("BRI"), reply), ERR_TOO_FEW_PARAMETERS);
    CIpcMessage two = Set("BRI", 1);
    two.AddArg(1, 2);
    EXPECT_EQ(Command(two, reply), ERR_TOO_MANY_PARAMETERS);

    EXPECT_EQ(Command(Set("BRI", 20, 'D'), reply), ERR_INVALID_PARAMETER);
    EXPECT_EQ(Arg(reply, CIpcMessage::kErrorTextParm), "Unsupported modifier");

    controller->RunOnController([&] { proxy.refusedValues.insert(33); });  // the proxy is the controller's
    EXPECT_EQ(Command(Set("BRI", 33), reply), ERR_HARDWARE_REFUSED);
    EXPECT_EQ(Arg(reply, 0), "50");

    EXPECT_EQ(Command(Set("RDO", 3), reply), ERR_DISABLED_CONTROL);
    EXPECT_EQ(Arg(reply, CIpcMessage::kErrorTextParm), "This control is read-only");
    EXPECT_EQ(Arg(reply, 0), "0");

    int value = 0;
    EXPECT_EQ(link->GetValue(ACCESS_OPERATOR, "BRI", "", value), ERR_NONE);
    EXPECT_EQ(value, 50);
}

TEST_F(CIpcEventDispatcherTest, AccessLevelComesFromParameter231) {
    CIpcMessage reply;
    EXPECT_EQ(Command(Set("FAC", 4), reply, ACCESS_SERVICE), ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(Command(Set("FAC", 4), reply, ACCESS_FACTORY), ERR_NONE);
    // Without a level the sender counts as 1, below the default group 2.
    int value = 5;
    EXPECT_EQ(link->SetValue(CEventLink::kNoAccessLevel, "BRI", "", value, false), ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(link->GetValue(0, "LMP", "", value), ERR_INVALID_ACCESS_GROUP);
}

TEST_F(CIpcEventDispatcherTest, AttributeRequestsEchoTheirModifier) {
    const struct {
        const char* code;
        unsigned char modifier;
        std::string expected;
    } cases[] = {{"BRI", 'D', "50"}, {"NAM", 'D', "Projector"}, {"RDO", 'E', "1"}, {"BRI", 'E', "0"},
                 {"FAC", 'G', "5"},  {"BRI", 'T', "200"},       {"BRI", 'C', "0"}, {"LMP", 'N', "On"}};
    for (const auto& c : cases) {
        const CIpcMessage reply = Only(Request(c.code, "", ACCESS_FACTORY, c.modifier));
        EXPECT_EQ(Arg(reply, 0), c.expected) << c.code << c.modifier;
        unsigned char modifier = 0;
        reply.GetModifier(0, modifier);
        EXPECT_EQ(modifier, c.modifier);
    }
    const CIpcMessage range = Only(Request("NET", "PORT", ACCESS_OPERATOR, 'M'));
    EXPECT_EQ(Arg(range, 0) + ".." + Arg(range, 1), "1..65535");
    EXPECT_EQ(ErrorOf(Only(Request("BRI", "", ACCESS_OPERATOR, 'Z'))), ERR_INVALID_PARAMETER);
}

TEST_F(CIpcEventDispatcherTest, ListRequestAnswersEntriesThenEnd) {
    const auto whole = Request("INP", "", ACCESS_OPERATOR, 'L', 0, PARM_NUMBER);
    ASSERT_EQ(whole.size(), 4u);
    std::vector<std::string> rows;
    for (const CIpcMessage& reply : whole) {
        rows.push_back(Arg(reply, 0) + Arg(reply, 1) + " " + Arg(reply, 2) + " " + Arg(reply, 3));
    }
    EXPECT_EQ(rows, (std::vector<std::string>{"11 1 HDMI", "10 2 DVI", "01 3 SDI", "00 111 --END--"}));
    EParmFlags flags;
    whole.front().GetArgFlags(2, flags);
    EXPECT_EQ(flags, PARM_NUMBER | 5);

    const auto single = Request("INP", "", ACCESS_OPERATOR, 'L', 2);
    ASSERT_EQ(single.size(), 2u);
    EXPECT_EQ(Arg(single.front(), 3), "DVI");
    EXPECT_EQ(Arg(single.back(), 3), "--END--");

    const CIpcMessage notList = Only(Request("BRI", "", ACCESS_OPERATOR, 'L', 0, PARM_NUMBER));
    EXPECT_EQ(ErrorOf(notList), ERR_UNKNOWN_REQUEST);
    EXPECT_EQ(Arg(notList, CIpcMessage::kErrorTextParm), "Invalid list / Not a list control");
}

TEST_F(CIpcEventDispatcherTest, EveryReplyOfALongAnswerReachesARequesterThatReadsLate) {
    std::unique_ptr<CProjCon> longList;
    controller->RunOnController([&] {
        longList = std::make_unique<CProjCon>(DT_LIST, dispatcher, proxy, "LNG", false, 0, ACCESS_OPERATOR, 0, 0, false);
        for (int value = 0; value < 30; ++value) {
            longList->SetListEntry(SListEntry{value, 0, 0, true, true, "entry " + std::to_string(value), ""});
        }
    });
    // Far more replies than the requester's socket queues (10 by default) arrive while it
    // is not reading yet.
    CIpcClient client(root.Path(kControllerSocket).c_str(), root.Path("/var/run/ui/late").c_str());
    CIpcMessage request = Message("LNG");
    request.SetFlags(MSG_FLAG_REQUEST | MSG_FLAG_REPLY_WANTED);
    request.AddArg(0, 0, PARM_NUMBER, 'L');
    request.AddArg(CIpcEventDispatcher::kAccessLevelParm, ACCESS_OPERATOR);
    client.TransmitMessage(request);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::vector<std::string> texts;
    CIpcMessage reply;
    while (client.MessageWait(reply, 2000)) {
        texts.push_back(Arg(reply, 3));
        if (!reply.HasFlag(MSG_FLAG_MORE_FOLLOWS)) {
            break;
        }
    }
    ASSERT_EQ(texts.size(), 31u);
    EXPECT_EQ(texts[29], "entry 29");
    EXPECT_EQ(texts[30], "--END--");
    controller->RunOnController([&] { longList.reset(); });
}

TEST_F(CIpcEventDispatcherTest, AnAnswerTooLargeForOneMessageIsAnErrorNotASilence) {
    std::unique_ptr<CProjCon> big;
    controller->RunOnController([&] {
        big = std::make_unique<CProjCon>(DT_TEXT_FREE, dispatcher, proxy, "BIG", false, 0, 0, std::string(5000, 'b'),
                                         ACCESS_OPERATOR, 0, 0, false);
    });
    const auto started = std::chrono::steady_clock::now();
    std::string text;
    EXPECT_EQ(link->GetText(ACCESS_OPERATOR, "BIG", "", text), ERR_COMM_FAILURE);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_TRUE(Logged("does not fit one message"));
    controller->RunOnController([&] { big.reset(); });
}

TEST_F(CIpcEventDispatcherTest, ListIsReadWithItsEntryTextAndActionRunsWithoutArgumentButCannotBeRead) {
    const CIpcMessage list = Only(Request("INP", "", ACCESS_OPERATOR));
    EXPECT_EQ(Arg(list, 0) + " " + Arg(list, 3), "1 HDMI");
    CIpcMessage reply;
    EXPECT_EQ(Command(Message("RST"), reply), ERR_NONE);
    std::string last;
    controller->RunOnController([&] { last = proxy.calls.empty() ? "" : proxy.calls.back().code; });
    EXPECT_EQ(last, "RST");
    const CIpcMessage action = Only(Request("RST", "", ACCESS_OPERATOR));
    EXPECT_EQ(ErrorOf(action), ERR_INVALID_PARAMETER);
    EXPECT_EQ(Arg(action, CIpcMessage::kErrorTextParm), "This control can not be read");
}

TEST_F(CIpcEventDispatcherTest, RepliesInKeptStorageCarryNothingOfTheLastOnes) {
    // One list kept from request to request, as the ASCII front-end keeps it: both the link
    // and the controller answer into the storage of the list control's reply, which had
    // its entry text as argument 3 and was the first of two.
    std::list<CIpcMessage> replies;
    CIpcMessage list = Message("INP");
    list.AddArg(0, 0, PARM_NUMBER, 'L');
    ASSERT_EQ(link->SendRequest(ACCESS_OPERATOR, list, replies, 5000), ERR_NONE);
    ASSERT_GT(replies.size(), 1u);
    CIpcMessage value = Message("INP");
    ASSERT_EQ(link->SendRequest(ACCESS_OPERATOR, value, replies, 5000), ERR_NONE);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(Arg(replies.front(), 0) + " " + Arg(replies.front(), 3), "1 HDMI");
    CIpcMessage brightness = Message("BRI");
    ASSERT_EQ(link->SendRequest(ACCESS_OPERATOR, brightness, replies, 5000), ERR_NONE);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies.front().GetNumArgs(), 1u);
    EXPECT_EQ(Arg(replies.front(), 0), "50");
}

TEST_F(CIpcEventDispatcherTest, NotificationsCarryEachTypeInOrder) {
    ASSERT_EQ(link->NotifyRegister("BRI", "", link->GetNotifySocketName()), ERR_NONE);
    CEventLink other(log, "other");
    int value = 80;
    ASSERT_EQ(other.SetValue(ACCESS_OPERATOR, "BRI", "", value, false), ERR_NONE);
    controller->RunOnController([&] {
        dispatcher.SendNotificationMessage(
            *dispatcher.GetControl("BRI"),
            static_cast<ENotifyType>(NOTIFY_VALUE | NOTIFY_ENABLED | NOTIFY_RANGE | NOTIFY_LIST));
    });
    const std::list<CIpcMessage> notes = Notes(2);
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes.front().GetCode(), "BRI");
    EXPECT_EQ(Arg(notes.front(), 0), "80");
    const CIpcMessage& all = notes.back();  // value, enabled, range and list
    EXPECT_EQ(Arg(all, 0) + " " + Arg(all, 240) + " " + Arg(all, 241) + ".." + Arg(all, 242) + " " + Arg(all, 243),
              "80 1 0..100 0");
}

TEST_F(CIpcEventDispatcherTest, RegistrationsAreCountedAndRemovableAndAMalformedRequestChangesNothing) {
    const std::string address = link->GetNotifySocketName();
    ASSERT_EQ(link->NotifyRegister("LMP", "", address), ERR_NONE);
    ASSERT_EQ(link->NotifyRegister("LMP", "", address), ERR_NONE);
    ASSERT_EQ(link->NotifyUnregister("LMP", "", address, false), ERR_NONE);
    EXPECT_EQ(Recipients("LMP"), std::list<std::string>{address});
    ASSERT_EQ(link->NotifyRegister("NET", "PORT", address), ERR_NONE);
    ASSERT_EQ(link->NotifyUnregisterAll(address), ERR_NONE);
    EXPECT_TRUE(Recipients("LMP").empty());
    EXPECT_TRUE(Recipients("NET+PORT").empty());

    CIpcMessage request = Message("NOT");
    request.AddArg(0, "BRI", 'R');
    request.AddArg(1, "LMP", 'Q');
    request.AddArg(CIpcEventDispatcher::kNotifyAddressParm, address);
    CIpcMessage reply;
    EXPECT_EQ(link->SendCommand(CEventLink::kNoAccessLevel, request, reply, 5000), ERR_INVALID_PARAMETER);
    EXPECT_EQ(Arg(reply, CIpcMessage::kErrorTextParm).rfind("Notification System Error: ", 0), 0u);
    CIpcMessage noAddress = Message("NOT");
    noAddress.AddArg(0, "BRI", 'R');
    EXPECT_EQ(link->SendCommand(CEventLink::kNoAccessLevel, noAddress, reply, 5000), ERR_INVALID_PARAMETER);
    EXPECT_TRUE(Recipients("BRI").empty());
}

TEST_F(CIpcEventDispatcherTest, DeadOrStuckListenersNeverStopTheController) {
    // One listener's socket is gone, one never reads its queue; the live one still hears.
    CDomainSocket stuck(root.Path("/var/run/ui/stuck.notify").c_str());
    ASSERT_EQ(link->NotifyRegister("BRI", "", root.Path("/var/run/ui/gone.notify")), ERR_NONE);
    ASSERT_EQ(link->NotifyRegister("BRI", "", stuck.GetPath()), ERR_NONE);
    ASSERT_EQ(link->NotifyRegister("BRI", "", link->GetNotifySocketName()), ERR_NONE);
    CEventLink setter(log, "setter");
    for (int i = 0; i < 600; ++i) {  // far beyond any datagram queue
        int value = i % 100;
        ASSERT_EQ(setter.SetValue(ACCESS_OPERATOR, "BRI", "", value, false, 5000), ERR_NONE) << i;
        std::list<CIpcMessage> drained;
        link->ProcessNotify(drained);
    }
    EXPECT_TRUE(Logged("Unable to send notification to " + root.Path("/var/run/ui/gone.notify")));
}

TEST_F(CIpcEventDispatcherTest, GarbageAndThrowingProxiesLeaveItServing) {
    CDomainSocket stranger(root.Path("/var/run/ui/stranger").c_str());
    const unsigned char garbage[] = {0xFE, 0x13, 0xFF, 0xFF, 1, 2, 3};
    stranger.SendTo(garbage, sizeof garbage, root.Path(kControllerSocket).c_str(), 0);
    controller->RunOnController([&] { proxy.throwValues.insert(66); });
    int value = 66;
    EXPECT_EQ(link->SetValue(ACCESS_OPERATOR, "BRI", "", value, true), ERR_HARDWARE_REFUSED);
    EXPECT_EQ(value, 50);
    value = 67;
    EXPECT_EQ(link->SetValue(ACCESS_OPERATOR, "BRI", "", value, true), ERR_NONE);
    EXPECT_EQ(value, 67);
}
