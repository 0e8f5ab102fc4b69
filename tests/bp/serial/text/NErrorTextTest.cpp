#include <gtest/gtest.h>

#include "text/NErrorText.h"

namespace {

TEST(NErrorText, KnownCodesHaveTheirTextAndOthersAreUnknownError) {
    EXPECT_EQ(NErrorText::GetErrorString(ERR_NONE), "");
    EXPECT_EQ(NErrorText::GetErrorString(static_cast<EError>(112)), "Failed to set Hardware");
    EXPECT_EQ(NErrorText::GetErrorString(static_cast<EError>(138)), "No response");
    for (int code : {1, 119, 139, 1000}) {
        EXPECT_EQ(NErrorText::GetErrorString(static_cast<EError>(code)), "Unknown Error") << code;
    }
}

}  // namespace
