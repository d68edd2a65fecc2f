// The Tarsel application's object model as the suite sees it: a dictionary of named values.
#pragma once
#include <map>
#include <string>
#include <variant>
#include <vector>

#include <vantry_util/KrvExport.h>

namespace data {

class VANTRY_DATA_EXPORT DictionaryPrivate {
public:
    using Value = std::variant<double, std::string, std::vector<double>, std::vector<std::string>>;

    void set(const std::string& key, Value value) { m_values[key] = std::move(value); }
    // The value of that key, or null.
    const Value* get(const std::string& key) const {
        const auto found = m_values.find(key);
        return found == m_values.end() ? nullptr : &found->second;
    }
    std::size_t size() const noexcept { return m_values.size(); }
    void clear() noexcept { m_values.clear(); }

private:
    std::map<std::string, Value> m_values;
};

}  // namespace data

// Writes the result table `name` into `dict`: "name", "measures", and one entry per measure
// with its values. False for an unknown name or a null dictionary.
VANTRY_DATA_EXPORT bool krvToObjectModel(const std::string& name, data::DictionaryPrivate* dict);
