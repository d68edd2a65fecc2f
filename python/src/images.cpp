// The suite's images from and to NumPy arrays, and its commands run by name with keyword
// parameters. Arrays are (ny, nx) or (nz, ny, nx), x fastest: the suite's own layout. Both
// directions copy: the suite's budget counts the bytes of a stored image, and a command may
// remove an image that a view would still point into.
#include <climits>
#include <cstring>
#include <optional>

#include <vantry_data/CDatImg.h>
#include <vantry_process/KrvCommandRunner.h>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "korvane.h"

namespace korvane_py {

namespace {

KrvVoxelType voxelTypeOf(const py::dtype& dtype) {
    if (dtype.equal(py::dtype::of<std::uint8_t>())) return KrvVoxelType::UInt8;
    if (dtype.equal(py::dtype::of<std::uint16_t>())) return KrvVoxelType::UInt16;
    if (dtype.equal(py::dtype::of<std::int32_t>())) return KrvVoxelType::Int32;
    if (dtype.equal(py::dtype::of<float>())) return KrvVoxelType::Float32;
    throw py::type_error("an image must be uint8, uint16, int32 or float32, not " + describe(dtype));
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

// A C-ordered copy of `values` in the store under `name`; False when the suite refuses the name
// or the memory budget the bytes.
bool putImage(const std::string& name, const py::object& values) {
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
    const py::array contiguous = py::array::ensure(given, py::array::c_style);
    const bool is3D = given.ndim() == 3;
    const int nz = is3D ? static_cast<int>(given.shape(0)) : 1;
    const int ny = static_cast<int>(given.shape(is3D ? 1 : 0));
    const int nx = static_cast<int>(given.shape(is3D ? 2 : 1));
    KrvImage image;
    if (!image.Allocate(nx, ny, nz, type)) return false;
    std::memcpy(image.GetData(), contiguous.data(), image.GetByteCount());
    return CDatImgHandler::m_pInstance->AddImg(CKrvString(name), std::move(image)) != nullptr;
}

std::optional<py::array> getImage(const std::string& name) {
    const CDatImg* stored = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
    if (!stored) return std::nullopt;
    const KrvImage& image = stored->GetImage();
    std::vector<py::ssize_t> shape{image.GetSizeY(), image.GetSizeX()};
    if (image.Is3D()) shape.insert(shape.begin(), image.GetSizeZ());
    py::array copy(dtypeOf(image.GetType()), shape);
    std::memcpy(copy.mutable_data(), image.GetData(), image.GetByteCount());
    return copy;
}

std::vector<std::string> imageList() {
    std::vector<CKrvString> names;
    CDatImgHandler::m_pInstance->GetObjList(names);
    std::vector<std::string> result;
    for (const CKrvString& name : names) result.push_back(name.m_str);
    return result;
}

// A keyword parameter as the command runner reads it: True/False as true/false, numbers as
// Python writes them, a list or tuple of image names joined by commas.
std::string parameterText(const std::string& name, const py::handle& value) {
    if (py::isinstance<py::bool_>(value)) return value.cast<bool>() ? "true" : "false";
    if (py::isinstance<py::str>(value)) return value.cast<std::string>();
    if (py::isinstance<py::int_>(value) || py::isinstance<py::float_>(value))
        return py::repr(value).cast<std::string>();
    if (py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value)) {
        std::string joined;
        for (const py::handle& item : value) joined += (joined.empty() ? "" : ",") + parameterText(name, item);
        return joined;
    }
    throw py::type_error("parameter " + name + " must be a str, a number, a bool or a list of names, not " +
                         describe(py::type::handle_of(value)));
}

// True when the command ran and its outputs are stored, False when the flush callback stopped
// it; korvane.SuiteError when the suite refuses it or it fails.
bool runCommand(const std::string& name, const py::kwargs& parameters) {
    requireSession();
    std::vector<KrvCommandArgument> arguments;
    for (const auto& [key, value] : parameters) {
        const std::string parameter = key.cast<std::string>();
        arguments.push_back({parameter, parameterText(parameter, value)});
    }
    const LongWork work;
    return krvRunCommand(name, arguments);
}

}  // namespace

void bindImages(py::module_& m) {
    m.def("putImage", inSession(&putImage), py::arg("name"), py::arg("values"),
          "Stores a copy of a 2-D (ny, nx) or 3-D (nz, ny, nx) array of uint8, uint16, int32 or float32 as the "
          "image `name`; False when the suite refuses the name or the memory.");
    m.def("getImage", inSession(&getImage), py::arg("name"),
          "A copy of the image `name` as an array of shape (ny, nx) or (nz, ny, nx); None when there is none.");
    m.def("removeImage", inSession(+[](const std::string& name) {
              return CDatImgHandler::m_pInstance->RemoveImg(CKrvString(name)) == 1;
          }),
          py::arg("name"), "Removes the image; False when there is none.");
    m.def("getImageList", inSession(&imageList), "The names of the stored images.");
    m.def("runCommand", &runCommand, py::arg("name"),
          "Runs the suite's command `name` with keyword parameters, e.g. runCommand('Threshold', input='a', "
          "output='b', low=10). False when the flush callback stopped it.");
}

}  // namespace korvane_py
