// The light-source link's messages: BER lengths, both CRCs, the two header layouts,
// decoding errors on damaged frames, and the parser cutting frames out of a stream.

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "CBERLength.h"
#include "CCRC.h"
#include "CCepMessage.h"
#include "CCepParser.h"
#include "BufferedLog.h"

using namespace LibFusion;
using Bytes = std::vector<uint8_t>;

namespace {

CCepMessage Sample() {
    CCepMessage message;
    message.setCommandCode(COMMAND_SET);
    message.setObjectID(0x1234);
    message.setErrorCode(0x0508);
    message.setDestinationID(7);
    message.setSourceID(9);
    message.setSecurityID(3);
    message.setSequenceNumber(42);
    message.setUInt32(65, 0xA1B2C3D4);
    message.setString(28, "LBM-1");
    message.setUInt8(40, 3);
    return message;
}

}  // namespace

TEST(CBERLengthTest, LengthsTakeOneToFourBytesAndBrokenOnesDecodeAsNothing) {
    const struct {
        uint32_t value;
        Bytes bytes;
    } cases[] = {{0, {0x00}},          {127, {0x7F}},             {128, {0x81, 0x80}},
                 {255, {0x81, 0xFF}},  {256, {0x82, 0x01, 0x00}}, {65535, {0x82, 0xFF, 0xFF}},
                 {65536, {0x83, 0x01, 0x00, 0x00}},               {16777215, {0x83, 0xFF, 0xFF, 0xFF}}};
    for (const auto& c : cases) {
        uint8_t out[4] = {};
        ASSERT_EQ(CBERLength::encode(c.value, out), c.bytes.size()) << c.value;
        EXPECT_EQ(Bytes(out, out + c.bytes.size()), c.bytes) << c.value;
        uint32_t value = 99;
        EXPECT_EQ(CBERLength::decode(c.bytes.data(), static_cast<uint32_t>(c.bytes.size()), value), c.bytes.size());
        EXPECT_EQ(value, c.value);
    }
    uint8_t out[4] = {};
    EXPECT_EQ(CBERLength::berBytesLength(16777216), 0u);
    EXPECT_EQ(CBERLength::encode(16777216, out), 0u);
    for (const Bytes& broken : {Bytes{0x80, 1}, Bytes{0x84, 1, 2, 3, 4}, Bytes{0x82, 1}, Bytes{}}) {
        uint32_t value = 99;
        EXPECT_EQ(CBERLength::decode(broken.data(), static_cast<uint32_t>(broken.size()), value), 0u);
        EXPECT_EQ(value, 0u);
    }
}

TEST(CCRCTest, CheckValuesAndTheFastCrcAgreesWithTheTableEverywhere) {
    const uint8_t* check = reinterpret_cast<const uint8_t*>("123456789");
    EXPECT_EQ(CCRC::calcCRC16(0, check, 9), 0xBB3D);
    EXPECT_EQ(CCRC::calcCRC16Bytewise(0, check, 9), 0xBB3D);
    EXPECT_EQ(CCRC::calcCRC32(0xFFFFFFFF, check, 9), 0xCBF43926u);
    std::mt19937 random(7);
    Bytes data(300);
    for (auto& byte : data) {
        byte = static_cast<uint8_t>(random());
    }
    for (size_t length = 0; length <= data.size(); ++length) {
        const uint16_t seed = static_cast<uint16_t>(length * 977);
        ASSERT_EQ(CCRC::calcCRC16(seed, data.data(), length), CCRC::calcCRC16Bytewise(seed, data.data(), length))
            << length;
    }
}

TEST(CCepMessageTest, BothVersionsPutTheHeaderFieldsInPlaceAndDecodeBackTheSame) {
    CCepMessage message = Sample();
    const Bytes v2 = message.toBytes(VERSION_2, true);
    EXPECT_EQ(Bytes(v2.begin(), v2.begin() + 14),
              (Bytes{0x7B, 0x02, 0x34, 0x2B, 2, 0, 1, 0x34, 0x12, 0x08, 0x05, 7, 9, 3}));
    EXPECT_EQ(v2[16], 42);
    EXPECT_EQ(v2[17], 0);
    Bytes zeroed = v2;
    zeroed[14] = zeroed[15] = 0;
    EXPECT_EQ(v2[14] | v2[15] << 8, CCRC::calcCRC16Bytewise(0, zeroed.data(), zeroed.size()));
    // Block: 3 properties in key order: 28 "LBM-1" (type 12), 40 (type 1), 65 (type 5).
    EXPECT_EQ(v2[18], (4 + 1 + 1 + 5) + (4 + 1 + 1 + 1) + (4 + 1 + 1 + 4));  // key, length, type, data
    EXPECT_EQ(Bytes(v2.begin() + 19, v2.begin() + 25), (Bytes{28, 0, 0, 0, 6, PROPERTY_STRING}));
    EXPECT_EQ(v2.size(), 18u + 1 + v2[18]);

    const Bytes v1 = message.toBytes(VERSION_1, true);
    EXPECT_EQ(Bytes(v1.begin() + 4, v1.begin() + 12), (Bytes{1, 0, 1, 0x34, 0x08, 0x05, 9, 3}));
    EXPECT_EQ(v1[14], 42);
    EXPECT_EQ(Bytes(v1.begin() + 19, v1.begin() + 24), (Bytes{28, 0, 0, 0, 5}));  // no type byte

    for (const Bytes* frame : {&v1, &v2}) {
        CCepMessage decoded;
        uint32_t consumed = 0;
        ASSERT_TRUE(decoded.fromBytes(frame->data(), static_cast<uint32_t>(frame->size()), consumed, true));
        EXPECT_EQ(consumed, frame->size());
        EXPECT_EQ(decoded.getDecodingError(), DECODE_OK);
        EXPECT_EQ(decoded.getSequenceNumber(), 42);
        EXPECT_EQ(decoded.getDestinationID(), frame == &v1 ? 0 : 7);
        EXPECT_EQ(decoded.getObjectID(), frame == &v1 ? 0x34 : 0x1234);
        uint32_t value = 0;
        EXPECT_TRUE(decoded.getUInt32(65, value));
        EXPECT_EQ(value, 0xA1B2C3D4u);
        int8_t small = 0;
        EXPECT_TRUE(decoded.getInt8(40, small));
        EXPECT_EQ(small, 3);
        uint64_t wide = 0;
        EXPECT_FALSE(decoded.getUInt64(40, wide));  // one byte is not eight
        EXPECT_EQ(decoded.getProperty(40)->type, frame == &v1 ? PROPERTY_UNTYPED : PROPERTY_UINT8);
        std::string id;
        EXPECT_TRUE(decoded.getString(28, id));
        EXPECT_EQ(id, "LBM-1");
        EXPECT_EQ(decoded.toBytes(decoded.getDecodedVersion(), false), *frame);
    }
}

TEST(CCepMessageTest, DamagedFramesAreRefusedWithTheirErrorAndTheBufferIsOnlyRead) {
    CCepMessage message = Sample();
    const Bytes good = message.toBytes(VERSION_2, true);
    CCepMessage decoded;
    uint32_t consumed = 0;
    auto decode = [&](const Bytes& bytes, bool crc) {
        return decoded.fromBytes(bytes.data(), static_cast<uint32_t>(bytes.size()), consumed, crc)
                   ? static_cast<uint16_t>(DECODE_OK)
                   : decoded.getDecodingError();
    };
    Bytes empty = good;
    empty.resize(18);
    EXPECT_EQ(decode(empty, false), DECODE_BAD_HEADER);  // 18 bytes never pass the header check
    Bytes version0 = good;
    version0[4] = 0;
    EXPECT_EQ(decode(version0, false), DECODE_BAD_HEADER);
    EXPECT_EQ(decode(Bytes(good.begin(), good.end() - 1), false), DECODE_INCOMPLETE);
    EXPECT_EQ(consumed, good.size());
    for (size_t at = 0; at < good.size(); ++at) {
        Bytes bad = good;
        bad[at] ^= 0x40;
        const Bytes before = bad;
        const uint16_t error = decode(bad, true);
        EXPECT_NE(error, DECODE_OK) << at;
        EXPECT_EQ(bad, before);
    }
    Bytes lying = good;
    lying[19 + 4] = 0x7F;  // the first property claims more bytes than its block holds
    EXPECT_EQ(decode(lying, false), DECODE_INCOMPLETE);

    // A block length cut inside its bytes is incomplete (not an empty block); a byte count
    // above 3 can never be a length.
    Bytes cut(good.begin(), good.begin() + 19);
    cut[18] = 0x82;
    EXPECT_EQ(decode(cut, false), DECODE_INCOMPLETE);
    EXPECT_EQ(consumed, 0u);
    cut[18] = 0x84;
    EXPECT_EQ(decode(cut, false), DECODE_BAD_HEADER);
}

TEST(CCepParserTest, FramesAreCutOutOfTheStreamWhateverComesAroundThem) {
    CCepMessage message = Sample();
    const Bytes frame = message.toBytes(VERSION_1, true);
    CCepParser parser(100);
    const Bytes garbage = {'x', 0x7B, 0x02, 'y'};
    parser.addData(garbage.data(), 4);
    parser.addData(frame.data(), 20);
    EXPECT_EQ(parser.getCepMsg(), nullptr);  // half a frame: nothing yet
    parser.addData(frame.data() + 20, static_cast<uint32_t>(frame.size() - 20));
    parser.addData(frame.data(), static_cast<uint32_t>(frame.size()));
    auto first = parser.getCepMsg();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getSequenceNumber(), 42);
    EXPECT_NE(parser.getCepMsg(), nullptr);
    EXPECT_EQ(parser.getCepMsg(), nullptr);
    EXPECT_EQ(parser.GetSize(), 0u);

    // Garbage without a start marker stays, and once it fills the buffer nothing more fits.
    const std::string noise(120, 'z');
    EXPECT_EQ(parser.addData(noise.data(), 120), 100u);
    EXPECT_EQ(parser.getCepMsg(), nullptr);
    EXPECT_EQ(parser.addData(frame.data(), static_cast<uint32_t>(frame.size())), 0u);
    parser.Clear();
    EXPECT_EQ(parser.addData(frame.data(), static_cast<uint32_t>(frame.size())), frame.size());
}

TEST(CCepParserTest, AFrameThatCanNeverDecodeIsSkippedWhileOneThatMayCompleteWaits) {
    CCepMessage message = Sample();
    message.setString(90, std::string(200, 's'));  // a block of two length bytes
    const Bytes frame = message.toBytes(VERSION_2, true);
    ASSERT_EQ(frame[18], 0x81);
    CBufferedLog log;
    CCepParser parser(1000, &log);
    for (size_t at = 0; at + 1 < frame.size(); ++at) {  // byte by byte, the block length too
        parser.addData(&frame[at], 1);
        ASSERT_EQ(parser.getCepMsg(), nullptr) << at;
    }
    parser.addData(&frame.back(), 1);
    ASSERT_NE(parser.getCepMsg(), nullptr);

    Bytes version3 = frame;
    version3[4] = 3;
    Bytes lying = frame;
    lying[20 + 4] = 0x83;  // the first property claims megabytes: it runs past its block
    Bytes huge = frame;
    huge.resize(19);
    huge[18] = 0x83;  // 16 MB: more than the buffer can ever hold
    huge.insert(huge.end(), {0xFF, 0xFF, 0xFF});
    for (const Bytes* bad : {&version3, &lying, &huge}) {
        parser.addData(bad->data(), static_cast<uint32_t>(bad->size()));
    }
    parser.addData(frame.data(), static_cast<uint32_t>(frame.size()));
    auto good = parser.getCepMsg();
    ASSERT_NE(good, nullptr);
    EXPECT_EQ(good->getSequenceNumber(), 42);
    EXPECT_EQ(parser.GetSize(), 0u);
    EXPECT_EQ(log.Count("skipped a frame that cannot be decoded"), 3u) << log.GetContents();
}

TEST(CCepParserTest, AReaderThreadAndAConsumerThreadShareOneParser) {
    const Bytes frame = Sample().toBytes(VERSION_1, true);
    constexpr int kFrames = 500;
    CCepParser parser(256);  // small: the reader often finds it full and waits for the consumer
    std::thread reader([&] {
        for (int i = 0; i < kFrames; ++i) {
            for (size_t at = 0; at < frame.size();) {
                at += parser.addData(frame.data() + at, static_cast<uint32_t>(std::min<size_t>(7, frame.size() - at)));
            }
        }
    });
    int taken = 0;
    while (taken < kFrames) {
        if (auto message = parser.getCepMsg()) {
            EXPECT_EQ(message->getSequenceNumber(), 42);
            ++taken;
        } else {
            std::this_thread::yield();
        }
    }
    reader.join();
    EXPECT_EQ(parser.GetSize(), 0u);
}
