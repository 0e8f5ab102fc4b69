// Argument checks of received commands.

#include <gtest/gtest.h>

#include "ipc/NIpcMsgUtil.h"

using namespace NIpcMsgUtil;

TEST(NIpcMsgUtilArgCheck, MinChecksTheFirstNMaxTheArgumentsPresentAndStrictTheExactCount) {
    // A number at id 0 and a text at id 1.
    CIpcMessage message;
    message.AddArg(0, 10);
    message.AddArg(1, "on");
    EXPECT_EQ(ArgCheckMin(message, 3, ARG_NUMBER, ARG_TEXT, ARG_TEXT), ERR_TOO_FEW_PARAMETERS);
    EXPECT_EQ(ArgCheckMin(message, 1, ARG_NUMBER), ERR_NONE);  // the extra text is not looked at
    EXPECT_EQ(ArgCheckMin(message, 1, ARG_TEXT), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ArgCheckMin(message, 0), ERR_NONE);

    EXPECT_EQ(ArgCheckMax(message, 1, ARG_NUMBER), ERR_TOO_MANY_PARAMETERS);
    EXPECT_EQ(ArgCheckMax(message, 3, ARG_NUMBER, ARG_TEXT, ARG_NUMBER), ERR_NONE);
    EXPECT_EQ(ArgCheckMax(message, 3, ARG_TEXT, ARG_TEXT, ARG_NUMBER), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ArgCheckMax(CIpcMessage(), 2, ARG_TEXT, ARG_TEXT), ERR_NONE);

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
