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

Needs numpy and scipy. The whole table takes about 11 CPU minutes (6 on two idle cores);
--improve re-optimises only the listed counts, from other starts, and keeps a new set only
where it covers better than the table's.
"""
import argparse
import math
import multiprocessing
import os
import sys

import numpy as np
from scipy.optimize import minimize
from scipy.spatial import ConvexHull


def facets(units):
    points = np.vstack([units, -units])
    return points, ConvexHull(points).simplices


def kappa(units):
    n = len(units)
    if n <= 2:
        return float(n)
    points, tri = facets(units)
    a, b, c = points[tri[:, 0]], points[tri[:, 1]], points[tri[:, 2]]
    normal = np.cross(a, b) + np.cross(b, c) + np.cross(c, a)
    d = np.abs(np.einsum("ij,ij->i", a, np.cross(b, c))) / np.linalg.norm(normal, axis=1)
    return n * (1.0 - d.min())


def objective(x, n, beta):
    """Soft maximum of n (1 - d_f) over the hull facets f, d_f the facet plane's distance."""
    raw = x.reshape(n, 3)
    length = np.linalg.norm(raw, axis=1)[:, None]
    units = raw / length
    points, tri = facets(units)
    a, b, c = points[tri[:, 0]], points[tri[:, 1]], points[tri[:, 2]]
    bc, ca, ab = np.cross(b, c), np.cross(c, a), np.cross(a, b)
    normal = ab + bc + ca
    big_l = np.linalg.norm(normal, axis=1)
    triple = np.einsum("ij,ij->i", a, bc)
    sign = np.sign(triple)
    d = sign * triple / big_l
    e = n * (1.0 - d)
    top = e.max()
    w = np.exp(beta * (e - top))
    total = w.sum()
    value = top + math.log(total) / beta
    # d(value)/d(d_f) = -n w_f / total
    g_d = -n * w / total
    nhat = normal / big_l[:, None]
    coef_t = (g_d * sign / big_l)[:, None]
    coef_l = (g_d * d / big_l)[:, None]
    grad_a = coef_t * bc - coef_l * np.cross(b - c, nhat)
    grad_b = coef_t * ca - coef_l * np.cross(c - a, nhat)
    grad_c = coef_t * ab - coef_l * np.cross(a - b, nhat)
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
    parser.add_argument("--out", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "src",
                                                      "SphereCoverings.inc"))
    options = parser.parse_args()
    counts = [int(n) for n in options.improve.split(",")] if options.improve else range(options.max, 0, -1)
    jobs = [(n, options.restarts if n <= 40 or options.improve else max(1, options.restarts // 2), options.seed)
            for n in counts]
    with multiprocessing.Pool(2) as pool:
        found = sorted(pool.map(best_for, jobs, chunksize=1), key=lambda item: item[0])
    settings = f"// Settings: --restarts {options.restarts} --seed {options.seed}."
    if options.improve:
        table, notes = read_table(options.out)
        for n, units, k in found:
            if k < kappa(table[n]) - 1e-9:
                table[n] = units
                notes.append(f"// Improved: n = {n} with --restarts {options.restarts} --seed {options.seed}.")
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
