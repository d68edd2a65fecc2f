// Benchmarks report their goals as ratios against a baseline measured in the same run, so the
// figures hold on any machine. A program registers its pairs, then calls runAndPrintRatios().
#pragma once
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

namespace kbench {

struct RatioGoal {
    std::string measured;  // benchmark name
    std::string baseline;  // benchmark name
    std::string goal;      // "<= 1.10x" as text, printed beside the figure
};

// Runs every registered benchmark (honouring the usual --benchmark_* flags), then prints one
// line per goal: measured / baseline.
int runAndPrintRatios(int argc, char** argv, const std::vector<RatioGoal>& goals);

}  // namespace kbench
