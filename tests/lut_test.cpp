// Plain and morphological lookup tables over the stand-alone suite: their messages, the
// asymmetries between the two families, the suite's refusals and every answer it can give.
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

using kapitest::expectLogLine;
using kapitest::sourceLine;
using Level = KrvLoggerLevel;
using KrvFault::Answer;
using Names = std::vector<std::string>;
using Ints = std::vector<int>;

namespace {

const char* const kLut = "src/LutInterface.cpp";

class LutTest : public kapitest::SuiteTest {
protected:
    void SetUp() override {
        SuiteTest::SetUp();
        log->clear();
    }
    void TearDown() override {
        CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
        SuiteTest::TearDown();
    }
    static int line(const char* snippet) { return sourceLine(kLut, snippet); }
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
    expectLogLine(*log, Level::Debug, "Creating lut grey with 5 values", kLut, line("\"Creating lut \""));
    values[0] = 99;
    EXPECT_EQ(getLutValues("grey"), (Ints{0, -5, INT_MAX, INT_MIN, 7}));
    EXPECT_EQ(stored("grey")->GetText().m_str, " ");
    EXPECT_EQ(KrvMemoryBudget::used(), 5 * sizeof(int));

    ASSERT_TRUE(createLut("none", {}));
    expectLogLine(*log, Level::Debug, "Creating lut none with 0 values", kLut, line("\"Creating lut \""));
    log->clear();
    EXPECT_TRUE(getLutValues("none").empty());
    expectLogLine(*log, Level::Warn, "Empty lut none, can't get lut values", kLut, line("\"Empty lut \""));
    EXPECT_EQ(log->lines().size(), 1u);  // nothing logged on the way in

    EXPECT_TRUE(getLutValues("nothing").empty());
    expectLogLine(*log, Level::Error, "Can't get lut nothing, this lut doesn't exists", kLut, line("\"Can't get lut \""));

    // A taken name, an invalid name: refused by the suite, the first table intact.
    EXPECT_FALSE(createLut("grey", {1}));
    expectLogLine(*log, Level::Error, "Internal error, can't create lut grey", kLut, line("\"Internal error, can't create lut \""));
    EXPECT_FALSE(createLut("", {1}));
    EXPECT_FALSE(createLut(std::string(256, 'n'), {1}));
    EXPECT_FALSE(createLut("tab\there", {1}));
    EXPECT_TRUE(createLut(std::string(255, 'n'), {1}));
    EXPECT_EQ(getLutValues("grey").size(), 5u);

    log->clear();
    removeLut("grey");
    expectLogLine(*log, Level::Debug, "Removing lut grey", kLut, line("\"Removing lut \""));
    removeLut("grey");
    expectLogLine(*log, Level::Warn, "Failed to remove lut grey", kLut, line("\"Failed to remove lut \""));
    EXPECT_EQ(KrvMemoryBudget::used(), sizeof(int));
}

TEST_F(LutTest, ListsSeparateTheTwoKindsThatShareOneNameSpace) {
    ASSERT_TRUE(morpho("m1", {1, 2}));
    ASSERT_TRUE(morpho("m2", {3}));
    log->clear();
    EXPECT_TRUE(getLutList().empty());  // names in the store, none of them plain
    expectLogLine(*log, Level::Debug, "Retrieving lut list :", kLut, line("\"Retrieving lut list :\""));
    EXPECT_EQ(log->lines().size(), 1u);

    ASSERT_TRUE(createLut("p1", {1}));
    EXPECT_FALSE(createLut("m1", {1}));  // one name space
    EXPECT_FALSE(morpho("p1", {1}));
    ASSERT_TRUE(morpho("m3", {4}));
    ASSERT_TRUE(createLut("p2", {2}));
    log->clear();
    EXPECT_EQ(getLutList(), (Names{"p1", "p2"}));
    expectLogLine(*log, Level::Debug, "p2", kLut, line("KAPI_COPY_NAMES(hostNames, kapi::NameLines::Logged, plain)"));
    EXPECT_EQ(getMorphoLutList(), (Names{"m1", "m2", "m3"}));
    expectLogLine(*log, Level::Debug, "Retrieving morphological lut list :", kLut,
                  line("\"Retrieving morphological lut list :\""));
    expectLogLine(*log, Level::Debug, "m3", kLut, line("return KAPI_COPY_NAMES(hostNames);"));

    // A name the look-up does not find is left out silently.
    KrvFault::arm("CDatMorphoLutHandler::FindObj", Answer::Null, 3);  // the look-up of p1
    EXPECT_EQ(getLutList(), Names{"p2"});

    // The plain functions read and remove either kind.
    EXPECT_EQ(getLutValues("m1"), (Ints{1, 2}));
    removeLut("m1");
    EXPECT_EQ(getMorphoLutList(), (Names{"m2", "m3"}));
}

TEST_F(LutTest, MorphologicalTablesGiveTheirStorageAndFlags) {
    Ints values{5, 6, 7};
    ASSERT_TRUE(morpho("m", values, 3, -4));
    expectLogLine(*log, Level::Debug, "Creating 'm' morphological lut.", kLut, line("\"Creating '\""));
    EXPECT_EQ(stored("m")->GetText().m_str, " ");
    int* data = reinterpret_cast<int*>(1);
    int size = -9;
    ASSERT_TRUE(getMorphoLutDataPtr("m", data, size));
    ASSERT_EQ(size, 3);
    EXPECT_NE(data, values.data());  // the suite's own copy
    EXPECT_EQ(Ints(data, data + size), values);
    data[1] = 60;  // shared with the suite
    EXPECT_EQ(getLutValues("m"), (Ints{5, 60, 7}));

    int flag1 = 0, flag2 = 0;
    ASSERT_TRUE(getMorphoLutFlags("m", flag1, flag2));
    EXPECT_EQ(flag1, 3);
    EXPECT_EQ(flag2, -4);
    ASSERT_TRUE(setMorphoLutFlags("m", INT_MIN, -1));
    ASSERT_TRUE(getMorphoLutFlags("m", flag1, flag2));
    EXPECT_EQ(flag1, INT_MIN);
    EXPECT_EQ(flag2, -1);

    // Flags and storage of a plain table answer too: the type is not checked.
    ASSERT_TRUE(createLut("p", {8}));
    ASSERT_TRUE(setMorphoLutFlags("p", 1, 2));
    ASSERT_TRUE(getMorphoLutFlags("p", flag1, flag2));
    EXPECT_EQ(flag2, 2);
    ASSERT_TRUE(getMorphoLutDataPtr("p", data, size));
    EXPECT_EQ(*data, 8);

    const std::string missing = "Can't get 'x' morphological lut, this morphological lut doesn't exist.";
    log->clear();
    EXPECT_FALSE(getMorphoLutFlags("x", flag1, flag2));
    EXPECT_EQ(flag1, -1);
    EXPECT_EQ(flag2, -1);
    expectLogLine(*log, Level::Error, missing, kLut, line("// flags stay -1"));
    log->clear();
    EXPECT_FALSE(setMorphoLutFlags("x", 1, 1));
    expectLogLine(*log, Level::Error, missing, kLut, line("// nothing written"));

    // The outputs are set before the look-up, so a look-up that throws leaves them set too.
    KrvFault::arm("CDatMorphoLutHandler::FindObj", Answer::Throw, 1, 2);
    flag1 = flag2 = size = 9;
    EXPECT_THROW(getMorphoLutFlags("m", flag1, flag2), KrvBaseException);
    EXPECT_EQ(flag1, -1);
    EXPECT_EQ(flag2, -1);
    EXPECT_THROW(getMorphoLutDataPtr("m", data, size), KrvBaseException);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(data, nullptr);
}

TEST_F(LutTest, MorphologicalDataPointerFailuresSetTheirOutputs) {
    int* data = reinterpret_cast<int*>(1);
    int size = 5;
    EXPECT_FALSE(getMorphoLutDataPtr("x", data, size));
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0);
    expectLogLine(*log, Level::Error, "Can't get 'x' morphological lut, this morphological lut doesn't exists", kLut,
                  line("this morphological lut doesn't exists\""));

    ASSERT_TRUE(morpho("empty", {}));
    log->clear();
    size = 5;
    EXPECT_FALSE(getMorphoLutDataPtr("empty", data, size));
    EXPECT_EQ(size, 0);
    EXPECT_EQ(data, nullptr);
    expectLogLine(*log, Level::Warn, "Empty 'empty' morphological lut, can't get values", kLut, line("\"Empty '\""));
    EXPECT_EQ(log->lines().size(), 1u);

    ASSERT_TRUE(morpho("m", {1, 2, 3}));
    const std::string invalid = "Invalid 'm' morphological lut, can't get values";
    for (const Answer answer : {Answer::Null, Answer::Custom}) {  // no field; a field of real values
        KrvFault::arm("CDatTab::GetField", answer);
        data = reinterpret_cast<int*>(1);
        EXPECT_FALSE(getMorphoLutDataPtr("m", data, size));
        EXPECT_EQ(size, 3);
        EXPECT_EQ(data, nullptr);
        expectLogLine(*log, Level::Warn, invalid, kLut, line("\"Invalid '\""));
        log->clear();
    }
    KrvFault::arm("CDatIntField::GetData", Answer::Null);
    EXPECT_FALSE(getMorphoLutDataPtr("m", data, size));
    EXPECT_EQ(size, 3);
    EXPECT_EQ(data, nullptr);
    EXPECT_TRUE(log->lines().empty());

    for (const Answer answer : {Answer::Negative, Answer::NonZero}) {  // anything but 1: -1, 2
        KrvFault::arm("CDatMorphoLut::GetMorphoLut", answer, 1, 1, answer == Answer::NonZero ? 2 : 0);
        EXPECT_TRUE(getLutValues("m").empty());
        expectLogLine(*log, Level::Warn, "Empty lut m, can't get lut values", kLut, line("\"Empty lut \""));
        log->clear();
    }
    EXPECT_EQ(getLutValues("m"), (Ints{1, 2, 3}));
}

TEST_F(LutTest, RemovingAMorphologicalTableWarnsButSucceedsUnlessTheSuiteRefuses) {
    ASSERT_TRUE(createLut("p", {1}));
    ASSERT_TRUE(morpho("m", {1}));
    log->clear();
    EXPECT_TRUE(removeMorphoLut("x"));
    expectLogLine(*log, Level::Debug, "Removing 'x' morphological lut.", kLut, line("\"Removing '\""));
    expectLogLine(*log, Level::Warn, "The 'x' morphological lut does not exist.", kLut, line("\"' morphological lut does not exist.\""));
    EXPECT_TRUE(removeMorphoLut("p"));
    expectLogLine(*log, Level::Warn, "The 'p' lut does not a morphological lut.", kLut, line("does not a morphological"));
    EXPECT_EQ(getLutList(), Names{"p"});
    EXPECT_EQ(KrvFault::calls("CDatMorphoLutHandler::RemoveLut"), 0u);

    KrvFault::arm("CDatMorphoLutHandler::RemoveLut", Answer::Zero);
    EXPECT_FALSE(removeMorphoLut("m"));
    expectLogLine(*log, Level::Warn, "Failed to remove 'm' morphological lut.", kLut, line("\"Failed to remove '\""));
    EXPECT_EQ(getMorphoLutList(), Names{"m"});
    EXPECT_TRUE(removeMorphoLut("m"));
    EXPECT_TRUE(getMorphoLutList().empty());

    KrvFault::arm("CDatMorphoLutHandler::RemoveLut", Answer::Zero);
    removeLut("p");
    expectLogLine(*log, Level::Warn, "Failed to remove lut p", kLut, line("\"Failed to remove lut \""));
    EXPECT_EQ(getLutList(), Names{"p"});
}

TEST_F(LutTest, SuiteRefusesBadSizesAndThePastBudgetAndMakesNothingHalfway) {
    int one = 1;
    EXPECT_FALSE(createMorphoLut("neg", &one, -1, 0, 0));
    EXPECT_FALSE(createMorphoLut("null", nullptr, 4, 0, 0));
    EXPECT_TRUE(createMorphoLut("nullEmpty", nullptr, 0, 0, 0));
    EXPECT_TRUE(log->find("Internal error, can't create lut neg").empty());  // the morphological creation logs no failure
    EXPECT_EQ(getMorphoLutList(), Names{"nullEmpty"});

    KrvFault::arm("CDatMorphoLutHandler::AddLut", Answer::Null, 1, 2);
    EXPECT_FALSE(createLut("p", {1, 2}));
    expectLogLine(*log, Level::Error, "Internal error, can't create lut p", kLut, line("\"Internal error, can't create lut \""));
    EXPECT_FALSE(morpho("m", {1, 2}));
    EXPECT_TRUE(getLutList().empty());

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

    KrvFault::arm("CDatMorphoLutHandler::AddLut", Answer::Throw);
    EXPECT_THROW(createLut("x", {1}), KrvBaseException);
}

}  // namespace
