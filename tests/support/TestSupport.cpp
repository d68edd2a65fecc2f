#include "TestSupport.h"

#include <atomic>
#include <fstream>
#include <map>
#include <set>

#include <malloc.h>

#include <boost/filesystem.hpp>

#include <KorvaneAPI/Core.h>
#include <vantry_util/KrvFault.h>

namespace kapitest {

std::shared_ptr<LogCapture> LogCapture::install() {
    auto capture = std::make_shared<LogCapture>();
    capture->m_self = capture;
    capture->m_installed = true;
    addKrvLogSink(capture);
    return capture;
}

void LogCapture::uninstall() {
    if (!m_installed) return;
    m_installed = false;
    if (auto self = m_self.lock()) removeKrvLogSink(self);
}

void LogCapture::write(const KrvLogRecord& record) {
    m_lines.push_back({record.level, record.logger, record.message, record.file ? record.file : "", record.line});
    m_everyLine.push_back(m_lines.back());
}

std::vector<LogLine> LogCapture::find(const std::string& message) const {
    std::vector<LogLine> found;
    for (const LogLine& line : m_lines)
        if (line.message == message) found.push_back(line);
    return found;
}

void LogCapture::clear() { m_lines.clear(); }

static bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

void expectLogLine(const LogCapture& capture, KrvLoggerLevel level, const std::string& message,
                   const std::string& fileTail, int line, const std::string& logger) {
    expectLogged(capture, level, message, logger);
    for (const LogLine& found : capture.find(message)) {
        EXPECT_TRUE(endsWith(found.file, "/" + fileTail)) << found.file << " for \"" << message << "\"";
        EXPECT_EQ(found.line, line) << message;
    }
}

static std::vector<std::string> sourceText(const std::string& fileTail) {
    std::ifstream source(std::string(KORVANE_SOURCE_DIR) + "/" + fileTail);
    EXPECT_TRUE(source.good()) << fileTail;
    std::vector<std::string> lines;
    for (std::string text; std::getline(source, text);) lines.push_back(text);
    return lines;
}

int sourceLine(const std::string& fileTail, const std::string& snippet) {
    const std::vector<std::string> lines = sourceText(fileTail);
    int found = 0;
    int matches = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].find(snippet) == std::string::npos) continue;
        found = static_cast<int>(i) + 1;
        ++matches;
    }
    EXPECT_EQ(matches, 1) << "lines of " << fileTail << " holding " << snippet;
    return found;
}

void expectLogged(const LogCapture& capture, KrvLoggerLevel level, const std::string& message,
                  const std::string& logger) {
    const std::vector<LogLine> found = capture.find(message);
    ASSERT_EQ(found.size(), 1u) << "lines with message \"" << message << "\"";
    EXPECT_EQ(static_cast<int>(found[0].level), static_cast<int>(level)) << message;
    EXPECT_EQ(found[0].logger, logger) << message;
}

namespace {

// A logging statement as its source line shows it: the level it writes at and its texts.
struct Statement {
    std::string level;
    std::vector<std::string> texts;
};

bool readStatement(const std::string& line, Statement& statement) {
    static const std::pair<std::string, const char*> kMacros[] = {
        {"KAPI_LOG(", nullptr}, {"KAPI_FAILURE(", "Error"}, {"KAPI_COPY_NAMES(", "Debug"}};
    for (const auto& [macro, level] : kMacros) {
        std::size_t i = line.find(macro);
        if (i == std::string::npos) continue;
        i += macro.size();
        statement.level = level ? level : line.substr(i, line.find(',', i) - i);
        for (; i < line.size() && line.compare(i, 2, "//") != 0; ++i) {
            if (line[i] == '\'') i = line.find('\'', i + (line[i + 1] == '\\' ? 3 : 2));  // a character
            if (i == std::string::npos) break;
            if (line[i] != '"') continue;
            std::string text;
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                if (line[i] == '\\') ++i;
                text += line[i] == 'n' && line[i - 1] == '\\' ? '\n' : line[i];
            }
            statement.texts.push_back(text);
        }
        return true;
    }
    return false;
}

}  // namespace

void expectLinesNameTheirStatements(const LogCapture& capture) {
    static std::map<std::string, std::vector<std::string>> sources;
    std::set<std::string> checked;
    for (const LogLine& logged : capture.everyLine()) {
        if (logged.logger != "Korvane.KorvaneAPI" ||
            !checked.insert(logged.file + ":" + std::to_string(logged.line) + krvLogLevelName(logged.level) + logged.message).second)
            continue;
        // The checkout's source, whatever folder the build compiled it from (a mutated copy).
        const std::size_t below = logged.file.rfind("src/");
        const std::string path = below == std::string::npos ? logged.file : logged.file.substr(below);
        std::vector<std::string>& source = sources[path];
        if (source.empty()) source = sourceText(path);
        const bool inFile = logged.line >= 1 && static_cast<std::size_t>(logged.line) <= source.size();
        const std::string text = inFile ? source[static_cast<std::size_t>(logged.line) - 1] : "";
        Statement statement;
        const std::string where = logged.file + ":" + std::to_string(logged.line) + " logged \"" + logged.message +
                                  "\" at " + krvLogLevelName(logged.level) + " but holds: " + text;
        if (!readStatement(text, statement)) {
            ADD_FAILURE() << where;
            continue;
        }
        EXPECT_EQ(statement.level, krvLogLevelName(logged.level)) << where;
        std::size_t from = 0;
        for (const std::string& piece : statement.texts) {
            from = logged.message.find(piece, from);
            ASSERT_NE(from, std::string::npos) << "\"" << piece << "\" missing: " << where;
            from += piece.size();
        }
    }
}

std::size_t heapInUse() { return mallinfo2().uordblks; }

std::string makeSettingsFolder(const std::string& extra) {
    static std::atomic<int> counter{0};
    const boost::filesystem::path folder = boost::filesystem::temp_directory_path() /
        boost::filesystem::unique_path("kapitest-%%%%%%%%-" + std::to_string(counter++));
    boost::filesystem::create_directories(folder / "log");
    std::ofstream ini((folder / "Tarsel.ini").string());
    ini << "[Logging]\nLevel = Debug\nFolder = log\n" << extra;
    return folder.string();
}

void removeFolder(const std::string& folder) {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(folder, ignored);
}

void CaptureTest::SetUp() {
    KrvFault::reset();
    folder = makeSettingsFolder();
    log = LogCapture::install();
}

void CaptureTest::TearDown() {
    KrvFault::reset();
    expectLinesNameTheirStatements(*log);
    log->uninstall();
    removeFolder(folder);
}

void SuiteTest::SetUp() {
    CaptureTest::SetUp();
    initKorvaneAPI(folder.c_str());
}

void SuiteTest::TearDown() {
    KrvFault::reset();
    endKorvaneAPI();
    CaptureTest::TearDown();
}

void AfterStartUpTest::SetUp() {
    SuiteTest::SetUp();
    KrvFault::reset();
    log->clear();
}

}  // namespace kapitest
