// The calls a korvane script can make: one entry per exported function (and a few of the tool's
// own), each with its usage line, a one-line summary and what it does with its arguments.
// A family of the API adds its calls in a file of its own and lists its register function in
// Calls.cpp.
#pragma once
#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "ScriptReader.h"

struct KrvResultTable;

namespace korvane {

// A call that reported failure by its result (false, -1, an empty answer where one was
// required); `fails` accepts it like an exception.
struct CallFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What a call printed, line by line (`expect` compares the last call's lines), and the same as
// a typed value for --json: a number, a text, an array for a list, an object for a record
// (null when the call printed nothing).
struct Output {
    Output() = default;
    Output(Args printed, Json typed) : lines(std::move(printed)), value(std::move(typed)) {}
    Args lines;
    Json value;
};

struct Call {
    std::string usage;    // "createFilter NAME FORMULA"
    std::string summary;  // one line
    std::size_t minArgs;
    std::size_t maxArgs;  // kAnyNumber for lists
    std::function<Output(const Args&)> run;
    // What the call prints and when it fails, for "help CALL" (empty: the summary says it).
    std::string results{};
};

constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

class CallTable {
public:
    void add(const std::string& name, Call call) { m_calls[name] = std::move(call); }
    const Call* find(const std::string& name) const;
    // Sets the results text of a call already added; no effect for an unknown name.
    void describe(const std::string& name, std::string results);
    const std::map<std::string, Call>& all() const noexcept { return m_calls; }

private:
    std::map<std::string, Call> m_calls;
};

// Every call of the tool, built once.
const CallTable& calls();

// Argument conversions; each throws ScriptError naming the argument when it does not fit.
int toInt(const std::string& text, const char* what);
long long toInt64(const std::string& text, const char* what);
float toFloat(const std::string& text, const char* what);
double toDouble(const std::string& text, const char* what);
bool toBool(const std::string& text, const char* what);
std::vector<float> toFloats(const Args& args, std::size_t first, const char* what);
std::vector<int> toInts(const Args& args, std::size_t first, const char* what);

// A call whose false or negative result means failure: nothing printed on success, CallFailed
// with "<call> failed" (and `why`, when given) otherwise.
Output succeeded(bool ok, const std::string& call, const std::string& why = "");

// Result conversions.
Output said(bool value);
Output said(long long value);
Output said(const std::string& value);
Output said(const std::vector<std::string>& values);
Output said(const std::vector<float>& values);
Output said(const std::vector<int>& values);
// Numbers on one line, separated by blanks, and as an array.
Output saidOnOneLine(const std::vector<int>& values);

// The register functions of the families.
void addCoreCalls(CallTable& table);
void addImageCalls(CallTable& table);
void addSieveCalls(CallTable& table);
void addSegmentCalls(CallTable& table);
void addCommandCalls(CallTable& table);
void addTableCalls(CallTable& table);

// The results texts of the families' calls (CallResults.cpp).
void describeResults(CallTable& table);

// "korvane commands": the catalogue by category, with descriptions and parameters (one object
// per command with --json).
void printCommands(std::ostream& out, bool json);
void addMeasureCalls(CallTable& table);

// A result table as CSV lines (the header `label,<measures>`, then one row per object) and as a
// JSON record {"name", "columns", "rows"}; written to FILE.csv or FILE.json (TableCalls.cpp).
Args tableCsvLines(const KrvResultTable& table);
Json tableJson(const std::string& name, const KrvResultTable& table);
void exportResultTable(const std::string& name, const std::string& file);
// The tool's spreadsheet, registered with the suite as the target of its measurements for as
// long as the suite runs (showSheet, exportSheet).
void installResultTargets();
void removeResultTargets();

// The lines of `korvane feret N`: the directions, then their covering radius.
Output feretListing(int n, bool vectors);
// "korvane feret N --svg FILE": the set as an SVG picture, an equal-area view of the half sphere
// with each direction shaded by the angle to its nearest neighbour (FeretSvg.cpp).
std::string feretSvg(int n);
void writeFeretSvg(int n, const std::string& file);

}  // namespace korvane
