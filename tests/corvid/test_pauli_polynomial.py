"""binary_polynomial_to_z_operator checked against the polynomial's values on every bit string."""

import numpy as np
import pytest
import sympy

from corvid import PauliOperator, binary_polynomial_to_z_operator


def diagonal(op, n):
    """Value of a Z operator on each basis state (bit q of the index is qubit q; Z = +1 on 0)."""
    bits = (np.arange(2**n)[:, None] >> np.arange(n)) & 1
    values = np.zeros(2**n)
    for qubit_map, coefficient in op.toHamiltonian(True):
        assert set(qubit_map.values()) <= {"Z"}
        values += coefficient * np.prod(1 - 2 * bits[:, list(qubit_map)], axis=1)
    return values, bits


def test_matches_polynomial_on_every_bit_string(rng):
    n = 6
    for _ in range(10):
        monomials = [
            (list(rng.integers(0, n, size=rng.integers(0, 5))), float(rng.normal()))
            for _ in range(8)
        ]
        values, bits = diagonal(binary_polynomial_to_z_operator(monomials), n)
        expected = sum(c * np.prod(bits[:, v], axis=1) for v, c in monomials)
        np.testing.assert_allclose(values, expected, atol=1e-12)


def test_hand_derived_cases():
    x0 = PauliOperator(0.5) - PauliOperator("Z0", 0.5)
    assert binary_polynomial_to_z_operator([([0, 0], 1)]) == x0  # x0^2 = x0
    assert binary_polynomial_to_z_operator([([3], 1), ([3], -1)]) == PauliOperator()
    cubic = dict(binary_polynomial_to_z_operator([([0, 1, 2], 1)]))
    assert len(cubic) == 8 and cubic[""] == 0.125 and cubic["Z0 Z1 Z2"] == -0.125


def test_accepts_any_iterables_and_numeric_types():
    pairs = (((v for v in (0, 1)), c) for c in [sympy.Rational(1, 2)])
    from_generator = binary_polynomial_to_z_operator(pairs)
    from_numpy = binary_polynomial_to_z_operator([(np.array([0, 1]), np.float32(0.5))])
    expected = {"": 0.125, "Z0": -0.125, "Z1": -0.125, "Z0 Z1": 0.125}
    assert dict(from_generator) == expected and dict(from_numpy) == expected


@pytest.mark.parametrize(
    "monomials, error",
    [
        ([([-1], 1.0)], ValueError),
        ([([2**32], 1.0)], ValueError),
        ([([0.5], 1.0)], TypeError),
        ([([0], 1.0, 2.0)], ValueError),
        ([([0], 1j)], TypeError),
        ([([0], "x")], (TypeError, ValueError)),
        ([(list(range(70)), 1.0)], MemoryError),
    ],
)
def test_rejects_bad_monomials(monomials, error):
    with pytest.raises(error):
        binary_polynomial_to_z_operator(monomials)
