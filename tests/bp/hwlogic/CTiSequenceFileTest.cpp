// Sequence files: the selection rules on a written file, and malformed files of every
// kind refused with an exception instead of being read out of bounds.

#include <gtest/gtest.h>

#include <cstring>

#include "CException.h"
#include "CTiSequenceFile.h"
#include "SequenceFiles.h"
#include "ThrownMessage.h"

TEST(CTiSequenceFileTest, SetsNeedStrictBoundsElementsTheLargestPeriodBelowAndOnlyTheFirstSectionIsSearched) {
    CTiSequenceFile file(TestSequenceFile());
    ASSERT_EQ(file.GetSections().size(), 2u);
    EXPECT_EQ(CTiSequenceFile(NTiSequenceWriter::Write({NTiSequenceWriter::SSection{}})).GetSections().size(), 1u);
    EXPECT_EQ(file.CSum(), 0u);
    const struct {
        double hz;
        uint32_t period;  // of the element chosen, 0: none
    } cases[] = {{60, 16000}, {63, 15000}, {62.5, 15000} /* P = 16000: strictly below */, {50.1, 16000},
                 {200, 4000}, {300, 0}, {50, 0}, {70, 0}};
    for (const auto& c : cases) {
        if (c.period == 0) {
            EXPECT_THROW(file.FindSequenceSet(c.hz).FindSeqElement(c.hz), CException) << c.hz;
            continue;
        }
        const CTiSeqStmData& element = file.FindSequenceSet(c.hz).FindSeqElement(c.hz);
        EXPECT_EQ(element.GetPeriodUs(), c.period) << c.hz;
        if (c.hz == 60) {  // of two equal periods, the first
            EXPECT_EQ(element.GetDataBlockBytes(0)[2], 0x16);
            EXPECT_EQ(element.GetDataBlockBytes(0)[1], 0x00);
        }
    }
    // 50 Hz is exactly the upper bound: "Sequence set not found", though section 2 would fit.
    EXPECT_EQ(ThrownMessage([&] { file.FindSequenceSet(50); }), "Sequence set not found");
    EXPECT_EQ(ThrownMessage([&] { file.GetSections()[0].FindSequenceSet(10); }), "Sequence data not found");
    EXPECT_EQ(ThrownMessage([&] { file.FindSequenceSet(60).FindSeqElement(70); }), "Element not found");

    const CTiSeqStmData& element = file.FindSequenceSet(60).FindSeqElement(60);
    EXPECT_EQ(element.GetParameter(3), 4u);
    EXPECT_EQ(element.GetDataBlock(0).size, 16u);
    EXPECT_EQ(element.GetDataBlock(9).offset, element.GetDataBlock(8).offset);
    EXPECT_EQ(ThrownMessage([&] { element.GetDataBlock(13); }), "Invalid block specified");
}

TEST(CTiSequenceFileTest, MalformedFilesAreRefusedWithoutReadingOutsideThem) {
    const std::vector<uint8_t> good = TestSequenceFile();
    std::vector<uint8_t> bad = good;
    bad[7] = '1';
    EXPECT_EQ(ThrownMessage([&] { CTiSequenceFile file(bad); }), "Invalid File - file magic number not expected");
    EXPECT_THROW(CTiSequenceFile(std::vector<uint8_t>(good.begin(), good.begin() + 5)), CException);

    // Every shorter file is refused (the sanitizers watch for any read past the end).
    for (size_t length = 8; length < good.size(); ++length) {
        EXPECT_THROW(CTiSequenceFile(std::vector<uint8_t>(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length))), CException)
            << length;
    }
    // An offset pointing past the end is named.
    bad = good;
    const uint32_t outside = 0x7FFFFFF0;
    memcpy(bad.data() + 24 + 20 + 8, &outside, 4);  // the first set's first element
    EXPECT_EQ(ThrownMessage([&] { CTiSequenceFile file(bad); }).rfind("Offset 2147483632 ", 0), 0u);
    // A section chain that comes back.
    bad = good;
    const uint32_t first = 24;
    uint32_t second;
    memcpy(&second, good.data() + 24 + 8, 4);
    memcpy(bad.data() + second + 8, &first, 4);
    EXPECT_EQ(ThrownMessage([&] { CTiSequenceFile file(bad); }), "Section chain loops back to offset 24");
}
