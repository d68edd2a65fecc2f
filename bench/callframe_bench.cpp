// The cost the library adds to a host call: an exported call against the suite's own operation,
// a disabled log line against nothing, and heap allocations per disabled log line (counted).
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <type_traits>
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

// The line building of the previous release, kept as the baseline of the enabled-line goal:
// numbers through to_chars and snprintf("%g"), with no look at the global locale.
template <class T>
void formerAppendPiece(std::string& out, const T& piece) {
    if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        out += std::string_view(piece);
    } else if constexpr (std::is_integral_v<T>) {
        char digits[24];
        out.append(digits, std::to_chars(digits, digits + sizeof digits, piece).ptr);
    } else {
        char digits[32];
        const int length = std::snprintf(digits, sizeof digits, "%g", static_cast<double>(piece));
        out.append(digits, static_cast<std::size_t>(length));
    }
}

template <class... Pieces>
std::string formerJoined(const Pieces&... pieces) {
    std::string text;
    (formerAppendPiece(text, pieces), ...);
    return text;
}

// A line of text and numbers, as the proxy and the parameter lines write them.
void BM_EnabledLineNow(benchmark::State& state) {
    const std::string name = "a filter name";
    for (auto _ : state)
        benchmark::DoNotOptimize(kapi::joined("Receiving message from service ", 6, ", objectName = ", name,
                                              ", messageId = ", 4300, ", value ", 0.5f));
}
BENCHMARK(BM_EnabledLineNow);

void BM_EnabledLineFormer(benchmark::State& state) {
    const std::string name = "a filter name";
    for (auto _ : state)
        benchmark::DoNotOptimize(formerJoined("Receiving message from service ", 6, ", objectName = ", name,
                                              ", messageId = ", 4300, ", value ", 0.5f));
}
BENCHMARK(BM_EnabledLineFormer);

}  // namespace

int main(int argc, char** argv) {
    initKorvaneAPI(nullptr);
    const int status = kbench::runAndPrintRatios(
        argc, argv,
        {{"BM_ApiGetExtraMemUsage", "BM_HostGetMaximumAmountMemory", "<= 1.10x (exported call over host call)"},
         {"BM_DisabledDebugLine", "BM_Nothing", "a load and a compare; 0 allocations/line"},
         {"BM_EnabledLineNow", "BM_EnabledLineFormer", "<= 1.00x (the locale check paid for by to_chars)"}});
    endKorvaneAPI();
    return status;
}
