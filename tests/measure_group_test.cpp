// Measure groups over the stand-alone suite: the copy-and-write-back rule, duplicates, exact
// removal, and every failure answer of the analysis handler.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatAnlHandler.h>
#include <vantry_util/KrvFault.h>

#include "support/TestSupport.h"

using kapitest::expectLogLine;
using kapitest::sourceLine;
using Level = KrvLoggerLevel;
using Names = std::vector<std::string>;

namespace {

const char* const kFile = "src/MeasureGroupInterface.cpp";

class MeasureGroups : public kapitest::AfterStartUpTest {
protected:
    static int line(const std::string& snippet) { return sourceLine(kFile, snippet); }
};

TEST_F(MeasureGroups, AddsInOrderKeepsDuplicatesAndRemovesTheFirstExactEntry) {
    ASSERT_TRUE(createUsrMsrByFormula("Ratio", "Area / Perimeter", eMsrUnitDim5));
    addMsrGrp("Shape");
    EXPECT_TRUE(addMsrToMsrGrp("Shape", "Area"));
    EXPECT_TRUE(addMsrToMsrGrp("Shape", "Ratio"));
    EXPECT_TRUE(addMsrToMsrGrp("Shape", "Area"));
    EXPECT_EQ(getMsrGrpMsrList("Shape"), (Names{"Area", "Ratio", "Area"}));
    expectLogLine(*log, Level::Debug, "Creating measure group Shape", kFile, line("\"Creating measure group \""));
    expectLogLine(*log, Level::Debug, "Adding measure Ratio to measure group Shape", kFile,
                  line("\"Adding measure \""));

    log->clear();
    const std::uint64_t writes = KrvFault::calls("CDatAnlHandler::AddGrpMsr");
    removeMsrFromMsrGrp("Shape", "area");   // case matters
    removeMsrFromMsrGrp("Shape", "Area ");  // so do blanks
    EXPECT_EQ(KrvFault::calls("CDatAnlHandler::AddGrpMsr"), writes);  // nothing written back
    EXPECT_EQ(log->find("Can't remove measure area from measure group Shape, this measure doesn't exists").size(), 1u);
    expectLogLine(*log, Level::Error, "Can't remove measure Area  from measure group Shape, this measure doesn't exists",
                  kFile, line("\" from measure group \", group, \", this measure doesn't exists\""));
    removeMsrFromMsrGrp("Shape", "Area");
    EXPECT_EQ(getMsrGrpMsrList("Shape"), (Names{"Ratio", "Area"}));
    expectLogLine(*log, Level::Debug, "Removing measure Area from measure group Shape", kFile,
                  line("\"Removing measure \", measure"));

    // Removing the user measure leaves the group as it is.
    removeUsrMsr("Ratio");
    EXPECT_EQ(getMsrGrpMsrList("Shape"), (Names{"Ratio", "Area"}));
    // addMsrGrp on a group that holds measures empties it, without an Error line.
    addMsrGrp("Shape");
    log->clear();
    EXPECT_TRUE(getMsrGrpMsrList("Shape").empty());
    EXPECT_EQ(log->lines().size(), 1u);
    expectLogLine(*log, Level::Debug, "Retrieving measure list for group Shape", kFile,
                  line("\"Retrieving measure list for group \""));

    // The group list: a heading, then one Debug line per name from the list's own statement.
    EXPECT_EQ(getMsrGrpList(), (Names{"Shape"}));
    const int listLine = line("\"Retrieving measure group list :\"");
    expectLogLine(*log, Level::Debug, "Retrieving measure group list :", kFile, listLine);
    expectLogLine(*log, Level::Debug, "Shape", kFile, line("return KAPI_COPY_NAMES(groups);"));
    // With Debug lines off, neither the heading nor a name is written.
    log->clear();
    const int level = getKorvaneAPILogger().getLogLevel();
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Info));
    EXPECT_EQ(getMsrGrpList(), (Names{"Shape"}));
    getKorvaneAPILogger().setLogLevel(level);
    EXPECT_TRUE(log->lines().empty());
    removeMsrGrp("Shape");
    expectLogLine(*log, Level::Debug, "Removing measure group Shape", kFile, line("\"Removing measure group \", group"));
    EXPECT_TRUE(getMsrGrpList().empty());
}

TEST_F(MeasureGroups, AddingToAMissingGroupMakesItAndAnUnknownMeasureChangesNothing) {
    EXPECT_TRUE(addMsrToMsrGrp("New", "Length3d"));
    EXPECT_EQ(getMsrGrpMsrList("New"), Names{"Length3d"});
    for (const auto& l : log->lines()) EXPECT_LT(static_cast<int>(l.level), static_cast<int>(Level::Warn)) << l.message;

    EXPECT_FALSE(addMsrToMsrGrp("Other", "NoSuchMeasure"));
    expectLogLine(*log, Level::Error, "Can't add measure to measure group Other, this measure doesn't exists", kFile,
                  line("\"Can't add measure to measure group \""));
    EXPECT_EQ(getMsrGrpList(), Names{"New"});
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

TEST_F(MeasureGroups, MissingGroupsAreReportedAtTheirLevels) {
    EXPECT_TRUE(getMsrGrpMsrList("None").empty());
    expectLogLine(*log, Level::Error, "Can't get measures from measure group None, this measure group doesn't exists",
                  kFile, line("\"Can't get measures from measure group \""));
    removeMsrFromMsrGrp("None", "Area");
    expectLogLine(*log, Level::Error,
                  "Can't remove measure Area from measure group None, this measure group doesn't exists", kFile,
                  line("\" from measure group \", group, \", this measure group doesn't exists\""));
    EXPECT_EQ(KrvFault::calls("CDatAnlHandler::AddGrpMsr"), 0u);

    // An empty group: the measure is missing, not the group.
    addMsrGrp("Empty");
    log->clear();
    removeMsrFromMsrGrp("Empty", "Area");
    EXPECT_EQ(log->find("Can't remove measure Area from measure group Empty, this measure doesn't exists").size(), 1u);

    removeMsrGrp("None");
    expectLogLine(*log, Level::Warn, "Can't remove measure group None, this measure group doesn't exists", kFile,
                  line("\"Can't remove measure group \", group"));
}

TEST_F(MeasureGroups, RemoveAllGoesStraightToTheHandlerAndWarnsPerRefusal) {
    removeAllMsrGrp();
    EXPECT_EQ(log->lines().size(), 1u);
    expectLogLine(*log, Level::Debug, "Removing all measure groups", kFile, line("\"Removing all measure groups\""));

    addMsrGrp("A");
    addMsrGrp("B");
    addMsrGrp("C");
    EXPECT_EQ(getMsrGrpList(), (Names{"A", "B", "C"}));
    log->clear();
    KrvFault::arm("CDatAnlHandler::RemoveGrpMsr", KrvFault::Answer::Zero, 2);
    removeAllMsrGrp();
    EXPECT_TRUE(log->find("Removing measure group A").empty());
    expectLogLine(*log, Level::Warn, "Can't remove measure group B, this measure group doesn't exists", kFile,
                  line("\"Can't remove measure group \", name"));
    EXPECT_EQ(getMsrGrpList(), Names{"B"});

    // A host exception passes through; what was written back stays.
    KrvFault::arm("CDatAnlHandler::AddGrpMsr", KrvFault::Answer::Throw);
    EXPECT_THROW(addMsrToMsrGrp("B", "Area"), KrvBaseException);
    EXPECT_TRUE(getMsrGrpMsrList("B").empty());
}

}  // namespace
