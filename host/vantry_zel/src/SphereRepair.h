// The local repair of the half-sphere lattice (internal to zel::geometry::SphereSampling).
#pragma once
#include <cstddef>
#include <vector>

#include <vantry_zel/Algorithm.h>

#include "SphereLattice.h"

namespace zel::geometry {

struct RepairedDirection {
    std::size_t index;
    double azimuth, polar;  // radians
};

// The new places of the directions near the equator seam and around the pole of `lattice`,
// each near the centre of the smallest cap holding its Voronoi cell, antipodes identified. It
// reads the lattice from its definition, not from the sampler's output, so it can run while the
// output is being written.
std::vector<RepairedDirection> repairSeamAndPole(const SphereLattice& lattice);

}  // namespace zel::geometry
