// Sieves over the stand-alone suite, with the suite's answers injected where it would not give
// them by itself.
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatTami.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/TestSupport.h"

using kapitest::expectLogLine;
using kapitest::sourceLine;
using Level = KrvLoggerLevel;

namespace {

const char* const kSieves = "src/SieveInterface.cpp";

class SieveTest : public kapitest::SuiteTest {
protected:
    int line(const char* snippet) const { return sourceLine(kSieves, snippet); }
};

TEST_F(SieveTest, ValuesComeBackInOrderAndNamesInCreationOrder) {
    log->clear();
    EXPECT_TRUE(getSieveList().empty());
    EXPECT_EQ(log->lines().size(), 1u);  // the heading alone

    const std::vector<float> values{3.5f, -1.0f, 1e30f, std::numeric_limits<float>::denorm_min(), -0.0f, 3.5f};
    EXPECT_TRUE(createSieve("coarse", values));
    EXPECT_TRUE(createSieve("fine", {0.25f}));
    expectLogLine(*log, Level::Debug, "Creating sieve coarse with 6 parameters", kSieves, line("\"Creating sieve \""));

    const std::vector<float> back = getSieveParams("coarse");
    ASSERT_EQ(back.size(), values.size());
    EXPECT_EQ(std::memcmp(back.data(), values.data(), values.size() * sizeof(float)), 0);
    EXPECT_EQ(getSieveParams("fine"), std::vector<float>{0.25f});  // one value is not empty

    log->clear();
    EXPECT_EQ(getSieveList(), (std::vector<std::string>{"coarse", "fine"}));
    expectLogLine(*log, Level::Debug, "Retrieving sieve list :", kSieves, line("\"Retrieving sieve list :\""));
    expectLogLine(*log, Level::Debug, "fine", kSieves, line("KAPI_COPY_NAMES(hostNames)"));

    removeSieve("coarse");
    expectLogLine(*log, Level::Debug, "Removing sieve coarse", kSieves, line("\"Removing sieve \""));
    EXPECT_EQ(getSieveList(), std::vector<std::string>{"fine"});
    EXPECT_TRUE(log->find("Failed to remove sieve coarse").empty());
}

TEST_F(SieveTest, EmptyVectorMakesAnEmptySieve) {
    EXPECT_TRUE(createSieve("empty", {}));
    expectLogLine(*log, Level::Debug, "Creating sieve empty with 0 parameters", kSieves, line("\"Creating sieve \""));
    EXPECT_EQ(KrvFault::calls("CDatTami::SetData"), 1u);
    EXPECT_TRUE(getSieveParams("empty").empty());
    expectLogLine(*log, Level::Warn, "Empty sieve empty, can't get sieve params", kSieves, line("\"Empty sieve \""));
}

TEST_F(SieveTest, RefusedCreationReturnsFalseAndSetsNoData) {
    const int errorLine = line("\"Internal error, can't create sieve \"");
    ASSERT_TRUE(createSieve("taken", {1.0f, 2.0f}));
    EXPECT_FALSE(createSieve("taken", {9.0f}));  // the suite refuses a name in use
    expectLogLine(*log, Level::Error, "Internal error, can't create sieve taken", kSieves, errorLine);
    EXPECT_EQ(getSieveParams("taken"), (std::vector<float>{1.0f, 2.0f}));

    EXPECT_FALSE(createSieve("", {1.0f}));
    expectLogLine(*log, Level::Error, "Internal error, can't create sieve ", kSieves, errorLine);
    EXPECT_EQ(KrvFault::calls("CDatTami::SetData"), 1u);  // only the first creation's
    EXPECT_EQ(getSieveList(), std::vector<std::string>{"taken"});
}

TEST_F(SieveTest, AMissingSieveIsAnErrorBeforeAnyRead) {
    EXPECT_TRUE(getSieveParams("nowhere").empty());
    expectLogLine(*log, Level::Error, "Can't get sieve nowhere, this sieve doesn't exists", kSieves,
                  line("\"Can't get sieve \""));
    EXPECT_EQ(KrvFault::calls("CDatTami::GetData"), 0u);
}

TEST_F(SieveTest, FailedRemovalOnlyWarns) {
    const int warnLine = line("\"Failed to remove sieve \"");
    removeSieve("nowhere");
    expectLogLine(*log, Level::Debug, "Removing sieve nowhere", kSieves, line("\"Removing sieve \""));
    expectLogLine(*log, Level::Warn, "Failed to remove sieve nowhere", kSieves, warnLine);
}

TEST_F(SieveTest, ValuesPastTheBudgetThrowAndLeaveTheSieveEmpty) {
    const std::uint64_t before = KrvMemoryBudget::used();
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(before + 64);
    ASSERT_TRUE(createSieve("small", std::vector<float>(16, 1.0f)));  // exactly the budget
    try {
        createSieve("large", std::vector<float>(17, 1.0f));
        ADD_FAILURE() << "no exception";
    } catch (const KrvBaseException& e) {
        EXPECT_NE(std::string(e.what()).find("budget"), std::string::npos) << e.what();
    }
    EXPECT_EQ(getSieveList(), (std::vector<std::string>{"small", "large"}));
    EXPECT_TRUE(getSieveParams("large").empty());
    EXPECT_EQ(log->find("Empty sieve large, can't get sieve params").size(), 1u);

    removeSieve("small");
    EXPECT_EQ(KrvMemoryBudget::used(), before);
    EXPECT_TRUE(createSieve("again", std::vector<float>(16, 2.0f)));
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
}

}  // namespace
