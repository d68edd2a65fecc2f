// Reading and writing images: TIFF (single-page 2-D, multi-page 3-D; 8 and 16-bit unsigned,
// 32-bit signed and 32-bit float grey voxels) and PNG (8 and 16-bit grey, one plane). Every
// failure throws a KrvBaseException "<file>: <reason>" and leaves nothing made.
#pragma once
#include <cstddef>
#include <string>

#include <vantry_data/KrvImage.h>
#include <vantry_util/KrvExport.h>

namespace KrvImageFile {

// An image may claim at most this many voxel bytes per byte of its file, before anything is
// allocated: more than any of the readable compressions can give.
constexpr std::size_t kMaxExpansion = 1100;

// Reads pages [first, first + count) of a TIFF or PNG file (told apart by their first bytes);
// a count of 0 or less reads from `first` to the last page.
VANTRY_DATA_EXPORT KrvImage Read(const std::string& file, int first = 0, int count = 0);
// The same over bytes in memory; `label` names them in messages.
VANTRY_DATA_EXPORT KrvImage ReadMemory(const void* bytes, std::size_t size, const std::string& label, int first = 0, int count = 0);

// Writes z planes [first, first + count) of `image` (a count of 0 or less: to the last plane):
// a PNG when the file name ends in ".png" (one 8 or 16-bit plane), else a TIFF with one page
// per plane and the voxel size. A failed write removes the file.
VANTRY_DATA_EXPORT void Write(const KrvImage& image, const std::string& file, int first = 0, int count = 0);

}  // namespace KrvImageFile
