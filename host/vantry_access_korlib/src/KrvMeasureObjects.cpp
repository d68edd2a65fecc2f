// The native measures and IP functions of the catalogue, computed from what the passes gather.
#include <vantry_access_korlib/KrvMeasureObjects.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <map>

#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_access_korlib/KrvNativeMeasures.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_zel/ConvexHull.h>

#include "KrvObjectGather.h"

using namespace krv::measure;
using zel::geometry::Point2;

namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<float> currentValues(const char* name) {
    MsrInfo info{};
    float* values = nullptr;
    if (IpIndGetMsrInfo(name, &info, &values, nullptr) != 0 || values == nullptr) return {};
    std::vector<float> copy(values, values + std::max(info.nbParams, 0));
    std::free(values);
    return copy;
}

std::string shortest(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

// The Crofton weight of one exit: at the four offsets of the plane, and at the 13 of space.
struct CroftonWeights {
    std::array<double, 4> plane{};
    std::array<double, kOffsetCount> space{};
};

// Everything one object's measures read: its gathered data and the image's geometry.
struct Context {
    const KrvVoxelView& labels;
    const KrvMeasureParameters& params;
    bool hasGrey;
    CroftonWeights weights;
};

using Measure = double (*)(const ObjectData&, const Context&);

enum class Shape { Any, Plane };  // Plane: refused for a 3-D image

struct MeasureRule {
    Measure compute;
    unsigned needs;
    Shape shape;
};

double sizeX(const Context& c) { return c.labels.size.x; }
double sizeY(const Context& c) { return c.labels.size.y; }
double sizeZ(const Context& c) { return c.labels.size.z; }

double area(const ObjectData& o, const Context& c) { return o.count * sizeX(c) * sizeY(c); }
double volume(const ObjectData& o, const Context& c) { return area(o, c) * sizeZ(c); }

// Cauchy-Crofton: a length is half the integral over directions of the number of crossings of
// the lines of each direction. Each exit at offset k is one crossing of a line through voxel
// centres; the weights hold the direction's share of the integral times the spacing of its lines.
double perimeter(const ObjectData& o, const Context& c) {
    double sum = 0.0;
    for (std::size_t i = 0; i < 4; ++i)
        sum += c.weights.plane[i] * static_cast<double>(o.exits[static_cast<std::size_t>(kPlaneOffsets[i])]);
    return sum;
}

double surfaceArea(const ObjectData& o, const Context& c) {
    double sum = 0.0;
    for (std::size_t k = 0; k < kOffsetCount; ++k) sum += c.weights.space[k] * static_cast<double>(o.exits[k]);
    return sum;
}

// The corners of the object's pixels as a convex polygon, physical units.
std::vector<Point2> cornerHull(const ObjectData& o, const Context& c) {
    std::vector<Point2> corners;
    corners.reserve(o.runs.size() * 4);
    for (const Run& r : o.runs)
        for (const double x : {r.x0 - 0.5, r.x1 + 0.5})
            for (const double y : {r.y - 0.5, r.y + 0.5}) corners.push_back({x * sizeX(c), y * sizeY(c)});
    return zel::geometry::convexHull2d(std::move(corners));
}

// The largest or smallest extent of the corner hull projected on the directions `angles`.
double feretOver(const ObjectData& o, const Context& c, const std::vector<double>& angles, bool largest) {
    const std::vector<Point2> hull = cornerHull(o, c);
    double best = largest ? 0.0 : INFINITY;
    for (const double degrees : angles) {
        const double ux = std::cos(degrees * kPi / 180.0), uy = std::sin(degrees * kPi / 180.0);
        double low = INFINITY, high = -INFINITY;
        for (const Point2& p : hull) {
            const double t = p.x * ux + p.y * uy;
            low = std::min(low, t);
            high = std::max(high, t);
        }
        best = largest ? std::max(best, high - low) : std::min(best, high - low);
    }
    return angles.empty() ? 0.0 : best;
}

double mean(const ObjectData& o) { return o.greySum / o.count; }

// The eigenvalues of a symmetric 3x3 matrix, smallest first (the trigonometric solution).
std::array<double, 3> symmetricEigenvalues(double a, double b, double c, double d, double e, double f) {
    // | a d e |
    // | d b f |
    // | e f c |
    const double off = d * d + e * e + f * f;
    const double q = (a + b + c) / 3.0;
    const double p2 = (a - q) * (a - q) + (b - q) * (b - q) + (c - q) * (c - q) + 2.0 * off;
    if (p2 <= 1e-300 * (1.0 + q * q)) return {q, q, q};
    const double p = std::sqrt(p2 / 6.0);
    const double ba = (a - q) / p, bb = (b - q) / p, bc = (c - q) / p, bd = d / p, be = e / p, bf = f / p;
    const double det = ba * (bb * bc - bf * bf) - bd * (bd * bc - bf * be) + be * (bd * bf - bb * be);
    const double phi = std::acos(std::clamp(det / 2.0, -1.0, 1.0)) / 3.0;
    const double largest = q + 2.0 * p * std::cos(phi);
    const double smallest = q + 2.0 * p * std::cos(phi + 2.0 * kPi / 3.0);
    return {smallest, 3.0 * q - largest - smallest, largest};
}

// The square root of the ratio of the largest to the smallest eigenvalue of the covariance of the
// object's points, each voxel counted as a uniform box (its own variance s^2 / 12 per axis).
double elongation3d(const ObjectData& o, const Context& c) {
    const double n = o.count;
    const double mx = o.sx / n, my = o.sy / n, mz = o.sz / n;
    const double X = sizeX(c), Y = sizeY(c), Z = sizeZ(c);
    const double cxx = X * X * (o.sxx / n - mx * mx + 1.0 / 12);
    const double cyy = Y * Y * (o.syy / n - my * my + 1.0 / 12);
    const double czz = Z * Z * (o.szz / n - mz * mz + 1.0 / 12);
    const double cxy = X * Y * (o.sxy / n - mx * my);
    const double cxz = X * Z * (o.sxz / n - mx * mz);
    const double cyz = Y * Z * (o.syz / n - my * mz);
    const std::array<double, 3> values = symmetricEigenvalues(cxx, cyy, czz, cxy, cxz, cyz);
    return std::sqrt(values[2] / values[0]);
}

// The object's voxel centres that can be extreme in some direction: the ends of its runs, thinned
// to the vertices of each plane's hull; physical units.
std::vector<std::array<double, 3>> extremeCentres(const ObjectData& o, const Context& c) {
    std::map<int, std::vector<Point2>> planes;
    for (const Run& r : o.runs) {
        planes[r.z].push_back({static_cast<double>(r.x0), static_cast<double>(r.y)});
        planes[r.z].push_back({static_cast<double>(r.x1), static_cast<double>(r.y)});
    }
    std::vector<std::array<double, 3>> points;
    for (auto& [z, ends] : planes)
        for (const Point2& p : zel::geometry::convexHull2d(std::move(ends)))
            points.push_back({p.x * sizeX(c), p.y * sizeY(c), z * sizeZ(c)});
    return points;
}

// The largest extent of the voxel corners over the directions: a voxel's corners reach
// sum |s_i u_i| / 2 beyond its centre on either side.
double length3d(const ObjectData& o, const Context& c) {
    const std::vector<std::array<double, 3>> points = extremeCentres(o, c);
    double best = 0.0;
    for (const std::array<double, 3>& u : c.params.directions) {
        double low = INFINITY, high = -INFINITY;
        for (const std::array<double, 3>& p : points) {
            const double t = p[0] * u[0] + p[1] * u[1] + p[2] * u[2];
            low = std::min(low, t);
            high = std::max(high, t);
        }
        const double box = std::abs(u[0]) * sizeX(c) + std::abs(u[1]) * sizeY(c) + std::abs(u[2]) * sizeZ(c);
        best = std::max(best, high - low + box);
    }
    return best;
}

double eulerNumber(const ObjectData& o, const Context&) { return static_cast<double>(o.eulerCells) - o.count; }

double none(const ObjectData&, const Context&) { return 0.0; }

const std::map<std::string, MeasureRule, std::less<>>& rules() {
    constexpr unsigned runs = kNeedRuns, grey = kNeedGrey, exits = kNeedExits, cells = kNeedCells;
    static const std::map<std::string, MeasureRule, std::less<>> table = {
        {"Area", {area, 0, Shape::Plane}},
        {"Perimeter", {perimeter, exits, Shape::Plane}},
        {"ConvexPerimeter",
         {[](const ObjectData& o, const Context& c) { return zel::geometry::polygonPerimeter(cornerHull(o, c)); },
          runs, Shape::Plane}},
        {"EqDiameter", {[](const ObjectData& o, const Context& c) { return std::sqrt(4.0 * area(o, c) / kPi); }, 0,
                        Shape::Plane}},
        {"CentroidX", {[](const ObjectData& o, const Context& c) { return o.sx / o.count * sizeX(c); }, 0, Shape::Any}},
        {"CentroidY", {[](const ObjectData& o, const Context& c) { return o.sy / o.count * sizeY(c); }, 0, Shape::Any}},
        {"CentroidZ", {[](const ObjectData& o, const Context& c) { return o.sz / o.count * sizeZ(c); }, 0, Shape::Any}},
        {"BoundingBoxDx", {[](const ObjectData& o, const Context& c) { return (o.maxX - o.minX + 1) * sizeX(c); }, 0,
                           Shape::Any}},
        {"BoundingBoxDy", {[](const ObjectData& o, const Context& c) { return (o.maxY - o.minY + 1) * sizeY(c); }, 0,
                           Shape::Any}},
        {"BoundingBoxDz", {[](const ObjectData& o, const Context& c) { return (o.maxZ - o.minZ + 1) * sizeZ(c); }, 0,
                           Shape::Any}},
        {"Elongation",
         {[](const ObjectData& o, const Context& c) {
              const zel::geometry::Calipers k = zel::geometry::calipers(cornerHull(o, c));
              return k.diameter / k.width;
          },
          runs, Shape::Plane}},
        {"FeretMax", {[](const ObjectData& o, const Context& c) { return feretOver(o, c, c.params.feretMaxAngles, true); },
                      runs, Shape::Plane}},
        {"FeretMin",
         {[](const ObjectData& o, const Context& c) { return feretOver(o, c, c.params.feretMinAngles, false); }, runs,
          Shape::Plane}},
        {"Volume3d", {volume, 0, Shape::Any}},
        {"Area3d", {surfaceArea, exits, Shape::Any}},
        {"EqDiameter3d", {[](const ObjectData& o, const Context& c) { return std::cbrt(6.0 * volume(o, c) / kPi); }, 0,
                          Shape::Any}},
        {"Sphericity",
         {[](const ObjectData& o, const Context& c) {
              return std::cbrt(kPi) * std::pow(6.0 * volume(o, c), 2.0 / 3.0) / surfaceArea(o, c);
          },
          exits, Shape::Any}},
        {"Elongation3d", {elongation3d, 0, Shape::Any}},
        {"Length3d", {length3d, runs, Shape::Any}},
        // IP functions.
        {"ConvexArea",
         {[](const ObjectData& o, const Context& c) { return zel::geometry::polygonArea(cornerHull(o, c)); }, runs,
          Shape::Plane}},
        {"Compactness",
         {[](const ObjectData& o, const Context& c) {
              const double p = perimeter(o, c);
              return 4.0 * kPi * area(o, c) / (p * p);
          },
          exits, Shape::Plane}},
        {"EulerNumber", {eulerNumber, cells, Shape::Any}},
        {"HoleCount", {[](const ObjectData& o, const Context& c) { return 1.0 - eulerNumber(o, c); }, cells, Shape::Plane}},
        {"MeanIntensity", {[](const ObjectData& o, const Context&) { return mean(o); }, grey, Shape::Any}},
        {"StdDevIntensity",
         {[](const ObjectData& o, const Context&) {
              return std::sqrt(std::max(0.0, o.greySum2 / o.count - mean(o) * mean(o)));
          },
          grey, Shape::Any}},
        {"MinIntensity", {[](const ObjectData& o, const Context&) { return o.greyMin; }, grey, Shape::Any}},
        {"MaxIntensity", {[](const ObjectData& o, const Context&) { return o.greyMax; }, grey, Shape::Any}},
        {"IntegratedIntensity", {[](const ObjectData& o, const Context&) { return o.greySum; }, grey, Shape::Any}},
        {"Roughness",
         {[](const ObjectData& o, const Context& c) {
              return perimeter(o, c) / zel::geometry::polygonPerimeter(cornerHull(o, c));
          },
          runs | exits, Shape::Plane}},
        {"SkeletonLength",
         {[](const ObjectData& o, const Context& c) { return skeletonLength(o, sizeX(c), sizeY(c)); }, runs,
          Shape::Plane}},
        // The stand-alone suite has no classifier: no object has a class, none was validated.
        {"ClassifierDistance", {none, 0, Shape::Any}},
        {"ClassifierClass", {none, 0, Shape::Any}},
        {"ClassifierConfidence", {none, 0, Shape::Any}},
        {"ClassifierComputedClass", {none, 0, Shape::Any}},
        {"ManualValidation", {none, 0, Shape::Any}},
    };
    return table;
}

constexpr const char* kPercentile = "IntensityPercentile";
bool needsGrey(unsigned needs) { return (needs & (kNeedGrey | kNeedGreyValues)) != 0; }

[[noreturn]] void refuse(const std::string& reason) { throw KrvBaseException(reason, __FILE__, __LINE__); }

// What the passes must gather for `names`; refuses names the images can't give.
unsigned needsOf(const std::vector<std::string>& names, const KrvVoxelView& labels, bool hasGrey) {
    unsigned needs = 0;
    for (const std::string& name : names) {
        unsigned these = 0;
        if (name == kPercentile) {
            these = kNeedGrey | kNeedGreyValues;
        } else {
            const auto rule = rules().find(name);
            if (rule == rules().end()) refuse("Unknown measure " + name);
            if (rule->second.shape == Shape::Plane && labels.Is3D())
                refuse(name + " measures objects of 2-D images; the label image is 3-D");
            these = rule->second.needs;
        }
        if (needsGrey(these) && !hasGrey) refuse(name + " needs a grey image");
        needs |= these;
    }
    return needs;
}

// The Crofton weight of one exit at each offset. In a plane, each of the four directions takes
// half the angle to its neighbours (pi in all), and a length is (1/2) sum share x spacing x
// crossings, each exit being two crossings' worth (a line enters as often as it leaves). In space,
// each of the 13 directions takes its Voronoi cell's share of the sphere (antipodes identified),
// counted on a Fibonacci lattice, and an area is 2 x the mean over directions of (area per line x
// crossings).
CroftonWeights croftonWeights(const KrvVoxelSize& s) {
    std::array<std::array<double, 3>, kOffsetCount> directions{};
    std::array<double, kOffsetCount> length{};
    for (std::size_t k = 0; k < kOffsetCount; ++k) {
        const auto& d = kOffsets[k];
        const double v[3] = {d[0] * s.x, d[1] * s.y, d[2] * s.z};
        length[k] = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        directions[k] = {v[0] / length[k], v[1] / length[k], v[2] / length[k]};
    }
    CroftonWeights weights;
    const double diagonal = std::atan2(s.y, s.x);
    const double planeShare[4] = {diagonal, kPi / 2 - diagonal, kPi / 4, kPi / 4};  // offsets 0, 1, 3, 4
    for (std::size_t i = 0; i < 4; ++i) {
        const std::size_t k = static_cast<std::size_t>(kPlaneOffsets[i]);
        weights.plane[i] = planeShare[i] * (s.x * s.y / length[k]);
    }
    constexpr int kSamples = 40000;
    std::array<int, kOffsetCount> cells{};
    const double golden = kPi * (3.0 - std::sqrt(5.0));
    for (int i = 0; i < kSamples; ++i) {
        const double z = 1.0 - (i + 0.5) / kSamples;
        const double r = std::sqrt(1.0 - z * z);
        const double u[3] = {r * std::cos(golden * i), r * std::sin(golden * i), z};
        std::size_t nearest = 0;
        double best = -1.0;
        for (std::size_t k = 0; k < kOffsetCount; ++k) {
            const double cosine = std::abs(u[0] * directions[k][0] + u[1] * directions[k][1] + u[2] * directions[k][2]);
            if (cosine > best) best = cosine, nearest = k;
        }
        ++cells[nearest];
    }
    for (std::size_t k = 0; k < kOffsetCount; ++k)
        weights.space[k] = 4.0 * cells[k] / kSamples * (s.x * s.y * s.z / length[k]);
    return weights;
}

// The grey value at percentile p of the object's voxels, interpolated linearly between ranks.
double percentile(std::vector<double>& sorted, double p) {
    if (sorted.empty()) return 0.0;
    const double rank = p / 100.0 * static_cast<double>(sorted.size() - 1);
    const std::size_t low = static_cast<std::size_t>(std::floor(rank));
    const std::size_t high = std::min(low + 1, sorted.size() - 1);
    return sorted[low] + (rank - static_cast<double>(low)) * (sorted[high] - sorted[low]);
}

void checkImages(const KrvVoxelView& labels, const KrvVoxelView* grey) {
    if (labels.type != KrvVoxelType::Int32) refuse("Objects are measured in an int32 label image");
    if (labels.data == nullptr || labels.Count() == 0) refuse("The label image is empty");
    if (grey != nullptr && (!grey->SameGrid(labels) || grey->data == nullptr))
        refuse("The grey image is " + std::to_string(grey->nx) + "x" + std::to_string(grey->ny) + "x" +
               std::to_string(grey->nz) + ", the label image " + std::to_string(labels.nx) + "x" +
               std::to_string(labels.ny) + "x" + std::to_string(labels.nz) + ": they must share their grid");
}

}  // namespace

KrvMeasureParameters KrvMeasureParameters::Current() {
    KrvMeasureParameters params;
    for (const float angle : currentValues("FeretMax")) params.feretMaxAngles.push_back(angle);
    for (const float angle : currentValues("FeretMin")) params.feretMinAngles.push_back(angle);
    for (const float p : currentValues(kPercentile)) params.percentiles.push_back(p);
    const std::vector<float> angles = currentValues("Length3d");
    const std::size_t half = angles.size() / 2;
    for (std::size_t i = 0; i < half; ++i) params.directions.push_back(krvDirectionFromDegrees(angles[i], angles[half + i]));
    return params;
}

std::array<double, 3> krvDirectionFromDegrees(double polar, double azimuth) {
    const double p = polar * kPi / 180.0, a = azimuth * kPi / 180.0;
    return {std::sin(p) * std::cos(a), std::sin(p) * std::sin(a), std::cos(p)};
}

std::vector<std::string> krvMeasureColumnNames(const std::string& name, const KrvMeasureParameters& params) {
    if (name != kPercentile) return {name};
    std::vector<std::string> names;
    for (const double p : params.percentiles) names.push_back(name + shortest(p));
    return names;
}

bool krvIsMeasurable(const std::string& name) { return name == kPercentile || rules().count(name) != 0; }

KrvObjectMeasures krvMeasureObjects(const KrvVoxelView& labels, const KrvVoxelView* grey,
                                    const std::vector<std::string>& names, const KrvMeasureParameters& params,
                                    const KrvMeasureStep& step) {
    checkImages(labels, grey);
    const unsigned needs = needsOf(names, labels, grey != nullptr);
    const long passes = (needs & kNeedExits) ? 2 : 1;
    const long total = passes * (labels.Is3D() ? labels.nz : labels.ny);
    long done = 0;
    ObjectTable table;
    gatherObjects(labels, grey, needs, table, step, done, total);
    gatherNeighbours(labels, needs, table, step, done, total);
    std::vector<ObjectData> objects = table.sorted();

    Context context{labels, params, grey != nullptr, {}};
    if (needs & kNeedExits) context.weights = croftonWeights(labels.size);
    KrvObjectMeasures result;
    for (const ObjectData& o : objects) result.labels.push_back(o.label);
    for (const std::string& name : names) {
        if (name == kPercentile) {
            for (const double p : params.percentiles) {
                KrvMeasuredColumn column{name + shortest(p), {}};
                for (ObjectData& o : objects) {
                    std::sort(o.greyValues.begin(), o.greyValues.end());
                    column.values.push_back(percentile(o.greyValues, p));
                }
                result.columns.push_back(std::move(column));
            }
            continue;
        }
        const Measure compute = rules().find(name)->second.compute;
        KrvMeasuredColumn column{name, {}};
        column.values.reserve(objects.size());
        for (const ObjectData& o : objects) column.values.push_back(compute(o, context));
        result.columns.push_back(std::move(column));
    }
    return result;
}

std::vector<double> krvExactFeretDiameters(const KrvVoxelView& labels) {
    checkImages(labels, nullptr);
    ObjectTable table;
    long done = 0;
    gatherObjects(labels, nullptr, kNeedRuns, table, {}, done, 0);
    const KrvMeasureParameters none;
    const Context context{labels, none, false, {}};
    std::vector<double> diameters;
    for (const ObjectData& o : table.sorted()) {
        const std::vector<std::array<double, 3>> points = extremeCentres(o, context);
        double best = 0.0;
        const KrvVoxelSize& s = labels.size;
        for (std::size_t i = 0; i < points.size(); ++i)
            for (std::size_t j = i; j < points.size(); ++j) {
                const double dx = std::abs(points[i][0] - points[j][0]) + s.x;
                const double dy = std::abs(points[i][1] - points[j][1]) + s.y;
                const double dz = std::abs(points[i][2] - points[j][2]) + s.z;
                best = std::max(best, dx * dx + dy * dy + dz * dz);
            }
        diameters.push_back(std::sqrt(best));
    }
    return diameters;
}
