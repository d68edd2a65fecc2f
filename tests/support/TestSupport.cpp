#include "TestSupport.h"

#include <atomic>
#include <fstream>
#include <map>

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

LogCapture::~LogCapture() = default;

void LogCapture::uninstall() {
    if (!m_installed) return;
    m_installed = false;
    if (auto self = m_self.lock()) removeKrvLogSink(self);
}

void LogCapture::write(const KrvLogRecord& record) {
    m_lines.push_back({record.level, record.logger, record.message, record.file ? record.file : "", record.line});
}

std::vector<LogLine> LogCapture::lines() const { return m_lines; }

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
                   const std::string& fileTail, int line) {
    const std::vector<LogLine> found = capture.find(message);
    ASSERT_EQ(found.size(), 1u) << "lines with message \"" << message << "\"";
    EXPECT_EQ(static_cast<int>(found[0].level), static_cast<int>(level)) << message;
    EXPECT_TRUE(endsWith(found[0].file, "/" + fileTail)) << found[0].file << " for \"" << message << "\"";
    EXPECT_EQ(found[0].line, line) << message;
    EXPECT_EQ(found[0].logger, "Korvane.KorvaneAPI") << message;
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

void expectLinesNameTheirStatements(const LogCapture& capture) {
    static std::map<std::string, std::vector<std::string>> sources;
    for (const LogLine& logged : capture.lines()) {
        if (logged.logger != "Korvane.KorvaneAPI") continue;
        std::vector<std::string>& source = sources[logged.file];
        if (source.empty()) {
            // The build names sources relative to its folder ("../../src/..."); read the checkout's.
            std::string path = logged.file;
            while (path.compare(0, 3, "../") == 0) path.erase(0, 3);
            std::ifstream in(path.front() == '/' ? path : std::string(KORVANE_SOURCE_DIR) + "/" + path);
            for (std::string text; std::getline(in, text);) source.push_back(text);
        }
        const bool inFile = logged.line >= 1 && static_cast<std::size_t>(logged.line) <= source.size();
        const std::string text = inFile ? source[static_cast<std::size_t>(logged.line) - 1] : "";
        const auto holds = [&text](const char* statement) { return text.find(statement) != std::string::npos; };
        EXPECT_TRUE(holds("KAPI_LOG(") || holds("KAPI_FAILURE(") || holds("KAPI_COPY_NAMES("))
            << logged.file << ":" << logged.line << " logged \"" << logged.message << "\" but holds: " << text;
    }
}

int sourceLineAfter(const std::string& fileTail, const std::string& anchor, const std::string& snippet) {
    const std::vector<std::string> lines = sourceText(fileTail);
    for (std::size_t i = static_cast<std::size_t>(sourceLine(fileTail, anchor)); i < lines.size(); ++i)
        if (lines[i].find(snippet) != std::string::npos) return static_cast<int>(i) + 1;
    ADD_FAILURE() << snippet << " after " << anchor << " in " << fileTail;
    return 0;
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

void SuiteTest::SetUp() {
    KrvFault::reset();
    folder = makeSettingsFolder();
    log = LogCapture::install();
    initKorvaneAPI(folder.c_str());
}

void SuiteTest::TearDown() {
    KrvFault::reset();
    endKorvaneAPI();
    expectLinesNameTheirStatements(*log);
    log->uninstall();
    removeFolder(folder);
}

void AfterStartUpTest::SetUp() {
    SuiteTest::SetUp();
    KrvFault::reset();
    log->clear();
}

}  // namespace kapitest
