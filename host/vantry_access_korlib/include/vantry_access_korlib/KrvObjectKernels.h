// The image kernels of the commands that use the client's stored objects: a user filter's formula,
// a plain or a morphological lookup table, and the contours of a label image. They work on plain
// voxel views, so the data service's images and the tests' buffers go through the same code. A
// kernel refuses what it cannot do with a KrvBaseException whose message is the reason alone; the
// command that called it adds its name.
#pragma once
#include <cstdint>
#include <functional>
#include <vector>

#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvFormula.h>
#include <vantry_util/KrvVoxel.h>

// Told after each finished step of a kernel's `total`; it may throw to stop the work, and the
// kernel then leaves its output part-written (the caller drops it).
using KrvKernelProgress = std::function<void(long done, long total)>;

// A user filter's formula (compiled with the image vocabulary) for every voxel: I1..In read the
// `inputs` (1 to 9 images of one grid, any voxel type), X, Y and Z the voxel's indices. `out` is
// a float32 view of the same grid. Evaluated a block of voxels at a time; progress by z plane
// (by rows in 2-D). Refused: no input, inputs of differing grids, an output of another grid or
// type, a formula reading an image beyond the inputs ("the formula reads I3; 2 input images are
// given").
VANTRY_ACCESS_KORLIB_EXPORT void krvApplyImageFormula(const KrvFormula& formula, const std::vector<KrvVoxelView>& inputs,
                                                      const KrvVoxelView& out, const KrvKernelProgress& progress = {});

// The voxel type a plain lookup table's output takes: the input's when every value of the table
// fits it, int32 otherwise.
VANTRY_ACCESS_KORLIB_EXPORT KrvVoxelType krvLutOutputType(KrvVoxelType input, const std::vector<int>& table);
// out = table[in] voxel by voxel, `in` an integer image, `out` of the same grid and of
// krvLutOutputType. A voxel whose value has no entry (negative, or not below the table's size) is
// refused before anything is written ("voxel (4, 2, 0) holds 300; the table has 256 entries").
VANTRY_ACCESS_KORLIB_EXPORT void krvApplyLut(const KrvVoxelView& in, const std::vector<int>& table,
                                             const KrvVoxelView& out);

// Morphological lookup tables. A table holds 512 values per sub-table, one or more sub-tables.
// Index: bit 3 * (dy + 1) + (dx + 1) is set when the neighbour at (x + dx, y + dy) is set (bit 4:
// the pixel itself; y grows downward). Value: the pixel's new state (0 clears, anything else
// sets). One pass applies each sub-table in turn to the whole plane at once (every pixel reads
// the plane as the sub-table found it). `passes` passes, or for 0 or less until a pass changes
// nothing (at most one pass per pixel of a plane); `border` is the state of the pixels beyond the
// plane's edge (0 or 1). A 3-D image is taken plane by plane. `in` is an integer image, non-zero
// voxels set; `out` a uint8 view of the same grid, 1 for set. Answers the passes run.
constexpr int kKrvMorphoSubTable = 512;
VANTRY_ACCESS_KORLIB_EXPORT int krvApplyMorphoLut(const KrvVoxelView& in, const std::vector<int>& table, int passes,
                                                  int border, const KrvVoxelView& out,
                                                  const KrvKernelProgress& progress = {});

// Contours of a 2-D label image: every boundary of every label above 0 (outer boundaries and
// those of holes), traced along the pixels' edges, pixel (x, y) covering x - 0.5 to x + 0.5 and
// y - 0.5 to y + 0.5. A contour is a closed polygon of its corners (collinear points left out),
// clockwise on the screen (y down) for an outer boundary, counter-clockwise for a hole's; its
// area is the pixel count exactly. Diagonal neighbours of one label share a boundary (objects
// 8-connected, holes 4-connected). Ordered by label, then by the top-left-most corner in raster
// order; a contour starts at that corner. Progress by label.
struct KrvContourPoint {
    double x, y;
};
struct KrvContour {
    std::int64_t label;
    std::vector<KrvContourPoint> points;  // the last joins the first
};
VANTRY_ACCESS_KORLIB_EXPORT std::vector<KrvContour> krvTraceContours(const KrvVoxelView& labels,
                                                                     const KrvKernelProgress& progress = {});
