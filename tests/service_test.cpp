// The proxy service over the real registry: status-bar forwarding, target designation and the
// conversions into the Tarsel spreadsheet and object model, with the suite refusing each step.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/DictionaryPrivate.h>
#include <vantry_data/KrvResultTable.h>
#include <vantry_process/OrlanSpreadsheet.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvFault.h>

#include "support/TestSupport.h"

using kapitest::expectLogLine;
using Level = KrvLoggerLevel;

namespace {

const char* const kService = "src/KorvaneAPIService.cpp";

std::vector<std::string> g_statusTexts;
void recordStatus(const char* text) { g_statusTexts.emplace_back(text); }

class ProxyServiceTest : public kapitest::SuiteTest {
protected:
    void SetUp() override {
        SuiteTest::SetUp();
        KrvResultTables::Store("areas", {{"Area", "Perimeter"}, {{1.5, 2.5}, {4.0, 6.0}}});
        g_statusTexts.clear();
        KrvExternalFunction::getInstance().setUpdStatusBarFunction(&recordStatus);
        log->clear();
    }
    void TearDown() override {
        KrvExternalFunction::getInstance().setUpdStatusBarFunction(nullptr);
        KrvResultTables::Clear();
        SuiteTest::TearDown();
    }
    static void send(eMessage message, std::vector<KrvVariant> params) {
        ASSERT_TRUE(CService::SendMessage(eServiceProxy, eServiceData, CKrvString("tab"), CKrvString("t1"), message,
                                          params));
    }
    void designateBoth() {
        send(eMessageSetSpreadsheet, {static_cast<void*>(&sheet)});
        send(eMessageSetObjectModel, {static_cast<void*>(&model)});
    }
    COrlanSpreadsheet sheet;
    data::DictionaryPrivate model;
};

TEST_F(ProxyServiceTest, StatusBarTextReachesTheClientOnlyForTheMainPane) {
    send(eMessageStatusBar, {1, 0, "Measuring 3 objects"});
    expectLine(Level::Debug, "Receiving message from service 6, objectType = tab, objectName = t1, messageId = 1048");
    send(eMessageStatusBar, {2, 0, "other pane"});
    send(eMessageStatusBar, {1, 1, "other window"});
    EXPECT_EQ(g_statusTexts, std::vector<std::string>{"Measuring 3 objects"});
}

TEST_F(ProxyServiceTest, ResultTableFillsBothTargetsThenForgetsThem) {
    designateBoth();
    send(eMessageConvertResults, {"areas"});
    EXPECT_EQ(sheet.title(), "areas");
    ASSERT_EQ(sheet.columns().size(), 2u);
    EXPECT_EQ(sheet.columns()[1].values, (std::vector<double>{4.0, 6.0}));
    EXPECT_NE(model.get("Area"), nullptr);
    EXPECT_TRUE(log->find("Failed to convert Korvane data areas with data type 3 to Tarsel").empty());

    // Each designation served one conversion: the next finds no target and only warns.
    sheet.clear();
    send(eMessageConvertResults, {"areas"});
    EXPECT_TRUE(sheet.columns().empty());
    expectLine(Level::Warn, "No Tarsel spreadsheet selected, can't convert Korvane data areas with data type 3 to Tarsel");
}

TEST_F(ProxyServiceTest, ObjectModelAloneConvertsOnlyIntoTheObjectModel) {
    send(eMessageSetObjectModel, {static_cast<void*>(&model)});
    send(eMessageConvertData, {"areas", 3});
    EXPECT_EQ(KrvFault::calls("krvToOrlanData"), 0u);
    EXPECT_EQ(KrvFault::calls("krvToObjectModel"), 1u);
    EXPECT_NE(model.get("Perimeter"), nullptr);
    send(eMessageConvertData, {"areas", 3});
    EXPECT_EQ(KrvFault::calls("krvToObjectModel"), 1u);
    expectLine(Level::Warn, "No Tarsel spreadsheet selected, can't convert Korvane data areas with data type 3 to Tarsel");
}

// A refused spreadsheet conversion warns and still goes on to the object model; a refused
// object-model conversion warns on its own line. Both targets are forgotten either way.
TEST_F(ProxyServiceTest, RefusedConversionsWarnOnTheirLinesAndGoOn) {
    KrvFault::arm("krvToOrlanData", KrvFault::Answer::Zero);
    designateBoth();
    send(eMessageConvertResults, {"areas"});
    expectLogLine(*log, Level::Warn, "Failed to convert Korvane data areas with data type 3 to Tarsel", kService, 103);
    EXPECT_NE(model.get("Area"), nullptr);

    log->clear();
    sheet.clear();
    KrvFault::arm("krvToObjectModel", KrvFault::Answer::Zero);
    designateBoth();
    send(eMessageConvertResults, {"areas"});
    EXPECT_EQ(sheet.columns().size(), 2u);
    expectLogLine(*log, Level::Warn, "Failed to convert Korvane data areas with data type 3 to Tarsel", kService, 110);

    log->clear();
    KrvFault::arm("krvToObjectModel", KrvFault::Answer::Zero);
    designateBoth();
    send(eMessageConvertData, {"areas", 7});  // a type the spreadsheet refuses, then a refused model
    std::vector<kapitest::LogLine> warnings =
        log->find("Failed to convert Korvane data areas with data type 7 to Tarsel");
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0].line, 142);
    EXPECT_EQ(warnings[1].line, 149);
    for (const kapitest::LogLine& warning : warnings)
        EXPECT_EQ(static_cast<int>(warning.level), static_cast<int>(Level::Warn));

    log->clear();
    send(eMessageConvertResults, {"areas"});
    expectLine(Level::Warn, "No Tarsel spreadsheet selected, can't convert Korvane data areas with data type 3 to Tarsel");
}

TEST_F(ProxyServiceTest, UnknownMessagesAndCopiesLeaveTheRegisteredServiceAlone) {
    auto* proxy = dynamic_cast<KorvaneAPIService*>(CService::Get(eServiceProxy));
    ASSERT_NE(proxy, nullptr);
    send(eMessageSetSpreadsheet, {static_cast<void*>(&sheet)});
    send(static_cast<eMessage>(4302), {"areas"});
    EXPECT_TRUE(sheet.columns().empty());

    // A copy shares the designated spreadsheet but is not the registered service.
    KorvaneAPIService copy(*proxy);
    EXPECT_EQ(CService::Get(eServiceProxy), proxy);
    std::vector<KrvVariant> params{"areas"};
    ASSERT_TRUE(CService::SendMessage(eServiceProxy, eServiceData, CKrvString(""), CKrvString(""),
                                      eMessageConvertResults, params));
    EXPECT_EQ(sheet.columns().size(), 2u);
    sheet.clear();
    copy.MessageToService(eServiceData, CKrvString(""), CKrvString(""), eMessageConvertResults);
    EXPECT_TRUE(sheet.columns().empty()) << "outside a delivery the name is empty and the suite refuses it";
}

}  // namespace
