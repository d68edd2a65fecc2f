// User filters and image formulas over the stand-alone suite: every message and failure path
// of the filter functions, with the suite's answers forced through its fault points.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatFlrHandler.h>
#include <vantry_util/KrvFault.h>

#include "support/TestSupport.h"

using kapitest::expectLogLine;
using kapitest::sourceLine;
using Level = KrvLoggerLevel;
using KrvFault::Answer;
using Names = std::vector<std::string>;

namespace {

const char* const kFilter = "src/FilterInterface.cpp";

class FilterTest : public kapitest::SuiteTest {
protected:
    void SetUp() override {
        SuiteTest::SetUp();
        log->clear();
    }
    static int line(const char* snippet) { return sourceLine(kFilter, snippet); }
    static CDatFlr* find(const std::string& name) {
        return static_cast<CDatFlr*>(CDatFlrHandler::m_pInstance->FindObj(CKrvString(name)));
    }
};

TEST_F(FilterTest, CreatedFiltersKeepTheirFormulaAndOrderAndEvaluate) {
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::RemoveAll"), 1u);  // start-up empties the store
    ASSERT_TRUE(createFilter("magnitude", "sqrt(I1*I1 + I2*I2)"));
    ASSERT_TRUE(createFilter("ramp", "X + 2*Y - Z"));
    ASSERT_TRUE(createFilter("a", "I9 > 0 ? 1 : 0"));
    expectLogLine(*log, Level::Debug, "Creating filter ramp with formula X + 2*Y - Z", kFilter,
                  line("\"Creating filter \""));

    log->clear();
    EXPECT_EQ(getFilterList(), (Names{"magnitude", "ramp", "a"}));
    expectLogLine(*log, Level::Debug, "Retrieving filter list :", kFilter, line("\"Retrieving filter list :\""));
    expectLogLine(*log, Level::Debug, "ramp", kFilter, line("KAPI_COPY_NAMES(hostNames)"));
    EXPECT_EQ(log->lines().size(), 4u);

    log->clear();
    EXPECT_EQ(getFilterFormula("ramp"), "X + 2*Y - Z");
    expectLogLine(*log, Level::Debug, "Retrieving formula for filter ramp", kFilter,
                  line("\"Retrieving formula for filter \""));
    expectLogLine(*log, Level::Debug, "X + 2*Y - Z", kFilter, line("KAPI_LOG(Debug, formula)"));

    const double pixels[9] = {3, 4, 0, 0, 0, 0, 0, 0, -1};
    EXPECT_DOUBLE_EQ(find("magnitude")->Evaluate(pixels, 0, 0, 0), 5);
    EXPECT_DOUBLE_EQ(find("ramp")->Evaluate(pixels, 1, 2, 3), 2);
    EXPECT_DOUBLE_EQ(find("a")->Evaluate(pixels, 0, 0, 0), 0);

    // A taken name is refused by the suite and the first filter keeps its formula.
    EXPECT_FALSE(createFilter("ramp", "I1"));
    expectLogLine(*log, Level::Error, "Internal error while creating filter ramp", kFilter,
                  line("\"Internal error while creating filter \""));
    EXPECT_EQ(getFilterFormula("ramp"), "X + 2*Y - Z");

    log->clear();
    removeFilter("ramp");
    expectLogLine(*log, Level::Debug, "Removing filter ramp", kFilter, line("\"Removing filter \""));
    EXPECT_EQ(getFilterList(), (Names{"magnitude", "a"}));
    removeAllFilters();
    expectLogLine(*log, Level::Debug, "Removing all filters", kFilter, line("\"Removing all filters\""));
    EXPECT_TRUE(getFilterList().empty());
}

TEST_F(FilterTest, FormulaRefusedByTheStaticCheckCreatesNothing) {
    EXPECT_FALSE(createFilter("f", "I1 +"));
    expectLogLine(*log, Level::Error, "Invalid user filter formula I1 + for user filter f", kFilter,
                  line("\" for user filter \""));
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::AddFlr"), 0u);
    EXPECT_TRUE(getFilterList().empty());
    // The suite says why at Debug, on its own logger.
    EXPECT_EQ(log->find("Formula refused at byte 4: expected a number, a name, a function or '(', found end of "
                        "formula: I1 +").size(),
              1u);
}

TEST_F(FilterTest, FormulaRefusedByTheFilterIsCreatedThenRemoved) {
    EXPECT_FALSE(createFilter("f", "I1 + Area"));
    expectLogLine(*log, Level::Error, "Invalid user filter formula I1 + Area for filter f", kFilter,
                  line("\" for filter \""));
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::AddFlr"), 1u);
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::RemoveFlr"), 1u);
    EXPECT_TRUE(getFilterList().empty());
    EXPECT_TRUE(log->find("Can't remove filter f, this filter doesn't exists").empty());

    // An embedded NUL: the static check reads up to it, the filter reads it all.
    const std::string withNul("I1 + 1\0 + Q", 11);
    log->clear();
    EXPECT_FALSE(createFilter("g", withNul));
    expectLogLine(*log, Level::Error, "Invalid user filter formula " + withNul + " for filter g", kFilter,
                  line("\" for filter \""));
    EXPECT_TRUE(getFilterList().empty());

    // Whatever the undo answers, the refusal is reported the same way.
    KrvFault::arm("CDatFlrHandler::RemoveFlr", Answer::Zero);
    EXPECT_FALSE(createFilter("h", "W"));
    EXPECT_EQ(log->find("Invalid user filter formula W for filter h").size(), 1u);
    EXPECT_EQ(getFilterList(), Names{"h"});  // the suite kept it: its answer, not the library's
}

TEST_F(FilterTest, UnknownFiltersAreLoggedNotThrown) {
    EXPECT_EQ(getFilterFormula("nothing"), "");
    expectLogLine(*log, Level::Error, "Can't get formula for filter nothing, this filter doesn't exists", kFilter,
                  line("\"Can't get formula for filter \""));
    removeFilter("nothing");
    expectLogLine(*log, Level::Error, "Can't remove filter nothing, this filter doesn't exists", kFilter,
                  line("\"Can't remove filter \""));

    // A filter whose formula was never set also gives "", told apart only by the log.
    CKrvString bare("bare");
    ASSERT_NE(CDatFlrHandler::m_pInstance->AddFlr(bare), nullptr);
    log->clear();
    EXPECT_EQ(getFilterFormula("bare"), "");
    EXPECT_EQ(log->find("").size(), 1u);
    EXPECT_TRUE(log->find("Can't get formula for filter bare, this filter doesn't exists").empty());

    // With Error off, the same results and no line.
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Off));
    log->clear();
    EXPECT_EQ(getFilterFormula("nothing"), "");
    removeFilter("nothing");
    EXPECT_FALSE(createFilter("f", "(("));
    EXPECT_TRUE(log->find("Can't remove filter nothing, this filter doesn't exists").empty());
    EXPECT_TRUE(log->find("Invalid user filter formula (( for user filter f").empty());
}

TEST_F(FilterTest, ImageFormulaCheckStoresAndLogsNothing) {
    EXPECT_TRUE(isValidImageFormula("I1 * 0.5 + I2 * 0.5"));
    EXPECT_TRUE(isValidImageFormula("X < 10 and Y < 10 ? I3 : 0"));
    EXPECT_FALSE(isValidImageFormula("I1 + Area"));
    EXPECT_FALSE(isValidImageFormula(""));
    EXPECT_FALSE(isValidImageFormula("sqrt(I1"));
    for (const kapitest::LogLine& l : log->lines()) EXPECT_NE(l.logger, getKorvaneAPILogger().getName());
    EXPECT_TRUE(getFilterList().empty());
}

}  // namespace
