// The suite's images from and to NumPy arrays. Putting copies: the store must own what it keeps,
// which Python could change or free. Getting copies by default; copy=False gives a read-only
// view that holds a share of the stored voxels, so that it outlives the image's removal.
#include <cstring>
#include <optional>

#include <vantry_data/CDatImg.h>

#include <pybind11/stl.h>

#include "voxels.h"

namespace korvane_py {

namespace {

// The named tuple type, made with the module and kept for the life of the process.
py::object* imageInfoRecord = nullptr;

// A C-ordered copy of `values` in the store under `name`, with its voxel size; False when the
// suite refuses the name or the memory budget the bytes.
bool putImage(const std::string& name, const py::object& values, const VoxelSizes& voxelSize) {
    const ArrayImage given = arrayImage(values, voxelSize);
    const KrvVoxelView& view = given.view;
    KrvImage image;
    if (!image.Allocate(view.nx, view.ny, view.nz, view.type)) return false;
    image.SetVoxelSize(view.size);
    std::memcpy(image.GetData(), view.data, image.GetByteCount());
    return CDatImgHandler::m_pInstance->AddImg(CKrvString(name), std::move(image)) != nullptr;
}

// The stored voxels without a copy: the capsule owns a share of them.
py::array readOnlyView(const KrvImage& image) {
    auto* share = new std::shared_ptr<const void>(image.ShareVoxels());
    const py::capsule owner(share, [](void* held) { delete static_cast<std::shared_ptr<const void>*>(held); });
    py::array view(dtypeOf(image.GetType()), shapeOf(image), {}, share->get(), owner);
    view.attr("flags").attr("writeable") = false;
    return view;
}

std::optional<py::array> getImage(const std::string& name, bool copy) {
    const CDatImg* stored = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
    if (!stored) return std::nullopt;
    const KrvImage& image = stored->GetImage();
    if (!copy) return readOnlyView(image);
    py::array copied(dtypeOf(image.GetType()), shapeOf(image));
    std::memcpy(copied.mutable_data(), image.GetData(), image.GetByteCount());
    return copied;
}

std::optional<py::object> imageInfo(const std::string& name) {
    const CDatImg* stored = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
    if (!stored) return std::nullopt;
    const KrvImage& image = stored->GetImage();
    return (*imageInfoRecord)(py::tuple(py::cast(shapeOf(image))), dtypeOf(image.GetType()), voxelSizeOf(image));
}

std::vector<std::string> imageList() {
    std::vector<CKrvString> names;
    CDatImgHandler::m_pInstance->GetObjList(names);
    std::vector<std::string> result;
    for (const CKrvString& name : names) result.push_back(name.m_str);
    return result;
}

}  // namespace

void bindImages(py::module_& m) {
    imageInfoRecord = new py::object(namedTuple(m, "ImageInfo", "shape dtype voxelSize"));
    m.def("putImage", inSession(&putImage), py::arg("name"), py::arg("values"), py::arg("voxelSize") = py::none(),
          "Stores a copy of a 2-D (ny, nx) or 3-D (nz, ny, nx) array of uint8, uint16, int32 or float32 as the "
          "image `name`, with voxelSize (one size per axis, in the array's order; 1 when None); False when the "
          "suite refuses the name or the memory.");
    m.def("getImage", inSession(&getImage), py::arg("name"), py::arg("copy") = true,
          "The image `name` as an array of shape (ny, nx) or (nz, ny, nx): a copy, or with copy=False a read-only "
          "view of the stored voxels, which it keeps (and their bytes counted) while it lives; None when there is "
          "none.");
    m.def("imageInfo", inSession(&imageInfo), py::arg("name"),
          "The shape, dtype and voxel size (one per axis, in the array's order) of the image `name` as an "
          "ImageInfo; None when there is none.");
    m.def("removeImage", inSession(+[](const std::string& name) {
              return CDatImgHandler::m_pInstance->RemoveImg(CKrvString(name)) == 1;
          }),
          py::arg("name"), "Removes the image; False when there is none.");
    m.def("getImageList", inSession(&imageList), "The names of the stored images.");
}

}  // namespace korvane_py
