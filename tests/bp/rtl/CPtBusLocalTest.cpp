// The local bus over real mapped memory: word and byte placement, the byte swap, the
// trailing partial word, and accesses outside the region.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <vector>

#include "CPtBusLocal.h"
#include "CPtRegisterBank.h"
#include "ThrownMessage.h"

namespace {

class CPtBusLocalTest : public ::testing::Test {
protected:
    CPtBusLocalTest() {
        region = static_cast<unsigned char*>(
            mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(region, MAP_FAILED);
    }
    ~CPtBusLocalTest() override { munmap(region, kSize); }

    uint32_t Raw(unsigned int offset) const {
        uint32_t word;
        memcpy(&word, region + offset, 4);
        return word;
    }

    static constexpr unsigned int kSize = 4096;
    unsigned char* region;
};

}  // namespace

TEST_F(CPtBusLocalTest, WordsAreStoredAsTheyAreOrSwappedAndReadBackUnchanged) {
    for (bool swap : {false, true}) {
        CPtBusLocal bus(region, kSize, swap);
        const unsigned int words[] = {0x11223344, 0xAABBCCDD};
        bus.Send(9, 0x100, words, 2, true);  // the port is ignored
        EXPECT_EQ(Raw(0x104), swap ? 0xDDCCBBAAu : 0xAABBCCDDu);
        unsigned int back[2] = {};
        bus.Receive(0, 0x100, back, 2, true, 0);
        EXPECT_EQ(back[1], 0xAABBCCDDu) << swap;

        bus.Send(0, 0x200, words, 2, false);  // a FIFO register keeps the last word
        EXPECT_EQ(Raw(0x200), swap ? 0xDDCCBBAAu : 0xAABBCCDDu);
        EXPECT_EQ(Raw(0x204), 0u);
    }
}

TEST_F(CPtBusLocalTest, BytesAreWrittenUnswappedAndReadOutOfWholeWords) {
    CPtBusLocal bus(region, kSize, true);
    const unsigned char bytes[] = {1, 2, 3, 4, 5, 6};
    bus.Send(0, 0x301, bytes, 6, true);
    EXPECT_EQ(std::vector<unsigned char>(region + 0x300, region + 0x308),
              (std::vector<unsigned char>{0, 1, 2, 3, 4, 5, 6, 0}));
    // Reads go word by word, swapped, and a trailing partial word gives its first bytes.
    unsigned char back[6] = {};
    bus.Receive(0, 0x300, back, 6, true, 0);
    EXPECT_EQ(std::vector<unsigned char>(back, back + 6), (std::vector<unsigned char>{3, 2, 1, 0, 0, 6}));
    // An unaligned read starts at its own byte, across a word boundary, as a write there does.
    CPtBusLocal plain(region, kSize, false);
    plain.Receive(0, 0x302, back, 3, true, 0);
    EXPECT_EQ(std::vector<unsigned char>(back, back + 3), (std::vector<unsigned char>{2, 3, 4}));
    EXPECT_THROW(plain.Receive(0, kSize - 3, back, 4, true, 0), CException);
}

TEST_F(CPtBusLocalTest, AccessesOutsideTheRegionAndUnsupportedOperationsThrow) {
    CPtBusLocal bus(region, kSize, false);
    unsigned int words[2] = {};
    bus.Send(0, kSize - 4, words, 1, true);
    bus.Send(0, kSize - 4, words, 2, false);  // one register, written twice
    EXPECT_EQ(ThrownMessage([&] { bus.Send(0, kSize - 4, words, 2, true); }),
              "PtBus local: access outside the region (0xFFC + 8 bytes, region of 4096 bytes)");
    EXPECT_THROW(bus.Receive(0, 0xFFFF, words, 1, true, 0), CException);
    EXPECT_EQ(ThrownMessage([&] { bus.Send(1, 2, 3, false, false, false, false); }), "Not implemented");
    EXPECT_EQ(ThrownMessage([&] { bus.DmaReset(); }), "Not supported");
    EXPECT_FALSE(bus.IsDmaAvailable());
}

TEST_F(CPtBusLocalTest, ABankStoresItsRegistersDirectlyAsTheBusWouldAndOneOutsideTheRegionThrows) {
    CPtBusLocal bus(region, kSize, true);
    CPtRegisterBank bank(bus, 0, 0x400, 0x10);
    bank.WriteField(0x8, 0xAB, 8, 0xFF00);
    EXPECT_EQ(Raw(0x408), 0x00AB0000u);  // byte-swapped, as a word Send would leave it
    CPtRegisterBank sub(bank, 0x8, 0x8);
    sub.WriteField(0, 0x12, 0, 0xFF);
    EXPECT_EQ(Raw(0x408), 0x12AB0000u);
    CPtRegisterBank outside(bus, 0, kSize - 4, 0x10);
    EXPECT_EQ(ThrownMessage([&] { outside.WriteField(0x8, 1); }).rfind("PtBus local: access outside the region", 0),
              0u);
}
