#include <gtest/gtest.h>

#include "CException.h"
#include "log/CLogBuffer.h"

namespace {

TEST(CLogBuffer, KeepsLastCapacityLinesOldestFirst) {
    CLogBuffer buffer(3);
    for (const char* line : {"one", "two", "three", "four", "five"}) {
        buffer.Write(line, LOG_LEVEL_INFO, FYI_GENERAL);
    }
    ASSERT_EQ(buffer.GetNumEntries(), 3u);
    EXPECT_EQ(buffer.GetLine(0), "three");
    EXPECT_EQ(buffer.GetLine(2), "five");
    EXPECT_EQ(buffer.GetContents(), "three\nfour\nfive\n");
    buffer.Clear();
    EXPECT_EQ(buffer.GetContents(), "");
}

TEST(CLogBuffer, GetLineOutOfRangeThrows) {
    CLogBuffer buffer(4);
    EXPECT_THROW(buffer.GetLine(0), CException);
    buffer.Write("only", LOG_LEVEL_FYI, FYI_LOGIN);
    EXPECT_EQ(buffer.GetEntry(0).code, FYI_LOGIN);
    EXPECT_THROW(buffer.GetLine(1), CException);
}

TEST(CLogBuffer, ZeroCapacityRejected) { EXPECT_THROW(CLogBuffer(0), CException); }

}  // namespace
