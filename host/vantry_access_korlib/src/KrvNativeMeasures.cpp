// The native measure catalogue.
#include <vantry_access_korlib/KrvNativeMeasures.h>

#include <vantry_access_korlib/IpMeasure.h>

namespace {

// The 3-D Feret diameter starts with the 13 directions of the covering table, in degrees:
// polar angles, then azimuths.
std::vector<float> defaultDirections() {
    constexpr int kCount = 13;
    float azimuth[kCount];
    float polar[kCount];
    IpSampleHalfSphereAngle(kCount, azimuth, polar);
    std::vector<float> degrees;
    for (float value : polar) degrees.push_back(static_cast<float>(value * 180.0 / 3.141592653589793));
    for (float value : azimuth) degrees.push_back(static_cast<float>(value * 180.0 / 3.141592653589793));
    return degrees;
}

std::vector<KrvNativeMeasure> build() {
    using R = KrvParamRule;
    return {
        {"Area", 2, 2, "Area of the object", R::None, {}},
        {"Perimeter", 1, 2, "Length of the object's boundary", R::None, {}},
        {"ConvexPerimeter", 1, 2, "Length of the boundary of the convex hull", R::None, {}},
        {"EqDiameter", 1, 2, "Diameter of the disc of the same area", R::None, {}},
        {"CentroidX", 1, 2, "X coordinate of the centre of mass", R::None, {}},
        {"CentroidY", 1, 2, "Y coordinate of the centre of mass", R::None, {}},
        {"BoundingBoxDx", 1, 2, "Width of the bounding box", R::None, {}},
        {"BoundingBoxDy", 1, 2, "Height of the bounding box", R::None, {}},
        {"Elongation", 0, 2, "Ratio of the largest to the smallest Feret diameter", R::None, {}},
        {"FeretMax", 1, 2, "Largest calliper length over the measure's angles (degrees)", R::Angles2d,
         {0.f, 30.f, 60.f, 90.f, 120.f, 150.f}},
        {"FeretMin", 1, 2, "Smallest calliper length over the measure's angles (degrees)", R::Angles2d,
         {0.f, 30.f, 60.f, 90.f, 120.f, 150.f}},
        {"IntensityPercentile", 0, 2, "Grey values at the given percentiles", R::Percentiles, {10.f, 50.f, 90.f}},
        {"Volume3d", 3, 3, "Volume of the object", R::None, {}},
        {"Area3d", 2, 3, "Area of the object's surface", R::None, {}},
        {"EqDiameter3d", 1, 3, "Diameter of the ball of the same volume", R::None, {}},
        {"CentroidZ", 1, 3, "Z coordinate of the centre of mass", R::None, {}},
        {"BoundingBoxDz", 1, 3, "Depth of the bounding box", R::None, {}},
        {"Sphericity", 0, 3, "How close the object is to a ball (1 for a ball)", R::None, {}},
        {"Elongation3d", 0, 3, "Ratio of the largest to the smallest principal axis", R::None, {}},
        {"Length3d", 1, 3,
         "3-D Feret diameter: largest calliper length over the directions (polar angles, then azimuths, degrees)",
         R::Directions3d, defaultDirections()},
    };
}

}  // namespace

const std::vector<KrvNativeMeasure>& krvNativeMeasures() {
    static const std::vector<KrvNativeMeasure> catalogue = build();
    return catalogue;
}

const KrvNativeMeasure* krvFindNativeMeasure(std::string_view name) {
    for (const KrvNativeMeasure& measure : krvNativeMeasures())
        if (measure.name == name) return &measure;
    return nullptr;
}
