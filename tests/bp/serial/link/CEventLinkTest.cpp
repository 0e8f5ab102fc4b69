// The client side: socket naming, retries, multi-reply exchanges and error handling,
// against a real controller or a bare socket playing one.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <thread>

#include "ControllerFixture.h"
#include "ThrownMessage.h"
#include "ipc/CDomainSocket.h"
#include "ipc/NIpcMsgUtil.h"
#include "status/CStatusDb.h"
#include "status/CStatusRequestHandler.h"

namespace {

class CEventLinkTest : public CControllerFixture {};

// A bare socket in the controller's place, so the test decides every reply.
class CEventLinkAgainstRawServer : public ::testing::Test {
protected:
    CEventLinkAgainstRawServer() { root.MakeDir("/var/run/ui"); }

    CTempRoot root;
    CBufferedLog log{200};
};

}  // namespace

TEST_F(CEventLinkAgainstRawServer, SocketNamesCountUpAndReplaceSlashes) {
    CEventLink first(log, "ascii/port");
    CEventLink second(log, "ascii/port");
    const std::string stem = root.Path("/var/run/ui/") + std::to_string(getpid()) + "_ascii_port_";
    EXPECT_EQ(first.GetClientSocketName(), stem + "0");
    EXPECT_EQ(first.GetNotifySocketName(), stem + "0.notify");
    EXPECT_EQ(second.GetClientSocketName(), stem + "1");
    EXPECT_EQ(second.GetNotifySocketName(), stem + "1.notify");
    CEventLink longName(log, std::string(60, 'n').c_str());
    EXPECT_NE(longName.GetClientSocketName().find(std::string(37, 'n') + "_0"), std::string::npos);
    EXPECT_EQ(ThrownMessage([&] { CEventLink empty(log, ""); }),
              "Invalid socket name - a unique name must be specified");
    const std::string path = first.GetClientSocketName();
    { CEventLink gone(log, "gone"); }
    struct stat info;
    EXPECT_EQ(stat((root.Path("/var/run/ui/") + std::to_string(getpid()) + "_gone_0").c_str(), &info), -1);
}

TEST_F(CEventLinkAgainstRawServer, DoublingRetriesGiveUpAfterThreeWhenNobodyAnswers) {
    CEventLink link(log, "retry");
    link.SetRetryMode(2);
    link.SetRetryTimeUnitMs(5);
    int value = 1;
    EXPECT_EQ(link.SetValue(ACCESS_OPERATOR, "BRI", "", value, false, 20), ERR_COMM_TIMEOUT);
    EXPECT_EQ(log.Count("busy or not responding (110). Retrying after 2s, BRI+"), 1u);
    EXPECT_EQ(log.Count("Retrying after 4s"), 1u);
    EXPECT_EQ(log.Count("Retrying after 8s"), 1u);
    EXPECT_EQ(log.Count("busy or not responding"), 3u);
    EXPECT_EQ(log.Count("retry successful, returned:110, BRI+"), 1u);

    link.SetRetryMode(0);
    log.Clear();
    EXPECT_EQ(link.SetValue(ACCESS_OPERATOR, "BRI", "", value, false, 20), ERR_COMM_TIMEOUT);
    EXPECT_EQ(log.Count("busy or not responding"), 0u);
}

TEST_F(CEventLinkAgainstRawServer, ErrorReplyEndsTheExchangeAtOnce) {
    CDomainSocket server(root.Path("/var/run/ui/main_controller.socket").c_str());
    CEventLink link(log, "errors");
    std::thread fake([&] {
        unsigned char buffer[4096];
        CDomainSocket from;
        const int size = server.RecvFrom(buffer, sizeof buffer, 0, &from);
        CIpcMessage request;
        ASSERT_TRUE(request.DeserializeMessage(buffer, static_cast<unsigned>(size), from.GetPath().c_str()));
        request.MakeReply(0);
        request.SetFlags(static_cast<uint16_t>(request.GetFlags() | MSG_FLAG_MORE_FOLLOWS));
        NIpcMsgUtil::MakeErrorResponse(request, ERR_DISABLED_CONTROL, "Disabled Control");
        unsigned char* data = nullptr;
        const int length = request.SerializeMessage(data);
        server.SendTo(data, length, from, 0);
    });
    CIpcMessage command;
    command.SetCode("BRI");
    command.SetSubCode("");
    command.AddArg(0, 5);
    CIpcMessage reply;
    // More follows is flagged, yet the error ends the wait: no 5 s time-out here.
    EXPECT_EQ(link.SendCommand(ACCESS_OPERATOR, command, reply, 5000), ERR_DISABLED_CONTROL);
    fake.join();
}

TEST_F(CEventLinkTest, AFailureNoRetryCanMendEndsAtOnceEvenInRetryModeOne) {
    link->SetRetryMode(1);
    link->SetRetryTimeUnitMs(1);
    std::string tooLong(5000, 'x');  // no message can carry it
    EXPECT_EQ(link->SetText(ACCESS_OPERATOR, "NAM", "", tooLong, false), ERR_COMM_FAILURE);
    EXPECT_EQ(log.Count("busy or not responding"), 0u);
}

TEST_F(CEventLinkTest, SendOnlyCommandGetsNoReply) {
    CIpcMessage command = Message("LMP");
    command.AddArg(0, 1);
    CIpcMessage reply;
    EXPECT_EQ(link->SendCommand(ACCESS_OPERATOR, command, reply, 0), ERR_NONE);
    int value = 0;
    EXPECT_EQ(link->GetValue(ACCESS_OPERATOR, "LMP", "", value), ERR_NONE);  // the next exchange is not confused
    EXPECT_EQ(value, 1);
    EXPECT_EQ(reply.GetNumArgs(), 0u);
}

TEST_F(CEventLinkTest, StatusReadsComeFromTheControllersDatabase) {
    CStatusDb database(4, "link-test");
    std::unique_ptr<CStatusRequestHandler> handler;
    const SStatusDesc lamp[] = {{1, 29, 0, "ok", 0, nullptr, 0}, {2, 13, 0, "", 5, nullptr, 0}};
    controller->RunOnController([&] {
        database.AddStatusGroup(lamp, 2, "LAMP");
        database.UpdateStatusValue("LAMP", 2, 2, 7, "hot");
        handler = std::make_unique<CStatusRequestHandler>(dispatcher, database);
    });

    SStatus item;
    ASSERT_EQ(link->GetStatus(ACCESS_OPERATOR, "LAMP", 2, item), ERR_NONE);
    EXPECT_EQ(item.number, 7);
    EXPECT_EQ(item.flags, 2);
    EXPECT_EQ(item.text, "hot");
    std::list<SStatus> items;
    ASSERT_EQ(link->GetStatusGroup(ACCESS_OPERATOR, "LAMP", items), ERR_NONE);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items.front().value, "ok");
    SStatusConditionSet alerts;
    ASSERT_EQ(link->GetGlobalAlerts(ACCESS_OPERATOR, alerts), ERR_NONE);
    EXPECT_EQ(alerts.summary, 2);
    ASSERT_EQ(alerts.alarms.size(), 1u);
    EXPECT_EQ(alerts.alarms.front().index, 2);
    EXPECT_EQ(link->GetStatus(ACCESS_OPERATOR, "NONE", 1, item), ERR_UNKNOWN_REQUEST);

    controller->RunOnController([&] { handler.reset(); });
}
