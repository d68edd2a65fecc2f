// The sampler's seam and pole repair is cut into tasks that whichever thread is free takes: the
// directions it moves must not depend on how many threads worked on it or when they joined, and
// a failing task must end every thread's work and reach the caller.
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvFault.h>

#include "SphereRepair.h"

namespace {

using zel::geometry::RepairedDirection;
using zel::geometry::SeamAndPoleRepair;
using zel::geometry::SphereLattice;

// The repair with `threads` workers, the later ones joining after `stagger` tasks' worth of time.
std::vector<RepairedDirection> repairWith(std::size_t n, int threads, std::chrono::microseconds stagger) {
    SeamAndPoleRepair repair(SphereLattice{n, 0.25});
    std::vector<std::future<void>> helpers;
    for (int t = 1; t < threads; ++t)
        helpers.push_back(std::async(std::launch::async, [&repair, t, stagger] {
            std::this_thread::sleep_for(t * stagger);
            repair.work();
        }));
    repair.work();
    for (auto& helper : helpers) helper.get();
    return repair.repaired();
}

bool same(const std::vector<RepairedDirection>& a, const std::vector<RepairedDirection>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i].index != b[i].index || a[i].azimuth != b[i].azimuth || a[i].polar != b[i].polar) return false;
    return true;
}

TEST(Repair, SameDirectionsFromAnyNumberOfThreads) {
    // 2 directions: nothing to repair; 300: one region; the others: the seam in 16 tasks.
    for (std::size_t n : {std::size_t{2}, std::size_t{300}, std::size_t{60000}, (std::size_t{1} << 17) + 1}) {
        const std::vector<RepairedDirection> alone = repairWith(n, 1, {});
        EXPECT_EQ(alone.empty(), n < 3) << n;
        for (std::size_t i = 0; i < alone.size(); ++i) {
            ASSERT_LT(alone[i].index, n);
            ASSERT_LE(alone[i].polar, 1.5707963267948966);
        }
        EXPECT_TRUE(same(alone, repairWith(n, 2, {}))) << n;
        EXPECT_TRUE(same(alone, repairWith(n, 3, std::chrono::microseconds(300)))) << n;
    }
}

TEST(Repair, AFailingTaskEndsEveryThreadAndReachesTheCaller) {
    for (int nth : {1, 2, 40, 100}) {  // the set-up, a neighbour list, a round, the write-out
        KrvFault::arm("SphereSampling::repair", KrvFault::Answer::Throw, nth);
        SeamAndPoleRepair repair(SphereLattice{(std::size_t{1} << 17) + 1, 0.25});
        auto helper = std::async(std::launch::async, [&repair] { repair.work(); });
        repair.work();
        helper.get();
        try {
            repair.repaired();
            ADD_FAILURE() << "no failure after task " << nth;
        } catch (const KrvBaseException& e) {
            EXPECT_EQ(e.getMessage(), "Injected fault in SphereSampling::repair");
        }
    }
    KrvFault::reset();
    EXPECT_FALSE(repairWith(1000, 2, {}).empty());  // and the next repair runs whole
}

}  // namespace
