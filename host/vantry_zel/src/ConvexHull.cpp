// Plane convex hulls and their callipers.
#include <vantry_zel/ConvexHull.h>

#include <algorithm>
#include <cmath>

namespace zel::geometry {

namespace {

double cross(const Point2& o, const Point2& a, const Point2& b) {
    return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

// The distance of `p` from the line through the edge a -> b.
double distanceFromEdge(const Point2& a, const Point2& b, const Point2& p) {
    return std::abs(cross(a, b, p)) / std::hypot(b.x - a.x, b.y - a.y);
}

}  // namespace

std::vector<Point2> convexHull2d(std::vector<Point2> points) {
    std::sort(points.begin(), points.end(),
              [](const Point2& a, const Point2& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); });
    points.erase(std::unique(points.begin(), points.end(),
                             [](const Point2& a, const Point2& b) { return a.x == b.x && a.y == b.y; }),
                 points.end());
    if (points.size() < 3) return points;
    std::vector<Point2> hull(2 * points.size());
    std::size_t k = 0;
    for (const Point2& p : points) {  // lower chain
        while (k >= 2 && cross(hull[k - 2], hull[k - 1], p) <= 0) --k;
        hull[k++] = p;
    }
    const std::size_t lower = k + 1;
    for (std::size_t i = points.size() - 1; i-- > 0;) {  // upper chain
        while (k >= lower && cross(hull[k - 2], hull[k - 1], points[i]) <= 0) --k;
        hull[k++] = points[i];
    }
    hull.resize(k - 1);  // the last point repeats the first
    return hull;
}

double polygonArea(const std::vector<Point2>& hull) {
    double twice = 0.0;
    for (std::size_t i = 0, n = hull.size(); i < n; ++i) {
        const Point2& a = hull[i];
        const Point2& b = hull[(i + 1) % n];
        twice += a.x * b.y - b.x * a.y;
    }
    return std::abs(twice) / 2.0;
}

double polygonPerimeter(const std::vector<Point2>& hull) {
    if (hull.size() < 2) return 0.0;
    double length = 0.0;
    for (std::size_t i = 0, n = hull.size(); i < n; ++i)
        length += std::hypot(hull[(i + 1) % n].x - hull[i].x, hull[(i + 1) % n].y - hull[i].y);
    return length;  // a segment's outline runs there and back
}

// Hulls of measured objects have some hundreds of vertices at most: the quadratic scans are
// simpler than rotating callipers and fast enough.
Calipers calipers(const std::vector<Point2>& hull) {
    Calipers result;
    for (std::size_t i = 0; i < hull.size(); ++i)
        for (std::size_t j = i + 1; j < hull.size(); ++j)
            result.diameter = std::max(result.diameter, std::hypot(hull[j].x - hull[i].x, hull[j].y - hull[i].y));
    if (hull.size() < 3) return result;
    result.width = INFINITY;
    for (std::size_t i = 0, n = hull.size(); i < n; ++i) {
        double farthest = 0.0;
        for (const Point2& p : hull) farthest = std::max(farthest, distanceFromEdge(hull[i], hull[(i + 1) % n], p));
        result.width = std::min(result.width, farthest);
    }
    return result;
}

}  // namespace zel::geometry
