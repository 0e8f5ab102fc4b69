#include "BenchRatioReporter.h"

#include <cstdio>
#include <string>

void CBenchRatioReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if ((run.run_type != Run::RT_Iteration && !median) || run.iterations <= 0 || run.error_occurred) {
            continue;
        }
        std::string name = run.run_name.function_name;
        if (!run.run_name.args.empty()) {
            name += "/" + run.run_name.args;
        }
        // The median of a repeated benchmark replaces its first repetition's figures.
        if (m_figures.count(name) != 0 && !median) {
            continue;
        }
        std::map<std::string, double>& figures = m_figures[name];
        figures[""] = run.GetAdjustedRealTime() * benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                      benchmark::GetTimeUnitMultiplier(run.time_unit);
        for (const auto& counter : run.counters) {
            figures[counter.first] = counter.second.value;
        }
    }
}

double CBenchRatioReporter::Figure(const std::string& name, const std::string& counter) const {
    const auto figures = m_figures.find(name);
    if (figures == m_figures.end()) {
        return 0;
    }
    const auto figure = figures->second.find(counter);
    return figure == figures->second.end() ? 0 : figure->second;
}

void CBenchRatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    for (const SRatio& ratio : m_ratios) {
        const double measured = Figure(ratio.measured, ratio.counter);
        const double baseline = Figure(ratio.baseline, ratio.counter);
        if (measured <= 0 || baseline <= 0) {
            continue;
        }
        const double value = measured / baseline;
        const std::string of = ratio.counter.empty() ? "" : " (" + ratio.counter + ")";
        printf("RATIO %s / %s%s = %.3f", ratio.measured.c_str(), ratio.baseline.c_str(), of.c_str(), value);
        if (ratio.goal > 0) {
            printf(" (goal <= %.2f: %s)", ratio.goal, value <= ratio.goal ? "met" : "NOT met");
        }
        printf("\n");
    }
    fflush(stdout);
}

int RunBenchmarksWithRatios(int argc, char** argv, std::vector<CBenchRatioReporter::SRatio> ratios) {
    // Repetitions run in random turns with the other benchmarks' (flags given after this
    // one still win), so that a drift of the machine's speed during the run reaches a
    // figure and its baseline alike.
    std::vector<char*> arguments(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + (argc > 0 ? 1 : 0), interleave);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    CBenchRatioReporter reporter(std::move(ratios));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

void AsComparedRoundTrip(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseRealTime()->Repetitions(9)->ReportAggregatesOnly(true);
}
