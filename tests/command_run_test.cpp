// Running the catalogue's commands by name: every refusal with its exact text and the stores left
// as they were, a stop from the client's flush hook, and each image command run end to end.
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatSeg.h>
#include <vantry_data/KrvResultTable.h>
#include <vantry_process/CProCmd.h>
#include <vantry_process/KrvCommandRunner.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvExternalFunction.h>

#include "support/TestSupport.h"
#include "support/Voxels.h"

using Args = std::vector<KrvCommandArgument>;

namespace {

// The commands that make a table or fill a segment object instead of an image.
const std::set<std::string> kNoImageOut = {"Histogram", "Measure", "SieveClasses", "Contours", "HoughLines"};

// The stored object or image each kind of parameter names in the catalogue run.
const std::map<std::string, std::string> kObjectFor = {
    {"filter", "f"}, {"inputs", "grey"}, {"first", "grey"}, {"second", "grey"}, {"labels", "labels"}, {"group", "g"},
    {"sieve", "s"}, {"segment", "lines"}, {"width", "4"}, {"height", "4"}};

std::vector<std::string> g_progress;
bool g_keepGoing = true;
int g_flushes = 0;

class CommandRunTest : public kapitest::SuiteTest {
protected:
    void SetUp() override {
        SuiteTest::SetUp();
        store = CDatImgHandler::m_pInstance;
        // A 2-D grey image with two bright squares, and its binary mask.
        CDatImg* grey = store->AddImg(CKrvString("grey"), 24, 16, 1, KrvVoxelType::UInt8);
        KrvImage& image = grey->GetImage();
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 24; ++x) image.At<std::uint8_t>(x, y) = (x % 12 > 2 && x % 12 < 9 && y > 4 && y < 11) ? 200 : 30;
        image.SetVoxelSize({0.5, 0.5, 1});
        ASSERT_TRUE(krvRunCommand("Threshold", {{"input", "grey"}, {"output", "mask"}, {"low", "100"}}));
        g_progress.clear();
        g_keepGoing = true;
        g_flushes = 0;
        auto& hooks = KrvExternalFunction::getInstance();
        hooks.setProgressMsgFunction([](const char* text) { g_progress.emplace_back(text); });
        hooks.setFlushEventsFunction([] { return ++g_flushes, g_keepGoing; });
    }
    void TearDown() override {
        auto& hooks = KrvExternalFunction::getInstance();
        hooks.setProgressMsgFunction(nullptr);
        hooks.setFlushEventsFunction(nullptr);
        KrvResultTables::Clear();
        SuiteTest::TearDown();
    }
    std::vector<CKrvString> images() const {
        std::vector<CKrvString> names;
        store->GetObjList(names);
        return names;
    }
    // The command is refused with exactly `message`, and no image, table or segment is made.
    void expectRefused(const std::string& command, const Args& args, const std::string& message) {
        SCOPED_TRACE(command + ": " + message);
        const std::vector<CKrvString> before = images();
        EXPECT_EQ(kapitest::refusal([&] { krvRunCommand(command, args); }), message);
        EXPECT_EQ(images(), before);
        EXPECT_EQ(KrvResultTables::Find("Histogram"), nullptr);
    }
    CDatImgHandler* store = nullptr;
};

TEST_F(CommandRunTest, RefusalsNameTheCommandAndTheReasonAndStoreNothing) {
    // The grey image in and "o" out, and more.
    const auto io = [](Args more) { return more.insert(more.begin(), {{"input", "grey"}, {"output", "o"}}), more; };
    const std::vector<std::tuple<const char*, Args, std::string>> refusals = {
        {"Sharpness", {}, "no such command"},
        {"Median", io({{"radius", "3"}}), "unknown parameter \"radius\""},
        {"Median", io({{"input", "grey"}}), "parameter input is given twice"},
        {"Median", {{"input", "grey"}}, "parameter output is missing"},
        {"Crop", io({{"width", "4"}}), "parameter height is missing"},
        {"Median", io({{"size", "3.0"}}), "parameter size must be an integer, not \"3.0\""},
        {"Median", io({{"size", "33"}}), "parameter size = 33 lies outside [1, 31]"},
        {"SmoothGauss", io({{"sigma", "0"}}), "parameter sigma = 0 lies outside [0.01, 100]"},
        {"SmoothGauss", io({{"sigma", "nan"}}), "parameter sigma must be a number, not \"nan\""},
        {"Resample", io({{"interpolate", "yes"}}), "parameter interpolate must be true or false, not \"yes\""},
        {"Label", {{"input", "mask"}, {"output", "o"}, {"connectivity", "5"}}, "parameter connectivity must be one of 4, 6, 8, 26, not 5"},
        {"AutoThreshold", io({{"method", "Otsu"}}), "parameter method must be one of otsu, isodata, not \"Otsu\""},
        {"Median", {{"input", "gray"}, {"output", "o"}}, "no image named \"gray\""},
        {"Add", {{"first", "grey"}, {"second", "mask2"}, {"output", "o"}}, "no image named \"mask2\""},
        {"Median", {{"input", "grey"}, {"output", "mask"}}, "can't store an image named \"mask\": the name is invalid or already used"},
        {"Median", {{"input", "grey"}, {"output", "a\tb"}}, "can't store an image named \"a\tb\": the name is invalid or already used"},
        {"HoughLines", {{"input", "mask"}, {"segment", "lines"}}, "no segment named \"lines\""},
        {"Measure", {{"labels", "mask"}, {"group", "G"}}, "no group named \"G\""},
        {"UserFilter", {{"output", "o"}, {"filter", "F"}, {"inputs", "grey"}}, "no filter named \"F\""},
        {"SieveClasses", {{"table", "T"}, {"sieve", "S"}}, "no sieve named \"S\""},
        {"ApplyLut", io({{"lut", "L"}}), "no lut named \"L\""},
        // Failures of the body itself, after the checks.
        {"Median", io({{"size", "4"}}), "size must be odd and at least 1"},
        {"Crop", io({{"x", "20"}, {"width", "5"}, {"height", "2"}}), "the box 20,0,0 5x2x1 passes the image's 24x16x1 uint8"},
        {"Histogram", {{"input", "grey"}, {"result", "a\nb"}}, "\"a\nb\" is no valid table name"}};
    for (const auto& [command, args, reason] : refusals) expectRefused(command, args, command + std::string(": ") + reason);
    krvRegisterCommandBody("Invert", nullptr);  // the next suite start gives it back
    expectRefused("Invert", io({}), "Invert: not available");
}

TEST_F(CommandRunTest, ClientStopThroughTheFlushHookStoresNothing) {
    CKrvSettingDoc::getInstance().setProgress(1);
    CDatImg* volume = store->AddImg(CKrvString("volume"), 8, 8, 6, KrvVoxelType::Float32);
    ASSERT_NE(volume, nullptr);
    ASSERT_TRUE(krvRunCommand("Median", {{"input", "volume"}, {"output", "smooth"}}));
    EXPECT_EQ(g_progress.front(), "Median 1/6");
    EXPECT_EQ(g_progress.back(), "Median 6/6");
    EXPECT_EQ(g_flushes, 6);

    const std::vector<CKrvString> before = images();
    g_keepGoing = false;
    g_progress.clear();
    EXPECT_FALSE(krvRunCommand("Median", {{"input", "volume"}, {"output", "again"}}));
    EXPECT_EQ(g_progress, std::vector<std::string>{"Median 1/6"});  // stopped at the first step
    EXPECT_FALSE(krvRunCommand("Histogram", {{"input", "volume"}}));
    EXPECT_EQ(images(), before);
    EXPECT_EQ(KrvResultTables::Find("Histogram"), nullptr);
    g_keepGoing = true;
    EXPECT_TRUE(krvRunCommand("Histogram", {{"input", "mask"}, {"bins", "2"}}));
    const KrvResultTable* table = KrvResultTables::Find("Histogram");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->measures, (std::vector<std::string>{"Low", "Count"}));
    EXPECT_EQ(table->columns[1], (std::vector<double>{384 - 72, 72}));
}

TEST_F(CommandRunTest, EveryImageCommandOfTheCatalogueRuns) {
    ASSERT_TRUE(krvRunCommand("Label", {{"input", "mask"}, {"output", "labels"}}));
    const KrvImage& labels = store->FindObj(CKrvString("labels"))->GetImage();
    EXPECT_EQ(labels.GetType(), KrvVoxelType::Int32);
    EXPECT_EQ(labels.GetVoxelSize().x, 0.5);  // the input's voxel size goes with it
    EXPECT_EQ(labels.At<std::int32_t>(5, 7), 1);
    EXPECT_EQ(labels.At<std::int32_t>(17, 7), 2);
    ASSERT_NE(CDatSegHandler::m_pInstance->AddSeg(CKrvString("lines")), nullptr);
    ASSERT_TRUE(krvRunCommand("HoughLines", {{"input", "mask"}, {"segment", "lines"}, {"threshold", "6"}}));
    EXPECT_GT(CDatSegHandler::m_pInstance->FindObj(CKrvString("lines"))->GetNbChains(), 0);

    // The client's objects for the commands that use them.
    ASSERT_TRUE(createFilter("f", "I1 * 2"));
    ASSERT_TRUE(createLut("p", std::vector<int>(256, 7)));
    std::vector<int> morpho(512);
    for (int index = 0; index < 512; ++index) morpho[static_cast<std::size_t>(index)] = (index >> 4) & 1;  // identity
    ASSERT_TRUE(createMorphoLut("m", morpho.data(), 512, 1, 0));
    addMsrGrp("g");
    ASSERT_TRUE(addMsrToMsrGrp("g", "Area"));
    ASSERT_TRUE(createSieve("s", {10.0f}));

    int ran = 0;
    for (const std::string& name : getCmdNameColl()) {
        SCOPED_TRACE(name);
        Args args;
        for (const CProCmdParam& p : getCmdInfo(name)->GetParams()) {
            const std::string param = p.name;
            if (param == "output") args.push_back({param, name + "Out"});
            else if (param == "input") args.push_back({param, name == "Threshold" || name == "AutoThreshold" ? "grey" : "mask"});
            else if (param == "lut") args.push_back({param, name == "MorphoLut" ? "m" : "p"});
            else if (kObjectFor.count(param)) args.push_back({param, kObjectFor.at(param)});
        }
        EXPECT_TRUE(krvRunCommand(name, args));
        if (!kNoImageOut.count(name)) {
            const CDatImg* made = store->FindObj(CKrvString(name + "Out"));
            ASSERT_NE(made, nullptr);
            EXPECT_FALSE(made->GetImage().IsEmpty());
        }
        ++ran;
    }
    EXPECT_EQ(ran, 35);  // every command of the catalogue
    EXPECT_EQ(KrvResultTables::Find("Results")->columns[1], (std::vector<double>{9, 9}));  // 6 x 6 pixels of 0.5 x 0.5
    EXPECT_EQ(KrvResultTables::Find("ClassesCounts")->columns[3], (std::vector<double>{2, 0}));
    EXPECT_EQ(store->FindObj(CKrvString("ApplyLutOut"))->GetImage().At<std::uint8_t>(0, 0), 7);
    EXPECT_EQ(store->FindObj(CKrvString("UserFilterOut"))->GetImage().At<float>(5, 7), 400.0f);
    const KrvImage& rotated = store->FindObj(CKrvString("Rotate90Out"))->GetImage();
    EXPECT_EQ(rotated.GetSizeX(), 16);
    EXPECT_EQ(store->FindObj(CKrvString("ResampleOut"))->GetImage().GetVoxelSize().x, 1.0);
    EXPECT_EQ(store->FindObj(CKrvString("DistanceTransformOut"))->GetImage().GetType(), KrvVoxelType::Float32);
    EXPECT_EQ(store->FindObj(CKrvString("AddOut"))->GetImage().At<std::uint8_t>(5, 7), 255);  // 200 + 200, saturated
}

}  // namespace

TEST(CommandRunStoppedTest, RefusedWhileTheSuiteIsStopped) {
    auto log = kapitest::LogCapture::install();
    EXPECT_EQ(kapitest::refusal([] { krvRunCommand("Median", {{"input", "grey"}, {"output", "o"}}); }),
              "Median: the suite is not started");
    ASSERT_EQ(log->find("the suite is not started").size(), 1u);
    EXPECT_EQ(log->find("the suite is not started")[0].level, KrvLoggerLevel::Error);
    log->uninstall();
}
