"""Helpers of ``QAOA.loss_and_gradient`` and ``QAOA.evaluate``: the loss settings of a call,
the angle arrays, the ansatz as ``corvid.ansatz`` takes it, and central differences.

``corvid.ansatz`` runs the ansatz from its description (phase terms, mixer, initial circuit)
instead of a circuit per call. It knows the X mixer and the XY mixers of ``default_circuits``;
any other mixer goes through the circuit path.
"""

import numbers

import numpy as np

from .. import default_circuits
from . import losses

LOSS_NAMES = ("default", "CVaR", "Gibbs")


def loss_settings(loss_type, alpha, temperature):
    """(loss_type, alpha, temperature) checked as the losses check them; None picks the
    default ("default", 1, 1)."""
    loss_type = "default" if loss_type is None else loss_type
    alpha = 1 if alpha is None else alpha
    temperature = 1 if temperature is None else temperature
    if not isinstance(loss_type, str) or loss_type not in LOSS_NAMES:
        raise ValueError("wrong loss types, only support " + ", ".join(LOSS_NAMES))
    if loss_type == "CVaR":
        losses.check_unit_interval(alpha, losses.ALPHA_ERROR)
    if loss_type == "Gibbs":
        losses.check_unit_interval(temperature, losses.TEMPERATURE_ERROR)
        if temperature == 0:
            raise ValueError(losses.TEMPERATURE_ERROR)
    return loss_type, float(alpha), float(temperature)


def require_exact(shots, what):
    if isinstance(shots, numbers.Real) and shots > 0:
        raise ValueError(f"{what} needs exact probabilities: set shots to -1 (it is {shots})")


def angle_matrix(angles, what):
    """`angles` as a float array of rows of 2p angles (one vector is one row)."""
    matrix = np.asarray(angles, dtype=float)
    rows = matrix[None, :] if matrix.ndim == 1 else matrix
    if rows.ndim != 2 or rows.shape[1] < 2 or rows.shape[1] % 2:
        raise ValueError(f"{what} must hold 2p angles per vector (p gammas, then p betas), "
                         f"p >= 1; got shape {matrix.shape}")
    return rows


def ansatz_description(operator, num_qubits, mixer_circuit, init_circuit, build_initial):
    """The keyword arguments of ``corvid.ansatz`` for this ansatz, or None where it is not one
    that knows (a custom mixer, a Hamiltonian without qubit terms or with qubits beyond the
    register: the circuit path reports those)."""
    if operator is None or num_qubits < 1:
        return None
    if mixer_circuit in (None, default_circuits.x_mixer):
        pairs = None
    elif mixer_circuit in default_circuits.XY_PAIRS:
        pairs = default_circuits.XY_PAIRS[mixer_circuit](num_qubits)
    else:
        return None
    masks, coeffs = [], []
    for qubit_map, coefficient in operator:
        if not qubit_map:
            continue  # the constant only turns the global phase
        if max(qubit_map) >= num_qubits:
            return None
        masks.append(sum(1 << q for q in qubit_map))
        coeffs.append(float(np.real(coefficient)))
    if not masks:
        return None
    initial = None
    if init_circuit not in (None, default_circuits.uniform_superposition):
        initial = build_initial(list(range(num_qubits)))
    return dict(num_qubits=num_qubits, masks=np.array(masks, dtype=np.uint64),
                coeffs=np.array(coeffs, dtype=float), xy_pairs=pairs, initial=initial)


def central_differences(loss_of, paras, precision):
    """(loss, gradient) of `loss_of` at `paras` by central differences, 2 evaluations per
    angle; the step, the cube root of the epsilon of the state's `precision` ("single" or
    "double"), balances truncation against rounding."""
    eps = np.finfo(np.float32 if precision == "single" else np.float64).eps
    loss = float(loss_of(paras))
    gradient = np.empty(len(paras))
    for i in range(len(paras)):
        step = float(np.cbrt(eps)) * max(1.0, abs(paras[i]))
        up, down = paras.copy(), paras.copy()
        up[i] += step
        down[i] -= step
        gradient[i] = (loss_of(up) - loss_of(down)) / (2 * step)
    return loss, gradient
