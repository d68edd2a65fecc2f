// Measurement of labelled objects: exact values of synthetic shapes, scikit-image's regionprops
// on real and generated images, measure groups with user measures, delivery to the client's
// targets through the library's proxy, sieve classes and the Measure command's body.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Covering.h>
#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_access_korlib/KrvMeasureObjects.h>
#include <vantry_data/CDatAnlHandler.h>
#include <vantry_data/CDatTami.h>
#include <vantry_data/DictionaryPrivate.h>
#include <vantry_data/KrvImage.h>
#include <vantry_process/KrvMeasure.h>
#include <vantry_process/KrvMeasureCommands.h>
#include <vantry_process/OrlanSpreadsheet.h>
#include <vantry_util/KrvBaseException.h>

#include "support/TestSupport.h"
#include "support/Voxels.h"

using kapitest::refusal;
using Grid = kapitest::Voxels<std::int32_t>;
using Grey = kapitest::Voxels<float>;

namespace {

constexpr double kPi = 3.14159265358979323846;

// One column of a measurement by name.
const std::vector<double>& column(const KrvObjectMeasures& m, const std::string& name) {
    for (const KrvMeasuredColumn& c : m.columns)
        if (c.name == name) return c.values;
    throw std::runtime_error("no column " + name);
}

KrvMeasureParameters planeParams(std::vector<double> angles) {
    KrvMeasureParameters p;
    p.feretMaxAngles = p.feretMinAngles = std::move(angles);
    p.percentiles = {0, 25, 100};
    return p;
}

// The directions of the small-count sampler, as measure parameters.
KrvMeasureParameters sampledDirections(int count, KrvMeasureParameters params = {}) {
    std::vector<float> azimuth(count), polar(count);
    EXPECT_EQ(IpSampleHalfSphereAngle(count, azimuth.data(), polar.data()), 0);
    for (int i = 0; i < count; ++i)
        params.directions.push_back(krvDirectionFromDegrees(polar[i] * 180 / kPi, azimuth[i] * 180 / kPi));
    return params;
}

struct Expected {
    const char* measure;
    int object;
    double value;
};

void expectValues(const KrvObjectMeasures& m, const std::vector<Expected>& all) {
    for (const Expected& e : all)
        EXPECT_NEAR(column(m, e.measure)[e.object], e.value, 1e-12 * std::max(1.0, std::abs(e.value))) << e.measure;
}

// A 7 x 4 box of pixels 0.5 x 2 and, beside it, a 6 x 6 square ring (one hole); both exact.
TEST(MeasureObjectsTest, PlaneBoxesAndRingsHaveTheirExactValues) {
    Grid g(20, 12, 1, {0.5, 2.0, 3.0});
    Grey grey(20, 12);
    for (int y = 2; y < 6; ++y)
        for (int x = 1; x < 8; ++x) g.at(x, y) = 5, grey.at(x, y) = float(x + 10 * y);
    for (int y = 4; y < 10; ++y)
        for (int x = 12; x < 18; ++x) g.at(x, y) = (x == 12 || x == 17 || y == 4 || y == 9) ? 9 : 0;
    const KrvVoxelView greyView = grey.view();
    const KrvObjectMeasures m = krvMeasureObjects(
        g.view(), &greyView,
        {"Area", "EqDiameter", "CentroidX", "CentroidY", "BoundingBoxDx", "BoundingBoxDy", "ConvexPerimeter",
         "ConvexArea", "Elongation", "FeretMax", "FeretMin", "EulerNumber", "HoleCount", "Volume3d", "CentroidZ",
         "BoundingBoxDz", "MeanIntensity", "MinIntensity", "MaxIntensity", "IntegratedIntensity", "StdDevIntensity",
         "IntensityPercentile", "Elongation3d", "ClassifierClass", "SkeletonLength"},
        planeParams({0, 45, 90}));
    ASSERT_EQ(m.labels, (std::vector<std::int32_t>{5, 9}));
    const double w = 3.5, h = 8.0;  // the box, physical
    // FeretMax: 45 degrees is the longest of three. The hole is inside the ring's hull. A plane is
    // one voxel thick. Grey x + 10 y over x 1..7, y 2..5: mean 4 + 35, extremes 21 and 57, spread
    // sqrt(4 + 125), percentile 25 at rank 6.75 of the sorted 28. A box's axes: its sides over
    // sqrt(12). A one-pixel ring is its own skeleton.
    expectValues(m, {{"Area", 0, w * h}, {"Area", 1, 20}, {"EqDiameter", 0, std::sqrt(4 * w * h / kPi)},
                     {"CentroidX", 0, 2}, {"CentroidY", 0, 7}, {"CentroidY", 1, 13}, {"BoundingBoxDx", 0, w},
                     {"BoundingBoxDy", 1, 12}, {"ConvexPerimeter", 0, 2 * (w + h)}, {"ConvexArea", 1, 36},
                     {"Elongation", 0, std::hypot(w, h) / w}, {"FeretMax", 0, (w + h) / std::sqrt(2.0)},
                     {"FeretMin", 0, w}, {"EulerNumber", 0, 1}, {"EulerNumber", 1, 0}, {"HoleCount", 0, 0},
                     {"HoleCount", 1, 1}, {"Volume3d", 0, w * h * 3}, {"CentroidZ", 0, 0}, {"BoundingBoxDz", 0, 3},
                     {"MeanIntensity", 0, 39}, {"MinIntensity", 0, 21}, {"MaxIntensity", 0, 57},
                     {"IntegratedIntensity", 0, 39 * 28}, {"StdDevIntensity", 0, std::sqrt(129.0)},
                     {"IntensityPercentile0", 0, 21}, {"IntensityPercentile25", 0, 30}, {"IntensityPercentile100", 0, 57},
                     {"Elongation3d", 0, h / 3}, {"ClassifierClass", 0, 0}, {"SkeletonLength", 1, 10 * 0.5 + 10 * 2.0}});

    // A bar 31 x 5 thins to its middle row, shortened at most by its half width at either end.
    Grid bar(40, 9);
    bar.draw(1, [](double x, double y, double) { return x >= 3 && x <= 33 && y >= 2 && y <= 6; });
    const double skeleton = column(krvMeasureObjects(bar.view(), nullptr, {"SkeletonLength"}, {}), "SkeletonLength")[0];
    EXPECT_GE(skeleton, 30 - 2 * 2.5);
    EXPECT_LE(skeleton, 30);

    // The measures of plane shapes refuse a volume; intensities refuse a missing grey image.
    Grid volume(4, 4, 2);
    volume.at(1, 1, 1) = 1;
    const KrvVoxelView otherGrid{grey.voxels.data(), 10, 12, 1, KrvVoxelType::Float32, {}};
    EXPECT_THROW(krvMeasureObjects(volume.view(), nullptr, {"Perimeter"}, {}), KrvBaseException);
    EXPECT_THROW(krvMeasureObjects(g.view(), nullptr, {"MeanIntensity"}, {}), KrvBaseException);
    EXPECT_THROW(krvMeasureObjects(g.view(), nullptr, {"Girth"}, {}), KrvBaseException);
    EXPECT_THROW(krvMeasureObjects(greyView, nullptr, {"Area"}, {}), KrvBaseException);  // float labels
    EXPECT_THROW(krvMeasureObjects(g.view(), &otherGrid, {"MeanIntensity"}, {}), KrvBaseException);
    g.at(0, 0) = -2;
    EXPECT_EQ(refusal([&] { krvMeasureObjects(g.view(), nullptr, {"Area"}, {}); }),
              "Label images hold labels of 0 or more: voxel (0, 0, 0) holds -2");
}

// Crofton perimeters and surfaces, Elongation3d of ellipsoids: estimators, so within bounds of
// their accuracy on large discs and balls: digitisation changes a radius-18 ball's volume by well
// under 1%; the 4-direction Crofton perimeter of a radius-20 disc is 1.1% short, the 13-direction
// surface of a radius-18 ball 0.2 to 0.3% (measured; 1% leaves room for other centres).
TEST(MeasureObjectsTest, DiscsBallsAndEllipsoidsComeCloseToTheirContinuousValues) {
    // Each: the measure, the object, the ratio to the continuous value and how far off it may be.
    const auto expectRatios = [](Grid& g, const std::vector<std::tuple<const char*, int, double, double, double>>& all) {
        std::vector<std::string> names;
        for (const auto& one : all) names.push_back(std::get<0>(one));
        const KrvObjectMeasures m = krvMeasureObjects(g.view(), nullptr, names, planeParams({0}));
        for (const auto& [name, object, continuous, ratio, off] : all)
            EXPECT_NEAR(column(m, name)[object] / continuous, ratio, off) << name << " " << object;
        return m;
    };
    const auto disc = [](double x, double y, double) { return std::hypot(x - 30, y - 29.5) <= 20; };
    Grid round(60, 60), tall(60, 30, 1, {1.0, 2.0, 1.0});  // the same disc on pixels twice as high as wide
    expectRatios(round.draw(1, disc), {{"Perimeter", 0, 2 * kPi * 20, 1, 0.02}, {"Compactness", 0, 1, 1, 0.04},
                                       {"Roughness", 0, 1, 1, 0.03}});
    expectRatios(tall.draw(1, disc), {{"Perimeter", 0, 2 * kPi * 20, 1, 0.03}});
    // Bars along the axes tell the directions' shares apart (on the disc they average out): a
    // one-pixel bar's Crofton perimeter is 7 to 8% short (no line of its own direction meets it).
    Grid bars(42, 42, 1, {1.0, 2.0, 1.0});
    bars.draw(1, [](double x, double y, double) { return y == 0 && x < 40; });  // 40 x 2
    bars.draw(2, [](double x, double y, double) { return x == 41 && y >= 4; });  // 1 x 76
    expectRatios(bars, {{"Perimeter", 0, 2 * (40 + 2), 0.92, 0.03}, {"Perimeter", 1, 2 * (1 + 76), 0.92, 0.03}});

    // A ball, and the same ball drawn with voxels 1 x 1 x 2 keeps its volume and surface.
    const auto ball = [](double x, double y, double z) { return std::hypot(x - 24, y - 23.6, z - 24.3) <= 18; };
    const double volume = 4 * kPi * 18 * 18 * 18 / 3, surface = 4 * kPi * 18 * 18;
    Grid cubes(48, 48, 48), flat(48, 48, 24, {1.0, 1.0, 2.0}), ellipsoid(40, 30, 20);
    expectRatios(cubes.draw(1, ball), {{"Volume3d", 0, volume, 1, 0.01}, {"Area3d", 0, surface, 1, 0.01},
                                       {"Sphericity", 0, 1, 1, 0.01}, {"EqDiameter3d", 0, 36, 1, 0.2 / 36},
                                       {"Elongation3d", 0, 1, 1, 0.02}});
    expectRatios(flat.draw(1, ball), {{"Volume3d", 0, volume, 1, 0.01}, {"Area3d", 0, surface, 1, 0.01}});
    ellipsoid.draw(1, [](double x, double y, double z) {
        return std::pow((x - 20) / 15, 2) + std::pow((y - 15) / 9, 2) + std::pow((z - 10) / 6, 2) <= 1;
    });
    expectRatios(ellipsoid, {{"Elongation3d", 0, 15.0 / 6.0, 1, 0.05 / 2.5}});  // a solid ellipsoid's axes: a / sqrt(5)
}

// The largest distance between two corners of the voxels, over every pair: the definition itself.
double bruteForceFeret(Grid& g, std::int32_t label) {
    std::vector<std::array<double, 3>> corners;
    for (int z = 0; z < g.nz; ++z)
        for (int y = 0; y < g.ny; ++y)
            for (int x = 0; x < g.nx; ++x)
                if (g.at(x, y, z) == label)
                    for (int c = 0; c < 8; ++c)
                        corners.push_back({(x + (c & 1 ? 0.5 : -0.5)) * g.size.x, (y + (c & 2 ? 0.5 : -0.5)) * g.size.y,
                                           (z + (c & 4 ? 0.5 : -0.5)) * g.size.z});
    double best = 0;
    for (std::size_t i = 0; i < corners.size(); ++i)
        for (std::size_t j = i + 1; j < corners.size(); ++j)
            best = std::max(best, std::hypot(corners[i][0] - corners[j][0], corners[i][1] - corners[j][1],
                                             corners[i][2] - corners[j][2]));
    return best;
}

// Thin rods at random orientations: Length3d over n directions lies between L cos(theta) and L,
// L the exact Feret diameter of the voxel corners, theta the set's covering radius.
TEST(MeasureObjectsTest, Length3dOfRodsLiesBetweenLCosThetaAndL) {
    Grid g(40, 40, 40, {1.0, 0.8, 1.25});
    std::mt19937 random(2024);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    const int rods = 6;
    for (int r = 1; r <= rods; ++r) {
        double u[3];
        do {
            for (double& v : u) v = uniform(random);
        } while (std::hypot(u[0], u[1], u[2]) > 1 || std::hypot(u[0], u[1], u[2]) < 0.1);
        const double n = std::hypot(u[0], u[1], u[2]);
        for (double t = -14; t <= 14; t += 0.25) {  // a rod of about 28 along u, one voxel thick
            const int x = int(std::lround(20 + t * u[0] / n)), y = int(std::lround(25 + t * u[1] / n / 0.8));
            const int z = int(std::lround(20 + t * u[2] / n / 1.25));
            if (g.at(x, y, z) == 0) g.at(x, y, z) = r;
        }
    }
    const std::vector<double> exact = krvExactFeretDiameters(g.view());
    ASSERT_EQ(exact.size(), std::size_t(rods));
    for (int r = 1; r <= rods; ++r) EXPECT_NEAR(exact[r - 1], bruteForceFeret(g, r), 1e-9) << "rod " << r;
    for (const int count : {10, 100, 1000}) {
        const KrvMeasureParameters params = sampledDirections(count);
        std::vector<korvane::Direction> set;
        for (const auto& d : params.directions) set.push_back({d[0], d[1], d[2]});
        const double cosTheta = std::cos(korvane::coveringRadius(set));
        const KrvObjectMeasures measured = krvMeasureObjects(g.view(), nullptr, {"Length3d"}, params);
        const std::vector<double>& length = column(measured, "Length3d");
        for (int r = 0; r < rods; ++r) {
            EXPECT_LE(length[r], exact[r] * (1 + 1e-12)) << count << " directions, rod " << r + 1;
            EXPECT_GE(length[r], exact[r] * cosTheta * (1 - 1e-12)) << count << " directions, rod " << r + 1;
        }
    }
}

// scikit-image's regionprops on coins and cell (thresholded, labelled with 8-connectivity) and a
// binary_blobs volume of a fixed seed, labelled and measured by tests/measure_reference.py.
TEST(MeasureObjectsTest, RegionpropsAgree) {
    const std::string folder = ::testing::TempDir() + "/measure_reference";
    const std::string command = "mkdir -p " + folder + " && /usr/bin/python3 " KORVANE_SOURCE_DIR "/tests/measure_reference.py " + folder;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    std::ifstream cases(folder + "/cases.txt");
    std::string name, greyType;
    int nx, ny, nz, count = 0;
    for (; cases >> name >> nx >> ny >> nz >> greyType; ++count) {
        SCOPED_TRACE(name);
        std::vector<std::int32_t> labels = kapitest::readRaw<std::int32_t>(folder + "/" + name + ".labels");
        std::vector<std::uint8_t> bytes = kapitest::readRaw<std::uint8_t>(folder + "/" + name + ".grey");
        const bool plane = nz == 1;
        const KrvVoxelView labelView{labels.data(), nx, ny, nz, KrvVoxelType::Int32, {}};
        const KrvVoxelView greyView{bytes.data(), nx, ny, nz, greyType == "uint8" ? KrvVoxelType::UInt8 : KrvVoxelType::Float32, {}};
        ASSERT_EQ(labels.size(), greyView.Count());
        ASSERT_EQ(bytes.size(), greyView.Count() * (greyType == "uint8" ? 1 : 4));
        std::vector<std::string> names = {"Volume3d", "CentroidX", "CentroidY", "CentroidZ", "BoundingBoxDx",
                                          "BoundingBoxDy", "BoundingBoxDz", "EqDiameter3d", "MeanIntensity",
                                          "MinIntensity", "MaxIntensity", "EulerNumber"};
        if (plane) names.insert(names.end(), {"Area", "EqDiameter", "Perimeter", "FeretMax"});
        else names.push_back("Length3d");
        std::vector<double> halfTurn;
        for (double a = 0; a < 180; a += 0.5) halfTurn.push_back(a);
        const KrvObjectMeasures m = krvMeasureObjects(labelView, &greyView, names, sampledDirections(1000, planeParams(halfTurn)));
        std::map<std::string, std::vector<double>> read;  // the reference's columns, each read when first named
        const auto ref = [&](const std::string& column) -> const std::vector<double>& {
            if (!read.count(column)) read[column] = kapitest::readRaw<double>(folder + "/" + name + "." + column);
            return read[column];
        };
        ASSERT_EQ(m.labels.size(), ref("label").size());
        ASSERT_GT(m.labels.size(), 30u);
        const int axes = plane ? 2 : 3;  // skimage's axes run z, y, x
        // Ours, theirs and the tolerance. Counts, sums and extremes are exact in both; sums of many
        // values agree to rounding; Euler numbers are 8- and 26-connected in both.
        std::vector<std::tuple<std::string, std::string, double>> same = {
            {"Volume3d", "area", 0}, {plane ? "EqDiameter" : "EqDiameter3d", "equivalent_diameter", 1e-9},
            {"EulerNumber", "euler_number", 0}, {"MinIntensity", "min_intensity", 1e-6}, {"MaxIntensity", "max_intensity", 1e-6}};
        if (plane) same.insert(same.end(), {{"Area", "area", 0}, {"Perimeter", "perimeter_crofton", 1e-9}});
        for (int a = 0; a < axes; ++a) same.push_back({std::string("Centroid") + "XYZ"[a], "centroid-" + std::to_string(axes - 1 - a), 1e-9});
        for (std::size_t i = 0; i < m.labels.size(); ++i) {
            SCOPED_TRACE("label " + std::to_string(m.labels[i]));
            EXPECT_EQ(m.labels[i], ref("label")[i]);
            for (const auto& [ours, theirs, tolerance] : same) EXPECT_NEAR(column(m, ours)[i], ref(theirs)[i], tolerance) << ours;
            for (int a = 0; a < axes; ++a)
                EXPECT_EQ(column(m, std::string("BoundingBoxD") + "xyz"[a])[i],
                          ref("bbox-" + std::to_string(2 * axes - 1 - a))[i] - ref("bbox-" + std::to_string(axes - 1 - a))[i]) << a;
            // Float grey values are summed in double here and in float32 by numpy: 1e-5 relative.
            EXPECT_NEAR(column(m, "MeanIntensity")[i], ref("mean_intensity")[i], 1e-5 * std::abs(ref("mean_intensity")[i]));
            // skimage: the largest distance between vertices of the 0.5 contour of its convex image
            // (the pixels whose centres lie in the hull of the pixel corners). Each vertex is the
            // midpoint between a pixel centre inside that hull and one outside, so at most half a
            // pixel outside the hull: skimage exceeds the exact diameter by at most 1. And each end
            // of the exact diameter is a pixel corner within sqrt(2)/2 of such a midpoint. FeretMax
            // over 360 angles is low by at most 1 - cos(0.25 degree) < 1e-5. The same in space:
            // marching cubes' vertices are midpoints between voxel centres, each end of the exact
            // diameter within sqrt(3)/2 of one, and 1000 directions cover within 1 - cos theta < 0.2%.
            const double feret = ref("feret_diameter_max")[i], ours = column(m, plane ? "FeretMax" : "Length3d")[i];
            EXPECT_GE(ours, (feret - 1) * (plane ? 1 - 1e-5 : 0.998) - 1e-9);
            EXPECT_LE(ours, feret + std::sqrt(plane ? 2.0 : 3.0) + 1e-9);
        }
    }
    EXPECT_EQ(count, 3);
}

// Measure groups and user measures over the running suite.
class MeasureGroupTest : public kapitest::AfterStartUpTest {
protected:
    void SetUp() override {
        AfterStartUpTest::SetUp();
        for (int y = 1; y < 3; ++y)
            for (int x = 1; x < 4; ++x) grid.at(x, y) = 4, grey.at(x, y) = float(x);
        grid.at(6, 5) = 2;
        grey.at(6, 5) = 7.f;
        handler = CDatAnlHandler::m_pInstance;
    }
    void TearDown() override {
        krvSetResultTargets(nullptr, nullptr);
        KrvResultTables::Clear();
        AfterStartUpTest::TearDown();
    }
    CDatUsrMeasure* user(const char* name, const char* formula) {
        CDatUsrMeasure* m = handler->AddUsrMsr(CKrvString(name));
        if (!m) m = handler->GetUsrMsr(CKrvString(name));
        EXPECT_TRUE(m->initUsrFormula(formula)) << name;
        return m;
    }
    void group(const char* name, std::vector<CKrvString> measures) { handler->AddGrpMsr(CKrvString(name), measures); }
    Grid grid{8, 6, 1, {2.0, 1.0, 1.0}};
    Grey grey{8, 6};
    CDatAnlHandler* handler = nullptr;
};

TEST_F(MeasureGroupTest, GroupOrderRepeatedNamesAndUserMeasuresInDependencyOrder) {
    user("Twice", "Area * 2");
    user("Sum", "Twice + CentroidX");  // names a user measure: Twice comes first
    CDatUsrMeasure* mean = handler->AddUsrMsr(CKrvString("Mean"));
    ASSERT_TRUE(mean->initIpFunction("MeanIntensity"));
    group("g", {"Sum", "Area", "Mean", "Area", "IntensityPercentile", "Sum"});
    const KrvVoxelView greyView = grey.view();
    const KrvResultTable t = krvMeasureWithGroup(grid.view(), &greyView, "g");
    EXPECT_EQ(t.measures, (std::vector<std::string>{"label", "Sum", "Area", "Mean", "IntensityPercentile10",
                                                     "IntensityPercentile50", "IntensityPercentile90"}));
    EXPECT_EQ(t.columns[0], (std::vector<double>{2, 4}));
    EXPECT_EQ(t.columns[1], (std::vector<double>{2 * 2 + 12, 6 * 2 * 2 + 4}));  // 2 Area + CentroidX
    EXPECT_EQ(t.columns[2], (std::vector<double>{2, 12}));
    EXPECT_EQ(t.columns[3], (std::vector<double>{7, 2}));
    EXPECT_EQ(t.columns[5], (std::vector<double>{7, 2}));

    // A formula may name a user measure defined after it only by redefinition: a cycle, refused.
    user("Twice", "Sum / 2");
    group("cycle", {"Area", "Sum"});
    EXPECT_EQ(refusal([&] { krvMeasureIntoTable(grid.view(), nullptr, "cycle", "never"); }),
              "User measures refer to each other in a cycle: Sum -> Twice -> Sum");
    EXPECT_EQ(KrvResultTables::Find("never"), nullptr);

    group("unknown", {"Area", "Girth"});
    EXPECT_THROW(krvMeasureWithGroup(grid.view(), nullptr, "unknown"), KrvBaseException);
    EXPECT_THROW(krvMeasureWithGroup(grid.view(), nullptr, "no such group"), KrvBaseException);
    user("Lonely", "Area + 1");
    user("Leaning", "Lonely * 3");
    handler->RemoveUsrMsr(CKrvString("Lonely"));
    group("orphan", {"Leaning"});
    EXPECT_THROW(krvMeasureWithGroup(grid.view(), nullptr, "orphan"), KrvBaseException);
}

// The current parameters: FeretMax over the angles IpIndSetMsrInfo last accepted (along x the
// objects' widths, along y their heights), Length3d along its direction.
TEST_F(MeasureGroupTest, MeasuresUseTheCurrentParameters) {
    MsrInfo info{};
    info.nbParams = 2;
    float direction[] = {90.f, 0.f};  // polar angle 90, azimuth 0: the x axis alone
    ASSERT_EQ(IpIndSetMsrInfo("Length3d", &info, direction), 0);
    info.nbParams = 1;
    group("g", {"FeretMax", "Length3d"});
    for (const auto& [angle, wide, high] : {std::tuple<float, double, double>{0.f, 2, 6}, {90.f, 1, 2}}) {
        float angles[] = {angle};
        ASSERT_EQ(IpIndSetMsrInfo("FeretMax", &info, angles), 0);
        const KrvResultTable t = krvMeasureWithGroup(grid.view(), nullptr, "g");
        EXPECT_NEAR(t.columns[1][0], wide, 1e-12) << angle;
        EXPECT_NEAR(t.columns[1][1], high, 1e-12) << angle;
        EXPECT_NEAR(t.columns[2][1], 6.0, 1e-12);
    }
}

// No target: the table is stored, nothing sent; both: 4301, 4306, then 4303; the spreadsheet alone:
// 4301, then 4303.
TEST_F(MeasureGroupTest, DeliveryNamesTheTargetsThenTheTableThroughTheProxy) {
    group("g", {"Area"});
    COrlanSpreadsheet sheet;
    data::DictionaryPrivate model;
    using Round = std::tuple<COrlanSpreadsheet*, data::DictionaryPrivate*, const char*, std::vector<std::string>>;
    for (const auto& [spreadsheet, objects, name, sent] : {Round{nullptr, nullptr, "quiet", {}},
                                                            Round{&sheet, &model, "areas", {"4301", "4306", "4303"}},
                                                            Round{&sheet, nullptr, "again", {"4301", "4303"}}}) {
        krvSetResultTargets(spreadsheet, objects);
        log->clear();
        krvMeasureIntoTable(grid.view(), nullptr, "g", name);
        ASSERT_NE(KrvResultTables::Find(name), nullptr);
        std::vector<std::string> received;
        for (const kapitest::LogLine& line : log->lines())
            if (line.message.rfind("Receiving message", 0) == 0) received.push_back(line.message.substr(line.message.size() - 4));
        EXPECT_EQ(received, sent) << name;
    }
    EXPECT_EQ(sheet.title(), "again");
    ASSERT_EQ(sheet.columns().size(), 2u);
    EXPECT_EQ(sheet.columns()[0].name, "label");
    EXPECT_EQ(sheet.columns()[1].values, (std::vector<double>{2, 12}));
    EXPECT_NE(model.get("Area"), nullptr);
    EXPECT_TRUE(log->find("No Tarsel spreadsheet selected, can't convert Korvane data again with data type 3 to Tarsel")
                    .empty());
}

TEST_F(MeasureGroupTest, SieveClassesCountTheObjectsBetweenIncreasingLimits) {
    KrvResultTables::Store("r", {{"label", "Area"}, {{1, 2, 3, 5, 8}, {3, 10, 10.5, 40, 99}}});
    CDatTami* sieve = CDatTamiHandler::m_pInstance->AddTami("sizes");
    float limits[] = {10.f, 40.f};
    sieve->SetData(limits, 2);
    krvSieveClasses("r", "Area", "sizes", "classes");
    const KrvResultTable* classes = KrvResultTables::Find("classes");
    ASSERT_NE(classes, nullptr);
    EXPECT_EQ(classes->measures, (std::vector<std::string>{"label", "Area", "Class"}));
    EXPECT_EQ(classes->columns[2], (std::vector<double>{0, 1, 1, 2, 2}));  // a limit opens its class
    const KrvResultTable* counts = KrvResultTables::Find("classesCounts");
    ASSERT_NE(counts, nullptr);
    EXPECT_EQ(counts->columns[3], (std::vector<double>{1, 2, 2}));
    EXPECT_EQ(counts->columns[1], (std::vector<double>{-INFINITY, 10, 40}));
    EXPECT_EQ(counts->columns[2], (std::vector<double>{10, 40, INFINITY}));

    float unordered[] = {10.f, 10.f};
    sieve->SetData(unordered, 2);
    EXPECT_THROW(krvSieveClasses("r", "Area", "sizes", "bad"), KrvBaseException);
    EXPECT_THROW(krvSieveClasses("r", "Girth", "sizes", "bad"), KrvBaseException);
    EXPECT_THROW(krvSieveClasses("r", "Area", "none", "bad"), KrvBaseException);
    EXPECT_EQ(KrvResultTables::Find("bad"), nullptr);
}

// The command body over a call object of its own: parameters by name, progress through Step.
// Labels of 8 and 16 bits are widened first, from voxel 0 on.
struct FakeCall {
    std::map<std::string, std::string> text;
    const KrvImage* labels;
    std::vector<std::pair<long, long>> steps;
    long stopAt = 0;  // the step at which the client asks the command to stop (0: never)
    const KrvImage& Image(const char*) const { return *labels; }
    const std::string& Text(const char* param) const { return text.at(param); }
    void Step(const char*, long done, long total) {
        steps.emplace_back(done, total);
        if (done == stopAt) throw KrvCommandStopped{};
    }
};

TEST_F(MeasureGroupTest, MeasureCommandBodyReadsItsParametersAndReportsProgress) {
    ASSERT_TRUE(handler->AddUsrMsr(CKrvString("Brightest"))->initIpFunction("MaxIntensity"));
    group("g", {"Area", "Brightest"});
    ASSERT_NE(CDatImgHandler::m_pInstance->AddImg(CKrvString("grey"), 8, 6, 1, KrvVoxelType::UInt8), nullptr);
    CDatImgHandler::m_pInstance->FindObj(CKrvString("grey"))->GetImage().Voxels<std::uint8_t>()[5 * 8 + 6] = 200;
    grid.at(0, 0) = 2;  // label 2: voxel 0 and (6, 5)
    for (const KrvVoxelType type : {KrvVoxelType::Int32, KrvVoxelType::UInt8, KrvVoxelType::UInt16}) {
        SCOPED_TRACE(krvVoxelTypeName(type));
        KrvImage labels;
        ASSERT_TRUE(labels.Allocate(8, 6, 1, type));
        const auto copy = [&](auto* to) { std::copy(grid.voxels.begin(), grid.voxels.end(), to); };
        if (type == KrvVoxelType::Int32) copy(labels.Voxels<std::int32_t>());
        else if (type == KrvVoxelType::UInt8) copy(labels.Voxels<std::uint8_t>());
        else copy(labels.Voxels<std::uint16_t>());
        FakeCall call{{{"group", "g"}, {"result", "out"}, {"grey", "none"}}, &labels, {}, 0};
        EXPECT_THROW(krvMeasureCommandBody(call), KrvBaseException);  // MaxIntensity without a grey image
        call.text["grey"] = "nowhere";
        EXPECT_THROW(krvMeasureCommandBody(call), KrvBaseException);
        EXPECT_EQ(KrvResultTables::Find("out"), nullptr);
        call.text["grey"] = "grey";
        call.steps.clear();
        krvMeasureCommandBody(call);
        const KrvResultTable* out = KrvResultTables::Find("out");
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(out->columns[1], (std::vector<double>{2, 6}));  // voxels of 1 x 1
        EXPECT_EQ(out->columns[2], (std::vector<double>{200, 0}));
        EXPECT_EQ(call.steps.back(), (std::pair<long, long>{6, 6}));  // one step per row of a plane
        KrvResultTables::Remove("out");
        call.stopAt = 3;  // stopped midway: nothing stored
        EXPECT_THROW(krvMeasureCommandBody(call), KrvCommandStopped);
        EXPECT_EQ(KrvResultTables::Find("out"), nullptr);
    }
}

}  // namespace
