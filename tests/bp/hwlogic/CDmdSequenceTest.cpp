// Choosing and loading a DMD sequence end to end: a real zip archive under a temporary
// runtime root, the parser, the formatter block and the simulated FPGA's memories.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "BufferedLog.h"
#include "CDmdSequence.h"
#include "CDmdSequenceHdr.h"
#include "CPtBusPcie.h"
#include "CSimFormatter.h"
#include "CSimFpgaDevice.h"
#include "ManualClock.h"
#include "NZipArchive.h"
#include "SequenceFiles.h"
#include "TempRoot.h"
#include "ThrownMessage.h"

namespace {

struct SSet : IBitSequenceSet {
    SSet(std::string n, bool d) : name(std::move(n)), is3d(d) {}
    std::string GetSequenceName() const override { return name; }
    bool Is3D() const override { return is3d; }
    std::string name;
    bool is3d;
};

class CDmdSequenceTest : public ::testing::Test {
protected:
    CDmdSequenceTest() {
        device.SetAccessHook([this] { clock.SetCount(clock.GetCount() + 10); });
        primary = &device.AddPort(48, std::make_unique<CSimFormatter>());
        second = &device.AddPort(56, std::make_unique<CSimFormatter>());
        const std::vector<uint8_t> file = TestSequenceFile();
        root.MakeDir("/usr/lib/firmware/seq/demo");
        NZipArchive::Create(root.Path("/usr/lib/firmware/seq/demo/cinema.zip"),
                            {{"cinema.seqbin", std::string(file.begin(), file.end())},
                             {"cinema_G.mlh1", std::string("\x01\x00\x00\x00\x02\x00\x00\x00", 8)},
                             {"cinema_G.mlh2", std::string("\x03\x00\x00\x00", 4)}});
    }

    CTempRoot root;
    CBufferedLog log{200};
    CManualClock clock{1000000};
    CSimFpgaDevice device{clock};
    CPtBusPcie bus{device, clock, [this](unsigned int ms) { clock.AdvanceMs(ms); }};
    CSimFpgaPort* primary;
    CSimFpgaPort* second;
    CDmdSequence sequence{bus, log};
};

}  // namespace

TEST_F(CDmdSequenceTest, TheSequenceForTheRateGoesIntoTheIdleHalfAndApplySwitchesToIt) {
    const SSet cinema("demo/cinema", false);
    ASSERT_TRUE(sequence.LoadSequence(60, cinema));
    EXPECT_TRUE(log.Logged("Loading 2D bit-sequence (demo/cinema) in high memory (stretch: 0.960)"));
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kSequenceData, 0x8000), 0x160000u);
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kSequenceData, 0x8003), 0x160003u);
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kMlh1Data, 0x2001), 2u);
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kMlh2Data, 0x200), 3u);
    sequence.Apply();
    EXPECT_EQ(primary->Peek(0x280), 0x80000001u);
    EXPECT_EQ(primary->Peek(0x290), static_cast<uint32_t>(0.96 * 65536) & 0xFFFF);
    EXPECT_EQ(primary->Peek(0x200), 0u);
    EXPECT_EQ(second->Peek(0x200), 0x10000u);  // mirrored by the posted-mode formatter
    EXPECT_FALSE(sequence.IsUsingLowMem());

    // The next load goes to the other half, and reuses the unpacked files.
    std::filesystem::remove(root.Path("/usr/lib/firmware/seq/demo/cinema.zip"));
    const SSet stereo("demo/cinema", true);
    ASSERT_TRUE(sequence.LoadSequence(48, stereo, 1000));  // each eye: 10417 - 1000 us
    EXPECT_TRUE(log.Logged("Loading 3D bit-sequence (demo/cinema) in low memory"));
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kSequenceData, 0), 0x400000u);
    sequence.Apply();
    EXPECT_EQ(primary->Peek(0x280), 1u);
    EXPECT_EQ(primary->Peek(0x200), 2u);
    EXPECT_EQ(sequence.GetCurrentFrameRateHz(), 48);
}

TEST_F(CDmdSequenceTest, AnUnsupportedRateOrAMissingArchiveChangesNothing) {
    const SSet cinema("demo/cinema", false);
    ASSERT_TRUE(sequence.LoadSequence(60, cinema));
    EXPECT_FALSE(sequence.LoadSequence(30, cinema));
    EXPECT_TRUE(log.Logged("Unsupported output frequency 30.00Hz (dark time: 0us)"));
    EXPECT_FALSE(sequence.LoadSequence(60, SSet("demo/none", true)));
    EXPECT_TRUE(log.Logged("Unsupported 3D output frequency 60.00Hz"));
    EXPECT_TRUE(log.Logged("Unable to open archive"));
    EXPECT_EQ(sequence.GetCurrentFrameRateHz(), 60);
    EXPECT_EQ(sequence.GetLoadedName(), "demo/cinema");

    EXPECT_TRUE(sequence.LoadSequence(60, SSet("", false)));
    EXPECT_TRUE(log.Logged("Using built-in DMD sequence"));
    CDmdSequence fresh(bus, log);
    EXPECT_EQ(ThrownMessage([&] { fresh.Reload(cinema); }),
              "Cannot reload sequence without first configuring target frame rate");
    EXPECT_EQ(ThrownMessage([&] { fresh.SetDarkTimeUs(10, cinema); }),
              "Cannot adjust dark time without first configuring target frame rate");
    CDmdSequence headless(bus, log, false);
    EXPECT_FALSE(headless.LoadSequence(60, cinema));
    EXPECT_TRUE(log.Logged("Skipped loading bit-sequence - no formatters present"));
}

TEST_F(CDmdSequenceTest, HighRangeLoadsPrimeAndPremodulatorFormattersEachWithItsTables) {
    const std::vector<uint8_t> prime = TestSequenceFile();
    const std::vector<uint8_t> premod =
        NTiSequenceWriter::Write({{{NTiSequenceWriter::SSet{16000, 17000, {Element(16500, 0x770000)}}}}});
    NZipArchive::Create(root.Path("/usr/lib/firmware/seq/hdr.zip"),
                        {{"hdr.seqbin", std::string(prime.begin(), prime.end())},
                         {"hdr.pre.seqbin", std::string(premod.begin(), premod.end())},
                         {"hdr.g.mlh1", std::string("\x05\x00\x00\x00", 4)},
                         {"hdr.g.b.mlh2", std::string("\x06\x00\x00\x00", 4)}});
    CDmdSequenceHdr hdr(bus, log);
    const SSet set("hdr", false);
    ASSERT_TRUE(hdr.LoadSequence(60, set));  // the dark table is missing: only it is skipped
    EXPECT_TRUE(log.Logged("MLH2 dark loading fault: Unable to read"));
    EXPECT_FALSE(log.Logged("seq prime loading fault"));
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kSequenceData, 0x8000), 0x160000u);
    EXPECT_EQ(second->PeekMemory(CSimFormatter::kSequenceData, 0x8000), 0x770000u);
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kMlh1Data, 0x2000), 5u);
    EXPECT_EQ(second->PeekMemory(CSimFormatter::kMlh1Data, 0x2000), 5u);
    EXPECT_EQ(primary->PeekMemory(CSimFormatter::kMlh2Data, 0x200), 6u);
    hdr.Apply();
    EXPECT_EQ(primary->Peek(0x280), 0x80000001u);
    EXPECT_EQ(second->Peek(0x280), 0x80000001u);
    EXPECT_EQ(second->Peek(0x290), static_cast<uint32_t>(0.99 * 65536) & 0xFFFF);
    EXPECT_EQ(second->Peek(0x200), 0x10000u);

    // A rate the pre-modulation file has no element for is unsupported as a whole.
    EXPECT_FALSE(hdr.LoadSequence(58, set));
    EXPECT_TRUE(log.Logged("hdr: Sequence set not found"));
    EXPECT_EQ(hdr.GetCurrentFrameRateHz(), 60);

    hdr.EnableMlhtBypass(true);
    EXPECT_EQ(second->Peek(0x200), 0x10100u);
    hdr.Reset(true, true, true);
    for (const CSimFpgaPort* port : {primary, second}) {
        EXPECT_EQ(port->Peek(0x280), 1u);
        EXPECT_EQ(port->Peek(0x200) & 0x1FF, 0u);
        EXPECT_EQ(port->Peek(0x290), 0u);
    }
    EXPECT_EQ(second->Peek(0x200), 0x10000u);
}

TEST_F(CDmdSequenceTest, AnArchiveEntryThatClimbsOutOfItsDirectoryRefusesTheWholeArchive) {
    NZipArchive::Create(root.Path("/usr/lib/firmware/seq/evil.zip"), {{"ok.txt", "x"}, {"../../escape", "y"}});
    EXPECT_EQ(ThrownMessage([&] { NZipArchive::ExtractAll(root.Path("/usr/lib/firmware/seq/evil.zip"), root.Path("/tmp/seq/evil")); })
                  .rfind("Unsafe entry ../../escape", 0),
              0u);
    EXPECT_FALSE(std::filesystem::exists(root.Path("/tmp/seq/evil/ok.txt")));
    EXPECT_FALSE(std::filesystem::exists(root.Path("/tmp/escape")));
}

namespace {

// A formatter whose sequencer has stopped: its status reads 0, and the status read is noted.
struct CStoppedFormatter : CSimFormatter {
    uint32_t Read(unsigned int address) override {
        statusRead = statusRead || (address & 0x3FF) == 0x284;
        return (address & 0x3FF) == 0x284 ? 0 : CSimFormatter::Read(address);
    }
    bool statusRead = false;
};

}  // namespace

TEST_F(CDmdSequenceTest, OnlyAFailedStatusReadIsIgnoredAndAStretchOutOfRangeIsRefused) {
    CFormatterSequence posted(bus, 48);
    CFormatterSequence acknowledged(bus, 56);
    device.SetNoReply(true);
    EXPECT_EQ(ThrownMessage([&] { posted.Apply(false, true); }), "(no exception)");
    EXPECT_NE(ThrownMessage([&] { acknowledged.Apply(false, true); }), "(no exception)");
    device.SetNoReply(false);

    // TX_VALID stays low for 150 ms once the stopped sequencer's status was read: the
    // write that disables it fails, and that failure is not swallowed.
    auto& stopped = static_cast<CStoppedFormatter&>(device.AddPort(48, std::make_unique<CStoppedFormatter>()));
    uint32_t stuckSince = 0;
    device.SetAccessHook([&] {
        clock.SetCount(clock.GetCount() + 10);
        if (stopped.statusRead && stuckSince == 0) {
            stuckSince = clock.GetCount();
        }
        device.SetTxValidStuck(stuckSince != 0 && clock.GetCount() - stuckSince < 150000);
    });
    EXPECT_EQ(ThrownMessage([&] { posted.Apply(true, true); }), "PtBus send timeout : TX_VALID not up");

    posted.SetStretch(1.5);  // wraps, by design
    EXPECT_EQ(stopped.Peek(0x290), 0x8000u);
    for (double bad : {65536.0, -1.0, std::nan("")}) {
        EXPECT_EQ(ThrownMessage([&] { posted.SetStretch(bad); }).rfind("Stretch ", 0), 0u) << bad;
    }
    EXPECT_EQ(stopped.Peek(0x290), 0x8000u);
}
