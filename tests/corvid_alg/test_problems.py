"""The problem builders against direct numpy evaluation over all 2^n states."""

import math

import numpy as np
import pytest

from corvid_alg.QAOA.problems import (
    compact,
    ising_to_operator,
    maxcut_operator,
    polynomial_to_operator,
    qubo_to_operator,
)
from reference import bits, diagonal_of_terms


def assert_energies(op, expected):
    n = len(expected).bit_length() - 1
    np.testing.assert_allclose(diagonal_of_terms(op.toHamiltonian(True), n), expected, atol=1e-12)


@pytest.mark.parametrize("n, density", [(1, 1.0), (3, 0.5), (6, 1.0)])
def test_qubo_energies_are_xQx(rng, n, density):
    Q = rng.normal(size=(n, n)) * (rng.random((n, n)) < density)
    assert_energies(qubo_to_operator(Q, offset=-0.5), np.einsum("ki,ij,kj->k", bits(n), Q, bits(n)) - 0.5)
    pairs = {(i, j): Q[i, j] for i in range(n) for j in range(n)}
    pairs[(n - 1, 0)] = pairs.get((n - 1, 0), 0) + 1.0  # the other orientation adds to the pair
    Q[n - 1, 0] += 1.0
    assert_energies(qubo_to_operator(pairs, -0.5), np.einsum("ki,ij,kj->k", bits(n), Q, bits(n)) - 0.5)


@pytest.mark.parametrize("n", [2, 5])
def test_ising_energies_are_hs_plus_half_sJs(rng, n):
    h, J = rng.normal(size=n), np.triu(rng.normal(size=(n, n)), 1)
    J = J + J.T
    s = 1 - 2 * bits(n)  # bit 0 is spin +1
    expected = s @ h + 0.5 * np.einsum("ki,ij,kj->k", s, J, s) + 3.0
    assert_energies(ising_to_operator(h, J, 3.0), expected)
    pairs = {(i, j): J[i, j] for i in range(n) for j in range(i + 1, n)}
    assert_energies(ising_to_operator(dict(enumerate(h)), pairs, 3.0), expected)


def test_maxcut_energy_is_minus_cut():
    edges = [(0, 1, 1.5), (1, 2), (2, 3, -0.5), (0, 3), (1, 3, 2.0), (0, 1)]
    x, W = bits(4), np.zeros((4, 4))
    for e in edges:
        W[e[0], e[1]] += e[2] if len(e) == 3 else 1.0
    cut = sum((x[:, e[0]] != x[:, e[1]]) * (e[2] if len(e) == 3 else 1.0) for e in edges)
    assert_energies(maxcut_operator(edges), -cut)
    assert_energies(maxcut_operator(weights=W + W.T), -cut)


def test_higher_order_terms_binary_and_spin():
    terms = [((0, 1, 2), 2.0), ((1,), -1.0), ((2, 2), 0.5)]
    x = bits(3)
    s = 1 - 2 * x
    binary = 2 * x[:, 0] * x[:, 1] * x[:, 2] - x[:, 1] + 0.5 * x[:, 2] + 1
    assert_energies(polynomial_to_operator(terms, offset=1), binary)
    assert_energies(polynomial_to_operator(terms, spins=True), 2 * s[:, 0] * s[:, 1] * s[:, 2] - s[:, 1] + .5)


def test_compact_removes_unused_variables():
    op, used = compact(maxcut_operator([(2, 5), (5, 7)]))
    assert used == [2, 5, 7] and [key for key, _ in op] == ["", "Z0 Z1", "Z1 Z2"]


@pytest.mark.parametrize("call, fragment", [
    (lambda: qubo_to_operator(np.ones((2, 3))), "square"),
    (lambda: qubo_to_operator([[1.0, math.nan], [0, 0]]), "finite"),
    (lambda: qubo_to_operator({(0, -1): 1.0}), "non-negative"),
    (lambda: qubo_to_operator({(0,): 1.0}), "pairs"),
    (lambda: qubo_to_operator({(0, 1): "a"}), "real number"),
    (lambda: ising_to_operator([0, 0], [[0, 1], [2, 0]]), "symmetric"),
    (lambda: ising_to_operator([0, 0], [[1, 0], [0, 0]]), "diagonal"),
    (lambda: ising_to_operator([0, 0, 0], [[0, 1], [1, 0]]), "3x3"),
    (lambda: ising_to_operator([0, 0], {(1, 1): 1.0}), "itself"),
    (lambda: ising_to_operator([0, math.inf], {}), "finite"),
    (lambda: maxcut_operator([(0, 1), (2, 2)]), "self-loop"),
    (lambda: maxcut_operator([(0, 1, 2, 3)]), "(i, j)"),
    (lambda: maxcut_operator([(0, 1.5)]), "non-negative integers"),
    (lambda: maxcut_operator(weights=[[0, 1], [0, 0]]), "symmetric"),
    (lambda: maxcut_operator(), "exactly one"),
])
def test_bad_input_is_a_clear_value_error(call, fragment):
    with pytest.raises(ValueError) as info:
        call()
    assert fragment in str(info.value)
