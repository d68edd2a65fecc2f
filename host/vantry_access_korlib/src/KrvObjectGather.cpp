// The passes over a label image that gather what the measures need.
#include "KrvObjectGather.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <type_traits>

#include <vantry_util/KrvBaseException.h>

namespace krv::measure {

ObjectData& ObjectTable::at(std::int32_t label) {
    std::int32_t* slot = nullptr;
    if (label < kDirectLimit) {
        if (static_cast<std::size_t>(label) >= m_direct.size())
            m_direct.resize(std::max<std::size_t>(static_cast<std::size_t>(label) + 1, 2 * m_direct.size()), 0);
        slot = &m_direct[static_cast<std::size_t>(label)];
    } else {
        slot = &m_large[label];
    }
    if (*slot == 0) {
        m_objects.emplace_back().label = label;
        *slot = static_cast<std::int32_t>(m_objects.size());
    }
    return m_objects[static_cast<std::size_t>(*slot - 1)];
}

std::vector<ObjectData> ObjectTable::sorted() {
    std::vector<ObjectData> objects = std::move(m_objects);
    std::sort(objects.begin(), objects.end(), [](const ObjectData& a, const ObjectData& b) { return a.label < b.label; });
    m_objects.clear();
    m_direct.clear();
    m_large.clear();
    return objects;
}

namespace {

// Sum of k^2 for k = 0 .. n.
double sumOfSquares(double n) { return n * (n + 1) * (2 * n + 1) / 6; }

void addRun(ObjectData& o, int x0, int x1, int y, int z, unsigned needs) {
    const double n = x1 - x0 + 1;
    const double sumX = n * (x0 + x1) / 2.0;
    o.count += n;
    o.sx += sumX;
    o.sy += n * y;
    o.sz += n * z;
    o.sxx += sumOfSquares(x1) - sumOfSquares(x0 - 1.0);
    o.syy += n * y * static_cast<double>(y);
    o.szz += n * z * static_cast<double>(z);
    o.sxy += sumX * y;
    o.sxz += sumX * z;
    o.syz += n * y * static_cast<double>(z);
    o.minX = std::min(o.minX, x0);
    o.maxX = std::max(o.maxX, x1);
    o.minY = std::min(o.minY, y);
    o.maxY = std::max(o.maxY, y);
    o.minZ = std::min(o.minZ, z);
    o.maxZ = std::max(o.maxZ, z);
    if (needs & kNeedRuns) o.runs.push_back({x0, x1, y, z});
}

template <class Grey>
void addGrey(ObjectData& o, const Grey* row, int x0, int x1, unsigned needs) {
    for (int x = x0; x <= x1; ++x) {
        const double g = static_cast<double>(row[x]);
        o.greySum += g;
        o.greySum2 += g * g;
        o.greyMin = std::min(o.greyMin, g);
        o.greyMax = std::max(o.greyMax, g);
    }
    if (needs & kNeedGreyValues)
        for (int x = x0; x <= x1; ++x) o.greyValues.push_back(static_cast<double>(row[x]));
}

[[noreturn]] void refuseNegative(std::int32_t label, int x, int y, int z) {
    throw KrvBaseException("Label images hold labels of 0 or more: voxel (" + std::to_string(x) + ", " +
                               std::to_string(y) + ", " + std::to_string(z) + ") holds " + std::to_string(label),
                           __FILE__, __LINE__);
}

// The first x from `x` on where the row holds an object (nx when none): background is most of a
// label image, so it is skipped eight voxels at a time.
int skipBackground(const std::int32_t* row, int x, int nx) {
    while (x + 8 <= nx && (row[x] | row[x + 1] | row[x + 2] | row[x + 3] | row[x + 4] | row[x + 5] | row[x + 6] |
                           row[x + 7]) == 0)
        x += 8;
    while (x < nx && row[x] == 0) ++x;
    return x;
}

// Reports a finished row (a plane) or plane (a volume).
void report(const KrvVoxelView& labels, int y, const KrvMeasureStep& step, long& done, long total) {
    if (!step) return;
    if (labels.Is3D() ? y == labels.ny - 1 : true) step(++done, total);
}

// Grey is void when there is no grey image.
template <class Grey>
void gatherWith(const KrvVoxelView& labels, const KrvVoxelView* grey, unsigned needs, ObjectTable& objects,
                const KrvMeasureStep& step, long& done, long total) {
    const std::int32_t* voxels = labels.As<std::int32_t>();
    const std::size_t nx = static_cast<std::size_t>(labels.nx);
    for (int z = 0; z < labels.nz; ++z) {
        for (int y = 0; y < labels.ny; ++y) {
            const std::size_t start = (static_cast<std::size_t>(z) * labels.ny + y) * nx;
            const std::int32_t* row = voxels + start;
            for (int x = skipBackground(row, 0, labels.nx); x < labels.nx; x = skipBackground(row, x, labels.nx)) {
                const std::int32_t label = row[x];
                if (label < 0) refuseNegative(label, x, y, z);
                const int x0 = x;
                while (x < labels.nx && row[x] == label) ++x;
                ObjectData& o = objects.at(label);
                addRun(o, x0, x - 1, y, z, needs);
                if constexpr (!std::is_void_v<Grey>) addGrey(o, grey->As<Grey>() + start, x0, x - 1, needs);
            }
            report(labels, y, step, done, total);
        }
    }
}

}  // namespace

void gatherObjects(const KrvVoxelView& labels, const KrvVoxelView* grey, unsigned needs, ObjectTable& objects,
                   const KrvMeasureStep& step, long& done, long total) {
    if (grey == nullptr || !(needs & kNeedGrey)) return gatherWith<void>(labels, grey, needs, objects, step, done, total);
    switch (grey->type) {
        case KrvVoxelType::UInt8: return gatherWith<std::uint8_t>(labels, grey, needs, objects, step, done, total);
        case KrvVoxelType::UInt16: return gatherWith<std::uint16_t>(labels, grey, needs, objects, step, done, total);
        case KrvVoxelType::Int32: return gatherWith<std::int32_t>(labels, grey, needs, objects, step, done, total);
        case KrvVoxelType::Float32: return gatherWith<float>(labels, grey, needs, objects, step, done, total);
    }
}

namespace {

// Counts, for each voxel, the offsets whose neighbour lies outside its object (or the grid).
void countExits(const KrvVoxelView& labels, ObjectTable& objects, const KrvMeasureStep& step, long& done, long total) {
    const std::int32_t* voxels = labels.As<std::int32_t>();
    const long nx = labels.nx, ny = labels.ny, nz = labels.nz;
    const auto at = [&](long x, long y, long z) -> std::int32_t {
        if (x < 0 || y < 0 || z < 0 || x >= nx || y >= ny || z >= nz) return 0;
        return voxels[(z * ny + y) * nx + x];
    };
    for (long z = 0; z < nz; ++z) {
        for (long y = 0; y < ny; ++y) {
            const std::int32_t* row = voxels + (z * ny + y) * nx;
            for (long x = skipBackground(row, 0, int(nx)); x < nx; x = skipBackground(row, int(x), int(nx))) {
                const std::int32_t label = row[x];
                ObjectData& o = objects.at(label);
                const long x0 = x;
                while (x < nx && row[x] == label) ++x;
                ++o.exits[0];  // along x a run leaves its object once, at its end
                for (int k = 1; k < kOffsetCount; ++k) {
                    const auto& d = kOffsets[static_cast<std::size_t>(k)];
                    for (long xi = x0; xi < x; ++xi)
                        if (at(xi + d[0], y + d[1], z + d[2]) != label) ++o.exits[static_cast<std::size_t>(k)];
                }
            }
            report(labels, static_cast<int>(y), step, done, total);
        }
    }
}

// Adds `sign` to the cells count of each distinct object among the voxels `members` of `window`.
void addCell(const std::int32_t (&window)[8], std::initializer_list<int> members, int sign, ObjectTable& objects) {
    std::int32_t seen[8];
    int distinct = 0;
    for (const int i : members) {
        const std::int32_t label = window[i];
        if (label == 0 || std::find(seen, seen + distinct, label) != seen + distinct) continue;
        seen[distinct++] = label;
        objects.at(label).eulerCells += sign;
    }
}

// The Euler characteristic of each object's closure as a union of closed unit cubes (so objects
// are 26-connected, 8-connected in a plane): vertices - edges + faces - cubes. Each lattice point
// owns its vertex and the edges and faces leaving it towards +x, +y, +z; a cell belongs to an
// object when one of the voxels around it does. The voxels around the point, bit i + 2j + 4k for
// voxel (x - 1 + i, y - 1 + j, z - 1 + k), hold every one of those cells' voxels.
void countCells(const KrvVoxelView& labels, ObjectTable& objects) {
    const std::int32_t* voxels = labels.As<std::int32_t>();
    const long nx = labels.nx, ny = labels.ny, nz = labels.nz;
    const auto at = [&](long x, long y, long z) -> std::int32_t {
        if (x < 0 || y < 0 || z < 0 || x >= nx || y >= ny || z >= nz) return 0;
        return voxels[(z * ny + y) * nx + x];
    };
    for (long z = 0; z <= nz; ++z)
        for (long y = 0; y <= ny; ++y)
            for (long x = 0; x <= nx; ++x) {
                std::int32_t window[8];
                std::int32_t any = 0;
                for (int bit = 0; bit < 8; ++bit) {
                    window[bit] = at(x - 1 + (bit & 1), y - 1 + ((bit >> 1) & 1), z - 1 + ((bit >> 2) & 1));
                    any |= window[bit];
                }
                if (any == 0) continue;
                addCell(window, {0, 1, 2, 3, 4, 5, 6, 7}, +1, objects);  // the vertex
                addCell(window, {1, 3, 5, 7}, -1, objects);              // edges along x, y, z
                addCell(window, {2, 3, 6, 7}, -1, objects);
                addCell(window, {4, 5, 6, 7}, -1, objects);
                addCell(window, {3, 7}, +1, objects);                    // faces across z, y, x
                addCell(window, {5, 7}, +1, objects);
                addCell(window, {6, 7}, +1, objects);
            }
}

}  // namespace

void gatherNeighbours(const KrvVoxelView& labels, unsigned needs, ObjectTable& objects, const KrvMeasureStep& step,
                      long& done, long total) {
    if (needs & kNeedExits) countExits(labels, objects, step, done, total);
    if (needs & kNeedCells) countCells(labels, objects);
}

}  // namespace krv::measure
