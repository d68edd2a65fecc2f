#include "Calls.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace korvane {

const Call* CallTable::find(const std::string& name) const {
    const auto found = m_calls.find(name);
    return found == m_calls.end() ? nullptr : &found->second;
}

void CallTable::describe(const std::string& name, std::string results) {
    const auto found = m_calls.find(name);
    if (found != m_calls.end()) found->second.results = std::move(results);
}

const CallTable& calls() {
    static const CallTable table = [] {
        CallTable built;
        addCoreCalls(built);
        addImageCalls(built);
        addSieveCalls(built);
        addSegmentCalls(built);
        addCommandCalls(built);
        addTableCalls(built);
        addMeasureCalls(built);
        describeResults(built);
        return built;
    }();
    return table;
}

namespace {

[[noreturn]] void badArgument(const std::string& text, const char* what, const char* expected) {
    throw ScriptError(std::string(what) + ": \"" + text + "\" is not " + expected);
}

template <class Number>
Number wholeNumber(const std::string& text, const char* what, const char* expected) {
    Number value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end) badArgument(text, what, expected);
    return value;
}

}  // namespace

int toInt(const std::string& text, const char* what) {
    return wholeNumber<int>(text, what, "a whole number from -2147483648 to 2147483647");
}

long long toInt64(const std::string& text, const char* what) {
    return wholeNumber<long long>(text, what, "a 64-bit whole number");
}

namespace {

// strtof/strtod, not from_chars: GCC 12's from_chars is fine, but strto* also take "inf" and
// "nan" the way users write them; both are rejected below anyway.
template <class Number>
Number toFinite(const std::string& text, const char* what, Number (*parse)(const char*, char**)) {
    char* stop = nullptr;
    const Number value = parse(text.c_str(), &stop);
    if (text.empty() || stop != text.c_str() + text.size() || !std::isfinite(value))
        badArgument(text, what, "a finite number");
    return value;
}

}  // namespace

float toFloat(const std::string& text, const char* what) { return toFinite<float>(text, what, std::strtof); }
double toDouble(const std::string& text, const char* what) { return toFinite<double>(text, what, std::strtod); }

bool toBool(const std::string& text, const char* what) {
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    badArgument(text, what, "true or false");
}

std::vector<float> toFloats(const Args& args, std::size_t first, const char* what) {
    std::vector<float> values;
    for (std::size_t i = first; i < args.size(); ++i) values.push_back(toFloat(args[i], what));
    return values;
}

std::vector<int> toInts(const Args& args, std::size_t first, const char* what) {
    std::vector<int> values;
    for (std::size_t i = first; i < args.size(); ++i) values.push_back(toInt(args[i], what));
    return values;
}

Output succeeded(bool ok, const std::string& call, const std::string& why) {
    if (!ok) throw CallFailed(call + " failed" + (why.empty() ? "" : ": " + why));
    return {};
}

Output said(bool value) { return {{value ? "true" : "false"}, value}; }
Output said(long long value) { return {{std::to_string(value)}, value}; }
Output said(const std::string& value) { return {{value}, value}; }
Output said(const std::vector<std::string>& values) { return {values, values}; }

Output said(const std::vector<float>& values) {
    Output output{{}, Json::array()};
    for (const float value : values) {
        output.lines.push_back(shortest(value));
        output.value.push_back(jsonNumber(value));
    }
    return output;
}

Output said(const std::vector<int>& values) {
    Output output{{}, values};
    for (const int value : values) output.lines.push_back(std::to_string(value));
    return output;
}

Output saidOnOneLine(const std::vector<int>& values) {
    std::string line;
    for (const int value : values) line += (line.empty() ? "" : " ") + std::to_string(value);
    return {{line}, values};
}

}  // namespace korvane
