// Named measurement result tables: the measures of a set of objects, kept by the suite under a
// name so that they can be handed to the Tarsel application.
#pragma once
#include <string>
#include <vector>

#pragma GCC visibility push(default)

struct KrvResultTable {
    std::vector<std::string> measures;          // column names
    std::vector<std::vector<double>> columns;   // one per measure, one value per object
};

namespace KrvResultTables {
void Store(const std::string& name, KrvResultTable table);
// The table of that name, or null; valid until the table is replaced or removed.
const KrvResultTable* Find(const std::string& name);
bool Remove(const std::string& name);
void Clear();
}  // namespace KrvResultTables

// Data types of the conversion messages.
constexpr int kKrvDataResultTable = 3;

#pragma GCC visibility pop
