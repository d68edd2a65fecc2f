// Segment objects over the stand-alone suite; chains are appended on the suite's side, as the
// suite's own processing would.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatSeg.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/TestSupport.h"


namespace {

struct Outputs {
    float x1 = -7.0f, y1 = -7.0f, x2 = -7.0f, y2 = -7.0f;
    bool get(const std::string& name, int chain, int item) { return getSegment(name, chain, item, x1, y1, x2, y2); }
    bool untouched() const { return x1 == -7.0f && y1 == -7.0f && x2 == -7.0f && y2 == -7.0f; }
};

class SegmentTest : public kapitest::SuiteTest {
protected:
    CDatSeg* host(const std::string& name) { return CDatSegHandler::m_pInstance->FindObj(CKrvString(name)); }
};

TEST_F(SegmentTest, ChainsAndItemsReadBackWithoutLogging) {
    ASSERT_TRUE(createSegment("edges"));
    CDatSeg* edges = host("edges");
    ASSERT_NE(edges, nullptr);
    ASSERT_EQ(edges->AppendChain({{1, 2, 3, 4}, {3, 4, 5, 6}}), 0);
    ASSERT_EQ(edges->AppendChain({}), 1);
    ASSERT_TRUE(edges->AppendItem(1, {-1.5f, 0, 0, 2.25f}));
    log->clear();

    EXPECT_EQ(getNbChain("edges"), 2);
    EXPECT_EQ(getNbItems("edges", 0), 2);
    EXPECT_EQ(getNbItems("edges", 1), 1);
    Outputs out;
    EXPECT_TRUE(out.get("edges", 0, 1));
    EXPECT_EQ((std::vector<float>{out.x1, out.y1, out.x2, out.y2}), (std::vector<float>{3, 4, 5, 6}));
    EXPECT_TRUE(out.get("edges", 1, 0));
    EXPECT_EQ((std::vector<float>{out.x1, out.y1, out.x2, out.y2}), (std::vector<float>{-1.5f, 0, 0, 2.25f}));
    EXPECT_TRUE(removeSegment("edges"));
    EXPECT_TRUE(log->lines().empty());
    EXPECT_EQ(getNbChain("edges"), -1);
}

TEST_F(SegmentTest, MissingObjectAndOutOfRangeAreTheResultsOnly) {
    ASSERT_TRUE(createSegment("empty"));
    ASSERT_TRUE(createSegment("one"));
    ASSERT_EQ(host("one")->AppendChain({{0, 0, 1, 1}}), 0);
    log->clear();

    EXPECT_EQ(getNbChain("empty"), 0);  // a real 0, told apart from -1
    EXPECT_EQ(getNbChain("nowhere"), -1);
    EXPECT_EQ(getNbItems("nowhere", 0), -1);
    EXPECT_EQ(getNbItems("one", 1), -1);  // the suite's answer for a chain out of range
    EXPECT_EQ(getNbItems("one", -1), -1);

    Outputs out;
    EXPECT_FALSE(out.get("nowhere", 0, 0));
    EXPECT_FALSE(out.get("one", 0, 1));   // item out of range: the suite answers 0
    EXPECT_FALSE(out.get("one", 1, 0));   // chain out of range: the suite answers -1
    EXPECT_FALSE(out.get("one", 0, -1));
    EXPECT_TRUE(out.untouched());

    EXPECT_FALSE(removeSegment("nowhere"));
    EXPECT_FALSE(createSegment("one"));  // the suite refuses a name in use
    EXPECT_FALSE(createSegment(""));
    EXPECT_EQ(getNbChain("one"), 1);
    EXPECT_TRUE(log->lines().empty());
}

TEST_F(SegmentTest, ListLogsItsHeadingOnly) {
    for (const char* name : {"b", "a", "c"}) ASSERT_TRUE(createSegment(name));
    log->clear();
    EXPECT_EQ(getSegmentList(), (std::vector<std::string>{"b", "a", "c"}));
    ASSERT_EQ(log->lines().size(), 1u);
    kapitest::expectLogLine(*log, KrvLoggerLevel::Debug, "Retrieving segment list :", "src/SegmentInterface.cpp",
                            kapitest::sourceLine("src/SegmentInterface.cpp", "\"Retrieving segment list :\""));
}

// The suite's long work reports "k/n" to the client and asks its flush between steps.
std::vector<std::string> messages;
int flushes = 0;
int stopAfter = -1;
void recordMessage(const std::string& message) { messages.push_back(message); }
bool recordFlush() { return ++flushes != stopAfter; }

TEST_F(SegmentTest, LongWorkReportsProgressAndStopsWhenAsked) {
    messages.clear();
    flushes = 0;
    stopAfter = -1;
    setProgressMsgCB(&recordMessage);
    setFlushEventsCB(&recordFlush);

    ASSERT_TRUE(createSegment("rings"));
    EXPECT_EQ(host("rings")->AppendRings(250, 12, 50, 50, 0.5f), 250);
    EXPECT_EQ(getNbChain("rings"), 250);
    EXPECT_EQ(getNbItems("rings", 249), 12);
    Outputs last, first;
    ASSERT_TRUE(last.get("rings", 249, 11));
    ASSERT_TRUE(first.get("rings", 249, 0));
    EXPECT_EQ(last.x2, first.x1);  // each ring closes
    EXPECT_EQ(last.y2, first.y1);
    EXPECT_EQ(flushes, 250);
    ASSERT_EQ(messages.size(), 125u);  // every other ring: about a hundred messages
    EXPECT_EQ(messages.front(), "Building rings 2/250");
    EXPECT_EQ(messages.back(), "Building rings 250/250");

    messages.clear();
    flushes = 0;
    stopAfter = 3;
    CKrvSettingDoc::getInstance().setProgress(0);
    EXPECT_EQ(host("rings")->AppendRings(5, 4, 0, 0, 1), 3);
    EXPECT_TRUE(messages.empty());  // the switch silences progress, not the flush
    EXPECT_EQ(getNbChain("rings"), 253);
    CKrvSettingDoc::getInstance().setProgress(1);

    const std::uint64_t used = KrvMemoryBudget::used();
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(used + 3 * 4 * sizeof(CDatSegItem));
    stopAfter = -1;
    EXPECT_EQ(host("rings")->AppendRings(5, 4, 0, 0, 1), 3);  // the budget holds three more
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
    EXPECT_TRUE(removeSegment("rings"));
    EXPECT_EQ(KrvMemoryBudget::used(), used - (250 * 12 + 3 * 4) * sizeof(CDatSegItem));

    setProgressMsgCB(nullptr);
    setFlushEventsCB(nullptr);
}

}  // namespace
