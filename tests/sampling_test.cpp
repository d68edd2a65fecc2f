// How evenly the suite's two samplers spread directions: the exact covering radius (qhull) of
// their sets, as kappa = n (1 - cos radius), held to the suite's targets.
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_zel/SphereSampling.h>

#include "Covering.h"

namespace {

std::vector<korvane::Direction> small(int n) {
    std::vector<float> azimuth(n), polar(n);
    EXPECT_EQ(IpSampleHalfSphereAngle(n, azimuth.data(), polar.data()), 0);
    std::vector<korvane::Direction> set;
    for (int i = 0; i < n; ++i) {
        EXPECT_TRUE(azimuth[i] >= 0.f && azimuth[i] < float(2 * M_PI) && polar[i] >= 0.f && polar[i] <= float(M_PI / 2)) << i;
        set.push_back(korvane::direction(azimuth[i], polar[i]));
    }
    return set;
}

std::vector<korvane::Direction> large(unsigned int n) {
    zel::container::Vector<zel::math::Vector2<double>> out;
    auto sampler = zel::geometry::SphereSampling::New(nullptr);
    sampler->directionCount = n;
    sampler->method = 1;
    sampler->output = &out;
    sampler->run(nullptr);
    EXPECT_EQ(out.size(), n);
    std::vector<korvane::Direction> set;
    for (std::size_t i = 0; i < out.size(); ++i) {
        EXPECT_TRUE(out[i][1] >= 0.0 && out[i][1] <= M_PI / 2) << i;
        set.push_back(korvane::direction(out[i][0], out[i][1]));
    }
    return set;
}

// From 20 directions on the table covers at kappa 1.31 or better, except for n = 20, where the
// optimiser has not found such a set yet (docs/suite.md).
constexpr double kTableTarget = 1.31;
bool notYetAtTarget(int n) { return n == 20; }
// The repaired lattice's worst kappa.
constexpr double kLatticeTarget = 1.6;

TEST(Sampling, TableCoveringsReachTheirTargets) {
    EXPECT_NEAR(korvane::coveringKappa(small(3)), 3.0 - std::sqrt(3.0), 1e-6);  // the axes
    EXPECT_NEAR(korvane::coveringKappa(small(6)), 6.0 * (1.0 - 0.7946544722917661), 1e-6);  // icosahedron axes
    for (int n = 1; n <= kKrvCoveringTableMax; ++n) {
        const double kappa = korvane::coveringKappa(small(n));
        EXPECT_NEAR(kappa, krvCoveringKappa(n), 1e-4) << n;  // the table says what it reaches
        if (n < 3) continue;
        EXPECT_GE(kappa, korvane::fejesTothKappa(n) - 1e-9) << n;
        EXPECT_LE(kappa, n < 20 ? 1.53 : notYetAtTarget(n) ? 1.38 : kTableTarget) << n;
    }
    float first[2];
    EXPECT_NE(IpSampleHalfSphereAngle(0, first, first), 0);
    EXPECT_NE(IpSampleHalfSphereAngle(2, nullptr, first), 0);
}

TEST(Sampling, LatticeCoversLargeCounts) {
    // The seam's fit to the lattice changes with n, so: every count up to 400 (where the seam
    // and the pole are one region), the decades, the counts that came closest to the target in
    // sweeps (every n to 6,000, random ones to 300,000; from about 42,000 the band moves by
    // sectors) or once passed it, and a count large enough for the repair to share two threads.
    for (unsigned int n = 101; n <= 400; ++n) EXPECT_LE(korvane::coveringKappa(large(n)), kLatticeTarget) << n;
    for (unsigned int n : {703u, 1000u, 1803u, 1880u, 4633u, 10000u, 11864u, 31623u, 33002u, 34477u, 83286u, 100000u,
                           (1u << 17) + 1}) {
        EXPECT_LE(korvane::coveringKappa(large(n)), kLatticeTarget) << n;
    }
    auto sampler = zel::geometry::SphereSampling::New(nullptr);
    EXPECT_THROW(sampler->method = 2, std::out_of_range);
    EXPECT_THROW(sampler->run(nullptr), std::invalid_argument);  // no output
    zel::RefImpl<zel::geometry::SphereSampling> none;
    EXPECT_THROW(none->directionCount = 3u, std::logic_error);
}

}  // namespace
