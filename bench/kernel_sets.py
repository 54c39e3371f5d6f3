"""Kernel sets compared on one objective evaluation (`QAOA._loss_function`), interleaved.

MaxCut of seeded random 3-regular graphs, exact probabilities, as in evaluation.py. The named sets
take turns, one evaluation each, in the same process (`corvid.set_kernel_set`), so they share the
binary, the state and the machine's load; a set's time is its best evaluation, the fairest
reading on a shared machine. Per row: ms per evaluation and the machine's phase+mixer passes (the part the
sets differ in) for each set, and each set's ratio to the first (below 1: faster).

Run: PYTHONPATH=python:build/dev/python python bench/kernel_sets.py [--sizes 16 18 20]
     [--layers 1 4] [--precision double single] [--sets avx2 avx512] [--rounds 30]
"""

import argparse
import sys
import time

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import machine_line, maxcut_polynomial, random_regular_graph  # noqa: E402


def best_times(n, p, precision, sets, rounds):
    """{set: (seconds per evaluation, seconds of phase+mixer passes)}, best round of each."""
    import corvid
    from corvid_alg.QAOA.qaoa import QAOA

    corvid.set_default_precision(precision)
    solver = QAOA(maxcut_polynomial(random_regular_graph(n, 3, seed=n), n))
    solver.layer, solver.shots, solver.loss_type = p, -1, "default"
    paras = np.random.default_rng(p).uniform(0, np.pi, 2 * p)
    best = {s: (float("inf"), float("inf")) for s in sets}
    values = {}
    solver._loss_function(paras)  # the first call also computes the energies and the diagonal
    for _ in range(rounds):
        for s in sets:
            corvid.set_kernel_set(s)
            start = time.perf_counter()
            values[s] = float(solver._loss_function(paras))
            seconds = time.perf_counter() - start
            t = corvid.last_run_timings()
            passes = t["diagonal"] + t["layer"] + t["gates"]
            best[s] = (min(best[s][0], seconds), min(best[s][1], passes))
    spread = max(values.values()) - min(values.values())
    if spread > (1e-9 if precision == "double" else 1e-3) * max(1.0, abs(values[sets[0]])):
        sys.exit(f"kernel sets disagree at n={n}, p={p}: {values}")
    return best


def main():
    import corvid

    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[16, 18, 20])
    parser.add_argument("--layers", type=int, nargs="+", default=[1, 4])
    parser.add_argument("--precision", nargs="+", default=["double", "single"])
    parser.add_argument("--sets", nargs="+", default=[s for s in corvid.kernel_sets()
                                                      if s != "scalar"])
    parser.add_argument("--rounds", type=int, default=30, help="evaluations per set")
    args = parser.parse_args()
    base, others = args.sets[0], args.sets[1:]
    print(f"# _loss_function per kernel set, best of {args.rounds} evaluations each, the sets "
          f"taking turns; {machine_line()}, {corvid.get_num_threads()} threads")
    head = "| precision |  n | p | " + " | ".join(f"{s} ms | {s} passes ms" for s in args.sets)
    head += "".join(f" | {s} / {base} | passes {s} / {base}" for s in others) + " |"
    print(head)
    print("|" + "---:|" * (head.count("|") - 1))
    for precision in args.precision:
        for n in args.sizes:
            for p in args.layers:
                best = best_times(n, p, precision, args.sets, args.rounds)
                cells = [f"{best[s][0] * 1e3:.2f} | {best[s][1] * 1e3:.2f}" for s in args.sets]
                ratios = [f"{best[s][0] / best[base][0]:.2f} | {best[s][1] / best[base][1]:.2f}"
                          for s in others]
                print(f"| {precision} | {n} | {p} | " + " | ".join(cells + ratios) + " |",
                      flush=True)


if __name__ == "__main__":
    main()
