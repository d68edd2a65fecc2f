#include "SuiteLog.h"

#include <memory>

#include <vantry_util/KrvLogger.h>

namespace korvane {

namespace {

const char kFormulaLogger[] = "Korvane.Formula";
const char kRefused[] = "Formula refused ";
const char kDataLogger[] = "Korvane.Data";
const char kBaseLogger[] = "Korvane";

class RefusalSink : public KrvLogSink {
public:
    void write(const KrvLogRecord& record) override {
        if (record.logger == kFormulaLogger && record.message.compare(0, sizeof kRefused - 1, kRefused) == 0)
            last = record.message.substr(sizeof kRefused - 1);
        if (record.level == KrvLoggerLevel::Error && (record.logger == kDataLogger || record.logger == kBaseLogger))
            lastData = record.message;
    }
    std::string last;
    std::string lastData;
};

std::shared_ptr<RefusalSink> g_sink;

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

void watchFormulaRefusals() {
    KrvLogger formula(kFormulaLogger);
    if (formula.getEffectiveLevel() > static_cast<int>(KrvLoggerLevel::Debug))
        formula.setLogLevel(static_cast<int>(KrvLoggerLevel::Debug));
    g_sink = std::make_shared<RefusalSink>();
    addKrvLogSink(g_sink);
}

void stopWatchingFormulaRefusals() {
    if (g_sink) removeKrvLogSink(g_sink);
    g_sink.reset();
}

void forgetFormulaRefusal() {
    if (g_sink) g_sink->last.clear();
}

void forgetDataError() {
    if (g_sink) g_sink->lastData.clear();
}

std::string dataError() { return g_sink && !g_sink->lastData.empty() ? g_sink->lastData : "the suite gave no reason"; }

std::string formulaRefusal(const Args& args) {
    if (!g_sink) return {};
    std::string reason = g_sink->last;
    // The suite writes the formula after the reason, cut to 200 bytes.
    for (const std::string& arg : args) {
        const std::string shown = arg.size() > 200 ? arg.substr(0, 200) + "..." : arg;
        if (!arg.empty() && endsWith(reason, ": " + shown)) {
            reason.erase(reason.size() - shown.size() - 2);
            break;
        }
    }
    return reason;
}

}  // namespace korvane
