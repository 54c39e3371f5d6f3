"""Per-layer bounds of the angles. A method of ``QAOA``."""

import numpy as np

_SHAPE_ERROR = "Shape of parameter bounds should be same with the layer"


def _layer_bounds(bounds, layers):
    if bounds is None:
        return [(-np.inf, np.inf)] * layers
    if len(bounds) == 1:
        return [bounds[0]] * layers
    if len(bounds) < layers:
        raise ValueError(_SHAPE_ERROR)
    if len(bounds) > layers:
        return bounds[:layers]
    return bounds


def _check_bounds(self, initial_para, gamma_bounds, beta_bounds):
    """One (lower, upper) pair per layer for the gammas and for the betas of `initial_para`.

    None means unbounded, a single pair applies to every layer, a longer list is cut; a list
    shorter than the layer count (other than a single pair) is an error.
    """
    layers = len(initial_para) // 2
    return _layer_bounds(gamma_bounds, layers), _layer_bounds(beta_bounds, layers)
