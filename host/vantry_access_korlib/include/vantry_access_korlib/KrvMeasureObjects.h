// Measurement of the objects of a 2-D or 3-D label image: one pass over the labels (and the grey
// image, when there is one) gathers each object's moments, bounding box and grey statistics, and
// keeps the runs or grey values only for the measures that need them; the native measures and the
// IP functions of the catalogue are computed from that, in physical units from the voxel size.
// docs/suite.md gives each definition and estimator.
#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvVoxel.h>

// The parameter values the measures use.
struct VANTRY_ACCESS_KORLIB_EXPORT KrvMeasureParameters {
    std::vector<double> feretMaxAngles;  // degrees, from the x axis towards the y axis
    std::vector<double> feretMinAngles;
    std::vector<double> percentiles;     // 0 to 100
    std::vector<std::array<double, 3>> directions;  // Length3d's unit vectors

    // The catalogue's current values (what IpIndSetMsrInfo last accepted, else the defaults).
    static KrvMeasureParameters Current();
};

// The unit vector of polar angle `polar` and azimuth `azimuth`, degrees.
VANTRY_ACCESS_KORLIB_EXPORT std::array<double, 3> krvDirectionFromDegrees(double polar, double azimuth);

struct VANTRY_ACCESS_KORLIB_EXPORT KrvMeasuredColumn {
    std::string name;
    std::vector<double> values;  // one per object
};

struct VANTRY_ACCESS_KORLIB_EXPORT KrvObjectMeasures {
    std::vector<std::int32_t> labels;        // the objects' labels, increasing
    std::vector<KrvMeasuredColumn> columns;  // in the order asked
};

// The columns measuring `name` gives: its own name, except IntensityPercentile, which gives one
// column per percentile, "IntensityPercentile<p>" (p in its shortest decimal form).
VANTRY_ACCESS_KORLIB_EXPORT std::vector<std::string> krvMeasureColumnNames(const std::string& name,
                                                                          const KrvMeasureParameters& params);

// Whether `name` is something krvMeasureObjects computes: a native measure or an IP function.
VANTRY_ACCESS_KORLIB_EXPORT bool krvIsMeasurable(const std::string& name);

// Called after each plane (3-D) or block of rows (2-D) of a pass: work `done` of `total`.
using KrvMeasureStep = std::function<void(long done, long total)>;

// Measures every object (every label other than 0) of `labels`, an Int32 image, with the native
// measures and IP functions `names`; `grey`, when not null, is an image of the same grid of any
// voxel type (the intensity measures need one). A 2-D image is one plane, as thick as its z
// size, for the 3-D measures; the measures of plane shapes refuse a 3-D image. Throws
// KrvBaseException for a label image that is not Int32 or holds a negative label, a grey image
// of another grid, an unknown name, or a measure the images can't give.
VANTRY_ACCESS_KORLIB_EXPORT KrvObjectMeasures krvMeasureObjects(const KrvVoxelView& labels, const KrvVoxelView* grey,
                                                                const std::vector<std::string>& names,
                                                                const KrvMeasureParameters& params,
                                                                const KrvMeasureStep& step = {});

// The exact Feret diameter of the voxel corners of the object `label` (the largest distance
// between two of them): the reference Length3d approaches from below. Quadratic in the object's
// hull points; for tests and benchmarks.
VANTRY_ACCESS_KORLIB_EXPORT std::vector<double> krvExactFeretDiameters(const KrvVoxelView& labels);
