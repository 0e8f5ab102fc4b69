#pragma once
// CBenchRatioReporter: the console report of Google Benchmark, followed by ratios of
// one benchmark's time to a baseline's, both measured in the same run, so that a result
// reads "the IPC classes cost 1.07x the raw socket round trip" on any machine. The time is
// the mean real time per iteration, or a counter both benchmarks set (the median round
// trip, "p50_us", see BenchLatency.h). For a benchmark that repeats, it is the median of
// its repetitions.

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

class CBenchRatioReporter : public benchmark::ConsoleReporter {
public:
    struct SRatio {
        SRatio(std::string measuredName, std::string baselineName, double largest, std::string counterName = "")
            : measured(std::move(measuredName)), baseline(std::move(baselineName)), goal(largest),
              counter(std::move(counterName)) {}
        std::string measured;  // benchmark name with its arguments ("BM_Lookup/5000"), no "/real_time"
        std::string baseline;
        double goal;           // the largest acceptable ratio, reported beside the figure; 0: none
                               // (a ratio shown for what it explains, such as a floor's)
        std::string counter;   // the counter divided; empty: the real time per iteration
    };

    explicit CBenchRatioReporter(std::vector<SRatio> ratios) : m_ratios(std::move(ratios)) {}

    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    // The figure of a benchmark that ran, 0 when it did not run or has no such counter.
    double Figure(const std::string& name, const std::string& counter) const;

    std::vector<SRatio> m_ratios;
    // Per benchmark name, its real time per iteration in ns ("") and its counters.
    std::map<std::string, std::map<std::string, double>> m_figures;
};

// Runs every registered benchmark with the ratio reporter, repetitions interleaved at
// random; returns the process exit code.
int RunBenchmarksWithRatios(int argc, char** argv, std::vector<CBenchRatioReporter::SRatio> ratios);

// For a round trip divided by another: real time, nine repetitions taken in turns with
// the other benchmarks' and reported by their aggregates. A single run of a few hundred
// milliseconds catches the machine in one state of its caches and kernel allocators, and
// two runs of the same build differed by more than 10% here; the median of nine interleaved
// ones repeats within about 1%.
void AsComparedRoundTrip(benchmark::internal::Benchmark* benchmark);
