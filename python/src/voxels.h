// Images between NumPy arrays and the suite: arrays are (ny, nx) or (nz, ny, nx), x fastest, the
// suite's own layout, of uint8, uint16, int32 or float32; voxel sizes go in the arrays' axis
// order, (dy, dx) or (dz, dy, dx).
#pragma once
#include <optional>
#include <string>
#include <vector>

#include <vantry_data/KrvImage.h>

#include <pybind11/numpy.h>

#include "korvane.h"

namespace korvane_py {

using VoxelSizes = std::optional<std::vector<double>>;

// An image given as an array-like, checked and made C-contiguous (a copy only when it is not),
// and the suite's view of its voxels, valid while `values` lives. TypeError for another dtype,
// ValueError for another shape, a size out of range, or a voxel size that is not one finite
// positive number per axis.
struct ArrayImage {
    py::array values;
    KrvVoxelView view;
};
ArrayImage arrayImage(const py::object& values, const VoxelSizes& voxelSize = std::nullopt);

// The dtype of the suite's voxel type.
py::dtype dtypeOf(KrvVoxelType type);
// The array shape and the voxel sizes, in axis order, of a stored image.
std::vector<py::ssize_t> shapeOf(const KrvImage& image);
py::tuple voxelSizeOf(const KrvImage& image);

// The stored image `name`; korvane.Error when there is none.
const KrvImage& storedImage(const std::string& name);

}  // namespace korvane_py
