"""Time to solution, not per evaluation: whole optimisations of MaxCut on seeded random
3-regular graphs from the same starts, by optimiser and starting angles.

Columns: evaluations (`iter`), circuit runs (`circuit_iter`), wall seconds, final loss and the
approximation ratio of the expected cut (-loss / maximum cut, the maximum from the energy table).

Run: PYTHONPATH=python:build/dev/python python bench/time_to_target.py [--sizes 16] [--layers 2 4]
"""

import argparse
import sys
import time

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import machine_line, maxcut_polynomial, random_regular_graph  # noqa: E402
from corvid_alg.QAOA import angles  # noqa: E402
from corvid_alg.QAOA.qaoa import QAOA  # noqa: E402

# (label, optimizer, optimizer options)
OPTIMIZERS = [
    ("L-BFGS-B, differences", None, None),
    ("L-BFGS-B, exact gradient", None, {"jac": True}),
    ("COBYLA", "COBYLA", None),
]


def starts(p):
    rng = np.random.default_rng(p)
    return {"random": rng.uniform(0, np.pi, 2 * p), "tqa": angles.tqa(p, 1.0),
            "fixed": angles.fixed_angles(3, p)}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[16])
    parser.add_argument("--layers", type=int, nargs="+", default=[2, 4])
    args = parser.parse_args()
    print(f"# time to target: MaxCut on random 3-regular graphs, exact; {machine_line()}")
    print("|  n | p | optimizer | start | evaluations | circuit runs | wall s | final loss | ratio |")
    print("|---:|--:|---|---|--:|--:|--:|--:|--:|")
    for n in args.sizes:
        problem = maxcut_polynomial(random_regular_graph(n, 3, seed=n), n)
        max_cut = -float(np.min(QAOA(problem).energy_dict.all_energies()))
        for p in args.layers:
            for start, initial in starts(p).items():
                for label, optimizer, options in OPTIMIZERS:
                    solver = QAOA(problem)
                    began = time.perf_counter()
                    _, _, loss = solver.run(layer=p, initial_para=list(initial), optimizer=optimizer,
                                            optimizer_option=options)
                    seconds = time.perf_counter() - began
                    print(f"| {n} | {p} | {label} | {start} | {solver.iter} | {solver.circuit_iter} "
                          f"| {seconds:.2f} | {loss:.6f} | {-loss / max_cut:.4f} |", flush=True)


if __name__ == "__main__":
    main()
