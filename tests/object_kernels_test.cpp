// The kernels of the commands that use stored objects, on known patterns: a user filter's formula
// over images and coordinates, plain lookup tables, morphological tables (thinning, pruning,
// until stable, the border), and contours (their corners, orientation and area).
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vantry_access_korlib/KrvObjectKernels.h>
#include <vantry_util/KrvImageFormulaManager.h>

#include "support/Voxels.h"

using kapitest::refusal;
using kapitest::viewOf;

namespace {

KrvFormula compiled(const std::string& text) {
    KrvImageFormulaManager manager;
    EXPECT_TRUE(manager.init(text)) << text;
    return manager.formula();
}

TEST(ImageFormulaKernel, EvaluatesEveryVoxelFromImagesAndCoordinates) {
    std::vector<std::uint8_t> a = {3, 0, 5, 8, 6, 1};
    std::vector<float> b = {4.f, 2.f, 12.f, 6.f, 8.f, 0.f};
    std::vector<float> out(6, -1.f);
    std::vector<long> steps;
    krvApplyImageFormula(compiled("sqrt(I1*I1+I2*I2)"), {viewOf(a, 3, 2), viewOf(b, 3, 2)}, viewOf(out, 3, 2),
                         [&](long done, long total) { steps.push_back(done * 10 + total); });
    EXPECT_EQ(out, std::vector<float>({5.f, 2.f, 13.f, 10.f, 10.f, 1.f}));
    EXPECT_EQ(steps, std::vector<long>({12, 22}));  // rows of a 2-D image

    // 3-D, more voxels than one block of the engine: X, Y and Z are the voxel's indices.
    const int nx = 37, ny = 11, nz = 5;
    std::vector<std::int32_t> labels(nx * ny * nz, 7);
    std::vector<float> coordinates(labels.size());
    steps.clear();
    krvApplyImageFormula(compiled("X + 100*Y + 10000*Z + I1"), {viewOf(labels, nx, ny, nz)},
                         viewOf(coordinates, nx, ny, nz), [&](long done, long total) { steps.push_back(done * 10 + total); });
    for (int z = 0; z < nz; ++z)
        for (int y = 0; y < ny; ++y)
            for (int x = 0; x < nx; ++x)
                ASSERT_EQ(coordinates[(z * ny + y) * nx + x], float(x + 100 * y + 10000 * z + 7)) << x << " " << y << " " << z;
    EXPECT_EQ(steps.size(), 5u);  // z planes

    std::vector<std::uint16_t> small(4);
    EXPECT_EQ(refusal([&] { krvApplyImageFormula(compiled("I1+I3"), {viewOf(a, 3, 2), viewOf(b, 3, 2)}, viewOf(out, 3, 2)); }),
              "the formula reads I3; 2 input images are given");
    EXPECT_EQ(refusal([&] { krvApplyImageFormula(compiled("I2"), {viewOf(a, 3, 2)}, viewOf(out, 3, 2)); }),
              "the formula reads I2; 1 input image is given");
    EXPECT_EQ(refusal([&] { krvApplyImageFormula(compiled("I1"), {viewOf(a, 3, 2), viewOf(small, 2, 2)}, viewOf(out, 3, 2)); }),
              "the input images differ in size");
    EXPECT_EQ(refusal([&] { krvApplyImageFormula(compiled("X"), {}, viewOf(out, 3, 2)); }),
              "a user filter takes 1 to 9 input images");
}

TEST(LutKernel, MapsWholeNumbersAndRefusesValuesWithoutEntry) {
    std::vector<std::uint8_t> in = {0, 1, 2, 3, 2, 1};
    const std::vector<int> table = {10, 20, 30, 255};
    ASSERT_EQ(krvLutOutputType(KrvVoxelType::UInt8, table), KrvVoxelType::UInt8);
    std::vector<std::uint8_t> out(6);
    krvApplyLut(viewOf(in, 3, 2), table, viewOf(out, 3, 2));
    EXPECT_EQ(out, std::vector<std::uint8_t>({10, 20, 30, 255, 30, 20}));

    // Values past the input's type widen the output; a negative one too.
    EXPECT_EQ(krvLutOutputType(KrvVoxelType::UInt8, {0, 256}), KrvVoxelType::Int32);
    EXPECT_EQ(krvLutOutputType(KrvVoxelType::UInt16, {0, 65535}), KrvVoxelType::UInt16);
    EXPECT_EQ(krvLutOutputType(KrvVoxelType::UInt16, {-1}), KrvVoxelType::Int32);
    std::vector<std::int32_t> wide(6);
    krvApplyLut(viewOf(in, 3, 2), {-5, 70000, 0, 1}, viewOf(wide, 3, 2));
    EXPECT_EQ(wide, std::vector<std::int32_t>({-5, 70000, 0, 1, 0, 70000}));

    std::vector<std::int32_t> labels = {0, 1, 2, 3, 4, 5, 6, -1};
    std::vector<std::int32_t> untouched(8, 9);
    EXPECT_EQ(refusal([&] { krvApplyLut(viewOf(labels, 2, 2, 2), {0, 1, 2, 3, 4, 5, 6}, viewOf(untouched, 2, 2, 2)); }),
              "voxel (1, 1, 1) holds -1; the table has 7 entries");
    EXPECT_EQ(refusal([&] { krvApplyLut(viewOf(labels, 4, 2), {0, 1}, viewOf(untouched, 4, 2)); }),
              "voxel (2, 0, 0) holds 2; the table has 2 entries");
    EXPECT_EQ(untouched, std::vector<std::int32_t>(8, 9));
    std::vector<float> grey(8);
    EXPECT_EQ(refusal([&] { krvApplyLut(viewOf(grey, 4, 2), {0}, viewOf(untouched, 4, 2)); }),
              "the input image is float32; it must hold whole numbers (uint8, uint16 or int32)");
}

// A binary picture written as rows of '#' (set) and '.'.
struct Picture {
    int nx = 0, ny = 0;
    std::vector<std::uint8_t> pixels;
    explicit Picture(const std::vector<std::string>& rows) : nx(int(rows[0].size())), ny(int(rows.size())) {
        for (const std::string& row : rows)
            for (char c : row) pixels.push_back(c == '#' ? 1 : 0);
    }
    Picture(int width, int height) : nx(width), ny(height), pixels(std::size_t(width) * height) {}
    std::uint8_t at(int x, int y) const { return x < 0 || y < 0 || x >= nx || y >= ny ? 0 : pixels[y * nx + x]; }
    std::vector<std::string> rows() const {
        std::vector<std::string> out;
        for (int y = 0; y < ny; ++y) {
            std::string row;
            for (int x = 0; x < nx; ++x) row += at(x, y) ? '#' : '.';
            out.push_back(row);
        }
        return out;
    }
};

// A sub-table from a rule over the neighbourhood: n[dy + 1][dx + 1], n[1][1] the pixel itself. Its
// 512 entries, one per state of the nine pixels, written out: the kernels' own constant is checked.
using Rule = std::function<bool(const int n[3][3])>;
std::vector<int> subTable(const Rule& rule) {
    std::vector<int> table(512);
    for (int index = 0; index < 512; ++index) {
        int n[3][3];
        for (int bit = 0; bit < 9; ++bit) n[bit / 3][bit % 3] = (index >> bit) & 1;
        table[index] = rule(n) ? 1 : 0;
    }
    return table;
}

// The set pixels of the neighbourhood, the pixel itself included.
int setAround(const int n[3][3]) {
    int set = 0;
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x) set += n[y][x];
    return set;
}

// Zhang and Suen's thinning condition for one of its two sub-iterations.
bool zhangSuenKeeps(const int n[3][3], int subIteration) {
    if (!n[1][1]) return false;
    // P2..P9 clockwise from north.
    const int p[8] = {n[0][1], n[0][2], n[1][2], n[2][2], n[2][1], n[2][0], n[1][0], n[0][0]};
    int neighbours = 0, transitions = 0;
    for (int i = 0; i < 8; ++i) neighbours += p[i], transitions += !p[i] && p[(i + 1) % 8];
    const int north = p[0], east = p[2], south = p[4], west = p[6];
    const bool sides = subIteration == 0 ? (north * east * south == 0 && east * south * west == 0)
                                         : (north * east * west == 0 && north * south * west == 0);
    return !(neighbours >= 2 && neighbours <= 6 && transitions == 1 && sides);
}

// Zhang and Suen's thinning written directly, as the reference.
Picture thinDirectly(Picture picture) {
    for (bool changed = true; changed;) {
        changed = false;
        for (int sub = 0; sub < 2; ++sub) {
            Picture next = picture;
            for (int y = 0; y < picture.ny; ++y)
                for (int x = 0; x < picture.nx; ++x) {
                    int n[3][3];
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx) n[dy + 1][dx + 1] = picture.at(x + dx, y + dy);
                    next.pixels[y * picture.nx + x] = zhangSuenKeeps(n, sub) ? 1 : 0;
                    changed |= next.pixels[y * picture.nx + x] != picture.pixels[y * picture.nx + x];
                }
            picture = next;
        }
    }
    return picture;
}

Picture applied(Picture picture, const std::vector<int>& table, int passes, int border, int* run = nullptr) {
    Picture out(picture.nx, picture.ny);
    const int count = krvApplyMorphoLut(viewOf(picture.pixels, picture.nx, picture.ny), table, passes, border,
                                        viewOf(out.pixels, out.nx, out.ny));
    if (run) *run = count;
    return out;
}

TEST(MorphoLutKernel, ThinningPruningTheBorderPlanesAndRefusals) {
    std::vector<int> thinning = subTable([](const int n[3][3]) { return zhangSuenKeeps(n, 0); });
    const std::vector<int> second = subTable([](const int n[3][3]) { return zhangSuenKeeps(n, 1); });
    thinning.insert(thinning.end(), second.begin(), second.end());
    Picture disk(21, 17);
    for (int y = 0; y < disk.ny; ++y)
        for (int x = 0; x < disk.nx; ++x) disk.pixels[y * disk.nx + x] = (x - 10) * (x - 10) + (y - 8) * (y - 8) <= 49;
    const std::vector<Picture> shapes = {
        Picture({"..............", ".############.", ".############.", ".############.", ".############.", ".............."}),
        Picture({"........", ".###....", ".###....", ".###....", ".######.", ".######.", "........"}),
        disk};
    for (const Picture& shape : shapes) {
        int run = 0;
        const Picture thin = applied(shape, thinning, 0, 0, &run);
        EXPECT_EQ(thin.rows(), thinDirectly(shape).rows());
        EXPECT_GT(run, 1);
    }
    // The rectangle thins to a line along its middle, shortened at the ends.
    EXPECT_EQ(applied(shapes[0], thinning, 0, 0).rows(),
              std::vector<std::string>({"..............", "..............", "...########...", "..............",
                                        "..............", ".............."}));

    // Pruning: a pixel with at most one neighbour goes. Each pass shortens a line by one pixel at each
    // free end; the spur's last pixel stays, held by the line it touches.
    const std::vector<int> pruning = subTable([](const int n[3][3]) { return n[1][1] && setAround(n) > 2; });
    const Picture spur({"...............", ".......#.......", ".......#.......", "..###########..", "..............."});
    EXPECT_EQ(applied(spur, pruning, 2, 0).rows(),
              std::vector<std::string>({"...............", "...............", ".......#.......", "....#######....",
                                        "..............."}));
    // Until stable: an open line goes whole, a closed ring stays; the last pass changed nothing.
    const Picture lineAndRing({"##########.....", "...........###.", "...........#.#.", "...........###."});
    int run = 0;
    EXPECT_EQ(applied(lineAndRing, pruning, 0, 0, &run).rows(),
              std::vector<std::string>({"...............", "...........###.", "...........#.#.", "...........###."}));
    EXPECT_EQ(run, 6);

    // The border state: what lies outside the image.
    const std::vector<int> erosion = subTable([](const int n[3][3]) { return setAround(n) == 9; });
    const Picture full({"#####", "#####", "#####", "#####"});
    EXPECT_EQ(applied(full, erosion, 1, 0).rows(), std::vector<std::string>({".....", ".###.", ".###.", "....."}));
    EXPECT_EQ(applied(full, erosion, 1, 1).rows(), full.rows());
    EXPECT_EQ(applied(full, erosion, 2, 0).rows(), std::vector<std::string>({".....", ".....", ".....", "....."}));

    // A volume goes plane by plane; non-zero voxels of any integer type are set.
    std::vector<std::uint16_t> volume(3 * 3 * 2, 7);
    std::vector<std::uint8_t> out(volume.size());
    krvApplyMorphoLut(viewOf(volume, 3, 3, 2), erosion, 1, 0, viewOf(out, 3, 3, 2));
    EXPECT_EQ(out, std::vector<std::uint8_t>({0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}));

    std::vector<std::uint8_t> pixels(4), result(4);
    EXPECT_EQ(refusal([&] { krvApplyMorphoLut(viewOf(pixels, 2, 2), std::vector<int>(511), 1, 0, viewOf(result, 2, 2)); }),
              "a morphological table holds 512 values per sub-table, not 511");
    EXPECT_EQ(refusal([&] { krvApplyMorphoLut(viewOf(pixels, 2, 2), erosion, 1, 2, viewOf(result, 2, 2)); }),
              "the border state is 0 or 1, not 2");
}

double signedArea(const std::vector<KrvContourPoint>& points) {
    double twice = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const KrvContourPoint& a = points[i];
        const KrvContourPoint& b = points[(i + 1) % points.size()];
        twice += a.x * b.y - b.x * a.y;
    }
    return twice / 2;
}

std::string corners(const KrvContour& contour) {
    std::string text = std::to_string(contour.label) + ":";
    for (const KrvContourPoint& p : contour.points) {
        char point[40];
        std::snprintf(point, sizeof point, " %g,%g", p.x, p.y);
        text += point;
    }
    return text;
}

TEST(ContourKernel, CornersOfKnownShapesAndAreasOfRandomLabels) {
    // Label 1: a ring around a one-pixel hole; label 2: two pixels touching at a corner; label 3: one pixel.
    std::vector<std::int32_t> labels = {
        1, 1, 1, 0, 0, 0,  //
        1, 0, 1, 0, 2, 0,  //
        1, 1, 1, 0, 0, 2,  //
        0, 0, 0, 0, 0, 0,  //
        0, 3, 0, 0, 0, 0,
    };
    std::vector<long> steps;
    const std::vector<KrvContour> contours =
        krvTraceContours(viewOf(labels, 6, 5), [&](long done, long total) { steps.push_back(done * 10 + total); });
    ASSERT_EQ(contours.size(), 4u);
    EXPECT_EQ(corners(contours[0]), "1: -0.5,-0.5 2.5,-0.5 2.5,2.5 -0.5,2.5");
    EXPECT_EQ(corners(contours[1]), "1: 0.5,0.5 0.5,1.5 1.5,1.5 1.5,0.5");
    EXPECT_EQ(corners(contours[2]), "2: 3.5,0.5 4.5,0.5 4.5,1.5 5.5,1.5 5.5,2.5 4.5,2.5 4.5,1.5 3.5,1.5");
    EXPECT_EQ(corners(contours[3]), "3: 0.5,3.5 1.5,3.5 1.5,4.5 0.5,4.5");
    EXPECT_EQ(steps, std::vector<long>({13, 23, 33}));
    // Clockwise on the screen (y down) is a positive shoelace sum here; the hole's is negative.
    EXPECT_EQ(signedArea(contours[0].points), 9);
    EXPECT_EQ(signedArea(contours[1].points), -1);

    std::vector<std::int32_t> volume(8);
    EXPECT_EQ(refusal([&] { krvTraceContours(viewOf(volume, 2, 2, 2)); }),
              "the labels image is 3-D; contours are traced in 2-D images");

    // Random labels: for each label, the contours' areas add up to its pixel count, and every item is
    // one step along a pixel edge between corners (no collinear corner kept).
    std::mt19937 random(17);
    std::vector<std::uint16_t> many(40 * 30);
    for (auto& label : many) label = std::uint16_t(random() % 5 == 0 ? 0 : 1 + random() % 4);
    std::vector<double> area(5, 0.0), pixels(5, 0.0);
    for (auto label : many) pixels[label] += 1;
    for (const KrvContour& contour : krvTraceContours(viewOf(many, 40, 30))) {
        area[std::size_t(contour.label)] += signedArea(contour.points);
        const std::size_t n = contour.points.size();
        for (std::size_t i = 0; i < n; ++i) {
            const KrvContourPoint &a = contour.points[i], &b = contour.points[(i + 1) % n], &c = contour.points[(i + 2) % n];
            ASSERT_TRUE(a.x == b.x || a.y == b.y) << corners(contour);
            ASSERT_FALSE((a.x == b.x && b.x == c.x) || (a.y == b.y && b.y == c.y)) << corners(contour);
        }
    }
    for (int label = 1; label <= 4; ++label) EXPECT_EQ(area[label], pixels[label]) << label;
}

}  // namespace
