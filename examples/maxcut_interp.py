"""MaxCut of a 14-node 3-regular graph, growing the circuit layer by layer with INTERP.

The graph comes from the edge list examples/maxcut14.txt; `maxcut_operator` builds its
Hamiltonian in C++. Each depth starts from the INTERP guess made from the optimum one layer
shallower, which keeps every stage near a good optimum.

Run: python examples/maxcut_interp.py [--quick]
"""

import os
import sys

import numpy as np
from corvid import diagonal

from corvid_alg.QAOA.problems import maxcut_operator
from corvid_alg.QAOA.qaoa import QAOA

HERE = os.path.dirname(os.path.abspath(__file__))


def read_edges(path):
    with open(path) as f:
        return [tuple(int(v) for v in line.split()) for line in f
                if line.strip() and not line.startswith("#")]


def main(quick=False):
    np.random.seed(2026)
    edges = read_edges(os.path.join(HERE, "maxcut14.txt"))
    op = maxcut_operator(edges)
    n = op.getMaxIndex() + 1
    # The best cut, by brute force over all 2^14 energies (computed in C++).
    masks = np.array([sum(1 << q for q in m) for m, _ in op.toHamiltonian(True)], dtype=np.uint64)
    coeffs = np.array([c for _, c in op.toHamiltonian(True)])
    best_cut = -diagonal.energies_from_z_terms(n, masks, coeffs).min()

    layers = 2 if quick else 4
    qaoa = QAOA(op)
    angles = [0.4, 0.6]  # gamma, beta of the first layer
    print(f"MaxCut: {n} nodes, {len(edges)} edges, maximum cut {best_cut:g}")
    results = []
    for p in range(2, layers + 1):
        solutions, angles, loss = qaoa.run(layer=p, initial_para=angles, optimize_type="interp",
                                           optimizer_option={"options": {"maxiter": 20 if quick else 300}})
        top = next(iter(solutions))
        results.append(-loss / best_cut)
        print(f"  p = {p}: expected cut {-loss:.3f} (ratio {-loss / best_cut:.3f}); most likely "
              f"{top} with p = {solutions[top]:.3f}")
    return {"best_cut": best_cut, "ratios": results}


if __name__ == "__main__":
    main(quick="--quick" in sys.argv)
