"""Solve two small problems end to end: a three-variable polynomial and MaxCut on a 3-regular
graph of 14 nodes. Run with `make demo`."""

import numpy as np
import sympy

from corvid_alg.QAOA.qaoa import QAOA

EDGES_14 = [(0, 1), (0, 7), (0, 13), (1, 2), (1, 8), (2, 3), (2, 9), (3, 4), (3, 10), (4, 5),
            (4, 11), (5, 6), (5, 12), (6, 7), (6, 13), (7, 8), (8, 9), (9, 10), (10, 11),
            (11, 12), (12, 13)]


def cut_size(key, edges):
    bits = key[::-1]  # qubit 0 is the right-most character
    return sum(bits[i] != bits[j] for i, j in edges)


def main():
    np.random.seed(2026)
    x0, x1, x2 = sympy.symbols("x0 x1 x2")
    problem = 2 * x0 * x1 + 3 * x2 - 1
    solutions, angles, loss = QAOA(problem).run(layer=2)
    print(f"minimise {problem}")
    for key, probability in list(solutions.items())[:3]:
        print(f"  x2 x1 x0 = {key}  p = {probability:.4f}")
    print(f"  angles {np.round(angles, 4)}, expected value {loss:.4f}\n")

    xs = sympy.symbols("x0:14")
    maxcut = sum(-(xs[i] + xs[j] - 2 * xs[i] * xs[j]) for i, j in EDGES_14)
    solutions, angles, loss = QAOA(maxcut).run(layer=3, initial_para=[0.4, 0.6],
                                               optimize_type="interp")
    best = next(iter(solutions))
    print(f"MaxCut of a 3-regular graph with 14 nodes and {len(EDGES_14)} edges, 3 layers (INTERP)")
    print(f"  expected cut {-loss:.3f}; most likely cut {best} cuts {cut_size(best, EDGES_14)} edges"
          f" (p = {solutions[best]:.4f})")


if __name__ == "__main__":
    main()
