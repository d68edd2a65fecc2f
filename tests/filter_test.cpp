// User filters over the stand-alone suite: the formula checks and the undo of a refused filter (the fault loop gives the rest of the suite's answers).
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatFlrHandler.h>
#include <vantry_util/KrvFault.h>

#include "support/TestSupport.h"

using Level = KrvLoggerLevel;
using KrvFault::Answer;
using Names = std::vector<std::string>;

namespace {

class FilterTest : public kapitest::SuiteTest {
protected:
    static CDatFlr* find(const std::string& name) {
        return static_cast<CDatFlr*>(CDatFlrHandler::m_pInstance->FindObj(CKrvString(name)));
    }
};

TEST_F(FilterTest, CreatedFiltersKeepTheirFormulaAndOrderAndEvaluate) {
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::RemoveAll"), 1u);  // start-up empties the store
    ASSERT_TRUE(createFilter("magnitude", "sqrt(I1*I1 + I2*I2)"));
    ASSERT_TRUE(createFilter("ramp", "X + 2*Y - Z"));
    ASSERT_TRUE(createFilter("a", "I9 > 0 ? 1 : 0"));
    EXPECT_EQ(getFilterList(), (Names{"magnitude", "ramp", "a"}));
    EXPECT_EQ(getFilterFormula("ramp"), "X + 2*Y - Z");

    const double pixels[9] = {3, 4, 0, 0, 0, 0, 0, 0, -1};
    EXPECT_DOUBLE_EQ(find("magnitude")->Evaluate(pixels, 0, 0, 0), 5);
    EXPECT_DOUBLE_EQ(find("ramp")->Evaluate(pixels, 1, 2, 3), 2);
    EXPECT_DOUBLE_EQ(find("a")->Evaluate(pixels, 0, 0, 0), 0);

    removeFilter("ramp");
    EXPECT_EQ(getFilterList(), (Names{"magnitude", "a"}));
    removeAllFilters();
    EXPECT_TRUE(getFilterList().empty());
}

TEST_F(FilterTest, RefusedFormulasCreateNothing) {
    // The static check refuses before the store is asked; the suite says why at Debug.
    EXPECT_FALSE(createFilter("f", "I1 +"));
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::AddFlr"), 0u);
    EXPECT_EQ(log->find("Formula refused at byte 4: expected a number, a name, a function or '(', found end of "
                        "formula: I1 +").size(),
              1u);
    // The filter refuses what the check passes: made, then removed without a complaint.
    EXPECT_FALSE(createFilter("f", "I1 + Area"));
    expectLine(Level::Error, "Invalid user filter formula I1 + Area for filter f");
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::AddFlr"), 1u);
    EXPECT_EQ(KrvFault::calls("CDatFlrHandler::RemoveFlr"), 1u);
    EXPECT_TRUE(log->find("Can't remove filter f, this filter doesn't exists").empty());

    // An embedded NUL: the static check reads up to it, the filter reads it all.
    const std::string withNul("I1 + 1\0 + Q", 11);
    EXPECT_FALSE(createFilter("g", withNul));
    expectLine(Level::Error, "Invalid user filter formula " + withNul + " for filter g");
    EXPECT_TRUE(getFilterList().empty());

    // Whatever the undo answers, the refusal is reported the same way.
    KrvFault::arm("CDatFlrHandler::RemoveFlr", Answer::Zero);
    EXPECT_FALSE(createFilter("h", "W"));
    EXPECT_EQ(log->find("Invalid user filter formula W for filter h").size(), 1u);
    EXPECT_EQ(getFilterList(), Names{"h"});  // the suite kept it: its answer, not the library's

    // With Error off, the same results and no line.
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Off));
    log->clear();
    EXPECT_EQ(getFilterFormula("nothing"), "");
    removeFilter("nothing");
    EXPECT_FALSE(createFilter("f", "(("));
    for (const kapitest::LogLine& l : log->lines()) EXPECT_NE(l.logger, "Korvane.KorvaneAPI") << l.message;
}

}  // namespace
