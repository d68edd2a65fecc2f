// Grey-level morphology, thinning and hole filling. The square (cube) element is separable: a
// running minimum or maximum along each axis in turn.
#include <deque>

#include <vantry_access_korlib/KrvKernels.h>

#include "KrvKernelSupport.h"

using namespace KrvKernelSupport;

namespace {

// Minimum (erode) or maximum (dilate) over `radius` voxels either side along `axis`.
void extremumAxis(std::vector<double>& data, const KrvVoxelView& v, int axis, int radius, bool maximum) {
    const std::size_t stride[3] = {1, static_cast<std::size_t>(v.nx), static_cast<std::size_t>(v.nx) * v.ny};
    const int length[3] = {v.nx, v.ny, v.nz};
    const int n = length[axis];
    std::vector<double> line(static_cast<std::size_t>(n));
    for (std::size_t start = 0; start < data.size(); ++start) {
        // The first voxel of each line: its coordinate along `axis` is 0.
        if ((start / stride[axis]) % static_cast<std::size_t>(n) != 0) continue;
        for (int i = 0; i < n; ++i) line[static_cast<std::size_t>(i)] = data[start + stride[axis] * static_cast<std::size_t>(i)];
        for (int i = 0; i < n; ++i) {
            double best = line[static_cast<std::size_t>(i)];
            for (int k = std::max(0, i - radius); k <= std::min(n - 1, i + radius); ++k)
                best = maximum ? std::max(best, line[static_cast<std::size_t>(k)]) : std::min(best, line[static_cast<std::size_t>(k)]);
            data[start + stride[axis] * static_cast<std::size_t>(i)] = best;
        }
    }
}

// One step of the cross element (the voxel and its face neighbours).
void crossStep(std::vector<double>& data, const KrvVoxelView& v, bool maximum) {
    const std::vector<double> source = data;
    const std::vector<Offset> faces = neighbours(v, false);
    for (int z = 0; z < v.nz; ++z)
        for (int y = 0; y < v.ny; ++y)
            for (int x = 0; x < v.nx; ++x) {
                double best = source[indexOf(v, x, y, z)];
                for (const Offset& o : faces) {
                    if (!inside(v, x + o.dx, y + o.dy, z + o.dz)) continue;
                    const double value = source[indexOf(v, x + o.dx, y + o.dy, z + o.dz)];
                    best = maximum ? std::max(best, value) : std::min(best, value);
                }
                data[indexOf(v, x, y, z)] = best;
            }
}

struct Element {
    int size;
    bool square;
};

void apply(std::vector<double>& data, const KrvVoxelView& v, Element element, bool maximum, Passes& passes) {
    if (element.square) {
        for (int axis = 0; axis < (v.Is3D() ? 3 : 2); ++axis) extremumAxis(data, v, axis, element.size, maximum);
    } else {
        for (int step = 0; step < element.size; ++step) crossStep(data, v, maximum);
    }
    passes.done();
}

// Zhang and Suen's two sub-iterations, repeated until nothing changes.
void thin(std::vector<std::uint8_t>& image, int nx, int ny, const KrvKernelProgress& progress) {
    auto at = [&](int x, int y) -> int {
        return x < 0 || y < 0 || x >= nx || y >= ny ? 0 : image[static_cast<std::size_t>(y) * nx + x];
    };
    std::vector<std::size_t> removed;
    long round = 0;
    for (bool changed = true; changed;) {
        changed = false;
        for (int pass = 0; pass < 2; ++pass) {
            removed.clear();
            for (int y = 0; y < ny; ++y)
                for (int x = 0; x < nx; ++x) {
                    if (!at(x, y)) continue;
                    // p2..p9 clockwise from north.
                    const int p[8] = {at(x, y - 1), at(x + 1, y - 1), at(x + 1, y),     at(x + 1, y + 1),
                                      at(x, y + 1), at(x - 1, y + 1), at(x - 1, y), at(x - 1, y - 1)};
                    int count = 0, transitions = 0;
                    for (int k = 0; k < 8; ++k) {
                        count += p[k];
                        transitions += (!p[k] && p[(k + 1) % 8]) ? 1 : 0;
                    }
                    if (count < 2 || count > 6 || transitions != 1) continue;
                    const bool keep = pass == 0 ? (p[0] && p[2] && p[4]) || (p[2] && p[4] && p[6])
                                                : (p[0] && p[2] && p[6]) || (p[0] && p[4] && p[6]);
                    if (!keep) removed.push_back(static_cast<std::size_t>(y) * nx + x);
                }
            for (const std::size_t i : removed) image[i] = 0;
            changed = changed || !removed.empty();
        }
        ++round;
        if (progress) progress(round, round);
    }
}

}  // namespace

namespace KrvKernels {

void Morphology(KrvMorphology operation, const KrvVoxelView& in, const KrvVoxelView& out, int size, int connectivity,
                const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    if (size < 1) fail("size must be at least 1", __LINE__);
    const Element element{size, fullNeighbourhood(connectivity)};
    const bool twoSteps = operation == KrvMorphology::Open || operation == KrvMorphology::Close ||
                          operation == KrvMorphology::TopHat;
    Passes passes(progress, twoSteps ? 2 : 1);
    std::vector<double> data = toDoubles(in);
    switch (operation) {
    case KrvMorphology::Erode: apply(data, in, element, false, passes); break;
    case KrvMorphology::Dilate: apply(data, in, element, true, passes); break;
    case KrvMorphology::Close:
        apply(data, in, element, true, passes);
        apply(data, in, element, false, passes);
        break;
    case KrvMorphology::Open:
    case KrvMorphology::TopHat:
        apply(data, in, element, false, passes);
        apply(data, in, element, true, passes);
        if (operation == KrvMorphology::TopHat) {
            const std::vector<double> values = toDoubles(in);
            for (std::size_t i = 0; i < data.size(); ++i) data[i] = values[i] - data[i];
        }
        break;
    }
    storeDoubles(data, out);
}

void Skeleton(const KrvVoxelView& in, const KrvVoxelView& out, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    require2D(in);
    requireType(out, KrvVoxelType::UInt8, "output");
    std::vector<std::uint8_t> image = foregroundMask(in);
    thin(image, in.nx, in.ny, progress);
    std::uint8_t* dst = out.As<std::uint8_t>();
    for (std::size_t i = 0; i < image.size(); ++i) dst[i] = image[i] ? kForeground : 0;
}

void FillHoles(const KrvVoxelView& in, const KrvVoxelView& out, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, KrvVoxelType::UInt8, "output");
    std::uint8_t* dst = out.As<std::uint8_t>();
    const std::vector<std::uint8_t> foreground = foregroundMask(in);
    // Every voxel starts as foreground; the background reached from the edge is cleared.
    std::vector<std::size_t> queue;
    for (int z = 0; z < in.nz; ++z)
        for (int y = 0; y < in.ny; ++y)
            for (int x = 0; x < in.nx; ++x) {
                const std::size_t i = indexOf(in, x, y, z);
                dst[i] = kForeground;
                const bool edge = x == 0 || y == 0 || x == in.nx - 1 || y == in.ny - 1 ||
                                  (in.Is3D() && (z == 0 || z == in.nz - 1));
                if (edge && !foreground[i]) queue.push_back(i);
            }
    for (const std::size_t i : queue) dst[i] = 0;
    const std::vector<Offset> faces = neighbours(in, false);
    const std::size_t plane = static_cast<std::size_t>(in.nx) * in.ny;
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const std::size_t i = queue[head];
        const int x = static_cast<int>(i % in.nx), y = static_cast<int>((i / in.nx) % in.ny),
                  z = static_cast<int>(i / plane);
        for (const Offset& o : faces) {
            if (!inside(in, x + o.dx, y + o.dy, z + o.dz)) continue;
            const std::size_t j = indexOf(in, x + o.dx, y + o.dy, z + o.dz);
            if (dst[j] == 0 || foreground[j]) continue;
            dst[j] = 0;
            queue.push_back(j);
        }
    }
    if (progress) progress(1, 1);
}

}  // namespace KrvKernels
