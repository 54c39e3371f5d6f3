"""Independent numpy models, the oracles of the machine and module tests.

Basis index bit q is qubit q (and variable q). A state is a tensor of shape (2,) * n whose axis
n-1-q is qubit q, so that flattening it in C order gives the usual vector. Each gate is a small
matrix written out by hand and contracted with np.tensordot; only sdk_circuit calls corvid.
"""

import functools

import numpy as np
import sympy

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


def gate_matrix(name, params=()):
    """The gate's 2x2 or 4x4 matrix; a rotation is exp(-i angle P / 2) for its Pauli product P."""
    if name in _FIXED:
        return _FIXED[name]
    (angle,) = params
    if name == "P":
        return np.diag([1, np.exp(1j * angle)])
    pauli = {"RX": _X, "RY": _Y, "RZ": _Z, "RXX": np.kron(_X, _X), "RYY": np.kron(_Y, _Y),
             "RZZ": np.kron(_Z, _Z)}[name]
    return np.cos(angle / 2) * np.eye(len(pauli)) - 1j * np.sin(angle / 2) * pauli


def simulate(gates, n):
    """|0...0> evolved by gates given as (name, qubits, params) triples."""
    state = np.zeros(2**n, dtype=complex)
    state[0] = 1
    for name, qubits, params in gates:
        k, axes = len(qubits), [n - 1 - q for q in qubits]
        m = gate_matrix(name, params).reshape((2,) * (2 * k))
        out = np.tensordot(m, state.reshape((2,) * n), axes=(list(range(k, 2 * k)), axes))
        # tensordot puts the gate's output axes first; move them back where the qubits live.
        state = np.moveaxis(out, list(range(k)), axes).reshape(-1)
    return state


def marginal(probs, qubits):
    """Probabilities of the listed qubits: entry j means qubits[b] reads bit b of j."""
    out = np.zeros(2 ** len(qubits))
    for i, p in enumerate(probs):
        out[sum(((i >> q) & 1) << b for b, q in enumerate(qubits))] += p
    return out


def bits(n):
    """Row k: the bits of basis index k, column q = bit q."""
    return (np.arange(1 << n)[:, None] >> np.arange(n)) & 1


def keys(n):
    """The keys of all basis states in index order: bit 0 right-most."""
    return [format(index, f"0{n}b") if n else "" for index in range(1 << n)]


def pauli_matrix(terms, n):
    """The 2^n x 2^n matrix of (key, coefficient) pairs, or of one key; a key is a string such as
    "X0 Z2" or a {qubit: letter} dict (kron takes the qubits from n-1 down to 0)."""
    out = np.zeros((2**n, 2**n), dtype=complex)
    for key, coefficient in [(terms, 1)] if isinstance(terms, (str, dict)) else terms:
        letters = key if isinstance(key, dict) else {int(f[1:]): f[0] for f in key.split()}
        out += coefficient * functools.reduce(
            np.kron, [_FIXED[letters.get(q, "I")] for q in reversed(range(n))], np.eye(1))
    return out


def diagonal_of_terms(terms, n):
    """Diagonal of a real diagonal operator given as (key, coefficient) pairs."""
    return np.diag(pauli_matrix(terms, n)).real


def sdk_circuit(gates, q):
    """The corvid circuit of the same triples on handles q; an RZ with two params is (angle, scale)."""
    import corvid

    c = corvid.QCircuit()
    for name, idx, params in gates:
        scale = {"scale": params[1]} if name == "RZ" and len(params) == 2 else {}
        c << getattr(corvid, name)(*[q[i] for i in idx], *params[:1], **scale)
    return c


def run_on_machine(circuit, n, listed=None, **options):
    """(machine, probability map) of a fresh n-qubit CPUQVM made with options, after a program, a
    circuit, gate triples, a list of circuits or a function of the qubits giving one of these;
    listed: qubit indices in key order (all by default)."""
    import corvid

    qvm = corvid.CPUQVM(**options)
    q = qvm.qAlloc_many(n)
    circuit = circuit(q) if callable(circuit) else circuit
    if isinstance(circuit, list) and all(isinstance(g, tuple) for g in circuit):
        circuit = sdk_circuit(circuit, q)
    prog = circuit if isinstance(circuit, corvid.QProg) else corvid.QProg()
    for part in circuit if isinstance(circuit, list) else [circuit] if prog is not circuit else []:
        prog << part
    return qvm, qvm.prob_run_dict(prog, q if listed is None else [q[i] for i in listed], -1)


def polynomial_values(expr, variables):
    """f(x) for every basis index (bit i = variable i), by sympy substitution."""
    n = len(variables)
    return np.array([float(expr.xreplace({v: (index >> i) & 1 for i, v in enumerate(variables)}))
                     for index in range(1 << n)])


def qaoa_state(diagonal, gammas, betas):
    """Hadamard layer, then per layer exp(-i*gamma*diag) and RX(-2*beta) on every qubit."""
    size = len(diagonal)
    state = np.full(size, 1 / np.sqrt(size), dtype=complex)
    for gamma, beta in zip(gammas, betas):
        c, s = np.cos(beta), 1j * np.sin(beta)  # RX(-2 beta), the same on every qubit
        mixer = functools.reduce(np.kron, [np.array([[c, s], [s, c]])] * (size.bit_length() - 1))
        state = mixer @ (state * np.exp(-1j * gamma * diagonal))
    return state


def literal_z_expansion(problem):
    """The encoding by symbolic substitution x_k -> (1 - z_k)/2 and expansion, reducing even
    powers of z to 1: {sorted qubit tuple: coefficient}."""
    variables = sorted(problem.free_symbols, key=lambda s: s.name)
    zs = [sympy.Symbol(f"z{k}") for k in range(len(variables))]
    substituted = problem.xreplace({v: (1 - z) / 2 for v, z in zip(variables, zs)})
    terms = {}
    for exponents, coefficient in sympy.Poly(substituted, *zs).as_dict().items():
        key = tuple(j for j, e in enumerate(exponents) if e % 2)
        terms[key] = terms.get(key, 0) + coefficient
    return {key: float(value) for key, value in terms.items() if value != 0}


def random_polynomial(rng, n, degree=3, terms=8):
    """A random integer-coefficient polynomial in x0..x(n-1) with terms up to `degree`."""
    xs = sympy.symbols(f"x0:{n}")
    expr = sympy.Integer(int(rng.integers(-3, 4)))
    for _ in range(terms):
        chosen = rng.choice(n, size=min(int(rng.integers(1, degree + 1)), n), replace=False)
        expr += int(rng.integers(-5, 6)) * sympy.Mul(*[xs[i] for i in chosen])
    for x in xs:  # every variable present, so the problem has exactly n qubits
        expr += x * int(rng.integers(1, 3))
    return expr, list(xs)
