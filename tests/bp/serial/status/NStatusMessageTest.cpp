#include <gtest/gtest.h>

#include <string>

#include "status/NStatusMessage.h"

namespace {

// The message as a receiver gets it: serialised and read back.
CIpcMessage OverTheWire(CIpcMessage message) {
    unsigned char* bytes = nullptr;
    const int size = message.SerializeMessage(bytes);
    CIpcMessage received;
    EXPECT_TRUE(received.DeserializeMessage(bytes, static_cast<unsigned>(size), "/peer"));
    return received;
}

CIpcMessage EncodedSample() {
    SStatus status;
    status.flags = static_cast<short>(0x8102);
    status.labelId = 2340;
    status.number = -7;
    status.value = "Lamp 1";
    status.group = "Lamp";
    status.index = -3;
    CIpcMessage reply;
    NStatusMessage::EncodeStatus(status, reply);
    return reply;
}

TEST(NStatusMessage, StatusRoundTripsOverTheWire) {
    SStatus decoded;
    decoded.labelText = "stale";
    ASSERT_TRUE(NStatusMessage::DecodeStatus(OverTheWire(EncodedSample()), decoded));
    EXPECT_EQ(decoded.flags, static_cast<short>(0x8102));
    EXPECT_EQ(decoded.labelId, 2340);
    EXPECT_EQ(decoded.number, -7);
    EXPECT_EQ(decoded.value, "Lamp 1");
    EXPECT_EQ(decoded.text, "");
    EXPECT_EQ(decoded.group, "Lamp");
    EXPECT_EQ(decoded.index, -3);
    EXPECT_EQ(decoded.labelText, "");
}

TEST(NStatusMessage, DecodeRejectsMissingWrongKindOrOutOfRangeFields) {
    const CIpcMessage good = EncodedSample();
    SStatus untouched;
    untouched.value = "keep";
    for (unsigned short id = 0; id <= 6; ++id) {
        CIpcMessage missing(good);
        missing.RemoveArg(id);
        CIpcMessage wrongKind(good);
        if (good.IsNumberArg(id)) {
            wrongKind.AddArg(id, std::string("12"));
        } else {
            wrongKind.AddArg(id, 12);
        }
        EXPECT_FALSE(NStatusMessage::DecodeStatus(missing, untouched)) << id;
        EXPECT_FALSE(NStatusMessage::DecodeStatus(wrongKind, untouched)) << id;
    }
    for (const unsigned short id : std::initializer_list<unsigned short>{0, 6}) {  // flags and index are 16-bit words
        CIpcMessage outOfRange(good);
        outOfRange.AddArg(id, 40000);
        EXPECT_FALSE(NStatusMessage::DecodeStatus(outOfRange, untouched)) << id;
    }
    EXPECT_EQ(untouched.value, "keep");
}

TEST(NStatusMessage, SummaryRoundTripsAndRejectsBadFields) {
    CIpcMessage reply;
    NStatusMessage::EncodeSummary(0xFFFF, 12, reply);
    unsigned short summary = 0;
    unsigned count = 0;
    ASSERT_TRUE(NStatusMessage::DecodeSummary(OverTheWire(reply), summary, count));
    EXPECT_EQ(summary, 0xFFFF);
    EXPECT_EQ(count, 12u);
    CIpcMessage negative(reply);
    negative.AddArg(1, -1);
    CIpcMessage missing(reply);
    missing.RemoveArg(0);
    EXPECT_FALSE(NStatusMessage::DecodeSummary(negative, summary, count));
    EXPECT_FALSE(NStatusMessage::DecodeSummary(missing, summary, count));
    EXPECT_EQ(count, 12u);
}

}  // namespace
