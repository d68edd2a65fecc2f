// Named measurement result tables: the measures of a set of objects, kept by the suite under a
// name so that they can be handed to the Tarsel application.
#pragma once
#include <string>
#include <vector>

#include <vantry_util/KrvExport.h>

struct VANTRY_DATA_EXPORT KrvResultTable {
    std::vector<std::string> measures;          // column names
    std::vector<std::vector<double>> columns;   // one per measure, one value per object
};

namespace KrvResultTables {
VANTRY_DATA_EXPORT void Store(const std::string& name, KrvResultTable table);
// The table of that name, or null; valid until the table is replaced or removed.
VANTRY_DATA_EXPORT const KrvResultTable* Find(const std::string& name);
VANTRY_DATA_EXPORT bool Remove(const std::string& name);
VANTRY_DATA_EXPORT void Clear();
}  // namespace KrvResultTables

// Data types of the conversion messages.
constexpr int kKrvDataResultTable = 3;
