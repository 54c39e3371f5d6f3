"""Time to solution, not per evaluation: whole optimisations of MaxCut on seeded random
3-regular graphs from the same starts, by optimiser and starting angles.

Columns: evaluations (`iter`), circuit runs (`circuit_iter`), state passes, wall seconds, final
loss and the approximation ratio of the expected cut (-loss / maximum cut, the maximum from the
energy table). State passes count the work in evaluations: a plain evaluation or circuit run is
one; a gradient call is its measured cost, the time of one `loss_and_gradient` over one
`_loss_function` at the same n, p and start, best of several calls taken in turns in the same
run (printed above each group).

Where the peer library QOKit is installed (`make bench-peers`), each case also runs its
simulator with scipy's COBYLA from the same start on the same energies (one row, "QOKit +
COBYLA"; the adapter and angle conventions of bench/evaluation.py); its evaluations are its
own, each counted as one state pass.

Run: PYTHONPATH=python:build/dev/python python bench/time_to_target.py [--sizes 16] [--layers 2 4]
"""

import argparse
import sys
import time

import numpy as np
from scipy.optimize import minimize

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import machine_line, maxcut_polynomial, random_regular_graph  # noqa: E402
from corvid_alg.QAOA import angles  # noqa: E402
from corvid_alg.QAOA.qaoa import QAOA  # noqa: E402
from evaluation import load_peer, peer_objective  # noqa: E402

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


def gradient_cost(problem, initial, rounds=5):
    """One gradient's time in evaluations: best of `rounds` calls each, taken in turns."""
    solver = QAOA(problem)
    solver.layer, solver.shots, solver.loss_type = len(initial) // 2, -1, "default"
    x = np.asarray(initial, dtype=float)
    solver.loss_and_gradient(x)
    best = {"evaluation": np.inf, "gradient": np.inf}
    for _ in range(rounds):
        for kind, call in (("evaluation", solver._loss_function), ("gradient", solver.loss_and_gradient)):
            began = time.perf_counter()
            call(x)
            best[kind] = min(best[kind], time.perf_counter() - began)
    return best["gradient"] / best["evaluation"]


def peer_run(peer, energies, initial):
    """The peer's simulator under scipy COBYLA (its defaults, our unbounded box), from `initial`."""
    p = len(initial) // 2
    energy = peer_objective(peer, energies, p)
    calls = 0

    def counted(x):
        nonlocal calls
        calls += 1
        return energy(x)

    began = time.perf_counter()
    result = minimize(counted, np.asarray(initial, dtype=float), method="COBYLA",
                      bounds=[(-np.inf, np.inf)] * (2 * p))
    return calls, time.perf_counter() - began, float(result.fun)


def row(n, p, label, start, evaluations, runs, passes, seconds, loss, max_cut):
    print(f"| {n} | {p} | {label} | {start} | {evaluations} | {runs} | {passes:.0f} "
          f"| {seconds:.2f} | {loss:.6f} | {-loss / max_cut:.4f} |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[16])
    parser.add_argument("--layers", type=int, nargs="+", default=[2, 4])
    args = parser.parse_args()
    peer = load_peer()
    print(f"# time to target: MaxCut on random 3-regular graphs, exact; {machine_line()}"
          + (f"; peer: QOKit '{peer[0]}' simulator" if peer else ""))
    print("|  n | p | optimizer | start | evaluations | circuit runs | state passes | wall s "
          "| final loss | ratio |")
    print("|---:|--:|---|---|--:|--:|--:|--:|--:|--:|")
    for n in args.sizes:
        problem = maxcut_polynomial(random_regular_graph(n, 3, seed=n), n)
        energies = QAOA(problem).energy_dict.all_energies()
        max_cut = -float(np.min(energies))
        for p in args.layers:
            for start, initial in starts(p).items():
                cost = gradient_cost(problem, initial)
                print(f"# n={n} p={p} {start}: one gradient = {cost:.2f} evaluations", flush=True)
                for label, optimizer, options in OPTIMIZERS:
                    solver = QAOA(problem)
                    began = time.perf_counter()
                    _, _, loss = solver.run(layer=p, initial_para=list(initial), optimizer=optimizer,
                                            optimizer_option=options)
                    seconds = time.perf_counter() - began
                    gradients = solver.iter if options else 0
                    passes = solver.circuit_iter - gradients + gradients * cost
                    row(n, p, label, start, solver.iter, solver.circuit_iter, passes, seconds,
                        loss, max_cut)
                if peer is not None:
                    calls, seconds, loss = peer_run(peer[1], energies, initial)
                    row(n, p, "QOKit + COBYLA", start, calls, calls, calls, seconds, loss, max_cut)


if __name__ == "__main__":
    main()
