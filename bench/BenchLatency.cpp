#include "BenchLatency.h"

#include <algorithm>
#include <cstddef>

SPercentiles PercentilesOf(std::vector<uint64_t>& latenciesNs) {
    SPercentiles result;
    if (latenciesNs.empty()) {
        return result;
    }
    auto at = [&latenciesNs](double fraction) {
        const size_t rank =
            std::min(static_cast<size_t>(fraction * static_cast<double>(latenciesNs.size())), latenciesNs.size() - 1);
        std::nth_element(latenciesNs.begin(), latenciesNs.begin() + static_cast<std::ptrdiff_t>(rank), latenciesNs.end());
        return static_cast<double>(latenciesNs[rank]) / 1000.0;
    };
    result.p50Us = at(0.50);
    result.p90Us = at(0.90);
    result.p99Us = at(0.99);
    return result;
}

void SetPercentileCounters(benchmark::State& state, const SPercentiles& percentiles) {
    state.counters["p50_us"] = percentiles.p50Us;
    state.counters["p90_us"] = percentiles.p90Us;
    state.counters["p99_us"] = percentiles.p99Us;
}
