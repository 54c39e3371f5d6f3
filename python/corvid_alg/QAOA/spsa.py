"""SPSA: simultaneous perturbation stochastic approximation (Spall).

Each iteration estimates the whole gradient from two evaluations of the objective at
x +- c_k*delta, with delta a random +-1 vector, and steps by a_k along it. The gains follow
Spall's sequences a_k = a / (A + k + 1)**alpha and c_k = c / (k + 1)**gamma with his standard
exponents alpha = 0.602 and gamma = 0.101. Robust to noisy objectives (sampled losses).
"""

import numpy as np

__all__ = ["spsa_minimize"]


def spsa_minimize(fun, x0, bounds=None, maxiter=100, a=None, c=0.1, A=None, alpha=0.602,
                  gamma=0.101, target_step=0.2, calibration_samples=5, seed=None, callback=None):
    """Minimise `fun` from `x0` by SPSA and return the final vector (numpy array).

    fun: objective, a function of one vector returning a real.
    x0: starting vector.
    bounds: optional sequence of (low, high) pairs, one per coordinate; None or +-inf ends
        leave that side open. Iterates are clipped into the box and the objective is only
        evaluated inside it.
    maxiter: number of iterations (two evaluations each).
    a: step gain; None calibrates it so that the first step moves coordinates by about
        `target_step`, from the mean gradient magnitude over `calibration_samples` estimates
        (two evaluations each) at x0.
    c: perturbation size at the first iteration (about the objective's noise level).
    A: stability constant of the step sequence; None uses 10% of `maxiter`.
    alpha, gamma: exponents of the step and perturbation sequences.
    seed: seed of the generator drawing the perturbations (None: fresh entropy).
    callback: called as callback(xk) after every iteration.

    >>> import numpy as np
    >>> x = spsa_minimize(lambda v: float(np.sum((v - 1.0) ** 2)), [0.0, 0.0], maxiter=300, seed=1)
    >>> bool(np.allclose(x, 1.0, atol=0.05))
    True
    """
    x = np.array(x0, dtype=float)
    if maxiter < 0 or calibration_samples < 1 or c <= 0:
        raise ValueError("maxiter must be >= 0, calibration_samples >= 1 and c > 0")
    low, high = _box(bounds, len(x))
    rng = np.random.default_rng(seed)
    stability = 0.1 * maxiter if A is None else A
    x = np.clip(x, low, high)

    def gradient(point, size):
        # Probe symmetrically around a centre pulled inside the box, so both probes are feasible
        # and the difference stays an unbiased slope estimate next to a bound.
        sizes = np.minimum(size, (high - low) / 2)
        centre = np.clip(point, low + sizes, high - sizes)
        delta = rng.choice((-1.0, 1.0), size=len(point)) * (sizes > 0)
        difference = fun(centre + sizes * delta) - fun(centre - sizes * delta)
        steps = np.where(sizes > 0, 2.0 * sizes * delta, 1.0)
        return np.where(sizes > 0, difference / steps, 0.0)

    if a is None:
        magnitude = np.mean([np.mean(np.abs(gradient(x, c))) for _ in range(calibration_samples)])
        a = target_step * (stability + 1) ** alpha / (magnitude if magnitude > 0 else 1.0)
    for k in range(maxiter):
        step = a / (stability + k + 1) ** alpha
        size = c / (k + 1) ** gamma
        x = np.clip(x - step * gradient(x, size), low, high)
        if callback is not None:
            callback(x)
    return x


def _box(bounds, dimension):
    """Lower and upper limit arrays of the bounds; open sides are +-inf."""
    if bounds is None:
        return np.full(dimension, -np.inf), np.full(dimension, np.inf)
    if len(bounds) != dimension:
        raise ValueError(f"bounds has {len(bounds)} pairs for {dimension} coordinates")
    low = np.array([-np.inf if lo is None else lo for lo, _ in bounds], dtype=float)
    high = np.array([np.inf if hi is None else hi for _, hi in bounds], dtype=float)
    crossed = np.flatnonzero(low > high)
    if len(crossed):
        i = int(crossed[0])
        raise ValueError(f"bounds of coordinate {i}: lower bound {low[i]:g} is above the upper "
                         f"bound {high[i]:g}")
    return low, high
