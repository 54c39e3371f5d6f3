"""An independent numpy simulator used as the oracle of the machine tests.

The state is a tensor of shape (2,) * n whose axis n-1-q is qubit q, so that flattening it in C
order gives the usual vector (bit q of the index is qubit q). Each gate is a small matrix written
out by hand and contracted with np.tensordot; only sdk_circuit, which builds the machine's side, calls corvid.
"""

import numpy as np

_R = 1 / np.sqrt(2)
_I2 = np.eye(2, dtype=complex)
_X = np.array([[0, 1], [1, 0]], dtype=complex)
_Y = np.array([[0, -1j], [1j, 0]], dtype=complex)
_Z = np.array([[1, 0], [0, -1]], dtype=complex)

_FIXED = {
    "I": _I2,
    "H": np.array([[_R, _R], [_R, -_R]], dtype=complex),
    "X": _X,
    "Y": _Y,
    "Z": _Z,
    "S": np.array([[1, 0], [0, 1j]]),
    "T": np.array([[1, 0], [0, np.exp(1j * np.pi / 4)]]),
    # Two-qubit matrices act on |a b> with the gate's first qubit as the left (major) factor.
    "CNOT": np.array([[1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 0, 1], [0, 0, 1, 0]], dtype=complex),
    "CZ": np.diag([1, 1, 1, -1]).astype(complex),
    "SWAP": np.array([[1, 0, 0, 0], [0, 0, 1, 0], [0, 1, 0, 0], [0, 0, 0, 1]], dtype=complex),
}

ONE, ONE_ANGLED = ["I", "H", "X", "Y", "Z", "S", "T"], ["RX", "RY", "RZ", "P"]
TWO, TWO_ANGLED = ["CNOT", "CZ", "SWAP"], ["RXX", "RYY", "RZZ"]


def _rotation(pauli, angle):
    """exp(-i angle P / 2) = cos(angle/2) I - i sin(angle/2) P for a Pauli product P (P^2 = I)."""
    return np.cos(angle / 2) * np.eye(len(pauli)) - 1j * np.sin(angle / 2) * pauli


def gate_matrix(name, params=()):
    """The gate's 2x2 or 4x4 matrix (for two qubits: first qubit is the major factor)."""
    if name in _FIXED:
        return _FIXED[name]
    (angle,) = params
    if name == "P":
        return np.diag([1, np.exp(1j * angle)])
    pauli = {"RX": _X, "RY": _Y, "RZ": _Z, "RXX": np.kron(_X, _X), "RYY": np.kron(_Y, _Y),
             "RZZ": np.kron(_Z, _Z)}[name]
    return _rotation(pauli, angle)


def apply(state, n, name, qubits, params=()):
    """Applies one gate to a flat state vector of n qubits; returns the new vector."""
    k = len(qubits)
    tensor = state.reshape((2,) * n)
    axes = [n - 1 - q for q in qubits]
    m = gate_matrix(name, params).reshape((2,) * (2 * k))
    out = np.tensordot(m, tensor, axes=(list(range(k, 2 * k)), axes))
    # tensordot puts the gate's output axes first; move them back where the qubits live.
    out = np.moveaxis(out, list(range(k)), axes)
    return out.reshape(-1)


def simulate(gates, n):
    """|0...0> evolved by gates given as (name, qubits, params) triples."""
    state = np.zeros(2**n, dtype=complex)
    state[0] = 1
    for name, qubits, params in gates:
        state = apply(state, n, name, qubits, params)
    return state


def marginal(state, n, qubits):
    """Probabilities of the listed qubits: entry j means qubits[b] reads bit b of j."""
    probs = np.abs(state) ** 2
    out = np.zeros(2 ** len(qubits))
    for i, p in enumerate(probs):
        j = sum(((i >> q) & 1) << b for b, q in enumerate(qubits))
        out[j] += p
    return out


def key(index, width):
    """Bit string of index with bit 0 right-most."""
    return format(index, f"0{width}b") if width else ""


def pauli_matrix(terms, n):
    """The 2^n x 2^n matrix of (key, coefficient) pairs such as a PauliOperator's, or of one key
    (bit q of the basis index is qubit q, so kron takes the qubits from n-1 down to 0)."""
    out = np.zeros((2**n, 2**n), dtype=complex)
    for key, coefficient in [(terms, 1)] if isinstance(terms, str) else terms:
        letters = {int(f[1:]): f[0] for f in key.split()}
        product = np.eye(1)
        for q in reversed(range(n)):
            product = np.kron(product, _FIXED[letters.get(q, "I")])
        out += coefficient * product
    return out


def sdk_circuit(gates, q):
    """The corvid circuit of the same triples on handles q; an RZ with two params is (angle, scale)."""
    import corvid

    c = corvid.QCircuit()
    for name, idx, params in gates:
        scale = {"scale": params[1]} if name == "RZ" and len(params) == 2 else {}
        c << getattr(corvid, name)(*[q[i] for i in idx], *params[:1], **scale)
    return c
