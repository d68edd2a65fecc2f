// What one pass over a label image gathers per object, and the passes that gather it.
#pragma once
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include <vantry_access_korlib/KrvMeasureObjects.h>

namespace krv::measure {

// A run of one object's voxels along x: x0 to x1 (inclusive) in row y of plane z.
struct Run {
    int x0, x1, y, z;
};

// The 13 neighbour offsets of the 26-neighbourhood, one of each antipodal pair; the first, second,
// fourth and fifth lie in the plane (the four of the 8-neighbourhood).
constexpr int kOffsetCount = 13;
constexpr int kPlaneOffsets[4] = {0, 1, 3, 4};
constexpr std::array<std::array<int, 3>, kOffsetCount> kOffsets{{{1, 0, 0},
                                                                 {0, 1, 0},
                                                                 {0, 0, 1},
                                                                 {1, 1, 0},
                                                                 {-1, 1, 0},
                                                                 {1, 0, 1},
                                                                 {-1, 0, 1},
                                                                 {0, 1, 1},
                                                                 {0, -1, 1},
                                                                 {1, 1, 1},
                                                                 {-1, 1, 1},
                                                                 {1, -1, 1},
                                                                 {-1, -1, 1}}};

struct ObjectData {
    std::int32_t label = 0;
    double count = 0;
    // Sums of voxel indices and of their products, for centroids and second moments.
    double sx = 0, sy = 0, sz = 0, sxx = 0, syy = 0, szz = 0, sxy = 0, sxz = 0, syz = 0;
    int minX = INT_MAX, maxX = INT_MIN, minY = INT_MAX, maxY = INT_MIN, minZ = INT_MAX, maxZ = INT_MIN;
    double greySum = 0, greySum2 = 0, greyMin = INFINITY, greyMax = -INFINITY;
    std::vector<Run> runs;           // only for hull and calliper measures
    std::vector<double> greyValues;  // only for percentiles
    // Voxels of the object whose neighbour at each offset lies outside it (Crofton counts).
    std::array<std::uint64_t, kOffsetCount> exits{};
    // Vertices - edges + faces of the object's closure (its Euler number is this less the count).
    std::int64_t eulerCells = 0;
};

// What the passes gather besides counts, moments and the bounding box.
enum Needs : unsigned {
    kNeedRuns = 1u << 0,
    kNeedGrey = 1u << 1,
    kNeedGreyValues = 1u << 2,
    kNeedExits = 1u << 3,
    kNeedCells = 1u << 4,
};

// The objects by label: a direct table for the usual small labels, a hash map past it.
class ObjectTable {
public:
    ObjectData& at(std::int32_t label);
    // The objects by increasing label (the table is emptied).
    std::vector<ObjectData> sorted();

private:
    static constexpr std::int32_t kDirectLimit = 1 << 22;
    std::vector<std::int32_t> m_direct;  // label -> index + 1, 0 for none yet
    std::unordered_map<std::int32_t, std::int32_t> m_large;
    std::vector<ObjectData> m_objects;
};

// The pass over the labels (and the grey image): counts, moments, boxes, grey statistics, runs
// and grey values as `needs` asks.
void gatherObjects(const KrvVoxelView& labels, const KrvVoxelView* grey, unsigned needs, ObjectTable& objects,
                   const KrvMeasureStep& step, long& done, long total);

// The pass over neighbours, after gatherObjects: exits at each offset (kNeedExits) and the cells
// of the objects' closures (kNeedCells).
void gatherNeighbours(const KrvVoxelView& labels, unsigned needs, ObjectTable& objects, const KrvMeasureStep& step,
                      long& done, long total);

// The length of the object's skeleton (Zhang and Suen's thinning of its pixels): the links between
// 8-neighbouring skeleton pixels, sx, sy or the diagonal.
double skeletonLength(const ObjectData& o, double sx, double sy);

}  // namespace krv::measure
