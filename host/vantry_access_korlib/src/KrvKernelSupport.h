// What the kernels share: dispatch on the voxel type, saturating stores, checks, clamped
// indexing and neighbourhood offsets.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include <vantry_access_korlib/KrvKernels.h>
#include <vantry_util/KrvBaseException.h>

namespace KrvKernelSupport {

[[noreturn]] inline void fail(const std::string& reason, int line) {
    throw KrvBaseException(reason, __FILE__, static_cast<std::uint64_t>(line));
}

// Calls visit(T{}) with T the voxel type of `type`.
template <class Visit>
decltype(auto) dispatch(KrvVoxelType type, Visit&& visit) {
    switch (type) {
    case KrvVoxelType::UInt16: return visit(std::uint16_t{});
    case KrvVoxelType::Int32: return visit(std::int32_t{});
    case KrvVoxelType::Float32: return visit(float{});
    case KrvVoxelType::UInt8: break;
    }
    return visit(std::uint8_t{});
}

// `value` rounded and clamped into T (floats pass unchanged).
template <class T>
T saturate(double value) noexcept {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        if (!(value > static_cast<double>(std::numeric_limits<T>::lowest()))) return std::numeric_limits<T>::lowest();
        if (value >= static_cast<double>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
        return static_cast<T>(std::lround(value));
    }
}

inline void requireSameGrid(const KrvVoxelView& in, const KrvVoxelView& out) {
    if (!in.SameGrid(out) || in.data == nullptr || out.data == nullptr)
        fail("the output's grid differs from the input's", __LINE__);
}

inline void requireType(const KrvVoxelView& view, KrvVoxelType type, const char* what) {
    if (view.type != type) fail(std::string("the ") + what + " has the wrong voxel type", __LINE__);
}

inline void require2D(const KrvVoxelView& in) {
    if (in.Is3D()) fail("2-D images only", __LINE__);
}

// True for the full neighbourhood (8 or 26), false for the face neighbours (4 or 6).
inline bool fullNeighbourhood(int connectivity) {
    if (connectivity == 8 || connectivity == 26) return true;
    if (connectivity == 4 || connectivity == 6) return false;
    fail("connectivity must be 4, 6, 8 or 26", __LINE__);
}

inline int clampIndex(int i, int n) noexcept { return i < 0 ? 0 : (i >= n ? n - 1 : i); }

inline std::size_t indexOf(const KrvVoxelView& v, int x, int y, int z) noexcept {
    return (static_cast<std::size_t>(z) * static_cast<std::size_t>(v.ny) + static_cast<std::size_t>(y)) *
               static_cast<std::size_t>(v.nx) +
           static_cast<std::size_t>(x);
}

struct Offset {
    int dx, dy, dz;
};

// The neighbours of a voxel: the face neighbours, or the full neighbourhood, in the image's
// dimension. `before` keeps only those earlier in raster order.
inline std::vector<Offset> neighbours(const KrvVoxelView& v, bool full, bool before = false) {
    std::vector<Offset> offsets;
    const int zr = v.Is3D() ? 1 : 0;
    for (int dz = -zr; dz <= zr; ++dz)
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const int steps = std::abs(dx) + std::abs(dy) + std::abs(dz);
                if (steps == 0 || (!full && steps > 1)) continue;
                if (before && (dz > 0 || (dz == 0 && (dy > 0 || (dy == 0 && dx > 0))))) continue;
                offsets.push_back({dx, dy, dz});
            }
    return offsets;
}

inline bool inside(const KrvVoxelView& v, int x, int y, int z) noexcept {
    return x >= 0 && y >= 0 && z >= 0 && x < v.nx && y < v.ny && z < v.nz;
}

// The voxels of any view as doubles, and a typed store back.
inline std::vector<double> toDoubles(const KrvVoxelView& v) {
    std::vector<double> values(v.Count());
    dispatch(v.type, [&](auto t) {
        using T = decltype(t);
        const T* p = v.As<T>();
        for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(p[i]);
    });
    return values;
}

inline void storeDoubles(const std::vector<double>& values, const KrvVoxelView& out) {
    dispatch(out.type, [&](auto t) {
        using T = decltype(t);
        T* p = out.As<T>();
        for (std::size_t i = 0; i < values.size(); ++i) p[i] = saturate<T>(values[i]);
    });
}

// 1 where the view's voxel is non-zero, 0 elsewhere.
inline std::vector<std::uint8_t> foregroundMask(const KrvVoxelView& v) {
    std::vector<std::uint8_t> mask(v.Count());
    dispatch(v.type, [&](auto t) {
        const auto* p = v.As<decltype(t)>();
        for (std::size_t i = 0; i < mask.size(); ++i) mask[i] = p[i] != 0 ? 1 : 0;
    });
    return mask;
}

constexpr std::uint8_t kForeground = 255;

// Reports the passes of a kernel: pass k of n.
class Passes {
public:
    Passes(const KrvKernelProgress& progress, long total) : m_progress(progress), m_total(total) {}
    void done() {
        ++m_done;
        if (m_progress) m_progress(m_done, m_total);
    }

private:
    const KrvKernelProgress& m_progress;
    long m_total;
    long m_done = 0;
};

}  // namespace KrvKernelSupport
