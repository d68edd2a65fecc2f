// The image kernels: exact values on synthetic images, and agreement with scikit-image (and the
// SciPy functions it builds on) on random images of a fixed seed.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include <vantry_access_korlib/KrvKernels.h>

#include "support/Voxels.h"

using kapitest::Voxels;
using Bytes = Voxels<std::uint8_t>;

namespace {

// Random blobs: smoothed noise above a level, so that objects of many shapes touch and enclose.
Bytes blobs(int nx, int ny, int nz, unsigned seed, double fraction) {
    std::mt19937 random(seed);
    Voxels<float> noise(nx, ny, nz), smooth(nx, ny, nz);
    for (float& v : noise.voxels) v = static_cast<float>(random() % 1000);
    KrvKernels::Gaussian(noise.view(), smooth.view(), 1.2);
    std::vector<float> sorted = smooth.voxels;
    std::sort(sorted.begin(), sorted.end());
    const float level = sorted[static_cast<std::size_t>(sorted.size() * (1 - fraction))];
    Bytes image(nx, ny, nz);
    for (std::size_t i = 0; i < image.voxels.size(); ++i) image.voxels[i] = smooth.voxels[i] >= level ? 255 : 0;
    return image;
}

Bytes noise(int nx, int ny, int nz, unsigned seed) {
    std::mt19937 random(seed);
    Bytes image(nx, ny, nz);
    for (auto& v : image.voxels) v = static_cast<std::uint8_t>(random() % 200 + 20);
    return image;
}

// A computation by /usr/bin/python3 (where Debian's scikit-image lives): `code` sets `r` from `a`,
// the voxels as float64 of shape (nz, ny, nx), or (ny, nx) in 2-D; `r` comes back flattened.
struct Reference {
    std::string code;
    std::vector<double> a;
    int nx, ny, nz;
};

// Each reference's result, from one run of python3; empty when python3-skimage is missing.
std::vector<std::vector<double>> references(const std::vector<Reference>& all) {
    char folder[] = "/tmp/kernel_test_XXXXXX";
    if (mkdtemp(folder) == nullptr) return {};
    const std::string dir = folder;
    std::ofstream script(dir + "/run.py");
    script << "import numpy as np, scipy.ndimage as ndi, skimage.filters, skimage.measure\n";
    for (std::size_t i = 0; i < all.size(); ++i) {
        const Reference& c = all[i];
        const std::string file = dir + "/" + std::to_string(i);
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(c.a.data()), static_cast<std::streamsize>(c.a.size() * sizeof(double)));
        script << "a = np.fromfile('" << file << "').reshape(" << (c.nz > 1 ? std::to_string(c.nz) + "," : "") << c.ny
               << "," << c.nx << ")\n" << c.code << "\nnp.asarray(r, dtype=np.float64).tofile('" << file << "')\n";
    }
    script.close();
    std::vector<std::vector<double>> results;
    if (std::system(("/usr/bin/python3 " + dir + "/run.py 2>/dev/null").c_str()) == 0)
        for (std::size_t i = 0; i < all.size(); ++i) results.push_back(kapitest::readRaw<double>(dir + "/" + std::to_string(i)));
    std::system(("rm -rf " + dir).c_str());
    return results;
}

template <class T>
void expectNear(const Voxels<T>& ours, const std::vector<double>& expected, double relative) {
    ASSERT_EQ(ours.voxels.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_NEAR(ours.voxels[i], expected[i], relative * (1 + std::abs(expected[i]))) << i;  // float32 rounding
}

TEST(KernelTest, FiltersThresholdsLabelsAndDistancesAreScikitImages) {
    Bytes image = noise(21, 17, 13, 1), flat = noise(40, 30, 1, 2), flatMedian(40, 30), median(21, 17, 13);
    Voxels<float> floats(21, 17, 13), smooth(21, 17, 13), floatMedian(21, 17, 13);
    floats.voxels.assign(image.voxels.begin(), image.voxels.end());
    KrvKernels::Gaussian(floats.view(), smooth.view(), 1.5);
    KrvKernels::Median(image.view(), median.view(), 3);
    KrvKernels::Median(floats.view(), floatMedian.view(), 3);  // other types take another path to the same values
    KrvKernels::Median(flat.view(), flatMedian.view(), 5);
    EXPECT_THROW(KrvKernels::Median(flat.view(), flatMedian.view(), 4), KrvBaseException);
    Bytes bright = noise(64, 48, 1, 3);
    for (int y = 10; y < 30; ++y)
        for (int x = 20; x < 50; ++x) bright.at(x, y) = static_cast<std::uint8_t>(bright.at(x, y) / 4 + 180);
    Voxels<float> brightFloats(64, 48);
    for (std::size_t i = 0; i < brightFloats.voxels.size(); ++i) brightFloats.voxels[i] = bright.voxels[i] * 0.01f + 0.003f;
    const std::string median3 = "r = skimage.filters.median(a.astype(np.uint8), footprint=np.ones(";
    std::vector<Reference> all = {
        {"r = skimage.filters.gaussian(a, sigma=1.5, mode='nearest', truncate=4.0, preserve_range=True)", floats.values(), 21, 17, 13},
        {median3 + "(3,3,3)), mode='nearest')", image.values(), 21, 17, 13},
        {median3 + "(5,5)), mode='nearest')", flat.values(), 40, 30, 1},
        {"r = [skimage.filters.threshold_otsu(a.astype(np.uint8)), skimage.filters.threshold_isodata(a.astype(np.uint8))]",
         bright.values(), 64, 48, 1},
        {"r = [skimage.filters.threshold_otsu(a.astype(np.float32))]", brightFloats.values(), 64, 48, 1}};
    // Labels in both connectivities of both dimensions (skimage's 1 is 4 or 6, its 2 is 8, its 3 is 26).
    const int connectivities[][3] = {{1, 4, 1}, {1, 8, 2}, {12, 6, 1}, {12, 26, 3}};
    std::vector<Voxels<std::int32_t>> labels;
    std::vector<std::int32_t> counts;
    for (const auto& [nz, connectivity, theirs] : connectivities) {
        Bytes blobbed = blobs(37, 29, nz, 4, 0.3);
        labels.emplace_back(37, 29, nz);
        counts.push_back(KrvKernels::Label(blobbed.view(), labels.back().view(), connectivity));
        all.push_back({"r = skimage.measure.label(a > 0, connectivity=" + std::to_string(theirs) + ")", blobbed.values(), 37, 29, nz});
    }
    // Distances on anisotropic voxels and filled holes, in 2-D and 3-D.
    std::vector<Voxels<float>> distances;
    std::vector<Bytes> filled, holey;
    for (const int nz : {1, 10}) {
        holey.push_back(blobs(33, 27, nz, 5, 0.6));
        holey.back().size = {0.5, 1.25, 2.0};
        distances.emplace_back(33, 27, nz);
        filled.emplace_back(33, 27, nz);
        KrvKernels::DistanceTransform(holey.back().view(), distances.back().view());
        KrvKernels::FillHoles(holey.back().view(), filled.back().view());
        const std::string sampling = nz > 1 ? "(2.0, 1.25, 0.5)" : "(1.25, 0.5)";
        all.push_back({"r = ndi.distance_transform_edt(a > 0, sampling=" + sampling + ")", holey.back().values(), 33, 27, nz});
        all.push_back({"r = ndi.binary_fill_holes(a > 0) * 255", holey.back().values(), 33, 27, nz});
    }

    const std::vector<std::vector<double>> r = references(all);
    if (r.empty()) GTEST_SKIP() << "python3-skimage is not installed in /usr/bin";
    expectNear(smooth, r[0], 1e-4);
    EXPECT_EQ(median.values(), r[1]);  // a median is one of the values: exact
    EXPECT_EQ(floatMedian.values(), r[1]);
    EXPECT_EQ(flatMedian.values(), r[2]);
    EXPECT_EQ(KrvKernels::AutoThresholdValue(bright.view(), KrvThresholdMethod::Otsu), r[3][0]);
    EXPECT_EQ(KrvKernels::AutoThresholdValue(bright.view(), KrvThresholdMethod::Isodata), r[3][1]);
    // 256 bins over the float image's range: the same bin, its centre to float32 rounding.
    EXPECT_NEAR(KrvKernels::AutoThresholdValue(brightFloats.view(), KrvThresholdMethod::Otsu), r[4][0], 1e-5);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        EXPECT_EQ(labels[i].values(), r[5 + i]) << connectivities[i][1];
        EXPECT_EQ(counts[i], *std::max_element(r[5 + i].begin(), r[5 + i].end()));
        EXPECT_GT(counts[i], 3);
    }
    for (std::size_t i = 0; i < distances.size(); ++i) {
        expectNear(distances[i], r[9 + 2 * i], 1e-5);
        EXPECT_EQ(filled[i].values(), r[10 + 2 * i]);
        EXPECT_NE(filled[i].values(), holey[i].values());  // the blobs do enclose holes
    }
    Bytes full(4, 4, 1, {}, 255);
    Voxels<float> far(4, 4);
    KrvKernels::DistanceTransform(full.view(), far.view());
    EXPECT_TRUE(std::isinf(far.at(2, 2)));  // no background anywhere
}

TEST(KernelTest, ExactValuesOfSyntheticImages) {
    // Morphology of a 5x5 square: the square element grows it to 7x7, the cross by its 4 sides.
    Bytes square(11, 11), out(11, 11);
    square.draw(255, [](double x, double y, double) { return x >= 3 && x < 8 && y >= 3 && y < 8; });
    const auto morphology = [&](KrvMorphology op, int radius, int connectivity) {
        KrvKernels::Morphology(op, square.view(), out.view(), radius, connectivity);
        return std::count(out.voxels.begin(), out.voxels.end(), 255);
    };
    EXPECT_EQ(morphology(KrvMorphology::Dilate, 1, 8), 49);
    EXPECT_EQ(morphology(KrvMorphology::Dilate, 1, 4), 45);
    EXPECT_EQ(morphology(KrvMorphology::Erode, 1, 8), 9);
    EXPECT_EQ(out.at(4, 4), 255);
    morphology(KrvMorphology::Open, 1, 8);
    EXPECT_EQ(out.voxels, square.voxels);
    morphology(KrvMorphology::TopHat, 3, 8);  // opened away entirely
    EXPECT_EQ(out.voxels, square.voxels);

    // A bar three pixels thick thins to one pixel per column.
    Bytes bar(20, 9), thin(20, 9);
    bar.draw(255, [](double x, double y, double) { return x >= 2 && x < 18 && y >= 3 && y < 6; });
    KrvKernels::Skeleton(bar.view(), thin.view());
    for (int x = 4; x < 16; ++x) {
        int column = 0;
        for (int y = 0; y < 9; ++y) column += thin.at(x, y) ? 1 : 0;
        EXPECT_EQ(column, 1) << x;
    }
    EXPECT_EQ(thin.at(9, 4), 255);

    // Mean of an impulse, Sobel of a constant, Laplacian of x², sharpening clamped and rounded.
    Voxels<float> impulse(5, 5), smoothed(5, 5), parabola(7, 3), laplacian(7, 3), gradient(6, 6, 3);
    impulse.at(2, 2) = 9;
    KrvKernels::Mean(impulse.view(), smoothed.view(), 3);
    EXPECT_EQ(smoothed.at(1, 1), 1.0f);
    EXPECT_EQ(smoothed.at(0, 0), 0.0f);
    Voxels<std::uint16_t> constant(6, 6, 3, {}, 700);
    KrvKernels::GradientSobel(constant.view(), gradient.view());
    EXPECT_EQ(*std::max_element(gradient.voxels.begin(), gradient.voxels.end()), 0.0f);
    for (std::size_t i = 0; i < parabola.voxels.size(); ++i) parabola.voxels[i] = float((i % 7) * (i % 7));
    KrvKernels::Laplacian(parabola.view(), laplacian.view());
    EXPECT_FLOAT_EQ(laplacian.at(3, 1), 2.0f);
    Bytes peak(3, 1, {100, 200, 100}), sharp(3, 1);
    KrvKernels::Sharpen(peak.view(), sharp.view(), 3);
    EXPECT_EQ(sharp.voxels, (std::vector<std::uint8_t>{67, 255, 67}));  // 2 v - 133.3: rounded, clamped

    // Thresholds, arithmetic, geometry, histograms and lines on known values.
    Voxels<std::uint16_t> ramp(3, 2, {0, 10, 20, 30, 40, 50});
    std::vector<std::uint8_t> binary(7, 9);  // a byte past the view: a write past the end shows
    KrvKernels::Threshold(ramp.view(), kapitest::viewOf(binary, 3, 2), 10, 30);  // both ends included
    EXPECT_EQ(binary, (std::vector<std::uint8_t>{0, 255, 255, 255, 0, 0, 9}));

    Bytes a(2, 1, {200, 10}), b(2, 1, {100, 20}), sum(2, 1);
    KrvKernels::Arithmetic(KrvArithmetic::Add, a.view(), b.view(), sum.view());
    EXPECT_EQ(sum.voxels, (std::vector<std::uint8_t>{255, 30}));
    KrvKernels::Arithmetic(KrvArithmetic::Subtract, a.view(), b.view(), sum.view());
    EXPECT_EQ(sum.voxels, (std::vector<std::uint8_t>{100, 0}));
    Voxels<float> scale(2, 1, {0.5f, 0.5f}), product(2, 1);
    EXPECT_EQ(KrvKernels::WiderType(KrvVoxelType::UInt8, KrvVoxelType::Float32), KrvVoxelType::Float32);
    KrvKernels::Arithmetic(KrvArithmetic::Multiply, a.view(), scale.view(), product.view());
    EXPECT_EQ(product.voxels, (std::vector<float>{100.0f, 5.0f}));
    EXPECT_THROW(KrvKernels::Arithmetic(KrvArithmetic::Add, a.view(), b.view(), product.view()), KrvBaseException);
    KrvKernels::Invert(a.view(), sum.view());
    EXPECT_EQ(sum.voxels, (std::vector<std::uint8_t>{55, 245}));
    Voxels<std::int32_t> signedValues(2, 1, {-5, 7}), inverted(2, 1);
    KrvKernels::Invert(signedValues.view(), inverted.view());
    EXPECT_EQ(inverted.voxels, (std::vector<std::int32_t>{2147483647, 2147483640}));  // saturated, not wrapped

    // 0 1 2 / 3 4 5 turned counter-clockwise: 2 5 / 1 4 / 0 3; mirrored: 2 1 0 / 5 4 3.
    Voxels<std::uint16_t> turned(2, 3), mirrored(3, 2), cropped(2, 1), doubled(6, 4);
    KrvKernels::Rotate90(ramp.view(), turned.view());
    EXPECT_EQ(turned.voxels, (std::vector<std::uint16_t>{20, 50, 10, 40, 0, 30}));
    KrvKernels::FlipHorizontal(ramp.view(), mirrored.view());
    EXPECT_EQ(mirrored.voxels, (std::vector<std::uint16_t>{20, 10, 0, 50, 40, 30}));
    KrvKernels::Crop(ramp.view(), cropped.view(), 1, 1, 0);
    EXPECT_EQ(cropped.voxels, (std::vector<std::uint16_t>{40, 50}));
    KrvKernels::Resample(ramp.view(), doubled.view(), false);
    EXPECT_EQ(std::vector<int>({doubled.at(0, 0), doubled.at(5, 3), doubled.at(3, 1)}), std::vector<int>({0, 50, 10}));
    KrvKernels::Resample(ramp.view(), doubled.view(), true);
    EXPECT_EQ(doubled.at(1, 0), 3);  // a quarter of the way from 0 to 10, rounded

    std::vector<double> edges, counts;
    KrvKernels::Histogram(ramp.view(), 3, edges, counts);
    EXPECT_EQ(edges, (std::vector<double>{0, 17, 34}));
    EXPECT_EQ(counts, (std::vector<double>{2, 2, 2}));
    Voxels<float> withNaN(3, 1, {1.0f, std::nanf(""), 3.0f}), onlyNaN(1, 1, 1, {}, std::nanf(""));
    KrvKernels::Histogram(withNaN.view(), 2, edges, counts);  // what is no number is not counted
    EXPECT_EQ(counts, (std::vector<double>{1, 1}));
    EXPECT_THROW(KrvKernels::AutoThresholdValue(onlyNaN.view(), KrvThresholdMethod::Otsu), KrvBaseException);

    Bytes line(20, 12);
    line.draw(255, [](double, double y, double) { return y == 5; });
    const std::vector<KrvLineSegment> lines = KrvKernels::HoughLines(line.view(), 15);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NEAR(std::hypot(lines[0].x1, lines[0].y1 - 5) + std::hypot(lines[0].x2 - 19, lines[0].y2 - 5), 0, 1e-4);

    // The watershed splits touching disks; RemoveSmall drops specks.
    Bytes disks(40, 24), cleaned(40, 24);
    disks.draw(255, [](double x, double y, double) { return std::hypot(x - 12, y - 12) <= 9 || std::hypot(x - 27, y - 12) <= 9; });
    Voxels<std::int32_t> labels(40, 24), joined(40, 24);
    EXPECT_EQ(KrvKernels::Label(disks.view(), joined.view(), 8), 1);
    EXPECT_EQ(KrvKernels::Watershed(disks.view(), labels.view(), 8), 2);
    EXPECT_EQ(std::vector<int>({labels.at(12, 12), labels.at(27, 12), labels.at(0, 0)}), std::vector<int>({1, 2, 0}));
    for (std::size_t i = 0; i < labels.voxels.size(); ++i) EXPECT_EQ(labels.voxels[i] != 0, disks.voxels[i] != 0);

    disks.at(38, 1) = disks.at(38, 2) = 255;  // a speck of two pixels
    KrvKernels::RemoveSmall(disks.view(), cleaned.view(), 3, 8);
    EXPECT_EQ(cleaned.at(38, 1), 0);
    EXPECT_EQ(cleaned.at(12, 12), 255);
}

}  // namespace
