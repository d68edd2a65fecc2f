// The progress hook as the suite calls it, with both client callbacks set and trivial, against
// parsing the same message alone (no lock, no settings, no calls). Prints ns per message and
// the ratio; the goal is at most 1.5.
#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/lexical_cast.hpp>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_util/KrvExternalFunction.h>

#include "BenchSuite.h"

namespace {

const char* const kMessage = "Processing slice 1234/40000 done";

float g_sink = 0.0f;
void onRatio(float ratio) { g_sink += ratio; }
void onMessage(const std::string& message) { benchmark::DoNotOptimize(message.data()); }

float parseOnly(const char* text) {
    const std::string message(text);
    const std::string::size_type slash = message.find('/');
    if (slash == std::string::npos) return 0.0f;
    const std::string::size_type before = message.rfind(' ', slash);
    const std::string::size_type start = before == std::string::npos ? 0 : before + 1;
    const std::string::size_type after = message.find(' ', slash + 1);
    try {
        const int numerator = boost::lexical_cast<int>(message.substr(start, slash - start));
        const int denominator = boost::lexical_cast<int>(
            after == std::string::npos ? message.substr(slash + 1) : message.substr(slash + 1, after - slash - 1));
        return denominator != 0 ? static_cast<float>(numerator) / static_cast<float>(denominator) : 0.0f;
    } catch (const boost::bad_lexical_cast&) {
        return 0.0f;
    }
}

void BM_ParseOnly(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(parseOnly(kMessage));
}
BENCHMARK(BM_ParseOnly);

void BM_ProgressHook(benchmark::State& state) {
    const KrvExternalFunction& hooks = KrvExternalFunction::getInstance();
    for (auto _ : state) hooks.CallProgressMsgFunction(kMessage);
}
BENCHMARK(BM_ProgressHook);

}  // namespace

int main(int argc, char** argv) {
    kapibench::Suite suite;
    setProgressRatioCB(&onRatio);
    setProgressMsgCB(&onMessage);
    const double hook = kapibench::nsPerIteration(argc, argv, "BM_ProgressHook");
    const double parse = kapibench::nsPerIteration(argc, argv, "BM_ParseOnly");
    std::printf("progress hook: %.1f ns per message, parsing alone %.1f ns: ratio %.2f (goal <= 1.5)\n", hook, parse,
                hook / parse);
    setProgressRatioCB(nullptr);
    setProgressMsgCB(nullptr);
    return 0;
}
