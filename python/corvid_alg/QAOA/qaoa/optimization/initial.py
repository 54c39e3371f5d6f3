"""The layer check and the starting angles. A method of ``QAOA``."""

import numpy as np

from .schedule import _is_integer


def _random_angles(count):
    return np.random.random(count) * np.pi


def _check_layer_and_generate_initial_para(self, layer=1, initial_para=None):
    """Validate `layer`, store it, and return (starting angles, start layer).

    "default": the starting vector fitted to 2*layer angles (cut, or extended with random angles
    in [0, pi)), or drawn at random; the start layer is None. "interp": `initial_para` unchanged
    and its layer count, which must be below `layer`. Other optimize types return None.
    """
    if not _is_integer(layer) or layer <= 0:
        raise ValueError("layer number must be a positive integer")
    if self.optimize_type == "default":
        if initial_para is None:
            self.layer = layer
            return _random_angles(2 * layer), None
        given = len(initial_para) // 2
        self.layer = layer
        if given == layer:
            return initial_para[:2 * layer], None
        if given > layer:
            return np.concatenate((initial_para[:layer], initial_para[given:given + layer])), None
        return np.concatenate((initial_para[:given], _random_angles(layer - given),
                               initial_para[given:], _random_angles(layer - given))), None
    if self.optimize_type == "interp":
        if initial_para is None:
            raise ValueError("Interpolation method requires initial parameters.")
        self.layer = layer
        start_layer = len(initial_para) // 2
        if start_layer >= self.layer:
            raise ValueError("Interpolation method initial parameter size should less than final layer.")
        return initial_para, start_layer
    return None
