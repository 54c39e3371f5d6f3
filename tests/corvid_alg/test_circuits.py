import numpy as np
import pytest
import sympy

import corvid
from corvid_alg.QAOA.qaoa import QAOA, pauli_z_operator_to_circuit
from qaoa_reference import diagonal_of_terms, polynomial_values, qaoa_state, random_polynomial

x0, x1, x2 = sympy.symbols("x0 x1 x2")
ROAD = 2 * x0 * x1 + 3 * x2 - 1


def gates(circuit):
    return [(g.name, tuple(g.qubits), tuple(round(p, 12) for p in g.params)) for g in circuit]


def identities(n):
    return [("I", (q,), ()) for q in range(n)]


@pytest.mark.parametrize("operator, n, gamma, expected, constant", [
    ([], 2, 0.7, [], 0),
    ([({}, 1.5), ({}, -0.25)], 2, 0.7, [], 1.25),
    ([({1: "Z"}, 0.5)], 2, 0.7, [("RZ", (1,), (0.7,))], 0),
    ([({0: "Z", 2: "Z"}, 0.5)], 3, 0.7,
     [("CNOT", (0, 2), ()), ("RZ", (2,), (0.7,)), ("CNOT", (0, 2), ())], 0),
    ([({0: "Z", 1: "Z", 3: "Z"}, -1.0)], 4, 0.5,
     [("CNOT", (0, 1), ()), ("CNOT", (1, 3), ()), ("RZ", (3,), (-1.0,)),
      ("CNOT", (1, 3), ()), ("CNOT", (0, 1), ())], 0),
    ([({1: "X"}, 0.25)], 2, 1.0, [("RZ", (1,), (0.5,))], 0),  # letters are not looked at
    ([({}, 1.0), ({2: "Z"}, -1.5), ({1: "Z"}, -0.5), ({0: "Z"}, -0.5), ({0: "Z", 1: "Z"}, 0.5)],
     3, 0.3, [("RZ", (2,), (-0.9,)), ("RZ", (1,), (-0.3,)), ("RZ", (0,), (-0.3,)),
              ("CNOT", (0, 1), ()), ("RZ", (1,), (0.3,)), ("CNOT", (0, 1), ())], 1.0),  # the road
])
def test_phase_circuit_gate_sequences(operator, n, gamma, expected, constant):
    circuit, c = pauli_z_operator_to_circuit(operator, list(range(n)), gamma)
    assert gates(circuit) == expected + identities(n)
    assert c == constant


def test_default_gamma_is_pi():
    circuit, _ = pauli_z_operator_to_circuit([({0: "Z"}, 0.25)], [0])
    assert list(circuit)[0].params[0] == pytest.approx(0.5 * np.pi)


def test_an_operator_with_a_gap_in_its_qubits_asks_for_renumbering():
    gapped = QAOA(corvid.PauliOperator({"Z0 Z2": 1.0}))  # two qubits used, index 2
    with pytest.raises(IndexError, match="remapQubitIndex"):
        gapped.run(layer=1)


def test_ansatz_gate_sequence_and_layer_bookkeeping():
    solver = QAOA(x0 * x1 + x2)
    circuit = solver._qaoa_circuit([0, 1, 2], [0.1, 0.2, 0.3], [0.4, 0.5, 0.6])
    assert solver.layer == 3 and solver.circuit is circuit
    names = [g.name for g in circuit]
    assert names[:3] == ["H"] * 3
    rx = [g for g in circuit if g.name == "RX"]
    assert [round(g.params[0], 12) for g in rx] == [-0.8] * 3 + [-1.0] * 3 + [-1.2] * 3
    with pytest.raises(IndexError):
        solver._qaoa_circuit([0, 1, 2], [0.1, 0.2], [0.4, 0.5])
    assert solver.circuit is circuit
    four = solver._qaoa_circuit([0, 1, 2], [0.1] * 4, [0.2] * 4)
    assert len([g for g in four if g.name == "RX"]) == 9
    assert gates(QAOA(x0 * x1 + x2)._qaoa_circuit([0, 1, 2], [], [])) == [
        ("H", (q,), ()) for q in range(3)]


def test_caller_circuits_replace_the_defaults():
    received = []

    def mixer(qubits, angle):
        received.append(angle)
        return corvid.RY(qubits, angle)

    def init(qubits):
        return corvid.QCircuit() << corvid.X(qubits[0])

    solver = QAOA(x0 + x1, init_circuit=init, mixer_circuit=mixer)
    circuit = solver._qaoa_circuit([0, 1], [0.3], [0.5])
    assert received == [-1.0]
    assert "H" not in [g.name for g in circuit]
    assert gates(circuit)[0] == ("X", (0,), ())


@pytest.mark.parametrize("seed", range(4))
def test_exact_run_matches_dense_reference(seed):
    rng = np.random.default_rng(seed)
    problem, variables = random_polynomial(rng, n=5, degree=3, terms=9)
    gammas, betas = rng.uniform(-2, 2, 2), rng.uniform(-2, 2, 2)
    solver = QAOA(problem)
    result = solver.run_qaoa_circuit(gammas, betas)
    # The circuit drops the constant: only a global phase, so probabilities are unaffected.
    expected = np.abs(qaoa_state(diagonal_of_terms(solver.operator, 5), gammas, betas)) ** 2
    got = np.array([result[format(i, "05b")] for i in range(32)])
    np.testing.assert_allclose(got, expected, atol=1e-12)
    # The same through the polynomial itself: the encoding is right up to the constant.
    values = polynomial_values(solver.problem, variables)
    np.testing.assert_allclose(np.abs(qaoa_state(values, gammas, betas)) ** 2, expected, atol=1e-12)


def test_zero_angles_give_the_uniform_distribution_in_both_modes():
    solver = QAOA(ROAD)
    exact = solver.run_qaoa_circuit([0.0], [0.0])
    assert list(exact) == ["000", "001", "010", "011", "100", "101", "110", "111"]
    assert all(v == pytest.approx(0.125, abs=1e-12) for v in exact.values())
    sampled = solver.run_qaoa_circuit([0.0], [0.0], shots=500)
    assert sum(sampled.values()) == pytest.approx(1.0)
    assert all(abs(v * 500 - round(v * 500)) < 1e-9 for v in sampled.values())
    assert all(len(key) == 3 for key in sampled)
    single = solver.run_qaoa_circuit([0.0], [0.0], shots=1)
    assert list(single.values()) == [1.0]
    assert solver.circuit_iter == 3


def test_a_variable_that_cancels_under_simplification_gets_no_qubit():
    solver = QAOA(x0 * (x1 + 1) - x0 * x1)
    assert solver.problem_dimension == 1
    result, _, loss = solver.run(initial_para=[0.1, 0.2])
    assert sorted(result) == ["0", "1"] and loss == pytest.approx(result["1"])


def test_indexed_variables_are_variables_sorted_by_name():
    z = sympy.IndexedBase("z")
    solver = QAOA(z[0] * z[1] - 2 * z[10])  # z[0], z[10], z[1]: the label z is no variable
    assert solver.problem_dimension == 3
    assert solver.calculate_energy([1, 0, 1]) == 1 and solver.calculate_energy([0, 1, 0]) == -2
