// Lamp memory on a simulated NFC tag, through the NDEF adapter, the backup handler and
// the write care-taker: the record ring, the device states, and the guarantee that a
// power cut at any byte of a write leaves the old data or the new, never a mix.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "BufferedLog.h"
#include "CLmmNdefTagAdapter.h"
#include "CSimLampTag.h"
#include "TempRoot.h"
#include "ThrownMessage.h"

namespace {

constexpr uint64_t kUid = 0xE0020000AABBCCDDull;

// One start of the lamp code over the tag image: restore, parse, initialise.
struct SStart {
    SStart(const std::string& image, ILog& log, uint64_t uid = kUid)
        : tag(image, uid), adapter(tag, 0, log), device(adapter.GetPayloadArea(), adapter.GetBackupHandler(), log) {
        found = adapter.ParseTag();
        if (found) {
            adapter.InitializeLmm(device);
        }
    }
    CSimLampTag tag;
    CLmmNdefTagAdapter adapter;
    CLampMemoryDevice device;
    bool found = false;
};

SLmmLampRecord Lamp(const std::string& serial, uint32_t onTimeS) {
    SLmmLampRecord record;
    record.type = "XEN-3000W";
    record.serial = serial;
    record.installDate = 4102444800u;  // 2100-01-01: past 2038 in an unsigned field
    record.preInstalledS = 7200;
    record.usage.OnTimeS() = onTimeS;
    record.usage.Strikes() = 3;
    record.usage.values[2] = 0xBEEF;
    return record;
}

class CLampMemoryTest : public ::testing::Test {
protected:
    // A tag with the NDEF layout and a formatted lamp memory holding `records` lamps.
    void Prepare(unsigned records) {
        SStart start(image, log);
        start.adapter.FormatTag("Lamp A1");
        ASSERT_TRUE(start.adapter.ParseTag());
        start.adapter.InitializeLmm(start.device);
        start.device.Format(7, "test");
        for (unsigned i = 1; i <= records; ++i) {
            start.device.CreateNewRecord(Lamp("SN" + std::to_string(i), 100 * i));
        }
    }

    CTempRoot root;
    CBufferedLog log;
    std::string image = root.Path("/tag.img");
    std::string backup = root.Path("/var/data/lamp/lmm_backupA1.dat");
};

}  // namespace

TEST_F(CLampMemoryTest, RecordsFillARingAndSurviveARestart) {
    ASSERT_NO_FATAL_FAILURE(Prepare(0));
    SStart start(image, log);
    ASSERT_TRUE(start.found);
    CLampMemoryDevice& device = start.device;
    EXPECT_EQ(device.GetState(), CLampMemoryDevice::STATE_VALID);
    EXPECT_FALSE(device.HasValidLampRecord());
    EXPECT_EQ(ThrownMessage([&] { device.GetCurLampRecordInfo(); }), "There is no valid lamp record on LMM.");
    const uint32_t ring = device.GetRingSize();
    ASSERT_GT(ring, 60u);  // an 8 KiB tag holds 70 entries of 112 bytes
    for (uint32_t i = 1; i <= ring + 1; ++i) {
        device.CreateNewRecord(Lamp("SN" + std::to_string(i), i));
    }
    EXPECT_EQ(device.GetTotalLampRecordCount(), ring + 1);
    EXPECT_EQ(device.GetValidLampRecordCount(), ring);
    EXPECT_EQ(ThrownMessage([&] { device.ReadLampRecord(1); }), "Lamp record 1 is not on the LMM");
    SLmmLampUsage usage = device.GetMasterLampUsage();
    EXPECT_EQ(usage.OnTimeS(), ring + 1);
    usage.OnTimeS() = 5400;
    device.UpdateLampUsage(usage);

    SStart again(image, log);
    EXPECT_EQ(again.device.GetTotalLampRecordCount(), ring + 1);
    const SLmmLampRecord current = again.device.GetCurLampRecordInfo();
    EXPECT_EQ(current.serial, "SN" + std::to_string(ring + 1));  // record ring + 1 took the entry of record 1
    EXPECT_EQ(current.installDate, 4102444800u);
    EXPECT_EQ(current.usage.values[2], 0xBEEF);
    EXPECT_EQ(again.device.ReadLampOnTimeSFromRecord(ring + 1), 5400u);
    EXPECT_EQ(again.device.GetHistory().front().serial, "SN2");
    EXPECT_EQ(again.device.GetHistory().size(), ring);
    EXPECT_FALSE(std::filesystem::exists(backup));
}

TEST_F(CLampMemoryTest, StatesTellBlankForeignAndCorruptData) {
    {
        SStart blank(image, log);
        EXPECT_FALSE(blank.found);  // no capability container
        blank.adapter.FormatTag("Lamp A1");
        ASSERT_TRUE(blank.adapter.ParseTag());
        blank.adapter.InitializeLmm(blank.device);
        EXPECT_EQ(blank.device.GetState(), CLampMemoryDevice::STATE_BLANK);
        EXPECT_TRUE(log.Logged("Corrupted lamp data detected. LMM state: 2"));
        EXPECT_EQ(ThrownMessage([&] { blank.device.GetMasterLampUsage(); }), "LMM is invalid.");
        blank.device.Format(1, "x");
        blank.device.CreateNewRecord(Lamp("SN1", 1));
    }
    // Version 2 of the mark, then a type text with no NUL in its 33 bytes.
    auto patch = [&](uint32_t lmmOffset, const std::string& bytes) {
        SStart start(image, log);
        const uint32_t at = start.adapter.GetPayloadArea().GetTagOffset() + lmmOffset;
        start.tag.Write(at, reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size()));
    };
    patch(2, "\x02");
    EXPECT_EQ(SStart(image, log).device.GetState(), CLampMemoryDevice::STATE_WRONG_VERSION);
    patch(2, "\x01");
    patch(CLampMemoryDevice::kFirstEntryOffset, std::string(33, 'X'));
    {
        SStart start(image, log);
        const SLmmLampRecord record = start.device.GetCurLampRecordInfo();
        EXPECT_TRUE(record.corrupt);
        EXPECT_EQ(record.type + record.serial, "");
        EXPECT_EQ(record.usage.OnTimeS(), 1u);
        EXPECT_TRUE(log.Logged("Corrupted lamp record."));
    }
    // A tag that stops answering after it was found.
    CSimLampTag tag(image, kUid);
    CLmmNdefTagAdapter adapter(tag, 0, log);
    CLampMemoryDevice device(adapter.GetPayloadArea(), adapter.GetBackupHandler(), log);
    ASSERT_TRUE(adapter.ParseTag());
    tag.SetPresent(false);
    EXPECT_EQ(ThrownMessage([&] { adapter.InitializeLmm(device); }),
              "Lost communication with LMM after tag has been detected");
    EXPECT_EQ(device.GetState(), CLampMemoryDevice::STATE_NO_DEVICE);
    // One that answers the first read and stops while the header and data are read: no
    // device either, not a blank one.
    struct SFading : IEeprom {
        explicit SFading(IEeprom& t) : tag(t) {}
        uint32_t GetSize() const override { return tag.GetSize(); }
        uint32_t GetPageSize() const override { return tag.GetPageSize(); }
        uint64_t GetUid() const override { return tag.GetUid(); }
        void Read(uint32_t offset, uint8_t* data, uint32_t size) override {
            if (reads++ == readsLeft) {
                THROW_EXCEPTION("Lamp tag not answering");
            }
            tag.Read(offset, data, size);
        }
        void Write(uint32_t offset, const uint8_t* data, uint32_t size) override { tag.Write(offset, data, size); }
        IEeprom& tag;
        unsigned reads = 0;
        unsigned readsLeft = ~0u;
    };
    tag.SetPresent(true);
    for (unsigned answered : {1u, 2u}) {
        SFading fading(tag);
        CLmmNdefTagAdapter flaky(fading, 0, log);
        CLampMemoryDevice lost(flaky.GetPayloadArea(), flaky.GetBackupHandler(), log);
        ASSERT_TRUE(flaky.ParseTag());
        fading.readsLeft = fading.reads + answered;
        EXPECT_EQ(ThrownMessage([&] { flaky.InitializeLmm(lost); }),
                  "Lost communication with LMM after tag has been detected")
            << answered;
        EXPECT_EQ(lost.GetState(), CLampMemoryDevice::STATE_NO_DEVICE) << answered;
    }
    EXPECT_EQ(ThrownMessage([] { CSimLampTag none("/nonexistent/dir/tag.img", 1); }).rfind("Unable to open", 0), 0u);
}

TEST_F(CLampMemoryTest, APowerCutAtAnyByteLeavesTheOldOrTheNewData) {
    struct SOperation {
        const char* name;
        unsigned recordsBefore;
        std::function<void(CLampMemoryDevice&)> run;
    };
    const SOperation operations[] = {
        {"CreateNewRecord", 2, [](CLampMemoryDevice& d) { d.CreateNewRecord(Lamp("NEW", 0)); }},
        {"UpdateLampUsage", 2,
         [](CLampMemoryDevice& d) {
             SLmmLampUsage usage = d.GetMasterLampUsage();
             usage.OnTimeS() += 0x01010101;
             usage.FailedStrikes() = 9;
             d.UpdateLampUsage(usage);
         }},
        {"Format", 1, [](CLampMemoryDevice& d) { d.Format(8, "reformatted"); }},
    };
    auto snapshot = [&] {
        SStart start(image, log);
        return std::make_pair(start.device.GetTotalLampRecordCount(), start.device.GetHistory());
    };
    for (const SOperation& operation : operations) {
        ASSERT_NO_FATAL_FAILURE(Prepare(operation.recordsBefore));
        const std::vector<uint8_t> before = SStart(image, log).tag.GetImage();
        const auto oldData = snapshot();
        uint64_t total = 0;
        {
            SStart start(image, log);
            operation.run(start.device);
            total = start.tag.GetBytesWritten();
        }
        const auto newData = snapshot();
        ASSERT_NE(oldData, newData) << operation.name;
        ASSERT_GT(total, 0u);

        unsigned sawOld = 0;
        unsigned sawNew = 0;
        for (uint32_t cut = 0; cut <= total; ++cut) {
            {
                SStart start(image, log);
                start.tag.Write(0, before.data(), CSimLampTag::kSize);  // the old image, on file too
                start.adapter.ParseTag();
                start.adapter.InitializeLmm(start.device);
                start.tag.CutPowerAfter(cut);
                const std::string error = ThrownMessage([&] { operation.run(start.device); });
                EXPECT_EQ(error == "(no exception)", cut == total) << operation.name << " cut " << cut << ": " << error;
            }
            const auto after = snapshot();
            ASSERT_TRUE(after == oldData || after == newData) << operation.name << " cut after " << cut << " bytes";
            (after == oldData ? sawOld : sawNew)++;
            EXPECT_FALSE(std::filesystem::exists(backup));
        }
        EXPECT_EQ(sawOld, total);
        EXPECT_EQ(sawNew, 1u);
        log.Clear();
    }
}

TEST_F(CLampMemoryTest, OnlyACompleteBackupOfThisTagIsRestored) {
    ASSERT_NO_FATAL_FAILURE(Prepare(1));
    std::string complete;
    {
        SStart start(image, log);
        start.tag.CutPowerAfter(5);
        EXPECT_NE(ThrownMessage([&] { start.device.CreateNewRecord(Lamp("NEW", 0)); }), "(no exception)");
        complete = CTempRoot::ReadFile(backup);
    }
    // A torn backup (cut at any length, or one flipped byte) means the tag was never
    // written: it is dropped, and the torn tag bytes of this test stay as they are.
    for (size_t length = 0; length <= complete.size(); ++length) {
        std::string torn = complete.substr(0, length);
        if (length == complete.size()) {
            torn[20] ^= 1;
        }
        root.WriteFile("/var/data/lamp/lmm_backupA1.dat", torn);
        CSimLampTag tag(image, kUid);
        CBackupHandler handler(tag, backup, log);
        EXPECT_FALSE(handler.CheckPendingWrite()) << length;
        EXPECT_FALSE(std::filesystem::exists(backup));
    }
    EXPECT_TRUE(log.Logged("Discarded incomplete lamp tag backup"));
    root.WriteFile("/var/data/lamp/lmm_backupA1.dat", complete);
    EXPECT_EQ(SStart(image, log, kUid + 1).device.GetTotalLampRecordCount(), 2u);  // another tag: not restored
    EXPECT_TRUE(log.Logged("Discarded lamp tag backup"));
    root.WriteFile("/var/data/lamp/lmm_backupA1.dat", complete);
    EXPECT_EQ(SStart(image, log).device.GetTotalLampRecordCount(), 1u);
    EXPECT_TRUE(log.Logged("Restored lamp tag from backup"));
}
