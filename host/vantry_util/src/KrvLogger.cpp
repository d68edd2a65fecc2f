// The logger hierarchy (names, levels, inheritance: the suite's own) and its sinks (console and
// rotating files: spdlog).
#include <vantry_util/KrvLogger.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvUtil.h>

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

// Forwards suite log lines to one spdlog sink, from a threshold on.
class SpdlogSink : public KrvLogSink {
public:
    SpdlogSink(std::shared_ptr<spdlog::sinks::sink> sink, int threshold)
        : m_sink(std::move(sink)), m_threshold(threshold) {
        m_sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(kLinePattern));
    }
    void write(const KrvLogRecord& r) override {
        if (static_cast<int>(r.level) < m_threshold.load()) return;
        const spdlog::details::log_msg msg(spdlog::source_loc{r.file, r.line, ""}, r.logger, toSpdlog(r.level),
                                           r.message);
        m_sink->log(msg);
        if (r.level >= KrvLoggerLevel::Warn) m_sink->flush();
    }
    void setThreshold(int level) { m_threshold.store(level); }

private:
    std::shared_ptr<spdlog::sinks::sink> m_sink;
    std::atomic<int> m_threshold;
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
    std::error_code ec;
    if (folder.empty()) folder = (std::filesystem::temp_directory_path(ec) / "korvane").string();
    const std::string file = (name && *name) ? name : "Korvane.log";
    const std::filesystem::path path = std::filesystem::path(folder) / file;
    std::shared_ptr<SpdlogSink> sink;
    try {
        std::filesystem::create_directories(path.parent_path(), ec);
        sink = std::make_shared<SpdlogSink>(
            std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path.string(), kMainLogBytes, kMainLogFiles),
            static_cast<int>(KrvLoggerLevel::Debug));
    } catch (const std::exception& e) {
        // The suite works on without its file; the console says why.
        std::cerr << "Korvane: can't open the main log file " << path.string() << ": " << e.what() << '\n';
        return;
    }
    std::lock_guard<std::mutex> lock(h.sinksMutex);
    if (h.mainFile) h.sinks.erase(std::remove(h.sinks.begin(), h.sinks.end(), h.mainFile), h.sinks.end());
    h.mainFile = sink;
    h.sinks.push_back(sink);
}

namespace {

[[noreturn]] void badLevel(const std::string& file, const std::string& what, const std::string& text) {
    throw KrvBaseException("Invalid log level \"" + text + "\" for " + what + (file.empty() ? "" : " in " + file),
                           file, 0);
}

int requireLevel(const std::string& text, const std::string& what, const std::string& file) {
    const int level = parseKrvLogLevel(text);
    if (level < 0) badLevel(file, what, text);
    return level;
}

}  // namespace

void initKrvLoggers(const std::string& configFile, const std::string& logFolder, const std::string& defaultLevel) {
    Hierarchy& h = hierarchy();
    {
        std::lock_guard<std::mutex> lock(h.sinksMutex);
        h.logFolder = logFolder;
    }
    getKrvBaseLogger().setLogLevel(requireLevel(defaultLevel.empty() ? "Info" : defaultLevel, "the base logger", ""));
    if (configFile.empty()) return;

    boost::property_tree::ptree tree;
    try {
        boost::property_tree::ini_parser::read_ini(configFile, tree);
    } catch (const boost::property_tree::ini_parser_error& e) {
        throw KrvBaseException("Malformed logger configuration " + e.filename() + " line " +
                                   std::to_string(e.line()) + ": " + e.message(),
                               e.filename(), e.line());
    }
    if (const auto levels = tree.get_child_optional("Levels")) {
        for (const auto& entry : *levels) {
            const std::string& loggerName = entry.first;
            const int level = requireLevel(entry.second.data(), "logger " + loggerName, configFile);
            KrvLogger(loggerName).setLogLevel(level);
        }
    }
    if (const auto console = tree.get_optional<std::string>("Console.Level"))
        setKrvConsoleLevel(requireLevel(*console, "the console", configFile));
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
