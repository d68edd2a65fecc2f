// Segment objects over the stand-alone suite; chains are appended on the suite's side, as the
// suite's own processing would.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatSeg.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/TestSupport.h"

using Floats = std::vector<float>;
using Names = std::vector<std::string>;

namespace {

// getSegment's four outputs, or none when it answers false and leaves them as they were.
Floats segment(const std::string& name, int chain, int item) {
    Floats out(4, -7.0f);
    const bool found = getSegment(name, chain, item, out[0], out[1], out[2], out[3]);
    EXPECT_EQ(out == Floats(4, -7.0f), !found) << name << " " << chain << " " << item;
    return found ? out : Floats{};
}

class SegmentTest : public kapitest::SuiteTest {
protected:
    CDatSeg* host(const std::string& name) { return CDatSegHandler::m_pInstance->FindObj(CKrvString(name)); }
};

TEST_F(SegmentTest, ChainsAndItemsReadBack) {
    ASSERT_TRUE(createSegment("edges"));
    ASSERT_TRUE(createSegment("empty"));
    CDatSeg* edges = host("edges");
    ASSERT_EQ(edges->AppendChain({{1, 2, 3, 4}, {3, 4, 5, 6}}), 0);
    ASSERT_EQ(edges->AppendChain({}), 1);
    ASSERT_TRUE(edges->AppendItem(1, {-1.5f, 0, 0, 2.25f}));

    EXPECT_EQ(getNbChain("edges"), 2);
    EXPECT_EQ(getNbChain("empty"), 0);  // a real 0, told apart from -1
    EXPECT_EQ(getNbItems("edges", 0), 2);
    EXPECT_EQ(getNbItems("edges", 1), 1);
    EXPECT_EQ(segment("edges", 0, 1), (Floats{3, 4, 5, 6}));
    EXPECT_EQ(segment("edges", 1, 0), (Floats{-1.5f, 0, 0, 2.25f}));
    // Out of range: the suite's answers, -1 for a chain count, 0 or -1 for an item.
    EXPECT_EQ(getNbItems("edges", 2), -1);
    EXPECT_EQ(getNbItems("edges", -1), -1);
    const int outside[][2] = {{0, 2}, {2, 0}, {0, -1}};
    for (const auto& at : outside) EXPECT_TRUE(segment("edges", at[0], at[1]).empty());

    EXPECT_EQ(getSegmentList(), (Names{"edges", "empty"}));
    EXPECT_TRUE(removeSegment("edges"));
    EXPECT_FALSE(removeSegment("edges"));
    EXPECT_EQ(getNbChain("edges"), -1);
}

// The suite's long work reports "k/n" to the client and asks its flush between steps.
std::vector<std::string> messages;
int flushes = 0;
int stopAfter = -1;
void recordMessage(const std::string& message) { messages.push_back(message); }
bool recordFlush() { return ++flushes != stopAfter; }

TEST_F(SegmentTest, LongWorkReportsProgressAndStopsWhenAsked) {
    setProgressMsgCB(&recordMessage);
    setFlushEventsCB(&recordFlush);
    ASSERT_TRUE(createSegment("rings"));
    EXPECT_EQ(host("rings")->AppendRings(250, 12, 50, 50, 0.5f), 250);
    EXPECT_EQ(getNbChain("rings"), 250);
    EXPECT_EQ(getNbItems("rings", 249), 12);
    const Floats last = segment("rings", 249, 11), first = segment("rings", 249, 0);
    EXPECT_EQ((Floats{last[2], last[3]}), (Floats{first[0], first[1]}));  // each ring closes
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
