"""The problem builders against direct numpy evaluation over all 2^n states."""

import math

import numpy as np
import pytest
import sympy

from corvid_alg.QAOA.problems import (
    compact,
    ising_to_operator,
    maxcut_operator,
    polynomial_to_operator,
    qubo_to_operator,
)
from corvid_alg.QAOA.qaoa import QAOA
from qaoa_reference import diagonal_of_terms


def bits(n):
    """Row k: the bits of basis index k, column i = bit i."""
    return (np.arange(1 << n)[:, None] >> np.arange(n)) & 1


def diagonal(op, n):
    return diagonal_of_terms(op.toHamiltonian(True), n)


@pytest.mark.parametrize("n, density", [(1, 1.0), (3, 0.5), (6, 1.0)])
def test_qubo_energies_are_xQx(rng, n, density):
    Q = rng.normal(size=(n, n)) * (rng.random((n, n)) < density)
    x = bits(n)
    expected = np.einsum("ki,ij,kj->k", x, Q, x) - 0.5
    assert np.allclose(diagonal(qubo_to_operator(Q, offset=-0.5), n), expected)


def test_qubo_mapping_equals_matrix(rng):
    Q = np.triu(rng.normal(size=(4, 4)))
    terms = {(i, j): Q[i, j] for i in range(4) for j in range(i, 4)}
    # the same pair given in the other orientation adds to it
    terms[(3, 0)] = 1.0
    Q[0, 3] += 1.0
    assert np.allclose(diagonal(qubo_to_operator(terms, 2.0), 4),
                       diagonal(qubo_to_operator(Q, 2.0), 4))


@pytest.mark.parametrize("n", [2, 5])
def test_ising_energies_are_hs_plus_half_sJs(rng, n):
    h = rng.normal(size=n)
    J = rng.normal(size=(n, n))
    J = np.triu(J, 1) + np.triu(J, 1).T
    s = 1 - 2 * bits(n)  # bit 0 is spin +1
    expected = s @ h + 0.5 * np.einsum("ki,ij,kj->k", s, J, s) + 3.0
    assert np.allclose(diagonal(ising_to_operator(h, J, 3.0), n), expected)
    pairs = {(i, j): J[i, j] for i in range(n) for j in range(i + 1, n)}
    assert np.allclose(diagonal(ising_to_operator(dict(enumerate(h)), pairs, 3.0), n), expected)


def test_maxcut_energy_is_minus_cut(rng):
    edges = [(0, 1, 1.5), (1, 2), (2, 3, -0.5), (0, 3), (1, 3, 2.0), (0, 1)]
    x = bits(4)
    cut = sum((x[:, e[0]] != x[:, e[1]]) * (e[2] if len(e) == 3 else 1.0) for e in edges)
    assert np.allclose(diagonal(maxcut_operator(edges), 4), -cut)
    W = np.zeros((4, 4))
    for e in edges:
        W[e[0], e[1]] += e[2] if len(e) == 3 else 1.0
    W = W + W.T
    assert np.allclose(diagonal(maxcut_operator(weights=W), 4), -cut)


def test_higher_order_terms_binary_and_spin():
    terms = [((0, 1, 2), 2.0), ((1,), -1.0), ((2, 2), 0.5)]
    x = bits(3)
    binary = 2 * x[:, 0] * x[:, 1] * x[:, 2] - x[:, 1] + 0.5 * x[:, 2] + 1
    assert np.allclose(diagonal(polynomial_to_operator(terms, offset=1), 3), binary)
    s = 1 - 2 * x
    spin = 2 * s[:, 0] * s[:, 1] * s[:, 2] - s[:, 1] + 0.5  # s2*s2 = 1
    assert np.allclose(diagonal(polynomial_to_operator(terms, spins=True), 3), spin)


def test_builder_operator_solves_like_the_polynomial():
    # The operator from the builder and the sympy polynomial describe the same problem.
    Q = np.array([[1.0, -3.0, 0.0], [0.0, 2.0, -1.0], [0.0, 0.0, -0.5]])
    xs = sympy.symbols("x0:3")
    poly = sum(Q[i, j] * xs[i] * xs[j] for i in range(3) for j in range(3))
    by_operator = QAOA(qubo_to_operator(Q))
    by_polynomial = QAOA(poly)
    angles = ([0.3, 0.7], [0.4, 0.2])
    exact = by_polynomial.run_qaoa_circuit(*angles)
    assert np.allclose(by_operator.run_qaoa_circuit(*angles).probabilities, exact.probabilities)
    for key in ("000", "011", "101"):
        vector = [int(b) for b in reversed(key)]
        assert math.isclose(by_operator.calculate_energy(vector),
                            by_polynomial.calculate_energy(vector), abs_tol=1e-12)


def test_compact_removes_unused_variables():
    op, used = compact(maxcut_operator([(2, 5), (5, 7)]))
    assert used == [2, 5, 7]
    assert [key for key, _ in op] == ["", "Z0 Z1", "Z1 Z2"]


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
