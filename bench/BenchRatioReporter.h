#pragma once
// CBenchRatioReporter: the console report of Google Benchmark, followed by ratios of
// one benchmark's time to a baseline's, both measured in the same run, so that a result
// reads "the IPC classes cost 1.07x the raw socket round trip" on any machine.

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

class CBenchRatioReporter : public benchmark::ConsoleReporter {
public:
    struct SRatio {
        std::string measured;  // benchmark name with its arguments ("BM_Lookup/5000"), no "/real_time"
        std::string baseline;
        double goal;           // the largest acceptable ratio, reported beside the figure
    };

    explicit CBenchRatioReporter(std::vector<SRatio> ratios) : m_ratios(std::move(ratios)) {}

    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    std::vector<SRatio> m_ratios;
    std::map<std::string, double> m_realTimeNs;
};

// Runs every registered benchmark with the ratio reporter; returns the process exit code.
int RunBenchmarksWithRatios(int argc, char** argv, std::vector<CBenchRatioReporter::SRatio> ratios);
