// The half-sphere Fibonacci lattice of n directions, shared by the sampler that writes it and
// the repair that reads it back: direction i has z = 1 - (i + offset) / (n - 1 + 2 offset) and
// azimuth 2 pi frac(i g), g the golden fraction, here in 32-bit fixed point (i times
// kGoldenTurn, wrapping), so that each direction is computed from its index alone.
#pragma once
#include <cstddef>
#include <cstdint>

namespace zel::geometry {

constexpr double kTwoPi = 6.283185307179586;
constexpr std::uint32_t kGoldenTurn = 0x9E3779B9u;  // (sqrt 5 - 1) / 2 of a turn
constexpr double kTurnUnit = 1.0 / 4294967296.0;   // one 2^-32 of a turn
constexpr std::uint32_t kHalfTurn = 0x80000000u;

struct SphereLattice {
    std::size_t n;
    double offset;  // 0.5 the plain lattice, 0.25 the one that covers best

    double scale() const { return 1.0 / (static_cast<double>(n) - 1.0 + 2.0 * offset); }
    double z(std::size_t i) const { return 1.0 - (static_cast<double>(i) + offset) * scale(); }
    static std::uint32_t turn(std::size_t i) { return static_cast<std::uint32_t>(i) * kGoldenTurn; }
    // The first index whose z lies below `height` (n when none does).
    std::size_t firstBelow(double height) const;
};

}  // namespace zel::geometry
