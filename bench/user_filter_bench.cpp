// A user filter `sqrt(I1*I1+I2*I2)` over two 256^3 float volumes through the formula engine's
// block evaluation (the UserFilter kernel) against the same loop compiled as C++ (goal: at most
// 2x).
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <benchmark/benchmark.h>

#include <vantry_access_korlib/KrvObjectKernels.h>
#include <vantry_util/KrvImageFormulaManager.h>

#include "Ratios.h"

namespace {

const int kSide = 256;
const std::size_t kVoxels = std::size_t(kSide) * kSide * kSide;

struct Volumes {
    std::vector<float> first, second, out;
    Volumes() : first(kVoxels), second(kVoxels), out(kVoxels) {
        for (std::size_t i = 0; i < kVoxels; ++i) {
            first[i] = static_cast<float>(i % 1021) * 0.25f;
            second[i] = static_cast<float>(i % 977) * -0.5f;
        }
    }
    KrvVoxelView view(std::vector<float>& voxels) {
        return KrvVoxelView{voxels.data(), kSide, kSide, kSide, KrvVoxelType::Float32, {}};
    }
};

Volumes& volumes() {
    static Volumes made;
    return made;
}

void FormulaEngine(benchmark::State& state) {
    Volumes& v = volumes();
    KrvImageFormulaManager manager;
    if (!manager.init("sqrt(I1*I1+I2*I2)")) std::abort();
    for (auto _ : state) {
        krvApplyImageFormula(manager.formula(), {v.view(v.first), v.view(v.second)}, v.view(v.out));
        benchmark::DoNotOptimize(v.out.data());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(kVoxels));
}

void CompiledLoop(benchmark::State& state) {
    Volumes& v = volumes();
    for (auto _ : state) {
        const float* a = v.first.data();
        const float* b = v.second.data();
        float* out = v.out.data();
        for (std::size_t i = 0; i < kVoxels; ++i) out[i] = std::sqrt(a[i] * a[i] + b[i] * b[i]);
        benchmark::DoNotOptimize(v.out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(kVoxels));
}

BENCHMARK(FormulaEngine)->Unit(benchmark::kMillisecond);
BENCHMARK(CompiledLoop)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return kbench::runAndPrintRatios(argc, argv, {{"FormulaEngine", "CompiledLoop", "<= 2x"}});
}
