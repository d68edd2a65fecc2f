// Voxel types, voxel sizes and a plain view of a voxel grid. The image-processing and
// measurement library works on views, so that it needs no image store: the data service owns the
// images and hands their views down.
#pragma once
#include <cstddef>
#include <cstdint>

enum class KrvVoxelType : int { UInt8 = 0, UInt16 = 1, Int32 = 2, Float32 = 3 };

template <class T> struct KrvVoxelTypeOf;
template <> struct KrvVoxelTypeOf<std::uint8_t> { static constexpr KrvVoxelType value = KrvVoxelType::UInt8; };
template <> struct KrvVoxelTypeOf<std::uint16_t> { static constexpr KrvVoxelType value = KrvVoxelType::UInt16; };
template <> struct KrvVoxelTypeOf<std::int32_t> { static constexpr KrvVoxelType value = KrvVoxelType::Int32; };
template <> struct KrvVoxelTypeOf<float> { static constexpr KrvVoxelType value = KrvVoxelType::Float32; };

// The size of one voxel along x, y and z, in the image's physical unit.
struct KrvVoxelSize {
    double x = 1.0, y = 1.0, z = 1.0;
};

// nx by ny by nz voxels of one type in one buffer, x fastest, then y, then z (nz is 1 in 2-D).
// The view owns nothing; whoever made it keeps the buffer alive while it is used.
struct KrvVoxelView {
    void* data = nullptr;
    int nx = 0, ny = 0, nz = 0;
    KrvVoxelType type = KrvVoxelType::UInt8;
    KrvVoxelSize size;

    std::size_t Count() const noexcept {
        return static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny) * static_cast<std::size_t>(nz);
    }
    bool Is3D() const noexcept { return nz > 1; }
    bool SameGrid(const KrvVoxelView& other) const noexcept {
        return nx == other.nx && ny == other.ny && nz == other.nz;
    }
    // The voxels as T; the caller has checked `type`.
    template <class T>
    T* As() const noexcept {
        return static_cast<T*>(data);
    }
};
