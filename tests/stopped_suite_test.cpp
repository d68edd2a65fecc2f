// Calls outside initKorvaneAPI ... endKorvaneAPI: outside the contract, and the library does not
// check them; the stand-alone suite answers from its stopped state instead, so that every exported
// function returns (null, 0, empty) and the suite's log says "the suite is not started".
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatService.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/EveryCall.h"
#include "support/EveryFamily.h"
#include "support/TestSupport.h"

namespace {

const char* const kNotStarted = "the suite is not started";

// The calls the fault loop makes, and those outside its loop, with their results when stopped.
std::vector<kapitest::Call> everyFunction() {
    std::vector<kapitest::Call> all = kapitest::calls();
    all.insert(all.end(), {
        {"getCmdNameColl", [] { return kapitest::text(getCmdNameColl().empty()); }, "false", 0},
        {"setExtraMemUsage", [] { return setExtraMemUsage(1 << 20), std::to_string(getExtraMemUsage()); }, "1048576", 0},
        {"getUniformFeret3dAngles", [] { return std::to_string(getUniformFeret3dAngles(150).size()); }, "300", 0},
        {"getKorvaneAPILogger", [] { return getKorvaneAPILogger().getName(); }, "Korvane.KorvaneAPI", 0},
        {"endKorvaneAPI", [] { return endKorvaneAPI(), std::string(); }, "", 0},
    });
    return all;
}

class StoppedSuiteTest : public ::testing::Test {
protected:
    void SetUp() override { log = kapitest::LogCapture::install(); }
    void TearDown() override { log->uninstall(); }

    // Each call returns its documented plain answer, and the suite logs one refusal per handler
    // operation, from its one place.
    void expectEveryCallRefused(const char* when) {
        const int line = kapitest::sourceLine("host/vantry_util/src/CKrvHandler.cpp", std::string("\"") + kNotStarted);
        for (const kapitest::Call& call : everyFunction()) {
            log->clear();
            const std::string result = call.run();
            if (call.stopped) { EXPECT_EQ(result, call.stopped) << call.name << " " << when; }
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
