// Calls outside initKorvaneAPI ... endKorvaneAPI: outside the contract, and the library does not
// check them; the stand-alone suite answers from its stopped state instead, so that every exported
// function returns (null, 0, empty) and the suite's log says "the suite is not started".
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatService.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/EveryFamily.h"
#include "support/TestSupport.h"

namespace {

const char* const kNotStarted = "the suite is not started";

std::string shown(bool value) { return value ? "true" : "false"; }
std::string shown(int value) { return std::to_string(value); }
std::string shown(const std::string& text) { return "\"" + text + "\""; }
template <class T>
std::string shown(const std::vector<T>& values) {
    return "size " + std::to_string(values.size());
}

struct Call {
    const char* name;
    std::function<std::string()> run;
    std::string expected;
    int refusals;  // the suite's "not started" lines the call causes
};

// Every exported function once, on the names tests/support/EveryFamily.h makes for cycle 0.
std::vector<Call> everyFunction() {
    static const int morpho[] = {0, 1, 1, 0};
    return {
        {"createFilter", [] { return shown(createFilter("filter0", "I1*2")); }, "false", 1},
        {"getFilterFormula", [] { return shown(getFilterFormula("filter0")); }, "\"\"", 1},
        {"removeFilter", [] { removeFilter("filter0"); return std::string(); }, "", 1},
        {"removeAllFilters", [] { removeAllFilters(); return std::string(); }, "", 1},
        {"isValidImageFormula", [] { return shown(isValidImageFormula("I1 + X")); }, "true", 0},
        {"getFilterList", [] { return shown(getFilterList()); }, "size 0", 1},
        {"createLut", [] { return shown(createLut("lut0", {1, 2, 3})); }, "false", 1},
        {"getLutValues", [] { return shown(getLutValues("lut0")); }, "size 0", 1},
        {"removeLut", [] { removeLut("lut0"); return std::string(); }, "", 1},
        {"getLutList", [] { return shown(getLutList()); }, "size 0", 1},
        {"createMorphoLut", [] { return shown(createMorphoLut("morpho0", morpho, 4, 1, 2)); }, "false", 1},
        {"getMorphoLutDataPtr",
         [] {
             static int sentinel = 0;
             int* values = &sentinel;
             int size = 7;
             const bool found = getMorphoLutDataPtr("morpho0", values, size);
             return shown(found) + " " + shown(size) + " " + shown(values == nullptr);
         },
         "false 0 true", 1},
        {"getMorphoLutFlags",
         [] {
             int flag1 = 5, flag2 = 5;
             const bool found = getMorphoLutFlags("morpho0", flag1, flag2);
             return shown(found) + " " + shown(flag1) + " " + shown(flag2);
         },
         "false -1 -1", 1},
        {"setMorphoLutFlags", [] { return shown(setMorphoLutFlags("morpho0", 1, 2)); }, "false", 1},
        {"removeMorphoLut", [] { return shown(removeMorphoLut("morpho0")); }, "true", 1},
        {"getMorphoLutList", [] { return shown(getMorphoLutList()); }, "size 0", 1},
        {"createSieve", [] { return shown(createSieve("sieve0", {0.5f})); }, "false", 1},
        {"getSieveParams", [] { return shown(getSieveParams("sieve0")); }, "size 0", 1},
        {"removeSieve", [] { removeSieve("sieve0"); return std::string(); }, "", 1},
        {"getSieveList", [] { return shown(getSieveList()); }, "size 0", 1},
        {"createSegment", [] { return shown(createSegment("segment0")); }, "false", 1},
        {"getNbChain", [] { return shown(getNbChain("segment0")); }, "-1", 1},
        {"getNbItems", [] { return shown(getNbItems("segment0", 0)); }, "-1", 1},
        {"getSegment",
         [] {
             float x1 = 0, y1 = 0, x2 = 0, y2 = 0;
             return shown(getSegment("segment0", 0, 0, x1, y1, x2, y2));
         },
         "false", 1},
        {"removeSegment", [] { return shown(removeSegment("segment0")); }, "false", 1},
        {"getSegmentList", [] { return shown(getSegmentList()); }, "size 0", 1},
        // The command table is the process library's constant data; a command object needs the
        // process service, which is not there.
        {"getCmdNameColl", [] { return shown(getCmdNameColl().empty()); }, "false", 0},
        {"getCmdInfo", [] { return shown(getCmdInfo("Median") == nullptr); }, "true", 0},
        {"addMsrGrp", [] { addMsrGrp("group0"); return std::string(); }, "", 1},
        {"addMsrToMsrGrp", [] { return shown(addMsrToMsrGrp("group0", "Area")); }, "false", 2},
        {"removeMsrFromMsrGrp", [] { removeMsrFromMsrGrp("group0", "Area"); return std::string(); }, "", 1},
        {"removeMsrGrp", [] { removeMsrGrp("group0"); return std::string(); }, "", 1},
        {"removeAllMsrGrp", [] { removeAllMsrGrp(); return std::string(); }, "", 1},
        {"getMsrGrpList", [] { return shown(getMsrGrpList()); }, "size 0", 1},
        {"getMsrGrpMsrList", [] { return shown(getMsrGrpMsrList("group0")); }, "size 0", 1},
        {"createUsrMsrByFormula", [] { return shown(createUsrMsrByFormula("measure0", "Area*2", eMsrUnitDim5)); },
         "false", 1},
        {"createUsrMsrByIPFunction",
         [] { return shown(createUsrMsrByIPFunction("measure0", "ConvexArea", eMsrUnitDim2)); }, "false", 1},
        {"getUsrMsrFormula", [] { return shown(getUsrMsrFormula("measure0")); }, "\"\"", 1},
        {"getUsrMsrList", [] { return shown(getUsrMsrList()); }, "size 0", 1},
        {"removeUsrMsr", [] { removeUsrMsr("measure0"); return std::string(); }, "", 1},
        {"removeAllUsrMsr", [] { removeAllUsrMsr(); return std::string(); }, "", 1},
        {"getMsrInfo",
         [] {
             MeasureInfo info;
             info.name = "untouched";
             return shown(getMsrInfo("Area", info)) + " " + info.name;
         },
         "false untouched", 1},
        {"getMsrParams", [] { return shown(getMsrParams("Length3d")); }, "size 0", 2},
        {"setMsrParams", [] { return shown(setMsrParams("Length3d", {45.f, 90.f})); }, "false", 2},
        {"getNatMsrList", [] { return shown(getNatMsrList()); }, "size 0", 1},
        {"getUniformFeret3dAngles", [] { return shown(getUniformFeret3dAngles(12)) + " " +
                                                shown(getUniformFeret3dAngles(150)); },
         "size 24 size 300", 0},
        {"setFeret3dMsrParams", [] { return shown(setFeret3dMsrParams(8)); }, "false", 2},
        {"getExtraMemUsage", [] { return shown(getExtraMemUsage() >= 0); }, "true", 0},
        {"setExtraMemUsage", [] { setExtraMemUsage(1 << 20); return shown(getExtraMemUsage()); }, "1048576", 0},
        {"setFlushEventsCB", [] { setFlushEventsCB(&kapitest::progressIgnored); return std::string(); }, "", 0},
        {"setProgressMsgCB", [] { setProgressMsgCB(&kapitest::messageIgnored); return std::string(); }, "", 0},
        {"setProgressRatioCB", [] { setProgressRatioCB(&kapitest::ratioIgnored); return std::string(); }, "", 0},
        {"getKorvaneAPILogger", [] { return getKorvaneAPILogger().getName(); }, "Korvane.KorvaneAPI", 0},
        {"endKorvaneAPI", [] { endKorvaneAPI(); return std::string(); }, "", 0},
    };
}

class StoppedSuiteTest : public ::testing::Test {
protected:
    void SetUp() override { log = kapitest::LogCapture::install(); }
    void TearDown() override { log->uninstall(); }

    // Each call returns its documented plain answer, and the suite logs one refusal per handler
    // operation, from its one place.
    void expectEveryCallRefused(const char* when) {
        const int line = kapitest::sourceLine("host/vantry_util/src/CKrvHandler.cpp", std::string("\"") + kNotStarted);
        for (const Call& call : everyFunction()) {
            log->clear();
            EXPECT_EQ(call.run(), call.expected) << call.name << " " << when;
            const std::vector<kapitest::LogLine> refusals = log->find(kNotStarted);
            EXPECT_EQ(static_cast<int>(refusals.size()), call.refusals) << call.name << " " << when;
            for (const kapitest::LogLine& refusal : refusals) {
                EXPECT_EQ(refusal.level, KrvLoggerLevel::Error) << call.name;
                EXPECT_EQ(refusal.logger, "Korvane") << call.name;
                EXPECT_NE(refusal.file.find("host/vantry_util/src/CKrvHandler.cpp"), std::string::npos) << call.name;
                EXPECT_EQ(refusal.line, line) << call.name;
            }
        }
    }

    std::shared_ptr<kapitest::LogCapture> log;
};

TEST_F(StoppedSuiteTest, EveryFunctionBeforeStartAndAfterEndAnswersEmpty) {
    expectEveryCallRefused("before the start");

    const std::string folder = kapitest::makeSettingsFolder();
    initKorvaneAPI(folder.c_str());
    ASSERT_TRUE(kapitest::makeOneOfEach(0));
    log->clear();
    EXPECT_EQ(getFilterFormula("filter0"), "I1*2+X");
    EXPECT_TRUE(log->find(kNotStarted).empty());
    endKorvaneAPI();
    kapitest::removeFolder(folder);

    expectEveryCallRefused("after the end");
}

// The parameter blocks live in the access layer: closed, it neither hands them out nor takes new
// values, so a value set before the start can't outlive it.
TEST_F(StoppedSuiteTest, ClosedAccessLayerRefusesParameterBlocks) {
    MsrInfo info{};
    info.nbParams = 2;
    float values[] = {45.f, 90.f};
    EXPECT_NE(IpIndSetMsrInfo("Length3d", &info, values), 0);
    float* current = nullptr;
    EXPECT_NE(IpIndGetMsrInfo("Length3d", &info, &current, nullptr), 0);
    EXPECT_EQ(current, nullptr);
    EXPECT_EQ(log->find(kNotStarted).size(), 2u);

    initKorvaneAPI(nullptr);
    EXPECT_NE(getMsrParams("Length3d"), std::vector<float>({45.f, 90.f}));
    EXPECT_EQ(IpIndSetMsrInfo("Length3d", &info, values), 0);
    EXPECT_EQ(getMsrParams("Length3d"), std::vector<float>({45.f, 90.f}));
    endKorvaneAPI();
    EXPECT_NE(IpIndSetMsrInfo("Length3d", &info, values), 0);
    EXPECT_EQ(log->find(kNotStarted).size(), 3u);
}

// The image store answers from its stopped state too: nothing made, found, listed or removed, no
// budget taken, an image handed in left with the caller, one refusal line per operation; the data
// service's file operations refuse the same way once it is closed.
TEST_F(StoppedSuiteTest, ImageStoreBeforeStartAndAfterEndRefuses) {
    const auto expectRefused = [this](const char* when) {
        CDatImgHandler* store = CDatImgHandler::m_pInstance;
        KrvImage image;
        ASSERT_TRUE(image.Allocate(2, 2, 1, KrvVoxelType::UInt8));
        const std::uint64_t used = KrvMemoryBudget::used();
        log->clear();
        EXPECT_EQ(store->AddImg("i", 4, 4, 1, KrvVoxelType::Float32), nullptr) << when;
        EXPECT_EQ(store->AddImg("i", std::move(image)), nullptr) << when;
        EXPECT_FALSE(image.IsEmpty()) << when;
        EXPECT_EQ(store->FindObj("i"), nullptr) << when;
        EXPECT_EQ(store->RemoveImg("i"), 0) << when;
        EXPECT_EQ(store->RemoveAll(), 0) << when;
        std::vector<CKrvString> names;
        store->GetObjList(names);
        EXPECT_TRUE(names.empty()) << when;
        EXPECT_EQ(KrvMemoryBudget::used(), used) << when;
        EXPECT_EQ(log->find(kNotStarted).size(), 6u) << when;
    };
    expectRefused("before the start");

    initKorvaneAPI(nullptr);
    CDatImgHandler* running = CDatImgHandler::m_pInstance;
    ASSERT_NE(running->AddImg("i", 4, 4, 1, KrvVoxelType::UInt8), nullptr);
    auto* service = static_cast<CDatService*>(CService::Get(eServiceData));
    const std::string file = testing::TempDir() + "stopped_store.tif";
    ASSERT_TRUE(service->SaveImage("i", file));
    service->CloseService();
    EXPECT_NE(CDatImgHandler::m_pInstance, running);
    log->clear();
    EXPECT_FALSE(service->LoadImageA(file, "j"));
    EXPECT_FALSE(service->SaveImage("i", file + ".again"));
    EXPECT_EQ(log->find(kNotStarted).size(), 2u);
    EXPECT_EQ(log->lines().size(), 2u);
    EXPECT_TRUE(std::ifstream(file + ".again").fail());
    expectRefused("after the service closed");
    endKorvaneAPI();
    std::remove(file.c_str());

    expectRefused("after the end");
}

// The suite's string made from a null pointer is empty, so a host operation given one refuses it.
TEST(StoppedSuiteStringTest, NullTextMakesAnEmptyString) {
    const CKrvString fromNull(static_cast<const char*>(nullptr));
    EXPECT_TRUE(fromNull.empty());
    EXPECT_STREQ(fromNull.c_str(), "");
}

}  // namespace
