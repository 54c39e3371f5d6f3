"""Threads as a user meets them: small problems in tight loops and worker pools, on a quiet
machine and beside a competing busy process.

Rows: a loop of 400 p=1 evaluations (`QAOA._loss_function`) of a 14-node MaxCut, and a
`multiprocessing.Pool(2)` solving 8 such problems with `run(layer=2)`; each with the library's
default threads and with one thread (`corvid.set_num_threads(1)`), with and without one other
process keeping a core busy. "default / one" is the price of leaving the default alone: near 1
means the default never hurts.

Run: PYTHONPATH=python:build/dev/python python bench/threads.py [--evaluations 400]
"""

import argparse
import multiprocessing
import os
import subprocess
import sys
import time

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import machine_line, maxcut_polynomial, random_regular_graph  # noqa: E402

N = 14
PROBLEMS = 8


def problem(seed):
    from corvid_alg.QAOA.qaoa import QAOA

    return QAOA(maxcut_polynomial(random_regular_graph(N, 3, seed=seed), N))


def loop_seconds(evaluations, one_thread):
    import corvid

    if one_thread:
        corvid.set_num_threads(1)
    solver = problem(1)
    solver.layer, solver.shots, solver.loss_type = 1, -1, "default"
    rng = np.random.default_rng(0)
    solver._loss_function(rng.uniform(0, np.pi, 2))
    start = time.perf_counter()
    for _ in range(evaluations):
        solver._loss_function(rng.uniform(0, np.pi, 2))
    return time.perf_counter() - start


def solve_one(args):
    seed, one_thread = args
    import corvid

    if one_thread:
        corvid.set_num_threads(1)
    np.random.seed(seed)
    return problem(seed).run(layer=2)[2]


def pool_seconds(one_thread):
    start = time.perf_counter()
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        pool.map(solve_one, [(seed, one_thread) for seed in range(PROBLEMS)])
    return time.perf_counter() - start


def busy_process():
    """One process that keeps a core busy until killed."""
    return subprocess.Popen([sys.executable, "-c", "while True: pass"])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--evaluations", type=int, default=400)
    args = parser.parse_args()

    import corvid

    print(f"# threads: n = {N} MaxCut, {machine_line()}, default {corvid.get_num_threads()} "
          f"threads, OMP_NUM_THREADS={os.environ.get('OMP_NUM_THREADS', 'unset')}")
    print("| case | competing process | default s | one thread s | default / one |")
    print("|---|---|---:|---:|---:|")
    cases = {"loop": f"loop of {args.evaluations} p=1 evaluations",
             "pool": f"Pool(2) over {PROBLEMS} run(layer=2)"}
    for case, title in cases.items():
        for competing in (False, True):
            busy = busy_process() if competing else None
            try:
                seconds = [run_isolated(case, one, args.evaluations) for one in (False, True)]
            finally:
                if busy is not None:
                    busy.kill()
                    busy.wait()
            print(f"| {title} | {'yes' if competing else 'no'} | {seconds[0]:.2f} "
                  f"| {seconds[1]:.2f} | {seconds[0] / seconds[1]:.2f} |", flush=True)


def run_isolated(case, one_thread, evaluations):
    """One measurement in a fresh process, so that a thread setting cannot leak into the next."""
    call = f"loop_seconds({evaluations}, {one_thread})" if case == "loop" else f"pool_seconds({one_thread})"
    here = os.path.dirname(os.path.abspath(__file__))
    code = f"import sys; sys.path.insert(0, {here!r}); import threads; print(threads.{call})"
    out = subprocess.run([sys.executable, "-c", code], check=True, stdout=subprocess.PIPE,
                         text=True).stdout
    return float(out.strip().splitlines()[-1])


if __name__ == "__main__":
    main()
