// The covering radius of a direction set, antipodes identified: the largest angle from any
// direction to its nearest sample. Exactly: the largest angular circumradius over the facets of
// the convex hull of the 2n points +-u (each facet's plane cuts the unit sphere in the facet's
// circumcircle, so its distance d from the centre is the cosine of that radius). The hull is
// qhull's.
#pragma once
#include <array>
#include <cstddef>
#include <vector>

namespace korvane {

using Direction = std::array<double, 3>;

// The direction of azimuth `azimuth` and polar angle `polar`, radians.
Direction direction(double azimuth, double polar);

// The covering radius in radians; pi/2 for one or two directions (a direction perpendicular to
// them is that far from both). Throws std::runtime_error when qhull fails.
double coveringRadius(const std::vector<Direction>& directions);

// kappa = n (1 - cos radius): 1 is the area bound, about 1.21 the best any set can reach.
double coveringKappa(const std::vector<Direction>& directions);

// The set of an angle list of getUniformFeret3dAngles: polar angles, then azimuths, in degrees.
std::vector<Direction> directionsFromDegrees(const std::vector<float>& angles);

// The Fejes Toth lower bound on kappa for n directions (antipodes identified): no set of n
// directions can cover with a smaller kappa.
double fejesTothKappa(std::size_t n);

}  // namespace korvane
