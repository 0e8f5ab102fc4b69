// The IPC message model and its wire format: exact bytes, argument flags, limits,
// replies, rendering, and the handling of damaged datagrams.

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "CException.h"
#include "ThrownMessage.h"
#include "ipc/CIpcMessage.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Serialize(CIpcMessage& message) {
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);
    return Bytes(data, data + size);
}

// The worked reference message: BRI+SUMM, flags 0x12, sequence 7, argument 0 = 5.
CIpcMessage ReferenceMessage() {
    CIpcMessage message;
    message.SetCode("BRI");
    message.SetSubCode("SUMM");
    message.SetFlags(MSG_FLAG_REQUEST | MSG_FLAG_REPLY_WANTED);
    message.SetSequence(7);
    message.AddArg(0, 5);
    return message;
}

const Bytes kReferenceBytes = {
    0xFE, 0x13,              // magic
    0x12, 0x00,              // flags
    0x00, 0x00, 0x00, 0x00,  // type
    'I',  'R',  'B',  0x00,  // code, characters reversed by the word packing
    'M',  'M',  'U',  'S',   // subcode
    0x07, 0x00, 0x00, 0x00,  // sequence
    0x01, 0x00,              // argument count
    0x1E, 0x00,              // total size 30
    0x43, 0x00, 0x00, 0x00, '5', 0x00,  // number, modifier 0, id 0, "5"
};

}  // namespace

TEST(CIpcMessageWire, NewMessageHasNotFoundCodesAndSerialisesToBareHeader) {
    CIpcMessage message;
    EXPECT_EQ(message.GetCode(), "!!!");
    EXPECT_EQ(message.GetSubCode(), "!!!!");
    const Bytes bytes = Serialize(message);
    ASSERT_EQ(bytes.size(), 24u);
    EXPECT_EQ(bytes[0], 0xFE);
    EXPECT_EQ(bytes[1], 0x13);
    EXPECT_EQ(bytes[22], 24);
    EXPECT_EQ(bytes[23], 0);
}

TEST(CIpcMessageWire, ReferenceMessageHasExactBytes) {
    CIpcMessage message = ReferenceMessage();
    EXPECT_EQ(Serialize(message), kReferenceBytes);
    EXPECT_EQ(message.GetArgCount(), 1);
    EXPECT_EQ(message.GetTotalSize(), 30);
}

TEST(CIpcMessageWire, RecordsAreWrittenInAscendingIdOrderWithModifiers) {
    CIpcMessage message;
    message.SetCode("ABC");
    message.AddArg(300, "xy", 'D');
    message.AddArg(2, -1234);
    const Bytes bytes = Serialize(message);
    const Bytes records(bytes.begin() + 24, bytes.end());
    const Bytes expected = {0x44, 0x00, 0x02, 0x00, '-', '1', '2', '3', '4', 0x00,
                            0x00, 'D',  0x2C, 0x01, 'x', 'y', 0x00};
    EXPECT_EQ(records, expected);
    EXPECT_EQ(bytes[22], 24 + 10 + 7);
}

TEST(CIpcMessageWire, RoundTripKeepsHeaderArgumentsAndSender) {
    CIpcMessage original = ReferenceMessage();
    original.AddArg(7, "text with spaces", 3);
    original.SetCharDelimiter(7);
    const Bytes bytes = Serialize(original);

    CIpcMessage received;
    ASSERT_TRUE(received.DeserializeMessage(bytes.data(), static_cast<unsigned>(bytes.size()), "/var/run/ui/peer"));
    EXPECT_EQ(received.GetCode(), "BRI");
    EXPECT_EQ(received.GetSubCode(), "SUMM");
    EXPECT_EQ(received.GetSequence(), 7u);
    EXPECT_EQ(received.GetFlags(), MSG_FLAG_REQUEST | MSG_FLAG_REPLY_WANTED);
    EXPECT_EQ(received.GetReplyAddress(), "/var/run/ui/peer");
    std::string text;
    ASSERT_TRUE(received.GetArg(7, text));
    EXPECT_EQ(text, "text with spaces");
    EXPECT_FALSE(received.IsTextArg(7));  // the delimiter bit makes it neither text nor number
    EXPECT_FALSE(received.IsNumberArg(7));
    EXPECT_EQ(Serialize(received), bytes);
}

TEST(CIpcMessageArgs, NumberFlagsCountDigitsWithAMinimumOfThree) {
    CIpcMessage message;
    const struct {
        int value;
        const char* text;
        int flags;
    } cases[] = {{5, "5", 0x43}, {0, "0", 0x43}, {-12, "-12", 0x43}, {123, "123", 0x43},
                 {-1234, "-1234", 0x44}, {2147483647, "2147483647", 0x4A}, {-2147483647 - 1, "-2147483648", 0x4A}};
    for (const auto& c : cases) {
        message.AddArg(0, c.value);
        std::string text;
        EParmFlags flags;
        ASSERT_TRUE(message.GetArg(0, text));
        ASSERT_TRUE(message.GetArgFlags(0, flags));
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(flags, c.flags) << c.value;
        EXPECT_TRUE(message.IsNumberArg(0));
    }
    message.AddArg(1, 7, static_cast<EParmFlags>(PARM_NUMBER | 5));
    EParmFlags given;
    ASSERT_TRUE(message.GetArgFlags(1, given));
    EXPECT_EQ(given, PARM_NUMBER | 5);
}

TEST(CIpcMessageArgs, NumberReadingFollowsFlagsAndWholeTextRule) {
    // Number arguments whose text is not a clean number arrive only from the wire.
    CIpcMessage source;
    source.AddArg(0, "12a");
    source.AddArg(1, "");
    source.AddArg(2, "99999999999");
    source.AddArg(3, "-42");
    Bytes bytes = Serialize(source);
    for (size_t offset : {24u, 24u + 8u, 24u + 13u, 24u + 29u}) {
        bytes[offset] = 0x43;  // turn each record into a number argument
    }
    CIpcMessage message;
    ASSERT_TRUE(message.DeserializeMessage(bytes.data(), static_cast<unsigned>(bytes.size()), ""));

    int value = -1;
    EXPECT_FALSE(message.GetArg(0, value));
    EXPECT_EQ(value, 12);  // the converted part is kept
    EXPECT_FALSE(message.GetArg(1, value));
    EXPECT_FALSE(message.GetArg(2, value));
    EXPECT_EQ(value, 2147483647);  // out of range is clamped and refused
    EXPECT_TRUE(message.GetArg(3, value));
    EXPECT_EQ(value, -42);

    CIpcMessage textOnly;
    textOnly.AddArg(0, "123");
    value = 5;
    EXPECT_FALSE(textOnly.GetArg(0, value));
    EXPECT_EQ(value, 5);  // a text argument leaves the output alone
    EXPECT_FALSE(textOnly.GetArg(9, value));
}

TEST(CIpcMessageArgs, AddingReplacesInPlaceAndResetsTheCursor) {
    CIpcMessage message;
    message.AddArg(1, "one");
    message.AddArg(3, "three");
    unsigned short id = 0;
    std::string text;
    ASSERT_TRUE(message.GetFirstArg(id, text));
    ASSERT_TRUE(message.GetNextArg(id, text));
    EXPECT_EQ(id, 3);
    EXPECT_FALSE(message.GetNextArg(id, text));

    message.AddArg(1, 77, PARM_TEXT, 9);
    EXPECT_EQ(message.GetNumArgs(), 2u);
    ASSERT_TRUE(message.GetNextArg(id, text));  // back at the first argument
    EXPECT_EQ(id, 1);
    EXPECT_EQ(text, "77");
    unsigned char modifier = 0;
    ASSERT_TRUE(message.GetModifier(1, modifier));
    EXPECT_EQ(modifier, 9);

    message.RemoveArg(1);
    ASSERT_TRUE(message.GetNextArg(id, text));
    EXPECT_EQ(id, 3);
    message.ClearArgs();
    EXPECT_FALSE(message.GetFirstArg(id, text));
    EXPECT_EQ(message.GetArgCount(), 0);
}

TEST(CIpcMessageArgs, MaxNumParmsRefusesTheHundredTwentyNinthEvenAsReplacement) {
    CIpcMessage message;
    for (unsigned short id = 0; id < 128; ++id) {
        message.AddArg(id, id);
    }
    EXPECT_EQ(ThrownMessage([&] { message.AddArg(500, 1); }),
              "Unable to add new message parameter.  MaxNumParms exceeded (500)");
    EXPECT_EQ(ThrownMessage([&] { message.AddArg(3, "x"); }),
              "Unable to add new message parameter.  MaxNumParms exceeded (3)");
    EXPECT_EQ(message.GetNumArgs(), 128u);
    std::string text;
    ASSERT_TRUE(message.GetArg(3, text));
    EXPECT_EQ(text, "3");
}

TEST(CIpcMessageModel, CodesMustHaveTheirExactLength) {
    CIpcMessage message;
    EXPECT_EQ(ThrownMessage([&] { message.SetCode("BRIG"); }), "Invalid code BRIG");
    EXPECT_EQ(ThrownMessage([&] { message.SetCode(""); }), "Invalid code ");
    EXPECT_EQ(ThrownMessage([&] { message.SetSubCode("SUM"); }), "Invalid subcode SUM");
    EXPECT_EQ(message.GetCode(), "!!!");
    message.SetSubCode("");
    EXPECT_EQ(message.GetSubCode(), "");
    const Bytes bytes = Serialize(message);
    EXPECT_EQ(Bytes(bytes.begin() + 12, bytes.begin() + 16), Bytes(4, 0));
}

TEST(CIpcMessageModel, TextWithNulIsRefusedBecauseTheWireCannotCarryIt) {
    CIpcMessage message;
    EXPECT_EQ(ThrownMessage([&] { message.AddArg(4, std::string("a\0b", 3)); }),
              "Argument 4 text holds a NUL character");
    EXPECT_EQ(message.GetNumArgs(), 0u);
}

TEST(CIpcMessageModel, MakeReplyKeepsTransactionAndSwapsAddresses) {
    CIpcMessage request = ReferenceMessage();
    request.SetFlags(MSG_FLAG_REQUEST | MSG_FLAG_REPLY_WANTED | MSG_FLAG_SENDER_PRIVATE | MSG_FLAG_MORE_FOLLOWS);
    request.SetSourceAddress(12);
    request.SetDestinationAddress(3);
    request.SetReplyAddress("/var/run/ui/client.0");
    request.MakeReply(99);
    EXPECT_EQ(request.GetFlags(), MSG_FLAG_REPLY | MSG_FLAG_MORE_FOLLOWS);
    EXPECT_EQ(request.GetDestinationAddress(), 12);
    EXPECT_EQ(request.GetSourceAddress(), 99);
    EXPECT_EQ(request.GetSequence(), 7u);
    EXPECT_EQ(request.GetCode(), "BRI");
    EXPECT_EQ(request.GetSubCode(), "SUMM");
    EXPECT_EQ(request.GetReplyAddress(), "/var/run/ui/client.0");
    EXPECT_EQ(request.GetNumArgs(), 0u);
}

TEST(CIpcMessageModel, CopyHeaderTakesEverythingButArguments) {
    CIpcMessage source = ReferenceMessage();
    Serialize(source);
    source.SetReplyAddress("/r");
    CIpcMessage target;
    target.AddArg(5, "kept");
    target.CopyHeader(source);
    target.CopyHeader(target);
    EXPECT_EQ(target.GetCode(), "BRI");
    EXPECT_EQ(target.GetSequence(), 7u);
    EXPECT_EQ(target.GetArgCount(), 1);
    EXPECT_EQ(target.GetReplyAddress(), "/r");
    std::string text;
    EXPECT_TRUE(target.GetArg(5, text));
    EXPECT_FALSE(target.GetArg(0, text));
}

TEST(CIpcMessageModel, CopiesAreDeepAndIndependent) {
    CIpcMessage original = ReferenceMessage();
    original.SetReplyAddress("/a");
    CIpcMessage copy(original);
    copy.AddArg(0, "changed");
    CIpcMessage assigned;
    assigned = original;
    original.ClearArgs();
    std::string text;
    ASSERT_TRUE(copy.GetArg(0, text));
    EXPECT_EQ(text, "changed");
    ASSERT_TRUE(assigned.GetArg(0, text));
    EXPECT_EQ(text, "5");
    EXPECT_EQ(assigned.GetReplyAddress(), "/a");
    unsigned short id;
    EXPECT_TRUE(assigned.GetFirstArg(id, text));
}

TEST(CIpcMessageText, RendersAddressesCodeMarkerAndCountedArguments) {
    CIpcMessage request;
    request.SetCode("CMD");
    request.SetSubCode("SUMM");
    request.SetFlags(MSG_FLAG_REQUEST);
    request.AddArg(0, 1);
    EXPECT_EQ(CIpcMessage::GetMsgAsString(request), "0 0 CMD+SUMM?");  // never serialised: count 0
    Serialize(request);
    EXPECT_EQ(CIpcMessage::GetMsgAsString(request), "0 0 CMD+SUMM? 1");

    CIpcMessage reply;
    reply.SetCode("BRI");
    reply.SetSubCode("");
    reply.AddArg(0, "abc");
    reply.AddArg(2, -7);  // id 1 is absent and renders as 0
    reply.MakeReply(5);
    reply.AddArg(0, "abc");
    reply.AddArg(2, -7);
    reply.SetSourceAddress(5);
    reply.SetDestinationAddress(17);
    Serialize(reply);
    EXPECT_EQ(CIpcMessage::GetMsgAsString(reply), "17 5 BRI! abc 0");
}

// A datagram is accepted only when it is exactly one message; every damaged variant is
// dropped without touching the message it would have been read into.
class CIpcMessageDamage : public ::testing::Test {
protected:
    void SetUp() override {
        CIpcMessage source = ReferenceMessage();
        source.AddArg(1, "ab");
        good = Serialize(source);
        target.SetCode("OLD");
        target.AddArg(9, "untouched");
    }

    bool Accepts(const Bytes& datagram) {
        return target.DeserializeMessage(datagram.data(), static_cast<unsigned>(datagram.size()), "x");
    }

    void ExpectTargetUntouched() {
        EXPECT_EQ(target.GetCode(), "OLD");
        std::string text;
        EXPECT_TRUE(target.GetArg(9, text));
        EXPECT_EQ(target.GetReplyAddress(), "");
    }

    Bytes good;
    CIpcMessage target;
};

TEST_F(CIpcMessageDamage, EveryTruncationIsDropped) {
    for (size_t length = 0; length < good.size(); ++length) {
        Bytes cut(good.begin(), good.begin() + static_cast<long>(length));
        cut.resize(length);
        EXPECT_FALSE(CIpcMessage::IsCompleteMessage(cut.data(), static_cast<unsigned>(length))) << length;
        EXPECT_FALSE(Accepts(cut)) << length;
    }
    ExpectTargetUntouched();
}

TEST_F(CIpcMessageDamage, SizeFieldOffByOneIsDropped) {
    for (int delta : {-1, 1}) {
        Bytes bad = good;
        bad[22] = static_cast<unsigned char>(bad[22] + delta);
        EXPECT_FALSE(Accepts(bad));
    }
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_FALSE(Accepts(longer));
    ExpectTargetUntouched();
}

TEST_F(CIpcMessageDamage, LyingArgumentCountOrMissingNulIsDropped) {
    Bytes moreArgs = good;
    moreArgs[20] = 3;  // claims a record that is not there
    EXPECT_FALSE(Accepts(moreArgs));

    Bytes fewerArgs = good;
    fewerArgs[20] = 1;  // the second record would be left over
    EXPECT_FALSE(Accepts(fewerArgs));

    Bytes noNul = good;
    noNul.back() = 'c';  // the last text runs to the end of the datagram
    EXPECT_FALSE(Accepts(noNul));

    Bytes hugeCount = good;
    hugeCount[20] = 0xFF;
    hugeCount[21] = 0xFF;
    EXPECT_FALSE(Accepts(hugeCount));
    ExpectTargetUntouched();
}

TEST_F(CIpcMessageDamage, EachCorruptedByteIsDroppedOrChangesOnlyItsField) {
    // Offsets 0-1 magic, 20-21 count, 22-23 size and 36 the last NUL: any change there
    // breaks the framing. Byte 29, the first text's NUL, re-frames instead: the next
    // record's zero flags byte ends the longer text, and what follows still fills the
    // datagram exactly. Every other byte is payload: accepted with that field changed.
    const std::set<size_t> framing = {0, 1, 20, 21, 22, 23, 36};
    for (size_t offset = 0; offset < good.size(); ++offset) {
        Bytes bad = good;
        bad[offset] ^= 0x5A;
        CIpcMessage message;
        const bool accepted =
            message.DeserializeMessage(bad.data(), static_cast<unsigned>(bad.size()), "x");
        EXPECT_EQ(accepted, framing.count(offset) == 0) << "offset " << offset;
        if (!accepted) {
            continue;
        }
        const Bytes again = Serialize(message);
        if (offset < 24) {
            EXPECT_EQ(again, bad) << "offset " << offset;
        } else {
            // A changed id may reorder the records; the content survives a second trip.
            EXPECT_EQ(again.size(), bad.size()) << "offset " << offset;
            CIpcMessage reread;
            ASSERT_TRUE(reread.DeserializeMessage(again.data(), static_cast<unsigned>(again.size()), "x"));
            EXPECT_EQ(Serialize(reread), again) << "offset " << offset;
        }
    }
}

TEST_F(CIpcMessageDamage, RepeatedIdKeepsTheLastRecord) {
    CIpcMessage source;
    source.AddArg(0, "first");
    source.AddArg(1, "second");
    Bytes bytes = Serialize(source);
    bytes[24 + 2 + 10] = 0;  // the second record's id becomes 0 as well
    ASSERT_TRUE(Accepts(bytes));
    std::string text;
    ASSERT_TRUE(target.GetArg(0, text));
    EXPECT_EQ(text, "second");
    EXPECT_EQ(target.GetNumArgs(), 1u);
}

TEST(CIpcMessageLimits, TooLargeMessageIsNotBuilt) {
    CIpcMessage message;
    message.AddArg(0, "small");
    unsigned char* first = nullptr;
    const int firstSize = message.SerializeMessage(first);
    message.AddArg(1, std::string(4096, 'x'));
    unsigned char* second = nullptr;
    EXPECT_EQ(message.SerializeMessage(second), 24 + 10 + 4101);
    EXPECT_EQ(second, first);  // the previous buffer is handed back unchanged
    EXPECT_EQ(firstSize, 34);

    CIpcMessage limit;
    limit.AddArg(0, std::string(4096 - 24 - 5 - 1, 'y'));
    unsigned char* data = nullptr;
    EXPECT_EQ(limit.SerializeMessage(data), 4095);
    EXPECT_TRUE(CIpcMessage::IsCompleteMessage(data, 4095));
}
