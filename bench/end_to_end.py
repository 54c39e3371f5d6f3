"""`QAOA.run(layer=p)` on MaxCut of seeded random 3-regular graphs, exact probabilities, default
minimiser: total time, number of loss evaluations, and the share of time spent outside the
simulation (everything but the machine's runs: Python, scipy, circuit building, energies, loss).

Run: PYTHONPATH=python:build/dev/python python bench/end_to_end.py [--sizes 16 20] [--layers 1 2]
"""

import argparse
import json
import subprocess
import sys
import time

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import machine_line, maxcut_polynomial, peak_rss_bytes, random_regular_graph  # noqa: E402


def measure_row(n, p):
    import corvid
    from corvid_alg.QAOA.qaoa import QAOA

    simulated = [0.0]
    run_exact = corvid.CPUQVM.prob_run_dict

    def timed(machine, *args):
        start = time.perf_counter()
        try:
            return run_exact(machine, *args)
        finally:
            simulated[0] += time.perf_counter() - start

    corvid.CPUQVM.prob_run_dict = timed
    edges = random_regular_graph(n, 3, seed=n)
    solver = QAOA(maxcut_polynomial(edges, n))  # construction (sympy) is not timed
    np.random.seed(p)
    start = time.perf_counter()
    result, angles, loss = solver.run(layer=p)
    total = time.perf_counter() - start
    return {"seconds": total, "simulated": simulated[0], "evaluations": solver.iter,
            "cut": -loss, "edges": len(edges), "peak": peak_rss_bytes()}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[16, 20])
    parser.add_argument("--layers", type=int, nargs="+", default=[1, 2])
    parser.add_argument("--row", type=int, nargs=2, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.row:
        print(json.dumps(measure_row(*args.row)))
        return

    import corvid
    print(f"# QAOA.run on MaxCut of random 3-regular graphs, exact, L-BFGS-B; {machine_line()}, "
          f"{corvid.get_num_threads()} threads")
    print("|  n | p | total s | evaluations | ms / eval | outside simulation | expected cut / edges |")
    print("|---:|--:|--------:|------------:|----------:|-------------------:|---------------------:|")
    for n in args.sizes:
        for p in args.layers:
            out = subprocess.run([sys.executable, __file__, "--row", str(n), str(p)],
                                 check=True, capture_output=True, text=True).stdout
            row = json.loads(out.strip().splitlines()[-1])
            outside = 1 - row["simulated"] / row["seconds"]
            print(f"| {n:2d} | {p} | {row['seconds']:7.2f} | {row['evaluations']:11d} "
                  f"| {row['seconds'] / row['evaluations'] * 1e3:9.1f} | {outside * 100:17.1f}% "
                  f"| {row['cut']:.2f} / {row['edges']} |")


if __name__ == "__main__":
    main()
