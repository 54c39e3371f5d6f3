import copy
import doctest

import numpy as np
import pytest
import sympy

import corvid
from corvid import PauliOperator, binary_polynomial_to_z_operator
from corvid_alg.QAOA.qaoa import p_0, p_1
from reference import pauli_matrix as dense


def random_operator(rng, n, terms):
    op = PauliOperator()
    for _ in range(terms):
        letters = rng.integers(0, 4, size=n)
        key = " ".join(f"{'XYZ'[c - 1]}{q}" for q, c in enumerate(letters) if c)
        op += PauliOperator(key, complex(*rng.normal(size=2)))
    return op


def test_binary_variables_print_and_combine_exactly():
    assert str(p_1(0)) == '{\n"" : 0.500000,\n"Z0" : -0.500000\n}'
    assert repr(p_0(0)) == '{\n"" : 0.500000,\n"Z0" : 0.500000\n}'
    assert str(PauliOperator()) == "{\n}"
    mixed = PauliOperator({"X1 Y0": 1 - 2j, "Z3": 0.25j, "": -1 / 3})
    assert str(mixed) == '{\n"" : -0.333333,\n"Z3" : (0.000000+0.250000i),\n"Y0 X1" : (1.000000-2.000000i)\n}'
    h = 2 * p_1(0) * p_1(1) + 3 * p_1(2) - 1
    assert list(h) == [("", 1.0), ("Z0", -0.5), ("Z1", -0.5), ("Z2", -1.5), ("Z0 Z1", 0.5)]
    assert list(p_1(12)) == [("", 0.5), ("Z12", -0.5)]
    assert all(list(p_0(n) + p_1(n)) == [("", 1.0)] for n in (0, 3, 12, 4294967295))


def test_arithmetic_in_and_out_of_place_matches_dense_matrices(rng):
    n, eye = 3, np.eye(8)
    for _ in range(10):
        a, b = random_operator(rng, n, 5), random_operator(rng, n, 4)
        ma, mb = dense(a, n), dense(b, n)
        s = complex(*rng.normal(size=2))
        for op, expected in [
            (a * b, ma @ mb), (a + b, ma + mb), (a - b, ma - mb), (-a, -ma),
            (s * a, s * ma), (a * s, s * ma), (a + s, ma + s * eye), (s + a, ma + s * eye),
            (a - s, ma - s * eye), (s - a, s * eye - ma),
            (np.float64(2.5) * a, 2.5 * ma), (np.int64(3) - a, 3 * eye - ma),
        ]:
            np.testing.assert_allclose(dense(op, n), expected, atol=1e-12)
    expected, alias = dense(a, n), a  # in place: the same object changes
    for operand, update, change in [(b, "__iadd__", lambda m: m + mb), (2, "__isub__", lambda m: m - 2 * eye),
                                    (b, "__imul__", lambda m: m @ mb), (1j, "__imul__", lambda m: 1j * m),
                                    (a, "__iadd__", lambda m: 2 * m)]:  # the last: a += a
        assert getattr(a, update)(operand) is alias
        expected = change(expected)
        np.testing.assert_allclose(dense(alias, n), expected, atol=1e-12)


def test_equality_copy_and_iteration_types():
    a = PauliOperator({"Z0": 1, "X1 Z0": 2j, "": 0})
    assert a == PauliOperator("Z0", 1.0) + PauliOperator("Z0 X1", 2j) + PauliOperator("Z5", 0)
    assert a != PauliOperator("Z0", 1.0)
    assert (a == 1) is False and len(0 * a) == len(a - a) == 0
    assert len(PauliOperator("X0", 1e-200) * 1e-200) == 0  # underflows to exactly 0
    for clone in (copy.copy(a), copy.deepcopy(a)):
        clone *= 2
        assert list(a) == [("Z0", 1.0), ("Z0 X1", 2j)]
    assert [type(c) for _, c in a] == [float, complex]
    assert a.approx_equal(a + PauliOperator("Z0", 1e-14)) and not a.approx_equal(2 * a)
    with pytest.raises(TypeError):
        hash(a)


def test_to_hamiltonian_list_form():
    op = PauliOperator({"Z0 Z1": 0.5, "": 1, "X4 Y2": 2 + 7j})
    form = op.toHamiltonian(True)
    assert form == [({}, 1.0), ({0: "Z", 1: "Z"}, 0.5), ({2: "Y", 4: "X"}, 2.0)]
    assert all(type(c) is float for _, c in form)
    assert all(type(q) is int and type(c) is str for m, _ in form for q, c in m.items())
    assert op.toHamiltonian(False)[2] == ({2: "Y", 4: "X"}, 2 + 7j)
    assert PauliOperator().toHamiltonian(True) == []


def test_remap_fills_callers_dict_and_max_index():
    op = PauliOperator({"Z7 Z3": 1.0, "X12": 2.0, "": 0.5, "Y3": -1.0})
    mapping = {99: 99}  # stale entries are cleared
    remapped = op.remapQubitIndex(mapping)
    assert mapping == {3: 0, 7: 1, 12: 2}
    assert remapped == PauliOperator({"Z0 Z1": 1.0, "X2": 2.0, "": 0.5, "Y0": -1.0})
    assert (op.getMaxIndex(), remapped.getMaxIndex()) == (12, 2)
    assert PauliOperator(3).getMaxIndex() == -1 and PauliOperator().getMaxIndex() == -1
    assert PauliOperator("Z4294967295", 1).getMaxIndex() == 4294967295
    constant_map = {}
    assert PauliOperator(3).remapQubitIndex(constant_map).getMaxIndex() + 1 == 0
    assert constant_map == {}


def test_docstring_examples_run():
    finder = doctest.DocTestFinder()
    runner = doctest.DocTestRunner(optionflags=doctest.NORMALIZE_WHITESPACE)
    globs = {"PauliOperator": PauliOperator}
    for obj in [PauliOperator, corvid.binary_polynomial_to_z_operator]:
        for test in finder.find(obj, globs=globs):
            runner.run(test)
    assert runner.summarize(verbose=False).failed == 0
    assert runner.summarize(verbose=False).attempted >= 10


def test_accepts_any_iterables_and_numeric_types():
    pairs = (((v for v in (0, 1)), c) for c in [sympy.Rational(1, 2)])
    from_generator = binary_polynomial_to_z_operator(pairs)
    from_numpy = binary_polynomial_to_z_operator([(np.array([0, 1]), np.float32(0.5))])
    expected = {"": 0.125, "Z0": -0.125, "Z1": -0.125, "Z0 Z1": 0.125}
    assert dict(from_generator) == expected and dict(from_numpy) == expected
