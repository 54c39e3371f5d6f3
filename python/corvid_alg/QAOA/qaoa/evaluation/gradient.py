"""The public objective: exact gradients and batched losses. Methods of ``QAOA``.

Both run the ansatz in C++ from its description (phase terms, energies of all basis states,
mixer, initial circuit) instead of building a circuit per call. The X mixer and the XY mixers
of ``default_circuits`` are known there; any other mixer goes through the circuit path.
"""

import numbers

import numpy as np
from corvid import ansatz

from ... import default_circuits
from .losses import _ALPHA_ERROR, _TEMPERATURE_ERROR, _check_unit_interval

_LOSS_NAMES = ("default", "CVaR", "Gibbs")
_SHOTS_ERROR = ("{} needs exact probabilities: set shots to -1 (the object's shots is {})")


def _settings(self, loss_type, alpha, temperature):
    """The loss settings of one call: the argument, else the object's run settings, else the
    defaults; checked like the losses check them."""
    loss_type = loss_type if loss_type is not None else (self.loss_type or "default")
    alpha = alpha if alpha is not None else (1 if self.alpha is None else self.alpha)
    temperature = temperature if temperature is not None else (
        1 if self.temperature is None else self.temperature)
    if not isinstance(loss_type, str) or loss_type not in _LOSS_NAMES:
        raise ValueError("wrong loss types, only support " + ", ".join(_LOSS_NAMES))
    if loss_type == "CVaR":
        _check_unit_interval(alpha, _ALPHA_ERROR)
    if loss_type == "Gibbs":
        _check_unit_interval(temperature, _TEMPERATURE_ERROR)
        if temperature == 0:
            raise ValueError(_TEMPERATURE_ERROR)
    return loss_type, float(alpha), float(temperature)


def _require_exact(self, what):
    shots = self.shots
    if isinstance(shots, numbers.Real) and shots > 0:
        raise ValueError(_SHOTS_ERROR.format(what, shots))


def _angles(paras):
    paras = np.asarray(paras, dtype=float)
    if paras.ndim != 1 or len(paras) < 2 or len(paras) % 2:
        raise ValueError("paras must hold 2p angles (p gammas, then p betas), p >= 1; "
                         f"got shape {paras.shape}")
    return paras


def _description(self):
    """The keyword arguments of ``corvid.ansatz`` for this problem, or None where the ansatz
    is not one it knows (a custom mixer, an energy table that does not cover the register)."""
    cached = getattr(self, "_ansatz_description", None)
    key = (self.mixer_circuit, self.init_circuit)
    if cached is not None and cached[0] == key:
        return cached[1]
    description = _build_description(self)
    self._ansatz_description = (key, description)
    return description


def _build_description(self):
    n = self.problem_dimension
    if self.operator is None or n < 1 or not self._energy_model.whole_space:
        return None
    if self.mixer_circuit in (None, default_circuits.x_mixer):
        pairs = None
    elif self.mixer_circuit in default_circuits.XY_PAIRS:
        pairs = default_circuits.XY_PAIRS[self.mixer_circuit](n)
    else:
        return None
    masks, coeffs = [], []
    for qubit_map, coefficient in self.operator:
        if not qubit_map:
            continue  # the constant only turns the global phase
        if max(qubit_map) >= n:
            return None  # the circuit path reports it
        masks.append(sum(1 << q for q in qubit_map))
        coeffs.append(float(np.real(coefficient)))
    initial = None
    if self.init_circuit not in (None, default_circuits.uniform_superposition):
        initial = self._init_circuit(list(range(n)))
    return dict(num_qubits=n, masks=np.array(masks, dtype=np.uint64),
                coeffs=np.array(coeffs, dtype=float), xy_pairs=pairs, initial=initial)


def _circuit_loss(self, paras, settings):
    """The loss through the circuit path with `settings`; the object's settings are restored."""
    saved = (self.loss_type, self.alpha, self.temperature, self.layer, self.shots)
    self.loss_type, self.alpha, self.temperature = settings
    self.layer = len(paras) // 2
    self.shots = -1
    try:
        return self._loss_function(paras)
    finally:
        self.loss_type, self.alpha, self.temperature, self.layer, self.shots = saved


def loss_and_gradient(self, paras, *, loss_type=None, alpha=None, temperature=None):
    """The loss at `paras` and its gradient, exactly (shots must be -1).

    paras: 2p angles, p gammas then p betas; the layer count is read from the length.
    loss_type, alpha, temperature: the loss, as in ``run``; each left out falls back to the
    object's run settings, then to the defaults ("default", 1, 1).

    Returns (loss, gradient), gradient a numpy array of the 2p partial derivatives in the order
    of `paras`. With the X mixer or the XY mixers of ``default_circuits`` (any initial state)
    the gradient is exact, by adjoint differentiation in double precision: about three
    evaluations' time and two states of memory, counted as one evaluation (``iter``) and one
    circuit run (``circuit_iter``). With any other mixer it falls back to central differences
    (two evaluations per angle, each counted).
    """
    _require_exact(self, "loss_and_gradient")
    paras = _angles(paras)
    settings = _settings(self, loss_type, alpha, temperature)
    description = _description(self)
    if description is None:
        return _central_differences(self, paras, settings)
    loss, gradient = ansatz.loss_and_gradient(
        energies=self.energy_dict.all_energies(), angles=paras, loss=settings[0],
        alpha=settings[1], temperature=settings[2], **description)
    self.iter += 1
    self.circuit_iter += 1
    return float(loss), gradient


def _central_differences(self, paras, settings):
    loss = float(_circuit_loss(self, paras, settings))
    gradient = np.empty(len(paras))
    for i in range(len(paras)):
        step = 6e-6 * max(1.0, abs(paras[i]))
        up, down = paras.copy(), paras.copy()
        up[i] += step
        down[i] -= step
        gradient[i] = (_circuit_loss(self, up, settings) - _circuit_loss(self, down, settings)) / (
            2 * step)
    return loss, gradient


def evaluate(self, angle_matrix, *, loss_type=None, alpha=None, temperature=None):
    """The losses of k angle vectors at once (shots must be -1).

    angle_matrix: k x 2p array, one vector (p gammas, then p betas) per row; p is read from
    the width. A single vector counts as one row. Loss settings fall back as in
    ``loss_and_gradient``.

    Returns a numpy array of k losses. Known ansatzes (see ``loss_and_gradient``) run in one
    C++ call, small registers one vector per thread; others row by row through the circuit.
    Each row counts as one evaluation and one circuit run.
    """
    _require_exact(self, "evaluate")
    matrix = np.asarray(angle_matrix, dtype=float)
    if matrix.ndim == 1:
        matrix = matrix[None, :]
    if matrix.ndim != 2 or matrix.shape[1] < 2 or matrix.shape[1] % 2:
        raise ValueError("angle_matrix must be a k x 2p array (p gammas, then p betas per row), "
                         f"got shape {matrix.shape}")
    settings = _settings(self, loss_type, alpha, temperature)
    description = _description(self)
    if description is None:
        return np.array([float(_circuit_loss(self, row, settings)) for row in matrix])
    losses = ansatz.losses(energies=self.energy_dict.all_energies(), angles=matrix,
                           loss=settings[0], alpha=settings[1], temperature=settings[2],
                           **description)
    self.iter += len(matrix)
    self.circuit_iter += len(matrix)
    return losses
