// User measures, measure parameters and Feret 3-D directions over the stand-alone suite, with
// every failure answer of the host produced through its fault points.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_data/CDatAnlHandler.h>
#include <vantry_process/MeasureInfo.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvFault.h>
#include <vantry_zel/SphereSampling.h>

#include "support/TestSupport.h"

using Level = KrvLoggerLevel;
using Names = std::vector<std::string>;
using KrvFault::Answer;

namespace {

class Measures : public kapitest::AfterStartUpTest {
protected:
    static CDatUsrMeasure* user(const std::string& name) { return CDatAnlHandler::m_pInstance->GetUsrMsr(name); }
};

TEST_F(Measures, UnitDimensionsAreStoredAsFiveLessTheValueAndInvalidOnesGoOnAsZero) {
    const struct {
        int value;
        int stored;
        bool reported;
    } cases[] = {{0, 5, false}, {5, 0, false}, {7, -2, false}, {8, 0, true}, {-1, 0, true}};
    int n = 0;
    for (const auto& c : cases) {
        const std::string name = "M" + std::to_string(n++);
        ASSERT_TRUE(createUsrMsrByFormula(name, "Area * 2", static_cast<eMsrUnitDim>(c.value))) << c.value;
        EXPECT_EQ(user(name)->m_unitDim, c.stored) << c.value;
        const auto found = log->find("Error, invalid user measure unit dimension value for measure " + name);
        EXPECT_EQ(found.size(), c.reported ? 1u : 0u) << c.value;
    }
    ASSERT_TRUE(createUsrMsrByIPFunction("Ip", "Compactness", static_cast<eMsrUnitDim>(9)));
    expectLine(Level::Error, "Error, invalid user measure unit dimension value for measure Ip");
}

TEST_F(Measures, FormulasAreCheckedFirstThenNamedThenCompiledAndUndone) {
    // The static check comes before the name: even an invalid name gets the formula message.
    EXPECT_FALSE(createUsrMsrByFormula("", "Area +", eMsrUnitDim5));
    expectLine(Level::Error, "Invalid user measure formula Area + for user measure ");
    EXPECT_EQ(KrvFault::calls("CDatAnlHandler::AddUsrMsr"), 0u);

    // Passes the syntax check, refused by the compile (unknown measure, itself): one Error, removed.
    for (const char* formula : {"Area + Nothing", "Self * 2"}) {
        log->clear();
        EXPECT_FALSE(createUsrMsrByFormula("Self", formula, eMsrUnitDim5));
        EXPECT_EQ(log->find(std::string("Invalid user measure formula ") + formula + " for user measure Self").size(), 1u);
        EXPECT_EQ(user("Self"), nullptr);
    }

    // A formula over a native and a user measure, evaluated by the suite.
    ASSERT_TRUE(createUsrMsrByFormula("Double", "Area * 2", eMsrUnitDim3));
    ASSERT_TRUE(createUsrMsrByFormula("Mixed", "Double + sqrt(Perimeter) ^ 2", eMsrUnitDim3));
    const auto values = [](const std::string& name) { return name == "Double" ? 10.0 : 9.0; };
    EXPECT_DOUBLE_EQ(user("Mixed")->evaluate(values), 19.0);
    EXPECT_EQ(getUsrMsrFormula("Mixed"), "Double + sqrt(Perimeter) ^ 2");
}

TEST_F(Measures, IpFunctionsComeFromTheCatalogue) {
    EXPECT_FALSE(createUsrMsrByIPFunction("F", "NoSuchFunction", eMsrUnitDim5));
    EXPECT_EQ(user("F"), nullptr);
    EXPECT_EQ(log->find("Invalid user measure Ip function NoSuchFunction for user measure F").size(), 1u);

    for (const KrvIpFunction& function : krvIpFunctions()) {
        EXPECT_TRUE(CDatUsrMeasure::checkIpFunction(function.name)) << function.name;
        EXPECT_NE(std::string(function.description), "");
    }
    ASSERT_TRUE(createUsrMsrByIPFunction("F", "MeanIntensity", eMsrUnitDim5));
    log->clear();
    EXPECT_EQ(getUsrMsrFormula("F"), "MeanIntensity");
    expectLine(Level::Debug, "IpFunction = MeanIntensity");

    // The undo itself fails: the half-made measure stays, a Warn says so.
    KrvFault::arm("CDatUsrMeasure::initUsrFormula", Answer::Zero);
    KrvFault::arm("CDatAnlHandler::RemoveUsrMsr", Answer::Zero);
    EXPECT_FALSE(createUsrMsrByFormula("A", "Area", eMsrUnitDim5));
    expectLine(Level::Warn, "Can't remove user measure A");
    EXPECT_NE(user("A"), nullptr);
}

TEST_F(Measures, ReservedMeasuresAreHiddenAndSurviveRemoveAll) {
    ASSERT_TRUE(createUsrMsrByFormula("classid", "Area", eMsrUnitDim5));
    ASSERT_TRUE(createUsrMsrByFormula("ValidateMore", "Area", eMsrUnitDim5));
    log->clear();
    EXPECT_EQ(getUsrMsrList(), (Names{"classid", "ValidateMore"}));
    EXPECT_TRUE(log->find("ClassId").empty());

    removeAllUsrMsr();
    EXPECT_EQ(log->find("Retrieving user measure list :").size(), 2u);
    EXPECT_EQ(log->find("Removing user measure classid").size(), 1u);
    EXPECT_TRUE(getUsrMsrList().empty());
    std::vector<CKrvString> all;
    CDatAnlHandler::m_pInstance->GetUsrMsrList(all);
    EXPECT_EQ(all.size(), 5u);
    removeUsrMsr("ClassId");
    EXPECT_EQ(user("ClassId"), nullptr);
}

TEST_F(Measures, ParametersOfNativeMeasures) {
    EXPECT_EQ(getNatMsrList().size(), 20u);
    MeasureInfo info;
    ASSERT_TRUE(getMsrInfo("Length3d", info));
    EXPECT_EQ(info.dimension, 3);
    EXPECT_EQ(info.nbParams, 26);
    EXPECT_FALSE(getMsrInfo("Nothing", info));

    // No parameters: an empty vector and no complaint.
    log->clear();
    EXPECT_TRUE(getMsrParams("Area").empty());
    for (const auto& l : log->lines()) EXPECT_LT(l.level, Level::Warn) << l.message;

    const std::vector<float> angles{0.f, 45.f, 90.f, 180.f};
    EXPECT_TRUE(setMsrParams("FeretMax", angles));
    log->clear();
    EXPECT_EQ(getMsrParams("FeretMax"), angles);
    expectLine(Level::Debug, "180");

    EXPECT_FALSE(setMsrParams("FeretMax", {200.f}));
    EXPECT_FALSE(setMsrParams("FeretMax", {}));  // the suite decides: a count of 0 is refused
    KrvFault::arm("IpIndSetMsrInfo", Answer::Zero);
    EXPECT_TRUE(setMsrParams("FeretMax", {}));  // ... or accepts it
    EXPECT_EQ(getMsrParams("FeretMax"), angles);

    // "Length3d": an even, non-zero count of finite values, polar angles 0-90, then azimuths 0-360.
    const float nan = std::nanf("");
    for (const std::vector<float>& refused : std::vector<std::vector<float>>{
             {10.f, 20.f, 30.f}, {91.f, 0.f}, {-1.f, 0.f}, {45.f, 361.f}, {nan, 0.f}, {45.f, INFINITY}})
        EXPECT_FALSE(setMsrParams("Length3d", refused)) << refused.size() << " " << refused[0] << " " << refused[1];
    EXPECT_TRUE(setMsrParams("Length3d", {90.f, 0.f, 360.f, 0.f}));
}

TEST_F(Measures, OddAnswersOfTheParameterBlock) {
    // Values counted but no array.
    KrvFault::arm("IpIndGetMsrInfo", Answer::Custom, 1, 1, 1);
    EXPECT_TRUE(getMsrParams("Length3d").empty());
    expectLine(Level::Error, "Internal error, measure info size mismatch with pointer value for measure Length3d");

    // An array with a count of 0 or -1: empty, no Error, no value line.
    for (const long long odd : {2LL, 3LL}) {
        log->clear();
        KrvFault::arm("IpIndGetMsrInfo", Answer::Custom, 1, 1, odd);
        EXPECT_TRUE(getMsrParams("Length3d").empty());
        EXPECT_EQ(log->lines().size(), 1u) << odd;
    }
    // Every array the suite hands over is released, whatever the count beside it: the heap does
    // not grow over many reads and writes.
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Off));
    for (const long long odd : {0LL, 2LL, 3LL}) {
        const auto readAndWrite = [odd] {
            KrvFault::arm("IpIndGetMsrInfo", Answer::Custom, 1, 2, odd);
            getMsrParams("Length3d");
            setMsrParams("Length3d", {});
        };
        readAndWrite();
        const std::size_t before = kapitest::heapInUse();
        for (int i = 0; i < 1000; ++i) readAndWrite();
        EXPECT_LT(kapitest::heapInUse(), before + 4096) << odd;
    }
    getKorvaneAPILogger().setLogLevel(static_cast<int>(Level::Debug));
    EXPECT_TRUE(setFeret3dMsrParams(4));
    EXPECT_EQ(getMsrParams("Length3d").size(), 8u);
}

TEST_F(Measures, FeretAnglesPolarBlockFirstInDegrees) {
    for (int n : {0, -5}) {
        log->clear();
        try {
            getUniformFeret3dAngles(n);
            FAIL() << n;
        } catch (const KorvaneAPIException& e) {
            EXPECT_STREQ(e.what(), "Number of angles for Feret3d measures must be strictly positive");
        }
        expectLine(Level::Error, "Number of angles for Feret3d measures must be strictly positive");
    }
    EXPECT_THROW(setFeret3dMsrParams(0), KorvaneAPIException);
    EXPECT_EQ(KrvFault::calls("IpIndSetMsrInfo"), 0u);

    KrvFault::arm("IpSampleHalfSphereAngle", Answer::Custom, 1, 1, 1);
    EXPECT_EQ(getUniformFeret3dAngles(3), (std::vector<float>{90.f, 90.f, 90.f, 0.f, 0.f, 0.f}));
    KrvFault::arm("IpSampleHalfSphereAngle", Answer::Custom, 1, 1, 2);
    EXPECT_EQ(getUniformFeret3dAngles(1), (std::vector<float>{180.f, 180.f}));

    KrvFault::arm("SphereSampling::run", Answer::Custom, 1, 1, 7);
    EXPECT_EQ(getUniformFeret3dAngles(500).size(), 14u);
    KrvFault::arm("SphereSampling::run", Answer::Custom, 1, 1, 0);
    EXPECT_TRUE(getUniformFeret3dAngles(500).empty());
}

// Each sampler's radians in degrees (widened to double, times 180, over pi, narrowed), the polar
// block first: the small sampler up to 100 directions, the large one from 101.
TEST_F(Measures, FeretAnglesAreTheSamplersRadiansInDegrees) {
    const auto degrees = [](float radians) { return static_cast<float>(static_cast<double>(radians) * 180.0 / M_PI); };
    for (const int n : {7, 100, 101}) {
        std::vector<float> azimuths(static_cast<std::size_t>(n)), polars(azimuths.size());
        if (n <= 100) {
            ASSERT_EQ(IpSampleHalfSphereAngle(n, azimuths.data(), polars.data()), 0);
        } else {
            zel::container::Vector<zel::math::Vector2<double>> directions;
            const auto sampler = zel::geometry::SphereSampling::New(nullptr);
            sampler->directionCount = static_cast<unsigned int>(n);
            sampler->method = 1;
            sampler->output = &directions;
            sampler->run(nullptr);
            for (std::size_t i = 0; i < directions.size(); ++i) {
                azimuths[i] = static_cast<float>(directions[i][0]);
                polars[i] = static_cast<float>(directions[i][1]);
            }
        }
        std::vector<float> expected;
        for (const float polar : polars) expected.push_back(degrees(polar));
        for (const float azimuth : azimuths) expected.push_back(degrees(azimuth));
        KrvFault::reset();
        EXPECT_EQ(getUniformFeret3dAngles(n), expected) << n;
        EXPECT_EQ(KrvFault::calls("IpSampleHalfSphereAngle"), n <= 100 ? 1u : 0u) << n;
        EXPECT_EQ(KrvFault::calls("SphereSampling::run"), n <= 100 ? 0u : 1u) << n;
    }
}

std::vector<std::string> g_progress;
TEST_F(Measures, LargeCountsReportProgressThroughTheHookTable) {
    g_progress.clear();
    KrvExternalFunction::getInstance().setProgressMsgFunction([](const char* text) { g_progress.emplace_back(text); });
    EXPECT_EQ(getUniformFeret3dAngles(200000).size(), 400000u);
    KrvExternalFunction::getInstance().setProgressMsgFunction(nullptr);
    ASSERT_FALSE(g_progress.empty());
    EXPECT_EQ(g_progress.back(), "Sampling directions 200000/200000");
    g_progress.clear();
    getUniformFeret3dAngles(1000);
    EXPECT_TRUE(g_progress.empty());
}

}  // namespace
