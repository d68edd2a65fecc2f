// Thresholds, connected-component labelling, the distance transform and the watershed.
#include <queue>

#include <vantry_access_korlib/KrvKernels.h>

#include "KrvKernelSupport.h"
#include "KrvRunLabels.h"

using namespace KrvKernelSupport;

namespace {

std::int32_t labelMask(const std::uint8_t* mask, const KrvVoxelView& v, std::int32_t* labels, bool full,
                       const KrvKernelProgress& progress) {
    Passes passes(progress, 1);
    const std::int32_t count = KrvRunLabels::label(mask, v.nx, v.ny, v.nz, full, labels);
    passes.done();
    return count;
}

// The squared distance transform of one line with spacing² `weight` (Felzenszwalb and
// Huttenlocher's lower envelope of parabolas); infinite samples stay out of the envelope.
void distanceLine(std::vector<double>& f, double weight, std::vector<double>& d, std::vector<int>& v,
                  std::vector<double>& z) {
    const int n = static_cast<int>(f.size());
    const double inf = std::numeric_limits<double>::infinity();
    int k = -1;
    for (int q = 0; q < n; ++q) {
        if (f[static_cast<std::size_t>(q)] == inf) continue;
        double s = -inf;
        while (k >= 0) {
            const int p = v[static_cast<std::size_t>(k)];
            s = ((f[static_cast<std::size_t>(q)] + weight * q * q) - (f[static_cast<std::size_t>(p)] + weight * p * p)) /
                (2.0 * weight * (q - p));
            if (s > z[static_cast<std::size_t>(k)]) break;
            --k;
        }
        ++k;
        v[static_cast<std::size_t>(k)] = q;
        z[static_cast<std::size_t>(k)] = k == 0 ? -inf : s;
        z[static_cast<std::size_t>(k + 1)] = inf;
    }
    if (k < 0) return;  // no finite sample: the line stays infinite
    int j = 0;
    for (int q = 0; q < n; ++q) {
        while (z[static_cast<std::size_t>(j + 1)] < q) ++j;
        const int p = v[static_cast<std::size_t>(j)];
        d[static_cast<std::size_t>(q)] = weight * (q - p) * (q - p) + f[static_cast<std::size_t>(p)];
    }
    for (int q = 0; q < n; ++q) f[static_cast<std::size_t>(q)] = d[static_cast<std::size_t>(q)];
}

std::vector<double> squaredDistances(const KrvVoxelView& in, const KrvKernelProgress& progress) {
    const std::vector<std::uint8_t> mask = foregroundMask(in);
    std::vector<double> data(mask.size());
    for (std::size_t i = 0; i < mask.size(); ++i) data[i] = mask[i] ? std::numeric_limits<double>::infinity() : 0.0;
    const int axes = in.Is3D() ? 3 : 2;
    const double spacing[3] = {in.size.x, in.size.y, in.size.z};
    const std::size_t stride[3] = {1, static_cast<std::size_t>(in.nx), static_cast<std::size_t>(in.nx) * in.ny};
    const int length[3] = {in.nx, in.ny, in.nz};
    Passes passes(progress, axes);
    for (int axis = 0; axis < axes; ++axis) {
        const std::size_t n = static_cast<std::size_t>(length[axis]);
        std::vector<double> f(n), d(n), z(n + 1);
        std::vector<int> v(n);
        for (std::size_t start = 0; start < data.size(); ++start) {
            if ((start / stride[axis]) % n != 0) continue;
            for (std::size_t q = 0; q < n; ++q) f[q] = data[start + q * stride[axis]];
            distanceLine(f, spacing[axis] * spacing[axis], d, v, z);
            for (std::size_t q = 0; q < n; ++q) data[start + q * stride[axis]] = f[q];
        }
        passes.done();
    }
    return data;
}

// One seed per connected set of voxels that no neighbour passes.
std::int32_t seedsOf(const std::vector<double>& distance, const KrvVoxelView& v, bool full, std::int32_t* labels,
                     const KrvKernelProgress& progress) {
    const std::vector<Offset> around = neighbours(v, full);
    std::vector<std::uint8_t> peaks(distance.size(), 0);
    for (int z = 0; z < v.nz; ++z)
        for (int y = 0; y < v.ny; ++y)
            for (int x = 0; x < v.nx; ++x) {
                const std::size_t i = indexOf(v, x, y, z);
                if (distance[i] <= 0) continue;
                bool peak = true;
                for (const Offset& o : around)
                    if (inside(v, x + o.dx, y + o.dy, z + o.dz) &&
                        distance[indexOf(v, x + o.dx, y + o.dy, z + o.dz)] > distance[i])
                        peak = false;
                peaks[i] = peak ? 1 : 0;
            }
    return labelMask(peaks.data(), v, labels, full, progress);
}

// A voxel waiting in the flood; it took its label when it was queued, so that each voxel is
// queued once.
struct Flood {
    float height;
    std::uint32_t order;  // first come, first served among equal heights
    std::size_t voxel;
    bool operator<(const Flood& other) const {
        return height != other.height ? height < other.height : order > other.order;
    }
};

}  // namespace

namespace KrvKernels {

void Threshold(const KrvVoxelView& in, const KrvVoxelView& out, double low, double high) {
    requireSameGrid(in, out);
    requireType(out, KrvVoxelType::UInt8, "output");
    if (low > high) fail("low must not pass high", __LINE__);
    std::uint8_t* dst = out.As<std::uint8_t>();
    dispatch(in.type, [&](auto t) {
        const auto* src = in.As<decltype(t)>();
        for (std::size_t i = 0; i < in.Count(); ++i) dst[i] = src[i] >= low && src[i] <= high ? kForeground : 0;
    });
}

double AutoThresholdValue(const KrvVoxelView& in, KrvThresholdMethod method) {
    const std::vector<double> values = finiteValues(in);
    const auto [lo, hi] = std::minmax_element(values.begin(), values.end());
    const double least = *lo, largest = *hi;
    // Integer images: one bin per value when that is a sensible count; otherwise 256 bins.
    const bool perValue = in.type != KrvVoxelType::Float32 && largest - least < (1 << 20);
    const std::size_t bins = perValue ? static_cast<std::size_t>(largest - least) + 1 : 256;
    const double width = perValue ? 1.0 : (largest - least) / 256.0;
    std::vector<double> counts(bins, 0.0), centres(bins);
    for (std::size_t b = 0; b < bins; ++b) centres[b] = perValue ? least + b : least + (b + 0.5) * width;
    for (const double value : values) {
        std::size_t b = width > 0 ? static_cast<std::size_t>((value - least) / width) : 0;
        counts[std::min(b, bins - 1)] += 1;
    }
    if (bins == 1 || width == 0) return centres[0];
    std::vector<double> below(bins), belowSum(bins);
    double n = 0, sum = 0;
    for (std::size_t b = 0; b < bins; ++b) {
        below[b] = n += counts[b];
        belowSum[b] = sum += counts[b] * centres[b];
    }
    if (method == KrvThresholdMethod::Otsu) {
        // The between-class variance of splitting after bin b; the first largest wins.
        double best = -1;
        std::size_t at = 0;
        for (std::size_t b = 0; b + 1 < bins; ++b) {
            const double w1 = below[b], w2 = n - below[b];
            if (w1 == 0 || w2 == 0) {
                if (best < 0) { best = 0; at = b; }
                continue;
            }
            const double m1 = belowSum[b] / w1, m2 = (sum - belowSum[b]) / w2;
            const double variance = w1 * w2 * (m1 - m2) * (m1 - m2);
            if (variance > best) {
                best = variance;
                at = b;
            }
        }
        return centres[at];
    }
    // Isodata: the first bin whose centre lies within one bin below the mean of the two classes'
    // means.
    for (std::size_t b = 0; b + 1 < bins; ++b) {
        if (below[b] == 0 || below[b] == n) continue;
        const double middle = (belowSum[b] / below[b] + (sum - belowSum[b]) / (n - below[b])) / 2.0;
        const double distance = middle - centres[b];
        if (distance >= 0 && distance < centres[1] - centres[0]) return centres[b];
    }
    fail("no isodata threshold for this image", __LINE__);
}

std::int32_t Label(const KrvVoxelView& in, const KrvVoxelView& out, int connectivity, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, KrvVoxelType::Int32, "output");
    const bool full = fullNeighbourhood(connectivity);
    // A uint8 image is its own mask (non-zero is foreground): no copy of the volume first.
    if (in.type == KrvVoxelType::UInt8) return labelMask(in.As<std::uint8_t>(), in, out.As<std::int32_t>(), full, progress);
    return labelMask(foregroundMask(in).data(), in, out.As<std::int32_t>(), full, progress);
}

void RemoveSmall(const KrvVoxelView& in, const KrvVoxelView& out, long minimum, int connectivity,
                 const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    std::vector<std::int32_t> labels(in.Count());
    if (in.type == KrvVoxelType::Int32) {
        std::copy(in.As<std::int32_t>(), in.As<std::int32_t>() + in.Count(), labels.begin());
    } else {
        labelMask(foregroundMask(in).data(), in, labels.data(), fullNeighbourhood(connectivity), progress);
    }
    std::vector<long> sizes;
    for (const std::int32_t label : labels) {
        if (label <= 0) continue;
        if (static_cast<std::size_t>(label) >= sizes.size()) sizes.resize(static_cast<std::size_t>(label) + 1, 0);
        ++sizes[static_cast<std::size_t>(label)];
    }
    dispatch(in.type, [&](auto t) {
        using T = decltype(t);
        const T* src = in.As<T>();
        T* dst = out.As<T>();
        for (std::size_t i = 0; i < labels.size(); ++i)
            dst[i] = labels[i] > 0 && sizes[static_cast<std::size_t>(labels[i])] < minimum ? T{} : src[i];
    });
}

void DistanceTransform(const KrvVoxelView& in, const KrvVoxelView& out, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, KrvVoxelType::Float32, "output");
    const std::vector<double> squares = squaredDistances(in, progress);
    float* dst = out.As<float>();
    for (std::size_t i = 0; i < squares.size(); ++i) dst[i] = static_cast<float>(std::sqrt(squares[i]));
}

std::int32_t Watershed(const KrvVoxelView& in, const KrvVoxelView& out, int connectivity,
                       const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, KrvVoxelType::Int32, "output");
    const bool full = fullNeighbourhood(connectivity);
    const std::vector<double> distance = squaredDistances(in, progress);
    std::int32_t* labels = out.As<std::int32_t>();
    const std::int32_t count = seedsOf(distance, in, full, labels, progress);
    const std::vector<Offset> around = neighbours(in, full);
    std::priority_queue<Flood> queue;
    std::uint32_t order = 0;
    auto spread = [&](std::size_t i) {
        const int x = static_cast<int>(i % static_cast<std::size_t>(in.nx));
        const int y = static_cast<int>((i / static_cast<std::size_t>(in.nx)) % static_cast<std::size_t>(in.ny));
        const int z = static_cast<int>(i / (static_cast<std::size_t>(in.nx) * in.ny));
        for (const Offset& o : around) {
            if (!inside(in, x + o.dx, y + o.dy, z + o.dz)) continue;
            const std::size_t j = indexOf(in, x + o.dx, y + o.dy, z + o.dz);
            if (labels[j] != 0 || distance[j] <= 0) continue;
            labels[j] = labels[i];
            queue.push({static_cast<float>(distance[j]), order++, j});
        }
    };
    for (std::size_t i = 0; i < distance.size(); ++i)
        if (labels[i] != 0) queue.push({static_cast<float>(distance[i]), order++, i});
    while (!queue.empty()) {
        const std::size_t next = queue.top().voxel;
        queue.pop();
        spread(next);
    }
    if (progress) progress(1, 1);
    return count;
}

}  // namespace KrvKernels
