// Labelling and measuring a 256^3 volume of about 1,000 objects (volume, centroid, bounding box,
// mean intensity) against one pass that reads the volume and against scikit-image's label +
// regionprops_table on the same volume; Length3d at 100 directions for every object, its cost
// against the volume pass and its largest error against the exact Feret diameters; the peak
// resident memory while measuring against the volume's bytes. Ratios only: timings differ from
// machine to machine, the ratios much less. A program of its own, so that the peak resident
// memory is the measurement's and not that of other benchmarks.
//
//   measure_objects_bench [python]   (default /usr/bin/python3, which has scikit-image)
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_access_korlib/KrvKernels.h>
#include <vantry_access_korlib/KrvMeasureObjects.h>

#include "BallVolume.h"

namespace {

constexpr int kSide = kbench::kBallVolumeSide;
constexpr std::size_t kVoxels = kbench::kBallVolumeVoxels;

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The best of `runs` timings of `work`.
template <class Work>
double best(int runs, Work work) {
    double fastest = INFINITY;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        fastest = std::min(fastest, seconds(start));
    }
    return fastest;
}

double peakResidentBytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * 1024.0;
}

// The baseline: one pass that reads what measuring reads, the labels and the grey volume.
double volumePass(const std::vector<std::int32_t>& labels, const std::vector<std::uint8_t>& grey) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < kVoxels; ++i) sum += labels[i] != 0 ? grey[i] : 0;
    return double(sum);
}

std::vector<std::array<double, 3>> directions(int n) {
    std::vector<float> azimuth(static_cast<std::size_t>(n)), polar(static_cast<std::size_t>(n));
    IpSampleHalfSphereAngle(n, azimuth.data(), polar.data());
    std::vector<std::array<double, 3>> set;
    for (int i = 0; i < n; ++i) set.push_back(krvDirectionFromDegrees(polar[i] * 180 / M_PI, azimuth[i] * 180 / M_PI));
    return set;
}

// scikit-image's label + regionprops_table on the same volume, timed by the script itself (the
// best of three, as for ours).
double scikitImageSeconds(const std::string& python, const std::vector<std::uint8_t>& mask,
                          const std::vector<std::uint8_t>& grey, int& objects) {
    const std::string folder = "/tmp/measure_objects_bench";
    std::system(("mkdir -p " + folder).c_str());
    std::ofstream(folder + "/mask.raw", std::ios::binary).write(reinterpret_cast<const char*>(mask.data()), kVoxels);
    std::ofstream(folder + "/grey.raw", std::ios::binary).write(reinterpret_cast<const char*>(grey.data()), kVoxels);
    const std::string script =
        "import sys, time, numpy as np\n"
        "from skimage import measure\n"
        "mask = np.fromfile(sys.argv[1] + '/mask.raw', np.uint8).reshape(256, 256, 256)\n"
        "grey = np.fromfile(sys.argv[1] + '/grey.raw', np.uint8).reshape(256, 256, 256)\n"
        "best = float('inf')\n"
        "for run in range(3):\n"
        "    start = time.perf_counter()\n"
        "    labels = measure.label(mask, connectivity=1)\n"
        "    t = measure.regionprops_table(labels, grey, properties=['label', 'area', 'centroid', 'bbox', "
        "'mean_intensity'])\n"
        "    best = min(best, time.perf_counter() - start)\n"
        "print(best, len(t['label']))\n";
    std::ofstream(folder + "/run.py") << script;
    FILE* out = popen((python + " " + folder + "/run.py " + folder).c_str(), "r");
    double elapsed = NAN;
    if (out == nullptr || std::fscanf(out, "%lf %d", &elapsed, &objects) != 2) elapsed = NAN;
    if (out) pclose(out);
    return elapsed;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string python = argc > 1 ? argv[1] : "/usr/bin/python3";
    std::vector<std::uint8_t> mask(kVoxels, 0), grey(kVoxels, 0);
    kbench::makeBallVolume(mask, grey);
    std::vector<std::int32_t> labels(kVoxels, 0);
    const double volumeBytes = double(kVoxels) * (sizeof(std::int32_t) + 1);  // labels and grey
    const double residentBefore = peakResidentBytes();

    const KrvVoxelView labelView{labels.data(), kSide, kSide, kSide, KrvVoxelType::Int32, {}};
    const KrvVoxelView greyView{grey.data(), kSide, kSide, kSide, KrvVoxelType::UInt8, {}};
    const std::vector<std::string> names = {"Volume3d",      "CentroidX",     "CentroidY",     "CentroidZ",
                                            "BoundingBoxDx", "BoundingBoxDy", "BoundingBoxDz", "MeanIntensity"};
    const KrvVoxelView maskView{mask.data(), kSide, kSide, kSide, KrvVoxelType::UInt8, {}};
    std::size_t objects = 0;
    const double labelAndMeasure = best(3, [&] {
        KrvKernels::Label(maskView, labelView, 6);  // the Label command's kernel
        objects = krvMeasureObjects(labelView, &greyView, names, {}).labels.size();
    });
    const double measureAlone = best(3, [&] { krvMeasureObjects(labelView, &greyView, names, {}); });
    const double peak = peakResidentBytes();
    double checksum = 0;
    const double pass = best(5, [&] { checksum += volumePass(labels, grey); });

    KrvMeasureParameters params;
    params.directions = directions(100);
    std::vector<double> length;
    const double lengthTime = best(3, [&] { length = krvMeasureObjects(labelView, nullptr, {"Length3d"}, params).columns[0].values; });
    const std::vector<double> exact = krvExactFeretDiameters(labelView);
    double worst = 0;
    for (std::size_t i = 0; i < exact.size(); ++i) worst = std::max(worst, 1 - length[i] / exact[i]);

    int theirObjects = 0;
    const double theirs = scikitImageSeconds(python, mask, grey, theirObjects);

    std::printf("objects: %zu (scikit-image: %d); checksum %.0f\n", objects, theirObjects, checksum);
    std::printf("label + measure %.1f ms (measure alone %.1f ms), volume pass %.1f ms, scikit-image %.1f ms\n",
                labelAndMeasure * 1e3, measureAlone * 1e3, pass * 1e3, theirs * 1e3);
    std::printf("label + measure / volume pass:      %6.2fx  (goal <= 5x)\n", labelAndMeasure / pass);
    std::printf("scikit-image / label + measure:     %6.1fx  (goal >= 10x)\n", theirs / labelAndMeasure);
    std::printf("Length3d (100 directions) / pass:   %6.2fx  (%.1f ms)\n", lengthTime / pass, lengthTime * 1e3);
    std::printf("Length3d largest error vs exact:    %6.3f%%  (bound 1 - cos theta = %.3f%%)\n", worst * 100,
                krvCoveringKappa(100) / 100 * 100);
    std::printf("peak resident / volume bytes:       %6.2fx  (goal <= 3x; %.0f MiB peak, %.0f MiB before "
                "measuring, volume %.0f MiB)\n",
                peak / volumeBytes, peak / 1048576, residentBefore / 1048576, volumeBytes / 1048576);
    return 0;
}
