// Connected-component labelling by runs of foreground along x.
#pragma once
#include <cstdint>

namespace KrvRunLabels {

// Labels `mask` (nx by ny by nz, x fastest, non-zero is foreground) into `labels`: objects
// numbered 1, 2, ... in the raster order of their first voxel, background 0. `full`: 8- (2-D) or
// 26-connected (3-D) objects; otherwise 4- or 6-connected. The number of objects.
std::int32_t label(const std::uint8_t* mask, int nx, int ny, int nz, bool full, std::int32_t* labels);

}  // namespace KrvRunLabels
