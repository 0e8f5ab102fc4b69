// The FPGA register layer and the sequence parser:
//   - CPtRegisterBank::WriteField on a CPtBusLocal over mapped memory, beside a plain
//     volatile read-modify-write of the same register (goal: at most 1.5x);
//   - parsing a sequence file of about 1 MiB (reported as bytes per second).
// The last lines print RATIO WriteFieldLocal / VolatileReadModifyWrite against the goal.

#include <sys/mman.h>

#include <cstdint>
#include <vector>

#include "BenchRatioReporter.h"
#include "CPtBusLocal.h"
#include "CPtRegisterBank.h"
#include "CTiSequenceFile.h"
#include "NTiSequenceWriter.h"

namespace {

constexpr unsigned int kRegion = 4096;

volatile unsigned char* MapRegion() {
    static void* region = mmap(nullptr, kRegion, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return static_cast<volatile unsigned char*>(region);
}

void BM_VolatileReadModifyWrite(benchmark::State& state) {
    volatile uint32_t* reg = reinterpret_cast<volatile uint32_t*>(MapRegion() + 0x40);
    uint32_t value = 0;
    for (auto _ : state) {
        *reg = (*reg & ~0xF0u) | ((++value & 0xF) << 4);
    }
}
BENCHMARK(BM_VolatileReadModifyWrite);

void BM_WriteFieldLocal(benchmark::State& state) {
    CPtBusLocal bus(MapRegion(), kRegion, false);
    CPtRegisterBank bank(bus, 0, 0, 0x100);
    uint32_t value = 0;
    for (auto _ : state) {
        bank.WriteField(0x40, ++value & 0xF, 4, 0xF0);
    }
}
BENCHMARK(BM_WriteFieldLocal);

std::vector<uint8_t> LargeSequenceFile() {
    NTiSequenceWriter::SSection section;
    for (int s = 0; s < 16; ++s) {
        NTiSequenceWriter::SSet set{static_cast<uint16_t>(1000 * s + 1000), static_cast<uint16_t>(1000 * s + 2000), {}};
        for (int e = 0; e < 16; ++e) {
            NTiSequenceWriter::SElement element;
            element.periodUs = static_cast<uint32_t>(1000 * s + 1000 + 50 * e);
            element.blocks[0] = std::vector<uint8_t>(4096, static_cast<uint8_t>(e));
            set.elements.push_back(element);
        }
        section.sets.push_back(set);
    }
    return NTiSequenceWriter::Write({section});
}

void BM_ParseSequenceFile(benchmark::State& state) {
    const std::vector<uint8_t> bytes = LargeSequenceFile();
    for (auto _ : state) {
        CTiSequenceFile file(bytes);
        benchmark::DoNotOptimize(file.GetSections().size());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_ParseSequenceFile);

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarksWithRatios(argc, argv, {{"BM_WriteFieldLocal", "BM_VolatileReadModifyWrite", 1.5}});
}
