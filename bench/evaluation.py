"""One objective evaluation (`QAOA._loss_function`) on MaxCut of seeded random 3-regular graphs.

Per row (n qubits, p layers; exact probabilities, energy expectation): milliseconds per
evaluation (median), the time spent outside the C++ kernels (Python, bindings, circuit
building), peak memory of the row's own process, and the ratio to the floor: 2p + 1
read-and-write passes over the state at the copy bandwidth measured in the same run.

Run: PYTHONPATH=python:build/dev/python python bench/evaluation.py [--sizes 16 20 24] [--layers 1 4]
"""

import argparse
import json
import subprocess
import sys

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import (machine_line, maxcut_polynomial, median_seconds,  # noqa: E402
                    peak_rss_bytes, random_regular_graph)


def measure_row(n, p, repeats):
    import corvid
    from corvid import diagonal
    from corvid_alg.QAOA.qaoa import QAOA

    solver = QAOA(maxcut_polynomial(random_regular_graph(n, 3, seed=n), n))
    solver.layer, solver.shots, solver.loss_type = p, -1, "default"
    paras = np.random.default_rng(p).uniform(0, np.pi, 2 * p)
    solver._loss_function(paras)  # the first evaluation also computes all 2^n energies
    total = median_seconds(lambda: solver._loss_function(paras), repeats, warmup=0)

    # The same work with the Python around it stripped: a prebuilt program and the C++ loss.
    machine = corvid.CPUQVM()
    qubits = machine.qAlloc_many(n)
    program = corvid.QProg() << solver._qaoa_circuit(qubits, paras[:p], paras[p:])
    energies = solver.energy_dict.all_energies()

    def kernels():
        result = machine.prob_run_dict(program, qubits, -1)
        diagonal.expectation(result.probabilities, energies)

    kernel = median_seconds(kernels, repeats, warmup=1)
    return {"seconds": total, "kernel_seconds": kernel, "peak": peak_rss_bytes()}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[16, 20, 24])
    parser.add_argument("--layers", type=int, nargs="+", default=[1, 4])
    parser.add_argument("--repeats", type=int, default=5)
    parser.add_argument("--row", type=int, nargs=2, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.row:
        print(json.dumps(measure_row(*args.row, args.repeats)))
        return

    import corvid
    bandwidth = corvid.measure_bandwidth()["copy"]
    print(f"# _loss_function, MaxCut on random 3-regular graphs, exact; {machine_line()}, "
          f"{corvid.get_num_threads()} threads, copy bandwidth {bandwidth / 1e9:.1f} GB/s")
    print("|  n | p | ms / eval | outside C++ | peak MiB | peak / state | floor ms | x floor |")
    print("|---:|--:|----------:|------------:|---------:|-------------:|---------:|--------:|")
    for n in args.sizes:
        for p in args.layers:
            out = subprocess.run([sys.executable, __file__, "--row", str(n), str(p),
                                  "--repeats", str(args.repeats)],
                                 check=True, capture_output=True, text=True).stdout
            row = json.loads(out.strip().splitlines()[-1])
            state = 16 * 2 ** n
            floor = (2 * p + 1) * 2 * state / bandwidth
            outside = max(0.0, 1 - row["kernel_seconds"] / row["seconds"])
            print(f"| {n:2d} | {p} | {row['seconds'] * 1e3:9.1f} | {outside * 100:10.1f}% "
                  f"| {row['peak'] / 2**20:8.0f} | {row['peak'] / state:12.2f} "
                  f"| {floor * 1e3:8.1f} | {row['seconds'] / floor:7.1f} |")


if __name__ == "__main__":
    main()
