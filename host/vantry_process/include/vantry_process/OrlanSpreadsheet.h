// The Tarsel application's spreadsheet as the suite fills it, and the conversion of named suite
// data into it.
#pragma once
#include <string>
#include <vector>

#include <vantry_util/KrvExport.h>

class VANTRY_PROCESS_EXPORT COrlanSpreadsheet {
public:
    struct Column {
        std::string name;
        std::vector<double> values;
    };

    void clear() { m_title.clear(); m_columns.clear(); }
    void setTitle(std::string title) { m_title = std::move(title); }
    void addColumn(Column column) { m_columns.push_back(std::move(column)); }
    const std::string& title() const noexcept { return m_title; }
    const std::vector<Column>& columns() const noexcept { return m_columns; }

private:
    std::string m_title;
    std::vector<Column> m_columns;
};

// Writes the named data of type `type` into `sheet`, replacing its contents. Only result tables
// (type 3) convert; false for an unknown name, another type or a null sheet.
VANTRY_PROCESS_EXPORT bool krvToOrlanData(const std::string& name, int type, COrlanSpreadsheet* sheet);
