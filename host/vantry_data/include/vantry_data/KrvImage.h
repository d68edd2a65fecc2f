// Images: 2-D or 3-D grids of voxels of one type, with a voxel size. Voxels lie in one
// contiguous buffer, x fastest, then y, then z; a 2-D image has a z size of 1. The buffer's
// bytes count against the suite's memory budget for as long as the image, or a share of its
// voxels (ShareVoxels), holds them.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvVoxel.h>

// Bytes per voxel: 1, 2, 4, 4.
VANTRY_DATA_EXPORT std::size_t krvVoxelBytes(KrvVoxelType type) noexcept;
// "uint8", "uint16", "int32", "float32".
VANTRY_DATA_EXPORT const char* krvVoxelTypeName(KrvVoxelType type) noexcept;

class VANTRY_DATA_EXPORT KrvImage {
public:
    // An empty image (no voxels, sizes 0).
    KrvImage() = default;
    KrvImage(KrvImage&& other) noexcept;
    KrvImage& operator=(KrvImage&& other) noexcept;
    KrvImage(const KrvImage&) = delete;
    KrvImage& operator=(const KrvImage&) = delete;
    ~KrvImage();

    // Makes the image an nx by ny by nz grid of zeros of `type` (the voxel size back to 1, 1, 1).
    // False, the image left empty, when a size is below 1, the byte count does not fit in
    // memory, or the memory budget refuses it (a Warn line names `what`).
    bool Allocate(int nx, int ny, int nz, KrvVoxelType type, const char* what = "image");
    // Lets go of the voxels; their bytes of budget go with the last share of them.
    void Clear() noexcept;

    bool IsEmpty() const noexcept { return m_data == nullptr; }
    int GetSizeX() const noexcept { return m_nx; }
    int GetSizeY() const noexcept { return m_ny; }
    int GetSizeZ() const noexcept { return m_nz; }
    bool Is3D() const noexcept { return m_nz > 1; }
    KrvVoxelType GetType() const noexcept { return m_type; }
    std::size_t GetVoxelCount() const noexcept;
    std::size_t GetByteCount() const noexcept { return m_bytes; }
    // Bytes of one z plane.
    std::size_t GetPlaneBytes() const noexcept;

    const KrvVoxelSize& GetVoxelSize() const noexcept { return m_voxelSize; }
    // Each size must be finite and above 0; a KrvBaseException otherwise.
    void SetVoxelSize(const KrvVoxelSize& size);

    void* GetData() noexcept { return m_data.get(); }
    const void* GetData() const noexcept { return m_data.get(); }
    std::uint8_t* GetPlane(int z) noexcept { return m_data.get() + static_cast<std::size_t>(z) * GetPlaneBytes(); }
    const std::uint8_t* GetPlane(int z) const noexcept {
        return m_data.get() + static_cast<std::size_t>(z) * GetPlaneBytes();
    }

    // The voxels as T; a KrvBaseException when T is not the image's voxel type.
    template <class T>
    T* Voxels() {
        CheckType(KrvVoxelTypeOf<T>::value);
        return reinterpret_cast<T*>(m_data.get());
    }
    template <class T>
    const T* Voxels() const {
        CheckType(KrvVoxelTypeOf<T>::value);
        return reinterpret_cast<const T*>(m_data.get());
    }
    std::size_t Index(int x, int y, int z = 0) const noexcept {
        return (static_cast<std::size_t>(z) * static_cast<std::size_t>(m_ny) + static_cast<std::size_t>(y)) *
                   static_cast<std::size_t>(m_nx) +
               static_cast<std::size_t>(x);
    }
    template <class T>
    T& At(int x, int y, int z = 0) {
        return Voxels<T>()[Index(x, y, z)];
    }
    template <class T>
    const T& At(int x, int y, int z = 0) const {
        return Voxels<T>()[Index(x, y, z)];
    }

    // The voxels as a view for the processing library; valid while the image keeps them.
    KrvVoxelView View() const noexcept;
    // A share of the voxel buffer (null for an empty image): the voxels and their bytes of
    // budget stay while it lives, even after the image lets them go, so that work on another
    // thread or a client's read-only view outlives a removal from the store.
    std::shared_ptr<const void> ShareVoxels() const noexcept { return m_data; }

    // "64x48x1 uint8" for messages.
    std::string Describe() const;

private:
    // Frees the buffer and gives its bytes back to the budget.
    struct FreeBytes {
        std::size_t bytes;
        void operator()(std::uint8_t* buffer) const noexcept;
    };
    void CheckType(KrvVoxelType wanted) const;

    std::shared_ptr<std::uint8_t> m_data;
    int m_nx = 0, m_ny = 0, m_nz = 0;
    KrvVoxelType m_type = KrvVoxelType::UInt8;
    std::size_t m_bytes = 0;
    KrvVoxelSize m_voxelSize;
};
