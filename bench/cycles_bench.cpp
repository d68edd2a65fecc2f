// 1,000 start/end cycles with one object of every family made in each: prints the resident memory
// after a warm-up of 50 cycles and its growth over the rest, and fails when a start finds an
// object of the cycle before. Run: build/release/bench/cycles_bench [cycles]
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <KorvaneAPI/KorvaneAPI.h>

#include "support/EveryFamily.h"

namespace {

long residentKiB() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * 4;  // 4 KiB pages
}

}  // namespace

int main(int argc, char** argv) {
    const int cycles = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int warmUp = 50;
    long afterWarmUp = 0;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        initKorvaneAPI(KORVANE_BENCH_SETTINGS);
        if (!kapitest::storesEmpty()) {
            std::printf("cycle %d: a store is not empty after the start\n", cycle);
            return 1;
        }
        if (!kapitest::makeOneOfEach(cycle)) {
            std::printf("cycle %d: an object could not be made\n", cycle);
            return 1;
        }
        endKorvaneAPI();
        if (cycle + 1 == warmUp) afterWarmUp = residentKiB();
    }
    const long end = residentKiB();
    std::printf("%d start/end cycles: resident %ld KiB after %d cycles, %ld KiB after %d: growth %ld KiB "
                "(%.2f KiB per 1,000 cycles)\n",
                cycles, afterWarmUp, warmUp, end, cycles, end - afterWarmUp,
                cycles > warmUp ? (end - afterWarmUp) * 1000.0 / (cycles - warmUp) : 0.0);
    return 0;
}
