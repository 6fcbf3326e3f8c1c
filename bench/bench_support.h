// Runs the registered Google benchmarks and keeps each one's time per
// iteration, so a program can print ratios to its baselines.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

namespace qrvbench {

// Plain text: the output goes into bench/results.md.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    CollectingReporter() : ConsoleReporter(OO_None) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                nanoseconds[run.benchmark_name()] =
                    run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> nanoseconds;  // per iteration
};

inline std::map<std::string, double> RunAll(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return reporter.nanoseconds;
}

}  // namespace qrvbench
