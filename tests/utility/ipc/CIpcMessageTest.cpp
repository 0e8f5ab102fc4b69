// The IPC message model and its wire format: exact bytes, argument flags, limits,
// replies, rendering, and the handling of damaged datagrams.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <utility>
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

// The text of argument id, or "(none)" when it is absent.
std::string Text(const CIpcMessage& message, unsigned short id) {
    std::string text;
    return message.GetArg(id, text) ? text : "(none)";
}

bool Read(CIpcMessage& message, const Bytes& bytes, const char* sender = "x") {
    return message.DeserializeMessage(bytes.data(), static_cast<unsigned>(bytes.size()), sender);
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
    0xFE, 0x13, 0x12, 0x00, 0x00, 0x00, 0x00, 0x00,  // magic, flags, type
    'I',  'R',  'B',  0x00, 'M',  'M',  'U',  'S',   // code and subcode, reversed by the word packing
    0x07, 0x00, 0x00, 0x00, 0x01, 0x00, 0x1E, 0x00,  // sequence, argument count, total size 30
    0x43, 0x00, 0x00, 0x00, '5',  0x00,              // number, modifier 0, id 0, "5"
};

}  // namespace

TEST(CIpcMessageWire, NewReferenceAndMultiRecordMessagesHaveExactBytes) {
    CIpcMessage fresh;
    EXPECT_EQ(fresh.GetCode(), "!!!");
    EXPECT_EQ(fresh.GetSubCode(), "!!!!");
    const Bytes bare = Serialize(fresh);
    ASSERT_EQ(bare.size(), 24u);
    EXPECT_EQ((Bytes{bare[0], bare[1], bare[22], bare[23]}), (Bytes{0xFE, 0x13, 24, 0}));

    CIpcMessage message = ReferenceMessage();
    EXPECT_EQ(Serialize(message), kReferenceBytes);
    EXPECT_EQ(message.GetArgCount(), 1);
    EXPECT_EQ(message.GetTotalSize(), 30);

    // Records are written in ascending id order, with their modifiers.
    CIpcMessage records;
    records.SetCode("ABC");
    records.AddArg(300, "xy", 'D');
    records.AddArg(2, -1234);
    const Bytes bytes = Serialize(records);
    EXPECT_EQ(Bytes(bytes.begin() + 24, bytes.end()), (Bytes{0x44, 0x00, 0x02, 0x00, '-', '1', '2', '3', '4', 0x00,
                                                              0x00, 'D', 0x2C, 0x01, 'x', 'y', 0x00}));
    EXPECT_EQ(bytes[22], 24 + 10 + 7);
}

TEST(CIpcMessageWire, RoundTripKeepsHeaderArgumentsAndSender) {
    CIpcMessage original = ReferenceMessage();
    original.AddArg(7, "text with spaces", 3);
    original.SetCharDelimiter(7);
    const Bytes bytes = Serialize(original);

    CIpcMessage received;
    ASSERT_TRUE(Read(received, bytes, "/var/run/ui/peer"));
    EXPECT_EQ(received.GetCode() + "+" + received.GetSubCode(), "BRI+SUMM");
    EXPECT_EQ(received.GetSequence(), 7u);
    EXPECT_EQ(received.GetFlags(), MSG_FLAG_REQUEST | MSG_FLAG_REPLY_WANTED);
    EXPECT_EQ(received.GetReplyAddress(), "/var/run/ui/peer");
    EXPECT_EQ(Text(received, 7), "text with spaces");
    EXPECT_FALSE(received.IsTextArg(7) || received.IsNumberArg(7));  // the delimiter bit makes it neither
    EXPECT_EQ(Serialize(received), bytes);

    Bytes highByte = bytes;
    highByte[11] = 0x01;  // above the code's three characters: GetCode leaves it out, so must IsCode
    ASSERT_TRUE(Read(received, highByte));
    EXPECT_EQ(received.GetCode(), "BRI");
    EXPECT_TRUE(received.IsCode("BRI"));
    EXPECT_FALSE(received.IsCode("BRJ") || received.IsCode("RI") || received.IsCode("BRIX"));
}

TEST(CIpcMessageArgs, NumberFlagsCountDigitsWithAMinimumOfThree) {
    CIpcMessage message;
    const struct { int value; const char* text; int flags; } cases[] = {{5, "5", 0x43}, {0, "0", 0x43}, {-12, "-12", 0x43}, {123, "123", 0x43},
                 {-1234, "-1234", 0x44}, {2147483647, "2147483647", 0x4A}, {-2147483647 - 1, "-2147483648", 0x4A}};
    std::string text;
    EParmFlags flags;
    for (const auto& c : cases) {
        message.AddArg(0, c.value);
        ASSERT_TRUE(message.GetArg(0, text) && message.GetArgFlags(0, flags));
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(flags, c.flags) << c.value;
        EXPECT_TRUE(message.IsNumberArg(0));
    }
    message.AddArg(1, 7, static_cast<EParmFlags>(PARM_NUMBER | 5));  // given flags are kept
    ASSERT_TRUE(message.GetArgFlags(1, flags));
    EXPECT_EQ(flags, PARM_NUMBER | 5);
}

TEST(CIpcMessageArgs, NumberReadingFollowsFlagsAndWholeTextRule) {
    // Number arguments whose text is not a clean number arrive only from the wire. Read as
    // strtol reads a decimal: blanks and a sign before the digits, nothing after them; the
    // converted part is kept, and out of range is clamped and refused.
    const struct {
        const char* text;
        bool read;
        int value;
    } cases[] = {{"12a", false, 12},         {"", false, 0},          {"99999999999", false, 2147483647},
                 {"-42", true, -42},         {" \t+7", true, 7},      {"-", false, 0},
                 {"-2147483648", true, INT_MIN}, {"-2147483649", false, INT_MIN}, {"2147483647", true, INT_MAX},
                 {"7 ", false, 7}};
    CIpcMessage source;
    for (unsigned short id = 0; id < std::size(cases); ++id) {
        source.AddArg(id, cases[id].text);
    }
    Bytes bytes = Serialize(source);
    size_t record = 24;
    for (const auto& c : cases) {
        bytes[record] = 0x43;  // turn each record into a number argument
        record += 5 + strlen(c.text);
    }
    CIpcMessage message;
    ASSERT_TRUE(Read(message, bytes, ""));
    for (unsigned short id = 0; id < std::size(cases); ++id) {
        int value = -1;
        EXPECT_EQ(message.GetArg(id, value), cases[id].read) << cases[id].text;
        EXPECT_EQ(value, cases[id].value) << cases[id].text;
    }

    CIpcMessage textOnly;
    textOnly.AddArg(0, "123");
    int value = 5;
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
    ASSERT_TRUE(message.GetFirstArg(id, text) && message.GetNextArg(id, text));
    EXPECT_EQ(id, 3);
    EXPECT_FALSE(message.GetNextArg(id, text));

    message.AddArg(1, 77, PARM_TEXT, 9);
    EXPECT_EQ(message.GetNumArgs(), 2u);
    ASSERT_TRUE(message.GetNextArg(id, text));  // back at the first argument
    EXPECT_EQ(std::to_string(id) + " " + text, "1 77");
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
    EXPECT_EQ(Text(message, 3), "3");
}

TEST(CIpcMessageModel, BadCodesAndNulTextAreRefused) {
    CIpcMessage message;
    EXPECT_EQ(ThrownMessage([&] { message.SetCode("BRIG"); }), "Invalid code BRIG");
    EXPECT_EQ(ThrownMessage([&] { message.SetCode(""); }), "Invalid code ");
    EXPECT_EQ(ThrownMessage([&] { message.SetSubCode("SUM"); }), "Invalid subcode SUM");
    EXPECT_EQ(message.GetCode(), "!!!");
    message.SetSubCode("");  // an empty subcode is allowed and written as zeros
    EXPECT_EQ(message.GetSubCode(), "");
    const Bytes bytes = Serialize(message);
    EXPECT_EQ(Bytes(bytes.begin() + 12, bytes.begin() + 16), Bytes(4, 0));
    // The wire cannot carry a NUL inside a text.
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
    CIpcMessage empty = request.EmptyReply();
    CIpcMessage copied(request);
    copied.MakeReply(0);
    EXPECT_EQ(Serialize(empty), Serialize(copied));
    EXPECT_EQ(empty.GetReplyAddress(), copied.GetReplyAddress());
    EXPECT_EQ(empty.GetDestinationAddress(), 12);
    EXPECT_EQ(empty.GetSourceAddress(), 0);
    EXPECT_EQ(Text(request, 0), "5");
    request.MakeReply(99);
    EXPECT_EQ(request.GetFlags(), MSG_FLAG_REPLY | MSG_FLAG_MORE_FOLLOWS);
    EXPECT_EQ(request.GetDestinationAddress(), 12);
    EXPECT_EQ(request.GetSourceAddress(), 99);
    EXPECT_EQ(request.GetSequence(), 7u);
    EXPECT_EQ(request.GetCode() + "+" + request.GetSubCode(), "BRI+SUMM");
    EXPECT_EQ(request.GetReplyAddress(), "/var/run/ui/client.0");
    EXPECT_EQ(request.GetNumArgs(), 0u);
}

TEST(CIpcMessageModel, CopyHeaderTakesEverythingButArgumentsAndCopiesAreDeep) {
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
    EXPECT_EQ(Text(target, 5), "kept");
    EXPECT_EQ(Text(target, 0), "(none)");

    CIpcMessage copy(source);
    copy.AddArg(0, "changed");
    CIpcMessage assigned;
    assigned = source;
    source.ClearArgs();
    EXPECT_EQ(Text(copy, 0), "changed");
    EXPECT_EQ(Text(assigned, 0), "5");
    EXPECT_EQ(assigned.GetReplyAddress(), "/r");
    unsigned short id;
    std::string text;
    EXPECT_TRUE(assigned.GetFirstArg(id, text));
}

TEST(CIpcMessageModel, MovesTakeEverythingAndLeaveANewMessage) {
    CIpcMessage source = ReferenceMessage();
    source.SetReplyAddress("/r");
    source.SetSourceAddress(4);
    const Bytes bytes = Serialize(source);
    CIpcMessage moved(std::move(source));
    EXPECT_EQ(Serialize(moved), bytes);
    EXPECT_EQ(moved.GetReplyAddress(), "/r");
    EXPECT_EQ(moved.GetSourceAddress(), 4);
    CIpcMessage fresh;
    EXPECT_EQ(Serialize(source), Serialize(fresh));
    EXPECT_EQ(source.GetReplyAddress(), "");
    EXPECT_EQ(source.GetSourceAddress(), 0);

    CIpcMessage target;
    target.AddArg(9, "dropped");
    target = std::move(moved);
    EXPECT_EQ(Serialize(target), bytes);
    EXPECT_EQ(Serialize(moved), Serialize(fresh));
    ASSERT_TRUE(Read(moved, bytes));  // a moved-from message takes the next datagram
    EXPECT_EQ(Text(moved, 0), "5");
}

TEST(CIpcMessageModel, AReusedMessageKeepsNothingOfItsLastOne) {
    CIpcMessage request = ReferenceMessage();
    request.SetReplyAddress("/r");
    request.SetSourceAddress(4);
    request.SetDestinationAddress(6);
    const Bytes bytes = Serialize(request);

    CIpcMessage used(request);
    used.AddArg(9, "left over");
    Serialize(used);
    used.Reset();
    CIpcMessage fresh;
    EXPECT_EQ(Serialize(used), Serialize(fresh));
    EXPECT_EQ(used.GetReplyAddress(), "");
    EXPECT_EQ(used.GetSourceAddress() + used.GetDestinationAddress(), 0);

    used.AddArg(9, "left over");
    used.AssignEmptyReply(request);
    CIpcMessage expected = request.EmptyReply();
    EXPECT_EQ(Serialize(used), Serialize(expected));
    EXPECT_EQ(used.GetReplyAddress(), "/r");
    EXPECT_EQ(used.GetSourceAddress(), expected.GetSourceAddress());
    EXPECT_EQ(used.GetDestinationAddress(), expected.GetDestinationAddress());
    CIpcMessage itself = request;
    itself.AssignEmptyReply(itself);
    EXPECT_EQ(Serialize(itself), Serialize(expected));

    // The wire carries no station addresses, so a received message has none.
    ASSERT_TRUE(Read(used, bytes));
    EXPECT_EQ(used.GetSourceAddress() + used.GetDestinationAddress(), 0);
    EXPECT_EQ(Serialize(used), bytes);
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
    reply.MakeReply(5);
    reply.AddArg(0, "abc");
    reply.AddArg(2, -7);  // id 1 is absent and renders as 0
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

    void TearDown() override {
        EXPECT_EQ(target.GetCode(), "OLD");
        EXPECT_EQ(Text(target, 9), "untouched");
        EXPECT_EQ(target.GetReplyAddress(), "");
    }

    Bytes good;
    CIpcMessage target;
};

TEST_F(CIpcMessageDamage, TruncatedOrMisframedDatagramIsDropped) {
    for (size_t length = 0; length < good.size(); ++length) {
        const Bytes cut(good.begin(), good.begin() + static_cast<long>(length));
        EXPECT_FALSE(CIpcMessage::IsCompleteMessage(cut.data(), static_cast<unsigned>(length))) << length;
        EXPECT_FALSE(Read(target, cut)) << length;
    }
    const std::function<void(Bytes&)> lies[] = {
        [](Bytes& b) { --b[22]; }, [](Bytes& b) { ++b[22]; },  // size field off by one
        [](Bytes& b) { b.push_back(0); },                      // one byte more than the size says
        [](Bytes& b) { b[20] = 3; },                           // claims a record that is not there
        [](Bytes& b) { b[20] = 1; },                           // the second record would be left over
        [](Bytes& b) { b[20] = b[21] = 0xFF; },                // huge count
        [](Bytes& b) { b.back() = 'c'; },                      // the last text runs to the end
    };
    for (size_t i = 0; i < std::size(lies); ++i) {
        Bytes bad = good;
        lies[i](bad);
        EXPECT_FALSE(Read(target, bad)) << "case " << i;
    }
}

TEST(CIpcMessageDamageEach, CorruptedByteIsDroppedOrChangesOnlyItsField) {
    // Offsets 0-1 magic, 20-21 count, 22-23 size and 36 the last NUL: any change there
    // breaks the framing. Byte 29, the first text's NUL, re-frames instead: the next
    // record's zero flags byte ends the longer text, and what follows still fills the
    // datagram exactly. Every other byte is payload: accepted with that field changed.
    CIpcMessage source = ReferenceMessage();
    source.AddArg(1, "ab");
    const Bytes good = Serialize(source);
    const std::set<size_t> framing = {0, 1, 20, 21, 22, 23, 36};
    for (size_t offset = 0; offset < good.size(); ++offset) {
        Bytes bad = good;
        bad[offset] ^= 0x5A;
        CIpcMessage message;
        const bool accepted = Read(message, bad);
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
            ASSERT_TRUE(Read(reread, again));
            EXPECT_EQ(Serialize(reread), again) << "offset " << offset;
        }
    }
}

TEST(CIpcMessageDamageEach, RecordsOutOfOrderAreHeldInIdOrderAndARepeatedIdKeepsTheLast) {
    CIpcMessage source;
    source.AddArg(1, "aaa");
    source.AddArg(5, "bbb");
    source.AddArg(9, "ccc");
    source.AddArg(12, "ddd");
    Bytes bytes = Serialize(source);
    bytes[24 + 2] = 9;  // records of 8 bytes each, their ids now 9, 5, 1, 1
    bytes[24 + 16 + 2] = 1;
    bytes[24 + 24 + 2] = 1;
    CIpcMessage message;
    ASSERT_TRUE(Read(message, bytes));
    std::string walked;
    unsigned short id = 0;
    std::string text;
    for (bool more = message.GetFirstArg(id, text); more; more = message.GetNextArg(id, text)) {
        walked += std::to_string(id) + "=" + text + " ";
    }
    EXPECT_EQ(walked, "1=ddd 5=bbb 9=aaa ");
}

TEST(CIpcMessageLimits, TooLargeMessageIsNotBuilt) {
    CIpcMessage message;
    message.AddArg(0, "small");
    unsigned char* first = nullptr;
    EXPECT_EQ(message.SerializeMessage(first), 34);
    message.AddArg(1, std::string(4096, 'x'));
    unsigned char* second = nullptr;
    EXPECT_EQ(message.SerializeMessage(second), 24 + 10 + 4101);
    EXPECT_EQ(second, first);  // the previous buffer is handed back unchanged
    message.RemoveArg(1);
    message.SetSequence(9);
    EXPECT_EQ(Serialize(message), (Bytes{0xFE, 0x13, 0, 0, 0, 0, 0, 0, '!', '!', '!', 0, '!', '!', '!', '!', 9, 0,
                                         0, 0, 1, 0, 34, 0, 0, 0, 0, 0, 's', 'm', 'a', 'l', 'l', 0}));

    CIpcMessage limit;
    limit.AddArg(0, std::string(4096 - 24 - 5 - 1, 'y'));
    unsigned char* data = nullptr;
    EXPECT_EQ(limit.SerializeMessage(data), 4095);
    EXPECT_TRUE(CIpcMessage::IsCompleteMessage(data, 4095));
}
