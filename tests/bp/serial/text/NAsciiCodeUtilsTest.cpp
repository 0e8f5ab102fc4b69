#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "text/NAsciiCodeUtils.h"

namespace {

using Parts = std::pair<std::string, std::string>;

TEST(NAsciiCodeUtils, SplitCodeByShapeAndJoinAddsASubcodeOnlyWhenGiven) {
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST+PRTA"), Parts("SST", "PRTA"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST*"), Parts("SST", "@@@@"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("BRI"), Parts("BRI", ""));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SS"), Parts("!!!", "!!!!"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST+PR"), Parts("SST", "!!!!"));
    EXPECT_EQ(NAsciiCodeUtils::SplitCode("SST-PRTA"), Parts("SST", "!!!!"));

    std::string code = "old", subcode = "old";
    NAsciiCodeUtils::SplitCode("NE", code, subcode);
    EXPECT_EQ(code + subcode, "!!!!!!!");
    EXPECT_EQ(NAsciiCodeUtils::JoinCode("SST", "PRTA", '*'), "SST*PRTA");
    EXPECT_EQ(NAsciiCodeUtils::JoinCode("BRI", "", '+'), "BRI");
}

TEST(NAsciiCodeUtils, ValidateCodeUpperCasesWellFormedCodesAndRejectsOthers) {
    for (const auto& [given, valid] : {Parts("sst+prta", "SST+PRTA"), Parts("br1", "BR1"), Parts("sst-prta", ""),
                                       Parts("1AB", ""), Parts("ab", ""), Parts("", ""), Parts("SST+PR-A", ""),
                                       Parts("S_T", "")}) {
        std::string text = given;
        EXPECT_EQ(NAsciiCodeUtils::ValidateCode(text), !valid.empty()) << given;
        if (!valid.empty()) {
            EXPECT_EQ(text, valid);
        }
    }
}

}  // namespace
