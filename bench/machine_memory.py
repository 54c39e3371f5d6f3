"""Time and peak memory of an exact run on the CPU machine: a Hadamard layer then an RX layer.

Prints the wall time per gate as a multiple of the time one read+write pass over the state must
take at the measured memory bandwidth, and the process's peak resident memory (VmHWM) as a
multiple of the state vector (16 * 2^n bytes). Exits non-zero when the peak reaches 2.5 state
vectors. Run: PYTHONPATH=python:build/<dir>/python python bench/machine_memory.py [--qubits 24]

With --qaoa N...: a table of QAOA's peak memory on MaxCut of a seeded random 3-regular graph,
each figure in a fresh process, as the growth of the peak resident memory over the process
after the solver's construction, in state vectors (16 or 8 * 2^n bytes): one evaluation of the
run's loss (``_loss_function``, p = 1, expectation), one ``QAOA.evaluate`` (double only: its
ansatz is double precision), a whole ``run`` (p = 1, COBYLA, 4 evaluations, the most likely
solution read from the result) and ``solve`` of the same (its summary included). Every figure
counts the energies' level table, made on first use.
"""

import argparse
import json
import subprocess
import sys
import time

import numpy as np

import corvid


def vm_hwm_bytes():
    with open("/proc/self/status") as f:
        for line in f:
            if line.startswith("VmHWM:"):
                return int(line.split()[1]) * 1024
    raise RuntimeError("VmHWM not found in /proc/self/status")


def qaoa_figure(n, precision, what):
    """Peak resident memory growth (bytes) of one QAOA call in this fresh process."""
    sys.path.insert(0, __file__.rsplit("/", 1)[0])
    from common import maxcut_polynomial, random_regular_graph, status_bytes
    from corvid_alg.QAOA.qaoa import QAOA

    corvid.set_default_precision(precision)
    solver = QAOA(maxcut_polynomial(random_regular_graph(n, 3, seed=n), n))
    angles = np.array([0.3, 0.4])
    with open("/proc/self/clear_refs", "w") as refs:
        refs.write("5")  # the peak restarts from here
    before = status_bytes("VmRSS")
    if what == "loss":
        solver.layer, solver.shots, solver.loss_type = 1, -1, "default"
        solver._loss_function(angles)
    elif what == "evaluate":
        solver.evaluate(angles)
    elif what == "solve":
        from corvid_alg.QAOA import solve
        solve(solver.problem, 1, initial_para=angles, optimizer="COBYLA",
              optimizer_option={"options": {"maxiter": 4}})
    else:
        solutions, _, _ = solver.run(layer=1, initial_para=angles, optimizer="COBYLA",
                                     optimizer_option={"options": {"maxiter": 4}})
        next(iter(solutions))
    return status_bytes("VmHWM") - before


def qaoa_table(sizes):
    columns = [("double", "loss"), ("double", "evaluate"), ("double", "run"), ("double", "solve"),
               ("single", "loss"), ("single", "run"), ("single", "solve")]
    print(f"# peak RSS growth / state vector, MaxCut on random 3-regular graphs, p = 1; "
          f"{corvid.get_num_threads()} threads")
    print("| n | " + " | ".join(f"{precision}: {what}" for precision, what in columns) + " |")
    print("|--:|" + "--:|" * len(columns))
    for n in sizes:
        cells = []
        for precision, what in columns:
            cmd = [sys.executable, __file__, "--figure", str(n), precision, what]
            out = subprocess.run(cmd, check=True, stdout=subprocess.PIPE, text=True).stdout
            state = (16 if precision == "double" else 8) * 2 ** n
            cells.append(f"{json.loads(out.strip().splitlines()[-1]) / state:.2f}")
        print(f"| {n:2d} | " + " | ".join(cells) + " |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--qubits", type=int, default=24)
    parser.add_argument("--limit", type=float, default=2.5, help="allowed peak / state vector")
    parser.add_argument("--qaoa", type=int, nargs="+", help="QAOA peak memory table for these n")
    parser.add_argument("--figure", nargs=3, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.figure:
        n, precision, what = args.figure
        print(json.dumps(qaoa_figure(int(n), precision, what)))
        return 0
    if args.qaoa:
        qaoa_table(args.qaoa)
        return 0
    n = args.qubits
    state_bytes = 16 * 2**n
    baseline = vm_hwm_bytes()

    qvm = corvid.CPUQVM()
    q = qvm.qAlloc_many(n)
    prog = corvid.QProg() << corvid.hadamard_circuit(q) << corvid.RX(q, 0.4)
    start = time.perf_counter()
    result = qvm.prob_run_dict(prog, q, -1)
    seconds = time.perf_counter() - start
    peak = vm_hwm_bytes()
    assert abs(result.probabilities.sum() - 1.0) < 1e-9
    assert np.allclose(result.probabilities[:8], 2.0**-n)
    qvm.finalize()
    del result

    # Measured after the run so that its buffers do not count towards the peak above.
    bandwidth = corvid.measure_bandwidth(bytes_per_array=min(state_bytes, 256 << 20))
    floor = 2 * state_bytes / bandwidth["copy"]  # one read + one write of every amplitude
    gates = 2 * n

    mib = 2**20
    print(f"qubits                     {n}")
    print(f"threads                    {corvid.get_num_threads()}")
    print(f"state vector               {state_bytes / mib:.0f} MiB")
    print(f"bandwidth copy / triad     {bandwidth['copy'] / 1e9:.1f} / {bandwidth['triad'] / 1e9:.1f} GB/s")
    print(f"one read+write pass        {floor * 1e3:.1f} ms (floor at the copy bandwidth)")
    print(f"exact run ({gates} gates)       {seconds:.3f} s")
    print(f"per gate                   {seconds / gates * 1e3:.1f} ms = {seconds / gates / floor:.2f} passes")
    print(f"peak memory (VmHWM)        {peak / mib:.0f} MiB = {peak / state_bytes:.2f} x state vector")
    print(f"  of which before the run  {baseline / mib:.0f} MiB (interpreter, numpy, corvid)")
    if peak >= args.limit * state_bytes:
        print(f"FAIL: peak memory is not under {args.limit} x the state vector")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
