// The image kernels of the catalogue's commands. Each reads a view and writes a view its caller
// allocated (most often of the same grid; the header says which type), so that the kernels need
// no image store. Conventions shared by all of them:
// - a binary image is uint8, 0 and 255; on input any non-zero voxel is foreground;
// - neighbourhoods past the image's edge repeat the edge voxel ("nearest");
// - connectivity 4 or 6 means the face neighbours only, 8 or 26 the full neighbourhood, in 2-D
//   and 3-D alike;
// - integer results are rounded to the nearest value and clamped to the type's range;
// - a kernel that runs long reports its passes through `progress` (done, total), which may throw
//   to stop it: every kernel is safe against that.
// A view of the wrong type or grid, or a parameter the kernel can't use, throws KrvBaseException
// with the reason.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvVoxel.h>

using KrvKernelProgress = std::function<void(long done, long total)>;

// A straight segment in pixel coordinates.
struct KrvLineSegment {
    float x1, y1, x2, y2;
};

enum class KrvMorphology { Erode, Dilate, Open, Close, TopHat };
enum class KrvThresholdMethod { Otsu, Isodata };
enum class KrvArithmetic { Add, Subtract, Multiply };

namespace KrvKernels {

// Filters; `out` has the type of `in` unless said otherwise. Sizes and sigmas are in voxels.
VANTRY_ACCESS_KORLIB_EXPORT void Gaussian(const KrvVoxelView& in, const KrvVoxelView& out, double sigma,
                                          const KrvKernelProgress& progress = {});
// `size` odd: the side of the square (cube) neighbourhood.
VANTRY_ACCESS_KORLIB_EXPORT void Median(const KrvVoxelView& in, const KrvVoxelView& out, int size,
                                        const KrvKernelProgress& progress = {});
VANTRY_ACCESS_KORLIB_EXPORT void Mean(const KrvVoxelView& in, const KrvVoxelView& out, int size,
                                      const KrvKernelProgress& progress = {});
// 2 * in - Mean(in, size).
VANTRY_ACCESS_KORLIB_EXPORT void Sharpen(const KrvVoxelView& in, const KrvVoxelView& out, int size,
                                         const KrvKernelProgress& progress = {});
// float32 out: the Sobel gradient's magnitude (3-D: the three-axis Sobel operator).
VANTRY_ACCESS_KORLIB_EXPORT void GradientSobel(const KrvVoxelView& in, const KrvVoxelView& out,
                                               const KrvKernelProgress& progress = {});
// float32 out: the sum of the face neighbours minus 4 (6 in 3-D) times the voxel.
VANTRY_ACCESS_KORLIB_EXPORT void Laplacian(const KrvVoxelView& in, const KrvVoxelView& out,
                                           const KrvKernelProgress& progress = {});

// Grey-level morphology with the square (cube) of half-width `size` for connectivity 8/26, or
// `size` steps of the cross for 4/6.
VANTRY_ACCESS_KORLIB_EXPORT void Morphology(KrvMorphology operation, const KrvVoxelView& in, const KrvVoxelView& out,
                                            int size, int connectivity, const KrvKernelProgress& progress = {});
// Binary in, binary out: thinning of a 2-D image to a one-pixel wide, 8-connected skeleton.
VANTRY_ACCESS_KORLIB_EXPORT void Skeleton(const KrvVoxelView& in, const KrvVoxelView& out,
                                          const KrvKernelProgress& progress = {});
// Binary in, binary out: background not reached from the edge through face neighbours becomes
// foreground.
VANTRY_ACCESS_KORLIB_EXPORT void FillHoles(const KrvVoxelView& in, const KrvVoxelView& out,
                                           const KrvKernelProgress& progress = {});

// Binary out: foreground where low <= value <= high.
VANTRY_ACCESS_KORLIB_EXPORT void Threshold(const KrvVoxelView& in, const KrvVoxelView& out, double low, double high);
// The threshold of the histogram: integer images one bin per value from the least to the
// largest, float images 256 equal bins; a voxel above it is foreground.
VANTRY_ACCESS_KORLIB_EXPORT double AutoThresholdValue(const KrvVoxelView& in, KrvThresholdMethod method);

// int32 out: connected objects of the foreground numbered 1, 2, ... in the raster order of their
// first voxel; the number of objects.
VANTRY_ACCESS_KORLIB_EXPORT std::int32_t Label(const KrvVoxelView& in, const KrvVoxelView& out, int connectivity,
                                               const KrvKernelProgress& progress = {});
// `out` of the type of `in`: objects of fewer than `minimum` voxels set to 0. An int32 image's
// objects are its labels; another image's are its connected foreground (connectivity as above).
VANTRY_ACCESS_KORLIB_EXPORT void RemoveSmall(const KrvVoxelView& in, const KrvVoxelView& out, long minimum,
                                             int connectivity, const KrvKernelProgress& progress = {});
// float32 out: each foreground voxel's exact Euclidean distance to the nearest background voxel,
// in the voxel size's unit; 0 on background, infinity when the image has no background.
VANTRY_ACCESS_KORLIB_EXPORT void DistanceTransform(const KrvVoxelView& in, const KrvVoxelView& out,
                                                   const KrvKernelProgress& progress = {});
// int32 out: the foreground split into touching objects: the distance map's maxima (one seed per
// connected plateau) flooded downhill, each foreground voxel taking the seed that reaches it
// first. The number of objects.
VANTRY_ACCESS_KORLIB_EXPORT std::int32_t Watershed(const KrvVoxelView& in, const KrvVoxelView& out, int connectivity,
                                                   const KrvKernelProgress& progress = {});

// Arithmetic. `out` has the wider type of the two (uint8 < uint16 < int32 < float32); integer
// results saturate.
VANTRY_ACCESS_KORLIB_EXPORT KrvVoxelType WiderType(KrvVoxelType a, KrvVoxelType b) noexcept;
VANTRY_ACCESS_KORLIB_EXPORT void Arithmetic(KrvArithmetic operation, const KrvVoxelView& first,
                                            const KrvVoxelView& second, const KrvVoxelView& out);
// Integer images: the type's maximum minus the value; float images: minus the value.
VANTRY_ACCESS_KORLIB_EXPORT void Invert(const KrvVoxelView& in, const KrvVoxelView& out);

// Geometry. `out`'s grid gives the new size for Resample (each axis scaled by the ratio of the
// sizes, linear or nearest-voxel), the rectangle's size for Crop (from x0, y0, z0).
VANTRY_ACCESS_KORLIB_EXPORT void Resample(const KrvVoxelView& in, const KrvVoxelView& out, bool interpolate,
                                          const KrvKernelProgress& progress = {});
VANTRY_ACCESS_KORLIB_EXPORT void Crop(const KrvVoxelView& in, const KrvVoxelView& out, int x0, int y0, int z0);
VANTRY_ACCESS_KORLIB_EXPORT void FlipHorizontal(const KrvVoxelView& in, const KrvVoxelView& out);
// A quarter turn counter-clockwise as the image is shown (y down): `out` is ny by nx.
VANTRY_ACCESS_KORLIB_EXPORT void Rotate90(const KrvVoxelView& in, const KrvVoxelView& out);

// Analysis. `bins` equal bins over [least, largest] value (integer images: never narrower than one
// value); the lower edge of each bin in `edges`, its count in `counts`.
VANTRY_ACCESS_KORLIB_EXPORT void Histogram(const KrvVoxelView& in, int bins, std::vector<double>& edges,
                                           std::vector<double>& counts);
// The straight lines of a 2-D binary image with at least `votes` foreground pixels on them (the
// Hough transform, 1 degree and 1 pixel steps, one line per local maximum), each clipped to the
// image.
VANTRY_ACCESS_KORLIB_EXPORT std::vector<KrvLineSegment> HoughLines(const KrvVoxelView& in, long votes);

}  // namespace KrvKernels
