// The packet bus through the packet device's ioctl seam, against the simulated FPGA:
// exact headers, the reply check field by field, size limits, time-outs, the receive
// buffer drain and v-sync waits.

#include <gtest/gtest.h>

#include <vector>

#include "CPtBusLocal.h"
#include "NPtPacket.h"
#include "PtBusFixture.h"
#include "ThrownMessage.h"

namespace {

class CPtBusPcieTest : public CPtBusFixture {
protected:
    std::vector<uint32_t> ReadWords(unsigned char port, unsigned short address, unsigned int count) {
        std::vector<uint32_t> words(count);
        bus.Request(port, address, static_cast<const unsigned int*>(nullptr), 0, words.data(), count, true, 10);
        return words;
    }
};

}  // namespace

TEST(NPtPacketTest, HeadersPutEveryFieldInItsBits) {
    using namespace NPtPacket;
    const struct {
        uint64_t header;
        uint64_t expected;
    } cases[] = {
        {MakeHeader(TYPE_POSTED_WRITE, 48, 0x324, 1024, false), 0xC324000004000009ULL},
        {MakeHeader(TYPE_REQUEST, 63, 0x3FC, 0, true, 1024), 0xFFFC04000000008AULL},
        {MakeHeader(TYPE_REQUEST, 0x41, 0x1404, 8, true, 4), 0x040400040008008AULL},  // cut to 6 and 10 bits
        {MakeReplyHeader(56, 0x280, 4, false), 0x028000000004E00BULL},
        {MakeGenericHeader(0x1F, 0x12, 0x7FFF, 0x4001, 12, true, false, true, false), 0x00013FFF000C2A0FULL},
        {MakeShortHeader(3, 5, 0xAB, true, false, false, true), 0xAB11000000005308ULL},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.header, c.expected) << std::hex << c.header;
    }
}

TEST_F(CPtBusPcieTest, PostedAndRequestedWordsAndBytesReachTheRegistersAndComeBack) {
    const unsigned int words[] = {0x11111111, 0x22222222, 0x33333333};
    bus.Send(1, 0x100, words, 3, true);
    EXPECT_EQ(ReadWords(1, 0x100, 3), std::vector<uint32_t>(words, words + 3));
    bus.Request(1, 0x200, words, 1, static_cast<unsigned int*>(nullptr), 0, false, 10);  // acknowledged write
    EXPECT_EQ(device.GetPort(1)->Peek(0x200), 0x11111111u);

    const unsigned char bytes[] = {0xA1, 0xB2, 0xC3};
    bus.Send(1, 0x301, bytes, 3, true);
    unsigned char back[4] = {};
    bus.Request(1, 0x300, static_cast<const unsigned char*>(nullptr), 0, back, 4, true, 10);
    EXPECT_EQ(std::vector<unsigned char>(back, back + 4), (std::vector<unsigned char>{0, 0xA1, 0xB2, 0xC3}));

    // A FIFO transfer (increment off) streams into the memory behind a data register.
    const unsigned int address = 5;
    bus.Send(2, 0x10, &address, 1, false);
    bus.Send(2, 0x14, words, 3, false);
    EXPECT_EQ(device.GetPort(2)->PeekMemory(0x14, 7), 0x33333333u);
    EXPECT_EQ(bus.GetPacketsSent(), 7u);
    EXPECT_EQ(bus.GetRepliesReceived(), 3u);
}

TEST_F(CPtBusPcieTest, PayloadsAreLimitedTo256WordsOr1024BytesBeforeTheDeviceIsTouched) {
    std::vector<unsigned int> words(257, 7);
    std::vector<unsigned char> bytes(1025, 7);
    bus.Send(1, 0, words.data(), 256, false);
    bus.Request(1, 0, static_cast<const unsigned char*>(nullptr), 0, bytes.data(), 1024, false, 10);
    const unsigned int before = accesses;
    EXPECT_EQ(ThrownMessage([&] { bus.Receive(3, 0x12, words.data(), 257, true, 10); }),
              "PtBus Receive: [3][0x0012]: Packet size too large: 257 words");
    EXPECT_EQ(ThrownMessage([&] { bus.Receive(3, 0x12, bytes.data(), 1025, true, 10); }),
              "PtBus Receive: [3][0x0012]: Packet size too large: 1025 bytes");
    EXPECT_THROW(bus.Send(1, 0, words.data(), 257, true), CException);
    EXPECT_EQ(accesses, before);
}

TEST_F(CPtBusPcieTest, AReplyIsAcceptedOnlyWithEveryCheckedFieldRight) {
    unsigned int value = 0;
    // Bits outside the check (4-6, 8-9, 27-31, 32-47) do not matter.
    for (uint64_t ignored : {0x70ULL, 0x300ULL, 0xF8000000ULL, 0xFFFF00000000ULL}) {
        device.SetReplyHeaderXor(ignored);
        EXPECT_NO_THROW(bus.Request(1, 0x40, static_cast<const unsigned int*>(nullptr), 0, &value, 1, true, 10));
    }
    const struct {
        uint64_t flip;
        const char* field;
    } wrong[] = {{0x1, "type"},          {0x80, "increment"},          {0x400, "port"},
                 {0x10000, "length"},    {0x1ULL << 48, "address"},    {0x1ULL << 58, "request port bits"}};
    for (const auto& w : wrong) {
        device.SetReplyHeaderXor(w.flip);
        const std::string message =
            ThrownMessage([&] { bus.Request(1, 0x40, static_cast<const unsigned int*>(nullptr), 0, &value, 1, true, 10); });
        EXPECT_EQ(message.rfind("PtBus: [1][0x0040]: Not the expected packet ", 0), 0u) << w.field << ": " << message;
    }
    device.SetReplyHeaderXor(0);
    EXPECT_EQ(ThrownMessage([&] {
                  bus.Request(1, 0, &value, 1, &value, 1, true, 10);
              }),
              "PtBus Request: [1][0x0000]:Request should not read and write in a single transaction, this is a "
              "firmware limitation");
    unsigned char region[16] = {};
    CPtBusLocal local(region, sizeof region, false);
    EXPECT_THROW(local.Request(1, 0, &value, 1, &value, 1, true, 10), CException);
}

TEST_F(CPtBusPcieTest, WaitsEndInTheirTimeOutsAndAFullReceiveBufferIsDrained) {
    unsigned int value = 0;
    device.SetNoReply(true);
    const uint32_t start = clock.GetCount();
    EXPECT_EQ(ThrownMessage([&] { bus.Request(1, 0x8, static_cast<const unsigned int*>(nullptr), 0, &value, 1, true, 25); }),
              "PtBus Receive: [1][0x0008]: Timeout[25] waiting reply packet");
    EXPECT_LT(clock.GetCount() - start, 30000u);
    device.SetNoReply(false);

    // Stale words are popped before a request; a stream that never ends is an error.
    device.SetStaleWords({1, 2, 3});
    EXPECT_NO_THROW(bus.Request(1, 0x8, static_cast<const unsigned int*>(nullptr), 0, &value, 1, true, 10));
    device.SetStaleWords({9, 42}, true);
    EXPECT_EQ(ThrownMessage([&] { bus.Request(1, 0x8, static_cast<const unsigned int*>(nullptr), 0, &value, 1, true, 10); }),
              "Can not empty the receiving buffer, 42");
    device.SetStaleWords({});

    device.SetTxValidStuck(true);
    EXPECT_EQ(ThrownMessage([&] { bus.Send(1, 0, &value, 1, true); }), "PtBus send timeout : TX_VALID not up");
}

TEST_F(CPtBusPcieTest, VsyncWaitsCountAcrossTheCounterWrap) {
    EXPECT_EQ(ThrownMessage([&] { bus.WaitOnVsync(65535, 100, false); }), "V-sync count value 65535 is out of range");
    const unsigned int now = bus.WaitOnVsync(0, 100, false);
    const uint32_t before = clock.GetCount();
    EXPECT_EQ(bus.WaitOnVsync(2, 100, true), now);
    EXPECT_GE(clock.GetCount() - before, 2 * 1000000u / 60 - 1000000u / 60);
    EXPECT_EQ(ThrownMessage([&] { bus.WaitOnVsync(60, 100, false); }), "PtBus WaitOnVsync timeout");

    // 65535 -> 0 is one v-sync: start just before the wrap.
    clock.SetCount(clock.GetCount() + static_cast<uint32_t>((65535 - bus.WaitOnVsync(0, 1, false)) * 1000000ULL / 60));
    const unsigned int edge = bus.WaitOnVsync(0, 1, false);
    EXPECT_GE(edge, 65534u);
    EXPECT_EQ(bus.WaitOnVsync(2, 1000, false), edge);
}
