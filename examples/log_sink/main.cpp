// Why did a call fail? A failed call answers false, -1 or empty, and the library writes the
// reason to its log: a program that wants the reason adds a log sink. This one keeps the Warn and
// Error lines of the call in progress, and prints them when the call fails.
// Built against an installed KorvaneAPI, with nothing but its headers:
//   cmake -S examples/log_sink -B build/log_sink -DCMAKE_PREFIX_PATH=<install prefix>
//   cmake --build build/log_sink && build/log_sink/log_sink
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPI.h>

namespace {

// Sinks are called on the thread that writes the line, while the suite holds its lock on the
// sinks: keep write() short, and never call the library from it.
class FailureReasons : public KrvLogSink {
public:
    void write(const KrvLogRecord& record) override {
        if (record.level < KrvLoggerLevel::Warn) return;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(std::string(krvLogLevelName(record.level)) + " " + record.message + " (" + record.logger +
                          ", " + (record.file ? record.file : "?") + ":" + std::to_string(record.line) + ")");
    }
    // The lines since the last call, and none kept.
    std::vector<std::string> take() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return std::move(m_lines);
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

void report(const char* call, bool ok, FailureReasons& reasons) {
    const std::vector<std::string> lines = reasons.take();
    std::cout << call << (ok ? " succeeded\n" : " failed:\n");
    if (!ok)
        for (const std::string& line : lines) std::cout << "  " << line << '\n';
}

}  // namespace

int main() {
    const auto reasons = std::make_shared<FailureReasons>();
    addKrvLogSink(reasons);
    try {
        initKorvaneAPI(nullptr);
    } catch (const std::exception& e) {  // the message is also in the sink's lines
        std::cerr << "start-up failed: " << e.what() << '\n';
        return 1;
    }
    reasons->take();  // what start-up wrote

    report("createFilter(\"double\", \"I1 * 2\")", createFilter("double", "I1 * 2"), *reasons);
    report("createFilter(\"broken\", \"I1 * \")", createFilter("broken", "I1 * "), *reasons);
    report("setMsrParams(\"Area\", {1})", setMsrParams("Area", {1.0f}), *reasons);

    endKorvaneAPI();
    removeKrvLogSink(reasons);
    return 0;
}
