// What the API tests share: a sink that keeps every log line, a settings folder of their own,
// and a fixture that starts the stand-alone suite with Debug lines enabled.
#pragma once
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vantry_util/KrvLogger.h>

namespace kapitest {

struct LogLine {
    KrvLoggerLevel level;
    std::string logger;
    std::string message;
    std::string file;
    int line;
};

// Keeps the lines of every logger while it is installed.
class LogCapture : public KrvLogSink {
public:
    static std::shared_ptr<LogCapture> install();
    void uninstall();

    void write(const KrvLogRecord& record) override;
    std::vector<LogLine> lines() const { return m_lines; }
    // Every line since the install, those that clear() took away included.
    const std::vector<LogLine>& everyLine() const { return m_everyLine; }
    // The lines with exactly this message.
    std::vector<LogLine> find(const std::string& message) const;
    void clear();

private:
    std::vector<LogLine> m_lines;
    std::vector<LogLine> m_everyLine;
    bool m_installed = false;
    std::weak_ptr<LogCapture> m_self;
};

// Asserts one line with this message: its level, the file it comes from (its path below the
// checkout, e.g. "src/KorvaneAPICore.cpp"), its line and its logger (the library's unless told).
void expectLogLine(const LogCapture& capture, KrvLoggerLevel level, const std::string& message,
                   const std::string& fileTail, int line, const std::string& logger = "Korvane.KorvaneAPI");
// Asserts one line of the library with this message and level; expectLinesNameTheirStatements
// holds its file and line to the statement that writes it.
void expectLogged(const LogCapture& capture, KrvLoggerLevel level, const std::string& message,
                  const std::string& logger = "Korvane.KorvaneAPI");

// The 1-based line of the source file (path below the checkout, e.g. "src/FilterInterface.cpp")
// that holds `snippet`; fails the test unless exactly one line does. Lets a test hold a log line
// to the statement that writes it without restating the number.
int sourceLine(const std::string& fileTail, const std::string& snippet);

// Bytes of the C heap in use. Memory that a call fails to release shows as growth over many
// calls; under the sanitizers, whose allocator this does not see, it stays put (and they check).
std::size_t heapInUse();

// Every line the library logged names the line of the statement that logs it: the checkout's
// source file holds a logging statement (KAPI_LOG, KAPI_FAILURE, or KAPI_COPY_NAMES for a name
// list) at each logged line, of the line's level, whose texts the line holds in their order.
void expectLinesNameTheirStatements(const LogCapture& capture);

// A fresh folder with Tarsel.ini asking for Debug lines and a log folder inside it; `extra` is
// appended to the settings file. Removed by the fixture.
std::string makeSettingsFolder(const std::string& extra = "");
void removeFolder(const std::string& folder);

// A settings folder of its own and every line captured; after the test, each line of the library
// is held to its statement.
class CaptureTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    void expectLine(KrvLoggerLevel level, const std::string& message) const { expectLogged(*log, level, message); }
    std::shared_ptr<LogCapture> log;
    std::string folder;
};

// The same, with the suite started on the folder; ended after.
class SuiteTest : public CaptureTest {
protected:
    void SetUp() override;
    void TearDown() override;
};

// The same, for tests that look only at what they do themselves: fault counters and captured
// lines start from zero once the suite is up.
class AfterStartUpTest : public SuiteTest {
protected:
    void SetUp() override;
};

}  // namespace kapitest
