// Sieves over the stand-alone suite, with the suite's own refusals (the fault loop gives the rest
// of its answers).
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/TestSupport.h"

using Level = KrvLoggerLevel;
using Names = std::vector<std::string>;

namespace {

using SieveTest = kapitest::AfterStartUpTest;

TEST_F(SieveTest, ValuesComeBackInOrderAndNamesInCreationOrder) {
    const std::vector<float> values{3.5f, -1.0f, 1e30f, std::numeric_limits<float>::denorm_min(), -0.0f, 3.5f};
    EXPECT_TRUE(createSieve("coarse", values));
    EXPECT_TRUE(createSieve("fine", {0.25f}));
    const std::vector<float> back = getSieveParams("coarse");
    ASSERT_EQ(back.size(), values.size());
    EXPECT_EQ(std::memcmp(back.data(), values.data(), values.size() * sizeof(float)), 0);
    EXPECT_EQ(getSieveParams("fine"), std::vector<float>{0.25f});  // one value is not empty

    EXPECT_EQ(getSieveList(), (Names{"coarse", "fine"}));
    removeSieve("coarse");
    EXPECT_EQ(getSieveList(), Names{"fine"});

    // An empty vector makes an empty sieve, whose values the suite does not hand out.
    EXPECT_TRUE(createSieve("empty", {}));
    EXPECT_EQ(KrvFault::calls("CDatTami::SetData"), 3u);
    EXPECT_TRUE(getSieveParams("empty").empty());
    expectLine(Level::Warn, "Empty sieve empty, can't get sieve params");
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
    EXPECT_EQ(getSieveList(), (Names{"small", "large"}));
    EXPECT_TRUE(getSieveParams("large").empty());
    EXPECT_EQ(log->find("Empty sieve large, can't get sieve params").size(), 1u);

    removeSieve("small");
    EXPECT_EQ(KrvMemoryBudget::used(), before);
    EXPECT_TRUE(createSieve("again", std::vector<float>(16, 2.0f)));
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
}

}  // namespace
