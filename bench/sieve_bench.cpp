// getSieveParams of 10^6 values against the copy it can't avoid: a fresh buffer and memcpy.
// Prints both times and the speed ratio; the goal is at least 0.5.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include <KorvaneAPI/KorvaneAPI.h>

#include "BenchSuite.h"

namespace {

constexpr std::size_t kValues = 1000000;
std::vector<float> g_values;

void BM_Memcpy(benchmark::State& state) {
    for (auto _ : state) {
        float* copy = static_cast<float*>(std::malloc(kValues * sizeof(float)));
        std::memcpy(copy, g_values.data(), kValues * sizeof(float));
        benchmark::DoNotOptimize(copy);
        benchmark::ClobberMemory();
        std::free(copy);
    }
}
BENCHMARK(BM_Memcpy);

void BM_GetSieveParams(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<float> values = getSieveParams("bench");
        benchmark::DoNotOptimize(values.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_GetSieveParams);

}  // namespace

int main(int argc, char** argv) {
    kapibench::Suite suite;
    g_values.resize(kValues);
    for (std::size_t i = 0; i < kValues; ++i) g_values[i] = static_cast<float>(i) * 0.5f;
    if (!createSieve("bench", g_values)) return 1;
    const double api = kapibench::nsPerIteration(argc, argv, "BM_GetSieveParams");
    const double baseline = kapibench::nsPerIteration(argc, argv, "BM_Memcpy");
    std::printf("getSieveParams of %zu values: %.0f us, malloc + memcpy %.0f us: %.2f of memcpy speed (goal >= 0.5)\n",
                kValues, api / 1000.0, baseline / 1000.0, baseline / api);
    return 0;
}
