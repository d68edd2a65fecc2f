// Labelling by runs: each row's runs of foreground are found once (background skipped eight voxels
// at a time), joined with the runs they touch in the rows before them (union-find over runs, not
// voxels), then written out with their object's number. Measured about four times faster than
// VIGRA's voxel-wise labelling on a 256^3 volume (docs/libraries.md).
#include "KrvRunLabels.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

namespace KrvRunLabels {

namespace {

struct Run {
    int x0, x1;  // inclusive
};

class Labeller {
public:
    Labeller(const std::uint8_t* mask, int nx, int ny, int nz)
        : m_mask(mask), m_nx(nx), m_ny(ny), m_rows(static_cast<std::size_t>(ny) * static_cast<std::size_t>(nz)) {
        findRuns();
        m_parent.resize(m_runs.size());
        std::iota(m_parent.begin(), m_parent.end(), 0u);
    }

    // Joins the runs of each row with those of the earlier rows its voxels touch: the row before in
    // the plane and the same row in the plane before; with `full`, also the rows diagonally before
    // in the plane before, and runs one voxel apart along x.
    void joinNeighbours(bool full, bool volume) {
        const int gap = full ? 1 : 0;
        for (std::size_t row = 0; row < m_rows; ++row) {
            const int y = static_cast<int>(row % static_cast<std::size_t>(m_ny));
            const bool planeBefore = row >= static_cast<std::size_t>(m_ny);
            if (y > 0) join(row, row - 1, gap);
            if (!volume || !planeBefore) continue;
            const std::size_t below = row - static_cast<std::size_t>(m_ny);
            join(row, below, gap);
            if (!full) continue;
            if (y > 0) join(row, below - 1, gap);
            if (y + 1 < m_ny) join(row, below + 1, gap);
        }
    }

    // Writes every voxel once: the runs with their object's number, the gaps with 0.
    std::int32_t write(std::int32_t* labels) {
        std::vector<std::int32_t> number(m_runs.size(), 0);
        std::int32_t next = 0;
        for (std::size_t row = 0; row < m_rows; ++row) {
            std::int32_t* out = labels + row * static_cast<std::size_t>(m_nx);
            int x = 0;
            for (std::size_t r = m_rowStart[row]; r < m_rowStart[row + 1]; ++r) {
                std::int32_t& n = number[find(static_cast<std::uint32_t>(r))];
                if (n == 0) n = ++next;
                std::fill(out + x, out + m_runs[r].x0, 0);
                std::fill(out + m_runs[r].x0, out + m_runs[r].x1 + 1, n);
                x = m_runs[r].x1 + 1;
            }
            std::fill(out + x, out + m_nx, 0);
        }
        return next;
    }

private:
    void findRuns() {
        m_rowStart.assign(m_rows + 1, 0);
        for (std::size_t row = 0; row < m_rows; ++row) {
            m_rowStart[row] = m_runs.size();
            const std::uint8_t* m = m_mask + row * static_cast<std::size_t>(m_nx);
            for (int x = 0; x < m_nx;) {
                std::uint64_t eight = 0;
                if (x + 8 <= m_nx && (std::memcpy(&eight, m + x, 8), eight == 0)) {
                    x += 8;
                    continue;
                }
                if (m[x] == 0) {
                    ++x;
                    continue;
                }
                const int start = x;
                while (x < m_nx && m[x] != 0) ++x;
                m_runs.push_back({start, x - 1});
            }
        }
        m_rowStart[m_rows] = m_runs.size();
    }

    std::uint32_t find(std::uint32_t r) {
        while (m_parent[r] != r) r = m_parent[r] = m_parent[m_parent[r]];
        return r;
    }

    // Both rows' runs in order: a run that ends first can touch no later run of the other row.
    void join(std::size_t row, std::size_t other, int gap) {
        std::size_t a = m_rowStart[row], b = m_rowStart[other];
        const std::size_t aEnd = m_rowStart[row + 1], bEnd = m_rowStart[other + 1];
        while (a < aEnd && b < bEnd) {
            if (m_runs[a].x1 + gap >= m_runs[b].x0 && m_runs[b].x1 + gap >= m_runs[a].x0) {
                const std::uint32_t ra = find(static_cast<std::uint32_t>(a)), rb = find(static_cast<std::uint32_t>(b));
                if (ra != rb) m_parent[std::max(ra, rb)] = std::min(ra, rb);
            }
            if (m_runs[a].x1 < m_runs[b].x1) ++a;
            else ++b;
        }
    }

    const std::uint8_t* m_mask;
    int m_nx, m_ny;
    std::size_t m_rows;
    std::vector<Run> m_runs;
    std::vector<std::size_t> m_rowStart;
    std::vector<std::uint32_t> m_parent;
};

}  // namespace

std::int32_t label(const std::uint8_t* mask, int nx, int ny, int nz, bool full, std::int32_t* labels) {
    Labeller labeller(mask, nx, ny, nz);
    labeller.joinNeighbours(full, nz > 1);
    return labeller.write(labels);
}

}  // namespace KrvRunLabels
