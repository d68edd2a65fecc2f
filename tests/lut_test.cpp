// Plain and morphological lookup tables over the stand-alone suite: their messages, the
// asymmetries between the two families and the suite's refusals (the fault loop gives the rest of
// its answers).
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatMorphoLutHandler.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/TestSupport.h"

using Level = KrvLoggerLevel;
using KrvFault::Answer;
using Names = std::vector<std::string>;
using Ints = std::vector<int>;

namespace {

class LutTest : public kapitest::AfterStartUpTest {
protected:
    void TearDown() override {
        CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
        SuiteTest::TearDown();
    }
    static bool morpho(const std::string& name, Ints values, int flag1 = 0, int flag2 = 0) {
        return createMorphoLut(name, values.data(), static_cast<int>(values.size()), flag1, flag2);
    }
    static const CDatMorphoLut* stored(const std::string& name) {
        return static_cast<const CDatMorphoLut*>(CDatMorphoLutHandler::m_pInstance->FindObj(CKrvString(name)));
    }
};

TEST_F(LutTest, PlainTablesKeepACopyOfTheirValues) {
    Ints values{0, -5, INT_MAX, INT_MIN, 7};
    ASSERT_TRUE(createLut("grey", values));
    values[0] = 99;
    EXPECT_EQ(getLutValues("grey"), (Ints{0, -5, INT_MAX, INT_MIN, 7}));
    std::vector<CKrvString> plain;  // stored under the suite's type code of plain tables
    CDatMorphoLutHandler::m_pInstance->GetLutList(plain, CDatMorphoLut::kPlain);
    EXPECT_EQ(plain.size(), 1u);
    EXPECT_EQ(stored("grey")->GetText().m_str, " ");
    EXPECT_EQ(KrvMemoryBudget::used(), 5 * sizeof(int));

    // A taken name, an invalid name: refused by the suite, the first table intact.
    for (const std::string& refused : {std::string("grey"), std::string(), std::string(256, 'n'), std::string("a\tb")})
        EXPECT_FALSE(createLut(refused, {1})) << refused;
    EXPECT_TRUE(createLut(std::string(255, 'n'), {1}));
    EXPECT_EQ(getLutValues("grey").size(), 5u);

    removeLut("grey");
    EXPECT_EQ(KrvMemoryBudget::used(), sizeof(int));
}

TEST_F(LutTest, ListsSeparateTheTwoKindsThatShareOneNameSpace) {
    ASSERT_TRUE(morpho("m1", {1, 2}));
    ASSERT_TRUE(morpho("m2", {3}));
    log->clear();
    EXPECT_TRUE(getLutList().empty());  // names in the store, none of them plain
    EXPECT_EQ(log->lines().size(), 1u);

    ASSERT_TRUE(createLut("p1", {1}));
    EXPECT_FALSE(createLut("m1", {1}));  // one name space
    EXPECT_FALSE(morpho("p1", {1}));
    ASSERT_TRUE(morpho("m3", {4}));
    ASSERT_TRUE(createLut("p2", {2}));
    EXPECT_EQ(getLutList(), (Names{"p1", "p2"}));
    EXPECT_EQ(getMorphoLutList(), (Names{"m1", "m2", "m3"}));

    // The plain functions read and remove either kind.
    EXPECT_EQ(getLutValues("m1"), (Ints{1, 2}));
    removeLut("m1");
    EXPECT_EQ(getMorphoLutList(), (Names{"m2", "m3"}));
}

TEST_F(LutTest, MorphologicalTablesGiveTheirStorageAndFlags) {
    Ints values{5, 6, 7};
    ASSERT_TRUE(morpho("m", values, 3, -4));
    EXPECT_EQ(stored("m")->GetText().m_str, " ");
    int* data = reinterpret_cast<int*>(1);
    int size = -9;
    ASSERT_TRUE(getMorphoLutDataPtr("m", data, size));
    ASSERT_EQ(size, 3);
    EXPECT_NE(data, values.data());  // the suite's own copy
    EXPECT_EQ(Ints(data, data + size), values);
    data[1] = 60;  // shared with the suite
    EXPECT_EQ(getLutValues("m"), (Ints{5, 60, 7}));

    const auto flags = [](const std::string& name) {
        int flag1 = 0, flag2 = 0;
        return getMorphoLutFlags(name, flag1, flag2) ? Ints{flag1, flag2} : Ints{};
    };
    EXPECT_EQ(flags("m"), (Ints{3, -4}));
    ASSERT_TRUE(setMorphoLutFlags("m", INT_MIN, -1));
    EXPECT_EQ(flags("m"), (Ints{INT_MIN, -1}));

    // Flags and storage of a plain table answer too: the type is not checked.
    ASSERT_TRUE(createLut("p", {8}));
    ASSERT_TRUE(setMorphoLutFlags("p", 1, 2));
    EXPECT_EQ(flags("p"), (Ints{1, 2}));
    ASSERT_TRUE(getMorphoLutDataPtr("p", data, size));
    EXPECT_EQ(*data, 8);

    // The outputs are set before the look-up, so a look-up that throws leaves them set too.
    KrvFault::arm("CDatMorphoLutHandler::FindObj", Answer::Throw, 1, 2);
    int flag1 = 9, flag2 = 9;
    size = 9;
    EXPECT_THROW(getMorphoLutFlags("m", flag1, flag2), KrvBaseException);
    EXPECT_EQ((Ints{flag1, flag2}), (Ints{-1, -1}));
    EXPECT_THROW(getMorphoLutDataPtr("m", data, size), KrvBaseException);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(data, nullptr);
}

TEST_F(LutTest, RemovingAPlainTableAsMorphologicalWarnsButSucceeds) {
    ASSERT_TRUE(createLut("p", {1}));
    ASSERT_TRUE(morpho("m", {1}));
    EXPECT_TRUE(removeMorphoLut("p"));
    expectLine(Level::Warn, "The 'p' lut does not a morphological lut.");
    EXPECT_EQ(getLutList(), Names{"p"});
    EXPECT_EQ(KrvFault::calls("CDatMorphoLutHandler::RemoveLut"), 0u);
    EXPECT_TRUE(removeMorphoLut("m"));
    EXPECT_TRUE(getMorphoLutList().empty());
}

TEST_F(LutTest, SuiteRefusesBadSizesAndThePastBudgetAndMakesNothingHalfway) {
    int one = 1;
    EXPECT_FALSE(createMorphoLut("neg", &one, -1, 0, 0));
    EXPECT_FALSE(createMorphoLut("null", nullptr, 4, 0, 0));
    EXPECT_TRUE(createMorphoLut("nullEmpty", nullptr, 0, 0, 0));
    EXPECT_EQ(getMorphoLutList(), Names{"nullEmpty"});

    // The budget bounds the values of all stores together; a refused table holds nothing.
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(40);
    const std::uint64_t before = KrvMemoryBudget::used();
    EXPECT_TRUE(createLut("eight", Ints(8, 1)));
    EXPECT_FALSE(createLut("three", Ints(3, 1)));
    EXPECT_EQ(log->find("Memory budget exceeded: a lookup table needs 12 bytes, 32 of 40 in use").size(), 1u);
    EXPECT_FALSE(morpho("three", Ints(3, 1)));
    EXPECT_TRUE(morpho("two", Ints(2, 1)));
    EXPECT_EQ(KrvMemoryBudget::used(), before + 40);
    removeLut("eight");
    EXPECT_TRUE(createLut("three", Ints(3, 1)));
    EXPECT_EQ(getLutList(), Names{"three"});
    EXPECT_EQ(KrvMemoryBudget::used(), before + 20);
}

}  // namespace
