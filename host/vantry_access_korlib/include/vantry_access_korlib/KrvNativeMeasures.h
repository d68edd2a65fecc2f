// The catalogue of the suite's native measures: 2-D and 3-D measures with their unit
// dimension (the power of the length unit), a description and a parameter block (whether the
// measure takes parameters, how many, and its default values).
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include <vantry_util/KrvExport.h>

// How IpIndSetMsrInfo checks new values of a measure.
enum class KrvParamRule {
    None,        // the measure takes no parameters
    Angles2d,    // one or more angles in degrees, 0 to 180
    Percentiles, // one or more percentiles, 0 to 100
    Directions3d // an even, non-zero count: polar angles 0 to 90, then azimuths 0 to 360
};

struct VANTRY_ACCESS_KORLIB_EXPORT KrvNativeMeasure {
    std::string name;
    int unitDim;
    int dimension;  // 2 or 3
    std::string description;
    KrvParamRule rule;
    std::vector<float> defaults;
};

// In catalogue order (the host's order of getNatMsrList).
VANTRY_ACCESS_KORLIB_EXPORT const std::vector<KrvNativeMeasure>& krvNativeMeasures();
// The measure of that name, compared exactly, or null.
VANTRY_ACCESS_KORLIB_EXPORT const KrvNativeMeasure* krvFindNativeMeasure(std::string_view name);
