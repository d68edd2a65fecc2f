// The call frame every exported function runs in: a log line is built only when its level is
// enabled, as a fresh string stream would write it under the client's global locale, and handed to the suite's logger with the caller's file and
// line; a failure by exception logs the same text at Error, then gives the exception to throw.
// Macros only capture the call site: the work is in the two helpers below.
#pragma once
#include <charconv>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include <KorvaneAPI/Core.h>
#include <KorvaneAPI/KorvaneAPIException.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvLogger.h>

// Names and texts travel as the suite's strings; a CKrvString streams as its text. Global, so
// that the pieces of a log line find it by argument-dependent lookup.
inline std::ostream& operator<<(std::ostream& out, const CKrvString& text) { return out << text.m_str; }

namespace kapi {

// One piece of a line appended as a classic-locale stream would print it with default
// formatting, without a stream: building a string stream (its locale and facets) costs more than
// the rest of a line. Numbers never depend on the C library's locale (setlocale).
template <class T>
void appendPiece(std::string& out, const T& piece) {
    if constexpr (std::is_same_v<T, CKrvString>) {
        out += piece.m_str;
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        out += std::string_view(piece);
    } else if constexpr (std::is_same_v<T, char> || std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char>) {
        out += static_cast<char>(piece);
    } else if constexpr (std::is_same_v<T, bool>) {
        out += piece ? '1' : '0';
    } else if constexpr (std::is_integral_v<T>) {
        char digits[24];
        out.append(digits, std::to_chars(digits, digits + sizeof digits, piece).ptr);
    } else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>) {
        char digits[32];  // a stream's default: six significant digits, as %g
        const auto end = std::to_chars(digits, digits + sizeof digits, static_cast<double>(piece),
                                       std::chars_format::general, 6).ptr;
        out.append(digits, end);
    } else {
        static_assert(!sizeof(T), "a log line takes text, characters, booleans and numbers");
    }
}

// A fresh string stream takes the client's global C++ locale, which may group digits or write a
// decimal comma; the classic one is by far the common case and is one pointer compare away.
inline bool globalLocaleIsClassic() { return std::locale() == std::locale::classic(); }

template <class... Pieces>
std::string joined(const Pieces&... pieces) {
    if (!globalLocaleIsClassic()) {
        std::ostringstream text;
        (text << ... << pieces);
        return text.str();
    }
    std::string text;
    (appendPiece(text, pieces), ...);
    return text;
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

// KAPI_LOG(Debug, "Removing filter ", name): one line at that level, pieces streamed in order,
// with the file and line of this statement.
#define KAPI_LOG(LEVEL, ...)                                                                        \
    do {                                                                                            \
        const KrvLogger& kapiLog_ = getKorvaneAPILogger();                                          \
        if (kapiLog_.isEnabledFor(KrvLoggerLevel::LEVEL))                                           \
            ::kapi::writeLogLine(kapiLog_, KrvLoggerLevel::LEVEL, __FILE__, __LINE__, __VA_ARGS__); \
    } while (0)

// throw KAPI_FAILURE("Can't allocate data service"): the Error line, then the exception.
#define KAPI_FAILURE(...) ::kapi::failure(__FILE__, __LINE__, __VA_ARGS__)
