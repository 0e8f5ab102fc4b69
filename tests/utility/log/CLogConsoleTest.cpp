#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "log/CLogConsole.h"

namespace {

TEST(CLogConsole, WritesEachLineWithNewlineToItsStream) {
    FILE* stream = tmpfile();
    ASSERT_NE(stream, nullptr);
    CLogConsole console(stream);
    console.Write("first line", LOG_LEVEL_INFO, FYI_GENERAL);
    console.Write("second line", LOG_LEVEL_ERROR, FYI_GENERAL);

    rewind(stream);
    char contents[64] = {};
    EXPECT_EQ(fread(contents, 1, sizeof contents - 1, stream), 23u);
    EXPECT_STREQ(contents, "first line\nsecond line\n");
    fclose(stream);
}

}  // namespace
