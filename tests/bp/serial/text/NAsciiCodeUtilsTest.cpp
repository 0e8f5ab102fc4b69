#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "text/NAsciiCodeUtils.h"

namespace {

using Parts = std::pair<std::string, std::string>;

TEST(NAsciiCodeUtils, SplitCodeByShape) {
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST+PRTA"), Parts("SST", "PRTA"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST*"), Parts("SST", "@@@@"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("BRI"), Parts("BRI", ""));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SS"), Parts("!!!", "!!!!"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST+PR"), Parts("SST", "!!!!"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST-PRTA"), Parts("SST", "!!!!"));

    std::string code = "old", subcode = "old";
    NAsciiCodeUtils::SplitCode("NE", code, subcode);
    EXPECT_EQ(code + subcode, "!!!!!!!");
}

TEST(NAsciiCodeUtils, ValidateCodeAcceptsAndUpperCasesWellFormedCodes) {
    std::string text = "sst+prta";
    EXPECT_TRUE(NAsciiCodeUtils::ValidateCode(text));
    EXPECT_EQ(text, "SST+PRTA");
    text = "br1";
    EXPECT_TRUE(NAsciiCodeUtils::ValidateCode(text));
    EXPECT_EQ(text, "BR1");
}

TEST(NAsciiCodeUtils, ValidateCodeRejectsMalformedCodes) {
    for (const char* bad : {"sst-prta", "1AB", "ab", "", "SST+PR-A", "S_T"}) {
        std::string text = bad;
        EXPECT_FALSE(NAsciiCodeUtils::ValidateCode(text)) << bad;
    }
}

TEST(NAsciiCodeUtils, JoinCodeAddsSubcodeOnlyWhenGiven) {
    EXPECT_EQ(NAsciiCodeUtils::JoinCode("NET", "PORT", '+'), "NET+PORT");
    EXPECT_EQ(NAsciiCodeUtils::JoinCode("SST", "PRTA", '*'), "SST*PRTA");
    EXPECT_EQ(NAsciiCodeUtils::JoinCode("BRI", "", '+'), "BRI");
}

}  // namespace
