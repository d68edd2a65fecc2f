// The command catalogue over the stand-alone suite's command table, and over tables put in its
// place.
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_process/CProCmd.h>
#include <vantry_process/CProService.h>
#include <vantry_util/KrvFault.h>

#include "support/TestSupport.h"

namespace {

class CommandTest : public kapitest::SuiteTest {
protected:
    void TearDown() override {
        SetKrvTabListCmd(nullptr, 0);
        SuiteTest::TearDown();
    }
};

TEST_F(CommandTest, SuiteCatalogueListsNamedCommandsWithDescriptions) {
    const std::vector<std::string> names = getCmdNameColl();
    EXPECT_GE(names.size(), 30u);
    EXPECT_EQ(names.front(), "SmoothGauss");
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        EXPECT_NE(name, "none");
        const CProCmd* command = getCmdInfo(name);
        ASSERT_NE(command, nullptr);
        EXPECT_EQ(command->GetName().m_str, name);
        EXPECT_FALSE(command->GetCategory().empty());
        EXPECT_FALSE(command->GetDescription().empty());
        for (const CProCmdParam& p : command->GetParams()) EXPECT_TRUE(p.name && p.type && p.defaultValue);
    }
    const CProCmd* gauss = getCmdInfo("SmoothGauss");
    ASSERT_EQ(gauss->GetParams().size(), 3u);
    EXPECT_STREQ(gauss->GetParams()[2].name, "sigma");
    EXPECT_STREQ(gauss->GetParams()[2].defaultValue, "1.0");
    EXPECT_EQ(getCmdInfo("SmoothGauss"), gauss);  // the suite's own object, every time

    for (const char* unknown : {"none", "smoothgauss", " SmoothGauss", ""}) EXPECT_EQ(getCmdInfo(unknown), nullptr);
}

TEST_F(CommandTest, NamesComeFromRecordOneOnSkippingSeparators) {
    TAB_LISTCMD table[] = {
        {0, 0, "", "First", "", nullptr},  // record 0 is skipped whatever its name
        {1, 1, "", "none", "", nullptr},   {2, 1, "", "None", "", nullptr},  {3, 1, "", " none", "", nullptr},
        {4, 1, "", "none ", "", nullptr},  {5, 1, "", "nonex", "", nullptr}, {6, 1, "", "A", "", nullptr},
        {7, 1, "", "A", "", nullptr},
    };
    SetKrvTabListCmd(table, 8);
    EXPECT_EQ(getCmdNameColl(), (std::vector<std::string>{"None", " none", "none ", "nonex", "A", "A"}));
    SetKrvTabListCmd(table + 1, 2);  // the smallest table with a command: record 0 and one more
    EXPECT_EQ(getCmdNameColl(), std::vector<std::string>{"None"});
    for (const int count : {1, 0, -1}) {
        SetKrvTabListCmd(table, count);
        EXPECT_TRUE(getCmdNameColl().empty()) << count;
    }
    SetKrvTabListCmd(nullptr, 0);
    KrvFault::arm("GetKrvTabListCmd", KrvFault::Answer::Null);
    EXPECT_TRUE(getCmdNameColl().empty());  // no table, no count
    EXPECT_FALSE(getCmdNameColl().empty());
}

}  // namespace
