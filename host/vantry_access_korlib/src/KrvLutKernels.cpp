// Plain lookup tables on integer images, and morphological lookup tables on binary planes.
#include <vantry_access_korlib/KrvObjectKernels.h>

#include <algorithm>
#include <limits>
#include <string>

#include "KrvVoxelDispatch.h"

namespace {

[[noreturn]] void refuse(const std::string& reason, int line) { throw KrvBaseException(reason, __FILE__, line); }

template <class T>
bool tableFits(const std::vector<int>& table) {
    return std::all_of(table.begin(), table.end(), [](int v) {
        return v >= static_cast<long long>(std::numeric_limits<T>::min()) &&
               v <= static_cast<long long>(std::numeric_limits<T>::max());
    });
}

std::string voxelName(const KrvVoxelView& view, std::size_t index) {
    const auto nx = static_cast<std::size_t>(view.nx), ny = static_cast<std::size_t>(view.ny);
    return "voxel (" + std::to_string(index % nx) + ", " + std::to_string(index / nx % ny) + ", " +
           std::to_string(index / (nx * ny)) + ")";
}

void checkSameGrid(const KrvVoxelView& in, const KrvVoxelView& out, KrvVoxelType type) {
    if (!out.SameGrid(in) || out.type != type) refuse("the output's grid or type does not fit the input", __LINE__);
}

}  // namespace

KrvVoxelType krvLutOutputType(KrvVoxelType input, const std::vector<int>& table) {
    if (input == KrvVoxelType::UInt8 && tableFits<std::uint8_t>(table)) return input;
    if (input == KrvVoxelType::UInt16 && tableFits<std::uint16_t>(table)) return input;
    return KrvVoxelType::Int32;
}

void krvApplyLut(const KrvVoxelView& in, const std::vector<int>& table, const KrvVoxelView& out) {
    krvWithIntegerVoxels(in, "the input image", [&](const auto* voxels) {
        checkSameGrid(in, out, krvLutOutputType(in.type, table));
        const std::size_t count = in.Count();
        // Every value is checked before the first is written: a refusal leaves `out` untouched.
        const auto size = static_cast<long long>(table.size());
        const auto bad = std::find_if(voxels, voxels + count, [size](auto v) { return v < 0 || v >= size; });
        if (bad != voxels + count)
            refuse(voxelName(in, static_cast<std::size_t>(bad - voxels)) + " holds " +
                       std::to_string(static_cast<long long>(*bad)) + "; the table has " + std::to_string(size) +
                       " entries",
                   __LINE__);
        krvWithIntegerVoxels(out, "the output image", [&](auto* written) {
            using Out = std::remove_pointer_t<decltype(written)>;
            for (std::size_t i = 0; i < count; ++i) written[i] = static_cast<Out>(table[static_cast<std::size_t>(voxels[i])]);
        });
    });
}

namespace {

// One plane with a frame of one pixel at the border's state, so that every pixel has all eight
// neighbours.
class FramedPlane {
public:
    FramedPlane(int nx, int ny, bool border)
        : m_width(nx + 2), m_height(ny + 2), m_pixels(static_cast<std::size_t>(m_width) * m_height, border) {}

    std::uint8_t& at(int x, int y) { return m_pixels[static_cast<std::size_t>(y + 1) * m_width + x + 1]; }

    // The 9-bit neighbourhood index of (x, y): bit 3 * (dy + 1) + (dx + 1).
    int index(int x, int y) const {
        const std::uint8_t* above = &m_pixels[static_cast<std::size_t>(y) * m_width + x];
        const std::uint8_t* row = above + m_width;
        const std::uint8_t* below = row + m_width;
        return above[0] | above[1] << 1 | above[2] << 2 | row[0] << 3 | row[1] << 4 | row[2] << 5 | below[0] << 6 |
               below[1] << 7 | below[2] << 8;
    }

    // Applies one sub-table to every pixel at once; whether a pixel changed.
    bool apply(const int* subTable, FramedPlane& scratch) {
        bool changed = false;
        for (int y = 0; y < m_height - 2; ++y)
            for (int x = 0; x < m_width - 2; ++x) {
                const std::uint8_t next = subTable[index(x, y)] != 0 ? 1 : 0;
                scratch.at(x, y) = next;
                changed |= next != at(x, y);
            }
        std::swap(m_pixels, scratch.m_pixels);
        return changed;
    }

private:
    int m_width, m_height;
    std::vector<std::uint8_t> m_pixels;
};

}  // namespace

int krvApplyMorphoLut(const KrvVoxelView& in, const std::vector<int>& table, int passes, int border,
                      const KrvVoxelView& out, const KrvKernelProgress& progress) {
    if (table.empty() || table.size() % kKrvMorphoSubTable != 0)
        refuse("a morphological table holds 512 values per sub-table, not " + std::to_string(table.size()), __LINE__);
    if (border != 0 && border != 1) refuse("the border state is 0 or 1, not " + std::to_string(border), __LINE__);
    checkSameGrid(in, out, KrvVoxelType::UInt8);
    const bool untilStable = passes <= 0;
    const long limit = untilStable ? static_cast<long>(in.nx) * in.ny : passes;
    const std::size_t subTables = table.size() / kKrvMorphoSubTable;
    std::vector<FramedPlane> planes(static_cast<std::size_t>(in.nz), FramedPlane(in.nx, in.ny, border != 0));
    krvWithIntegerVoxels(in, "the input image", [&](const auto* voxels) {
        std::size_t i = 0;
        for (FramedPlane& plane : planes)
            for (int y = 0; y < in.ny; ++y)
                for (int x = 0; x < in.nx; ++x) plane.at(x, y) = voxels[i++] != 0 ? 1 : 0;
    });
    FramedPlane scratch(in.nx, in.ny, border != 0);
    long run = 0;
    bool changed = true;
    while (run < limit && (changed || !untilStable)) {
        changed = false;
        for (FramedPlane& plane : planes)
            for (std::size_t s = 0; s < subTables; ++s) changed |= plane.apply(&table[s * kKrvMorphoSubTable], scratch);
        ++run;
        if (progress) progress(run, limit);
    }
    std::uint8_t* written = out.As<std::uint8_t>();
    for (FramedPlane& plane : planes)
        for (int y = 0; y < in.ny; ++y)
            for (int x = 0; x < in.nx; ++x) *written++ = plane.at(x, y);
    return static_cast<int>(run);
}
