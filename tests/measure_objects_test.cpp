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
#include <sstream>
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

namespace {

constexpr double kPi = 3.14159265358979323846;

// A label grid the test draws into, and the grey values beside it.
struct Grid {
    int nx, ny, nz;
    KrvVoxelSize size;
    std::vector<std::int32_t> labels = std::vector<std::int32_t>(static_cast<std::size_t>(nx) * ny * nz, 0);
    std::vector<float> grey = std::vector<float>(labels.size(), 0.f);

    std::int32_t& at(int x, int y, int z = 0) { return labels[(static_cast<std::size_t>(z) * ny + y) * nx + x]; }
    KrvVoxelView view() { return {labels.data(), nx, ny, nz, KrvVoxelType::Int32, size}; }
    KrvVoxelView greyView() { return {grey.data(), nx, ny, nz, KrvVoxelType::Float32, size}; }
    // Labels with `label` every voxel whose centre (physical units) passes `inside`.
    template <class Inside>
    void draw(std::int32_t label, Inside inside) {
        for (int z = 0; z < nz; ++z)
            for (int y = 0; y < ny; ++y)
                for (int x = 0; x < nx; ++x)
                    if (inside(x * size.x, y * size.y, z * size.z)) at(x, y, z) = label;
    }
};

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

std::vector<double> degreesUpTo180(double step) {
    std::vector<double> angles;
    for (double a = 0; a < 180; a += step) angles.push_back(a);
    return angles;
}

// A 7 x 4 box of pixels 0.5 x 2 and, beside it, a 6 x 6 square ring (one hole); both exact.
TEST(MeasureObjectsTest, PlaneBoxesAndRingsHaveTheirExactValues) {
    Grid g{20, 12, 1, {0.5, 2.0, 3.0}};
    for (int y = 2; y < 6; ++y)
        for (int x = 1; x < 8; ++x) g.at(x, y) = 5, g.grey[static_cast<std::size_t>(y * 20 + x)] = float(x + 10 * y);
    for (int y = 4; y < 10; ++y)
        for (int x = 12; x < 18; ++x) g.at(x, y) = (x == 12 || x == 17 || y == 4 || y == 9) ? 9 : 0;
    const KrvVoxelView grey = g.greyView();
    const KrvObjectMeasures m = krvMeasureObjects(
        g.view(), &grey,
        {"Area", "EqDiameter", "CentroidX", "CentroidY", "BoundingBoxDx", "BoundingBoxDy", "ConvexPerimeter",
         "ConvexArea", "Elongation", "FeretMax", "FeretMin", "EulerNumber", "HoleCount", "Volume3d", "CentroidZ",
         "BoundingBoxDz", "MeanIntensity", "MinIntensity", "MaxIntensity", "IntegratedIntensity", "StdDevIntensity",
         "IntensityPercentile", "Elongation3d", "ClassifierClass", "SkeletonLength"},
        planeParams({0, 45, 90}));
    ASSERT_EQ(m.labels, (std::vector<std::int32_t>{5, 9}));
    const double w = 3.5, h = 8.0;  // the box, physical
    EXPECT_DOUBLE_EQ(column(m, "Area")[0], w * h);
    EXPECT_DOUBLE_EQ(column(m, "Area")[1], 20 * 1.0);
    EXPECT_DOUBLE_EQ(column(m, "EqDiameter")[0], std::sqrt(4 * w * h / kPi));
    EXPECT_DOUBLE_EQ(column(m, "CentroidX")[0], 4 * 0.5);
    EXPECT_DOUBLE_EQ(column(m, "CentroidY")[0], 3.5 * 2.0);
    EXPECT_DOUBLE_EQ(column(m, "CentroidY")[1], 6.5 * 2.0);
    EXPECT_DOUBLE_EQ(column(m, "BoundingBoxDx")[0], w);
    EXPECT_DOUBLE_EQ(column(m, "BoundingBoxDy")[1], 12.0);
    EXPECT_DOUBLE_EQ(column(m, "ConvexPerimeter")[0], 2 * (w + h));
    EXPECT_DOUBLE_EQ(column(m, "ConvexArea")[1], 3.0 * 12.0);  // the hole is inside the hull
    EXPECT_DOUBLE_EQ(column(m, "Elongation")[0], std::hypot(w, h) / w);
    EXPECT_DOUBLE_EQ(column(m, "FeretMax")[0], (w + h) / std::sqrt(2.0));  // 45 degrees: the longest of three
    EXPECT_DOUBLE_EQ(column(m, "FeretMin")[0], w);
    EXPECT_EQ(column(m, "EulerNumber"), (std::vector<double>{1, 0}));
    EXPECT_EQ(column(m, "HoleCount"), (std::vector<double>{0, 1}));
    EXPECT_DOUBLE_EQ(column(m, "Volume3d")[0], w * h * 3.0);  // a plane is one voxel thick
    EXPECT_DOUBLE_EQ(column(m, "CentroidZ")[0], 0.0);
    EXPECT_DOUBLE_EQ(column(m, "BoundingBoxDz")[0], 3.0);
    // Grey x + 10 y over x 1..7, y 2..5: mean 4 + 35, extremes 21 and 57, spread sqrt(4 + 125).
    EXPECT_DOUBLE_EQ(column(m, "MeanIntensity")[0], 39.0);
    EXPECT_DOUBLE_EQ(column(m, "MinIntensity")[0], 21.0);
    EXPECT_DOUBLE_EQ(column(m, "MaxIntensity")[0], 57.0);
    EXPECT_DOUBLE_EQ(column(m, "IntegratedIntensity")[0], 39.0 * 28);
    EXPECT_NEAR(column(m, "StdDevIntensity")[0], std::sqrt(4.0 + 125.0), 1e-12);
    EXPECT_DOUBLE_EQ(column(m, "IntensityPercentile0")[0], 21.0);
    EXPECT_DOUBLE_EQ(column(m, "IntensityPercentile25")[0], 27.0 + 0.75 * 4);  // rank 6.75 of the sorted 28
    EXPECT_DOUBLE_EQ(column(m, "IntensityPercentile100")[0], 57.0);
    EXPECT_NEAR(column(m, "Elongation3d")[0], h / 3.0, 1e-12);  // a box's axes: its sides over sqrt(12)
    EXPECT_EQ(column(m, "ClassifierClass")[0], 0.0);
    EXPECT_DOUBLE_EQ(column(m, "SkeletonLength")[1], 2 * 5 * 0.5 + 2 * 5 * 2.0);  // a one-pixel ring is its own

    // A bar 31 x 5 thins to its middle row, shortened at most by its half width at either end.
    Grid bar{40, 9, 1, {}};
    bar.draw(1, [](double x, double y, double) { return x >= 3 && x <= 33 && y >= 2 && y <= 6; });
    const double skeleton = column(krvMeasureObjects(bar.view(), nullptr, {"SkeletonLength"}, {}), "SkeletonLength")[0];
    EXPECT_GE(skeleton, 30 - 2 * 2.5);
    EXPECT_LE(skeleton, 30);

    // The measures of plane shapes refuse a volume; intensities refuse a missing grey image.
    Grid volume{4, 4, 2, {}};
    volume.at(1, 1, 1) = 1;
    EXPECT_THROW(krvMeasureObjects(volume.view(), nullptr, {"Perimeter"}, {}), KrvBaseException);
    EXPECT_THROW(krvMeasureObjects(g.view(), nullptr, {"MeanIntensity"}, {}), KrvBaseException);
    EXPECT_THROW(krvMeasureObjects(g.view(), nullptr, {"Girth"}, {}), KrvBaseException);
    EXPECT_THROW(krvMeasureObjects(grey, nullptr, {"Area"}, {}), KrvBaseException);  // float labels
    const KrvVoxelView otherGrid{g.grey.data(), 10, 12, 1, KrvVoxelType::Float32, {}};
    EXPECT_THROW(krvMeasureObjects(g.view(), &otherGrid, {"MeanIntensity"}, {}), KrvBaseException);
    g.at(0, 0) = -2;
    try {
        krvMeasureObjects(g.view(), nullptr, {"Area"}, {});
        ADD_FAILURE() << "a negative label was measured";
    } catch (const KrvBaseException& e) {
        EXPECT_STREQ(e.what(), "Label images hold labels of 0 or more: voxel (0, 0, 0) holds -2");
    }
}

// Crofton perimeters and surfaces, Elongation3d of ellipsoids: estimators, so within bounds of
// their accuracy on large discs and balls: digitisation changes a radius-18 ball's volume by well
// under 1%; the 4-direction Crofton perimeter of a radius-20 disc is 1.1% short, the 13-direction
// surface of a radius-18 ball 0.2 to 0.3% (measured; 1% leaves room for other centres).
TEST(MeasureObjectsTest, DiscsBallsAndEllipsoidsComeCloseToTheirContinuousValues) {
    Grid disc{60, 60, 1, {}};
    disc.draw(1, [](double x, double y, double) { return std::hypot(x - 30, y - 29.5) <= 20; });
    const KrvObjectMeasures d =
        krvMeasureObjects(disc.view(), nullptr, {"Perimeter", "Compactness", "Roughness"}, planeParams({0}));
    EXPECT_NEAR(column(d, "Perimeter")[0] / (2 * kPi * 20), 1.0, 0.02);
    EXPECT_NEAR(column(d, "Compactness")[0], 1.0, 0.04);
    EXPECT_NEAR(column(d, "Roughness")[0], 1.0, 0.03);
    Grid tall{60, 30, 1, {1.0, 2.0, 1.0}};  // the same disc on pixels twice as high as wide
    tall.draw(1, [](double x, double y, double) { return std::hypot(x - 30, y - 29) <= 20; });
    const KrvObjectMeasures t = krvMeasureObjects(tall.view(), nullptr, {"Perimeter"}, {});
    EXPECT_NEAR(column(t, "Perimeter")[0] / (2 * kPi * 20), 1.0, 0.03);
    // Bars along the axes tell the directions' shares apart (on the disc they average out): a
    // one-pixel bar's Crofton perimeter is 7 to 8% short (no line of its own direction meets it).
    Grid bars{42, 42, 1, {1.0, 2.0, 1.0}};
    bars.draw(1, [](double x, double y, double) { return y == 0 && x < 40; });  // 40 x 2
    bars.draw(2, [](double x, double y, double) { return x == 41 && y >= 4; });  // 1 x 76
    const KrvObjectMeasures r = krvMeasureObjects(bars.view(), nullptr, {"Perimeter"}, {});
    EXPECT_NEAR(column(r, "Perimeter")[0] / (2 * (40 + 2)), 0.92, 0.03);
    EXPECT_NEAR(column(r, "Perimeter")[1] / (2 * (1 + 76)), 0.92, 0.03);

    Grid ball{48, 48, 48, {1.0, 1.0, 1.0}};
    ball.draw(1, [](double x, double y, double z) { return std::hypot(x - 24, y - 23.6, z - 24.3) <= 18; });
    const KrvObjectMeasures b = krvMeasureObjects(
        ball.view(), nullptr, {"Volume3d", "Area3d", "Sphericity", "EqDiameter3d", "Elongation3d"}, {});
    EXPECT_NEAR(column(b, "Volume3d")[0] / (4 * kPi * 18 * 18 * 18 / 3), 1.0, 0.01);
    EXPECT_NEAR(column(b, "Area3d")[0] / (4 * kPi * 18 * 18), 1.0, 0.01);
    EXPECT_NEAR(column(b, "Sphericity")[0], 1.0, 0.01);
    EXPECT_NEAR(column(b, "EqDiameter3d")[0], 36.0, 0.2);
    EXPECT_NEAR(column(b, "Elongation3d")[0], 1.0, 0.02);
    Grid ellipsoid{40, 30, 20, {}};
    ellipsoid.draw(1, [](double x, double y, double z) {
        return std::pow((x - 20) / 15, 2) + std::pow((y - 15) / 9, 2) + std::pow((z - 10) / 6, 2) <= 1;
    });
    const KrvObjectMeasures e = krvMeasureObjects(ellipsoid.view(), nullptr, {"Elongation3d"}, {});
    EXPECT_NEAR(column(e, "Elongation3d")[0], 15.0 / 6.0, 0.05);  // a solid ellipsoid's axes: a / sqrt(5)

    // Anisotropic voxels: the same ball drawn with voxels 1 x 1 x 2 keeps its volume and surface.
    Grid flat{48, 48, 24, {1.0, 1.0, 2.0}};
    flat.draw(1, [](double x, double y, double z) { return std::hypot(x - 24, y - 23.6, z - 24.3) <= 18; });
    const KrvObjectMeasures f = krvMeasureObjects(flat.view(), nullptr, {"Volume3d", "Area3d"}, {});
    EXPECT_NEAR(column(f, "Volume3d")[0] / column(b, "Volume3d")[0], 1.0, 0.01);
    EXPECT_NEAR(column(f, "Area3d")[0] / (4 * kPi * 18 * 18), 1.0, 0.01);
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
    Grid g{40, 40, 40, {1.0, 0.8, 1.25}};
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
        std::vector<float> azimuth(count), polar(count);
        ASSERT_EQ(IpSampleHalfSphereAngle(count, azimuth.data(), polar.data()), 0);
        KrvMeasureParameters params;
        std::vector<korvane::Direction> set;
        for (int i = 0; i < count; ++i) {
            params.directions.push_back(krvDirectionFromDegrees(polar[i] * 180 / kPi, azimuth[i] * 180 / kPi));
            set.push_back({params.directions.back()[0], params.directions.back()[1], params.directions.back()[2]});
        }
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
class ReferenceTest : public ::testing::Test {
protected:
    struct Case {
        std::string name, greyType;
        int nx, ny, nz;
    };
    static void SetUpTestSuite() {
        s_folder = ::testing::TempDir() + "/measure_reference";
        const std::string command = "mkdir -p " + s_folder + " && /usr/bin/python3 " KORVANE_SOURCE_DIR
                                    "/tests/measure_reference.py " + s_folder;
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }
    static std::vector<Case> cases() {
        std::ifstream in(s_folder + "/cases.txt");
        std::vector<Case> all;
        Case c;
        while (in >> c.name >> c.nx >> c.ny >> c.nz >> c.greyType) all.push_back(c);
        return all;
    }
    template <class T>
    static std::vector<T> raw(const std::string& file, std::size_t count) {
        std::vector<T> values(count);
        std::ifstream in(file, std::ios::binary);
        in.read(reinterpret_cast<char*>(values.data()), static_cast<std::streamsize>(count * sizeof(T)));
        EXPECT_TRUE(in.good()) << file;
        return values;
    }
    // The reference's columns by name.
    static std::map<std::string, std::vector<double>> csv(const std::string& file) {
        std::ifstream in(file);
        std::string line, name;
        std::getline(in, line);
        std::vector<std::string> names;
        for (std::istringstream header(line); std::getline(header, name, ',');) names.push_back(name);
        std::map<std::string, std::vector<double>> columns;
        while (std::getline(in, line)) {
            std::istringstream row(line);
            for (const std::string& n : names) {
                std::getline(row, name, ',');
                columns[n].push_back(std::stod(name));
            }
        }
        return columns;
    }
    static std::string s_folder;
};
std::string ReferenceTest::s_folder;

TEST_F(ReferenceTest, RegionpropsAgree) {
    const std::vector<Case> all = cases();
    ASSERT_EQ(all.size(), 3u);
    for (const Case& c : all) {
        SCOPED_TRACE(c.name);
        const std::size_t count = std::size_t(c.nx) * c.ny * c.nz;
        std::vector<std::int32_t> labels = raw<std::int32_t>(s_folder + "/" + c.name + ".labels", count);
        std::vector<std::uint8_t> bytes = raw<std::uint8_t>(s_folder + "/" + c.name + ".grey",
                                                           count * (c.greyType == "uint8" ? 1 : 4));
        const bool plane = c.nz == 1;
        const KrvVoxelView labelView{labels.data(), c.nx, c.ny, c.nz, KrvVoxelType::Int32, {}};
        const KrvVoxelView greyView{bytes.data(), c.nx, c.ny, c.nz,
                                    c.greyType == "uint8" ? KrvVoxelType::UInt8 : KrvVoxelType::Float32, {}};
        std::vector<std::string> names = {"Volume3d", "CentroidX", "CentroidY", "CentroidZ", "BoundingBoxDx",
                                          "BoundingBoxDy", "BoundingBoxDz", "EqDiameter3d", "MeanIntensity",
                                          "MinIntensity", "MaxIntensity", "EulerNumber"};
        if (plane) names.insert(names.end(), {"Area", "EqDiameter", "Perimeter", "FeretMax"});
        KrvMeasureParameters params = planeParams(degreesUpTo180(0.5));
        std::vector<float> azimuth(1000), polar(1000);
        IpSampleHalfSphereAngle(1000, azimuth.data(), polar.data());
        for (int i = 0; i < 1000; ++i)
            params.directions.push_back(krvDirectionFromDegrees(polar[i] * 180 / kPi, azimuth[i] * 180 / kPi));
        if (!plane) names.push_back("Length3d");
        const KrvObjectMeasures m = krvMeasureObjects(labelView, &greyView, names, params);
        auto ref = csv(s_folder + "/" + c.name + ".csv");
        ASSERT_EQ(m.labels.size(), ref["label"].size());
        ASSERT_GT(m.labels.size(), 30u);
        const int axes = plane ? 2 : 3;  // skimage's axes run z, y, x
        const auto refAxis = [&](const char* prefix, int xyz) -> const std::vector<double>& {
            return ref.at(std::string(prefix) + std::to_string(axes - 1 - xyz));
        };
        for (std::size_t i = 0; i < m.labels.size(); ++i) {
            SCOPED_TRACE("label " + std::to_string(m.labels[i]));
            EXPECT_EQ(m.labels[i], ref["label"][i]);
            // Counts, sums and extremes are exact in both; sums of many values agree to rounding.
            EXPECT_EQ(column(m, "Volume3d")[i], ref["area"][i]);
            EXPECT_NEAR(column(m, "CentroidX")[i], refAxis("centroid-", 0)[i], 1e-9);
            EXPECT_NEAR(column(m, "CentroidY")[i], refAxis("centroid-", 1)[i], 1e-9);
            if (!plane) {
                EXPECT_NEAR(column(m, "CentroidZ")[i], refAxis("centroid-", 2)[i], 1e-9);
            }
            const char* boxes[3] = {"BoundingBoxDx", "BoundingBoxDy", "BoundingBoxDz"};
            for (int a = 0; a < axes; ++a)
                EXPECT_EQ(column(m, boxes[a])[i],
                          ref.at("bbox-" + std::to_string(2 * axes - 1 - a))[i] - refAxis("bbox-", a)[i]) << a;
            const double eq = plane ? column(m, "EqDiameter")[i] : column(m, "EqDiameter3d")[i];
            EXPECT_NEAR(eq, ref["equivalent_diameter"][i], 1e-9);
            EXPECT_EQ(column(m, "EulerNumber")[i], ref["euler_number"][i]);  // 8- and 26-connected
            // Float grey values are summed in double here and in float32 by numpy: 1e-5 relative.
            EXPECT_NEAR(column(m, "MeanIntensity")[i], ref["mean_intensity"][i], 1e-5 * std::abs(ref["mean_intensity"][i]));
            EXPECT_NEAR(column(m, "MinIntensity")[i], ref["min_intensity"][i], 1e-6);
            EXPECT_NEAR(column(m, "MaxIntensity")[i], ref["max_intensity"][i], 1e-6);
            const double feret = ref["feret_diameter_max"][i];
            if (plane) {
                EXPECT_EQ(column(m, "Area")[i], ref["area"][i]);
                // Both the 4-direction Crofton estimate over lines through pixel centres.
                EXPECT_NEAR(column(m, "Perimeter")[i], ref["perimeter_crofton"][i], 1e-9);
                // skimage: the largest distance between vertices of the 0.5 contour of its convex
                // image (the pixels whose centres lie in the hull of the pixel corners). Each vertex
                // is the midpoint between a pixel centre inside that hull and one outside, so at most
                // half a pixel outside the hull: skimage exceeds the exact diameter by at most 1. And
                // each end of the exact diameter is a pixel corner within sqrt(2)/2 of such a
                // midpoint. FeretMax over 360 angles is low by at most 1 - cos(0.25 degree) < 1e-5.
                EXPECT_GE(column(m, "FeretMax")[i], (feret - 1) * (1 - 1e-5) - 1e-9);
                EXPECT_LE(column(m, "FeretMax")[i], feret + std::sqrt(2.0) + 1e-9);
            } else {
                // The same in space: marching cubes' vertices are midpoints between voxel centres,
                // each end of the exact diameter within sqrt(3)/2 of one, and 1000 directions cover
                // within 1 - cos theta < 0.2%.
                EXPECT_GE(column(m, "Length3d")[i], (feret - 1) * 0.998 - 1e-9);
                EXPECT_LE(column(m, "Length3d")[i], feret + std::sqrt(3.0) + 1e-9);
            }
        }
    }
}

// Measure groups and user measures over the running suite.
class MeasureGroupTest : public kapitest::AfterStartUpTest {
protected:
    void SetUp() override {
        AfterStartUpTest::SetUp();
        for (int y = 1; y < 3; ++y)
            for (int x = 1; x < 4; ++x) grid.at(x, y) = 4, grid.grey[std::size_t(y * 8 + x)] = float(x);
        grid.at(6, 5) = 2;
        grid.grey[5 * 8 + 6] = 7.f;
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
    CDatAnlHandler* handler = nullptr;
};

TEST_F(MeasureGroupTest, GroupOrderRepeatedNamesAndUserMeasuresInDependencyOrder) {
    user("Twice", "Area * 2");
    user("Sum", "Twice + CentroidX");  // names a user measure: Twice comes first
    CDatUsrMeasure* mean = handler->AddUsrMsr(CKrvString("Mean"));
    ASSERT_TRUE(mean->initIpFunction("MeanIntensity"));
    group("g", {"Sum", "Area", "Mean", "Area", "IntensityPercentile", "Sum"});
    const KrvVoxelView grey = grid.greyView();
    const KrvResultTable t = krvMeasureWithGroup(grid.view(), &grey, "g");
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
    try {
        krvMeasureIntoTable(grid.view(), nullptr, "cycle", "never");
        ADD_FAILURE() << "a cycle was measured";
    } catch (const KrvBaseException& e) {
        EXPECT_STREQ(e.what(), "User measures refer to each other in a cycle: Sum -> Twice -> Sum");
    }
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

// The current parameters: FeretMax over the angles IpIndSetMsrInfo last accepted.
TEST_F(MeasureGroupTest, MeasuresUseTheCurrentParameters) {
    float angles[] = {0.f};
    MsrInfo info{};
    info.nbParams = 1;
    ASSERT_EQ(IpIndSetMsrInfo("FeretMax", &info, angles), 0);
    group("g", {"FeretMax", "BoundingBoxDx"});
    KrvResultTable t = krvMeasureWithGroup(grid.view(), nullptr, "g");
    EXPECT_EQ(t.columns[1], t.columns[2]);  // along x only: the box's width
    angles[0] = 90.f;
    ASSERT_EQ(IpIndSetMsrInfo("FeretMax", &info, angles), 0);
    t = krvMeasureWithGroup(grid.view(), nullptr, "g");
    EXPECT_DOUBLE_EQ(t.columns[1][0], 1.0);  // along y: the box's height
    EXPECT_DOUBLE_EQ(t.columns[1][1], 2.0);

    float direction[] = {90.f, 0.f};  // polar angle 90, azimuth 0: the x axis alone
    info.nbParams = 2;
    ASSERT_EQ(IpIndSetMsrInfo("Length3d", &info, direction), 0);
    group("g3", {"Length3d", "BoundingBoxDx"});
    t = krvMeasureWithGroup(grid.view(), nullptr, "g3");
    EXPECT_NEAR(t.columns[1][1], t.columns[2][1], 1e-12);
    EXPECT_NEAR(t.columns[1][1], 6.0, 1e-12);
}

TEST_F(MeasureGroupTest, DeliveryNamesTheTargetsThenTheTableThroughTheProxy) {
    group("g", {"Area"});
    krvMeasureIntoTable(grid.view(), nullptr, "g", "quiet");  // no target: stored, nothing sent
    ASSERT_NE(KrvResultTables::Find("quiet"), nullptr);
    EXPECT_TRUE(log->find("Receiving message from service 3, objectType = result table, objectName = quiet, "
                          "messageId = 4303")
                    .empty());

    COrlanSpreadsheet sheet;
    data::DictionaryPrivate model;
    krvSetResultTargets(&sheet, &model);
    log->clear();
    krvMeasureIntoTable(grid.view(), nullptr, "g", "areas");
    std::vector<std::string> received;
    for (const kapitest::LogLine& line : log->lines())
        if (line.message.rfind("Receiving message", 0) == 0) received.push_back(line.message.substr(line.message.size() - 4));
    EXPECT_EQ(received, (std::vector<std::string>{"4301", "4306", "4303"}));
    EXPECT_EQ(sheet.title(), "areas");
    ASSERT_EQ(sheet.columns().size(), 2u);
    EXPECT_EQ(sheet.columns()[0].name, "label");
    EXPECT_EQ(sheet.columns()[1].values, (std::vector<double>{2, 12}));
    EXPECT_NE(model.get("Area"), nullptr);

    krvSetResultTargets(&sheet, nullptr);  // the spreadsheet alone: 4301, then 4303
    log->clear();
    krvMeasureIntoTable(grid.view(), nullptr, "g", "again");
    EXPECT_EQ(sheet.title(), "again");
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
    KrvImage labels;
    ASSERT_TRUE(labels.Allocate(8, 6, 1, KrvVoxelType::Int32));
    std::copy(grid.labels.begin(), grid.labels.end(), labels.Voxels<std::int32_t>());
    ASSERT_TRUE(handler->AddUsrMsr(CKrvString("Brightest"))->initIpFunction("MaxIntensity"));
    group("g", {"Area", "Brightest"});
    FakeCall call{{{"group", "g"}, {"result", "out"}, {"grey", "none"}}, &labels, {}, 0};
    EXPECT_THROW(krvMeasureCommandBody(call), KrvBaseException);  // MaxIntensity without a grey image
    EXPECT_EQ(KrvResultTables::Find("out"), nullptr);
    call.text["grey"] = "nowhere";
    EXPECT_THROW(krvMeasureCommandBody(call), KrvBaseException);
    ASSERT_NE(CDatImgHandler::m_pInstance->AddImg(CKrvString("grey"), 8, 6, 1, KrvVoxelType::UInt8), nullptr);
    CDatImgHandler::m_pInstance->FindObj(CKrvString("grey"))->GetImage().Voxels<std::uint8_t>()[5 * 8 + 6] = 200;
    call.text["grey"] = "grey";
    call.steps.clear();
    krvMeasureCommandBody(call);
    const KrvResultTable* out = KrvResultTables::Find("out");
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out->columns[2], (std::vector<double>{200, 0}));
    ASSERT_FALSE(call.steps.empty());
    EXPECT_EQ(call.steps.back(), (std::pair<long, long>{6, 6}));  // one step per row of a plane
    KrvResultTables::Remove("out");
    call.stopAt = 3;  // stopped midway: nothing stored
    EXPECT_THROW(krvMeasureCommandBody(call), KrvCommandStopped);
    EXPECT_EQ(KrvResultTables::Find("out"), nullptr);

    KrvResultTables::Store("r", {{"label", "Area"}, {{1}, {3}}});
    CDatTamiHandler::m_pInstance->AddTami("s")->SetData(std::vector<float>{1.f}.data(), 1);
    FakeCall sieve{{{"table", "r"}, {"measure", "Area"}, {"sieve", "s"}, {"result", "c"}}, nullptr, {}, 0};
    krvSieveClassesCommandBody(sieve);
    ASSERT_NE(KrvResultTables::Find("c"), nullptr);
    EXPECT_EQ(KrvResultTables::Find("c")->columns[2], (std::vector<double>{1}));
}

}  // namespace
