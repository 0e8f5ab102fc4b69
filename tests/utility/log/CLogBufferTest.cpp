#include <gtest/gtest.h>

#include "CException.h"
#include "log/CLogBuffer.h"

namespace {

TEST(CLogBuffer, KeepsLastCapacityLinesOldestFirstAndRefusesWhatItDoesNotHold) {
    EXPECT_THROW(CLogBuffer(0), CException);
    CLogBuffer buffer(3);
    EXPECT_THROW(buffer.GetLine(0), CException);
    for (const char* line : {"one", "two", "three", "four", "five"}) {
        buffer.Write(line, LOG_LEVEL_INFO, FYI_GENERAL);
    }
    ASSERT_EQ(buffer.GetNumEntries(), 3u);
    EXPECT_EQ(buffer.GetLine(0), "three");
    EXPECT_EQ(buffer.GetLine(2), "five");
    EXPECT_THROW(buffer.GetLine(3), CException);
    EXPECT_EQ(buffer.GetContents(), "three\nfour\nfive\n");
    buffer.Clear();
    EXPECT_EQ(buffer.GetContents(), "");
}

}  // namespace
