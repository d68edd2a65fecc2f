// The cost the library adds to a host call: an exported call against the suite's own operation,
// a disabled log line against nothing, and heap allocations per disabled log line (counted).
#include <atomic>
#include <cstdlib>
#include <new>

#include <benchmark/benchmark.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_util/CKrvSettingDoc.h>

#include "CallFrame.h"
#include "CountingNew.h"
#include "Ratios.h"

using kbench::g_allocations;

namespace {

void BM_HostGetMaximumAmountMemory(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(CKrvSettingDoc::getInstance().getMaximumAmountMemory());
}
BENCHMARK(BM_HostGetMaximumAmountMemory);

void BM_ApiGetExtraMemUsage(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(getExtraMemUsage());
}
BENCHMARK(BM_ApiGetExtraMemUsage);

void BM_Nothing(benchmark::State& state) {
    int value = 0;
    for (auto _ : state) benchmark::DoNotOptimize(++value);
}
BENCHMARK(BM_Nothing);

void BM_DisabledDebugLine(benchmark::State& state) {
    getKorvaneAPILogger().setLogLevel(static_cast<int>(KrvLoggerLevel::Info));
    const std::string name = "a filter name";
    int value = 0;
    const long before = g_allocations.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(++value);
        KAPI_LOG(Debug, "Removing filter ", name);
    }
    state.counters["allocations/line"] =
        static_cast<double>(g_allocations.load() - before) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_DisabledDebugLine);

}  // namespace

int main(int argc, char** argv) {
    initKorvaneAPI(nullptr);
    const int status = kbench::runAndPrintRatios(
        argc, argv,
        {{"BM_ApiGetExtraMemUsage", "BM_HostGetMaximumAmountMemory", "<= 1.10x (exported call over host call)"},
         {"BM_DisabledDebugLine", "BM_Nothing", "a load and a compare; 0 allocations/line"}});
    endKorvaneAPI();
    return status;
}
