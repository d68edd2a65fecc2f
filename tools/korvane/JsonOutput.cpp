#include "JsonOutput.h"

#include <charconv>
#include <cstdio>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace korvane {

namespace {

// The length of the valid UTF-8 character at text[at], 0 when it is not one (overlong forms,
// surrogates and values past U+10FFFF included).
std::size_t utf8Length(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) return 1;
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    else if (lead == 0xE0) length = 3, low = 0xA0;
    else if (lead == 0xED) length = 3, high = 0x9F;
    else if (lead >= 0xE1 && lead <= 0xEF) length = 3;
    else if (lead == 0xF0) length = 4, low = 0x90;
    else if (lead == 0xF4) length = 4, high = 0x8F;
    else if (lead >= 0xF1 && lead <= 0xF3) length = 4;
    else return 0;
    if (at + length > text.size() || byte(at + 1) < low || byte(at + 1) > high) return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
    return length;
}

void makeValid(Json& value) {
    if (value.is_string()) {
        value = validUtf8(value.get_ref<const std::string&>());
    } else if (value.is_structured()) {
        for (Json& element : value) makeValid(element);
    }
}

template <class Number>
std::string shortestForm(Number value) {
    char text[64];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return error == std::errc() ? std::string(text, end) : std::string("nan");
}

}  // namespace

std::string validUtf8(const std::string& text) {
    std::string valid;
    valid.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = utf8Length(text, at);
        if (length == 0) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(text[at]));
            valid += escaped;
            ++at;
        } else {
            valid.append(text, at, length);
            at += length;
        }
    }
    return valid;
}

Json jsonObject(const char* type) { return Json{{"version", kJsonSchemaVersion}, {"type", type}}; }

void writeJson(std::ostream& out, const Json& object) {
    Json valid = object;
    makeValid(valid);
    out << valid.dump() << '\n';
}

std::string shortest(float value) { return shortestForm(value); }
std::string shortest(double value) { return shortestForm(value); }

Json jsonNumber(float value) {
    // A whole number prints without ".0", as in the text; any other as the double nearest to
    // the float's shortest decimal, which prints as that decimal again.
    constexpr float kExactWhole = 9007199254740992.0f;  // 2^53
    const bool negativeZero = value == 0.0f && std::signbit(value);
    if (std::fabs(value) < kExactWhole && std::trunc(value) == value && !negativeZero)
        return static_cast<std::int64_t>(value);
    return std::strtod(shortest(value).c_str(), nullptr);
}

}  // namespace korvane
