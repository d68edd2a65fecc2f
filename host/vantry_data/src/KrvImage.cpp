// Image buffers: zeroed by calloc, so that a large image costs no pass over its bytes until
// it is written; the bytes are reserved from the memory budget first and given back when the
// last share of the buffer goes.
#include <vantry_data/KrvImage.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>

#include <vantry_util/KrvMemoryBudget.h>

std::size_t krvVoxelBytes(KrvVoxelType type) noexcept {
    switch (type) {
    case KrvVoxelType::UInt8: return 1;
    case KrvVoxelType::UInt16: return 2;
    case KrvVoxelType::Int32:
    case KrvVoxelType::Float32: return 4;
    }
    return 1;
}

const char* krvVoxelTypeName(KrvVoxelType type) noexcept {
    switch (type) {
    case KrvVoxelType::UInt8: return "uint8";
    case KrvVoxelType::UInt16: return "uint16";
    case KrvVoxelType::Int32: return "int32";
    case KrvVoxelType::Float32: return "float32";
    }
    return "unknown";
}

KrvVoxelView KrvImage::View() const noexcept {
    return KrvVoxelView{m_data.get(), m_nx, m_ny, m_nz, m_type, m_voxelSize};
}

void KrvImage::FreeBytes::operator()(std::uint8_t* buffer) const noexcept {
    std::free(buffer);
    KrvMemoryBudget::release(bytes);
}

KrvImage::KrvImage(KrvImage&& other) noexcept { *this = std::move(other); }

KrvImage& KrvImage::operator=(KrvImage&& other) noexcept {
    if (this == &other) return *this;
    Clear();
    m_data = std::move(other.m_data);
    m_nx = std::exchange(other.m_nx, 0);
    m_ny = std::exchange(other.m_ny, 0);
    m_nz = std::exchange(other.m_nz, 0);
    m_type = other.m_type;
    m_bytes = std::exchange(other.m_bytes, 0);
    m_voxelSize = std::exchange(other.m_voxelSize, KrvVoxelSize{});
    return *this;
}

KrvImage::~KrvImage() { Clear(); }

void KrvImage::Clear() noexcept {
    m_data.reset();
    m_nx = m_ny = m_nz = 0;
    m_bytes = 0;
    m_voxelSize = KrvVoxelSize{};
}

bool KrvImage::Allocate(int nx, int ny, int nz, KrvVoxelType type, const char* what) {
    Clear();
    if (nx < 1 || ny < 1 || nz < 1) return false;
    std::size_t bytes = krvVoxelBytes(type);
    for (const int n : {nx, ny, nz})
        if (__builtin_mul_overflow(bytes, static_cast<std::size_t>(n), &bytes)) return false;
    if (bytes > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max())) return false;
    KrvMemoryReservation reservation(bytes, what);
    if (!reservation) return false;
    auto* buffer = static_cast<std::uint8_t*>(std::calloc(bytes, 1));
    if (buffer == nullptr) return false;
    reservation.keep();  // the buffer's deleter gives the bytes back, even when the share can't be made
    m_data = std::shared_ptr<std::uint8_t>(buffer, FreeBytes{bytes});
    m_nx = nx;
    m_ny = ny;
    m_nz = nz;
    m_type = type;
    m_bytes = bytes;
    return true;
}

std::size_t KrvImage::GetVoxelCount() const noexcept { return m_bytes / krvVoxelBytes(m_type); }

std::size_t KrvImage::GetPlaneBytes() const noexcept {
    return static_cast<std::size_t>(m_nx) * static_cast<std::size_t>(m_ny) * krvVoxelBytes(m_type);
}

void KrvImage::SetVoxelSize(const KrvVoxelSize& size) {
    for (const double v : {size.x, size.y, size.z})
        if (!(std::isfinite(v) && v > 0))
            throw KrvBaseException("Invalid voxel size " + std::to_string(size.x) + " " + std::to_string(size.y) +
                                       " " + std::to_string(size.z) + ": each must be finite and above 0",
                                   __FILE__, __LINE__);
    m_voxelSize = size;
}

void KrvImage::CheckType(KrvVoxelType wanted) const {
    if (wanted != m_type)
        throw KrvBaseException(std::string("Voxels of a ") + krvVoxelTypeName(m_type) + " image read as " +
                                   krvVoxelTypeName(wanted),
                               __FILE__, __LINE__);
}

std::string KrvImage::Describe() const {
    return std::to_string(m_nx) + "x" + std::to_string(m_ny) + "x" + std::to_string(m_nz) + " " +
           krvVoxelTypeName(m_type);
}
