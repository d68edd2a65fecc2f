// Smoothing and edge filters. The separable ones run one pass per axis over a double copy of
// the image, so that integer images lose nothing between passes.
#include <vantry_access_korlib/KrvKernels.h>

#include "KrvKernelSupport.h"

using namespace KrvKernelSupport;

namespace {

int axisCount(const KrvVoxelView& v) { return v.Is3D() ? 3 : 2; }

// Calls line(start, stride, length) for every line of the grid along `axis`.
template <class Line>
void forEachLine(const KrvVoxelView& v, int axis, Line line) {
    const std::size_t nx = static_cast<std::size_t>(v.nx), ny = static_cast<std::size_t>(v.ny);
    const std::size_t nz = static_cast<std::size_t>(v.nz);
    const std::size_t stride[3] = {1, nx, nx * ny};
    const int length[3] = {v.nx, v.ny, v.nz};
    for (std::size_t z = 0; z < (axis == 2 ? 1 : nz); ++z)
        for (std::size_t y = 0; y < (axis == 1 ? 1 : ny); ++y)
            for (std::size_t x = 0; x < (axis == 0 ? 1 : nx); ++x)
                line(z * stride[2] + y * stride[1] + x, stride[axis], length[axis]);
}

// Correlates every line along `axis` with `kernel` (odd length, centred), the edge voxel
// repeated past the ends.
void correlateAxis(std::vector<double>& data, const KrvVoxelView& v, int axis, const std::vector<double>& kernel) {
    const int radius = static_cast<int>(kernel.size() / 2);
    std::vector<double> padded;
    forEachLine(v, axis, [&](std::size_t start, std::size_t stride, int n) {
        padded.resize(static_cast<std::size_t>(n + 2 * radius));
        for (int i = -radius; i < n + radius; ++i)
            padded[static_cast<std::size_t>(i + radius)] = data[start + stride * static_cast<std::size_t>(clampIndex(i, n))];
        for (int i = 0; i < n; ++i) {
            double sum = 0;
            for (std::size_t k = 0; k < kernel.size(); ++k) sum += kernel[k] * padded[static_cast<std::size_t>(i) + k];
            data[start + stride * static_cast<std::size_t>(i)] = sum;
        }
    });
}

// The running mean over `size` voxels along `axis`, edge voxels repeated.
void boxAxis(std::vector<double>& data, const KrvVoxelView& v, int axis, int size) {
    const int radius = size / 2;
    std::vector<double> padded;
    forEachLine(v, axis, [&](std::size_t start, std::size_t stride, int n) {
        padded.resize(static_cast<std::size_t>(n + 2 * radius));
        for (int i = -radius; i < n + radius; ++i)
            padded[static_cast<std::size_t>(i + radius)] = data[start + stride * static_cast<std::size_t>(clampIndex(i, n))];
        double sum = 0;
        for (int k = 0; k < size; ++k) sum += padded[static_cast<std::size_t>(k)];
        for (int i = 0; i < n; ++i) {
            data[start + stride * static_cast<std::size_t>(i)] = sum / size;
            if (i + 1 < n) sum += padded[static_cast<std::size_t>(i + size)] - padded[static_cast<std::size_t>(i)];
        }
    });
}

std::vector<double> gaussianKernel(double sigma) {
    const int radius = static_cast<int>(4.0 * sigma + 0.5);  // four sigmas, like the reference
    std::vector<double> kernel(static_cast<std::size_t>(2 * radius + 1));
    double sum = 0;
    for (int i = -radius; i <= radius; ++i) sum += kernel[static_cast<std::size_t>(i + radius)] = std::exp(-0.5 * i * i / (sigma * sigma));
    for (double& w : kernel) w /= sum;
    return kernel;
}

void requireOddSize(int size) {
    if (size < 1 || size % 2 == 0) fail("size must be odd and at least 1", __LINE__);
}

std::vector<double> meanOf(const KrvVoxelView& in, int size, const KrvKernelProgress& progress) {
    requireOddSize(size);
    std::vector<double> data = toDoubles(in);
    Passes passes(progress, axisCount(in));
    for (int axis = 0; axis < axisCount(in); ++axis) {
        boxAxis(data, in, axis, size);
        passes.done();
    }
    return data;
}

// The rows of the window around row (y, z): 2r+1 rows in each of 2rz+1 planes, edges repeated.
template <class T>
void windowRows(const KrvVoxelView& in, const T* src, int y, int z, int r, int rz, std::vector<const T*>& rows) {
    rows.clear();
    for (int dz = -rz; dz <= rz; ++dz)
        for (int dy = -r; dy <= r; ++dy)
            rows.push_back(src + indexOf(in, 0, clampIndex(y + dy, in.ny), clampIndex(z + dz, in.nz)));
}

// The median of each window from sorted columns: along a row, each x's column of the window
// (size² voxels in 3-D, size in 2-D) is sorted once and shared by the `size` windows that hold
// it; a window's median is then a merge of its sorted columns, stopped half-way.
template <class T>
void medianOf(const KrvVoxelView& in, const KrvVoxelView& out, int size, const KrvKernelProgress& progress) {
    const int r = size / 2, rz = in.Is3D() ? r : 0;
    const T* src = in.As<T>();
    T* dst = out.As<T>();
    const std::size_t height = static_cast<std::size_t>(size) * static_cast<std::size_t>(2 * rz + 1);
    const std::size_t rank = height * static_cast<std::size_t>(size) / 2;
    std::vector<const T*> rows;
    std::vector<T> columns(height * static_cast<std::size_t>(in.nx + 2 * r));
    std::vector<std::size_t> heads(static_cast<std::size_t>(size));
    Passes planes(progress, in.nz);
    for (int z = 0; z < in.nz; ++z) {
        for (int y = 0; y < in.ny; ++y) {
            windowRows(in, src, y, z, r, rz, rows);
            for (int i = 0; i < in.nx + 2 * r; ++i) {
                T* column = columns.data() + static_cast<std::size_t>(i) * height;
                const int x = clampIndex(i - r, in.nx);
                for (std::size_t k = 0; k < height; ++k) column[k] = rows[k][x];
                std::sort(column, column + height);
            }
            T* line = dst + indexOf(in, 0, y, z);
            for (int x = 0; x < in.nx; ++x) {
                const T* first = columns.data() + static_cast<std::size_t>(x) * height;
                std::fill(heads.begin(), heads.end(), 0);
                T value{};
                for (std::size_t taken = 0; taken <= rank; ++taken) {
                    std::size_t best = heads.size();
                    for (std::size_t c = 0; c < heads.size(); ++c)
                        if (heads[c] < height && (best == heads.size() || first[c * height + heads[c]] < first[best * height + heads[best]]))
                            best = c;
                    value = first[best * height + heads[best]++];
                }
                line[x] = value;
            }
        }
        planes.done();
    }
}

// uint8 images: a histogram of the window slides along each row (a column of the window leaves,
// another enters), and the median moves from its last place; a few steps per voxel instead of a
// merge.
void medianOfBytes(const KrvVoxelView& in, const KrvVoxelView& out, int size, const KrvKernelProgress& progress) {
    const int r = size / 2, rz = in.Is3D() ? r : 0;
    const int rank = size * size * (2 * rz + 1) / 2;
    const std::uint8_t* src = in.As<std::uint8_t>();
    std::uint8_t* dst = out.As<std::uint8_t>();
    std::vector<const std::uint8_t*> rows;
    Passes planes(progress, in.nz);
    for (int z = 0; z < in.nz; ++z) {
        for (int y = 0; y < in.ny; ++y) {
            windowRows(in, src, y, z, r, rz, rows);
            int histogram[256] = {};
            int median = 0, below = 0;  // `below`: voxels of the window under `median`
            auto column = [&](int x, int change) {
                const int c = clampIndex(x, in.nx);
                for (const std::uint8_t* row : rows) {
                    histogram[row[c]] += change;
                    if (row[c] < median) below += change;
                }
            };
            for (int x = -r; x <= r; ++x) column(x, 1);
            std::uint8_t* line = dst + indexOf(in, 0, y, z);
            for (int x = 0; x < in.nx; ++x) {
                if (x > 0) {
                    column(x - 1 - r, -1);
                    column(x + r, 1);
                }
                while (below > rank) below -= histogram[--median];
                while (below + histogram[median] <= rank) below += histogram[median++];
                line[x] = static_cast<std::uint8_t>(median);
            }
        }
        planes.done();
    }
}

}  // namespace

namespace KrvKernels {

void Gaussian(const KrvVoxelView& in, const KrvVoxelView& out, double sigma, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    if (!(sigma > 0 && sigma <= 1000)) fail("sigma must lie above 0 and at most 1000", __LINE__);
    const std::vector<double> kernel = gaussianKernel(sigma);
    std::vector<double> data = toDoubles(in);
    Passes passes(progress, axisCount(in));
    for (int axis = 0; axis < axisCount(in); ++axis) {
        correlateAxis(data, in, axis, kernel);
        passes.done();
    }
    storeDoubles(data, out);
}

void Median(const KrvVoxelView& in, const KrvVoxelView& out, int size, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    requireOddSize(size);
    if (in.type == KrvVoxelType::UInt8) return medianOfBytes(in, out, size, progress);
    dispatch(in.type, [&](auto t) { medianOf<decltype(t)>(in, out, size, progress); });
}

void Mean(const KrvVoxelView& in, const KrvVoxelView& out, int size, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    storeDoubles(meanOf(in, size, progress), out);
}

void Sharpen(const KrvVoxelView& in, const KrvVoxelView& out, int size, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    std::vector<double> mean = meanOf(in, size, progress);
    const std::vector<double> values = toDoubles(in);
    for (std::size_t i = 0; i < mean.size(); ++i) mean[i] = 2 * values[i] - mean[i];
    storeDoubles(mean, out);
}

void GradientSobel(const KrvVoxelView& in, const KrvVoxelView& out, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, KrvVoxelType::Float32, "output");
    const std::vector<double> values = toDoubles(in);
    const std::vector<double> derivative{-1, 0, 1}, smoothing{1, 2, 1};
    std::vector<double> squares(values.size(), 0.0);
    Passes passes(progress, axisCount(in));
    for (int along = 0; along < axisCount(in); ++along) {
        std::vector<double> gradient = values;
        for (int axis = 0; axis < axisCount(in); ++axis)
            correlateAxis(gradient, in, axis, axis == along ? derivative : smoothing);
        for (std::size_t i = 0; i < gradient.size(); ++i) squares[i] += gradient[i] * gradient[i];
        passes.done();
    }
    for (double& s : squares) s = std::sqrt(s);
    storeDoubles(squares, out);
}

void Laplacian(const KrvVoxelView& in, const KrvVoxelView& out, const KrvKernelProgress& progress) {
    requireSameGrid(in, out);
    requireType(out, KrvVoxelType::Float32, "output");
    const std::vector<double> values = toDoubles(in);
    const std::vector<Offset> faces = neighbours(in, false);
    float* dst = out.As<float>();
    Passes planes(progress, in.nz);
    for (int z = 0; z < in.nz; ++z) {
        for (int y = 0; y < in.ny; ++y)
            for (int x = 0; x < in.nx; ++x) {
                const double centre = values[indexOf(in, x, y, z)];
                double sum = 0;
                for (const Offset& o : faces)
                    sum += values[indexOf(in, clampIndex(x + o.dx, in.nx), clampIndex(y + o.dy, in.ny),
                                          clampIndex(z + o.dz, in.nz))] -
                           centre;
                dst[indexOf(in, x, y, z)] = static_cast<float>(sum);
            }
        planes.done();
    }
}

}  // namespace KrvKernels
