"""A one-hot constraint kept by the circuit itself: a W initial state and an XY mixer.

Place one task in one of n time slots (x_i = 1: the task runs in slot i). With the usual X
mixer the constraint sum x = 1 would need a penalty, and probability would leak to invalid
strings. Started in the W state (the equal superposition of the n one-hot strings), the XY
mixer only moves weight between one-hot strings, so every outcome is a valid schedule and the
cost needs no penalty at all: it is just the cost of each slot, sum c_i x_i.

Run: python examples/xy_mixer_onehot.py [--quick]
"""

import sys

import numpy as np
import sympy

from corvid_alg.QAOA.qaoa import QAOA, w_state, x_mixer, xy_ring_mixer

SLOT_COSTS = [4.0, 2.5, 1.0, 3.0, 2.0, 3.5]


def main(quick=False):
    np.random.seed(1)
    n = len(SLOT_COSTS)
    xs = sympy.symbols(f"s0:{n}")  # names sort as s0 .. s5, so slot i is qubit i
    cost = sum(c * x for c, x in zip(SLOT_COSTS, xs))
    layers = 2 if quick else 4
    option = {"options": {"maxiter": 60 if quick else 300}}
    print(f"one task, {n} slots with costs {SLOT_COSTS}; {layers} layers")
    summary = {}
    for name, init, mixer in (("W state + XY ring mixer", w_state, xy_ring_mixer),
                              ("Hadamards + X mixer", None, x_mixer)):
        qaoa = QAOA(cost, init_circuit=init, mixer_circuit=mixer)
        solutions, angles, loss = qaoa.run(layer=layers, optimizer="COBYLA",
                                           optimizer_option=option)
        valid = sum(p for key, p in solutions.items() if key.count("1") == 1)
        best = next(iter(solutions))
        print(f"  {name}: probability on one-hot strings {valid:.4f}; most likely {best} "
              f"(p = {solutions[best]:.3f})")
        summary[name] = {"valid": valid, "best": best}
    cheapest = "".join("1" if i == int(np.argmin(SLOT_COSTS)) else "0" for i in reversed(range(n)))
    print(f"  cheapest slot: {cheapest}")
    return summary | {"cheapest": cheapest}


if __name__ == "__main__":
    main(quick="--quick" in sys.argv)
