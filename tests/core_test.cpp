// Start-up, shut-down, the exception and the memory functions over the stand-alone suite.
#include <cmath>
#include <cstdint>
#include <clocale>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <locale>
#include <map>
#include <sstream>
#include <string>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_access_korlib/CAccess.h>
#include <vantry_service_handler/CService.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvFault.h>
#include <vantry_zel/zel.h>

#include "../src/CallFrame.h"
#include "support/TestSupport.h"

using kapitest::expectLogLine;
using Level = KrvLoggerLevel;

namespace {

const char* const kCore = "src/KorvaneAPICore.cpp";

// A fresh settings folder and a capture, for tests that run start-up themselves.
class LifecycleTest : public kapitest::CaptureTest {
protected:
    void SetUp() override {
        CaptureTest::SetUp();
        getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Debug));
    }
};

// A host call and the pair of lines around it: what the call changes in the suite has not
// happened when `before` is written and has when `after` is (null: once the function returned).
struct HostCall {
    const char* before;
    const char* after;
    std::function<bool()> done;
};

// Reads every call's `done` at the moment the first line of each text is written.
class StateAtEachLine : public KrvLogSink {
public:
    explicit StateAtEachLine(std::vector<HostCall> calls) : m_calls(std::move(calls)) {}
    void write(const KrvLogRecord& record) override {
        if (m_seen.count(record.message) != 0) return;
        std::vector<bool>& state = m_seen[record.message];
        for (const HostCall& call : m_calls) state.push_back(call.done());
    }
    void expectEachCallBetweenItsLines() const {
        for (std::size_t i = 0; i < m_calls.size(); ++i) {
            const HostCall& call = m_calls[i];
            SCOPED_TRACE(std::string("the call between \"") + call.before + "\" and " + (call.after ? call.after : "the return"));
            ASSERT_EQ(m_seen.count(call.before), 1u);
            EXPECT_FALSE(m_seen.at(call.before)[i]);
            if (call.after) { ASSERT_EQ(m_seen.count(call.after), 1u); }
            EXPECT_TRUE(call.after ? m_seen.at(call.after)[i] : call.done());
        }
    }

private:
    std::vector<HostCall> m_calls;
    std::map<std::string, std::vector<bool>> m_seen;
};

std::shared_ptr<StateAtEachLine> watch(std::vector<HostCall> calls) {
    auto sink = std::make_shared<StateAtEachLine>(std::move(calls));
    addKrvLogSink(sink);
    return sink;
}

std::function<bool()> calledAtLeast(const char* point, std::uint64_t times) {
    return [point, times] { return KrvFault::calls(point) >= times; };
}

TEST_F(LifecycleTest, StartAndStopLogEveryStepOnItsLine) {
    // Start-up rewrites the option word whatever the settings file says.
    std::ofstream(folder + "/Tarsel.ini", std::ios::app) << "[Options]\nFlags = 4294967295\n";
    const char* const data[] = {"Data service initialization...", "Data service initialization done"};
    const char* const process[] = {"Process service initialization...", "Process service initialization done"};
    const char* const proxy[] = {"Proxy service initialization...", "Proxy service initialization done"};
    const auto startUp = watch({
        {"Initialization of the ZEL library...", "Initialization of the ZEL library done", &zel::isInitialized},
        {"Settings initialization...", "Settings initialization done",
         [this] { return CKrvSettingDoc::getInstance().getFolder() == folder; }},
        // The settings start with the embedded switch off; start-up turns it on after the loggers.
        {"Settings initialization done", "Access library initialization...",
         [] { return CKrvSettingDoc::getInstance().isEmbedded(); }},
        {"Access library initialization...", "Access library initialization done", &CAccess::IsOpen},
        {data[0], data[1], [] { return CService::IsRegistered(eServiceData); }},
        {data[0], data[1], calledAtLeast("CService::Get", 1)},
        {data[0], data[1], calledAtLeast("CDatService::InitService", 1)},
        {process[0], process[1], [] { return CService::IsRegistered(eServiceProcess); }},
        {process[0], process[1], calledAtLeast("CService::Get", 2)},
        {process[0], process[1], calledAtLeast("CProService::InitService", 1)},
        {proxy[0], proxy[1], [] { return CService::IsRegistered(eServiceProxy); }},
        {proxy[0], proxy[1], calledAtLeast("CService::Get", 3)},
        {"Initialization of the plugins of the ZEL library...", "Initialization of the plugins of the ZEL library done",
         [] { return !zel::registeredAlgorithms().empty(); }},
        // The stores emptied in order, filters, groups, user measures; the command table read after.
        {"Removing all filters", "Removing all measure groups", calledAtLeast("CDatFlrHandler::RemoveAll", 1)},
        {"Removing all measure groups", "Removing all user measures", calledAtLeast("CDatAnlHandler::GetGrpList", 1)},
        {"Removing all user measures", "KorvaneAPI initialization done", calledAtLeast("CDatAnlHandler::GetUsrMsrList", 1)},
        {"Retrieving user measure list :", "KorvaneAPI initialization done", calledAtLeast("GetKrvTabListCmd", 1)},
    });
    initKorvaneAPI(folder.c_str());
    removeKrvLogSink(startUp);
    startUp->expectEachCallBetweenItsLines();

    expectLogLine(*log, Level::Info, "Initializing KorvaneAPI", kCore, 70);
    expectLogLine(*log, Level::Info, "KorvaneAPI initialization done", kCore, 163);
    // The lines around each step are the watch's to find; this one names no step.
    expectLine(Level::Debug, "Creation of KorvaneAPI Service");
    expectLogLine(*log, Level::Info, std::string(23, '-'), kCore, 71);

    // What start-up leaves behind: the services, the settings as a client suite needs them, the
    // shared-integer hooks, and one look at the command table.
    ASSERT_NE(CService::Get(eServiceData), nullptr);
    ASSERT_NE(CService::Get(eServiceProcess), nullptr);
    ASSERT_NE(dynamic_cast<KorvaneAPIService*>(CService::Get(eServiceProxy)), nullptr);
    CKrvSettingDoc& settings = CKrvSettingDoc::getInstance();
    EXPECT_EQ(settings.getOptionFlags(), 0x200u | 0x80u | 0x80000u | 0x20u);
    EXPECT_TRUE(settings.isEmbedded());
    EXPECT_EQ(settings.getFolder(), folder);
    EXPECT_TRUE(CAccess::IsOpen());
    EXPECT_EQ(CAccess::GetPath(), folder);
    EXPECT_EQ(zel::pluginPath(), folder);
    EXPECT_TRUE(zel::pluginPathGiven());
    EXPECT_EQ(KrvFault::calls("GetKrvTabListCmd"), 1u);
    // The shared integer starts at 0 (this is the program's first test; start-up does not reset it).
    EXPECT_EQ(KrvExternalFunction::getInstance().CallGetIntValueFunction(), 0);
    KrvExternalFunction::getInstance().CallSetIntValueFunction(42);
    EXPECT_EQ(KrvExternalFunction::getInstance().CallGetIntValueFunction(), 42);
    EXPECT_TRUE(isMainLogFileCreated());

    log->clear();
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Debug));
    const auto shutDown = watch({
        {"Finalizes the plugins of the ZEL library...", "Finalizes the plugins of the ZEL library done",
         [] { return zel::registeredAlgorithms().empty(); }},
        {"Deleting all services...", "Services deletion done", [] { return !CService::IsRegistered(eServiceData); }},
        {"Terminating access library...", "Access library termination done", [] { return !CAccess::IsOpen(); }},
        // The utility and algorithm libraries end after the last line.
        {"KorvaneAPI termination done", nullptr, [] { return getKrvBaseLogger().getLogLevel() == -1; }},
        {"KorvaneAPI termination done", nullptr, [] { return !zel::isInitialized(); }},
    });
    endKorvaneAPI();
    removeKrvLogSink(shutDown);
    shutDown->expectEachCallBetweenItsLines();

    expectLogLine(*log, Level::Info, "Terminating KorvaneAPI", kCore, 174);
    expectLogLine(*log, Level::Info, std::string(22, '-'), kCore, 175);
    expectLine(Level::Debug, "Closing of KorvaneAPI Service");
    expectLogLine(*log, Level::Info, "KorvaneAPI termination done", kCore, 193);
    // The termination line is the last one: the utility library closes the logs after it.
    EXPECT_EQ(log->lines().back().message, "KorvaneAPI termination done");

    EXPECT_EQ(CService::Get(eServiceProxy), nullptr);
    EXPECT_FALSE(CAccess::IsOpen());
    EXPECT_FALSE(zel::isInitialized());
    EXPECT_FALSE(isMainLogFileCreated());
}

struct StartupFailure {
    const char* point;
    int nth;
    KrvFault::Answer answer;
    const char* message;
    int line;
    eService lastRegistered;  // the newest service that start-up left registered
};

class StartupFailureTest : public LifecycleTest, public ::testing::WithParamInterface<StartupFailure> {};

// Each failed service step logs at Error and throws the same text, file and line; the steps
// before it stay done, and endKorvaneAPI() still stops everything.
TEST_P(StartupFailureTest, LogsThenThrowsAndLeavesEarlierStepsDone) {
    const StartupFailure& failure = GetParam();
    KrvFault::arm(failure.point, failure.answer, failure.nth);
    try {
        initKorvaneAPI(folder.c_str());
        FAIL() << "no exception for " << failure.message;
    } catch (const KorvaneAPIException& e) {
        EXPECT_STREQ(e.what(), failure.message);
        EXPECT_EQ(e.getMessage(), failure.message);
        EXPECT_EQ(e.getLine(), static_cast<std::uint64_t>(failure.line));
        EXPECT_NE(e.getFile().find("src/KorvaneAPICore.cpp"), std::string::npos) << e.getFile();
    }
    expectLogLine(*log, Level::Error, failure.message, kCore, failure.line);
    EXPECT_TRUE(log->find("KorvaneAPI initialization done").empty());
    EXPECT_TRUE(CAccess::IsOpen());
    KrvFault::reset();
    EXPECT_NE(CService::Get(failure.lastRegistered), nullptr);
    EXPECT_EQ(KrvFault::calls("GetKrvTabListCmd"), 0u);

    endKorvaneAPI();
    EXPECT_EQ(CService::Get(eServiceData), nullptr);
    EXPECT_FALSE(CAccess::IsOpen());
}

INSTANTIATE_TEST_SUITE_P(
    EveryServiceStep, StartupFailureTest,
    ::testing::Values(
        StartupFailure{"CService::Get", 1, KrvFault::Answer::Null, "Can't allocate data service", 125, eServiceData},
        StartupFailure{"CDatService::InitService", 1, KrvFault::Answer::Zero, "Can't initialize data service", 126, eServiceData},
        StartupFailure{"CService::Get", 2, KrvFault::Answer::Null, "Can't allocate process service", 133, eServiceProcess},
        StartupFailure{"CProService::InitService", 1, KrvFault::Answer::Zero, "Can't initialize process service", 134, eServiceProcess},
        StartupFailure{"CService::Get", 3, KrvFault::Answer::Null, "Can't allocate proxy service", 141, eServiceProxy}));

TEST_F(LifecycleTest, ExceptionKeepsItsTextWithErrorLinesOff) {
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Off));
    KrvFault::arm("CDatService::InitService", KrvFault::Answer::Zero);
    try {
        initKorvaneAPI(folder.c_str());
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "Can't initialize data service");
        EXPECT_NE(dynamic_cast<const KorvaneAPIException*>(&e), nullptr);
    }
    EXPECT_TRUE(log->find("Can't initialize data service").empty());
    endKorvaneAPI();

    // With only Error lines on, the failure's line is written.
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Error));
    KrvFault::arm("CDatService::InitService", KrvFault::Answer::Zero);
    EXPECT_THROW(initKorvaneAPI(folder.c_str()), KorvaneAPIException);
    EXPECT_EQ(log->find("Can't initialize data service").size(), 1u);
    endKorvaneAPI();
}

TEST_F(LifecycleTest, NullPathStartsWithoutSettingsTwiceRunsTwiceAndMemoryLimitIsSignExtended) {
    initKorvaneAPI(nullptr);
    EXPECT_EQ(CKrvSettingDoc::getInstance().getFolder(), "");
    EXPECT_EQ(CAccess::GetPath(), "");
    EXPECT_FALSE(zel::pluginPathGiven());
    initKorvaneAPI(nullptr);
    EXPECT_EQ(log->find("KorvaneAPI initialization done").size(), 2u);
    // The second start replaced each service, so one of each is registered.
    EXPECT_NE(CService::Get(eServiceProxy), nullptr);

    // The memory limit is sign-extended, and read back as its low 32 bits.
    CKrvSettingDoc& settings = CKrvSettingDoc::getInstance();
    setExtraMemUsage(-1);
    EXPECT_EQ(settings.getMaximumAmountMemory(), 18446744073709551615ull);
    EXPECT_EQ(getExtraMemUsage(), -1);
    settings.setMaximumAmountMemory(5000000000ull);
    EXPECT_EQ(getExtraMemUsage(), 705032704);
    setExtraMemUsage(1 << 20);
    EXPECT_EQ(settings.getMaximumAmountMemory(), 1u << 20);
    endKorvaneAPI();
    EXPECT_EQ(CService::Get(eServiceProxy), nullptr);
}

// A malformed settings file or a service that throws: the suite's exception passes unchanged,
// with no line of the library's own; the steps before it stay done.
TEST_F(LifecycleTest, SuiteExceptionsDuringStartPassThroughUnchanged) {
    const auto expectPassedThrough = [this](const std::string& expected) {
        try {
            initKorvaneAPI(folder.c_str());
            ADD_FAILURE() << "no exception";
        } catch (const KorvaneAPIException&) {
            ADD_FAILURE() << "the suite's exception must pass unchanged";
        } catch (const KrvBaseException& e) {
            EXPECT_NE(std::string(e.what()).find(expected), std::string::npos) << e.what();
        }
    };
    KrvFault::arm("CProService::InitService", KrvFault::Answer::Throw);
    expectPassedThrough("Injected fault in CProService::InitService");
    EXPECT_TRUE(log->find("Can't initialize process service").empty());
    EXPECT_NE(CService::Get(eServiceData), nullptr);
    endKorvaneAPI();
    std::ofstream(folder + "/Tarsel.ini") << "[Memory]\nMaximumAmount = lots\n";
    expectPassedThrough("Tarsel.ini line 2: [Memory] MaximumAmount");
    endKorvaneAPI();
}

// The suite's main log opens only for a client that set up no logging of its own: neither a
// level on the base logger nor a main log.
TEST_F(LifecycleTest, MainLogOpensOnlyWhenTheClientSetUpNoLogging) {
    const std::string suiteLog = folder + "/log/Korvane.log";
    initKorvaneAPI(folder.c_str());
    EXPECT_TRUE(isMainLogFileCreated());
    EXPECT_TRUE(boost::filesystem::exists(suiteLog));
    endKorvaneAPI();
    boost::filesystem::remove(suiteLog);

    getKrvBaseLogger().setLogLevel(static_cast<int>(Level::Debug));  // 0 is a level too
    initKorvaneAPI(folder.c_str());
    EXPECT_FALSE(isMainLogFileCreated());
    endKorvaneAPI();

    initKrvMainLogger("client.log");  // the client's own main log, in the log folder
    initKorvaneAPI(folder.c_str());
    EXPECT_TRUE(isMainLogFileCreated());
    EXPECT_FALSE(boost::filesystem::exists(suiteLog));
    endKorvaneAPI();
    EXPECT_TRUE(boost::filesystem::exists(folder + "/log/client.log"));
}

}  // namespace

namespace {

// The pieces of a line of every kind, built by the frame and by a fresh string stream.
template <class... Pieces>
void expectAsAFreshStream(const Pieces&... pieces) {
    std::ostringstream stream;
    (stream << ... << pieces);
    EXPECT_EQ(kapi::joined(pieces...), stream.str());
}

void expectLineAsAFreshStreamWritesIt() {
    expectAsAFreshStream("n ", 42, ' ', -7L, ' ', std::size_t{18446744073709551615ULL}, ' ', std::string("seg"), ' ',
                         CKrvString("host"), ' ', true, ' ', 2.5f);
    for (const double v : {0.1, -2.5, 1e-7, 123456789.0, 1.0 / 3.0, std::nan(""), -HUGE_VAL, 0.0}) expectAsAFreshStream('|', v);
    expectAsAFreshStream('|', 4300, '|', -1234567, '|', 1234.5f, '|', 0.5);
    // Character types print as characters, not as numbers.
    expectAsAFreshStream(static_cast<signed char>('s'), static_cast<unsigned char>('u'));
}

// Digits grouped by threes with a comma, a decimal comma: what a client's locale may ask for.
struct GroupingComma : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};
struct DecimalComma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

// Sets the global C++ locale for one scope.
struct GlobalLocale {
    explicit GlobalLocale(const std::locale& locale) : previous(std::locale::global(locale)) {}
    ~GlobalLocale() { std::locale::global(previous); }
    std::locale previous;
};

}  // namespace

// A log line is what a fresh string stream writes, under the client's global C++ locale.
TEST(CallFrameTest, LinePiecesPrintAsAFreshStreamPrintsThem) {
    expectLineAsAFreshStreamWritesIt();
    {
        GlobalLocale grouping(std::locale(std::locale::classic(), new GroupingComma));
        EXPECT_EQ(kapi::joined("messageId = ", 4300), "messageId = 4,300");
        expectLineAsAFreshStreamWritesIt();
    }
    {
        GlobalLocale decimalComma(std::locale(std::locale::classic(), new DecimalComma));
        EXPECT_EQ(kapi::joined(0.5, ' ', 1234567.0f), "0,5 1,23457e+06");
        expectLineAsAFreshStreamWritesIt();
    }
    EXPECT_EQ(kapi::joined(0.5, ' ', 4300), "0.5 4300");
}

// The C library's locale (setlocale) is not the stream's: a decimal comma there changes nothing.
TEST(CallFrameTest, TheCLocaleLeavesLinesAsTheyAre) {
    const std::string folder = kapitest::makeSettingsFolder();
    const std::string command = "localedef -i de_DE -f UTF-8 " + folder + "/de_DE.UTF-8 >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) {
        kapitest::removeFolder(folder);
        GTEST_SKIP() << "localedef could not make a de_DE locale here";
    }
    setenv("LOCPATH", folder.c_str(), 1);
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    const bool madeGerman = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    if (madeGerman) {
        EXPECT_EQ(std::localeconv()->decimal_point, std::string(","));
        EXPECT_EQ(kapi::joined("value ", 0.5, ' ', 1234.5f, ' ', 4300), "value 0.5 1234.5 4300");
        expectLineAsAFreshStreamWritesIt();
    }
    std::setlocale(LC_ALL, previous.c_str());
    unsetenv("LOCPATH");
    kapitest::removeFolder(folder);
    if (!madeGerman) GTEST_SKIP() << "the generated de_DE locale could not be set";
}
