// The algorithm framework and zel::geometry::SphereSampling.
#include <vantry_zel/SphereSampling.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <future>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvFault.h>

#include "SphereLattice.h"
#include "SphereRepair.h"

namespace zel {

RefCounted::~RefCounted() = default;
InteractionInterface::~InteractionInterface() = default;

void throwNullDereference() { throw std::logic_error("Null dereference of a zel reference"); }

PropertySingleChoice::PropertySingleChoice(std::vector<std::string> choices, unsigned int index)
    : m_choices(std::move(choices)), m_index(index) {}

PropertySingleChoice& PropertySingleChoice::operator=(unsigned int index) {
    if (index >= m_choices.size()) throw std::out_of_range("No such choice: " + std::to_string(index));
    m_index = index;
    return *this;
}

void BaseAlgorithm::run(InteractionInterface* interaction) { doRun(interaction); }

namespace geometry {

namespace {

// acos on [0, 1] to 2e-8 (Abramowitz and Stegun 4.4.46): a square root and a polynomial,
// which the compiler vectorises where std::acos would cost a library call per direction.
inline double acosUnit(double x) {
    const double tail = 0.0066700901 + x * -0.0012624911;
    const double upper = 0.0308918810 + x * (-0.0170881256 + x * tail);
    const double lower = 0.0889789874 + x * (-0.0501743046 + x * upper);
    return std::sqrt(1.0 - x) * (1.5707963050 + x * (-0.2145988016 + x * lower));
}

// Directions first..last of the lattice: each from its index alone, so the loop runs in vector
// instructions (2^-32 of a turn is far below the precision of the angles handed out). z stays
// inside (0, 1) for 0 < offset, so acosUnit needs no clamp. Index is a signed 32-bit count where
// it fits, the type the vector instructions convert.
template <class Index>
[[gnu::always_inline]] inline void fillRange(math::Vector2<double>* points, Index first, Index last, double scale,
                                             double offset) {
    for (Index i = first; i < last; ++i) {
        const double z = 1.0 - (static_cast<double>(i) + offset) * scale;
        // Through a signed 32-bit value, the type the vector instructions convert.
        const auto turn = static_cast<std::int32_t>((static_cast<std::uint32_t>(i) * kGoldenTurn) ^ kHalfTurn);
        points[i].v[0] = kTwoPi * ((static_cast<double>(turn) + 2147483648.0) * kTurnUnit);
        points[i].v[1] = acosUnit(z);
    }
}

// The usual path, built twice: for processors with AVX2 (four directions an instruction) and
// for any x86-64 (two); the loader picks one through a resolver that runs before a sanitizer's
// runtime is up (under tsan it crashed at load), so sanitizer builds keep the one version.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KRV_VECTOR_CLONES
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KRV_VECTOR_CLONES
#endif
#endif
#ifndef KRV_VECTOR_CLONES
#define KRV_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#endif

KRV_VECTOR_CLONES void fillRange32(math::Vector2<double>* points, std::int32_t first, std::int32_t last, double scale,
                                   double offset) {
    fillRange(points, first, last, scale, offset);
}

void fill(math::Vector2<double>* points, std::size_t first, std::size_t last, const SphereLattice& lattice) {
    if (last <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        fillRange32(points, static_cast<std::int32_t>(first), static_cast<std::int32_t>(last), lattice.scale(),
                    lattice.offset);
    else
        fillRange(points, first, last, lattice.scale(), lattice.offset);
}

constexpr std::size_t kRepairAlongsideFrom = std::size_t{1} << 17;

}  // namespace

RefImpl<SphereSampling> SphereSampling::New(void*) { return RefImpl<SphereSampling>(new SphereSampling()); }

void SphereSampling::doRun(InteractionInterface*) {
    // Custom answer: the output holds `value` directions whatever the count asked.
    static KrvFault::Point& fault = KrvFault::point("SphereSampling::run");
    container::Vector<math::Vector2<double>>* out = output.get();
    if (out == nullptr) throw std::invalid_argument("SphereSampling: no output vector");
    std::size_t n = directionCount.get();
    if (fault.fire()) n = static_cast<std::size_t>(fault.answerValue());
    out->resize(n);
    if (n == 0) return;
    const SphereLattice lattice{n, method.get() == 1 ? 0.25 : 0.5};
    const bool report = n >= kProgressFrom && CKrvSettingDoc::getInstance().getProgress() != 0;
    const std::size_t chunk = report ? n / 4 + 1 : n;
    const KrvExternalFunction& hooks = KrvExternalFunction::getInstance();
    // The repair reads the lattice from its definition, so a second thread starts on it while
    // this one writes the lattice, and this one joins it after (for large counts: a thread costs
    // some tens of microseconds). Declared before the helper, which its destructor waits for.
    std::optional<SeamAndPoleRepair> repair;
    if (method.get() == 1) repair.emplace(lattice);
    std::future<void> helper;
    if (repair && n >= kRepairAlongsideFrom && std::thread::hardware_concurrency() > 1) {
        try {
            helper = std::async(std::launch::async, [&repair] { repair->work(); });
        } catch (const std::system_error&) {
            // No thread to be had: this one does all of the repair below.
        }
    }
    for (std::size_t first = 0; first < n; first += chunk) {
        const std::size_t last = std::min(n, first + chunk);
        fill(out->data(), first, last, lattice);
        if (report) {
            const std::string message = "Sampling directions " + std::to_string(last) + "/" + std::to_string(n);
            hooks.CallProgressMsgFunction(message.c_str());
        }
    }
    if (!repair) return;
    repair->work();
    if (helper.valid()) helper.get();
    const std::vector<RepairedDirection>* repaired = nullptr;
    try {
        repaired = &repair->repaired();
    } catch (...) {
        out->resize(0);  // no half-repaired set left behind
        throw;
    }
    for (const RepairedDirection& moved : *repaired) {
        (*out)[moved.index][0] = moved.azimuth;
        (*out)[moved.index][1] = moved.polar;
    }
}

}  // namespace geometry
}  // namespace zel
