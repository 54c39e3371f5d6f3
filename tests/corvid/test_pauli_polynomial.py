"""binary_polynomial_to_z_operator checked against the polynomial's values on every bit string."""

import numpy as np
import sympy

from corvid import PauliOperator, binary_polynomial_to_z_operator


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
