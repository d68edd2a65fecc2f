// Calls of the result-table family: the suite's named measurement results, shown or exported as
// CSV or JSON. A table's first column is usually "label"; rows come in the table's order (by
// increasing label), numbers in their shortest exact form.
#include <cmath>
#include <fstream>

#include <vantry_data/KrvResultTable.h>
#include <vantry_process/KrvMeasure.h>
#include <vantry_process/OrlanSpreadsheet.h>

#include "Calls.h"

namespace korvane {

namespace {

const KrvResultTable& resultTable(const std::string& call, const std::string& name) {
    const KrvResultTable* table = KrvResultTables::Find(name);
    if (table == nullptr) throw CallFailed(call + " failed: no result table " + name);
    return *table;
}

std::size_t rowCount(const KrvResultTable& table) {
    std::size_t rows = 0;
    for (const std::vector<double>& column : table.columns) rows = std::max(rows, column.size());
    return rows;
}

// A CSV field: quoted when it holds a comma, a quote or a line break.
std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

// The value of a column at a row; empty past the column's end.
std::string csvValue(const KrvResultTable& table, std::size_t column, std::size_t row) {
    const std::vector<double>& values = table.columns[column];
    return row < values.size() ? shortest(values[row]) : std::string();
}

Json jsonValue(const KrvResultTable& table, std::size_t column, std::size_t row) {
    const std::vector<double>& values = table.columns[column];
    if (row >= values.size() || !std::isfinite(values[row])) return nullptr;
    const double value = values[row];
    constexpr double kExactWhole = 9007199254740992.0;  // 2^53
    if (std::fabs(value) < kExactWhole && std::trunc(value) == value && !(value == 0.0 && std::signbit(value)))
        return static_cast<std::int64_t>(value);
    return value;
}

}  // namespace

Args tableCsvLines(const KrvResultTable& table) {
    const std::size_t columns = std::min(table.measures.size(), table.columns.size());
    Args lines(rowCount(table) + 1);
    for (std::size_t c = 0; c < columns; ++c) {
        const std::string separator = c == 0 ? "" : ",";
        lines[0] += separator + csvField(table.measures[c]);
        for (std::size_t row = 0; row + 1 < lines.size(); ++row) lines[row + 1] += separator + csvValue(table, c, row);
    }
    return lines;
}

Json tableJson(const std::string& name, const KrvResultTable& table) {
    const std::size_t columns = std::min(table.measures.size(), table.columns.size());
    Json rows = Json::array();
    for (std::size_t row = 0; row < rowCount(table); ++row) {
        Json values = Json::array();
        for (std::size_t c = 0; c < columns; ++c) values.push_back(jsonValue(table, c, row));
        rows.push_back(std::move(values));
    }
    return {{"name", name},
            {"columns", std::vector<std::string>(table.measures.begin(), table.measures.begin() + columns)},
            {"rows", std::move(rows)}};
}

namespace {

// The tool's spreadsheet: the suite hands each table it measures to the proxy service, which
// fills this sheet, as it fills the Tarsel application's.
COrlanSpreadsheet g_sheet;

KrvResultTable deliveredTable(const std::string& call) {
    if (g_sheet.columns().empty()) throw CallFailed(call + " failed: no table has been delivered yet");
    KrvResultTable table;
    for (const COrlanSpreadsheet::Column& column : g_sheet.columns()) {
        table.measures.push_back(column.name);
        table.columns.push_back(column.values);
    }
    return table;
}

void writeTable(const std::string& call, const std::string& name, const KrvResultTable& table,
                const std::string& file) {
    const bool json = file.size() >= 5 && file.compare(file.size() - 5, 5, ".json") == 0;
    if (!json && !(file.size() >= 4 && file.compare(file.size() - 4, 4, ".csv") == 0))
        throw ScriptError("FILE must end in .csv or .json, not \"" + file + "\"");
    std::ofstream out(file, std::ios::binary);
    if (json)
        out << tableJson(name, table).dump() << '\n';
    else
        for (const std::string& line : tableCsvLines(table)) out << line << '\n';
    out.close();
    if (!out) throw CallFailed(call + " failed: cannot write " + file);
}

}  // namespace

void installResultTargets() {
    g_sheet.clear();
    krvSetResultTargets(&g_sheet, nullptr);
}

void removeResultTargets() { krvSetResultTargets(nullptr, nullptr); }

void exportResultTable(const std::string& name, const std::string& file) {
    writeTable("exportTable", name, resultTable("exportTable", name), file);
}

namespace {

// "label,Area 1 12.5 2 3": the columns' names, then the values row by row.
Output storeTable(const Args& args) {
    KrvResultTable stored;
    for (std::size_t start = 0; start <= args[1].size();) {
        const std::size_t comma = std::min(args[1].find(',', start), args[1].size());
        stored.measures.push_back(args[1].substr(start, comma - start));
        start = comma + 1;
    }
    std::vector<double> values;
    for (std::size_t i = 2; i < args.size(); ++i) values.push_back(toDouble(args[i], "VALUE"));
    if (values.size() % stored.measures.size() != 0)
        throw ScriptError(std::to_string(values.size()) + " values do not fill rows of " +
                          std::to_string(stored.measures.size()));
    stored.columns.resize(stored.measures.size());
    for (std::size_t i = 0; i < values.size(); ++i) stored.columns[i % stored.measures.size()].push_back(values[i]);
    KrvResultTables::Store(args[0], std::move(stored));
    return {};
}

}  // namespace

void addTableCalls(CallTable& table) {
    table.add("storeTable", {"storeTable NAME COLUMNS [VALUE]...",
                             "(suite) stores a result table: column names joined by commas, then the values row by row",
                             2, kAnyNumber, storeTable});
    table.add("showTable", {"showTable NAME", "(suite) a result table as CSV lines: the header, then one row per object",
                            1, 1, [](const Args& a) {
                                const KrvResultTable& shown = resultTable("showTable", a[0]);
                                return Output{tableCsvLines(shown), tableJson(a[0], shown)};
                            }});
    table.add("exportTable", {"exportTable NAME FILE", "(suite) writes a result table to FILE.csv or FILE.json", 2, 2,
                              [](const Args& a) {
                                  exportResultTable(a[0], a[1]);
                                  return Output{};
                              }});
    table.add("showSheet", {"showSheet", "the tool's spreadsheet as the proxy service last filled it, as CSV lines", 0, 0,
                            [](const Args&) {
                                const KrvResultTable shown = deliveredTable("showSheet");
                                return Output{tableCsvLines(shown), tableJson(g_sheet.title(), shown)};
                            }});
    table.add("exportSheet", {"exportSheet FILE", "writes the tool's spreadsheet to FILE.csv or FILE.json", 1, 1,
                              [](const Args& a) {
                                  writeTable("exportSheet", g_sheet.title(), deliveredTable("exportSheet"), a[0]);
                                  return Output{};
                              }});
}

}  // namespace korvane
