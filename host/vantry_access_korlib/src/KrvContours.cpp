// Contours of a label image along the pixels' edges. Per label, each edge between a pixel of the
// label and one that is not becomes a directed edge between two corners, clockwise on the screen
// around the label's pixels; the edges then link into closed chains. Corner (i, j) is the top-left
// corner of pixel (i, j), at (i - 0.5, j - 0.5).
#include <vantry_access_korlib/KrvObjectKernels.h>

#include <map>
#include <string>

#include "KrvVoxelDispatch.h"

namespace {

enum Direction { kRight, kDown, kLeft, kUp };
constexpr int kStepX[] = {1, 0, -1, 0};
constexpr int kStepY[] = {0, 1, 0, -1};
// Facing `d` on the screen (y down), the direction on the left hand.
constexpr Direction kLeftOf[] = {kUp, kRight, kDown, kLeft};

struct Box {
    int x0, y0, x1, y1;  // pixels x0..x1, y0..y1
};

// The pixels of one label within its box, with a frame of one unset pixel.
class LabelMask {
public:
    template <class T>
    LabelMask(const T* labels, int nx, const Box& box, std::int64_t label)
        : m_box(box), m_width(box.x1 - box.x0 + 3), m_height(box.y1 - box.y0 + 3),
          m_set(static_cast<std::size_t>(m_width) * m_height, 0) {
        for (int y = box.y0; y <= box.y1; ++y)
            for (int x = box.x0; x <= box.x1; ++x)
                if (labels[static_cast<std::size_t>(y) * nx + x] == label) m_set[at(x - box.x0 + 1, y - box.y0 + 1)] = 1;
    }

    // The contours, each a closed list of corners, in raster order of their first corner.
    void trace(std::int64_t label, std::vector<KrvContour>& out) const {
        std::vector<std::uint8_t> used(m_set.size(), 0);  // bit d: the edge leaving the corner in direction d
        for (int j = 0; j < m_height; ++j)
            for (int i = 0; i < m_width; ++i)
                for (int d = 0; d < 4; ++d)
                    if (leaves(i, j, static_cast<Direction>(d)) && !(used[at(i, j)] & (1 << d)))
                        out.push_back({label, follow(i, j, static_cast<Direction>(d), used)});
    }

private:
    std::size_t at(int i, int j) const { return static_cast<std::size_t>(j) * m_width + i; }
    bool set(int i, int j) const { return i >= 0 && j >= 0 && i < m_width && j < m_height && m_set[at(i, j)] != 0; }

    // Whether an edge leaves corner (i, j) in direction d, with the label's pixels on its right.
    bool leaves(int i, int j, Direction d) const {
        const bool topLeft = set(i - 1, j - 1), topRight = set(i, j - 1), bottomLeft = set(i - 1, j),
                   bottomRight = set(i, j);
        switch (d) {
        case kRight: return bottomRight && !topRight;
        case kDown: return bottomLeft && !bottomRight;
        case kLeft: return topLeft && !bottomLeft;
        case kUp: return topRight && !topLeft;
        }
        return false;
    }

    std::vector<KrvContourPoint> follow(int i, int j, Direction d, std::vector<std::uint8_t>& used) const {
        std::vector<KrvContourPoint> corners;
        const int startI = i, startJ = j;
        const Direction first = d;
        do {
            used[at(i, j)] |= static_cast<std::uint8_t>(1 << d);
            i += kStepX[d];
            j += kStepY[d];
            // Two edges leave a corner where the label's pixels meet diagonally: turning left
            // keeps both pixels in one boundary.
            const Direction next = leaves(i, j, kLeftOf[d]) ? kLeftOf[d] : nextStraightOrRight(i, j, d);
            if (next != d) corners.push_back(point(i, j));
            d = next;
        } while (i != startI || j != startJ || d != first);
        // The start corner was added last (the chain turned there): put it first.
        corners.insert(corners.begin(), corners.back());
        corners.pop_back();
        return corners;
    }

    Direction nextStraightOrRight(int i, int j, Direction d) const {
        if (leaves(i, j, d)) return d;
        return kLeftOf[kLeftOf[kLeftOf[d]]];
    }

    KrvContourPoint point(int i, int j) const {
        return {m_box.x0 + i - 1 - 0.5, m_box.y0 + j - 1 - 0.5};
    }

    Box m_box;
    int m_width, m_height;
    std::vector<std::uint8_t> m_set;
};

template <class T>
std::map<std::int64_t, Box> labelBoxes(const T* labels, int nx, int ny) {
    std::map<std::int64_t, Box> boxes;
    for (int y = 0; y < ny; ++y)
        for (int x = 0; x < nx; ++x) {
            const std::int64_t label = labels[static_cast<std::size_t>(y) * nx + x];
            if (label <= 0) continue;
            const auto [found, made] = boxes.try_emplace(label, Box{x, y, x, y});
            if (made) continue;
            Box& box = found->second;
            box.x0 = std::min(box.x0, x), box.x1 = std::max(box.x1, x), box.y1 = y;
        }
    return boxes;
}

}  // namespace

std::vector<KrvContour> krvTraceContours(const KrvVoxelView& labels, const KrvKernelProgress& progress) {
    if (labels.Is3D()) throw KrvBaseException("the labels image is 3-D; contours are traced in 2-D images", __FILE__, __LINE__);
    std::vector<KrvContour> contours;
    krvWithIntegerVoxels(labels, "the labels image", [&](const auto* voxels) {
        const auto boxes = labelBoxes(voxels, labels.nx, labels.ny);
        long done = 0;
        const long total = static_cast<long>(boxes.size());
        for (const auto& [label, box] : boxes) {
            LabelMask(voxels, labels.nx, box, label).trace(label, contours);
            if (progress) progress(++done, total);
        }
    });
    return contours;
}
