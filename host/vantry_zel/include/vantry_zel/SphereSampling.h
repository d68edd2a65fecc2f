// zel::geometry::SphereSampling: directions over the half sphere for large counts. Each point
// holds component 0 = azimuth in [0, 2 pi) and component 1 = polar angle in [0, pi/2], radians.
#pragma once
#include <vantry_util/KrvExport.h>
#include <vantry_zel/Algorithm.h>

namespace zel::geometry {

class VANTRY_ZEL_EXPORT SphereSampling : public BaseAlgorithm {
public:
    // The implementation pointer is reserved and may be null.
    static RefImpl<SphereSampling> New(void* implementation);

    Property<unsigned int> directionCount{0};
    // 0 "Fibonacci lattice", 1 "Fibonacci lattice, offset 0.25" (the most uniform).
    PropertySingleChoice method{{"Fibonacci lattice", "Fibonacci lattice, offset 0.25"}, 1};
    Property<container::Vector<math::Vector2<double>>*> output{nullptr};

    // From this count on the sampler reports "Sampling directions k/n" through the progress slot.
    static constexpr unsigned int kProgressFrom = 100000;

protected:
    void doRun(InteractionInterface* interaction) override;
};

}  // namespace zel::geometry
