// Register banks, memory ports and the AXI4-Lite mailbox on the packet bus against the
// simulated FPGA: shadows shared with sub-banks, field read-modify-write, bounds, chunked
// streams, and the mailbox's busy wait.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "CAxi4lPtBus.h"
#include "CPtAddressedMemoryPort.h"
#include "CPtRegisterBank.h"
#include "CSimAxi4lSlave.h"
#include "PtBusFixture.h"
#include "ThrownMessage.h"

namespace {

class CPtRegisterBankTest : public CPtBusFixture {
protected:
    CSimFpgaPort& Port1() { return *device.GetPort(1); }
};

}  // namespace

TEST_F(CPtRegisterBankTest, FieldsAreStagedInTheShadowAndWrittenOrReadAsWholeWords) {
    CPtRegisterBank bank(bus, 1, 0x100, 0x40);
    bank.WriteShadowBits(0x8, 0xF, 4, 0xF0);
    bank.WriteField(0x8, 1, 0, 0x1);
    EXPECT_EQ(Port1().Peek(0x108), 0xF1u);
    bank.WriteFieldWait(0x8, 0x3, 8, 0x300);
    EXPECT_EQ(Port1().Peek(0x108), 0x3F1u);

    Port1().Write(0x10C, 0xABCD1234);
    EXPECT_EQ(bank.ReadShadowBits(0xC), 0u);  // the shadow alone knows nothing yet
    EXPECT_EQ(bank.ReadField(0xC, 16, 0xFFFF0000), 0xABCDu);
    EXPECT_EQ(bank.ReadShadowBits(0xC, 32, 0xFFFFFFFF), 0u);
    bank.WriteShadowBits(0xC, 0xFFFFFFFF, 32, 0x0000FF00);  // a shift of 32 clears the masked bits
    EXPECT_EQ(bank.ReadShadowBits(0xC), 0xABCD0034u);

    // Copies and sub-banks share one shadow.
    CPtRegisterBank copy(bank);
    CPtRegisterBank sub(bank, 0x8, 0x10);
    EXPECT_EQ(sub.HwAddr(0), 0x108u);
    EXPECT_EQ(sub.ReadShadowBits(0), 0x3F1u);
    sub.WriteShadowBits(4, 7);
    EXPECT_EQ(copy.ReadShadowBits(0xC), 7u);
}

TEST_F(CPtRegisterBankTest, OffsetsAreCheckedForAlignmentAndTheBanksSize) {
    CPtRegisterBank bank(bus, 1, 0, 0x20);
    bank.AddressCheck(0x20);  // the end itself passes
    EXPECT_EQ(ThrownMessage([&] { bank.AddressCheck(0x24); }), "Address out of range (0x24).  Bank size: 0x20");
    EXPECT_EQ(ThrownMessage([&] { bank.WriteField(0x6, 1); }), "Address must be aligned to 32 bit boundary (0x6)");
    EXPECT_THROW(bank.RefreshShadowRange(0x10, 5, 10), CException);
    EXPECT_THROW(CPtRegisterBank(bank, 0x10, 0x14), CException);
    EXPECT_THROW(CPtRegisterBank(bus, 1, 0x102, 4), CException);

    // Sizes, counts and lengths whose sums wrap 32 bits are refused by the bank itself.
    EXPECT_THROW(CPtRegisterBank(bank, 0x10, 0xFFFFFFF0), CException);
    EXPECT_EQ(ThrownMessage([&] { bank.RefreshShadowRange(0x10, 0x40000001, 10); }).rfind("Address out of range", 0), 0u);
    char buffer[4] = {};
    EXPECT_THROW(bank.WriteData(buffer, 0x4, 0xFFFFFFFE), CException);
    EXPECT_THROW(bank.ReadData(buffer, 0x4, 0xFFFFFFFE, 10), CException);
}

TEST_F(CPtRegisterBankTest, RangesAndDataGoThroughTheShadowInOnePacket) {
    CPtRegisterBank bank(bus, 1, 0x200, 0x40);
    const char text[] = "register data";
    const unsigned int before = bus.GetPacketsSent();
    bank.WriteDataWait(text, 0x2, sizeof text, 10);
    EXPECT_EQ(bus.GetPacketsSent() - before, 2u);  // the range, then the barrier
    char back[sizeof text] = {};
    uint32_t changed;
    memcpy(&changed, "GIST", 4);
    Port1().Write(0x204, changed);  // the read must come from the FPGA, not the shadow
    bank.ReadData(back, 0x2, sizeof text, 10);
    EXPECT_STREQ(back, "reGISTer data");

    bank.WriteShadowBits(0x20, 5);
    bank.WriteShadowBits(0x24, 6);
    bank.ApplyShadowRangeWait(0x20, 2);
    EXPECT_EQ(Port1().Peek(0x224), 6u);
}

TEST_F(CPtRegisterBankTest, MemoryPortsStreamInChunksAndAnAddressedPortSetsItsAddressFirst) {
    std::vector<uint32_t> words(600);
    for (uint32_t i = 0; i < words.size(); ++i) {
        words[i] = i * 3;
    }
    CPtAddressedMemoryPort memory(bus, 2, 0x10);
    const unsigned int before = bus.GetPacketsSent();
    memory.WriteDataAtAddress(100, words.data(), 600, 0);
    EXPECT_EQ(bus.GetPacketsSent() - before, 4u);  // the address, then 256 + 256 + 88 words
    EXPECT_EQ(device.GetPort(2)->PeekMemory(0x14, 100 + 599), 599u * 3);
    std::vector<uint32_t> back(600);
    memory.ReadDataAtAddress(100, back.data(), 600, 10);
    EXPECT_EQ(back, words);

    CPtRegisterBank bank(bus, 2, 0, 0x20);
    CPtMemoryPort fifo(bank, 0x14);
    bank.WriteField(0x10, 0);
    fifo.Write(0xBEEF, 10);
    fifo.WriteByte(0x7, 0);
    bank.WriteField(0x10, 0);
    EXPECT_EQ(fifo.Read(10), 0xBEEFu);
    EXPECT_EQ(fifo.ReadByte(10), 0x7u);
}

TEST_F(CPtRegisterBankTest, Axi4LiteTransactionsWaitForTheBusyBitAtMostOneMillisecond) {
    auto& slave = static_cast<CSimAxi4lSlave&>(device.AddPort(5, std::make_unique<CSimAxi4lSlave>(0x40, 3)));
    CAxi4lPtBus axi(bus, 5, 0x40, clock);
    axi.Write(0x1000, 0xCAFE);
    EXPECT_EQ(slave.GetAxiRegister(0x1000), 0xCAFEu);
    EXPECT_EQ(axi.Read(0x1000), 0xCAFEu);
    EXPECT_EQ(slave.Peek(0x40), CAxi4lPtBus::kReadCommand & ~1u);

    device.AddPort(5, std::make_unique<CSimAxi4lSlave>(0x40, CSimAxi4lSlave::kForever));
    EXPECT_EQ(ThrownMessage([&] { axi.Write(1, 2); }), "Timeout waiting AXI4-Lite write transaction to finish");
    EXPECT_EQ(ThrownMessage([&] { axi.Read(1); }), "Timeout waiting AXI4-Lite read transaction to finish");
    EXPECT_EQ(ThrownMessage([&] { axi.Read(1, nullptr, 0); }), "Not implemented");
}
