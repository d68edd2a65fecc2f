// The suite's INI files (the settings and the logger configuration): read with
// boost::property_tree, every error a KrvBaseException that names the file and the line.
#pragma once
#include <cstdint>
#include <string>

#include <boost/property_tree/ptree.hpp>

namespace krv_detail {

// The file's sections and keys. Throws KrvBaseException "Missing <what> <file>" when there is no
// such file, and "Malformed <what> <file> line <n>: <reason>" when it can't be read as INI.
boost::property_tree::ptree readIniFile(const std::string& file, const std::string& what);

// The 1-based line of `key = ...` inside `[section]` of the file, 0 when it is not there.
std::uint64_t iniLineOf(const std::string& file, const std::string& section, const std::string& key);

}  // namespace krv_detail
