import itertools

import numpy as np
import pytest
from scipy.linalg import expm

import corvid
from corvid_alg.QAOA.default_circuits import (
    dicke_state,
    uniform_superposition,
    w_state,
    x_mixer,
    xy_complete_mixer,
    xy_ring_mixer,
)

PAULI = {"X": np.array([[0, 1], [1, 0]], dtype=complex),
         "Y": np.array([[0, -1j], [1j, 0]], dtype=complex)}


def operator_on(n, factors):
    """Dense matrix of a Pauli product {qubit: letter}; bit q of the index is qubit q."""
    matrix = np.eye(1, dtype=complex)
    for q in reversed(range(n)):
        matrix = np.kron(matrix, PAULI[factors[q]] if q in factors else np.eye(2))
    return matrix


def xy_pair_unitary(n, i, j, angle):
    h = (operator_on(n, {i: "X", j: "X"}) + operator_on(n, {i: "Y", j: "Y"})) / 2
    return expm(-1j * angle / 2 * h)


def final_state(n, *circuits):
    machine = corvid.CPUQVM()
    machine.init_qvm()
    qubits = machine.qAlloc_many(n)
    program = corvid.QProg()
    for build in circuits:
        program << build(qubits)
    machine.prob_run_dict(program, qubits, -1)
    return machine.state_vector()


def one_hot(n, position):
    return lambda qubits: corvid.QCircuit() << corvid.X(qubits[position])


@pytest.mark.parametrize("n", [2, 3, 4, 5])
@pytest.mark.parametrize("mixer, pairs", [
    (xy_ring_mixer, lambda n: ([(i, i + 1) for i in range(0, n - 1, 2)]
                               + [(i, i + 1) for i in range(1, n - 1, 2)]
                               + ([(n - 1, 0)] if n > 2 else []))),
    (xy_complete_mixer, lambda n: list(itertools.combinations(range(n), 2))),
])
def test_xy_mixers_match_their_pair_exponentials(n, mixer, pairs):
    angle = 0.83
    state = final_state(n, one_hot(n, 1), lambda q: mixer(q, angle))
    expected = np.zeros(1 << n, dtype=complex)
    expected[1 << 1] = 1
    for i, j in pairs(n):
        expected = xy_pair_unitary(n, i, j, angle) @ expected
    np.testing.assert_allclose(state, expected, atol=1e-12)
    weights = [bin(i).count("1") for i in range(1 << n)]
    assert sum(abs(a) ** 2 for a, w in zip(state, weights) if w == 1) == pytest.approx(1.0)


def test_x_mixer_and_uniform_superposition():
    n, angle = 3, 0.4
    state = final_state(n, uniform_superposition, lambda q: x_mixer(q, angle))
    # RX on |+> only adds a global phase
    np.testing.assert_allclose(np.abs(state) ** 2, np.full(8, 1 / 8), atol=1e-12)
    mixer = expm(-1j * angle / 2 * sum(operator_on(n, {q: "X"}) for q in range(n)))
    start = np.zeros(8, dtype=complex)
    start[0b010] = 1
    np.testing.assert_allclose(final_state(n, one_hot(n, 1), lambda q: x_mixer(q, angle)),
                               mixer @ start, atol=1e-12)


@pytest.mark.parametrize("n, k", [(1, 1), (3, 0), (4, 1), (4, 2), (4, 4), (5, 2), (6, 3)])
def test_dicke_states_are_uniform_over_their_weight(n, k):
    state = final_state(n, dicke_state(k))
    expected = np.array([1.0 if bin(i).count("1") == k else 0.0 for i in range(1 << n)])
    expected /= np.linalg.norm(expected)
    np.testing.assert_allclose(np.abs(state), expected, atol=1e-12)
    np.testing.assert_allclose(state.imag, 0, atol=1e-12)


def test_w_state_and_invalid_weights():
    np.testing.assert_allclose(np.abs(final_state(3, w_state)) ** 2,
                               [0, 1 / 3, 1 / 3, 0, 1 / 3, 0, 0, 0], atol=1e-12)
    with pytest.raises(ValueError, match="exceeds"):
        final_state(2, dicke_state(3))
    with pytest.raises(ValueError, match="non-negative"):
        dicke_state(-1)
