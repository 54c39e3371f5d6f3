"""`make bench-peers`: our QAOA evaluation against a peer library's fastest CPU simulator.

The peer is QOKit (an optional benchmark dependency, never a requirement of this package). Both
evolve the same MaxCut instances (seeded random 3-regular graphs) with the same angles from the
uniform superposition, both return the energy expectation; the two must agree to 1e-9. The peer
is handed the 2^n cost vector ready-made, so its time is simulation and expectation only, while
ours is a whole `QAOA._loss_function` call (circuit building included).

Angle conventions: our layer is exp(+i b sum X) exp(-i g C); the peer's is exp(-i b' X) per qubit
after exp(-i g' C / 2), so g' = 2 g and b' = -b.

Run: PYTHONPATH=python:build/dev/python python bench/peers.py [--sizes 12 14 16] [--layers 1 4]
"""

import argparse
import sys
import time
import warnings

import numpy as np

sys.path.insert(0, __file__.rsplit("/", 1)[0])
from common import machine_line, maxcut_polynomial, median_seconds, random_regular_graph  # noqa: E402


def load_peer():
    warnings.simplefilter("ignore")  # the peer's optional GPU stack warns on import
    try:
        from qokit.fur import choose_simulator, get_available_simulator_names
    except ImportError:
        return None, None
    name = next(s for s in get_available_simulator_names("x") if s in ("c", "python"))
    return name, choose_simulator(name)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[12, 14, 16])
    parser.add_argument("--layers", type=int, nargs="+", default=[1, 4])
    parser.add_argument("--repeats", type=int, default=3)
    args = parser.parse_args()

    import corvid
    from corvid_alg.QAOA.qaoa import QAOA

    name, simulator = load_peer()
    if simulator is None:
        print("# peer not installed (pip install qokit); nothing to compare")
        return
    print(f"# QAOA evaluation vs QOKit '{name}' simulator; {machine_line()}, "
          f"{corvid.get_num_threads()} threads")
    if name == "python":
        print("# (QOKit's C simulator is not built by its PyPI release here; its fastest CPU "
              "simulator available is the Python one)")
    print("|  n | p | ours ms | peer ms | peer / ours | |ours - peer| |")
    print("|---:|--:|--------:|--------:|------------:|--------------:|")
    for n in args.sizes:
        for p in args.layers:
            solver = QAOA(maxcut_polynomial(random_regular_graph(n, 3, seed=n), n))
            solver.layer, solver.shots, solver.loss_type = p, -1, "default"
            paras = np.random.default_rng(p).uniform(0, np.pi, 2 * p)
            ours = solver._loss_function(paras)
            ours_s = median_seconds(lambda: solver._loss_function(paras), args.repeats)
            costs = np.asarray(solver.energy_dict.all_energies(), dtype=float)
            sim = simulator(n, costs=costs)
            gammas, betas = 2 * paras[:p], -paras[p:]

            def peer():
                return sim.get_expectation(sim.simulate_qaoa(gammas, betas))

            start = time.perf_counter()
            theirs = peer()
            peer_s = time.perf_counter() - start
            if peer_s < 5:
                peer_s = median_seconds(peer, args.repeats, warmup=0)
            diff = abs(ours - theirs)
            print(f"| {n:2d} | {p} | {ours_s * 1e3:7.2f} | {peer_s * 1e3:7.1f} "
                  f"| {peer_s / ours_s:11.1f} | {diff:13.1e} |", flush=True)
            if diff > 1e-9:
                sys.exit(f"energies disagree at n={n}, p={p}: {ours} vs {theirs}")


if __name__ == "__main__":
    main()
