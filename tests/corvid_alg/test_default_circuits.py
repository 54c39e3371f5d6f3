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
from reference import pauli_matrix, run_on_machine


def final_state(n, *circuits):
    return run_on_machine(lambda q: [build(q) for build in circuits], n)[0].state_vector()


def one_hot(qubits):
    return corvid.QCircuit() << corvid.X(qubits[1])


def basis(n, index):
    return np.eye(1 << n, dtype=complex)[index]


@pytest.mark.parametrize("n", [2, 3, 4, 5])
@pytest.mark.parametrize("mixer, pairs", [
    (xy_ring_mixer, lambda n: ([(i, i + 1) for i in range(0, n - 1, 2)]
                               + [(i, i + 1) for i in range(1, n - 1, 2)] + ([(n - 1, 0)] if n > 2 else []))),
    (xy_complete_mixer, lambda n: list(itertools.combinations(range(n), 2))),
])
def test_xy_mixers_match_their_pair_exponentials(n, mixer, pairs):
    angle = 0.83
    state = final_state(n, one_hot, lambda q: mixer(q, angle))
    expected = basis(n, 0b10)
    for i, j in pairs(n):
        h = pauli_matrix([(f"X{i} X{j}", 0.5), (f"Y{i} Y{j}", 0.5)], n)
        expected = expm(-1j * angle / 2 * h) @ expected
    np.testing.assert_allclose(state, expected, atol=1e-12)


def test_x_mixer_and_uniform_superposition():
    n, angle = 3, 0.4
    state = final_state(n, uniform_superposition, lambda q: x_mixer(q, angle))
    np.testing.assert_allclose(np.abs(state) ** 2, np.full(8, 1 / 8), atol=1e-12)  # RX on |+>: a phase
    mixer = expm(-1j * angle / 2 * pauli_matrix([(f"X{q}", 1) for q in range(n)], n))
    np.testing.assert_allclose(final_state(n, one_hot, lambda q: x_mixer(q, angle)), mixer @ basis(n, 0b10),
                               atol=1e-12)


@pytest.mark.parametrize("n, k", [(1, 1), (3, 0), (4, 1), (4, 2), (4, 4), (5, 2), (6, 3)])
def test_dicke_states_are_uniform_over_their_weight(n, k):
    state = final_state(n, dicke_state(k))
    expected = np.array([1.0 if bin(i).count("1") == k else 0.0 for i in range(1 << n)])
    np.testing.assert_allclose(state, expected / np.linalg.norm(expected), atol=1e-12)


def test_w_state_and_invalid_weights():
    np.testing.assert_allclose(np.abs(final_state(3, w_state)) ** 2, np.array([0, 1, 1, 0, 1, 0, 0, 0]) / 3,
                               atol=1e-12)
    with pytest.raises(ValueError, match="exceeds"):
        final_state(2, dicke_state(3))
    with pytest.raises(ValueError, match="non-negative"):
        dicke_state(-1)
