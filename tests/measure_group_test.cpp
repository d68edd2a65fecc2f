// Measure groups over the stand-alone suite: the copy-and-write-back rule, duplicates, exact
// removal, and every failure answer of the analysis handler.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatAnlHandler.h>
#include <vantry_util/KrvFault.h>

#include "support/TestSupport.h"

using Level = KrvLoggerLevel;
using Names = std::vector<std::string>;

namespace {

using MeasureGroups = kapitest::AfterStartUpTest;

TEST_F(MeasureGroups, AddsInOrderKeepsDuplicatesAndRemovesTheFirstExactEntry) {
    ASSERT_TRUE(createUsrMsrByFormula("Ratio", "Area / Perimeter", eMsrUnitDim5));
    addMsrGrp("Shape");
    for (const char* measure : {"Area", "Ratio", "Area"}) EXPECT_TRUE(addMsrToMsrGrp("Shape", measure));
    EXPECT_EQ(getMsrGrpMsrList("Shape"), (Names{"Area", "Ratio", "Area"}));

    log->clear();
    const std::uint64_t writes = KrvFault::calls("CDatAnlHandler::AddGrpMsr");
    removeMsrFromMsrGrp("Shape", "area");   // case matters
    removeMsrFromMsrGrp("Shape", "Area ");  // so do blanks
    EXPECT_EQ(KrvFault::calls("CDatAnlHandler::AddGrpMsr"), writes);  // nothing written back
    EXPECT_EQ(log->find("Can't remove measure area from measure group Shape, this measure doesn't exists").size(), 1u);
    expectLine(Level::Error, "Can't remove measure Area  from measure group Shape, this measure doesn't exists");
    removeMsrFromMsrGrp("Shape", "Area");
    EXPECT_EQ(getMsrGrpMsrList("Shape"), (Names{"Ratio", "Area"}));

    // Removing the user measure leaves the group as it is.
    removeUsrMsr("Ratio");
    EXPECT_EQ(getMsrGrpMsrList("Shape"), (Names{"Ratio", "Area"}));
    // addMsrGrp on a group that holds measures empties it, without an Error line.
    addMsrGrp("Shape");
    log->clear();
    EXPECT_TRUE(getMsrGrpMsrList("Shape").empty());
    EXPECT_EQ(log->lines().size(), 1u);

    // With Debug lines off, the group list writes neither its heading nor a name.
    log->clear();
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Info));
    EXPECT_EQ(getMsrGrpList(), (Names{"Shape"}));
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Debug));
    EXPECT_TRUE(log->lines().empty());
    removeMsrGrp("Shape");
    EXPECT_TRUE(getMsrGrpList().empty());

    // An empty group: the measure is missing, not the group.
    addMsrGrp("Empty");
    removeMsrFromMsrGrp("Empty", "Area");
    EXPECT_EQ(log->find("Can't remove measure Area from measure group Empty, this measure doesn't exists").size(), 1u);
}

TEST_F(MeasureGroups, AddingToAMissingGroupMakesIt) {
    EXPECT_TRUE(addMsrToMsrGrp("New", "Length3d"));
    EXPECT_EQ(getMsrGrpMsrList("New"), Names{"Length3d"});
    for (const auto& l : log->lines()) EXPECT_LT(static_cast<int>(l.level), static_cast<int>(Level::Warn)) << l.message;
    EXPECT_EQ(KrvFault::calls("CDatAnlHandler::AddGrpMsr"), 1u);

    // The user-measure question is asked only when the native one answers 0.
    KrvFault::reset();
    EXPECT_TRUE(addMsrToMsrGrp("New", "Area"));
    EXPECT_EQ(KrvFault::calls("CDatAnlHandler::IsUserMsr"), 0u);
    KrvFault::arm("CDatAnlHandler::IsKrvMsr", KrvFault::Answer::Zero);
    KrvFault::arm("CDatAnlHandler::IsUserMsr", KrvFault::Answer::NonZero);
    EXPECT_TRUE(addMsrToMsrGrp("New", "Anything"));
    EXPECT_EQ(getMsrGrpMsrList("New"), (Names{"Length3d", "Area", "Anything"}));
}

TEST_F(MeasureGroups, RemoveAllWarnsPerRefusal) {
    for (const char* group : {"A", "B", "C"}) addMsrGrp(group);
    EXPECT_EQ(getMsrGrpList(), (Names{"A", "B", "C"}));
    log->clear();
    KrvFault::arm("CDatAnlHandler::RemoveGrpMsr", KrvFault::Answer::Zero, 2);
    removeAllMsrGrp();
    expectLine(Level::Warn, "Can't remove measure group B, this measure group doesn't exists");
    EXPECT_EQ(getMsrGrpList(), Names{"B"});

    // A host exception passes through; what was written back stays.
    KrvFault::arm("CDatAnlHandler::AddGrpMsr", KrvFault::Answer::Throw);
    EXPECT_THROW(addMsrToMsrGrp("B", "Area"), KrvBaseException);
    EXPECT_TRUE(getMsrGrpMsrList("B").empty());
}

}  // namespace
