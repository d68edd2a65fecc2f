// The client's callbacks and the progress hook, called as the suite calls them: through the
// slots of its hook table.
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvExternalFunction.h>

#include "support/TestSupport.h"

using Level = KrvLoggerLevel;

namespace {


struct Received {
    std::vector<float> ratios;
    std::vector<std::string> messages;
    std::string order;  // 'r' for a ratio, 'm' for a message, as they came
    int flushes = 0;
    bool flushAnswer = true;
};
Received received;

void recordRatio(float ratio) {
    received.ratios.push_back(ratio);
    received.order += 'r';
}
void recordMessage(const std::string& message) {
    received.messages.push_back(message);
    received.order += 'm';
}
bool recordFlush() {
    ++received.flushes;
    return received.flushAnswer;
}

void progress(const std::string& message) { KrvExternalFunction::getInstance().CallProgressMsgFunction(message.c_str()); }
bool flush() { return KrvExternalFunction::getInstance().CallFlushEventsFunction(); }

class CallbacksTest : public kapitest::SuiteTest {
protected:
    void SetUp() override {
        SuiteTest::SetUp();
        received = Received();
        CKrvSettingDoc::getInstance().setProgress(1);
        setProgressRatioCB(&recordRatio);
        setProgressMsgCB(&recordMessage);
        setFlushEventsCB(&recordFlush);
    }
    void TearDown() override {
        setProgressRatioCB(nullptr);
        setProgressMsgCB(nullptr);
        setFlushEventsCB(nullptr);
        CKrvSettingDoc::getInstance().setProgress(1);
        SuiteTest::TearDown();
    }
    std::size_t warnings() const {
        std::size_t count = 0;
        for (const kapitest::LogLine& line : log->lines()) count += line.level == Level::Warn;
        return count;
    }
};

TEST_F(CallbacksTest, RatioComesFromTheNumbersAroundTheFirstSlash) {
    struct Case { const char* message; float ratio; bool warns; };
    const Case cases[] = {
        {"Processing slice 12/40 done", 12.0f / 40.0f, false}, {"1/3", 0.33333334f, false}, {"3/0", 0.0f, false},
        {"0/0", 0.0f, false}, {"no slash at all", 0.0f, false}, {"", 0.0f, false}, {"+3/-4", -0.75f, false},
        {"-2147483648/1", -2147483648.0f, false},
        {"16777217/1", 16777216.0f, false},  // each side is rounded to single precision first
        {"a 1/2 b 3/4", 0.5f, false},        // only the first "/" counts
        {"a/4", 0.0f, true}, {"/", 0.0f, true}, {"12/40done", 0.0f, true}, {"0x1/2", 0.0f, true}, {"1.5/2", 0.0f, true},
        {"x /4", 0.0f, true}, {"4/ x", 0.0f, true},  // empty numerator or denominator text
        {"1/2/4", 0.0f, true},                       // the denominator runs to the next blank
        {"2147483648/4", 0.0f, true}, {"4/-2147483649", 0.0f, true},  // outside 32 bits
        {"1\t/2", 0.0f, true},  // only a space ends a number
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        received = Received();
        log->clear();
        progress(c.message);

        ASSERT_EQ(received.ratios.size(), 1u);
        EXPECT_EQ(std::memcmp(&received.ratios[0], &c.ratio, sizeof(float)), 0)
            << received.ratios[0] << " instead of " << c.ratio;
        EXPECT_EQ(received.messages, std::vector<std::string>{c.message});
        EXPECT_EQ(received.order, "rm");
        if (c.warns)
            // Readers of the suite's logs know this warning by its place: line 112, always.
            kapitest::expectLogLine(*log, Level::Warn, std::string("Bad progression msg format : ") + c.message,
                                    "src/CBInterface.cpp", 112);
        EXPECT_EQ(warnings(), c.warns ? 1u : 0u);
    }
}

// The progress switch silences the progress hook (the flush hook does not look at it), and is read
// again before the ratio callback: turned off while the warning is written, the ratio is withheld,
// the message still delivered.
TEST_F(CallbacksTest, ProgressSwitchSilencesTheHookAndIsReadAgainBeforeTheRatio) {
    CKrvSettingDoc::getInstance().setProgress(0);
    progress("a/4");
    progress("1/2");
    EXPECT_TRUE(received.ratios.empty() && received.messages.empty());
    EXPECT_EQ(warnings(), 0u);
    EXPECT_TRUE(flush());
    EXPECT_EQ(received.flushes, 1);

    struct SwitchOff : KrvLogSink {
        void write(const KrvLogRecord& record) override {
            if (record.level == Level::Warn) CKrvSettingDoc::getInstance().setProgress(0);
        }
    };
    CKrvSettingDoc::getInstance().setProgress(1);
    auto sink = std::make_shared<SwitchOff>();
    addKrvLogSink(sink);
    progress("a/4");
    removeKrvLogSink(sink);
    EXPECT_TRUE(received.ratios.empty());
    EXPECT_EQ(received.messages, std::vector<std::string>{"a/4"});
}

TEST_F(CallbacksTest, HooksWithoutCallbacksOnlyParse) {
    setProgressRatioCB(nullptr);
    setProgressMsgCB(nullptr);
    setFlushEventsCB(nullptr);
    progress("a/4");
    progress("1/2");
    EXPECT_TRUE(flush());
    EXPECT_TRUE(received.ratios.empty() && received.messages.empty());
    EXPECT_EQ(received.flushes, 0);
    EXPECT_EQ(warnings(), 1u);  // the parsing still ran

    // Each setter alone installs its hook, into an empty slot.
    KrvExternalFunction& hooks = KrvExternalFunction::getInstance();
    hooks.setFlushEventsFunction(nullptr);
    setFlushEventsCB(&recordFlush);
    received.flushAnswer = false;
    EXPECT_FALSE(flush());

    hooks.setProgressMsgFunction(nullptr);
    setProgressRatioCB(&recordRatio);
    progress("1/4");
    EXPECT_EQ(received.ratios, std::vector<float>{0.25f});
    EXPECT_TRUE(received.messages.empty());
    setProgressRatioCB(nullptr);
    hooks.setProgressMsgFunction(nullptr);
    setProgressMsgCB(&recordMessage);
    progress("2/4");
    EXPECT_EQ(received.messages, std::vector<std::string>{"2/4"});
    EXPECT_EQ(received.ratios.size(), 1u);
}

// Four threads call both hooks; the callbacks note when they are inside. The lock must keep
// them from ever overlapping (run under the thread sanitizer too).
std::atomic<int> inside{0};
std::atomic<int> overlaps{0};
std::atomic<int> entries{0};
void enter() {
    if (inside.fetch_add(1) != 0) overlaps.fetch_add(1);
    entries.fetch_add(1);
    std::this_thread::yield();
    inside.fetch_sub(1);
}

TEST_F(CallbacksTest, HooksNeverOverlapAcrossThreads) {
    setProgressRatioCB([](float) { enter(); });
    setProgressMsgCB([](const std::string&) { enter(); });
    setFlushEventsCB([] { return enter(), true; });
    const int rounds = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < rounds; ++i) {
                progress("Step " + std::to_string(i) + "/" + std::to_string(rounds) + " of " + std::to_string(t));
                flush();
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_EQ(entries.load(), 4 * rounds * 3);
}

}  // namespace
