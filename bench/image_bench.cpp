// The image-operator family against its baselines, each pair measured in the same run and
// printed as a ratio (counter "ratio"):
// - formula evaluation of sqrt(I1*I1+I2*I2) over an image, block and point by point, against
//   the expression compiled as C++ (goal: at most 5x, stretch 3x);
// - compiling a 100-character formula (goal: under 5 us; "compile_ns");
// - createLut then getLutValues of 16 Mi values against memcpy of the bytes the API must copy
//   (four copies, each into a buffer of its own: in, into the suite, out of the suite, into the
//   result; goal: ratio <= 2, at least half of memcpy's speed). Fresh 64 MiB buffers come from
//   mmap and pay their page faults, so the baseline copies into fresh buffers as the API must;
//   "ratio_to_reused_buffer" shows the cost against a buffer already mapped;
// - getFilterList over 100,000 filters against copying a vector of the same names (goal: 1.5x);
// - a failing removeFilter with Error disabled: heap allocations per call ("allocations", goal 0).
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_util/KrvFormula.h>
#include <vantry_util/KrvImageFormulaManager.h>

namespace {

std::atomic<long long> g_allocations{0};

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

void report(benchmark::State& state, double api, double baseline) {
    state.counters["api_ms"] = api * 1e3 / static_cast<double>(state.iterations());
    state.counters["baseline_ms"] = baseline * 1e3 / static_cast<double>(state.iterations());
    state.counters["ratio"] = api / baseline;
}

struct Suite {
    Suite() { initKorvaneAPI(nullptr); }
    ~Suite() { endKorvaneAPI(); }
};

void FormulaEvaluation(benchmark::State& state) {
    const bool block = state.range(0) == 1;
    const std::size_t n = 1 << 20;
    std::vector<double> i1(n), i2(n), out(n);
    for (std::size_t i = 0; i < n; ++i) {
        i1[i] = double(i % 4096);
        i2[i] = double((i * 7) % 4096);
    }
    KrvFormula formula;
    if (!formula.compile("sqrt(I1*I1+I2*I2)", KrvImageFormulaNames::instance()).ok()) std::abort();
    std::vector<const double*> columns(KrvImageFormulaNames::kSlotCount, i1.data());
    columns[1] = i2.data();
    double api = 0, baseline = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        if (block) {
            formula.evaluate(columns.data(), n, out.data());
        } else {
            double slots[KrvImageFormulaNames::kSlotCount] = {};
            for (std::size_t i = 0; i < n; ++i) {
                slots[0] = i1[i];
                slots[1] = i2[i];
                out[i] = formula.evaluate(slots);
            }
        }
        benchmark::DoNotOptimize(out.data());
        api += seconds(start);
        start = Clock::now();
        for (std::size_t i = 0; i < n; ++i) out[i] = std::sqrt(i1[i] * i1[i] + i2[i] * i2[i]);
        benchmark::DoNotOptimize(out.data());
        baseline += seconds(start);
    }
    report(state, api, baseline);
}
BENCHMARK(FormulaEvaluation)->ArgName("block")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void FormulaCompile(benchmark::State& state) {
    const std::string text =
        "sqrt(I1*I1 + I2*I2) * 0.5 + (I3 > 128 ? clamp(I4, 0, 255) : -I5) + atan2(Y, X) * 180 / pi + min(Z, 1)";
    KrvFormula formula;
    for (auto _ : state) benchmark::DoNotOptimize(formula.compile(text, KrvImageFormulaNames::instance()));
    state.counters["length"] = double(text.size());
    state.counters["compile_ns"] = benchmark::Counter(double(state.iterations()) * 1e-9,
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(FormulaCompile);

void LutRoundTrip(benchmark::State& state) {
    Suite suite;
    const std::size_t n = 16u << 20;
    std::vector<int> values(n, 7), copy(n);
    double api = 0, baseline = 0, reused = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        createLut("bench", values);
        std::vector<int> back = getLutValues("bench");
        benchmark::DoNotOptimize(back.data());
        api += seconds(start);
        removeLut("bench");
        start = Clock::now();
        for (int c = 0; c < 4; ++c) {
            std::unique_ptr<int[]> fresh(new int[n]);
            std::memcpy(fresh.get(), values.data(), n * sizeof(int));
            benchmark::DoNotOptimize(fresh.get());
        }
        baseline += seconds(start);
        start = Clock::now();
        for (int c = 0; c < 4; ++c) {
            std::memcpy(copy.data(), values.data(), n * sizeof(int));
            benchmark::DoNotOptimize(copy.data());
        }
        reused += seconds(start);
    }
    report(state, api, baseline);
    state.counters["ratio_to_reused_buffer"] = api / reused;
}
BENCHMARK(LutRoundTrip)->Unit(benchmark::kMillisecond);

void FilterList(benchmark::State& state) {
    Suite suite;
    std::vector<std::string> names;
    for (int i = 0; i < 100000; ++i) {
        names.push_back("filter_number_" + std::to_string(i));
        createFilter(names.back(), "I1");
    }
    double api = 0, baseline = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        std::vector<std::string> listed = getFilterList();
        benchmark::DoNotOptimize(listed.data());
        api += seconds(start);
        start = Clock::now();
        std::vector<std::string> copied = names;
        benchmark::DoNotOptimize(copied.data());
        baseline += seconds(start);
    }
    report(state, api, baseline);
}
BENCHMARK(FilterList)->Unit(benchmark::kMillisecond);

void FailingRemoveWithErrorOff(benchmark::State& state) {
    Suite suite;
    getKorvaneAPILogger().setLogLevel(static_cast<int>(KrvLoggerLevel::Off));
    const std::string name = "nothing";  // short enough for the string's own buffer
    const long long before = g_allocations.load();
    for (auto _ : state) removeFilter(name);
    state.counters["allocations"] = double(g_allocations.load() - before) / double(state.iterations());
}
BENCHMARK(FailingRemoveWithErrorOff);

}  // namespace

void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

BENCHMARK_MAIN();
