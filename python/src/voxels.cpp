#include "voxels.h"

#include <climits>
#include <cmath>

#include <vantry_data/CDatImg.h>

namespace korvane_py {

namespace {

KrvVoxelType voxelTypeOf(const py::dtype& dtype) {
    if (dtype.equal(py::dtype::of<std::uint8_t>())) return KrvVoxelType::UInt8;
    if (dtype.equal(py::dtype::of<std::uint16_t>())) return KrvVoxelType::UInt16;
    if (dtype.equal(py::dtype::of<std::int32_t>())) return KrvVoxelType::Int32;
    if (dtype.equal(py::dtype::of<float>())) return KrvVoxelType::Float32;
    throw py::type_error("an image must be uint8, uint16, int32 or float32, not " + describe(dtype));
}

// The suite's x, y, z sizes from one size per axis, z first; 1 for the z of a 2-D image.
KrvVoxelSize suiteVoxelSize(const VoxelSizes& sizes, py::ssize_t ndim) {
    if (!sizes) return {};
    const std::vector<double>& given = *sizes;
    bool valid = static_cast<py::ssize_t>(given.size()) == ndim;
    for (const double size : given) valid = valid && std::isfinite(size) && size > 0;
    if (!valid)
        throw py::value_error("voxelSize must be " + std::to_string(ndim) +
                              " finite sizes above 0, one per axis, not " + describe(py::cast(given)));
    return {given.back(), given[given.size() - 2], ndim == 3 ? given.front() : 1.0};
}

}  // namespace

ArrayImage arrayImage(const py::object& values, const VoxelSizes& voxelSize) {
    py::array given = py::module_::import("numpy").attr("asarray")(values);
    // An equal dtype is enough (an unpickled array has its own); a swapped byte order is read as
    // the machine's.
    if (!given.dtype().attr("isnative").cast<bool>())
        given = given.attr("astype")(given.dtype().attr("newbyteorder")("="));
    const KrvVoxelType type = voxelTypeOf(given.dtype());
    if (given.ndim() != 2 && given.ndim() != 3)
        throw py::value_error("an image must be of shape (ny, nx) or (nz, ny, nx), not " +
                              describe(given.attr("shape")));
    for (py::ssize_t axis = 0; axis < given.ndim(); ++axis)
        if (given.shape(axis) < 1 || given.shape(axis) > INT_MAX)
            throw py::value_error("an image's sizes must lie from 1 to " + std::to_string(INT_MAX));
    ArrayImage image{py::array::ensure(given, py::array::c_style), {}};
    const bool is3D = given.ndim() == 3;
    image.view = KrvVoxelView{const_cast<void*>(image.values.data()),  // the suite only reads it
                              static_cast<int>(given.shape(is3D ? 2 : 1)),
                              static_cast<int>(given.shape(is3D ? 1 : 0)),
                              is3D ? static_cast<int>(given.shape(0)) : 1,
                              type,
                              suiteVoxelSize(voxelSize, given.ndim())};
    return image;
}

py::dtype dtypeOf(KrvVoxelType type) {
    switch (type) {
        case KrvVoxelType::UInt8: return py::dtype::of<std::uint8_t>();
        case KrvVoxelType::UInt16: return py::dtype::of<std::uint16_t>();
        case KrvVoxelType::Int32: return py::dtype::of<std::int32_t>();
        case KrvVoxelType::Float32: break;
    }
    return py::dtype::of<float>();
}

std::vector<py::ssize_t> shapeOf(const KrvImage& image) {
    std::vector<py::ssize_t> shape{image.GetSizeY(), image.GetSizeX()};
    if (image.Is3D()) shape.insert(shape.begin(), image.GetSizeZ());
    return shape;
}

py::tuple voxelSizeOf(const KrvImage& image) {
    const KrvVoxelSize& size = image.GetVoxelSize();
    return image.Is3D() ? py::make_tuple(size.z, size.y, size.x) : py::make_tuple(size.y, size.x);
}

const KrvImage& storedImage(const std::string& name) {
    const CDatImg* stored = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
    if (!stored) throw ModuleError("korvane: no image named \"" + name + "\"");
    return stored->GetImage();
}

}  // namespace korvane_py
