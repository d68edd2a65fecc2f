// Reading a 256^3 uint16 TIFF (32 MiB, one page per plane) against one pass over the same
// bytes already in memory: copying them into a fresh buffer, as any reader must at least do.
// The file sits in the page cache after the first run, so the ratio is the reader's own cost
// (goal: at most 2x).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <vantry_data/KrvImageFile.h>

#include "Ratios.h"

namespace {

const int kSide = 256;

const std::string& tiffFile() {
    static const std::string file = [] {
        const std::string name = "/tmp/korvane_image_io_bench_" + std::to_string(::getpid()) + ".tif";
        KrvImage image;
        if (!image.Allocate(kSide, kSide, kSide, KrvVoxelType::UInt16)) std::abort();
        auto* voxels = image.Voxels<std::uint16_t>();
        for (std::size_t i = 0; i < image.GetVoxelCount(); ++i) voxels[i] = static_cast<std::uint16_t>(i * 2654435761u);
        KrvImageFile::Write(image, name);
        return name;
    }();
    return file;
}

void ReadTiff(benchmark::State& state) {
    const std::string& file = tiffFile();
    for (auto _ : state) {
        KrvImage image = KrvImageFile::Read(file);
        benchmark::DoNotOptimize(image.GetData());
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(kSide) * kSide * kSide * 2);
}

void CopyBytesInMemory(benchmark::State& state) {
    std::ifstream in(tiffFile(), std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (auto _ : state) {
        void* copy = std::calloc(bytes.size(), 1);
        std::memcpy(copy, bytes.data(), bytes.size());
        benchmark::DoNotOptimize(copy);
        std::free(copy);
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(bytes.size()));
}

BENCHMARK(ReadTiff)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyBytesInMemory)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    const int status = kbench::runAndPrintRatios(argc, argv, {{"ReadTiff", "CopyBytesInMemory", "<= 2x"}});
    std::remove(tiffFile().c_str());
    return status;
}
