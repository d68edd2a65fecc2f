// Plane convex hulls and calliper measures of them, for the measurement of 2-D objects and for
// thinning the point sets of 3-D ones before their directions are scanned.
#pragma once
#include <vector>

#include <vantry_util/KrvExport.h>

namespace zel::geometry {

struct Point2 {
    double x = 0.0, y = 0.0;
};

// The convex hull of `points`, counter-clockwise (y up), without collinear or repeated
// vertices; one or two points for degenerate sets, empty for none. Andrew's monotone chain.
VANTRY_ZEL_EXPORT std::vector<Point2> convexHull2d(std::vector<Point2> points);

VANTRY_ZEL_EXPORT double polygonArea(const std::vector<Point2>& hull);
VANTRY_ZEL_EXPORT double polygonPerimeter(const std::vector<Point2>& hull);

// The extremes of a convex polygon's callipers: its diameter (the largest distance between two
// vertices) and its width (the smallest distance between two parallel supporting lines, reached
// with one line on an edge).
struct Calipers {
    double diameter = 0.0;
    double width = 0.0;
};
VANTRY_ZEL_EXPORT Calipers calipers(const std::vector<Point2>& hull);

}  // namespace zel::geometry
