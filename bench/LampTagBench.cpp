// Finding the lamp memory on a full 8 KiB NFC tag image: the adapter's ParseTag (backup
// check, the tag read whole, capability container, TLV blocks and NDEF records) beside
// the bare read of the image through the same tag, and the NDEF walk alone.
// The time of BM_ParseTag is the figure to report (most of it is the one failed open of
// the backup file, which every start must look for). The last line prints RATIO
// NdefWalk / ReadImage: walking the NDEF structures should cost no more than twice
// reading the image.

#include <stdlib.h>

#include <string>
#include <vector>

#include "BenchRatioReporter.h"
#include "CLmmNdefTagAdapter.h"
#include "CSimLampTag.h"
#include "NNdefTagProtocol.h"
#include "RuntimeRoot.h"

namespace {

class CQuietLog : public ILog {
    void HandleLog(ELogLevel, EFyiCode, const char*, va_list) noexcept override {}
};

// A formatted tag with three lamp records in an image under a private runtime root.
struct STag {
    STag() {
        char dir[] = "/tmp/lamp_bench.XXXXXX";
        NRuntimeRoot::SetRoot(mkdtemp(dir));
        tag = std::make_unique<CSimLampTag>(NRuntimeRoot::Path("/A1.tag"), 1);
        CLmmNdefTagAdapter adapter(*tag, 0, log);
        CLampMemoryDevice device(adapter.GetPayloadArea(), adapter.GetBackupHandler(), log);
        adapter.FormatTag("Lamp A1");
        adapter.ParseTag();
        device.Initialize();
        device.Format(1, "bench");
        for (uint32_t i = 0; i < 3; ++i) {
            SLmmLampRecord record;
            record.type = "XEN";
            record.serial = "SN" + std::to_string(i);
            device.CreateNewRecord(record);
        }
    }
    CQuietLog log;
    std::unique_ptr<CSimLampTag> tag;
};

STag& Tag() {
    static STag tag;
    return tag;
}

void BM_ReadImage(benchmark::State& state) {
    std::vector<uint8_t> image(CSimLampTag::kSize);
    for (auto _ : state) {
        Tag().tag->Read(0, image.data(), CSimLampTag::kSize);
        benchmark::DoNotOptimize(image.data());
    }
}
BENCHMARK(BM_ReadImage);

void BM_ParseTag(benchmark::State& state) {
    CLmmNdefTagAdapter adapter(*Tag().tag, 0, Tag().log);
    for (auto _ : state) {
        benchmark::DoNotOptimize(adapter.ParseTag());
    }
    state.counters["lmmBytes"] = adapter.GetPayloadArea().GetSize();
}
BENCHMARK(BM_ParseTag);

void BM_NdefWalk(benchmark::State& state) {
    const std::vector<uint8_t>& image = Tag().tag->GetImage();
    for (auto _ : state) {
        for (const auto& block : NNdefTagProtocol::RetrieveAllTlvs(image.data(), image.size())) {
            benchmark::DoNotOptimize(NNdefTagProtocol::RetrieveRecordHeaders(image.data(), image.size(), block));
        }
    }
}
BENCHMARK(BM_NdefWalk);

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarksWithRatios(argc, argv, {{"BM_NdefWalk", "BM_ReadImage", 2}});
}
