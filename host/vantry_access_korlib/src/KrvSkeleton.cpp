// The skeleton of a plane object and its length.
#include "KrvObjectGather.h"

#include <cmath>

namespace krv::measure {

namespace {

// The object's pixels in its bounding box, with a border of background one pixel wide.
struct Mask {
    int width, height;
    std::vector<std::uint8_t> on;
    std::uint8_t& at(int x, int y) { return on[static_cast<std::size_t>(y) * width + x]; }
};

Mask maskOf(const ObjectData& o) {
    Mask mask{o.maxX - o.minX + 3, o.maxY - o.minY + 3, {}};
    mask.on.assign(static_cast<std::size_t>(mask.width) * mask.height, 0);
    for (const Run& r : o.runs)
        for (int x = r.x0; x <= r.x1; ++x) mask.at(x - o.minX + 1, r.y - o.minY + 1) = 1;
    return mask;
}

// One half of a thinning step (Zhang and Suen): removes the boundary pixels that are neither ends
// nor needed for connectivity, from the south-east side (first) or the north-west (second).
bool thinOnce(Mask& mask, bool first) {
    std::vector<std::size_t> removed;
    for (int y = 1; y < mask.height - 1; ++y)
        for (int x = 1; x < mask.width - 1; ++x) {
            if (!mask.at(x, y)) continue;
            // North, then clockwise.
            const int p[8] = {mask.at(x, y - 1),     mask.at(x + 1, y - 1), mask.at(x + 1, y), mask.at(x + 1, y + 1),
                              mask.at(x, y + 1),     mask.at(x - 1, y + 1), mask.at(x - 1, y), mask.at(x - 1, y - 1)};
            int neighbours = 0, transitions = 0;
            for (int i = 0; i < 8; ++i) {
                neighbours += p[i];
                transitions += !p[i] && p[(i + 1) % 8];
            }
            const bool side = first ? !(p[0] && p[2] && p[4]) && !(p[2] && p[4] && p[6])
                                    : !(p[0] && p[2] && p[6]) && !(p[0] && p[4] && p[6]);
            if (neighbours >= 2 && neighbours <= 6 && transitions == 1 && side)
                removed.push_back(static_cast<std::size_t>(y) * mask.width + x);
        }
    for (const std::size_t i : removed) mask.on[i] = 0;
    return !removed.empty();
}

}  // namespace

double skeletonLength(const ObjectData& o, double sx, double sy) {
    Mask mask = maskOf(o);
    while (thinOnce(mask, true) | thinOnce(mask, false)) {
    }
    // Links between 8-neighbours of the skeleton; a diagonal link only where no corner pixel joins
    // the two already (it would count the step twice).
    const double diagonal = std::hypot(sx, sy);
    double length = 0.0;
    for (int y = 1; y < mask.height - 1; ++y)
        for (int x = 1; x < mask.width - 1; ++x) {
            if (!mask.at(x, y)) continue;
            if (mask.at(x + 1, y)) length += sx;
            if (mask.at(x, y + 1)) length += sy;
            if (mask.at(x + 1, y + 1) && !mask.at(x + 1, y) && !mask.at(x, y + 1)) length += diagonal;
            if (mask.at(x - 1, y + 1) && !mask.at(x - 1, y) && !mask.at(x, y + 1)) length += diagonal;
        }
    return length;
}

}  // namespace krv::measure
