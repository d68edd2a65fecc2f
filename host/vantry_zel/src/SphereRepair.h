// The local repair of the half-sphere lattice (internal to zel::geometry::SphereSampling).
#pragma once
#include <cstddef>

#include <vantry_zel/Algorithm.h>

namespace zel::geometry {

// Moves the directions near the equator seam and around the pole of a lattice of n directions
// ({azimuth, polar} radians, polar from 0 at index 0 to pi/2 at index n-1) so that each sits at
// the centre of the smallest cap holding its Voronoi cell, antipodes identified; a few rounds.
void repairSeamAndPole(math::Vector2<double>* points, std::size_t n);

}  // namespace zel::geometry
