"""Exact gradients and batched losses against plain evaluations.

Table 1: MaxCut on seeded random 3-regular graphs, exact, double precision; the best of --repeats
rounds that take the three calls in turn. "evaluation" is one
`QAOA._loss_function` (circuit built and run on the machine, loss in C++); "forward" one row of
`QAOA.evaluate` (the same ansatz run from its description); "gradient" one
`QAOA.loss_and_gradient` (loss and all 2p partials). Ratios are gradient over evaluation and
over forward; "extra" is the peak memory a call adds above the resident problem, in states
(16 * 2^n bytes).

Table 2: a 50 x 50 p=1 landscape at n = 14 with one `evaluate` call, against a loop of
`_loss_function`.

Table 3: `run(layer=p, optimizer="L-BFGS-B")` from the same start, with and without
`optimizer_option={"jac": True}`: loss evaluations, circuit runs, wall time, final loss.

Run: PYTHONPATH=python:build/dev/python python bench/gradient.py [--sizes 20 22] [--layers 1 4]
"""

import argparse
import subprocess
import sys
import time

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import (  # noqa: E402
    best_seconds_in_turns,
    machine_line,
    maxcut_polynomial,
    peak_rss_bytes,
    random_regular_graph,
    reset_peak_rss,
    status_bytes,
)


def memory_probe(n, p, kind):
    """In a fresh process (no pooled buffers, no cached diagonal): the peak memory one call
    adds above the resident problem and its energy table, in states."""
    solver = solver_for(n)
    solver.layer = p
    solver.energy_dict.all_energies()
    paras = np.random.default_rng(p).uniform(0, 1, 2 * p)
    before = status_bytes("VmRSS")
    reset_peak_rss()
    if kind == "evaluation":
        solver._loss_function(paras)
    else:
        solver.loss_and_gradient(paras)
    print((peak_rss_bytes() - before) / (16 << n))


def extra_states(n, p, kind):
    out = subprocess.run([sys.executable, __file__, "--memory-probe", str(n), str(p), kind],
                         check=True, capture_output=True, text=True).stdout
    return float(out.split()[-1])


def solver_for(n, seed=1):
    from corvid_alg.QAOA.qaoa import QAOA

    solver = QAOA(maxcut_polynomial(random_regular_graph(n, 3, seed=seed), n))
    solver.shots, solver.loss_type = -1, "default"
    return solver


def gradient_table(sizes, layers, repeats):
    print("# MaxCut, random 3-regular, exact, double; " + machine_line())
    print(f"{'n':>3} {'p':>3} {'evaluation ms':>14} {'forward ms':>11} {'gradient ms':>12} "
          f"{'grad/eval':>10} {'grad/fwd':>9} {'eval extra':>11} {'grad extra':>11}")
    for n in sizes:
        solver = solver_for(n)
        solver.energy_dict.all_energies()
        for p in layers:
            paras = np.random.default_rng(p).uniform(0, 1, 2 * p)
            solver.layer = p

            t_eval, t_fwd, t_grad = best_seconds_in_turns(
                [lambda s=solver, x=paras: s._loss_function(x),
                 lambda s=solver, x=paras: s.evaluate(x[None, :]),
                 lambda s=solver, x=paras: s.loss_and_gradient(x)], repeats)
            m_eval = extra_states(n, p, "evaluation")
            m_grad = extra_states(n, p, "gradient")
            print(f"{n:>3} {p:>3} {t_eval * 1e3:>14.1f} {t_fwd * 1e3:>11.1f} "
                  f"{t_grad * 1e3:>12.1f} {t_grad / t_eval:>10.2f} {t_grad / t_fwd:>9.2f} "
                  f"{m_eval:>11.2f} {m_grad:>11.2f}", flush=True)


def landscape_table():
    n, side = 14, 50
    solver = solver_for(n)
    solver.layer = 1
    gammas, betas = np.meshgrid(np.linspace(0, np.pi, side), np.linspace(0, np.pi / 2, side))
    grid = np.column_stack([gammas.ravel(), betas.ravel()])
    solver.evaluate(grid[:4])
    start = time.perf_counter()
    batched = solver.evaluate(grid)
    t_batch = time.perf_counter() - start
    start = time.perf_counter()
    looped = [solver._loss_function(row) for row in grid[:250]]
    t_loop = (time.perf_counter() - start) * len(grid) / 250
    assert np.allclose(batched[:250], looped, atol=1e-10)
    print(f"\n# landscape {side} x {side}, p=1, n={n}")
    print(f"{'evaluate() s':>13} {'_loss_function loop s':>22}")
    print(f"{t_batch:>13.3f} {t_loop:>22.3f}  (loop timed over 250 points, scaled)")


def optimisation_table(n, layers):
    print(f"\n# run(optimizer='L-BFGS-B'), MaxCut n={n}, same start")
    print(f"{'p':>3} {'jac':>5} {'evaluations':>12} {'circuit runs':>13} {'wall s':>8} "
          f"{'final loss':>12}")
    for p in layers:
        start_angles = np.random.default_rng(7).uniform(0.1, 0.6, 2 * p)
        for jac in (False, True):
            solver = solver_for(n, seed=3)
            option = {"jac": True} if jac else {}
            start = time.perf_counter()
            _, _, loss = solver.run(layer=p, initial_para=start_angles, optimizer="L-BFGS-B",
                                    optimizer_option=option)
            wall = time.perf_counter() - start
            print(f"{p:>3} {str(jac):>5} {solver.iter:>12} {solver.circuit_iter:>13} "
                  f"{wall:>8.2f} {loss:>12.6f}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[20, 22])
    parser.add_argument("--layers", type=int, nargs="+", default=[1, 4])
    parser.add_argument("--repeats", type=int, default=5)
    parser.add_argument("--optimise-n", type=int, default=14)
    parser.add_argument("--memory-probe", nargs=3, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.memory_probe:
        n, p, kind = args.memory_probe
        return memory_probe(int(n), int(p), kind)
    gradient_table(args.sizes, args.layers, args.repeats)
    landscape_table()
    optimisation_table(args.optimise_n, [2, 4])


if __name__ == "__main__":
    main()
