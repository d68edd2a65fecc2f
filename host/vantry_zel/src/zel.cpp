// Start, stop and plug-in registry of the algorithm library.
#include <vantry_zel/zel.h>

#include <mutex>

namespace zel {
namespace {

struct State {
    std::mutex mutex;
    int initCount = 0;
    std::vector<std::string> algorithms;
    std::string path;
    bool pathGiven = false;
};

State& state() {
    static State s;
    return s;
}

const char* const kSuiteAlgorithms[] = {"geometry::SphereSampling"};

}  // namespace

void init() {
    std::lock_guard<std::mutex> lock(state().mutex);
    ++state().initCount;
}

void finish() {
    std::lock_guard<std::mutex> lock(state().mutex);
    if (state().initCount > 0) --state().initCount;
}

bool isInitialized() {
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().initCount > 0;
}

void initPlugins(const char* path) {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().path = path ? path : "";
    state().pathGiven = path != nullptr;
    state().algorithms.assign(std::begin(kSuiteAlgorithms), std::end(kSuiteAlgorithms));
}

void finishPlugins() {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().algorithms.clear();
}

std::vector<std::string> registeredAlgorithms() {
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().algorithms;
}

const std::string& pluginPath() { return state().path; }
bool pluginPathGiven() { return state().pathGiven; }

}  // namespace zel
