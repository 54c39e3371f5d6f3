"""Time and peak memory of an exact run on the CPU machine: a Hadamard layer then an RX layer.

Prints the wall time per gate as a multiple of the time one read+write pass over the state must
take at the measured memory bandwidth, and the process's peak resident memory (VmHWM) as a
multiple of the state vector (16 * 2^n bytes). Exits non-zero when the peak reaches 2.5 state
vectors. Run: PYTHONPATH=python:build/<dir>/python python bench/machine_memory.py [--qubits 24]
"""

import argparse
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


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--qubits", type=int, default=24)
    parser.add_argument("--limit", type=float, default=2.5, help="allowed peak / state vector")
    args = parser.parse_args()
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
