"""Ready-made initial-state and mixer circuits for ``QAOA``.

Initial states are called as ``init_circuit(qubits)``, mixers as ``mixer_circuit(qubits,
angle)``, the signatures ``QAOA`` expects. ``QAOA`` passes angle = -2*beta, and every mixer here
applies exp(-i*angle/2*H_M), so a mixer at angle -2*beta is exp(+i*beta*H_M), like the default
RX(-2*beta) layer (H_M = sum_k X_k).

XY mixers keep the Hamming weight of a state, so with a one-hot (W) or Dicke initial state the
search stays inside the states that satisfy a one-hot / fixed-weight constraint.
"""

import math

import corvid

__all__ = ["uniform_superposition", "x_mixer", "xy_ring_mixer", "xy_complete_mixer",
           "dicke_state", "w_state"]


def uniform_superposition(qubits):
    """A Hadamard on every qubit: the equal superposition of all basis states."""
    return corvid.hadamard_circuit(qubits)


def x_mixer(qubits, angle):
    """RX(angle) on every qubit: exp(-i*angle/2 * sum_k X_k)."""
    return corvid.RX(qubits, angle)


def _xy_pair(a, b, angle):
    # XX and YY commute on one pair, so this is exactly exp(-i*angle/2 * (XX + YY)/2).
    return corvid.QCircuit() << corvid.RXX(a, b, angle / 2) << corvid.RYY(a, b, angle / 2)


def _xy_mixer(qubits, angle, pairs):
    circuit = corvid.QCircuit()
    for i, j in pairs:
        circuit << _xy_pair(qubits[i], qubits[j], angle)
    return circuit


def _ring_pairs(n):
    pairs = [(i, i + 1) for i in range(0, n - 1, 2)] + [(i, i + 1) for i in range(1, n - 1, 2)]
    if n > 2:
        pairs.append((n - 1, 0))
    return pairs


def _complete_pairs(n):
    return [(i, j) for i in range(n) for j in range(i + 1, n)]


def xy_ring_mixer(qubits, angle):
    """The XY mixer on a ring, H_M = sum_i (X_i X_i+1 + Y_i Y_i+1)/2 (indices mod n).

    The terms are applied as two rounds of disjoint pairs (even edges, then odd edges and
    the closing edge), the usual parity-partitioned form.
    """
    return _xy_mixer(qubits, angle, _ring_pairs(len(qubits)))


def xy_complete_mixer(qubits, angle):
    """The XY mixer on all pairs, H_M = sum_{i<j} (X_i X_j + Y_i Y_j)/2, pair by pair."""
    return _xy_mixer(qubits, angle, _complete_pairs(len(qubits)))


# The pair order of each XY mixer, for code that applies or differentiates it pair by pair.
XY_PAIRS = {xy_ring_mixer: _ring_pairs, xy_complete_mixer: _complete_pairs}


def _controlled_ry(control, target, theta):
    return (corvid.QCircuit() << corvid.RY(target, theta / 2) << corvid.CNOT(control, target)
            << corvid.RY(target, -theta / 2) << corvid.CNOT(control, target))


def _doubly_controlled_ry(control1, control2, target, theta):
    # X conjugation flips the sign of an RY, so the four quarter turns add up only when both
    # controls are 1.
    circuit = corvid.QCircuit()
    for control, sign in ((control2, 1), (control1, -1), (control2, 1), (control1, -1)):
        circuit << corvid.RY(target, sign * theta / 4) << corvid.CNOT(control, target)
    return circuit


def _split_and_cyclic_shift(qubits, m, k):
    """Block SCS_{m,k} of the deterministic Dicke-state preparation, on 1-based positions."""
    q = lambda position: qubits[position - 1]  # noqa: E731
    circuit = corvid.QCircuit()
    circuit << corvid.CNOT(q(m - 1), q(m))
    circuit << _controlled_ry(q(m), q(m - 1), 2 * math.acos(math.sqrt(1 / m)))
    circuit << corvid.CNOT(q(m - 1), q(m))
    for j in range(2, k + 1):
        circuit << corvid.CNOT(q(m - j), q(m))
        circuit << _doubly_controlled_ry(q(m), q(m - j + 1), q(m - j), 2 * math.acos(math.sqrt(j / m)))
        circuit << corvid.CNOT(q(m - j), q(m))
    return circuit


def dicke_state(k):
    """An initial-state function preparing the Dicke state |D(n, k)>: the equal superposition
    of all n-bit strings of Hamming weight k (deterministic, O(n*k) gates).

    >>> init = dicke_state(2)      # use as QAOA(problem, init_circuit=init, ...)
    """
    if not isinstance(k, int) or k < 0:
        raise ValueError(f"Hamming weight must be a non-negative integer, got {k!r}")

    def prepare(qubits):
        n = len(qubits)
        if k > n:
            raise ValueError(f"Hamming weight {k} exceeds the {n} qubits")
        circuit = corvid.QCircuit()
        if k == 0:
            return circuit
        for position in range(n - k, n):
            circuit << corvid.X(qubits[position])
        for m in range(n, k, -1):
            circuit << _split_and_cyclic_shift(qubits, m, k)
        for m in range(k, 1, -1):
            circuit << _split_and_cyclic_shift(qubits, m, m - 1)
        return circuit

    return prepare


def w_state(qubits):
    """The W state, the equal superposition of the n one-hot strings (Dicke weight 1)."""
    return dicke_state(1)(qubits)
