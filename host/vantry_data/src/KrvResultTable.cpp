// The named result tables and their conversion into the Tarsel object model.
#include <vantry_data/DictionaryPrivate.h>
#include <vantry_data/KrvResultTable.h>

#include <map>
#include <mutex>

#include <vantry_util/KrvFault.h>

namespace KrvResultTables {
namespace {
std::mutex g_mutex;
std::map<std::string, KrvResultTable>& tables() {
    static std::map<std::string, KrvResultTable> t;
    return t;
}
}  // namespace

void Store(const std::string& name, KrvResultTable table) {
    std::lock_guard<std::mutex> lock(g_mutex);
    tables()[name] = std::move(table);
}

const KrvResultTable* Find(const std::string& name) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const auto found = tables().find(name);
    return found == tables().end() ? nullptr : &found->second;
}

bool Remove(const std::string& name) {
    std::lock_guard<std::mutex> lock(g_mutex);
    return tables().erase(name) != 0;
}

void Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    tables().clear();
}

}  // namespace KrvResultTables

bool krvToObjectModel(const std::string& name, data::DictionaryPrivate* dict) {
    KRV_FAULT_RETURN(bool, "krvToObjectModel");
    const KrvResultTable* table = KrvResultTables::Find(name);
    if (!table || !dict) return false;
    dict->set("name", name);
    dict->set("measures", table->measures);
    for (std::size_t i = 0; i < table->measures.size() && i < table->columns.size(); ++i)
        dict->set(table->measures[i], table->columns[i]);
    return true;
}
