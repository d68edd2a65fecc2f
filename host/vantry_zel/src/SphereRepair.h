// The local repair of the half-sphere lattice (internal to zel::geometry::SphereSampling).
#pragma once
#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>
#include <vector>

#include "SphereLattice.h"

namespace zel::geometry {

struct RepairedDirection {
    std::size_t index;
    double azimuth, polar;  // radians
};

// The new places of the directions near the equator seam and around the pole of a lattice, each
// near the centre of the smallest cap holding its Voronoi cell, antipodes identified. It reads
// the lattice from its definition, not from the sampler's output, so it can run while the output
// is being written. The work comes in stages of tasks that touch disjoint directions: any number
// of threads may call work() at once, each takes the next free task, and the result is the same
// however many took part and whenever they joined.
class SeamAndPoleRepair {
public:
    explicit SeamAndPoleRepair(const SphereLattice& lattice);
    ~SeamAndPoleRepair();
    SeamAndPoleRepair(const SeamAndPoleRepair&) = delete;
    SeamAndPoleRepair& operator=(const SeamAndPoleRepair&) = delete;

    // Takes tasks until every stage is done (or one failed); returns then.
    void work();
    // Once every call of work() has returned: the moved directions, or the first task's failure
    // rethrown.
    const std::vector<RepairedDirection>& repaired() const;

    struct Plan;  // the regions, their neighbour lists and the stages (internal)

private:
    bool runStage(std::size_t stage);

    std::unique_ptr<Plan> m_plan;
    std::unique_ptr<std::atomic<std::size_t>[]> m_next, m_done;  // per stage: tasks taken, finished
    std::atomic<bool> m_failed{false};
    std::exception_ptr m_failure;
};

}  // namespace zel::geometry
