import numpy as np
import pytest
import sympy

from corvid_alg.QAOA.qaoa import problem_to_z_operator
from reference import literal_z_expansion, random_polynomial

x0, x1, x2, x10 = sympy.symbols("x0 x1 x2 x10")


def terms(op):
    """{sorted qubit tuple: real coefficient} of an operator."""
    return {tuple(sorted(m)): c for m, c in op.toHamiltonian(True)}


def test_star_import_exposes_the_surface():
    namespace = {}
    exec("from corvid_alg.QAOA.qaoa import *", namespace)
    assert {"QAOA", "p_0", "p_1", "problem_to_z_operator", "parameter_interpolate",
            "pauli_z_operator_to_circuit", "x_mixer", "xy_ring_mixer", "dicke_state"} <= set(namespace)


@pytest.mark.parametrize("problem, norm, expected", [
    (x0 ** 2, False, {(): 0.5, (0,): -0.5}),
    (x2 + 2 * x10, False, {(): 1.5, (0,): -1.0, (1,): -0.5}),  # x10 sorts before x2: qubit 0
    (x0 * x1 * x2, False, {(): 1 / 8, (0,): -1 / 8, (1,): -1 / 8, (2,): -1 / 8, (0, 1): 1 / 8,
                           (0, 2): 1 / 8, (1, 2): 1 / 8, (0, 1, 2): -1 / 8}),
    (sympy.Symbol("p") + 2 * sympy.Symbol("q") * sympy.Symbol("r"), False,
     {(): 1.0, (0,): -0.5, (1,): -0.5, (2,): -0.5, (1, 2): 0.5}),
    (2 * x0 * x1 + 3 * x2 - 1, True, {(): 4 / 3, (0,): -2 / 3, (1,): -2 / 3, (2,): -2.0, (0, 1): 2 / 3}),
])
def test_encoding_examples(problem, norm, expected):
    ours = terms(problem_to_z_operator(problem, norm=norm))
    assert ours.keys() == expected.keys() and ours == pytest.approx(expected, rel=1e-12)


@pytest.mark.parametrize("seed", range(6))
def test_encoding_equals_symbolic_substitution(seed):
    problem, _ = random_polynomial(np.random.default_rng(seed), n=5, degree=4, terms=10)
    ours, literal = terms(problem_to_z_operator(problem)), literal_z_expansion(problem)
    assert set(ours) <= set(literal) | {k for k, v in ours.items() if abs(v) < 1e-12}
    assert {key: ours.get(key, 0.0) for key in literal} == pytest.approx(literal, abs=1e-12)
