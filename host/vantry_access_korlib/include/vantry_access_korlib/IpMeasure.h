// The measurement library's flat interface: a measure's parameter block as a 40-byte record and
// a float array, and the small-count sampler of directions over the half sphere.
#pragma once
#include <cstddef>
#include <cstdint>

#include <vantry_util/KrvExport.h>

// Exchanged by layout: the parameter count at bytes 8 to 11, the accepts-parameters flag at
// bytes 24 to 27; the rest is the suite's own and travels back unchanged.
struct VANTRY_ACCESS_KORLIB_EXPORT MsrInfo {
    std::int32_t id;         // position in the native catalogue
    std::int32_t dimension;  // 2 or 3
    std::int32_t nbParams;
    std::int32_t unitDim;
    std::int32_t minParams;
    std::int32_t maxParams;  // 0: no upper bound
    std::int32_t hasParams;
    std::int32_t reserved[3];
};
static_assert(sizeof(MsrInfo) == 40, "MsrInfo is exchanged by layout");
static_assert(offsetof(MsrInfo, nbParams) == 8, "parameter count at bytes 8 to 11");
static_assert(offsetof(MsrInfo, hasParams) == 24, "accepts-parameters flag at bytes 24 to 27");

// Fills `info` for the native measure `name` and hands back in `*values` a malloc'ed copy of its
// current values (null when it has none); the caller frees it. `message` is not used. 0 when
// found, non-zero for an unknown name or a null argument, and while the access layer is closed
// (Error "the suite is not started").
VANTRY_ACCESS_KORLIB_EXPORT int IpIndGetMsrInfo(const char* name, MsrInfo* info, float** values, const char* message);

// Checks `info->nbParams` values against the measure's rules and makes them its current values;
// 0 when accepted, non-zero when refused (nothing changed) or while the access layer is closed.
VANTRY_ACCESS_KORLIB_EXPORT int IpIndSetMsrInfo(const char* name, MsrInfo* info, float* values);

// n directions spread as evenly as the suite can over the half sphere: `first` gets azimuths in
// [0, 2 pi), `second` polar angles in [0, pi/2], radians. Counts up to 100 come from a table of
// optimised coverings, larger ones from zel::geometry::SphereSampling. Non-zero for n < 1 or a
// null array.
VANTRY_ACCESS_KORLIB_EXPORT int IpSampleHalfSphereAngle(int n, float* first, float* second);

// The largest count served from the table, and the kappa = n (1 - cos radius) of its set for n.
constexpr int kKrvCoveringTableMax = 100;
VANTRY_ACCESS_KORLIB_EXPORT double krvCoveringKappa(int n);

// Back to every measure's default values (the access layer does this when it opens).
VANTRY_ACCESS_KORLIB_EXPORT void krvResetMsrParams();
