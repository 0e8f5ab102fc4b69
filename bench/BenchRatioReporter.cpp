#include "BenchRatioReporter.h"

#include <cstdio>

void CBenchRatioReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty()) {
                name += "/" + run.run_name.args;
            }
            if (m_realTimeNs.count(name) == 0) {
                m_realTimeNs[name] = run.GetAdjustedRealTime() * benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                                     benchmark::GetTimeUnitMultiplier(run.time_unit);
            }
        }
    }
}

void CBenchRatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    for (const SRatio& ratio : m_ratios) {
        const auto measured = m_realTimeNs.find(ratio.measured);
        const auto baseline = m_realTimeNs.find(ratio.baseline);
        if (measured == m_realTimeNs.end() || baseline == m_realTimeNs.end() || baseline->second <= 0) {
            continue;
        }
        const double value = measured->second / baseline->second;
        printf("RATIO %s / %s = %.3f (goal <= %.2f: %s)\n", ratio.measured.c_str(), ratio.baseline.c_str(), value,
               ratio.goal, value <= ratio.goal ? "met" : "NOT met");
    }
    fflush(stdout);
}

int RunBenchmarksWithRatios(int argc, char** argv, std::vector<CBenchRatioReporter::SRatio> ratios) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    CBenchRatioReporter reporter(std::move(ratios));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
