#pragma once
// Latencies of single round trips and their percentiles, for the benchmarks whose figure
// is a median rather than Google Benchmark's mean time per iteration. The percentiles are
// reported as the counters "p50_us", "p90_us" and "p99_us" (microseconds), which the
// ratio reporter can divide by a baseline's.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <vector>

struct SPercentiles {
    double p50Us = 0;
    double p90Us = 0;
    double p99Us = 0;
};

// Nearest-rank percentiles of latenciesNs, which it reorders; all zero when it is empty.
SPercentiles PercentilesOf(std::vector<uint64_t>& latenciesNs);
void SetPercentileCounters(benchmark::State& state, const SPercentiles& percentiles);

// Times each iteration of a benchmark loop: Start before the round trip, Stop after it,
// Report once the loop has ended.
class CLatencyRecord {
public:
    void Start() { m_started = Clock::now(); }
    void Stop() {
        m_latenciesNs.push_back(static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - m_started).count()));
    }
    void Report(benchmark::State& state) { SetPercentileCounters(state, PercentilesOf(m_latenciesNs)); }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_started;
    std::vector<uint64_t> m_latenciesNs;
};
