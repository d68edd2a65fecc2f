// Resampling, cropping, mirroring and turning; the histogram and the Hough transform.
#include <vantry_access_korlib/KrvKernels.h>

#include "KrvKernelSupport.h"

using namespace KrvKernelSupport;

namespace {

// The input coordinate of output voxel i when n voxels become m: voxel centres aligned.
double sourceOf(int i, int n, int m) { return (i + 0.5) * n / m - 0.5; }

struct Tap {
    int low, high;
    double weight;  // of `high`
};

Tap tapOf(int i, int n, int m, bool interpolate) {
    const double s = std::clamp(sourceOf(i, n, m), 0.0, static_cast<double>(n - 1));
    if (!interpolate) {
        const int nearest = clampIndex(static_cast<int>(std::floor(s + 0.5)), n);
        return {nearest, nearest, 0.0};
    }
    const int low = static_cast<int>(std::floor(s));
    return {low, std::min(low + 1, n - 1), s - low};
}

template <class T>
void resampleTyped(const KrvVoxelView& in, const KrvVoxelView& out, bool interpolate, const KrvKernelProgress& progress) {
    const T* src = in.As<T>();
    T* dst = out.As<T>();
    Passes planes(progress, out.nz);
    for (int z = 0; z < out.nz; ++z) {
        const Tap tz = tapOf(z, in.nz, out.nz, interpolate);
        for (int y = 0; y < out.ny; ++y) {
            const Tap ty = tapOf(y, in.ny, out.ny, interpolate);
            for (int x = 0; x < out.nx; ++x) {
                const Tap tx = tapOf(x, in.nx, out.nx, interpolate);
                double value = 0;
                for (int c = 0; c < 8; ++c) {
                    const double w = ((c & 1) ? tx.weight : 1 - tx.weight) * ((c & 2) ? ty.weight : 1 - ty.weight) *
                                     ((c & 4) ? tz.weight : 1 - tz.weight);
                    if (w == 0) continue;
                    value += w * src[indexOf(in, (c & 1) ? tx.high : tx.low, (c & 2) ? ty.high : ty.low,
                                             (c & 4) ? tz.high : tz.low)];
                }
                dst[indexOf(out, x, y, z)] = saturate<T>(value);
            }
        }
        planes.done();
    }
}

// Copies voxel (sx, sy, z) of `in` to (x, y, z) of `out` for every voxel of `out`.
template <class Source>
void remap(const KrvVoxelView& in, const KrvVoxelView& out, Source source) {
    dispatch(in.type, [&](auto t) {
        using T = decltype(t);
        const T* src = in.As<T>();
        T* dst = out.As<T>();
        for (int z = 0; z < out.nz; ++z)
            for (int y = 0; y < out.ny; ++y)
                for (int x = 0; x < out.nx; ++x) {
                    int sx = x, sy = y, sz = z;
                    source(sx, sy, sz);
                    dst[indexOf(out, x, y, z)] = src[indexOf(in, sx, sy, sz)];
                }
    });
}

// The two ends of the line x cos t + y sin t = rho inside [0, nx-1] x [0, ny-1], if any.
bool clipLine(double angle, double rho, int nx, int ny, KrvLineSegment& segment) {
    const double c = std::cos(angle), s = std::sin(angle);
    std::vector<std::pair<double, double>> ends;
    const double xmax = nx - 1, ymax = ny - 1;
    if (std::abs(s) > 1e-9) {
        for (const double x : {0.0, xmax}) {
            const double y = (rho - x * c) / s;
            if (y >= -1e-9 && y <= ymax + 1e-9) ends.emplace_back(x, y);
        }
    }
    if (std::abs(c) > 1e-9) {
        for (const double y : {0.0, ymax}) {
            const double x = (rho - y * s) / c;
            if (x >= -1e-9 && x <= xmax + 1e-9) ends.emplace_back(x, y);
        }
    }
    if (ends.empty()) return false;
    const auto [first, last] = std::minmax_element(ends.begin(), ends.end());
    segment = {static_cast<float>(first->first), static_cast<float>(first->second), static_cast<float>(last->first),
               static_cast<float>(last->second)};
    return true;
}

// The accumulator's line refined to the foreground pixels within one pixel of it: the normal
// of their principal axis through their centroid (angle and rho as in the accumulator).
std::pair<double, double> fitLine(const std::vector<std::uint8_t>& mask, const KrvVoxelView& in, double angle, double rho) {
    const double c = std::cos(angle), s = std::sin(angle);
    double n = 0, mx = 0, my = 0, sxx = 0, syy = 0, sxy = 0;
    for (int y = 0; y < in.ny; ++y)
        for (int x = 0; x < in.nx; ++x)
            if (mask[indexOf(in, x, y, 0)] && std::abs(x * c + y * s - rho) <= 1.0) {
                ++n;
                mx += x;
                my += y;
                sxx += double(x) * x;
                syy += double(y) * y;
                sxy += double(x) * y;
            }
    if (n < 2) return {angle, rho};
    mx /= n;
    my /= n;
    const double cxx = sxx / n - mx * mx, cyy = syy / n - my * my, cxy = sxy / n - mx * my;
    // The axis of least spread is the line's normal.
    const double axis = 0.5 * std::atan2(2 * cxy, cxx - cyy) + M_PI / 2;
    return {axis, mx * std::cos(axis) + my * std::sin(axis)};
}

}  // namespace

namespace KrvKernels {

void Resample(const KrvVoxelView& in, const KrvVoxelView& out, bool interpolate, const KrvKernelProgress& progress) {
    requireType(out, in.type, "output");
    dispatch(in.type, [&](auto t) { resampleTyped<decltype(t)>(in, out, interpolate, progress); });
}

void Crop(const KrvVoxelView& in, const KrvVoxelView& out, int x0, int y0, int z0) {
    requireType(out, in.type, "output");
    if (x0 < 0 || y0 < 0 || z0 < 0 || x0 + out.nx > in.nx || y0 + out.ny > in.ny || z0 + out.nz > in.nz)
        fail("the box passes the image's edge", __LINE__);
    remap(in, out, [&](int& x, int& y, int& z) {
        x += x0;
        y += y0;
        z += z0;
    });
}

void FlipHorizontal(const KrvVoxelView& in, const KrvVoxelView& out) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    remap(in, out, [&](int& x, int&, int&) { x = in.nx - 1 - x; });
}

void Rotate90(const KrvVoxelView& in, const KrvVoxelView& out) {
    requireType(out, in.type, "output");
    if (out.nx != in.ny || out.ny != in.nx || out.nz != in.nz) fail("the output is not the turned grid", __LINE__);
    remap(in, out, [&](int& x, int& y, int&) {
        const int turnedX = x;
        x = in.nx - 1 - y;
        y = turnedX;
    });
}

void Histogram(const KrvVoxelView& in, int bins, std::vector<double>& edges, std::vector<double>& counts) {
    if (bins < 1) fail("bins must be at least 1", __LINE__);
    const std::vector<double> values = toDoubles(in);
    if (values.empty()) fail("the image is empty", __LINE__);
    const auto [lo, hi] = std::minmax_element(values.begin(), values.end());
    const double least = *lo;
    double width = (*hi - least) / bins;
    if (in.type != KrvVoxelType::Float32) width = std::max(1.0, (*hi - least + 1) / bins);
    if (width <= 0) width = 1;
    edges.assign(static_cast<std::size_t>(bins), 0.0);
    counts.assign(static_cast<std::size_t>(bins), 0.0);
    for (int b = 0; b < bins; ++b) edges[static_cast<std::size_t>(b)] = least + b * width;
    for (const double value : values) {
        const auto b = static_cast<std::size_t>((value - least) / width);
        counts[std::min(b, counts.size() - 1)] += 1;
    }
}

std::vector<KrvLineSegment> HoughLines(const KrvVoxelView& in, long votes) {
    require2D(in);
    constexpr int kAngles = 180;
    const int reach = static_cast<int>(std::ceil(std::hypot(in.nx, in.ny)));
    const int distances = 2 * reach + 1;
    std::vector<long> accumulator(static_cast<std::size_t>(kAngles) * distances, 0);
    std::vector<double> cosines(kAngles), sines(kAngles);
    for (int a = 0; a < kAngles; ++a) {
        cosines[static_cast<std::size_t>(a)] = std::cos(a * M_PI / kAngles);
        sines[static_cast<std::size_t>(a)] = std::sin(a * M_PI / kAngles);
    }
    const std::vector<std::uint8_t> mask = foregroundMask(in);
    for (int y = 0; y < in.ny; ++y)
        for (int x = 0; x < in.nx; ++x) {
            if (!mask[indexOf(in, x, y, 0)]) continue;
            for (int a = 0; a < kAngles; ++a) {
                const long rho = std::lround(x * cosines[static_cast<std::size_t>(a)] + y * sines[static_cast<std::size_t>(a)]);
                ++accumulator[static_cast<std::size_t>(a) * distances + static_cast<std::size_t>(rho + reach)];
            }
        }
    auto at = [&](int a, int r) -> long {
        if (r < 0 || r >= distances || a < 0 || a >= kAngles) return 0;
        return accumulator[static_cast<std::size_t>(a) * distances + static_cast<std::size_t>(r)];
    };
    std::vector<KrvLineSegment> lines;
    for (int a = 0; a < kAngles; ++a)
        for (int r = 0; r < distances; ++r) {
            const long count = at(a, r);
            if (count < votes || count == 0) continue;
            // A local maximum; among equal neighbours the first in scan order wins.
            bool peak = true;
            for (int da = -1; da <= 1 && peak; ++da)
                for (int dr = -1; dr <= 1 && peak; ++dr) {
                    if (da == 0 && dr == 0) continue;
                    const long other = at(a + da, r + dr);
                    const bool earlier = da < 0 || (da == 0 && dr < 0);
                    if (other > count || (earlier && other == count)) peak = false;
                }
            KrvLineSegment segment{};
            if (!peak) continue;
            const auto [angle, rho] = fitLine(mask, in, a * M_PI / kAngles, r - reach);
            if (clipLine(angle, rho, in.nx, in.ny, segment)) lines.push_back(segment);
        }
    return lines;
}

}  // namespace KrvKernels
