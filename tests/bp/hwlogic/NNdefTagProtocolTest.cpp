// The NDEF structures of a lamp tag: exact bytes at every length boundary, and parsers
// that stop at the end of what they were given.

#include <gtest/gtest.h>

#include "NNdefTagProtocol.h"
#include "ThrownMessage.h"

using namespace NNdefTagProtocol;

namespace {

std::vector<uint8_t> Generate(const SMessageTlv& message) {
    std::vector<uint8_t> out(message.Size());
    EXPECT_EQ(message.Generate(out.data(), out.size()), out.size());
    return out;
}

std::vector<uint8_t> Head(const std::vector<uint8_t>& bytes, size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(count, bytes.size()))};
}

}  // namespace

TEST(NNdefTagProtocol, LengthsSwitchFormAtTheirBoundaries) {
    struct {
        size_t payload;
        std::vector<uint8_t> head;  // TLV header and record header
    } cases[] = {
        // records of 3 + 20 + payload bytes: 254 fits one length byte, 255 does not
        {231, {0x03, 254, 0xD2, 20, 231}},
        {232, {0x03, 0xFF, 0x00, 0xFF, 0xD2, 20, 232}},
        {255, {0x03, 0xFF, 0x01, 0x16, 0xD2, 20, 255}},
        {256, {0x03, 0xFF, 0x01, 0x1A, 0xC2, 20, 0x00, 0x00, 0x01, 0x00}},
    };
    for (const auto& test : cases) {
        const SMessageTlv message{{SMimeApplicationOctStreamRecord{"application/x-test-1", std::string(test.payload, 'p')}.ToRecord()}};
        const std::vector<uint8_t> bytes = Generate(message);
        EXPECT_EQ(Head(bytes, test.head.size()), test.head) << test.payload;
        const STlvBlock block = ParseTlvBlock(bytes.data(), bytes.size(), 0);
        ASSERT_EQ(block.TotalSize(), bytes.size());
        const std::vector<SRecordHeader> records = RetrieveRecordHeaders(bytes.data(), bytes.size(), block);
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].type, "application/x-test-1");
        EXPECT_EQ(records[0].payloadLength, test.payload);
        EXPECT_EQ(records[0].payloadOffset + records[0].payloadLength, bytes.size());
    }
}

TEST(NNdefTagProtocol, TextRecordIsPaddedAndRecordsAreMarkedBeginAndEnd) {
    const SMessageTlv message{{STextRecord{"Lamp", 6}.ToRecord(), SMimeApplicationOctStreamRecord{}.ToRecord(),
                               STextRecord{"longer than four", 4}.ToRecord()}};
    const std::vector<uint8_t> bytes = Generate(message);
    const std::vector<uint8_t> text = {0x91, 1, 9, 'T', 2, 'e', 'n', 'L', 'a', 'm', 'p', ' ', ' '};
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 2, bytes.begin() + 2 + static_cast<long>(text.size())), text);
    const std::vector<SRecordHeader> records =
        RetrieveRecordHeaders(bytes.data(), bytes.size(), ParseTlvBlock(bytes.data(), bytes.size(), 0));
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[1].flags, 0x12);
    EXPECT_EQ(records[1].type, "application/octet-stream");
    EXPECT_EQ(records[2].flags, 0x51);
    EXPECT_EQ(records[2].payloadLength, 3u + 16u);

    // Short of room by one byte: refused before anything is written.
    std::vector<uint8_t> out(bytes.size() - 1, 0xAA);
    EXPECT_EQ(ThrownMessage([&] { message.Generate(out.data(), out.size()); }), "Receiving buffer overflow");
    EXPECT_EQ(out, std::vector<uint8_t>(bytes.size() - 1, 0xAA));
}

TEST(NNdefTagProtocol, CapabilityContainerRoundTripsAndMarksLargeMemories) {
    struct {
        std::vector<uint8_t> bytes;
        bool valid;
        uint32_t memorySize;
        bool readGranted, writeGranted;
    } cases[] = {
        {{0xE1, 0x40, 0xFF, 0x04}, true, 0, true, true},  // 8 KiB: "above 2040"
        {{0xE1, 0x40, 0xFE, 0x00}, true, 2032, true, true},
        {{0xE1, 0x4F, 0x10, 0x01}, true, 128, false, false},
        {{0xE2, 0x40, 0x10, 0x00}, false, 0, true, true},
    };
    for (const auto& test : cases) {
        const SCapabilityContainerField cc = SCapabilityContainerField::Parse(test.bytes.data(), test.bytes.size());
        EXPECT_EQ(cc.valid, test.valid);
        EXPECT_EQ(cc.memorySize, test.memorySize);
        EXPECT_EQ(cc.readGranted, test.readGranted);
        EXPECT_EQ(cc.writeGranted, test.writeGranted);
        uint8_t out[4];
        cc.Generate(out, sizeof out);
        EXPECT_EQ(std::vector<uint8_t>(out, out + 4), test.valid ? test.bytes : std::vector<uint8_t>(4, 0xFF));
    }
    SCapabilityContainerField large;
    large.valid = true;
    large.memorySize = 2048;
    uint8_t out[4];
    large.Generate(out, sizeof out);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 4), (std::vector<uint8_t>{0xE1, 0x40, 0xFF, 0x04}));
}

TEST(NNdefTagProtocol, TruncatedOrUnknownBlocksAreRefusedWithoutReadingPastTheBuffer) {
    std::vector<uint8_t> tag = {0xE1, 0x40, 0x10, 0x00, 0x00, 0x01, 0x03, 1, 2, 3};
    const std::vector<uint8_t> message =
        Generate(SMessageTlv{{STextRecord{"x"}.ToRecord(), SMimeApplicationOctStreamRecord{"t", "payload"}.ToRecord()}});
    tag.insert(tag.end(), message.begin(), message.end());
    tag.push_back(TLV_TERMINATOR);
    tag.push_back(0x77);  // after the terminator: never read
    const std::vector<STlvBlock> blocks = RetrieveAllTlvs(tag.data(), tag.size());
    ASSERT_EQ(blocks.size(), 2u);  // the NULL block is skipped
    EXPECT_EQ(blocks[1].type, TLV_NDEF_MESSAGE);
    EXPECT_EQ(RetrieveRecordHeaders(tag.data(), tag.size(), blocks[1]).size(), 2u);

    // Every cut through the message: the TLV or a record runs past the end and is refused
    // (the sanitizers check that nothing beyond the copy is read).
    for (size_t cut = 11; cut < tag.size() - 2; ++cut) {
        const std::vector<uint8_t> truncated(tag.begin(), tag.begin() + static_cast<long>(cut));
        EXPECT_NE(ThrownMessage([&] {
                      for (const STlvBlock& block : RetrieveAllTlvs(truncated.data(), truncated.size())) {
                          RetrieveRecordHeaders(truncated.data(), truncated.size(), block);
                      }
                  }).find("runs past the end"),
                  std::string::npos)
            << cut;
    }
    tag[4] = 5;
    EXPECT_EQ(ThrownMessage([&] { RetrieveAllTlvs(tag.data(), tag.size()); }), "Invalid TLV block type");
}
