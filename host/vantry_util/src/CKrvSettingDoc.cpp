// The application settings, read from an INI file through boost::property_tree.
#include <vantry_util/CKrvSettingDoc.h>

#include <charconv>

#include <boost/filesystem/operations.hpp>
#include <boost/property_tree/ptree.hpp>

#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvLogger.h>

#include "KrvIniFile.h"

namespace {

[[noreturn]] void badValue(const std::string& file, const std::string& section, const std::string& key,
                           const std::string& text, const char* expected) {
    const std::uint64_t line = krv_detail::iniLineOf(file, section, key);
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

    const boost::property_tree::ptree tree = krv_detail::readIniFile(m_file, "settings file");
    m_maxMemory = readNumber<std::uint64_t>(tree, m_file, "Memory", "MaximumAmount", 0,
                                            "a number of bytes from 0 to 18446744073709551615");
    m_flags = readNumber<std::uint32_t>(tree, m_file, "Options", "Flags", 0, "a 32-bit unsigned number");
    m_progress = readNumber<int>(tree, m_file, "Progress", "Enabled", 1, "a whole number");
    const std::string level = tree.get<std::string>("Logging.Level", "Info");
    if (parseKrvLogLevel(level) < 0)
        badValue(m_file, "Logging", "Level", level, "a log level (Debug, Info, Warn, Error, Off or a number)");
    KrvSettingApp::getInstance().set(resolved(folder, tree.get<std::string>("Logging.Configuration", "")),
                                     resolved(folder, tree.get<std::string>("Logging.Folder", "")), level);
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
