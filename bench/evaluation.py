"""One objective evaluation (`QAOA._loss_function`) on MaxCut of seeded random 3-regular graphs.

Per row (n qubits, p layers; exact probabilities, energy expectation): milliseconds per
evaluation (median), split into the machine's own timings (initial state; phase separators and
mixers, which share sweeps over memory and are reported together; the probability table), the
loss (the C++ expectation over all 2^n states) and the rest (Python, bindings, circuit
building, compilation); then peak memory of the row's own process, the achieved bandwidth and
the ratio to the floor: 2p + 1 read-and-write passes over the state at the copy bandwidth
measured in the same run (achieved GB/s = the floor's bytes / the time per evaluation).

Where the peer library QOKit is installed (`make bench-peers`), each double-precision row also
times its fastest CPU simulator on the same graph and angles, handed the 2^n cost vector
ready-made (so its time is simulation and expectation only, ours a whole `_loss_function` call),
and stops if the two energies differ by more than 1e-9. Angle conventions: our layer is
exp(+i b sum X) exp(-i g C); the peer's applies exp(-i b' X) per qubit after exp(-i g' C / 2), so
g' = 2 g and b' = -b.

Run: PYTHONPATH=python:build/dev/python python bench/evaluation.py [--sizes 16 20 24] [--layers 1 4]
     [--precision single] [--plain]
"""

import argparse
import json
import statistics
import subprocess
import sys
import time
import warnings

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import machine_line, maxcut_polynomial, median_seconds, peak_rss_bytes, random_regular_graph  # noqa: E402

PARTS = ("init", "layers", "probabilities", "loss", "rest")
PEER_AGREEMENT = 1e-9


def load_peer():
    """QOKit's fastest CPU simulator as (name, class), or None where it is not installed."""
    warnings.simplefilter("ignore")  # the peer's optional GPU stack warns on import
    try:
        from qokit.fur import choose_simulator, get_available_simulator_names
    except ImportError:
        return None
    name = next(s for s in get_available_simulator_names("x") if s in ("c", "python"))
    return name, choose_simulator(name)


def peer_objective(simulator, energies, p):
    """The peer's energy expectation as a function of our 2p angles (conventions above)."""
    sim = simulator(len(energies).bit_length() - 1, costs=np.asarray(energies, dtype=float))

    def energy(paras):
        return float(sim.get_expectation(sim.simulate_qaoa(2 * paras[:p], -paras[p:])))

    return energy


def peer_seconds(simulator, energies, paras, p, repeats):
    """The peer's time per evaluation and its energy; one timed call when a call takes >5 s."""
    energy = peer_objective(simulator, energies, p)
    start = time.perf_counter()
    value = energy(paras)
    seconds = time.perf_counter() - start
    if seconds < 5:
        seconds = median_seconds(lambda: energy(paras), repeats, warmup=0)
    return seconds, value


def measure_row(n, p, repeats, precision, plain):
    import corvid
    from corvid import diagonal
    from corvid_alg.QAOA.qaoa import QAOA

    if precision != "double":
        corvid.set_default_precision(precision)
    corvid.set_fusion_enabled(not plain)
    solver = QAOA(maxcut_polynomial(random_regular_graph(n, 3, seed=n), n))
    solver.layer, solver.shots, solver.loss_type = p, -1, "default"
    paras = np.random.default_rng(p).uniform(0, np.pi, 2 * p)
    solver._loss_function(paras)  # the first evaluation also computes all 2^n energies
    energies = solver.energy_dict.all_energies()

    totals, parts = [], {k: [] for k in PARTS}
    for _ in range(repeats):
        start = time.perf_counter()
        value = float(solver._loss_function(paras))
        totals.append(time.perf_counter() - start)
        t = corvid.last_run_timings()
        parts["init"].append(t["init"])
        parts["layers"].append(t["diagonal"] + t["layer"] + t["gates"])
        parts["probabilities"].append(t["probabilities"])
    # The loss alone, on a result of the same size.
    machine = corvid.CPUQVM()
    qubits = machine.qAlloc_many(n)
    result = machine.prob_run_dict(corvid.QProg() << corvid.hadamard_circuit(qubits), qubits)
    loss = median_seconds(lambda r=result: diagonal.expectation(r.probabilities, energies), repeats)
    machine.finalize()
    del result  # its table is as large as the state: n = 30 fits only one at a time
    out = {k: statistics.median(v) for k, v in parts.items() if v}
    out["loss"] = loss
    out["seconds"] = statistics.median(totals)
    out["rest"] = max(0.0, out["seconds"] - sum(out[k] for k in PARTS[:-1]))
    out["peak"] = peak_rss_bytes()
    out["value"] = value
    peer = load_peer() if precision == "double" else None
    if peer is not None:
        out["peer"], peer_value = peer_seconds(peer[1], energies, paras, p, repeats)
        if abs(peer_value - out["value"]) > PEER_AGREEMENT:
            sys.exit(f"energies disagree at n={n}, p={p}: ours {out['value']!r}, "
                     f"peer {peer_value!r}")
    return out


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[16, 20, 22, 24, 26])
    parser.add_argument("--layers", type=int, nargs="+", default=[1, 4])
    parser.add_argument("--repeats", type=int, default=5)
    parser.add_argument("--precision", choices=["double", "single"], default="double")
    parser.add_argument("--plain", action="store_true",
                        help="fusion off: every gate is its own pass (the reference path)")
    parser.add_argument("--row", type=int, nargs=2, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.row:
        print(json.dumps(measure_row(*args.row, args.repeats, args.precision, args.plain)))
        return

    import corvid
    bandwidth = corvid.measure_bandwidth()["copy"]
    item = 8 if args.precision == "single" else 16
    print(f"# _loss_function, MaxCut on random 3-regular graphs, exact, {args.precision} precision"
          f"{', fusion off' if args.plain else ''}; {machine_line()}, "
          f"{corvid.get_num_threads()} threads, {corvid.kernel_set()} kernels, "
          f"copy bandwidth {bandwidth / 1e9:.1f} GB/s")
    peer = load_peer() if args.precision == "double" else None
    if peer is not None:
        print(f"# peer: QOKit '{peer[0]}' simulator, same graphs and angles, energies agree "
              f"to {PEER_AGREEMENT:g}")
    peer_head, peer_rule = (" peer ms | peer / ours |", "--------:|------------:|") if peer else ("", "")
    print("|  n | p | ms / eval |  init | phase+mixer | probs |  loss |  rest | peak MiB "
          "| peak / state |  GB/s | floor ms | x floor |" + peer_head)
    print("|---:|--:|----------:|------:|------------:|------:|------:|------:|---------:"
          "|-------------:|------:|---------:|--------:|" + peer_rule)
    for n in args.sizes:
        for p in args.layers:
            cmd = [sys.executable, __file__, "--row", str(n), str(p), "--repeats",
                   str(args.repeats), "--precision", args.precision] + (["--plain"] if args.plain else [])
            out = subprocess.run(cmd, check=True, stdout=subprocess.PIPE, text=True).stdout
            row = json.loads(out.strip().splitlines()[-1])
            state = item * 2 ** n
            floor_bytes = (2 * p + 1) * 2 * state
            floor = floor_bytes / bandwidth
            ms = {k: row[k] * 1e3 for k in PARTS}
            print(f"| {n:2d} | {p} | {row['seconds'] * 1e3:9.1f} | {ms['init']:5.1f} "
                  f"| {ms['layers']:11.1f} | {ms['probabilities']:5.1f} | {ms['loss']:5.1f} "
                  f"| {ms['rest']:5.1f} | {row['peak'] / 2**20:8.0f} | {row['peak'] / state:12.2f} "
                  f"| {floor_bytes / row['seconds'] / 1e9:5.1f} | {floor * 1e3:8.1f} "
                  f"| {row['seconds'] / floor:7.1f} |"
                  + (f" {row['peer'] * 1e3:7.1f} | {row['peer'] / row['seconds']:11.1f} |"
                     if "peer" in row else ""), flush=True)


if __name__ == "__main__":
    main()
