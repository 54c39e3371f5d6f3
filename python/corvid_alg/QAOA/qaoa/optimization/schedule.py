"""Layer-by-layer optimisation with INTERP. A method of ``QAOA``."""

import numbers

import numpy as np

from .interpolation import parameter_interpolate


def _is_integer(value):
    return isinstance(value, numbers.Integral) and not isinstance(value, bool)


def _optimize_qaoa_parameter_interp(self, initial_para, start_layer=None, gamma_bounds=None,
                                    beta_bounds=None, **optimize_options):
    """Optimise at `start_layer` layers, interpolate to one more layer, optimise again, ... up to
    the object's ``layer``; return the final angles. Bounds are re-derived for every stage."""
    if start_layer is None:
        start_layer = 1
    if not _is_integer(start_layer):
        raise ValueError("start layer number should be a positive integer")
    if start_layer <= 0 or start_layer > self.layer:
        raise ValueError("start layer number should be a positive integer and less than final layer")
    final_layer = self.layer
    if initial_para is None:
        initial_para = np.random.random(2 * start_layer)
    para = initial_para
    for layer in range(start_layer, final_layer):
        para = para[:2 * layer]
        gamma_stage, beta_stage = self._check_bounds(para, gamma_bounds, beta_bounds)
        self.layer = layer
        optimized = self._optimize_qaoa_parameter_default(para, gamma_stage, beta_stage,
                                                          **optimize_options)
        para = parameter_interpolate(optimized)
    self.layer = final_layer
    gamma_stage, beta_stage = self._check_bounds(para, gamma_bounds, beta_bounds)
    return self._optimize_qaoa_parameter_default(para, gamma_stage, beta_stage, **optimize_options)
