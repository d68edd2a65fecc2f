// The application's settings: read once from "<folder>/<application>.ini" by init(), then held
// for the whole suite. A missing file means defaults; a malformed one raises KrvBaseException
// naming the file and the line.
#pragma once
#include <cstdint>
#include <string>

#include <boost/filesystem/path.hpp>

#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>

class VANTRY_UTIL_EXPORT CKrvSettingDoc {
public:
    static CKrvSettingDoc& getInstance();

    // Starts from the defaults (the embedded switch off) and, when `readSettingsFile` is true,
    // reads the settings of `appName` from `folder` (an empty folder or a missing file: defaults).
    void init(const CKrvString& appName, bool readSettingsFile, const boost::filesystem::path& folder);

    // Bytes of values that all object stores together may hold; 0 means no limit.
    std::uint64_t getMaximumAmountMemory() const noexcept { return m_maxMemory; }
    bool setMaximumAmountMemory(std::uint64_t bytes) noexcept;

    std::uint32_t getOptionFlags() const noexcept { return m_flags; }
    void setOptionFlags(std::uint32_t flags) noexcept { m_flags = flags; }
    void setOptionFlag(std::uint32_t bit) noexcept { m_flags |= bit; }

    // True when the suite runs inside a client application rather than its own front end: the
    // client sets it once its loggers are up; init() leaves it off.
    bool isEmbedded() const noexcept { return m_embedded; }
    void setEmbedded(bool embedded) noexcept { m_embedded = embedded; }

    // Non-zero while the suite reports progress.
    int getProgress() const noexcept { return m_progress; }
    void setProgress(int progress) noexcept { m_progress = progress; }

    const std::string& getFolder() const noexcept { return m_folder; }
    const std::string& getFileName() const noexcept { return m_file; }

    void reset() noexcept;

private:
    CKrvSettingDoc() = default;
    std::uint64_t m_maxMemory = 0;
    std::uint32_t m_flags = 0;
    bool m_embedded = false;
    int m_progress = 1;
    std::string m_folder;
    std::string m_file;
};

// The logging part of the application settings.
class VANTRY_UTIL_EXPORT KrvSettingApp {
public:
    static KrvSettingApp& getInstance();

    const std::string& getLoggerConfigFile() const noexcept { return m_configFile; }
    const std::string& getLogFolder() const noexcept { return m_logFolder; }
    const std::string& getDefaultLogLevel() const noexcept { return m_defaultLevel; }
    void set(std::string configFile, std::string logFolder, std::string defaultLevel);

private:
    KrvSettingApp() = default;
    std::string m_configFile;
    std::string m_logFolder;
    std::string m_defaultLevel = "Info";
};
