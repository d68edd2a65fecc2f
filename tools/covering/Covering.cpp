// The covering radius of direction sets, on qhull's convex hull.
#include "Covering.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

extern "C" {
#include <libqhull_r/qhull_ra.h>
}

namespace korvane {

Direction direction(double azimuth, double polar) {
    return {std::sin(polar) * std::cos(azimuth), std::sin(polar) * std::sin(azimuth), std::cos(polar)};
}

double coveringRadius(const std::vector<Direction>& directions) {
    const std::size_t n = directions.size();
    if (n <= 2) return M_PI / 2;
    std::vector<coordT> points(6 * n);
    for (std::size_t i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k) {
            points[3 * i + k] = directions[i][k];
            points[3 * (n + i) + k] = -directions[i][k];
        }
    qhT context;
    qhT* qh = &context;
    qh_zero(qh, stderr);
    char options[] = "qhull";
    const int status = qh_new_qhull(qh, 3, static_cast<int>(2 * n), points.data(), False, options, nullptr, stderr);
    double nearest = 1.0;
    if (status == 0) {
        facetT* facet;
        FORALLfacets { nearest = std::min(nearest, -facet->offset); }
    }
    qh_freeqhull(qh, !qh_ALL);
    int longCount = 0;
    int totalLong = 0;
    qh_memfreeshort(qh, &longCount, &totalLong);
    if (status != 0) throw std::runtime_error("qhull failed on the direction set");
    return std::acos(std::clamp(nearest, -1.0, 1.0));
}

double coveringKappa(const std::vector<Direction>& directions) {
    const std::size_t n = directions.size();
    if (n <= 2) return static_cast<double>(n);
    return static_cast<double>(n) * (1.0 - std::cos(coveringRadius(directions)));
}

std::vector<Direction> directionsFromDegrees(const std::vector<float>& angles) {
    const std::size_t m = angles.size() / 2;
    std::vector<Direction> directions;
    directions.reserve(m);
    const double radians = M_PI / 180.0;
    for (std::size_t i = 0; i < m; ++i) directions.push_back(direction(angles[m + i] * radians, angles[i] * radians));
    return directions;
}

double fejesTothKappa(std::size_t n) {
    // The bound for 2n points on the sphere: no covering by 2n caps of radius r below the one
    // where the triangle of the equilateral tiling has area 4 pi / (2 (2n - 2)).
    const double points = 2.0 * static_cast<double>(n);
    const double omega = points / (points - 2.0) * M_PI / 6.0;
    const double cosRadius = 1.0 / (std::sqrt(3.0) * std::tan(omega));
    return static_cast<double>(n) * (1.0 - cosRadius);
}

}  // namespace korvane
