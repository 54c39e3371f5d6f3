"""CVaR with sampling: score only the most likely fraction alpha of the measured outcomes.

The loss "CVaR" takes the sampled outcomes by descending frequency until alpha of the
probability mass is covered and sums frequency times energy over them (not divided by alpha).
With alpha < 1 the score depends only on the outcomes the circuit favours, so the optimiser is
rewarded for concentrating probability on low-energy strings rather than for a good average.
SPSA copes with the sampling noise. The problem is an Ising spin glass with random +-1 couplings
on a ring with chords, built with `ising_to_operator`.

Run: python examples/cvar_sampling.py [--quick]
"""

import sys

import numpy as np

from corvid_alg.QAOA.problems import ising_to_operator
from corvid_alg.QAOA.qaoa import QAOA


def spin_glass(n, rng):
    couplings = {(i, (i + 1) % n): rng.choice([-1.0, 1.0]) for i in range(n)}
    couplings.update({(i, (i + n // 2) % n): rng.choice([-1.0, 1.0]) for i in range(n // 2)})
    return ising_to_operator(np.zeros(n), couplings)


def ground_energy(qaoa):
    n = qaoa.problem_dimension
    return min(qaoa.calculate_energy([(k >> i) & 1 for i in range(n)]) for k in range(1 << n))


def main(quick=False):
    rng = np.random.default_rng(11)
    n = 8
    op = spin_glass(n, rng)
    iterations = 15 if quick else 150
    shots = 256 if quick else 1024
    ground = ground_energy(QAOA(op))
    print(f"spin glass on {n} spins, ground energy {ground:g}; {shots} shots per evaluation, "
          f"SPSA {iterations} iterations")
    found = {}
    for alpha in (1.0, 0.2):
        np.random.seed(5)
        qaoa = QAOA(op)
        _, angles, loss = qaoa.run(layer=2, shots=shots, loss_type="CVaR", alpha=alpha,
                                   optimizer="SPSA",
                                   optimizer_option={"maxiter": iterations, "seed": 1})
        # Judge the angles on the exact distribution rather than on one sample.
        exact = qaoa.run_qaoa_circuit(angles[:2], angles[2:], -1)
        energies = qaoa.energy_dict.all_energies()
        p_ground = float(exact.probabilities[np.isclose(energies, ground)].sum())
        found[alpha] = p_ground
        print(f"  alpha = {alpha:>3}: sampled CVaR {loss:+.3f}; exact probability of a ground "
              f"state {p_ground:.3f}")
    return {"ground": ground, "p_ground": found}


if __name__ == "__main__":
    main(quick="--quick" in sys.argv)
