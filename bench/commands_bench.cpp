// The commands' kernels on a 256^3 volume against one pass that reads it (summing its voxels):
// - labelling about 1,000 balls (26-connected) into int32 labels;
// - a 3x3x3 median of a noise volume;
// - the exact Euclidean distance transform of the balls.
// Printed as ratios; nothing is asserted.
#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include <vantry_access_korlib/KrvKernels.h>

#include "Ratios.h"

namespace {

const int kSide = 256;

// About 1,000 balls of radius 3 to 8 at random places (some overlap into one object).
const std::vector<std::uint8_t>& balls() {
    static const std::vector<std::uint8_t> volume = [] {
        std::vector<std::uint8_t> v(std::size_t(kSide) * kSide * kSide, 0);
        std::mt19937 random(1);
        for (int b = 0; b < 1000; ++b) {
            const int cx = int(random() % kSide), cy = int(random() % kSide), cz = int(random() % kSide);
            const int r = 3 + int(random() % 6);
            for (int z = std::max(0, cz - r); z <= std::min(kSide - 1, cz + r); ++z)
                for (int y = std::max(0, cy - r); y <= std::min(kSide - 1, cy + r); ++y)
                    for (int x = std::max(0, cx - r); x <= std::min(kSide - 1, cx + r); ++x)
                        if ((x - cx) * (x - cx) + (y - cy) * (y - cy) + (z - cz) * (z - cz) <= r * r)
                            v[(std::size_t(z) * kSide + y) * kSide + x] = 255;
        }
        return v;
    }();
    return volume;
}

const std::vector<std::uint8_t>& noise() {
    static const std::vector<std::uint8_t> volume = [] {
        std::vector<std::uint8_t> v(std::size_t(kSide) * kSide * kSide);
        std::mt19937 random(2);
        for (auto& voxel : v) voxel = static_cast<std::uint8_t>(random());
        return v;
    }();
    return volume;
}

KrvVoxelView view(const void* data, KrvVoxelType type) {
    return {const_cast<void*>(data), kSide, kSide, kSide, type, {}};
}

void OnePass(benchmark::State& state) {
    const std::vector<std::uint8_t>& volume = noise();
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (const std::uint8_t voxel : volume) sum += voxel;
        benchmark::DoNotOptimize(sum);
    }
}

void Label(benchmark::State& state) {
    std::vector<std::int32_t> labels(balls().size());
    for (auto _ : state)
        state.counters["objects"] = KrvKernels::Label(view(balls().data(), KrvVoxelType::UInt8),
                                                      view(labels.data(), KrvVoxelType::Int32), 26);
}

void Median(benchmark::State& state) {
    std::vector<std::uint8_t> out(noise().size());
    for (auto _ : state) KrvKernels::Median(view(noise().data(), KrvVoxelType::UInt8), view(out.data(), KrvVoxelType::UInt8), 3);
}

void DistanceTransform(benchmark::State& state) {
    std::vector<float> out(balls().size());
    for (auto _ : state)
        KrvKernels::DistanceTransform(view(balls().data(), KrvVoxelType::UInt8), view(out.data(), KrvVoxelType::Float32));
}

BENCHMARK(OnePass)->Unit(benchmark::kMillisecond);
BENCHMARK(Label)->Unit(benchmark::kMillisecond);
BENCHMARK(Median)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(DistanceTransform)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    return kbench::runAndPrintRatios(argc, argv,
                                     {{"Label", "OnePass", "the label pass"},
                                      {"Median/iterations:1", "OnePass", "3x3x3 median"},
                                      {"DistanceTransform/iterations:1", "OnePass", "exact distances"}});
}
