// Argument checks of received commands and the standard error reply.

#include <gtest/gtest.h>

#include "ipc/NIpcMsgUtil.h"

using namespace NIpcMsgUtil;

namespace {

// A command with a number at id 0 and a text at id 1.
CIpcMessage NumberThenText() {
    CIpcMessage message;
    message.AddArg(0, 10);
    message.AddArg(1, "on");
    return message;
}

}  // namespace

TEST(NIpcMsgUtilArgCheck, MinCountsFirstThenChecksTheFirstN) {
    const CIpcMessage message = NumberThenText();
    EXPECT_EQ(ArgCheckMin(message, 3, ARG_NUMBER, ARG_TEXT, ARG_TEXT), ERR_TOO_FEW_PARAMETERS);
    EXPECT_EQ(ArgCheckMin(message, 1, ARG_NUMBER), ERR_NONE);  // the extra text is not looked at
    EXPECT_EQ(ArgCheckMin(message, 1, ARG_TEXT), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ArgCheckMin(message, 2, ARG_NUMBER, ARG_NUMBER), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ArgCheckMin(message, 0), ERR_NONE);
}

TEST(NIpcMsgUtilArgCheck, MaxChecksOnlyTheArgumentsPresent) {
    const CIpcMessage message = NumberThenText();
    EXPECT_EQ(ArgCheckMax(message, 1, ARG_NUMBER), ERR_TOO_MANY_PARAMETERS);
    EXPECT_EQ(ArgCheckMax(message, 3, ARG_NUMBER, ARG_TEXT, ARG_NUMBER), ERR_NONE);
    EXPECT_EQ(ArgCheckMax(message, 3, ARG_TEXT, ARG_TEXT, ARG_NUMBER), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ArgCheckMax(CIpcMessage(), 2, ARG_TEXT, ARG_TEXT), ERR_NONE);
}

TEST(NIpcMsgUtilArgCheck, StrictWantsTheExactCount) {
    const CIpcMessage message = NumberThenText();
    EXPECT_EQ(ArgCheckStrict(message, 1, ARG_NUMBER), ERR_TOO_MANY_PARAMETERS);
    EXPECT_EQ(ArgCheckStrict(message, 3, ARG_NUMBER, ARG_TEXT, ARG_TEXT), ERR_TOO_FEW_PARAMETERS);
    EXPECT_EQ(ArgCheckStrict(message, 2, ARG_NUMBER, ARG_TEXT), ERR_NONE);
    EXPECT_EQ(ArgCheckStrict(message, 2, ARG_NUMBER, ARG_NUMBER), ERR_INVALID_PARAMETER);
}

TEST(NIpcMsgUtilArgCheck, DelimitedArgumentMatchesNeitherKindAndPasses) {
    CIpcMessage message;
    message.AddArg(0, "quoted");
    message.SetCharDelimiter(0);
    EXPECT_EQ(ArgCheckStrict(message, 1, ARG_NUMBER), ERR_NONE);
    EXPECT_EQ(ArgCheckStrict(message, 1, ARG_TEXT), ERR_NONE);
}

TEST(NIpcMsgUtilErrorResponse, ReplacesArgumentsWithCodeAndText) {
    CIpcMessage reply = NumberThenText();
    MakeErrorResponse(reply, ERR_CONTROL_NOT_FOUND, "Control Not Found");
    EXPECT_EQ(reply.GetNumArgs(), 2u);
    int code = 0;
    ASSERT_TRUE(reply.GetArg(CIpcMessage::kErrorCodeParm, code));
    EXPECT_EQ(code, 101);
    EParmFlags flags;
    ASSERT_TRUE(reply.GetArgFlags(CIpcMessage::kErrorCodeParm, flags));
    EXPECT_EQ(flags, 0x43);
    std::string text;
    ASSERT_TRUE(reply.GetArg(CIpcMessage::kErrorTextParm, text));
    EXPECT_EQ(text, "Control Not Found");
    EXPECT_TRUE(reply.IsTextArg(CIpcMessage::kErrorTextParm));
}
