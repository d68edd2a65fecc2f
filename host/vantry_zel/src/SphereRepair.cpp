// The local repair of the half-sphere Fibonacci lattice. Where the spiral meets its own
// antipodal image at the equator the two turn opposite ways and leave holes (kappa about 2.3),
// and the first turns around the pole leave a smaller one (about 1.7); elsewhere the lattice
// covers at kappa 1.45 to 1.58. Each direction of a band of two lattice steps above the equator,
// and of a cap of about six steps around the pole, moves towards the centre of the smallest cap
// that holds its Voronoi cell (a minimax step: it lowers the cell's covering radius), and a
// little past it, one after another, for four rounds. The cells come from the neighbours
// within two steps (a cell's neighbours lie within twice its covering radius, under 1.7 steps
// even in the seam's holes), fixed before the first round, the antipodes of the band included,
// nearest first; each is cut out of a square in the plane tangent to its direction, where the
// bisecting great circles are straight lines, and in later rounds rebuilt from the bisectors of
// its last edges where they still make it (they do for 99% of cells).
//
// For large counts the band's rounds go by azimuth sectors, even ones then odd ones, so that two
// threads can share them (the set-up and the neighbour lists too); the order, and so the result,
// is the same on one thread.
#include "SphereRepair.h"

#include "SphereLattice.h"

#include <vantry_util/KrvFault.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

namespace zel::geometry {

namespace {

struct Vec3 {
    double x, y, z;
};
inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator*(double k, Vec3 a) { return {k * a.x, k * a.y, k * a.z}; }
inline Vec3 operator-(Vec3 a) { return {-a.x, -a.y, -a.z}; }
inline double dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline Vec3 unit(Vec3 a) { return (1.0 / std::sqrt(dot(a, a))) * a; }

constexpr int kRounds = 4;
constexpr double kBandSteps = 2.0;      // the seam band: z below this many lattice steps
constexpr double kPoleSteps = 3.0;      // the pole cap: 1 - z below 2 (steps)^2
constexpr double kNeighbourSteps = 2.0;
constexpr double kOverRelaxation = 1.9;  // a move is this many times the way to the cell's centre
constexpr double kOvershootSteps = 0.02;  // but goes past the centre by at most this many steps
constexpr std::size_t kBruteForce = 4096;
constexpr std::size_t kReseed = 256;  // a fresh sine and cosine of the azimuth every this many steps

// The neighbours (places in a direction's list) whose bisectors made its cell's edges,
// counter-clockwise; none until the cell was cut out.
constexpr std::size_t kMaxRing = 8;
constexpr std::size_t kRingPlaces = 64;  // a ring's neighbours are among the first this many of a list (a bit mask)
struct CellRing {
    std::uint8_t count = 0;
    std::uint8_t support = 0;  // the corners (between edges i - 1 and i) the cell's circle rested on
    std::array<std::uint8_t, kMaxRing> edge;
};

// Where a region's directions lie: a grid of azimuth sectors (from the lattice's own turn, no
// arc tangent) by height slabs, each at least the neighbour radius across, so that a direction's
// neighbours lie in its own cell and the eight around it; or, for few directions, no grid.
struct Grid {
    bool used = false;
    int sectorBits = 0;
    std::size_t slabs = 0;
    std::vector<std::uint32_t> start, order, cell;  // positions of cell c: order[start[c] .. start[c+1])
    std::vector<Vec3> sorted;                       // pos[order[j]], before the first round
};

// A region of the lattice: the directions it reads (and their antipodes when `images`), the
// ones it moves, each moving one's neighbours (positions in `pos`, antipodes after the
// directions), and the tasks its rounds are cut into.
struct Region {
    std::vector<std::size_t> index;   // lattice index of each position
    std::vector<Vec3> pos;            // directions, then antipodes when images
    std::vector<std::uint32_t> turn;  // the lattice azimuth of each position, fixed point
    bool images = false;
    std::vector<std::uint32_t> moving;  // positions that move
    Grid grid;
    std::vector<const std::uint32_t*> nearBegin;  // the neighbours of moving[k], nearest first
    std::vector<std::uint32_t> nearCount;
    std::vector<std::vector<std::uint32_t>> nearLists;  // one per neighbour task, holding them
    // The rounds' tasks: pairs of opposite azimuth sectors, each wider than the neighbour radius,
    // so a task's cells read only its own directions and those of the tasks on either side; the
    // even tasks run together, then the odd ones. Task t moves moving[taskMoving[taskStart[t] ..
    // taskStart[t + 1])], in lattice order.
    std::size_t tasks = 1;
    std::vector<std::uint32_t> taskStart, taskMoving;
    std::size_t repairedFrom = 0;  // where its moved directions go in the repair's output
    std::vector<CellRing> rings;   // of moving[k]: the neighbours of its cell's edges last round
};

// Items 0..count-1 sorted by bucket (a counting sort, stable): bucket b holds
// order[start[b] .. start[b + 1]).
template <class BucketOf>
void sortIntoBuckets(std::size_t count, std::size_t buckets, BucketOf bucketOf, std::vector<std::uint32_t>& start,
                     std::vector<std::uint32_t>& order) {
    start.assign(buckets + 1, 0);
    order.resize(count);
    for (std::uint32_t j = 0; j < count; ++j) ++start[bucketOf(j) + 1];
    for (std::size_t b = 0; b < buckets; ++b) start[b + 1] += start[b];
    std::vector<std::uint32_t> fill(start.begin(), start.end() - 1);
    for (std::uint32_t j = 0; j < count; ++j) order[fill[bucketOf(j)]++] = j;
}

// Adds the lattice's directions first..last to the region, from their indices: z exactly, the
// azimuth's cosine and sine by turning one golden step at a time (one library sine and cosine
// every kReseed steps, so that rounding cannot build up), instead of two trigonometric calls
// and a cosine each from the angles written. `moves(z)` says which of them move.
template <class Moves>
void addRange(Region& r, const SphereLattice& lattice, std::size_t first, std::size_t last, Moves moves) {
    const std::size_t positions = (last - first) * (r.images ? 2 : 1);
    r.index.reserve(last - first);
    r.pos.reserve(positions);
    r.turn.reserve(positions);
    const double stepAngle = kTwoPi * (static_cast<double>(kGoldenTurn) * kTurnUnit);
    const double stepCos = std::cos(stepAngle), stepSin = std::sin(stepAngle);
    double c = 1.0, s = 0.0;
    for (std::size_t i = first; i < last; ++i) {
        if ((i - first) % kReseed == 0) {
            const double azimuth = kTwoPi * (static_cast<double>(SphereLattice::turn(i)) * kTurnUnit);
            c = std::cos(azimuth);
            s = std::sin(azimuth);
        } else {
            const double turned = c * stepCos - s * stepSin;
            s = s * stepCos + c * stepSin;
            c = turned;
        }
        const double z = lattice.z(i);
        const double radius = std::sqrt(std::max(0.0, 1.0 - z * z));
        if (moves(z)) r.moving.push_back(static_cast<std::uint32_t>(r.pos.size()));
        r.index.push_back(i);
        r.turn.push_back(SphereLattice::turn(i));
        r.pos.push_back({radius * c, radius * s, z});
    }
    if (r.images) {
        for (std::size_t j = 0; j < last - first; ++j) {
            r.pos.push_back(-r.pos[j]);
            r.turn.push_back(r.turn[j] ^ kHalfTurn);
        }
    }
}

void buildGrid(Region& r, double radius) {
    Grid& g = r.grid;
    const std::size_t count = r.pos.size();
    g.used = count > kBruteForce;
    if (!g.used) return;
    double zLow = 1.0, zHigh = -1.0, rimZ = 0.0;
    for (const Vec3& p : r.pos) {
        zLow = std::min(zLow, p.z);
        zHigh = std::max(zHigh, p.z);
        rimZ = std::max(rimZ, std::fabs(p.z));
    }
    const double rim = std::sqrt(std::max(1e-12, 1.0 - rimZ * rimZ));  // the smallest circle of latitude's radius
    const double sectorAngle = 2.0 * std::asin(std::min(1.0, radius / (2.0 * rim)));
    g.sectorBits = 2;  // a power of two sectors, each no narrower than sectorAngle
    while (g.sectorBits < 20 && kTwoPi / static_cast<double>(2u << g.sectorBits) >= sectorAngle) ++g.sectorBits;
    g.slabs = static_cast<std::size_t>((zHigh - zLow) / radius) + 1;
    const std::size_t sectors = std::size_t{1} << g.sectorBits;
    g.cell.resize(count);
    for (std::uint32_t j = 0; j < count; ++j) {
        const std::size_t slab = std::min(g.slabs - 1, static_cast<std::size_t>((r.pos[j].z - zLow) / radius));
        g.cell[j] = static_cast<std::uint32_t>(slab * sectors + (r.turn[j] >> (32 - g.sectorBits)));
    }
    sortIntoBuckets(count, g.slabs * sectors, [&](std::uint32_t j) { return g.cell[j]; }, g.start, g.order);
    g.sorted.resize(count);
    for (std::uint32_t j = 0; j < count; ++j) g.sorted[j] = r.pos[g.order[j]];
}

// Pairs of opposite sectors (a direction's antipode lies in the opposite sector) make a ring of
// tasks; with the grid's sectors at least the neighbour radius wide, neighbours lie in the same
// task or the next one either way. Up to 16 tasks: enough for two threads to share a round.
void planTasks(Region& r) {
    const int taskBits = r.grid.used && r.grid.sectorBits >= 2 ? std::min(r.grid.sectorBits, 5) - 1 : 0;
    r.tasks = std::size_t{1} << taskBits;
    const auto taskOf = [&](std::uint32_t k) { return (r.turn[r.moving[k]] >> (31 - taskBits)) & (r.tasks - 1); };
    sortIntoBuckets(r.moving.size(), r.tasks, taskOf, r.taskStart, r.taskMoving);
    r.nearBegin.assign(r.moving.size(), nullptr);
    r.nearCount.assign(r.moving.size(), 0);
    r.rings.assign(r.moving.size(), CellRing{});
}

// The neighbours of moving[from .. to), into `lists`: those within `radius`, nearest first (the
// cell shrinks at once and the farther bisectors mostly miss it).
void listNeighbours(Region& r, std::size_t from, std::size_t to, double radius, std::vector<std::uint32_t>& lists) {
    const double r2 = radius * radius;
    const Grid& g = r.grid;
    const std::size_t sectors = std::size_t{1} << g.sectorBits;
    std::vector<std::size_t> offsets;
    offsets.reserve(to - from);
    lists.reserve((to - from) * 16);
    std::vector<std::pair<double, std::uint32_t>> byDistance;
    for (std::size_t k = from; k < to; ++k) {
        const std::uint32_t at = r.moving[k];
        const Vec3 p = r.pos[at];
        // Every candidate is written and only those within the radius are kept: no branch for the
        // distance test to mispredict.
        std::size_t found = 0;
        const auto scan = [&](const Vec3* q, const std::uint32_t* index, std::uint32_t begin, std::uint32_t end) {
            if (byDistance.size() < found + (end - begin)) byDistance.resize(found + (end - begin));
            for (std::uint32_t j = begin; j < end; ++j) {
                const Vec3 d = q[j] - p;
                const std::uint32_t other = index ? index[j] : j;
                byDistance[found] = {-dot(q[j], p), other};
                found += (dot(d, d) < r2) & (other != at);
            }
        };
        if (!g.used) {
            scan(r.pos.data(), nullptr, 0, static_cast<std::uint32_t>(r.pos.size()));
        } else {
            // The three sectors around this one lie side by side in each slab (two runs at the seam
            // of the turn).
            const auto cells = [&](std::size_t firstCell, std::size_t lastCell) {
                scan(g.sorted.data(), g.order.data(), g.start[firstCell], g.start[lastCell + 1]);
            };
            const std::size_t slab = g.cell[at] / sectors, sector = g.cell[at] % sectors;
            for (std::size_t s = slab == 0 ? 0 : slab - 1; s <= std::min(g.slabs - 1, slab + 1); ++s) {
                const std::size_t row = s * sectors;
                if (sector == 0) {
                    cells(row, row + 1);
                    cells(row + sectors - 1, row + sectors - 1);
                } else if (sector == sectors - 1) {
                    cells(row + sectors - 2, row + sectors - 1);
                    cells(row, row);
                } else {
                    cells(row + sector - 1, row + sector + 1);
                }
            }
        }
        const auto nearest = byDistance.begin(), farthest = nearest + static_cast<std::ptrdiff_t>(found);
        std::sort(nearest, farthest);
        offsets.push_back(lists.size());
        for (auto entry = nearest; entry != farthest; ++entry) lists.push_back(entry->second);
        r.nearCount[k] = static_cast<std::uint32_t>(found);
    }
    for (std::size_t k = from; k < to; ++k) r.nearBegin[k] = lists.data() + offsets[k - from];
}

// A neighbour's bisector in the plane tangent to the direction: the cell keeps a u + b v + c >= 0.
// It lies c / sqrt(a^2 + b^2) = sqrt(c / (1 + p.q)) from the direction (q is a unit vector).
struct Line {
    double a, b, c;
    double side(const std::array<double, 2>& q) const { return a * q[0] + b * q[1] + c; }  // < 0: cut off
};
struct Frame {
    Vec3 p, e1, e2;
    Line bisector(Vec3 q) const { return {-dot(e1, q), -dot(e2, q), 1.0 - dot(p, q)}; }
    // Whether q's bisector passes at least sqrt(reach2) from the direction: beyond the cell.
    bool beyond(Vec3 q, double reach2) const {
        const double pq = dot(p, q);
        return 1.0 - pq >= reach2 * (1.0 + pq);
    }
};
using Corner = std::array<double, 2>;
constexpr std::size_t kMaxCorners = 64;

// The cell cut out of the square of half-width `half` by the neighbours, nearest first (the cell
// shrinks at once and the farther bisectors mostly miss it): its corners counter-clockwise in
// `cell`, their count returned, and the neighbours of its edges, in the same order, in `ring`.
std::size_t clipCell(const Frame& f, const Vec3* pos, const std::uint32_t* near, std::size_t nearCount, double half,
                     Corner*& cell, Corner*& spare, CellRing& ring) {
    constexpr int kSquareEdge = -1;
    int labels[2][kMaxCorners];  // the neighbour of the edge from corner i to the next
    int* edge = labels[0];
    int* cutEdge = labels[1];
    std::size_t size = 4;
    cell[0] = {-half, -half};
    cell[1] = {half, -half};
    cell[2] = {half, half};
    cell[3] = {-half, half};
    std::fill(edge, edge + 4, kSquareEdge);
    double reach2 = 2.0 * half * half;  // at least the farthest corner of the cell, squared
    for (std::size_t m = 0; m < nearCount && size > 0; ++m) {
        const Vec3 q = pos[near[m]];
        if (f.beyond(q, reach2)) continue;
        const Line l = f.bisector(q);
        double side[kMaxCorners];
        bool cuts = false;
        for (std::size_t i = 0; i < size; ++i) {
            side[i] = l.side(cell[i]);
            cuts = cuts || side[i] < 0;
        }
        if (!cuts) {
            // The bound was loose (it is tightened only here, not after every cut): tighten it.
            reach2 = 0.0;
            for (std::size_t i = 0; i < size; ++i)
                reach2 = std::max(reach2, cell[i][0] * cell[i][0] + cell[i][1] * cell[i][1]);
            continue;
        }
        std::size_t kept = 0;
        for (std::size_t i = 0, j = 1; i < size && kept + 2 < kMaxCorners; ++i, j = j + 1 == size ? 0 : j + 1) {
            const Corner& u = cell[i];
            const Corner& v = cell[j];
            const double fu = side[i], fv = side[j];
            if (fu >= 0) cutEdge[kept] = edge[i], spare[kept++] = u;
            if ((fu >= 0) != (fv >= 0)) {
                const double t = fu / (fu - fv);
                // Leaving the cell, the new edge runs along this bisector; entering, along the old edge.
                cutEdge[kept] = fu >= 0 ? static_cast<int>(m) : edge[i];
                spare[kept++] = {u[0] + t * (v[0] - u[0]), u[1] + t * (v[1] - u[1])};
            }
        }
        size = kept;
        std::swap(cell, spare);  // a cut only shrinks the cell: reach2 stays an upper bound
        std::swap(edge, cutEdge);
    }
    ring.count = 0;
    if (size < 3 || size > kMaxRing) return size;
    for (std::size_t i = 0; i < size; ++i) {
        const bool placed = edge[i] >= 0 && edge[i] < static_cast<int>(kRingPlaces);  // a neighbour, not the square
        if (!placed || edge[i] == edge[i + 1 == size ? 0 : i + 1]) return size;
    }
    for (std::size_t i = 0; i < size; ++i) ring.edge[i] = static_cast<std::uint8_t>(edge[i]);
    ring.count = static_cast<std::uint8_t>(size);
    return size;
}

// The cell from last round's edges, if they still make it: each corner where two consecutive
// edges' bisectors meet, the edges still in that order (a convex polygon), and every corner on
// the inner side of every other neighbour's bisector. Few neighbours change from round to
// round, and this has few branches to mispredict and half the divisions of cutting the square
// down.
bool ringCell(const Frame& f, const Vec3* pos, const std::uint32_t* near, std::size_t nearCount, double half,
              const CellRing& ring, Corner* cell) {
    const std::size_t size = ring.count;
    Line line[kMaxRing];
    std::uint64_t inRing = 0;
    for (std::size_t i = 0; i < size; ++i) {
        line[i] = f.bisector(pos[near[ring.edge[i]]]);
        inRing |= std::uint64_t{1} << ring.edge[i];
    }
    double reach2 = 0.0;
    bool inSquare = true;
    int windings = 0;  // how often the edges' normals pass the u axis, turning counter-clockwise
    for (std::size_t i = 0; i < size; ++i) {
        const Line& in = line[i == 0 ? size - 1 : i - 1];
        const Line& out = line[i];
        const double det = in.a * out.b - out.a * in.b;  // positive where the edges turn counter-clockwise
        if (!(det > 0.0)) return false;
        windings += in.b < 0.0 && out.b >= 0.0;
        const double u = (out.c * in.b - in.c * out.b) / det, v = (in.c * out.a - out.c * in.a) / det;
        cell[i] = {u, v};
        inSquare = inSquare && std::fabs(u) <= half && std::fabs(v) <= half;
        reach2 = std::max(reach2, u * u + v * v);
    }
    if (!inSquare || windings != 1) return false;
    // Turning left at every corner and once around, the corners make a convex polygon, the
    // ring's cell, if every edge runs forwards (counter-clockwise, along (b, -a)) from its first
    // corner to its last. Rounding can leave an edge a hair backwards: tolerated, and so is a
    // neighbour that cuts off no more than that.
    const double tolerance = -1e-12 * half * half;
    double lowest = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        const Corner& from = cell[i];
        const Corner& to = cell[i + 1 == size ? 0 : i + 1];
        lowest = std::min(lowest, (to[0] - from[0]) * line[i].b - (to[1] - from[1]) * line[i].a);
    }
    if (lowest < tolerance) return false;
    for (std::size_t m = 0; m < nearCount; ++m) {
        if (m < kRingPlaces && (inRing >> m & 1)) continue;
        const Vec3 q = pos[near[m]];
        if (f.beyond(q, reach2)) continue;
        const Line l = f.bisector(q);
        for (std::size_t i = 0; i < size; ++i) lowest = std::min(lowest, l.side(cell[i]));
        if (lowest < tolerance) return false;
    }
    return true;
}

// Puts first the corners the smallest circle likely rests on (corner[i] numbers cell[i]): those
// last round's circle rested on, when the cell kept its edges (it mostly rests on them again,
// and then no corner restarts the search); else the corner farthest from the direction and the
// one farthest from that, whose circle holds most of the others.
void likelyRimFirst(Corner* cell, std::uint8_t* corner, std::size_t size, std::uint8_t lastRim) {
    const auto swapPlaces = [&](std::size_t a, std::size_t b) {
        std::swap(cell[a], cell[b]);
        std::swap(corner[a], corner[b]);
    };
    if (lastRim != 0) {
        for (std::size_t i = 0, front = 0; i < size; ++i)
            if (lastRim >> i & 1) swapPlaces(front++, i);
        return;
    }
    const auto farthestFrom = [&](std::size_t from, double u, double v) {
        std::size_t best = from;
        double bestDistance = -1.0;
        for (std::size_t i = from; i < size; ++i) {
            const double d = (cell[i][0] - u) * (cell[i][0] - u) + (cell[i][1] - v) * (cell[i][1] - v);
            if (d > bestDistance) bestDistance = d, best = i;
        }
        swapPlaces(from, best);
    };
    farthestFrom(0, 0.0, 0.0);
    if (size > 1) farthestFrom(1, cell[0][0], cell[0][1]);
}

// A circle in the tangent plane, and the corners it rests on (bits of their numbers).
struct Circle {
    double u, v, r2;
    std::uint64_t support;
};

// The smallest circle holding the corners (corner[i] numbers cell[i]): each corner outside the
// circle so far restarts the search with it on the rim, so the corners likely on the rim go first.
Circle smallestCircle(const Corner* cell, const std::uint8_t* corner, std::size_t size) {
    Circle c{cell[0][0], cell[0][1], 0.0, std::uint64_t{1} << corner[0]};
    const auto outside = [&](const Corner& q) {
        return (q[0] - c.u) * (q[0] - c.u) + (q[1] - c.v) * (q[1] - c.v) > c.r2 * (1.0 + 1e-12);
    };
    const auto bit = [&](std::size_t place) { return std::uint64_t{1} << corner[place]; };
    const auto through2 = [&](std::size_t i, std::size_t j) {
        const Corner &a = cell[i], &b = cell[j];
        c = {0.5 * (a[0] + b[0]), 0.5 * (a[1] + b[1]),
             0.25 * ((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1])), bit(i) | bit(j)};
    };
    const auto through3 = [&](std::size_t i, std::size_t j, std::size_t k) {
        const Corner &a = cell[i], &b = cell[j], &q = cell[k];
        const double bx = b[0] - a[0], by = b[1] - a[1], cx = q[0] - a[0], cy = q[1] - a[1];
        const double d = 2.0 * (bx * cy - by * cx);
        if (std::fabs(d) < 1e-300) return;
        const double b2 = bx * bx + by * by, c2 = cx * cx + cy * cy;
        const double ux = (cy * b2 - by * c2) / d, uy = (bx * c2 - cx * b2) / d;
        c = {a[0] + ux, a[1] + uy, ux * ux + uy * uy, bit(i) | bit(j) | bit(k)};
    };
    for (std::size_t i = 1; i < size; ++i) {
        if (!outside(cell[i])) continue;
        c = {cell[i][0], cell[i][1], 0.0, bit(i)};
        for (std::size_t j = 0; j < i; ++j) {
            if (!outside(cell[j])) continue;
            through2(i, j);
            for (std::size_t k = 0; k < j; ++k)
                if (outside(cell[k])) through3(i, j, k);
        }
    }
    return c;
}

// The centre of the smallest cap holding the Voronoi cell of `p` among `near`.
Vec3 cellCentre(Vec3 p, const Vec3* pos, const std::uint32_t* near, std::size_t nearCount, double half,
                CellRing& ring) {
    const Vec3 axis = std::fabs(p.z) < 0.9 ? Vec3{0, 0, 1} : Vec3{1, 0, 0};
    const Vec3 e1 = unit(cross(p, axis));
    const Frame f{p, e1, cross(p, e1)};
    Corner buffers[2][kMaxCorners];
    Corner* cell = buffers[0];
    Corner* spare = buffers[1];
    std::size_t size = ring.count;
    const bool fromRing = size >= 3 && ringCell(f, pos, near, nearCount, half, ring, cell);
    if (!fromRing) size = clipCell(f, pos, near, nearCount, half, cell, spare, ring);
    if (size == 0) return p;
    std::uint8_t corner[kMaxCorners];  // which corner each place holds: the search reorders them
    for (std::size_t i = 0; i < size; ++i) corner[i] = static_cast<std::uint8_t>(i);
    likelyRimFirst(cell, corner, size, fromRing ? ring.support : 0);
    // The smallest circle holding the corners, in the tangent plane (the cell is small, so this
    // is the smallest cap to well within a lattice step's thousandth), lifted back to the sphere.
    const Circle c = smallestCircle(cell, corner, size);
    ring.support = ring.count == size ? static_cast<std::uint8_t>(c.support) : 0;
    return unit(p + c.u * f.e1 + c.v * f.e2);
}

// Past the centre: the seam's disturbance spreads through the band like heat, and going past
// the centre (a little: the cap keeps the directions in the holes from overshooting) carries it
// across in fewer rounds. Directions that cross the equator stay where they are until written,
// so that their neighbour lists stay theirs.
Vec3 overRelaxed(Vec3 from, Vec3 centre, double cap) {
    const Vec3 move = centre - from;
    const double length = std::sqrt(dot(move, move));
    if (!(length > 0.0)) return centre;
    return unit(centre + std::min(kOverRelaxation - 1.0, cap / length) * move);
}

// Each direction moves at once, so that the next cell is cut by the neighbours' new places
// (Gauss-Seidel): four rounds reach what six rounds of moving all together reached.
void relaxTask(Region& r, std::size_t task, double step) {
    const std::size_t directions = r.index.size();
    for (std::uint32_t at = r.taskStart[task]; at < r.taskStart[task + 1]; ++at) {
        const std::uint32_t k = r.taskMoving[at], position = r.moving[k];
        const Vec3 from = r.pos[position];
        const Vec3 c = cellCentre(from, r.pos.data(), r.nearBegin[k], r.nearCount[k], kNeighbourSteps * step,
                                  r.rings[k]);
        const Vec3 moved = overRelaxed(from, c, kOvershootSteps * step);
        r.pos[position] = moved;
        if (r.images) r.pos[directions + position] = -moved;
    }
}

void writeOut(const Region& r, std::size_t from, std::size_t to, std::vector<RepairedDirection>& repaired) {
    for (std::size_t k = from; k < to; ++k) {
        const std::uint32_t position = r.moving[k];
        const Vec3 p = r.pos[position].z < 0 ? -r.pos[position] : r.pos[position];  // its antipode, the same direction
        double azimuth = std::atan2(p.y, p.x);
        if (azimuth < 0) azimuth += kTwoPi;
        repaired[r.repairedFrom + k] = {r.index[position], azimuth, std::acos(std::clamp(p.z, 0.0, 1.0))};
    }
}

// The share `part` of `parts` of `count` items: [first, last).
std::pair<std::size_t, std::size_t> share(std::size_t count, std::size_t part, std::size_t parts) {
    return {count * part / parts, count * (part + 1) / parts};
}

constexpr std::size_t kNeighbourTasks = 32;
constexpr std::size_t kWriteTasks = 4;
// The stages: the set-up; the neighbour lists of the seam (and the whole pole, small, beside
// them); two per round (even tasks, odd tasks); the write-out.
constexpr std::size_t kSetUpStage = 0, kNeighbourStage = 1, kFirstRoundStage = 2;
constexpr std::size_t kWriteStage = kFirstRoundStage + 2 * kRounds, kStages = kWriteStage + 1;

}  // namespace

std::size_t SphereLattice::firstBelow(double height) const {
    // z falls by scale() per index; the rounded guess is then moved onto the exact boundary.
    const double guess = (1.0 - height) / scale() - offset;
    std::size_t i = guess <= 0 ? 0 : std::min(n, static_cast<std::size_t>(guess));
    while (i > 0 && z(i - 1) < height) --i;
    while (i < n && !(z(i) < height)) ++i;
    return i;
}

struct SeamAndPoleRepair::Plan {
    SphereLattice lattice;
    double step = 0.0;
    Region seam, pole;
    std::vector<RepairedDirection> repaired;

    void setUp();
    void relaxPole();
    std::size_t tasks(std::size_t stage) const;
    void run(std::size_t stage, std::size_t task);
};

void SeamAndPoleRepair::Plan::setUp() {
    const std::size_t n = lattice.n;
    if (n < 3) return;
    step = std::sqrt(kTwoPi / static_cast<double>(n));
    const double bandTop = kBandSteps * step;
    // A moving direction's neighbours lie within kNeighbourSteps of it, so no higher than this.
    const double bandReach = bandTop + kNeighbourSteps * step * (1.0 + 1e-9);
    const double poleLow = 1.0 - 2.0 * (kPoleSteps * step) * (kPoleSteps * step);
    const double poleReach = std::cos(std::acos(std::max(-1.0, poleLow)) + (kNeighbourSteps + 1.0) * step);
    const auto inBand = [&](double z) { return z < bandTop; };
    const auto inCap = [&](double z) { return z > poleLow; };
    // The lattice runs from the pole down to the equator: the regions are the two ends.
    const std::size_t tail = lattice.firstBelow(bandReach);
    const std::size_t head = lattice.firstBelow(poleReach);
    seam.images = true;
    if (head >= tail) {  // few directions: one region, all of them read
        addRange(seam, lattice, 0, n, [&](double z) { return inBand(z) || inCap(z); });
    } else {
        addRange(seam, lattice, tail, n, inBand);
        addRange(pole, lattice, 0, head, inCap);
    }
    const double radius = kNeighbourSteps * step;
    buildGrid(seam, radius);
    planTasks(seam);
    seam.nearLists.resize(kNeighbourTasks);
    buildGrid(pole, radius);
    planTasks(pole);
    pole.nearLists.resize(1);
    pole.repairedFrom = seam.moving.size();
    repaired.resize(seam.moving.size() + pole.moving.size());
}

void SeamAndPoleRepair::Plan::relaxPole() {
    listNeighbours(pole, 0, pole.moving.size(), kNeighbourSteps * step, pole.nearLists[0]);
    for (int round = 0; round < kRounds; ++round) relaxTask(pole, 0, step);
    writeOut(pole, 0, pole.moving.size(), repaired);
}

std::size_t SeamAndPoleRepair::Plan::tasks(std::size_t stage) const {
    if (stage == kSetUpStage) return 1;
    if (lattice.n < 3) return 0;
    if (stage == kNeighbourStage) return kNeighbourTasks + 1;
    if (stage == kWriteStage) return kWriteTasks;
    const std::size_t odd = (stage - kFirstRoundStage) % 2;
    return seam.tasks == 1 ? 1 - odd : seam.tasks / 2;
}

void SeamAndPoleRepair::Plan::run(std::size_t stage, std::size_t task) {
    if (stage == kSetUpStage) {
        setUp();
    } else if (stage == kNeighbourStage) {
        if (task == kNeighbourTasks) return relaxPole();
        const auto [from, to] = share(seam.moving.size(), task, kNeighbourTasks);
        listNeighbours(seam, from, to, kNeighbourSteps * step, seam.nearLists[task]);
    } else if (stage == kWriteStage) {
        const auto [from, to] = share(seam.moving.size(), task, kWriteTasks);
        writeOut(seam, from, to, repaired);
    } else {
        const std::size_t odd = (stage - kFirstRoundStage) % 2;
        relaxTask(seam, 2 * task + odd, step);
    }
}

SeamAndPoleRepair::SeamAndPoleRepair(const SphereLattice& lattice)
    : m_plan(std::make_unique<Plan>()),
      m_next(std::make_unique<std::atomic<std::size_t>[]>(kStages)),
      m_done(std::make_unique<std::atomic<std::size_t>[]>(kStages)) {
    m_plan->lattice = lattice;
    for (std::size_t stage = 0; stage < kStages; ++stage) {
        m_next[stage].store(0, std::memory_order_relaxed);
        m_done[stage].store(0, std::memory_order_relaxed);
    }
}

SeamAndPoleRepair::~SeamAndPoleRepair() = default;

void SeamAndPoleRepair::work() {
    for (std::size_t stage = 0; stage < kStages; ++stage)
        if (!runStage(stage)) return;
}

// Takes the stage's free tasks one by one, then waits for those other threads took. A stage's
// tasks are counted only once the stage before it is done (the set-up decides them).
bool SeamAndPoleRepair::runStage(std::size_t stage) {
    const std::size_t count = m_plan->tasks(stage);
    for (std::size_t task; (task = m_next[stage].fetch_add(1, std::memory_order_relaxed)) < count;) {
        if (m_failed.load(std::memory_order_acquire)) return false;
        try {
            static KrvFault::Point& fault = KrvFault::point("SphereSampling::repair");  // Throw only
            fault.fire();
            m_plan->run(stage, task);
        } catch (...) {
            if (!m_failed.exchange(true, std::memory_order_acq_rel)) m_failure = std::current_exception();
            return false;
        }
        m_done[stage].fetch_add(1, std::memory_order_release);
    }
    for (unsigned spins = 0; m_done[stage].load(std::memory_order_acquire) < count; ++spins) {
        if (m_failed.load(std::memory_order_acquire)) return false;
        if (spins > 64) std::this_thread::yield();  // a task takes microseconds: spin briefly only
    }
    return true;
}

const std::vector<RepairedDirection>& SeamAndPoleRepair::repaired() const {
    if (m_failure) std::rethrow_exception(m_failure);
    return m_plan->repaired;
}

}  // namespace zel::geometry
