"""The angle vector and its optimisation helpers: bounds, starting angles, INTERP.

A vector of 2p angles holds the p gammas first, then the p betas.
"""

import numbers
from typing import NamedTuple

import numpy as np
from scipy.interpolate import barycentric_interpolate as b_interp  # noqa: F401  (replaceable)
from scipy.optimize import OptimizeResult

SHAPE_ERROR = "Shape of parameter bounds should be same with the layer"


def is_integer(value):
    return isinstance(value, numbers.Integral) and not isinstance(value, bool)


def _is_pair(bounds):
    return len(bounds) == 2 and all(
        end is None or (isinstance(end, numbers.Real) and not isinstance(end, bool))
        for end in bounds)


def layer_bounds(bounds, layers):
    """One (lower, upper) pair per layer.

    None means unbounded; one pair, alone or in a list, applies to every layer; a longer list
    is cut; a list shorter than the layer count (other than a single pair) is an error.
    """
    if bounds is None:
        return [(-np.inf, np.inf)] * layers
    if _is_pair(bounds):
        return [tuple(bounds)] * layers
    if len(bounds) == 1:
        return [bounds[0]] * layers
    if len(bounds) < layers:
        raise ValueError(SHAPE_ERROR)
    if len(bounds) > layers:
        return bounds[:layers]
    return bounds


def random_angles(count):
    return np.random.random(count) * np.pi


def fit_angles(initial_para, layer):
    """The starting vector fitted to 2*layer angles: random in [0, pi) when absent, else its
    first `layer` gammas and betas, extended at the end of each half by random angles."""
    if initial_para is None:
        return random_angles(2 * layer)
    given = len(initial_para) // 2
    if given == layer:
        return initial_para[:2 * layer]
    if given > layer:
        return np.concatenate((initial_para[:layer], initial_para[given:given + layer]))
    return np.concatenate((initial_para[:given], random_angles(layer - given),
                           initial_para[given:], random_angles(layer - given)))


# Minimisers that estimate a gradient by forward differences with an absolute step `eps`.
_DIFFERENCING = {"L-BFGS-B", "BFGS", "CG", "TNC", "SLSQP"}


def with_difference_step(method, options, precision):
    """`options` for `method`, with a step that suits the state's precision when the method
    estimates gradients by differences. scipy's default step (about 1e-8) is far below the
    rounding of a single-precision loss (about 1e-7 of its size): every difference is noise
    and the minimiser stops at its start as if converged. The step sqrt(eps) of float32 balances
    rounding against truncation. Double precision keeps scipy's defaults exactly.
    """
    name = "L-BFGS-B" if method is None else method
    if precision != "single" or not isinstance(name, str) or name.upper() not in _DIFFERENCING \
            or options.get("jac") is not None:
        return options
    inner = dict(options.get("options") or {})
    inner.setdefault("eps", float(np.sqrt(np.finfo(np.float32).eps)))
    return {**options, "options": inner}


def reject_duplicates(options, reserved):
    for key in options:
        if key in reserved:
            raise TypeError(f"function() got multiple values for keyword argument '{key}'")


def parameter_interpolate(pm):
    """Guess the 2(p+1) angles of a (p+1)-layer circuit from the 2p angles `pm` of p layers.

    The gammas (and separately the betas) are read as samples of a smooth profile at the nodes
    cos(pi*k/p) and re-sampled by polynomial interpolation (``b_interp``, looked up here at call
    time) at cos(pi*k/(p+1)); the first angle of each half is kept. One layer (p = 1) prints a
    warning and returns [g, g/2, b/2, b].

    >>> parameter_interpolate([0.1, 0.2, 0.2, 0.1])
    array([0.1 , 0.15, 0.25, 0.2 , 0.15, 0.05])
    """

    def interp_x(n):
        return np.cos(np.pi * np.arange(n) / n)

    p = len(pm) // 2
    gammas = pm[:p]
    betas = pm[p:]
    if p == 1:
        print("warning of one-element interpolation")
        return np.append([gammas[0], gammas[0] / 2], [betas[0] / 2, betas[0]])
    old_nodes = interp_x(p)
    new_nodes = interp_x(p + 1)
    return np.append(b_interp(old_nodes, gammas, new_nodes), b_interp(old_nodes, betas, new_nodes))


class Evaluation(NamedTuple):
    """One loss evaluation of a run: the angle vector (a copy) and its loss."""

    angles: np.ndarray
    loss: float


def lowest(history):
    """The evaluation of least loss in `history` (the first of equals), or None."""
    return min(history, key=lambda evaluation: evaluation.loss, default=None)


def spsa_result(x, evaluations):
    """SPSA returns only its final vector; this wraps it like scipy's result."""
    return OptimizeResult(x=np.asarray(x), nfev=evaluations, success=True,
                          message="SPSA finished its iterations")


def stopped_result(best, evaluations, error):
    """The result of a minimiser stopped by `error`: the best evaluated point so far."""
    return OptimizeResult(
        x=None if best is None else best.angles, fun=None if best is None else best.loss,
        nfev=evaluations, success=False,
        message=f"stopped by {type(error).__name__}" + (f": {error}" if str(error) else ""))
