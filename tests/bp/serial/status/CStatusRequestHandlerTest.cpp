#include <gtest/gtest.h>

#include <list>
#include <string>

#include "dispatch/CEventDispatcher.h"
#include "log/CLogBuffer.h"
#include "log/CLogger.h"
#include "status/CStatusDb.h"
#include "status/CStatusRequestHandler.h"
#include "status/NStatusMessage.h"

namespace {

const SStatusDesc kLamp[] = {{3, 0, 0, "ok", 0, nullptr, 0}, {1, 0, 0, "on", 0, nullptr, 0}};

CIpcMessage ItemRequest(const std::string& group, short index) {
    CIpcMessage request;
    NStatusMessage::MakeItemRequest(request, group, index);
    return request;
}

CIpcMessage GroupRequest(const std::string& group) {
    CIpcMessage request;
    NStatusMessage::MakeGroupRequest(request, group);
    return request;
}

class CStatusRequestHandlerTest : public ::testing::Test {
protected:
    CStatusRequestHandlerTest() : log(16), db(4, "ipc", [](int) { return std::string(); }), handler(dispatcher, db) {
        logger.AddLogRule(LOG_LEVEL_ERROR, &log);
        db.AddStatusGroup(kLamp, 2, "Lamp");
        db.AddStatusGroup(nullptr, 0, "Empty");
    }

    // The replies, each checked to answer the request under its sequence.
    std::list<CIpcMessage> Ask(CIpcMessage request) {
        request.SetSequence(77);
        std::list<CIpcMessage> replies;
        EXPECT_TRUE(handler.HandleRequest(request, replies));
        for (const CIpcMessage& reply : replies) {
            EXPECT_TRUE(reply.HasFlag(MSG_FLAG_REPLY) && reply.GetCode() == "STA" && reply.GetSequence() == 77u);
        }
        return replies;
    }

    // "<error> <text>" of a single error reply.
    static std::string Error(const std::list<CIpcMessage>& replies) {
        int error = 0;
        std::string text;
        return replies.size() == 1 && replies.front().GetArg(CIpcMessage::kErrorCodeParm, error) &&
                       replies.front().GetArg(CIpcMessage::kErrorTextParm, text)
                   ? std::to_string(error) + " " + text
                   : "(no single error reply)";
    }

    CLogBuffer log;
    CLogger logger;
    CEventDispatcher dispatcher{logger};
    CStatusDb db;
    CStatusRequestHandler handler;
};

TEST_F(CStatusRequestHandlerTest, OwnsTheStatusCodeDeclinesCommandsAndAnswersAnEmptyGroupWithOneEmptyReply) {
    EXPECT_EQ(dispatcher.GetCustomHandler("STA"), &handler);
    EXPECT_TRUE(handler.IsExclusive());
    CIpcMessage reply;
    EXPECT_FALSE(handler.HandleCommand(ItemRequest("Lamp", 1), reply));
    const std::list<CIpcMessage> empty = Ask(GroupRequest("Empty"));
    ASSERT_EQ(empty.size(), 1u);
    EXPECT_EQ(empty.front().GetNumArgs(), 0u);
}

TEST_F(CStatusRequestHandlerTest, BadRequestsAnswerOneErrorReply) {
    CIpcMessage noGroup = GroupRequest("Lamp");
    noGroup.ClearArgs();
    CIpcMessage numberGroup = ItemRequest("Lamp", 1);
    numberGroup.AddArg(0, 5);
    CIpcMessage textIndex = ItemRequest("Lamp", 1);
    textIndex.AddArg(1, std::string("1"));
    CIpcMessage wideIndex = ItemRequest("Lamp", 1);
    wideIndex.AddArg(1, 40000);
    CIpcMessage otherSubcode = GroupRequest("Lamp");
    otherSubcode.SetSubCode("XXXX");
    const std::string badIndex = "3 Status index must be a number from -32768 to 32767";

    EXPECT_EQ(Error(Ask(noGroup)), "5 Missing status group");
    EXPECT_EQ(Error(Ask(numberGroup)), "3 Status group must be text");
    EXPECT_EQ(Error(Ask(textIndex)), badIndex);
    EXPECT_EQ(Error(Ask(wideIndex)), badIndex);
    EXPECT_EQ(Error(Ask(ItemRequest("Lamp", 2))), "9 Cannot find status group or item");
    EXPECT_EQ(Error(Ask(ItemRequest("Nope", 1))), "9 Cannot find status group or item");
    EXPECT_EQ(Error(Ask(GroupRequest("Nope"))), "9 Cannot find status group");
    EXPECT_EQ(Error(Ask(otherSubcode)), "9 Unknown status request XXXX");
}

TEST_F(CStatusRequestHandlerTest, StatusThatCannotBeSentIsAnsweredByTheFailureAlone) {
    db.UpdateStatusValue("Lamp", 3, 0, std::string("a\0b", 3));  // the wire cannot carry a NUL
    EXPECT_EQ(Error(Ask(GroupRequest("Lamp"))), "132 Argument 3 text holds a NUL character");
    db.UpdateStatusValue("Lamp", 1, 1, "on", std::string(CIpcMessage::kMaxMessageSize, 't'));
    EXPECT_EQ(Error(Ask(ItemRequest("Lamp", 1))), "132 Status Lamp:1 is too long for one reply");
}

}  // namespace
