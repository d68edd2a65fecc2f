#!/usr/bin/python3
"""Computes the table of antipodal direction coverings behind IpSampleHalfSphereAngle.

For every count n from 1 to 100 it looks for n directions whose covering radius (the largest
angle from any direction, antipodes identified, to its nearest sample) is as small as it can
find: the largest circumradius over the facets of the convex hull of the 2n points +-u is
minimised by gradient descent on a soft maximum whose sharpness grows, with the hull rebuilt at
every step, from several starts (random sets relaxed to a minimum of a Riesz energy) and a few
random hops around the best. n = 3 and n = 6 are the known optima (the coordinate
axes; the six axes of the icosahedron); n = 1 and n = 2 cover at 90 degrees whatever they are.

Writes src/SphereCoverings.inc: per n, the directions as (azimuth, polar angle) in radians on
the upper half sphere, and the kappa = n (1 - cos radius) they reach.

    /usr/bin/python3 tools/gen_coverings.py [--restarts R] [--seed S] [--out FILE]
    /usr/bin/python3 tools/gen_coverings.py --improve 20,21 --restarts 16 --seed 2
    /usr/bin/python3 tools/gen_coverings.py --improve 20,21 --hops 200 --seed 3 --jobs 1

Needs numpy and scipy. The whole table takes about 11 CPU minutes (6 on two idle cores);
--improve re-optimises only the listed counts, from other starts, and keeps a new set only
where it covers better than the table's. With --hops it starts from the table's own sets
instead and hops from basin to basin: each move is polished to its exact local minimax (the
largest facet value minimised with the facets as constraints, SLSQP, the hull rebuilt between
solves), some tens of milliseconds a move.
"""
import argparse
import math
import multiprocessing
import os
import sys

import numpy as np
import scipy.spatial
from scipy.optimize import minimize
from scipy.spatial import ConvexHull


def facets(units):
    points = np.vstack([units, -units])
    return points, ConvexHull(points).simplices


class FacetPlanes:
    """The planes of hull facets (corners a, b, c): their distances d_f from the centre, and the
    gradients of sum_f g_f d_f in each facet's three corners."""

    def __init__(self, points, tri):
        self.a, self.b, self.c = points[tri[:, 0]], points[tri[:, 1]], points[tri[:, 2]]
        self.bc, self.ca, self.ab = np.cross(self.b, self.c), np.cross(self.c, self.a), np.cross(self.a, self.b)
        normal = self.ab + self.bc + self.ca
        self.length = np.linalg.norm(normal, axis=1)
        triple = np.einsum("ij,ij->i", self.a, self.bc)
        self.sign = np.sign(triple)
        self.d = self.sign * triple / self.length
        self.nhat = normal / self.length[:, None]

    def gradients(self, g_d):
        coef_t = (g_d * self.sign / self.length)[:, None]
        coef_l = (g_d * self.d / self.length)[:, None]
        return (coef_t * self.bc - coef_l * np.cross(self.b - self.c, self.nhat),
                coef_t * self.ca - coef_l * np.cross(self.c - self.a, self.nhat),
                coef_t * self.ab - coef_l * np.cross(self.a - self.b, self.nhat))


def kappa(units):
    n = len(units)
    if n <= 2:
        return float(n)
    points, tri = facets(units)
    return n * (1.0 - FacetPlanes(points, tri).d.min())


def objective(x, n, beta):
    """Soft maximum of n (1 - d_f) over the hull facets f, d_f the facet plane's distance."""
    raw = x.reshape(n, 3)
    length = np.linalg.norm(raw, axis=1)[:, None]
    units = raw / length
    points, tri = facets(units)
    plane = FacetPlanes(points, tri)
    e = n * (1.0 - plane.d)
    top = e.max()
    w = np.exp(beta * (e - top))
    total = w.sum()
    value = top + math.log(total) / beta
    # d(value)/d(d_f) = -n w_f / total
    grad_a, grad_b, grad_c = plane.gradients(-n * w / total)
    grad_points = np.zeros_like(points)
    np.add.at(grad_points, tri[:, 0], grad_a)
    np.add.at(grad_points, tri[:, 1], grad_b)
    np.add.at(grad_points, tri[:, 2], grad_c)
    grad_units = grad_points[:n] - grad_points[n:]
    # through the normalisation u = x / |x|
    radial = np.einsum("ij,ij->i", grad_units, units)[:, None]
    grad_x = (grad_units - radial * units) / length
    return value, grad_x.ravel()


def energy(x, n, s):
    """Riesz s-energy of the 2n points +-u: its minima are good starting sets."""
    raw = x.reshape(n, 3)
    length = np.linalg.norm(raw, axis=1)[:, None]
    units = raw / length
    points = np.vstack([units, -units])
    diff = points[:, None, :] - points[None, :, :]
    dist = np.linalg.norm(diff, axis=2)
    np.fill_diagonal(dist, np.inf)
    value = (dist ** -s).sum() / 2.0
    grad_points = ((-s * dist ** (-s - 2.0))[:, :, None] * diff).sum(axis=1)
    grad_units = grad_points[:n] - grad_points[n:]
    radial = np.einsum("ij,ij->i", grad_units, units)[:, None]
    return value, ((grad_units - radial * units) / length).ravel()


def minimax(x, n):
    for beta in (100.0, 300.0, 1000.0, 3000.0):
        x = minimize(objective, x, args=(n, beta), jac=True, method="L-BFGS-B",
                     options={"maxiter": 2000, "gtol": 1e-12, "ftol": 1e-15}).x
    raw = x.reshape(n, 3)
    units = raw / np.linalg.norm(raw, axis=1)[:, None]
    return units, kappa(units)


def facet_jacobian(units, tri):
    """Per hull facet f of the fixed triangulation `tri`: e_f = n (1 - d_f) and its gradient in the units."""
    n = len(units)
    plane = FacetPlanes(np.vstack([units, -units]), tri)
    jac = np.zeros((len(tri), 2 * n, 3))
    rows = np.arange(len(tri))
    for corner, grad in enumerate(plane.gradients(np.full(len(tri), -float(n)))):
        jac[rows, tri[:, corner]] += grad
    return n * (1.0 - plane.d), jac[:, :n] - jac[:, n:]


def polish(units, rounds=4):
    """The exact local minimax: minimise t with every facet's n (1 - d_f) <= t, the hull's
    triangulation held fixed during a solve and rebuilt between solves."""
    n = len(units)
    best, best_kappa = units, kappa(units)
    for _ in range(rounds):
        _, tri = facets(best)

        def constraints(z):
            raw = z[:-1].reshape(n, 3)
            return z[-1] - facet_jacobian(raw / np.linalg.norm(raw, axis=1)[:, None], tri)[0]

        def constraints_jac(z):
            raw = z[:-1].reshape(n, 3)
            length = np.linalg.norm(raw, axis=1)[:, None]
            u = raw / length
            _, jac = facet_jacobian(u, tri)
            radial = np.einsum("fij,ij->fi", jac, u)[:, :, None]
            jac_x = (jac - radial * u[None]) / length[None]
            return np.hstack([-jac_x.reshape(len(tri), 3 * n), np.ones((len(tri), 1))])

        z = np.append(best.ravel(), best_kappa)
        result = minimize(lambda z: z[-1], z, jac=lambda z: np.eye(1, len(z), len(z) - 1).ravel(), method="SLSQP",
                          constraints=[{"type": "ineq", "fun": constraints, "jac": constraints_jac}],
                          options={"maxiter": 500, "ftol": 1e-13})
        raw = result.x[:-1].reshape(n, 3)
        units = raw / np.linalg.norm(raw, axis=1)[:, None]
        k = kappa(units)
        if not k < best_kappa - 1e-10:
            break
        best, best_kappa = units, k
    return best, best_kappa


def hop(n, units, rng, hops):
    """Basin hopping from a set: move it (all directions a little, one to three anywhere, or a
    fresh random set), polish, and go on from the result when it covers better (now and then
    from a slightly worse one too, to leave a basin); the best set met is kept."""
    best, best_kappa = units, kappa(units)
    current, current_kappa = best, best_kappa
    for step in range(1, hops + 1):
        moved = current.copy()
        kind = rng.random()
        if kind < 0.4:
            moved += rng.normal(scale=rng.uniform(0.05, 0.4) / math.sqrt(n), size=moved.shape)
        elif kind < 0.8:
            chosen = rng.choice(n, size=rng.integers(1, 4), replace=False)
            moved[chosen] = rng.normal(size=(len(chosen), 3))
        else:
            moved = rng.normal(size=(n, 3))
        moved /= np.linalg.norm(moved, axis=1)[:, None]
        try:
            units, k = polish(moved, rounds=80)
        except (ValueError, np.linalg.LinAlgError, scipy.spatial.QhullError):
            continue
        if k < current_kappa - 1e-9 or (rng.random() < 0.05 and k < current_kappa + 0.01):
            current, current_kappa = units, k
        if k < best_kappa - 1e-9:
            best, best_kappa = units, k
            print(f"n={n:3d} hop {step} kappa={k:.4f}", file=sys.stderr, flush=True)
    return best, best_kappa


def optimise(n, rng, exponent, hops):
    """From a random start: the energy minimum, then the minimax, then a few random hops."""
    units = rng.normal(size=(n, 3))
    x = (units / np.linalg.norm(units, axis=1)[:, None]).ravel()
    x = minimize(energy, x, args=(n, exponent), jac=True, method="L-BFGS-B").x
    best, best_kappa = minimax(x, n)
    for _ in range(hops):
        moved = best.ravel() + rng.normal(scale=0.3 / math.sqrt(n), size=3 * n)
        units, k = minimax(moved, n)
        if k < best_kappa:
            best, best_kappa = units, k
    return best, best_kappa


def known(n):
    if n == 1:
        return np.array([[0.0, 0.0, 1.0]])
    if n == 2:
        return np.array([[1.0, 0.0, 0.0], [0.0, 0.0, 1.0]])
    if n == 3:
        return np.eye(3)
    if n == 6:
        phi = (1.0 + math.sqrt(5.0)) / 2.0
        axes = np.array([[0, 1, phi], [0, -1, phi], [1, phi, 0], [-1, phi, 0], [phi, 0, 1], [-phi, 0, 1]], float)
        return axes / np.linalg.norm(axes, axis=1)[:, None]
    return None


def best_for(job):
    n, restarts, seed = job
    fixed = known(n)
    if fixed is not None:
        return n, fixed, kappa(fixed)
    rng = np.random.default_rng(seed * 1000 + n)
    best, best_kappa = None, math.inf
    for start in range(restarts):
        units, k = optimise(n, rng, (0.5, 1.0, 2.0, 4.0)[start % 4], 2 if n <= 40 else 0)
        if k < best_kappa:
            best, best_kappa = units, k
    return n, best, best_kappa


def hop_from(job):
    n, units, hops, seed = job
    best, best_kappa = hop(n, units, np.random.default_rng(seed), hops)
    return n, best, best_kappa


def angles(units):
    upper = np.where(units[:, 2:3] < 0.0, -units, units)
    polar = np.arccos(np.clip(upper[:, 2], -1.0, 1.0))
    azimuth = np.mod(np.arctan2(upper[:, 1], upper[:, 0]), 2.0 * math.pi)
    return azimuth, polar


def read_table(path):
    """The sets of an existing table, as unit vectors by count, and its settings lines."""
    table, notes, current = {}, [], None
    with open(path) as source:
        for line in source:
            if line.startswith("// Settings") or line.startswith("// Improved"):
                notes.append(line.rstrip("\n"))
            elif line.startswith("KRV_COVERING("):
                current = int(line[len("KRV_COVERING("):].split(",")[0])
                table[current] = []
            elif current is not None and line.strip().startswith("{"):
                for pair in line.strip().rstrip(",)").split("}, {"):
                    azimuth, polar = (float(v) for v in pair.strip("{}").split(","))
                    table[current].append([math.sin(polar) * math.cos(azimuth), math.sin(polar) * math.sin(azimuth),
                                           math.cos(polar)])
    return {n: np.array(units) for n, units in table.items()}, notes


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--restarts", type=int, default=4)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--max", type=int, default=100)
    parser.add_argument("--improve", default="", help="comma-separated counts to re-optimise in the table")
    parser.add_argument("--hops", type=int, default=0,
                        help="with --improve: basin hops from the table's sets instead of new starts")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--out", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "src",
                                                      "SphereCoverings.inc"))
    options = parser.parse_args()
    counts = [int(n) for n in options.improve.split(",")] if options.improve else range(options.max, 0, -1)
    jobs = [(n, options.restarts if n <= 40 or options.improve else max(1, options.restarts // 2), options.seed)
            for n in counts]
    table, notes = read_table(options.out) if options.improve else ({}, [])
    if options.hops:
        jobs = [(n, table[n], options.hops, options.seed) for n in counts]
    with multiprocessing.Pool(options.jobs) as pool:
        found = sorted(pool.map(hop_from if options.hops else best_for, jobs, chunksize=1), key=lambda item: item[0])
    settings = f"// Settings: --restarts {options.restarts} --seed {options.seed}."
    how = f"--hops {options.hops}" if options.hops else f"--restarts {options.restarts}"
    if options.improve:
        for n, units, k in found:
            if k < kappa(table[n]) - 1e-9:
                table[n] = units
                notes.append(f"// Improved: n = {n} with {how} --seed {options.seed}.")
        found = [(n, units, kappa(units)) for n, units in sorted(table.items())]
        settings = "\n".join(notes)
    lines = ["// Generated by tools/gen_coverings.py; do not edit. Per count n: kappa reached, then",
             "// n directions as {azimuth, polar angle} in radians on the upper half sphere.",
             settings]
    for n, units, k in found:
        azimuth, polar = angles(units)
        lines.append(f"KRV_COVERING({n}, {k:.6f},")
        pairs = [f"{{{az!r}, {po!r}}}" for az, po in zip(azimuth.tolist(), polar.tolist())]
        for i in range(0, len(pairs), 2):
            lines.append("    " + ", ".join(pairs[i:i + 2]) + ("," if i + 2 < len(pairs) else ")"))
        print(f"n={n:3d} kappa={k:.4f}", file=sys.stderr)
    with open(options.out, "w") as out:
        out.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
