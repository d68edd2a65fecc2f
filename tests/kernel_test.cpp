// The image kernels: exact values on synthetic images, and agreement with scikit-image (and the
// SciPy functions it builds on) on random images of a fixed seed.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include <vantry_access_korlib/KrvKernels.h>
#include <vantry_util/KrvBaseException.h>

namespace {

// An image that owns its voxels, for the kernels' views.
template <class T>
struct Grid {
    int nx, ny, nz;
    std::vector<T> voxels;
    KrvVoxelSize size;
    Grid(int x, int y, int z = 1, T fill = T{}) : nx(x), ny(y), nz(z), voxels(static_cast<std::size_t>(x) * y * z, fill) {}
    T& at(int x, int y, int z = 0) { return voxels[(static_cast<std::size_t>(z) * ny + y) * nx + x]; }
    KrvVoxelView view() { return {voxels.data(), nx, ny, nz, KrvVoxelTypeOf<T>::value, size}; }
    std::vector<double> values() const { return {voxels.begin(), voxels.end()}; }
};

// Random blobs: smoothed noise above a level, so that objects of many shapes touch and enclose.
Grid<std::uint8_t> blobs(int nx, int ny, int nz, unsigned seed, double fraction = 0.45) {
    std::mt19937 random(seed);
    Grid<float> noise(nx, ny, nz);
    for (float& v : noise.voxels) v = static_cast<float>(random() % 1000);
    Grid<float> smooth(nx, ny, nz);
    KrvKernels::Gaussian(noise.view(), smooth.view(), 1.2);
    std::vector<float> sorted = smooth.voxels;
    std::sort(sorted.begin(), sorted.end());
    const float level = sorted[static_cast<std::size_t>(sorted.size() * (1 - fraction))];
    Grid<std::uint8_t> image(nx, ny, nz);
    for (std::size_t i = 0; i < image.voxels.size(); ++i) image.voxels[i] = smooth.voxels[i] >= level ? 255 : 0;
    return image;
}

Grid<std::uint8_t> noise(int nx, int ny, int nz, unsigned seed) {
    std::mt19937 random(seed);
    Grid<std::uint8_t> image(nx, ny, nz);
    for (auto& v : image.voxels) v = static_cast<std::uint8_t>(random() % 200 + 20);
    return image;
}

// Runs `code` with /usr/bin/python3 (where Debian's scikit-image lives), `a` being the voxels as
// a float64 array of shape (nz, ny, nx), or (ny, nx) for a 2-D image; `r` must be set to the
// result, which comes back flattened. Empty when python3-skimage is missing.
std::vector<double> reference(const std::string& code, const std::vector<double>& a, int nx, int ny, int nz) {
    char folder[] = "/tmp/kernel_test_XXXXXX";
    if (mkdtemp(folder) == nullptr) return {};
    const std::string in = std::string(folder) + "/in.raw", out = std::string(folder) + "/out.raw";
    std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(a.data()), static_cast<std::streamsize>(a.size() * sizeof(double)));
    const std::string shape = nz > 1 ? "(" + std::to_string(nz) + "," + std::to_string(ny) + "," + std::to_string(nx) + ")"
                                     : "(" + std::to_string(ny) + "," + std::to_string(nx) + ")";
    std::ofstream(std::string(folder) + "/run.py")
        << "import numpy as np, scipy.ndimage as ndi, skimage.filters, skimage.measure\n"
        << "a = np.fromfile('" << in << "', dtype=np.float64).reshape(" << shape << ")\n"
        << code << "\n"
        << "np.asarray(r, dtype=np.float64).tofile('" << out << "')\n";
    const std::string command = "/usr/bin/python3 " + std::string(folder) + "/run.py 2>/dev/null";
    std::vector<double> result;
    if (std::system(command.c_str()) == 0) {
        std::ifstream file(out, std::ios::binary | std::ios::ate);
        result.resize(static_cast<std::size_t>(file.tellg()) / sizeof(double));
        file.seekg(0);
        file.read(reinterpret_cast<char*>(result.data()), static_cast<std::streamsize>(result.size() * sizeof(double)));
    }
    std::system(("rm -rf " + std::string(folder)).c_str());
    return result;
}

#define REFERENCE_OR_SKIP(result, ...)                                                   \
    const std::vector<double> result = reference(__VA_ARGS__);                             \
    if (result.empty()) GTEST_SKIP() << "python3-skimage is not installed in /usr/bin"

TEST(KernelTest, GaussianAndMedianAgreeWithScikitImage) {
    Grid<std::uint8_t> image = noise(21, 17, 13, 1);
    Grid<float> floats(21, 17, 13);
    for (std::size_t i = 0; i < floats.voxels.size(); ++i) floats.voxels[i] = image.voxels[i];
    Grid<float> smooth(21, 17, 13);
    KrvKernels::Gaussian(floats.view(), smooth.view(), 1.5);
    REFERENCE_OR_SKIP(gauss, "r = skimage.filters.gaussian(a, sigma=1.5, mode='nearest', truncate=4.0, preserve_range=True)",
                      floats.values(), 21, 17, 13);
    ASSERT_EQ(gauss.size(), smooth.voxels.size());
    for (std::size_t i = 0; i < gauss.size(); ++i) ASSERT_NEAR(smooth.voxels[i], gauss[i], 1e-4) << i;  // float32 rounding

    Grid<std::uint8_t> median(21, 17, 13);
    KrvKernels::Median(image.view(), median.view(), 3);
    const std::vector<double> expected = reference(
        "r = skimage.filters.median(a.astype(np.uint8), footprint=np.ones((3,3,3)), mode='nearest')", image.values(), 21, 17, 13);
    EXPECT_EQ(median.values(), expected);  // a median is one of the values: exact
    Grid<float> floatMedian(21, 17, 13);  // other types take another path to the same values
    KrvKernels::Median(floats.view(), floatMedian.view(), 3);
    EXPECT_EQ(floatMedian.values(), expected);

    Grid<std::uint8_t> flat = noise(40, 30, 1, 2), flatMedian(40, 30);
    KrvKernels::Median(flat.view(), flatMedian.view(), 5);
    EXPECT_EQ(flatMedian.values(), reference("r = skimage.filters.median(a.astype(np.uint8), footprint=np.ones((5,5)), mode='nearest')",
                                             flat.values(), 40, 30, 1));
    EXPECT_THROW(KrvKernels::Median(flat.view(), flatMedian.view(), 4), KrvBaseException);
}

TEST(KernelTest, AutomaticThresholdsAreScikitImages) {
    Grid<std::uint8_t> image = noise(64, 48, 1, 3);
    for (int y = 10; y < 30; ++y)
        for (int x = 20; x < 50; ++x) image.at(x, y) = static_cast<std::uint8_t>(image.at(x, y) / 4 + 180);
    REFERENCE_OR_SKIP(otsu, "r = [skimage.filters.threshold_otsu(a.astype(np.uint8)), skimage.filters.threshold_isodata(a.astype(np.uint8))]",
                      image.values(), 64, 48, 1);
    EXPECT_EQ(KrvKernels::AutoThresholdValue(image.view(), KrvThresholdMethod::Otsu), otsu[0]);
    EXPECT_EQ(KrvKernels::AutoThresholdValue(image.view(), KrvThresholdMethod::Isodata), otsu[1]);
    Grid<float> floats(64, 48);
    for (std::size_t i = 0; i < floats.voxels.size(); ++i) floats.voxels[i] = image.voxels[i] * 0.01f + 0.003f;
    const std::vector<double> floatOtsu =
        reference("r = [skimage.filters.threshold_otsu(a.astype(np.float32))]", floats.values(), 64, 48, 1);
    // 256 bins over the float image's range: the same bin, its centre to float32 rounding.
    EXPECT_NEAR(KrvKernels::AutoThresholdValue(floats.view(), KrvThresholdMethod::Otsu), floatOtsu[0], 1e-5);
}

TEST(KernelTest, LabelsAreScikitImagesInBothConnectivitiesAndDimensions) {
    struct Case {
        int nz, connectivity, reference;
    };
    for (const Case c : {Case{1, 4, 1}, Case{1, 8, 2}, Case{12, 6, 1}, Case{12, 26, 3}}) {
        SCOPED_TRACE(c.connectivity);
        Grid<std::uint8_t> image = blobs(37, 29, c.nz, 4, 0.3);
        Grid<std::int32_t> labels(37, 29, c.nz);
        const std::int32_t count = KrvKernels::Label(image.view(), labels.view(), c.connectivity);
        REFERENCE_OR_SKIP(expected, "r = skimage.measure.label(a > 0, connectivity=" + std::to_string(c.reference) + ")",
                          image.values(), 37, 29, c.nz);
        EXPECT_EQ(labels.values(), expected);
        EXPECT_EQ(count, *std::max_element(expected.begin(), expected.end()));
        EXPECT_GT(count, 3);
    }
}

TEST(KernelTest, DistanceTransformAndFillHolesAreSciPys) {
    for (const int nz : {1, 10}) {
        Grid<std::uint8_t> image = blobs(33, 27, nz, 5, 0.6);
        image.size = {0.5, 1.25, 2.0};
        Grid<float> distance(33, 27, nz);
        KrvKernels::DistanceTransform(image.view(), distance.view());
        const std::string sampling = nz > 1 ? "(2.0, 1.25, 0.5)" : "(1.25, 0.5)";
        REFERENCE_OR_SKIP(expected, "r = ndi.distance_transform_edt(a > 0, sampling=" + sampling + ")", image.values(), 33, 27, nz);
        ASSERT_EQ(expected.size(), distance.voxels.size());
        for (std::size_t i = 0; i < expected.size(); ++i)
            ASSERT_NEAR(distance.voxels[i], expected[i], 1e-5 * (1 + expected[i])) << i;  // float32 rounding

        Grid<std::uint8_t> filled(33, 27, nz);
        KrvKernels::FillHoles(image.view(), filled.view());
        std::vector<double> holes = reference("r = ndi.binary_fill_holes(a > 0) * 255", image.values(), 33, 27, nz);
        EXPECT_EQ(filled.values(), holes);
        EXPECT_NE(filled.values(), image.values());  // the blobs do enclose holes
    }
    Grid<std::uint8_t> full(4, 4, 1, 255);
    Grid<float> distance(4, 4);
    KrvKernels::DistanceTransform(full.view(), distance.view());
    EXPECT_TRUE(std::isinf(distance.at(2, 2)));  // no background anywhere
}

TEST(KernelTest, ExactValuesOfSyntheticImages) {
    // Morphology of a 5x5 square: the square element grows it to 7x7, the cross by its 4 sides.
    Grid<std::uint8_t> square(11, 11);
    for (int y = 3; y < 8; ++y)
        for (int x = 3; x < 8; ++x) square.at(x, y) = 255;
    auto countOf = [](const Grid<std::uint8_t>& g) { return std::count(g.voxels.begin(), g.voxels.end(), 255); };
    Grid<std::uint8_t> out(11, 11);
    KrvKernels::Morphology(KrvMorphology::Dilate, square.view(), out.view(), 1, 8);
    EXPECT_EQ(countOf(out), 49);
    KrvKernels::Morphology(KrvMorphology::Dilate, square.view(), out.view(), 1, 4);
    EXPECT_EQ(countOf(out), 45);
    KrvKernels::Morphology(KrvMorphology::Erode, square.view(), out.view(), 1, 8);
    EXPECT_EQ(countOf(out), 9);
    EXPECT_EQ(out.at(4, 4), 255);
    KrvKernels::Morphology(KrvMorphology::Open, square.view(), out.view(), 1, 8);
    EXPECT_EQ(out.voxels, square.voxels);
    KrvKernels::Morphology(KrvMorphology::TopHat, square.view(), out.view(), 3, 8);  // opened away entirely
    EXPECT_EQ(out.voxels, square.voxels);

    // A bar three pixels thick thins to one pixel per column.
    Grid<std::uint8_t> bar(20, 9);
    for (int y = 3; y < 6; ++y)
        for (int x = 2; x < 18; ++x) bar.at(x, y) = 255;
    Grid<std::uint8_t> thin(20, 9);
    KrvKernels::Skeleton(bar.view(), thin.view());
    for (int x = 4; x < 16; ++x) {
        int column = 0;
        for (int y = 0; y < 9; ++y) column += thin.at(x, y) ? 1 : 0;
        EXPECT_EQ(column, 1) << x;
    }
    EXPECT_EQ(thin.at(9, 4), 255);

    // Mean of an impulse, Sobel of a constant, Laplacian of x².
    Grid<float> impulse(5, 5), smoothed(5, 5);
    impulse.at(2, 2) = 9;
    KrvKernels::Mean(impulse.view(), smoothed.view(), 3);
    EXPECT_FLOAT_EQ(smoothed.at(1, 1), 1.0f);
    EXPECT_FLOAT_EQ(smoothed.at(0, 0), 0.0f);
    Grid<std::uint16_t> constant(6, 6, 3, 700);
    Grid<float> gradient(6, 6, 3);
    KrvKernels::GradientSobel(constant.view(), gradient.view());
    EXPECT_EQ(*std::max_element(gradient.voxels.begin(), gradient.voxels.end()), 0.0f);
    Grid<float> parabola(7, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 7; ++x) parabola.at(x, y) = static_cast<float>(x * x);
    Grid<float> laplacian(7, 3);
    KrvKernels::Laplacian(parabola.view(), laplacian.view());
    EXPECT_FLOAT_EQ(laplacian.at(3, 1), 2.0f);
    Grid<std::uint8_t> bright(3, 1, 1, 100), sharp(3, 1);
    bright.at(1, 0) = 200;
    KrvKernels::Sharpen(bright.view(), sharp.view(), 3);
    EXPECT_EQ(sharp.at(1, 0), 255);  // 2 * 200 - 133.3, clamped
    EXPECT_EQ(sharp.at(0, 0), 67);   // 2 * 100 - 133.3, rounded
}

TEST(KernelTest, ThresholdsArithmeticAndGeometryOnKnownValues) {
    Grid<std::uint16_t> ramp(3, 2);
    for (int i = 0; i < 6; ++i) ramp.voxels[static_cast<std::size_t>(i)] = static_cast<std::uint16_t>(i * 10);
    Grid<std::uint8_t> binary(3, 2);
    KrvKernels::Threshold(ramp.view(), binary.view(), 10, 30);  // both ends included
    EXPECT_EQ(binary.voxels, (std::vector<std::uint8_t>{0, 255, 255, 255, 0, 0}));

    Grid<std::uint8_t> a(2, 1), b(2, 1), sum(2, 1);
    a.voxels = {200, 10};
    b.voxels = {100, 20};
    KrvKernels::Arithmetic(KrvArithmetic::Add, a.view(), b.view(), sum.view());
    EXPECT_EQ(sum.voxels, (std::vector<std::uint8_t>{255, 30}));
    KrvKernels::Arithmetic(KrvArithmetic::Subtract, a.view(), b.view(), sum.view());
    EXPECT_EQ(sum.voxels, (std::vector<std::uint8_t>{100, 0}));
    Grid<float> scale(2, 1, 1, 0.5f), product(2, 1);
    EXPECT_EQ(KrvKernels::WiderType(KrvVoxelType::UInt8, KrvVoxelType::Float32), KrvVoxelType::Float32);
    KrvKernels::Arithmetic(KrvArithmetic::Multiply, a.view(), scale.view(), product.view());
    EXPECT_EQ(product.voxels, (std::vector<float>{100.0f, 5.0f}));
    EXPECT_THROW(KrvKernels::Arithmetic(KrvArithmetic::Add, a.view(), b.view(), product.view()), KrvBaseException);
    KrvKernels::Invert(a.view(), sum.view());
    EXPECT_EQ(sum.voxels, (std::vector<std::uint8_t>{55, 245}));

    // 0 1 2 / 3 4 5 turned counter-clockwise: 2 5 / 1 4 / 0 3; mirrored: 2 1 0 / 5 4 3.
    Grid<std::uint16_t> turned(2, 3), mirrored(3, 2);
    KrvKernels::Rotate90(ramp.view(), turned.view());
    EXPECT_EQ(turned.voxels, (std::vector<std::uint16_t>{20, 50, 10, 40, 0, 30}));
    KrvKernels::FlipHorizontal(ramp.view(), mirrored.view());
    EXPECT_EQ(mirrored.voxels, (std::vector<std::uint16_t>{20, 10, 0, 50, 40, 30}));
    Grid<std::uint16_t> cropped(2, 1), doubled(6, 4);
    KrvKernels::Crop(ramp.view(), cropped.view(), 1, 1, 0);
    EXPECT_EQ(cropped.voxels, (std::vector<std::uint16_t>{40, 50}));
    KrvKernels::Resample(ramp.view(), doubled.view(), false);
    EXPECT_EQ(doubled.at(0, 0), 0);
    EXPECT_EQ(doubled.at(5, 3), 50);
    EXPECT_EQ(doubled.at(3, 1), 10);
    KrvKernels::Resample(ramp.view(), doubled.view(), true);
    EXPECT_EQ(doubled.at(1, 0), 3);  // a quarter of the way from 0 to 10, rounded

    std::vector<double> edges, counts;
    KrvKernels::Histogram(ramp.view(), 3, edges, counts);
    EXPECT_EQ(edges, (std::vector<double>{0, 17, 34}));
    EXPECT_EQ(counts, (std::vector<double>{2, 2, 2}));

    Grid<std::uint8_t> line(20, 12);
    for (int x = 0; x < 20; ++x) line.at(x, 5) = 255;
    const std::vector<KrvLineSegment> lines = KrvKernels::HoughLines(line.view(), 15);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NEAR(lines[0].x1, 0, 1e-4);
    EXPECT_NEAR(lines[0].y1, 5, 1e-4);
    EXPECT_NEAR(lines[0].x2, 19, 1e-4);
    EXPECT_NEAR(lines[0].y2, 5, 1e-4);
}

TEST(KernelTest, WatershedSplitsTouchingDisksAndRemoveSmallDropsSpecks) {
    Grid<std::uint8_t> disks(40, 24);
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 40; ++x)
            if (std::hypot(x - 12, y - 12) <= 9 || std::hypot(x - 27, y - 12) <= 9) disks.at(x, y) = 255;
    Grid<std::int32_t> labels(40, 24), joined(40, 24);
    EXPECT_EQ(KrvKernels::Label(disks.view(), joined.view(), 8), 1);
    EXPECT_EQ(KrvKernels::Watershed(disks.view(), labels.view(), 8), 2);
    EXPECT_EQ(labels.at(12, 12), 1);
    EXPECT_EQ(labels.at(27, 12), 2);
    EXPECT_EQ(labels.at(0, 0), 0);
    for (std::size_t i = 0; i < labels.voxels.size(); ++i) EXPECT_EQ(labels.voxels[i] != 0, disks.voxels[i] != 0);

    disks.at(38, 1) = disks.at(38, 2) = 255;  // a speck of two pixels
    Grid<std::uint8_t> cleaned(40, 24);
    KrvKernels::RemoveSmall(disks.view(), cleaned.view(), 3, 8);
    EXPECT_EQ(cleaned.at(38, 1), 0);
    EXPECT_EQ(cleaned.at(12, 12), 255);
}

}  // namespace
