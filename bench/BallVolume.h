// The 256^3 volume the measuring benchmarks share: about 1,000 balls of radius 3 to 7 at random
// places (some touch and merge) in a mask, and grey values of noise, brighter inside the balls.
#pragma once
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace kbench {

constexpr int kBallVolumeSide = 256;
constexpr std::size_t kBallVolumeVoxels = std::size_t(kBallVolumeSide) * kBallVolumeSide * kBallVolumeSide;

// `mask` and `grey` hold kBallVolumeVoxels zeros on entry.
inline void makeBallVolume(std::vector<std::uint8_t>& mask, std::vector<std::uint8_t>& grey) {
    constexpr int side = kBallVolumeSide;
    std::mt19937 random(7);
    std::uniform_int_distribution<int> noise(0, 99);
    for (std::uint8_t& g : grey) g = static_cast<std::uint8_t>(noise(random));
    std::uniform_real_distribution<double> place(10, side - 10), radius(3, 7);
    for (int ball = 0; ball < 1200; ++ball) {
        const double cx = place(random), cy = place(random), cz = place(random), r = radius(random);
        for (int z = int(cz - r); z <= int(cz + r) + 1; ++z)
            for (int y = int(cy - r); y <= int(cy + r) + 1; ++y)
                for (int x = int(cx - r); x <= int(cx + r) + 1; ++x)
                    if (std::hypot(x - cx, y - cy, z - cz) <= r) {
                        const std::size_t i = (std::size_t(z) * side + y) * side + x;
                        mask[i] = 1;
                        grey[i] = static_cast<std::uint8_t>(grey[i] + 100);
                    }
    }
}

}  // namespace kbench
