// The suite's main log file (a folder of the user's own, never written through a link) and the
// errors of its settings and logging files.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvLogger.h>
#include <vantry_util/KrvUtil.h>

#include "support/TestSupport.h"

namespace {

const char* const kLogger = "host/vantry_util/src/KrvLogger.cpp";

std::string contents(const std::string& file) {
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// A private folder for each test; the environment and the logging state are restored after.
class MainLogFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = kapitest::makeSettingsFolder();
        ::chmod(folder.c_str(), 0700);
        for (const char* name : {"XDG_STATE_HOME", "HOME"})
            if (const char* value = std::getenv(name)) saved.emplace_back(name, value);
        log = kapitest::LogCapture::install();
    }
    void TearDown() override {
        KrvUtil::finish();
        initKrvLoggers("", "", "Info");
        KrvSettingApp::getInstance().set("", "", "Info");
        ::unsetenv("XDG_STATE_HOME");
        for (const auto& [name, value] : saved) ::setenv(name.c_str(), value.c_str(), 1);
        log->uninstall();
        kapitest::removeFolder(folder);
    }

    // Opens the main log file in `logFolder` (empty: the default one), writes one Info line and
    // closes it again.
    void openWriteAndClose(const std::string& logFolder, const std::string& line) {
        initKrvLoggers("", logFolder, "Info");
        initKrvMainLogger("");
        KrvLogger("Korvane.Test").forcedLog(KrvLoggerLevel::Info, line, __FILE__, __LINE__);
        opened = isMainLogFileCreated();
        KrvUtil::finish();
    }

    // The one refusal: an Error line of the base logger, from its place in the logger's source.
    void expectRefusal(const std::string& logFolder, const std::string& why) {
        kapitest::expectLogLine(*log, KrvLoggerLevel::Error, "Can't open the main log file Korvane.log in " + logFolder + ": " + why,
                                kLogger, kapitest::sourceLine(kLogger, "base.forcedLog(KrvLoggerLevel::Error, why"), "Korvane");
        EXPECT_FALSE(opened);
        log->clear();
    }

    std::string folder;
    std::vector<std::pair<std::string, std::string>> saved;
    std::shared_ptr<kapitest::LogCapture> log;
    bool opened = false;
};

TEST_F(MainLogFileTest, DefaultFolderIsPerUserAndFilesArePrivate) {
    ::setenv("XDG_STATE_HOME", (folder + "/state").c_str(), 1);
    openWriteAndClose("", "to the state folder");
    EXPECT_TRUE(opened);
    EXPECT_EQ(modeOf(folder + "/state"), 0700u);
    EXPECT_EQ(modeOf(folder + "/state/korvane"), 0700u);
    EXPECT_EQ(modeOf(folder + "/state/korvane/Korvane.log"), 0600u);
    EXPECT_NE(contents(folder + "/state/korvane/Korvane.log").find("Korvane.Test: to the state folder"),
              std::string::npos);

    // Without XDG_STATE_HOME (or with a relative one), the home folder's .local/state.
    ::setenv("XDG_STATE_HOME", "relative/state", 1);
    ::setenv("HOME", folder.c_str(), 1);
    openWriteAndClose("", "to the home folder");
    EXPECT_TRUE(opened);
    EXPECT_EQ(modeOf(folder + "/.local/state/korvane"), 0700u);
    EXPECT_NE(contents(folder + "/.local/state/korvane/Korvane.log").find("to the home folder"), std::string::npos);
    EXPECT_TRUE(log->find("Can't open").empty());

    // A file that others may read is made private, its lines kept.
    const std::string file = folder + "/log/Korvane.log";
    std::ofstream(file) << "earlier line\n";
    ::chmod(file.c_str(), 0644);
    openWriteAndClose(folder + "/log", "appended");
    EXPECT_TRUE(opened);
    EXPECT_EQ(modeOf(file), 0600u);
    const std::string text = contents(file);
    EXPECT_EQ(text.rfind("earlier line\n", 0), 0u) << text;
    EXPECT_NE(text.find("appended"), std::string::npos);
}

TEST_F(MainLogFileTest, PlantedLinkIsNeverWrittenThrough) {
    const std::string target = folder + "/target";
    std::ofstream(target) << "";
    const std::string logFolder = folder + "/log";
    ASSERT_EQ(::symlink(target.c_str(), (logFolder + "/Korvane.log").c_str()), 0);
    openWriteAndClose(logFolder, "must not arrive");
    expectRefusal(logFolder, "the file " + logFolder + "/Korvane.log is a symbolic link");
    EXPECT_EQ(contents(target), "");

    // Nor a log folder that is itself a link.
    const std::string linked = folder + "/linked";
    ASSERT_EQ(::symlink(logFolder.c_str(), linked.c_str()), 0);
    ::unlink((logFolder + "/Korvane.log").c_str());
    openWriteAndClose(linked, "must not arrive");
    expectRefusal(linked, "the folder " + linked + " is a symbolic link");
    EXPECT_FALSE(std::ifstream(logFolder + "/Korvane.log").good());
}

TEST_F(MainLogFileTest, FolderOthersCanWriteOrOwnIsRefused) {
    const std::string logFolder = folder + "/log";
    ::chmod(logFolder.c_str(), 0770);
    openWriteAndClose(logFolder, "refused");
    expectRefusal(logFolder, "other users can write to the folder " + logFolder + " (mode 0770)");
    ::chmod(logFolder.c_str(), 0755);

    const std::string file = folder + "/plain";
    std::ofstream(file) << "";
    openWriteAndClose(file, "refused");
    expectRefusal(file, file + " is not a folder");
    EXPECT_EQ(contents(file), "");

    // Only the superuser can give a folder away.
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(logFolder.c_str(), 12345, 12345), 0);
        openWriteAndClose(logFolder, "refused");
        expectRefusal(logFolder, "the folder " + logFolder + " belongs to user 12345, not to user 0");
    }
    openWriteAndClose(folder + "/new/deeper", "made");
    EXPECT_TRUE(opened);
    EXPECT_EQ(modeOf(folder + "/new"), 0700u);
}

// A malformed logging or settings file: the suite's exception names the file and the line.
TEST_F(MainLogFileTest, LoggingAndSettingsFileErrorsNameFileAndLine) {
    const std::string config = folder + "/logging.ini", settings = folder + "/Tarsel.ini";
    const struct {
        const std::string& file;
        const char* text;  // null: no file
        std::string message;
        std::uint64_t line;
    } cases[] = {
        {config, nullptr, "Missing logger configuration " + config, 0},
        // The line of the key itself, not of a longer name that starts like it.
        {config, "; levels\n[Levels]\nKorvane.KorvaneAPI.Detail = Debug\n  Korvane.KorvaneAPI = Loud\n",
         "Invalid log level \"Loud\" for logger Korvane.KorvaneAPI in " + config + " line 4", 4},
        {config, "[Console]\n\n# the console\nLevel=-3\n", "Invalid log level \"-3\" for the console in " + config + " line 4", 4},
        {config, "[Levels]\nKorvane\n", "Malformed logger configuration " + config + " line 2: '=' character not found in line", 2},
        {settings, "[Memory]\nMaximumAmount = 10\n[Memory]\n", "Malformed settings file " + settings + " line 3: duplicate section name", 3},
        {settings, "[Options]\nFlags = 1\n[Memory]\nMaximum = 1\nMaximumAmount = lots\n",
         "Invalid setting in " + settings + " line 5: [Memory] MaximumAmount = \"lots\" is not a number of bytes from 0 to 18446744073709551615", 5},
        {settings, "[Logging]\nFolder = log\nLevel = Loud\n",
         "Invalid setting in " + settings + " line 3: [Logging] Level = \"Loud\" is not a log level (Debug, Info, Warn, Error, Off or a number)", 3},
    };
    for (const auto& c : cases) {
        if (c.text) std::ofstream(c.file) << c.text;
        try {
            if (&c.file == &config) initKrvLoggers(config, "", "Info");
            else CKrvSettingDoc::getInstance().init("Tarsel", true, folder);
            ADD_FAILURE() << "no exception for " << c.message;
        } catch (const KrvBaseException& e) {
            EXPECT_EQ(e.getMessage(), c.message);
            EXPECT_EQ(e.getFile(), c.file);
            EXPECT_EQ(e.getLine(), c.line) << c.message;
        }
    }
    CKrvSettingDoc::getInstance().reset();
    try {
        initKrvLoggers("", "", "Chatty");
        ADD_FAILURE() << "no exception for the base logger's level";
    } catch (const KrvBaseException& e) {
        EXPECT_EQ(e.getMessage(), "Invalid log level \"Chatty\" for the base logger");
    }
}

}  // namespace
