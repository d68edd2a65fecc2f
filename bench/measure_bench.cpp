// Feret 3-D directions and measure groups: the cost per direction of getUniformFeret3dAngles
// and of the large-count sampler, each as a ratio to a plain Fibonacci generator written here;
// the kappa of the direction sets against the Fejes Toth bound; and the cost of one
// addMsrToMsrGrp as a group grows (each add copies the whole group and writes it back).
#include <chrono>
#include <ctime>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_zel/SphereSampling.h>

#include "Covering.h"

namespace {

constexpr int kMillion = 1000000;

// The baseline: the plain half-sphere lattice, angles in radians, std::acos per direction.
void plainFibonacci(int n, std::vector<double>& azimuth, std::vector<double>& polar) {
    const double golden = 0.6180339887498949;
    for (int i = 0; i < n; ++i) {
        azimuth[i] = 2.0 * M_PI * std::fmod(i * golden, 1.0);
        polar[i] = std::acos(1.0 - (i + 0.5) / n);
    }
}

void samplerAlone(int n, unsigned int method = 1) {
    zel::container::Vector<zel::math::Vector2<double>> out;
    auto sampler = zel::geometry::SphereSampling::New(nullptr);
    sampler->directionCount = static_cast<unsigned int>(n);
    sampler->method = method;
    sampler->output = &out;
    sampler->run(nullptr);
    benchmark::DoNotOptimize(out.data());
}

void BM_PlainFibonacci(benchmark::State& state) {
    std::vector<double> azimuth(kMillion), polar(kMillion);
    for (auto _ : state) {
        plainFibonacci(kMillion, azimuth, polar);
        benchmark::DoNotOptimize(polar.data());
    }
    state.counters["ns_per_direction"] =
        benchmark::Counter(kMillion, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_SphereSampling(benchmark::State& state) {
    for (auto _ : state) samplerAlone(kMillion);
    state.counters["ns_per_direction"] =
        benchmark::Counter(kMillion, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_GetUniformFeret3dAngles(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(getUniformFeret3dAngles(kMillion));
    state.counters["ns_per_direction"] =
        benchmark::Counter(kMillion, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_PlainFibonacci)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SphereSampling)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GetUniformFeret3dAngles)->Unit(benchmark::kMillisecond)->UseRealTime();

double cpuNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double wallNanoseconds() {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Timing {
    double cpu, wall;  // the best of a few runs each: the machine is shared
};

// CPU time counts the work of every thread (the sampler repairs on a second one while it
// writes the lattice); wall time is what the caller waits.
template <class Work>
Timing bestNanoseconds(Work work, int rounds = 7) {
    Timing best{1e300, 1e300};
    for (int r = 0; r < rounds; ++r) {
        const double cpu = cpuNanoseconds(), wall = wallNanoseconds();
        work();
        best.cpu = std::min(best.cpu, cpuNanoseconds() - cpu);
        best.wall = std::min(best.wall, wallNanoseconds() - wall);
    }
    return {best.cpu / kMillion, best.wall / kMillion};
}

void printRatios() {
    std::vector<double> azimuth(kMillion), polar(kMillion);
    const Timing plain = bestNanoseconds([&] { plainFibonacci(kMillion, azimuth, polar); });
    const Timing lattice = bestNanoseconds([] { samplerAlone(kMillion, 0); });
    const Timing alone = bestNanoseconds([] { samplerAlone(kMillion); });
    const Timing api = bestNanoseconds([] { benchmark::DoNotOptimize(getUniformFeret3dAngles(kMillion)); });
    std::printf("directions, n = 10^6     ns per direction: wall   CPU (all threads)   wall ratio to plain Fibonacci\n");
    const auto row = [&](const char* name, Timing t) {
        std::printf("%-25s %8.2f   %8.2f            %.3f\n", name, t.wall, t.cpu, t.wall / plain.wall);
    };
    row("plain Fibonacci (inline)", plain);
    row("lattice, no repair", lattice);
    row("SphereSampling alone", alone);
    row("getUniformFeret3dAngles", api);
    std::printf("\n");
}

void printKappa() {
    std::printf("n          kappa    Fejes Toth bound   ratio\n");
    for (int n : {10, 31, 50, 100, 1000, 10000, 100000, 1000000}) {
        const std::vector<korvane::Direction> set = korvane::directionsFromDegrees(getUniformFeret3dAngles(n));
        const double kappa = korvane::coveringKappa(set);
        const double bound = korvane::fejesTothKappa(static_cast<std::size_t>(n));
        std::printf("%-10d %.4f   %.4f             %.3f\n", n, kappa, bound, kappa / bound);
    }
    std::printf("\n");
}

void printGroupGrowth() {
    addMsrGrp("Bench");
    const auto start = std::chrono::steady_clock::now();
    double firstHundred = 0.0;
    for (int i = 0; i < 1000; ++i) {
        addMsrToMsrGrp("Bench", "Area");
        if (i == 99)
            firstHundred = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    }
    const double all = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    // Each add copies the whole group: the last adds cost about ten times the first ones.
    std::printf("addMsrToMsrGrp building a group of 1000: %.3f us per add on average; first 100: %.3f us each, "
                "last 900: %.3f us each\n\n",
                all / 1000.0, firstHundred / 100.0, (all - firstHundred) / 900.0);
    removeMsrGrp("Bench");
}

}  // namespace

int main(int argc, char** argv) {
    initKorvaneAPI(KORVANE_SOURCE_SETTINGS);
    getKorvaneAPILogger().setLogLevel(static_cast<int>(KrvLoggerLevel::Error));
    printKappa();
    printRatios();
    printGroupGrowth();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    endKorvaneAPI();
    return 0;
}
