// The suite's loggers: named by dotted paths ("Korvane.KorvaneAPI"), each with its own level or
// (-1) the level of its nearest ancestor. The effective level is cached in the logger, so a
// disabled check is one load and one compare; lines go to the sinks of the whole hierarchy.
#pragma once
#include <atomic>
#include <memory>
#include <string>

#include <vantry_util/KrvExport.h>

enum class KrvLoggerLevel : int { Debug = 0, Info = 20000, Warn = 30000, Error = 40000, Off = 60000 };

// One written line as the sinks receive it.
struct VANTRY_UTIL_EXPORT KrvLogRecord {
    KrvLoggerLevel level;
    const std::string& logger;
    const std::string& message;
    const char* file;
    int line;
};

// A destination for log lines; the suite adds its console and file sinks, tests add their own.
class VANTRY_UTIL_EXPORT KrvLogSink {
public:
    virtual ~KrvLogSink() = default;
    virtual void write(const KrvLogRecord& record) = 0;
};

namespace krv_detail { struct LoggerNode; }

class VANTRY_UTIL_EXPORT KrvLogger {
public:
    explicit KrvLogger(const std::string& name);
    KrvLogger(const KrvLogger&) = delete;
    KrvLogger& operator=(const KrvLogger&) = delete;
    ~KrvLogger();

    const std::string& getName() const noexcept;
    // The logger's own level, or -1 when it takes its ancestor's.
    int getLogLevel() const noexcept;
    void setLogLevel(int level);
    int getEffectiveLevel() const noexcept;

    bool isEnabledFor(KrvLoggerLevel level) const noexcept {
        return static_cast<int>(level) >= m_effective->load(std::memory_order_relaxed);
    }
    // Writes the line without testing the level again.
    void forcedLog(KrvLoggerLevel level, const std::string& message, const char* file, int line) const;

private:
    krv_detail::LoggerNode* m_node;
    const std::atomic<int>* m_effective;
};

// The suite's base logger, "Korvane".
VANTRY_UTIL_EXPORT KrvLogger& getKrvBaseLogger();

// Opens the main log file in the log folder (an empty or null name gives "Korvane.log").
VANTRY_UTIL_EXPORT void initKrvMainLogger(const char* name);
VANTRY_UTIL_EXPORT bool isMainLogFileCreated();
// Reads the logger configuration file (levels per logger, console threshold), sets the log
// folder and the default level of the base logger. A malformed file raises KrvBaseException.
VANTRY_UTIL_EXPORT void initKrvLoggers(const std::string& configFile, const std::string& logFolder, const std::string& defaultLevel);

// Parses "Debug", "Info", "Warn", "Error", "Off" (any letter case) or a number; -2 when invalid.
VANTRY_UTIL_EXPORT int parseKrvLogLevel(const std::string& text);
VANTRY_UTIL_EXPORT const char* krvLogLevelName(KrvLoggerLevel level);

VANTRY_UTIL_EXPORT void addKrvLogSink(std::shared_ptr<KrvLogSink> sink);
VANTRY_UTIL_EXPORT void removeKrvLogSink(const std::shared_ptr<KrvLogSink>& sink);
// Lines at or above this level also go to standard error (Off by default).
VANTRY_UTIL_EXPORT void setKrvConsoleLevel(int level);
