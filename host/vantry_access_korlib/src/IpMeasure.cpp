// Parameter blocks of the native measures and the small-count direction sampler.
#include <vantry_access_korlib/IpMeasure.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <vantry_access_korlib/KrvNativeMeasures.h>
#include <vantry_util/KrvFault.h>
#include <vantry_zel/SphereSampling.h>

namespace {

std::mutex g_mutex;
std::map<std::string, std::vector<float>, std::less<>> g_values;  // measures whose values were set

const std::vector<float>& currentValues(const KrvNativeMeasure& measure) {
    const auto found = g_values.find(measure.name);
    return found == g_values.end() ? measure.defaults : found->second;
}

bool inRange(const float* values, int from, int to, float low, float high) {
    for (int i = from; i < to; ++i)
        if (!std::isfinite(values[i]) || values[i] < low || values[i] > high) return false;
    return true;
}

bool accepts(const KrvNativeMeasure& measure, const float* values, int count) {
    if (count < 1 || values == nullptr) return false;
    switch (measure.rule) {
        case KrvParamRule::None: return false;
        case KrvParamRule::Angles2d: return inRange(values, 0, count, 0.f, 180.f);
        case KrvParamRule::Percentiles: return inRange(values, 0, count, 0.f, 100.f);
        case KrvParamRule::Directions3d:
            return count % 2 == 0 && inRange(values, 0, count / 2, 0.f, 90.f) &&
                   inRange(values, count / 2, count, 0.f, 360.f);
    }
    return false;
}

// Per count n from 1: the kappa the set reaches, and its directions {azimuth, polar}.
#define KRV_COVERING(N, KAPPA, ...) __VA_ARGS__,
const double kCoveringAngles[][2] = {
#include "SphereCoverings.inc"
};
#undef KRV_COVERING
#define KRV_COVERING(N, KAPPA, ...) KAPPA,
const double kCoveringKappa[] = {
#include "SphereCoverings.inc"
};
#undef KRV_COVERING
static_assert(sizeof(kCoveringKappa) / sizeof(double) == kKrvCoveringTableMax, "one set per count");
static_assert(sizeof(kCoveringAngles) / sizeof(kCoveringAngles[0]) ==
                  kKrvCoveringTableMax * (kKrvCoveringTableMax + 1) / 2,
              "n directions for each n");

}  // namespace

int IpIndGetMsrInfo(const char* name, MsrInfo* info, float** values, const char*) {
    // Custom answers: 1 hands back a record that counts values but no array, 2 an array with a
    // count of 0, 3 an array with a count of -1.
    static KrvFault::Point& fault = KrvFault::point("IpIndGetMsrInfo");
    long long odd = 0;
    if (fault.fire()) {
        if (fault.answer() != KrvFault::Answer::Custom) return fault.result<int>();
        odd = fault.answerValue();
    }
    if (name == nullptr || info == nullptr || values == nullptr) return 1;
    const KrvNativeMeasure* measure = krvFindNativeMeasure(name);
    if (measure == nullptr) return 1;

    std::lock_guard<std::mutex> lock(g_mutex);
    const std::vector<float>& current = currentValues(*measure);
    std::memset(info, 0, sizeof(MsrInfo));
    info->id = static_cast<std::int32_t>(measure - krvNativeMeasures().data());
    info->dimension = measure->dimension;
    info->nbParams = static_cast<std::int32_t>(current.size());
    info->unitDim = measure->unitDim;
    info->hasParams = measure->rule != KrvParamRule::None;
    info->minParams = info->hasParams ? (measure->rule == KrvParamRule::Directions3d ? 2 : 1) : 0;
    *values = nullptr;
    if (odd == 1) {
        info->nbParams = info->nbParams > 0 ? info->nbParams : 1;
        return 0;
    }
    const bool arrayAnyway = odd == 2 || odd == 3;
    const std::size_t count = arrayAnyway ? 1 : current.size();
    if (arrayAnyway) info->nbParams = odd == 2 ? 0 : -1;
    if (count == 0) return 0;
    *values = static_cast<float*>(std::malloc(count * sizeof(float)));
    if (*values == nullptr) throw std::bad_alloc();
    if (arrayAnyway)
        (*values)[0] = 0.f;
    else
        std::memcpy(*values, current.data(), count * sizeof(float));
    return 0;
}

int IpIndSetMsrInfo(const char* name, MsrInfo* info, float* values) {
    KRV_FAULT_RETURN(int, "IpIndSetMsrInfo");
    if (name == nullptr || info == nullptr) return 1;
    const KrvNativeMeasure* measure = krvFindNativeMeasure(name);
    if (measure == nullptr || !accepts(*measure, values, info->nbParams)) return 1;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_values[measure->name].assign(values, values + info->nbParams);
    return 0;
}

void krvResetMsrParams() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_values.clear();
}

double krvCoveringKappa(int n) { return n >= 1 && n <= kKrvCoveringTableMax ? kCoveringKappa[n - 1] : 0.0; }

int IpSampleHalfSphereAngle(int n, float* first, float* second) {
    // Custom answers fill every direction alike: 1 with azimuth 0 and polar angle pi/2, 2 with pi
    // for both (as a float), and return 0.
    static KrvFault::Point& fault = KrvFault::point("IpSampleHalfSphereAngle");
    if (fault.fire()) {
        if (fault.answer() != KrvFault::Answer::Custom) return fault.result<int>();
        const bool axis = fault.answerValue() == 1;
        for (int i = 0; i < n; ++i) {
            first[i] = axis ? 0.f : static_cast<float>(M_PI);
            second[i] = static_cast<float>(axis ? M_PI / 2 : M_PI);
        }
        return 0;
    }
    if (n < 1 || first == nullptr || second == nullptr) return 1;
    if (n <= kKrvCoveringTableMax) {
        const double(*set)[2] = kCoveringAngles + static_cast<std::size_t>(n) * (n - 1) / 2;
        for (int i = 0; i < n; ++i) {
            first[i] = static_cast<float>(set[i][0]);
            second[i] = static_cast<float>(set[i][1]);
        }
        return 0;
    }
    zel::container::Vector<zel::math::Vector2<double>> out;
    const zel::RefImpl<zel::geometry::SphereSampling> sampler = zel::geometry::SphereSampling::New(nullptr);
    sampler->directionCount = static_cast<unsigned int>(n);
    sampler->method = 1;
    sampler->output = &out;
    sampler->run(nullptr);
    if (out.size() != static_cast<std::size_t>(n)) return 1;
    for (int i = 0; i < n; ++i) {
        first[i] = static_cast<float>(out[i][0]);
        second[i] = static_cast<float>(out[i][1]);
    }
    return 0;
}
