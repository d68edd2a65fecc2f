// The logger hierarchy (names, levels, inheritance: the suite's own) and its sinks (console and
// rotating files: spdlog).
#include <vantry_util/KrvLogger.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include <boost/property_tree/ptree.hpp>
#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvUtil.h>

#include "KrvIniFile.h"
#include "KrvMainLogFile.h"

namespace krv_detail {

struct LoggerNode {
    std::string name;
    LoggerNode* parent = nullptr;
    int own = -1;
    std::atomic<int> effective{static_cast<int>(KrvLoggerLevel::Info)};
};

}  // namespace krv_detail

using krv_detail::LoggerNode;

namespace {

constexpr int kRootLevel = static_cast<int>(KrvLoggerLevel::Info);
constexpr std::size_t kMainLogBytes = 5 * 1024 * 1024;
constexpr std::size_t kMainLogFiles = 3;
constexpr const char* kLinePattern = "%Y-%m-%d %H:%M:%S.%e %-5l %n: %v (%s:%#)";

spdlog::level::level_enum toSpdlog(KrvLoggerLevel level) {
    switch (level) {
    case KrvLoggerLevel::Debug: return spdlog::level::debug;
    case KrvLoggerLevel::Info: return spdlog::level::info;
    case KrvLoggerLevel::Warn: return spdlog::level::warn;
    case KrvLoggerLevel::Error: return spdlog::level::err;
    default: return spdlog::level::critical;
    }
}

// Forwards suite log lines to one spdlog sink, from a threshold on. A sink that fails (a file
// that can't be written or safely reopened by the rotation) is given up: the caller's work goes
// on, and standard error says why once.
class SpdlogSink : public KrvLogSink {
public:
    SpdlogSink(std::shared_ptr<spdlog::sinks::sink> sink, int threshold)
        : m_sink(std::move(sink)), m_threshold(threshold) {
        m_sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(kLinePattern));
    }
    void write(const KrvLogRecord& r) override {
        if (static_cast<int>(r.level) < m_threshold.load() || m_failed) return;
        const spdlog::details::log_msg msg(spdlog::source_loc{r.file, r.line, ""}, r.logger, toSpdlog(r.level),
                                           r.message);
        try {
            m_sink->log(msg);
            if (r.level >= KrvLoggerLevel::Warn) m_sink->flush();
        } catch (const std::exception& e) {
            m_failed = true;  // under the sinks' lock
            std::cerr << "Korvane: a log sink stopped: " << e.what() << '\n';
        }
    }
    void setThreshold(int level) { m_threshold.store(level); }

private:
    std::shared_ptr<spdlog::sinks::sink> m_sink;
    std::atomic<int> m_threshold;
    bool m_failed = false;
};

struct Hierarchy {
    std::mutex nodesMutex;
    std::unordered_map<std::string, std::unique_ptr<LoggerNode>> nodes;
    LoggerNode root;

    std::mutex sinksMutex;
    std::vector<std::shared_ptr<KrvLogSink>> sinks;
    std::shared_ptr<SpdlogSink> console;
    std::shared_ptr<SpdlogSink> mainFile;
    std::string logFolder;

    Hierarchy() {
        root.own = kRootLevel;
        root.effective.store(kRootLevel);
        console = std::make_shared<SpdlogSink>(std::make_shared<spdlog::sinks::stderr_sink_mt>(),
                                               static_cast<int>(KrvLoggerLevel::Off));
        sinks.push_back(console);
    }

    LoggerNode* node(const std::string& name) {
        std::lock_guard<std::mutex> lock(nodesMutex);
        return nodeLocked(name);
    }

    LoggerNode* nodeLocked(const std::string& name) {
        if (name.empty()) return &root;
        auto& slot = nodes[name];
        if (!slot) {
            auto created = std::make_unique<LoggerNode>();
            created->name = name;
            const auto dot = name.rfind('.');
            created->parent = nodeLocked(dot == std::string::npos ? std::string() : name.substr(0, dot));
            created->effective.store(created->parent->effective.load());
            nodes[name] = std::move(created);  // `slot` may have moved during the recursion
            return nodes[name].get();
        }
        return slot.get();
    }

    static int resolve(const LoggerNode* n) {
        while (n->own == -1 && n->parent) n = n->parent;
        return n->own == -1 ? kRootLevel : n->own;
    }

    void setLevel(LoggerNode* target, int level) {
        std::lock_guard<std::mutex> lock(nodesMutex);
        target->own = level;
        refreshLocked();
    }

    void refreshLocked() {
        root.effective.store(resolve(&root));
        for (auto& entry : nodes) entry.second->effective.store(resolve(entry.second.get()));
    }

    void resetLevels() {
        std::lock_guard<std::mutex> lock(nodesMutex);
        for (auto& entry : nodes) entry.second->own = -1;
        refreshLocked();
    }

    void write(const KrvLogRecord& record) {
        std::lock_guard<std::mutex> lock(sinksMutex);
        for (const auto& sink : sinks) sink->write(record);
    }
};

Hierarchy& hierarchy() {
    static Hierarchy* instance = new Hierarchy;  // lives until the process ends, after every logger
    return *instance;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

}  // namespace

KrvLogger::KrvLogger(const std::string& name)
    : m_node(hierarchy().node(name)), m_effective(&m_node->effective) {}

KrvLogger::~KrvLogger() = default;

const std::string& KrvLogger::getName() const noexcept { return m_node->name; }
int KrvLogger::getLogLevel() const noexcept { return m_node->own; }
int KrvLogger::getEffectiveLevel() const noexcept { return m_effective->load(); }
void KrvLogger::setLogLevel(int level) { hierarchy().setLevel(m_node, level); }

void KrvLogger::forcedLog(KrvLoggerLevel level, const std::string& message, const char* file, int line) const {
    hierarchy().write(KrvLogRecord{level, m_node->name, message, file, line});
}

KrvLogger& getKrvBaseLogger() {
    static KrvLogger* base = new KrvLogger("Korvane");
    return *base;
}

int parseKrvLogLevel(const std::string& text) {
    const std::string name = lowered(text);
    if (name == "debug") return static_cast<int>(KrvLoggerLevel::Debug);
    if (name == "info") return static_cast<int>(KrvLoggerLevel::Info);
    if (name == "warn" || name == "warning") return static_cast<int>(KrvLoggerLevel::Warn);
    if (name == "error") return static_cast<int>(KrvLoggerLevel::Error);
    if (name == "off") return static_cast<int>(KrvLoggerLevel::Off);
    int value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty() || value < 0) return -2;
    return value;
}

const char* krvLogLevelName(KrvLoggerLevel level) {
    switch (level) {
    case KrvLoggerLevel::Debug: return "Debug";
    case KrvLoggerLevel::Info: return "Info";
    case KrvLoggerLevel::Warn: return "Warn";
    case KrvLoggerLevel::Error: return "Error";
    default: return "Off";
    }
}

void addKrvLogSink(std::shared_ptr<KrvLogSink> sink) {
    Hierarchy& h = hierarchy();
    std::lock_guard<std::mutex> lock(h.sinksMutex);
    h.sinks.push_back(std::move(sink));
}

void removeKrvLogSink(const std::shared_ptr<KrvLogSink>& sink) {
    Hierarchy& h = hierarchy();
    std::lock_guard<std::mutex> lock(h.sinksMutex);
    h.sinks.erase(std::remove(h.sinks.begin(), h.sinks.end(), sink), h.sinks.end());
}

void setKrvConsoleLevel(int level) { hierarchy().console->setThreshold(level); }

bool isMainLogFileCreated() {
    Hierarchy& h = hierarchy();
    std::lock_guard<std::mutex> lock(h.sinksMutex);
    return h.mainFile != nullptr;
}

void initKrvMainLogger(const char* name) {
    Hierarchy& h = hierarchy();
    std::string folder;
    {
        std::lock_guard<std::mutex> lock(h.sinksMutex);
        folder = h.logFolder;
    }
    if (folder.empty()) folder = KrvSettingApp::getInstance().getLogFolder();
    if (folder.empty()) folder = krv_detail::defaultLogFolder();
    const std::string file = (name && *name) ? name : "Korvane.log";
    std::shared_ptr<SpdlogSink> sink;
    try {
        if (folder.empty()) throw std::runtime_error("no home folder is known");
        sink = std::make_shared<SpdlogSink>(krv_detail::openMainLogFile(folder, file, kMainLogBytes, kMainLogFiles),
                                            static_cast<int>(KrvLoggerLevel::Debug));
    } catch (const std::exception& e) {
        // The suite works on without its file; standard error and the other sinks say why.
        const std::string why = "Can't open the main log file " + file + " in " + folder + ": " + e.what();
        std::cerr << "Korvane: " << why << '\n';
        const KrvLogger& base = getKrvBaseLogger();
        if (base.isEnabledFor(KrvLoggerLevel::Error)) base.forcedLog(KrvLoggerLevel::Error, why, __FILE__, __LINE__);
        return;
    }
    std::lock_guard<std::mutex> lock(h.sinksMutex);
    if (h.mainFile) h.sinks.erase(std::remove(h.sinks.begin(), h.sinks.end(), h.mainFile), h.sinks.end());
    h.mainFile = sink;
    h.sinks.push_back(sink);
}

namespace {

// The level named by `text`; a KrvBaseException naming `what`, and when the text comes from the
// configuration file, the file and the line of `key` in `[section]`.
int requireLevel(const std::string& text, const std::string& what, const std::string& file = std::string(),
                 const std::string& section = std::string(), const std::string& key = std::string()) {
    const int level = parseKrvLogLevel(text);
    if (level >= 0) return level;
    const std::string message = "Invalid log level \"" + text + "\" for " + what;
    if (file.empty()) throw KrvBaseException(message, file, 0);
    const std::uint64_t line = krv_detail::iniLineOf(file, section, key);
    throw KrvBaseException(message + " in " + file + " line " + std::to_string(line), file, line);
}

}  // namespace

void initKrvLoggers(const std::string& configFile, const std::string& logFolder, const std::string& defaultLevel) {
    Hierarchy& h = hierarchy();
    {
        std::lock_guard<std::mutex> lock(h.sinksMutex);
        h.logFolder = logFolder;
    }
    getKrvBaseLogger().setLogLevel(requireLevel(defaultLevel.empty() ? "Info" : defaultLevel, "the base logger"));
    if (configFile.empty()) return;

    const boost::property_tree::ptree tree = krv_detail::readIniFile(configFile, "logger configuration");
    if (const auto levels = tree.get_child_optional("Levels")) {
        for (const auto& entry : *levels) {
            const std::string& loggerName = entry.first;
            const int level =
                requireLevel(entry.second.data(), "logger " + loggerName, configFile, "Levels", loggerName);
            KrvLogger(loggerName).setLogLevel(level);
        }
    }
    if (const auto console = tree.get_optional<std::string>("Console.Level"))
        setKrvConsoleLevel(requireLevel(*console, "the console", configFile, "Console", "Level"));
}

namespace KrvUtil {

void finish() {
    Hierarchy& h = hierarchy();
    {
        std::lock_guard<std::mutex> lock(h.sinksMutex);
        if (h.mainFile) {
            h.sinks.erase(std::remove(h.sinks.begin(), h.sinks.end(), h.mainFile), h.sinks.end());
            h.mainFile.reset();
        }
        h.logFolder.clear();
    }
    h.resetLevels();
    setKrvConsoleLevel(static_cast<int>(KrvLoggerLevel::Off));
}

}  // namespace KrvUtil
