"""Portfolio selection with a budget constraint as a penalty, solved with QAOA.

Choose exactly B of n assets, trading expected return against risk:

    minimise  q x^T S x - mu . x   subject to  sum x = B,

with S the covariance of the returns and q the risk aversion. QAOA minimises without
constraints, so the budget becomes the penalty P (sum x - B)^2, zero on every feasible choice
and at least P on the others; P larger than any gain from breaking the budget keeps the
optimum feasible. The whole objective is a QUBO matrix built with numpy, and
`qubo_to_operator` turns it into the Hamiltonian.

Run: python examples/portfolio_penalty.py [--quick]
"""

import itertools
import sys

import numpy as np

from corvid_alg.QAOA.problems import qubo_to_operator
from corvid_alg.QAOA.qaoa import QAOA

MU = np.array([0.10, 0.07, 0.15, 0.05, 0.09])  # expected returns
S = np.array([[0.050, 0.010, 0.030, 0.000, 0.010],  # covariance
              [0.010, 0.030, 0.000, 0.010, 0.000],
              [0.030, 0.000, 0.080, 0.010, 0.020],
              [0.000, 0.010, 0.010, 0.020, 0.000],
              [0.010, 0.000, 0.020, 0.000, 0.040]])
RISK_AVERSION = 0.5
BUDGET = 2


def portfolio_qubo(mu, cov, q, budget, penalty):
    """(Q, offset): x^T Q x + offset = q x^T S x - mu.x + penalty (sum x - budget)^2."""
    n = len(mu)
    ones = np.ones(n)
    # (1.x - B)^2 = x^T (1 1^T) x - 2B 1.x + B^2, and x_i^2 = x_i puts linear terms on the
    # diagonal.
    Q = q * cov + penalty * np.outer(ones, ones) + np.diag(-mu - 2 * penalty * budget * ones)
    return Q, penalty * budget ** 2


def objective(x):
    return RISK_AVERSION * x @ S @ x - MU @ x


def main(quick=False):
    np.random.seed(3)
    penalty = 2 * MU.max()  # more than adding or dropping one asset can gain
    Q, offset = portfolio_qubo(MU, S, RISK_AVERSION, BUDGET, penalty)
    scale = np.abs(Q).max()  # rescaling changes no minimiser, and keeps good gammas near 1
    qaoa = QAOA(qubo_to_operator(Q / scale, offset / scale))
    layers = 2 if quick else 3
    solutions, angles, loss = qaoa.run(layer=layers, optimizer="COBYLA",
                                       optimizer_option={"options": {"maxiter": 60 if quick else 300}})
    feasible_mass = sum(p for key, p in solutions.items() if key.count("1") == BUDGET)
    print(f"portfolio: {len(MU)} assets, choose {BUDGET}, penalty {penalty:g}; "
          f"{layers} layers, probability of a feasible choice {feasible_mass:.3f}")
    for rank, key in enumerate(list(solutions)[:4], 1):
        x = np.array([int(b) for b in reversed(key)])
        print(f"  {rank}. assets {np.flatnonzero(x).tolist()} objective {objective(x):+.4f}"
              f"{'' if x.sum() == BUDGET else ' (breaks the budget)'}  p = {solutions[key]:.3f}")
    best = min((c for c in itertools.product((0, 1), repeat=len(MU)) if sum(c) == BUDGET),
               key=lambda c: objective(np.array(c)))
    best_key = "".join(str(b) for b in reversed(best))
    print(f"  optimum by enumeration: assets {np.flatnonzero(best).tolist()}, "
          f"objective {objective(np.array(best)):+.4f}, p = {solutions[best_key]:.3f}")
    return {"most_likely": next(iter(solutions)), "optimum": best_key,
            "feasible_mass": feasible_mass}


if __name__ == "__main__":
    main(quick="--quick" in sys.argv)
