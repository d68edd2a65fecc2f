// Reading the suite's INI files, with the file and line of every error.
#include "KrvIniFile.h"

#include <fstream>

#include <boost/filesystem/operations.hpp>
#include <boost/property_tree/ini_parser.hpp>

#include <vantry_util/KrvBaseException.h>

namespace krv_detail {
namespace {

constexpr const char* kBlanks = " \t\r\n\v\f";  // what the parser trims

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

boost::property_tree::ptree readIniFile(const std::string& file, const std::string& what) {
    boost::system::error_code ec;
    if (!boost::filesystem::exists(file, ec)) throw KrvBaseException("Missing " + what + " " + file, file, 0);
    boost::property_tree::ptree tree;
    try {
        boost::property_tree::ini_parser::read_ini(file, tree);
    } catch (const boost::property_tree::ini_parser_error& e) {
        throw KrvBaseException("Malformed " + what + " " + e.filename() + " line " + std::to_string(e.line()) + ": " +
                                   e.message(),
                               e.filename(), e.line());
    }
    return tree;
}

// The parser's own reading: comments start with ';' or '#', a section is "[name]", a key is the
// trimmed text before the first '='.
std::uint64_t iniLineOf(const std::string& file, const std::string& section, const std::string& key) {
    std::ifstream in(file);
    std::string line, current;
    for (std::uint64_t number = 1; std::getline(in, line); ++number) {
        const std::string text = trimmed(line);
        if (text.empty() || text[0] == ';' || text[0] == '#') continue;
        if (text[0] == '[') {
            current = trimmed(text.substr(1, text.find(']') - 1));
        } else if (current == section) {
            const auto equals = text.find('=');
            if (equals != std::string::npos && trimmed(text.substr(0, equals)) == key) return number;
        }
    }
    return 0;
}

}  // namespace krv_detail
