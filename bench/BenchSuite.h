// What the benchmarks share: the suite started on the tool's settings for the whole run, and
// one benchmark's time per iteration, run by name.
#pragma once
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <KorvaneAPI/Core.h>

namespace kapibench {

struct Suite {
    Suite() { initKorvaneAPI(KORVANE_BENCH_SETTINGS); }
    ~Suite() { endKorvaneAPI(); }
    Suite(const Suite&) = delete;
    Suite& operator=(const Suite&) = delete;
};

class Capture : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) ns = run.GetAdjustedRealTime();
    }
    double ns = 0.0;
};

// Nanoseconds per iteration of the benchmark named `name` (its time unit being ns).
inline double nsPerIteration(int argc, char** argv, const std::string& name) {
    std::vector<char*> args(argv, argv + argc);
    std::string filter = "--benchmark_filter=^" + name + "$";
    args.push_back(filter.data());
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    Capture capture;
    benchmark::RunSpecifiedBenchmarks(&capture);
    return capture.ns;
}

}  // namespace kapibench
