// The application settings, read from an INI file through boost::property_tree.
#include <vantry_util/CKrvSettingDoc.h>

#include <charconv>
#include <fstream>
#include <limits>

#include <boost/filesystem/operations.hpp>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <vantry_util/KrvBaseException.h>

namespace {

// The line of `key` inside `[section]`, for error messages (0 when not found).
std::uint64_t lineOf(const std::string& file, const std::string& section, const std::string& key) {
    std::ifstream in(file);
    std::string line, current;
    for (std::uint64_t number = 1; std::getline(in, line); ++number) {
        const auto first = line.find_first_not_of(" \t");
        if (first == std::string::npos) continue;
        if (line[first] == '[') {
            current = line.substr(first + 1, line.find(']') - first - 1);
        } else if (current == section && line.compare(first, key.size(), key) == 0) {
            return number;
        }
    }
    return 0;
}

[[noreturn]] void badValue(const std::string& file, const std::string& section, const std::string& key,
                           const std::string& text, const char* expected) {
    const std::uint64_t line = lineOf(file, section, key);
    throw KrvBaseException("Invalid setting in " + file + " line " + std::to_string(line) + ": [" + section + "] " +
                               key + " = \"" + text + "\" is not " + expected,
                           file, line);
}

// Whole decimal numbers only: no sign for unsigned kinds, no blanks, overflow refused.
template <class Number>
Number readNumber(const boost::property_tree::ptree& tree, const std::string& file, const std::string& section,
                  const std::string& key, Number fallback, const char* expected) {
    const auto text = tree.get_optional<std::string>(section + "." + key);
    if (!text) return fallback;
    Number value{};
    const char* begin = text->data();
    const char* end = begin + text->size();
    const auto [stop, ec] = std::from_chars(begin, end, value);
    if (text->empty() || ec != std::errc() || stop != end) badValue(file, section, key, *text, expected);
    return value;
}

std::string resolved(const boost::filesystem::path& folder, const std::string& entry) {
    if (entry.empty()) return entry;
    const boost::filesystem::path path(entry);
    return path.is_absolute() ? entry : (folder / path).string();
}

}  // namespace

CKrvSettingDoc& CKrvSettingDoc::getInstance() {
    static CKrvSettingDoc instance;
    return instance;
}

bool CKrvSettingDoc::setMaximumAmountMemory(std::uint64_t bytes) noexcept {
    m_maxMemory = bytes;
    return true;
}

void CKrvSettingDoc::reset() noexcept {
    m_maxMemory = 0;
    m_flags = 0;
    m_embedded = false;
    m_progress = 1;
    m_folder.clear();
    m_file.clear();
}

void CKrvSettingDoc::init(const CKrvString& appName, bool readSettingsFile, const boost::filesystem::path& folder) {
    reset();
    m_folder = folder.string();
    KrvSettingApp::getInstance().set("", "", "Info");
    if (!readSettingsFile || folder.empty()) return;

    const boost::filesystem::path path = folder / (appName.m_str + ".ini");
    boost::system::error_code ec;
    if (!boost::filesystem::is_regular_file(path, ec)) return;
    m_file = path.string();

    boost::property_tree::ptree tree;
    try {
        boost::property_tree::ini_parser::read_ini(m_file, tree);
    } catch (const boost::property_tree::ini_parser_error& e) {
        throw KrvBaseException("Malformed settings file " + e.filename() + " line " + std::to_string(e.line()) +
                                   ": " + e.message(),
                               e.filename(), e.line());
    }
    m_maxMemory = readNumber<std::uint64_t>(tree, m_file, "Memory", "MaximumAmount", 0,
                                            "a number of bytes from 0 to 18446744073709551615");
    m_flags = readNumber<std::uint32_t>(tree, m_file, "Options", "Flags", 0, "a 32-bit unsigned number");
    m_progress = readNumber<int>(tree, m_file, "Progress", "Enabled", 1, "a whole number");
    KrvSettingApp::getInstance().set(resolved(folder, tree.get<std::string>("Logging.Configuration", "")),
                                     resolved(folder, tree.get<std::string>("Logging.Folder", "")),
                                     tree.get<std::string>("Logging.Level", "Info"));
}

KrvSettingApp& KrvSettingApp::getInstance() {
    static KrvSettingApp instance;
    return instance;
}

void KrvSettingApp::set(std::string configFile, std::string logFolder, std::string defaultLevel) {
    m_configFile = std::move(configFile);
    m_logFolder = std::move(logFolder);
    m_defaultLevel = std::move(defaultLevel);
}
