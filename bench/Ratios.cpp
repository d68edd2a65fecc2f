#include "Ratios.h"

#include <cstdio>

namespace kbench {
namespace {

// Keeps each run's time per iteration while the console reporter prints as usual.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                times[run.benchmark_name()] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

}  // namespace

int runAndPrintRatios(int argc, char** argv, const std::vector<RatioGoal>& goals) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::printf("\n%-44s %-36s %10s  %s\n", "measured", "baseline", "ratio", "goal");
    for (const RatioGoal& goal : goals) {
        const auto measured = reporter.times.find(goal.measured);
        const auto baseline = reporter.times.find(goal.baseline);
        if (measured == reporter.times.end() || baseline == reporter.times.end() || baseline->second <= 0) continue;
        std::printf("%-44s %-36s %9.3fx  %s\n", goal.measured.c_str(), goal.baseline.c_str(),
                    measured->second / baseline->second, goal.goal.c_str());
    }
    return 0;
}

}  // namespace kbench
