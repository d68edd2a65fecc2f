// The call frame every exported function runs in: a log line is built only when its level is
// enabled, in a fresh string stream, and handed to the suite's logger with the caller's file and
// line; a failure by exception logs the same text at Error, then gives the exception to throw.
// Macros only capture the call site: the work is in the two helpers below.
#pragma once
#include <sstream>
#include <string>

#include <KorvaneAPI/Core.h>
#include <KorvaneAPI/KorvaneAPIException.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvLogger.h>

// Names and texts travel as the suite's strings; a CKrvString streams as its text. Global, so
// that the pieces of a log line find it by argument-dependent lookup.
inline std::ostream& operator<<(std::ostream& out, const CKrvString& text) { return out << text.m_str; }

namespace kapi {

template <class... Pieces>
std::string joined(const Pieces&... pieces) {
    std::ostringstream text;
    (text << ... << pieces);
    return text.str();
}

// Out of line, so that a disabled level costs the caller a call and a compare and nothing else.
template <class... Pieces>
[[gnu::noinline]] void writeLogLine(const KrvLogger& log, KrvLoggerLevel level, const char* file, int line,
                                    const Pieces&... pieces) {
    log.forcedLog(level, joined(pieces...), file, line);
}

template <class... Pieces>
[[gnu::noinline, gnu::cold]] KorvaneAPIException failure(const char* file, int line, const Pieces&... pieces) {
    std::string message = joined(pieces...);
    const KrvLogger& log = getKorvaneAPILogger();
    if (log.isEnabledFor(KrvLoggerLevel::Error)) writeLogLine(log, KrvLoggerLevel::Error, file, line, pieces...);
    return KorvaneAPIException(message, std::string(file), static_cast<std::uint64_t>(line));
}

}  // namespace kapi

// KAPI_LOG_AT(Warn, 94, ...): one line at that level, pieces streamed in order, for a line that a shared helper writes on behalf of
// several call sites, each of which keeps the line number it has always had in the log.
#define KAPI_LOG_AT(LEVEL, LINE, ...)                                                           \
    do {                                                                                        \
        const KrvLogger& kapiLog_ = getKorvaneAPILogger();                                      \
        if (kapiLog_.isEnabledFor(KrvLoggerLevel::LEVEL))                                       \
            ::kapi::writeLogLine(kapiLog_, KrvLoggerLevel::LEVEL, __FILE__, LINE, __VA_ARGS__); \
    } while (0)

// KAPI_LOG(Debug, "Removing filter ", name): one line at that level, from the statement's line.
#define KAPI_LOG(LEVEL, ...) KAPI_LOG_AT(LEVEL, __LINE__, __VA_ARGS__)

// throw KAPI_FAILURE("Can't allocate data service"): the Error line, then the exception.
#define KAPI_FAILURE(...) ::kapi::failure(__FILE__, __LINE__, __VA_ARGS__)
