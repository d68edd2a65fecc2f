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
// bisecting great circles are straight lines.
#include "SphereRepair.h"

#include "SphereLattice.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
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

// A region of the lattice: the directions it reads (and their antipodes when `images`), the
// ones it moves, and each moving one's neighbours (positions in `pos`, antipodes after the
// directions).
struct Region {
    std::vector<std::size_t> index;  // lattice index of each position
    std::vector<Vec3> pos;           // directions, then antipodes when images
    std::vector<std::uint32_t> turn;  // the lattice azimuth of each position, fixed point
    bool images = false;
    std::vector<std::uint32_t> moving;  // positions that move
    std::vector<std::uint32_t> first;   // neighbours of moving[k]: near[first[k] .. first[k+1])
    std::vector<std::uint32_t> near;
};

// Adds the lattice's directions first..last to the region, from their indices: z exactly, the
// azimuth's cosine and sine by turning one golden step at a time (one library sine and cosine
// every kReseed steps, so that rounding cannot build up), instead of two trigonometric calls
// and a cosine each from the angles written. `moves(z)` says which of them move.
template <class Moves>
void addRange(Region& r, const SphereLattice& lattice, std::size_t first, std::size_t last, Moves moves) {
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
}

void findNeighbours(Region& r, double radius) {
    const double r2 = radius * radius;
    const std::size_t count = r.pos.size();
    r.first.assign(1, 0);
    const auto keep = [&](std::uint32_t k, std::uint32_t j) {
        if (j != k && dot(r.pos[j] - r.pos[k], r.pos[j] - r.pos[k]) < r2) r.near.push_back(j);
    };
    // Nearest first: the cell shrinks at once and the farther bisectors mostly miss it.
    std::vector<std::pair<double, std::uint32_t>> byDistance;
    const auto sortLast = [&](std::uint32_t k) {
        const Vec3 p = r.pos[k];
        byDistance.clear();
        for (auto at = r.near.begin() + r.first.back(); at != r.near.end(); ++at)
            byDistance.emplace_back(-dot(r.pos[*at], p), *at);
        std::sort(byDistance.begin(), byDistance.end());
        std::size_t at = r.first.back();
        for (const auto& entry : byDistance) r.near[at++] = entry.second;
        r.first.push_back(static_cast<std::uint32_t>(r.near.size()));
    };
    if (count <= kBruteForce) {
        for (const std::uint32_t k : r.moving) {
            for (std::uint32_t j = 0; j < count; ++j) keep(k, j);
            sortLast(k);
        }
        return;
    }
    // A thin band around the equator: a grid of azimuth sectors (from the lattice's own turn, no
    // arc tangent) by height slabs, each at least `radius` across, so a direction's neighbours lie
    // in its own cell and the eight around it.
    double zLow = 1.0, zHigh = -1.0, rimZ = 0.0;
    for (const Vec3& p : r.pos) {
        zLow = std::min(zLow, p.z);
        zHigh = std::max(zHigh, p.z);
        rimZ = std::max(rimZ, std::fabs(p.z));
    }
    const double rim = std::sqrt(std::max(1e-12, 1.0 - rimZ * rimZ));  // the smallest circle of latitude's radius
    const double sectorAngle = 2.0 * std::asin(std::min(1.0, radius / (2.0 * rim)));
    int sectorBits = 2;  // a power of two sectors, each no narrower than sectorAngle
    while (sectorBits < 20 && kTwoPi / static_cast<double>(2u << sectorBits) >= sectorAngle) ++sectorBits;
    const std::uint32_t sectors = 1u << sectorBits;
    const std::size_t slabs = static_cast<std::size_t>((zHigh - zLow) / radius) + 1;
    const auto cellOf = [&](std::uint32_t j) {
        const std::size_t slab = std::min(slabs - 1, static_cast<std::size_t>((r.pos[j].z - zLow) / radius));
        return slab * sectors + (r.turn[j] >> (32 - sectorBits));
    };
    const std::size_t cells = slabs * sectors;
    std::vector<std::uint32_t> start(cells + 1, 0), order(count), cell(count);
    for (std::uint32_t j = 0; j < count; ++j) ++start[(cell[j] = static_cast<std::uint32_t>(cellOf(j))) + 1];
    for (std::size_t c = 0; c < cells; ++c) start[c + 1] += start[c];
    std::vector<std::uint32_t> fill(start.begin(), start.end() - 1);
    for (std::uint32_t j = 0; j < count; ++j) order[fill[cell[j]]++] = j;
    for (const std::uint32_t k : r.moving) {
        const std::size_t slab = cell[k] / sectors, sector = cell[k] % sectors;
        for (std::size_t s = slab == 0 ? 0 : slab - 1; s <= std::min(slabs - 1, slab + 1); ++s)
            for (const std::size_t t : {(sector + sectors - 1) % sectors, sector, (sector + 1) % sectors}) {
                const std::size_t c = s * sectors + t;
                for (std::uint32_t at = start[c]; at < start[c + 1]; ++at) keep(k, order[at]);
            }
        sortLast(k);
    }
}

// The centre of the smallest cap holding the Voronoi cell of `p` among `near`.
Vec3 cellCentre(Vec3 p, const Vec3* pos, const std::uint32_t* near, std::size_t nearCount, double half) {
    const Vec3 axis = std::fabs(p.z) < 0.9 ? Vec3{0, 0, 1} : Vec3{1, 0, 0};
    const Vec3 e1 = unit(cross(p, axis));
    const Vec3 e2 = cross(p, e1);
    std::array<std::array<double, 2>, 64> buffers[2];
    std::array<double, 2>* cell = buffers[0].data();
    std::array<double, 2>* cut = buffers[1].data();
    constexpr std::size_t kMaxCorners = 64;
    std::size_t size = 4;
    cell[0] = {-half, -half};
    cell[1] = {half, -half};
    cell[2] = {half, half};
    cell[3] = {-half, half};
    double reach2 = 2.0 * half * half;  // at least the farthest corner of the cell, squared
    for (std::size_t m = 0; m < nearCount && size > 0; ++m) {
        const Vec3 q = pos[near[m]];
        const double a = -dot(e1, q), b = -dot(e2, q), c = 1.0 - dot(p, q);  // keep a u + b v + c >= 0
        if (c >= 0 && c * c >= reach2 * (a * a + b * b)) continue;  // the bisector passes beyond the cell
        double side[kMaxCorners];
        bool cuts = false;
        for (std::size_t i = 0; i < size; ++i) {
            side[i] = a * cell[i][0] + b * cell[i][1] + c;
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
            const auto& u = cell[i];
            const auto& v = cell[j];
            const double fu = side[i], fv = side[j];
            if (fu >= 0) cut[kept++] = u;
            if ((fu >= 0) != (fv >= 0)) {
                const double t = fu / (fu - fv);
                cut[kept++] = {u[0] + t * (v[0] - u[0]), u[1] + t * (v[1] - u[1])};
            }
        }
        size = kept;
        std::swap(cell, cut);  // a cut only shrinks the cell: reach2 stays an upper bound
    }
    if (size == 0) return p;
    // The corner farthest from the direction first and the one farthest from it second: their
    // circle holds most of the others, so few corners restart the search below.
    const auto farthestFrom = [&](std::size_t from, double u, double v) {
        std::size_t best = from;
        double bestDistance = -1.0;
        for (std::size_t i = from; i < size; ++i) {
            const double d = (cell[i][0] - u) * (cell[i][0] - u) + (cell[i][1] - v) * (cell[i][1] - v);
            if (d > bestDistance) bestDistance = d, best = i;
        }
        std::swap(cell[from], cell[best]);
    };
    farthestFrom(0, 0.0, 0.0);
    if (size > 1) farthestFrom(1, cell[0][0], cell[0][1]);
    // The smallest circle holding the corners, in the tangent plane (the cell is small, so this
    // is the smallest cap to well within a lattice step's thousandth), lifted back to the sphere.
    double cu = cell[0][0], cv = cell[0][1], r2 = 0.0;
    const auto outside = [&](const std::array<double, 2>& q) {
        return (q[0] - cu) * (q[0] - cu) + (q[1] - cv) * (q[1] - cv) > r2 * (1.0 + 1e-12);
    };
    const auto circle2 = [&](const std::array<double, 2>& a, const std::array<double, 2>& b) {
        cu = 0.5 * (a[0] + b[0]);
        cv = 0.5 * (a[1] + b[1]);
        r2 = 0.25 * ((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]));
    };
    const auto circle3 = [&](const std::array<double, 2>& a, const std::array<double, 2>& b,
                             const std::array<double, 2>& c) {
        const double bx = b[0] - a[0], by = b[1] - a[1], cx = c[0] - a[0], cy = c[1] - a[1];
        const double d = 2.0 * (bx * cy - by * cx);
        if (std::fabs(d) < 1e-300) return;
        const double b2 = bx * bx + by * by, c2 = cx * cx + cy * cy;
        const double ux = (cy * b2 - by * c2) / d, uy = (bx * c2 - cx * b2) / d;
        cu = a[0] + ux;
        cv = a[1] + uy;
        r2 = ux * ux + uy * uy;
    };
    for (std::size_t i = 1; i < size; ++i) {
        if (!outside(cell[i])) continue;
        cu = cell[i][0], cv = cell[i][1], r2 = 0.0;
        for (std::size_t j = 0; j < i; ++j) {
            if (!outside(cell[j])) continue;
            circle2(cell[i], cell[j]);
            for (std::size_t k = 0; k < j; ++k)
                if (outside(cell[k])) circle3(cell[i], cell[j], cell[k]);
        }
    }
    return unit(p + cu * e1 + cv * e2);
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

void relax(Region& r, std::vector<RepairedDirection>& repaired, double step) {
    const std::size_t directions = r.index.size();
    if (r.images) {
        r.pos.reserve(2 * directions);
        r.turn.reserve(2 * directions);
        for (std::size_t j = 0; j < directions; ++j) {
            r.pos.push_back(-r.pos[j]);
            r.turn.push_back(r.turn[j] ^ kHalfTurn);
        }
    }
    findNeighbours(r, kNeighbourSteps * step);
    // Each direction moves at once, so that the next cell is cut by the neighbours' new places
    // (Gauss-Seidel): four rounds reach what six rounds of moving all together reached.
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t k = 0; k < r.moving.size(); ++k) {
            const Vec3 c = cellCentre(r.pos[r.moving[k]], r.pos.data(), r.near.data() + r.first[k],
                                      r.first[k + 1] - r.first[k], kNeighbourSteps * step);
            const Vec3 moved = overRelaxed(r.pos[r.moving[k]], c, kOvershootSteps * step);
            r.pos[r.moving[k]] = moved;
            if (r.images) r.pos[directions + r.moving[k]] = -moved;
        }
    }
    for (const std::uint32_t k : r.moving) {
        const Vec3 p = r.pos[k].z < 0 ? -r.pos[k] : r.pos[k];  // its antipode, the same direction
        double azimuth = std::atan2(p.y, p.x);
        if (azimuth < 0) azimuth += kTwoPi;
        repaired.push_back({r.index[k], azimuth, std::acos(std::clamp(p.z, 0.0, 1.0))});
    }
}

}  // namespace

std::vector<RepairedDirection> repairSeamAndPole(const SphereLattice& lattice) {
    std::vector<RepairedDirection> repaired;
    const std::size_t n = lattice.n;
    if (n < 3) return repaired;
    const double step = std::sqrt(kTwoPi / static_cast<double>(n));
    const double bandTop = kBandSteps * step;
    const double bandReach = bandTop + (kNeighbourSteps + 1.0) * step;
    const double poleLow = 1.0 - 2.0 * (kPoleSteps * step) * (kPoleSteps * step);
    const double poleReach = std::cos(std::acos(std::max(-1.0, poleLow)) + (kNeighbourSteps + 1.0) * step);
    const auto inBand = [&](double z) { return z < bandTop; };
    const auto inCap = [&](double z) { return z > poleLow; };
    // The lattice runs from the pole down to the equator: the regions are the two ends.
    const std::size_t tail = lattice.firstBelow(bandReach);
    const std::size_t head = lattice.firstBelow(poleReach);
    if (head >= tail) {  // few directions: one region, all of them read
        Region all;
        all.images = true;
        addRange(all, lattice, 0, n, [&](double z) { return inBand(z) || inCap(z); });
        relax(all, repaired, step);
        return repaired;
    }
    Region seam;
    seam.images = true;
    seam.pos.reserve(2 * (n - tail));
    addRange(seam, lattice, tail, n, inBand);
    relax(seam, repaired, step);
    Region pole;
    addRange(pole, lattice, 0, head, inCap);
    relax(pole, repaired, step);
    return repaired;
}

}  // namespace zel::geometry
