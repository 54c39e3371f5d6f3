import numpy as np
import pytest
import sympy

import corvid
from corvid_alg.QAOA.qaoa import QAOA, pauli_z_operator_to_circuit
from reference import diagonal_of_terms, qaoa_state, random_polynomial

x0, x1, x2 = sympy.symbols("x0 x1 x2")


def gates(circuit):
    return [(g.name, tuple(g.qubits), tuple(round(p, 12) for p in g.params)) for g in circuit]


def cnot(a, b):
    return ("CNOT", (a, b), ())


def rz(q, angle):
    return ("RZ", (q,), (angle,))


@pytest.mark.parametrize("operator, n, gamma, expected, constant", [
    ([], 2, 0.7, [], 0),
    ([({}, 1.5), ({}, -0.25)], 2, 0.7, [], 1.25),
    ([({1: "Z"}, 0.5)], 2, 0.7, [rz(1, 0.7)], 0),
    ([({0: "Z", 2: "Z"}, 0.5)], 3, 0.7, [cnot(0, 2), rz(2, 0.7), cnot(0, 2)], 0),
    ([({0: "Z", 1: "Z", 3: "Z"}, -1.0)], 4, 0.5,
     [cnot(0, 1), cnot(1, 3), rz(3, -1.0), cnot(1, 3), cnot(0, 1)], 0),
    ([({1: "X"}, 0.25)], 2, 1.0, [rz(1, 0.5)], 0),  # letters are not looked at
    ([({}, 1.0), ({2: "Z"}, -1.5), ({1: "Z"}, -0.5), ({0: "Z"}, -0.5), ({0: "Z", 1: "Z"}, 0.5)], 3, 0.3,
     [rz(2, -0.9), rz(1, -0.3), rz(0, -0.3), cnot(0, 1), rz(1, 0.3), cnot(0, 1)], 1.0),  # 2x0x1 + 3x2 - 1
])
def test_phase_circuit_gate_sequences(operator, n, gamma, expected, constant):
    circuit, c = pauli_z_operator_to_circuit(operator, list(range(n)), gamma)
    assert gates(circuit) == expected + [("I", (q,), ()) for q in range(n)] and c == constant


def test_default_gamma_is_pi_and_a_gap_in_the_qubits_asks_for_renumbering():
    circuit, _ = pauli_z_operator_to_circuit([({0: "Z"}, 0.25)], [0])
    assert list(circuit)[0].params[0] == pytest.approx(0.5 * np.pi)
    with pytest.raises(IndexError, match="remapQubitIndex"):
        QAOA(corvid.PauliOperator({"Z0 Z2": 1.0})).run(layer=1)  # two qubits used, index 2


def test_ansatz_gate_sequence_and_layer_bookkeeping():
    solver = QAOA(x0 * x1 + x2)
    circuit = solver._qaoa_circuit([0, 1, 2], [0.1, 0.2, 0.3], [0.4, 0.5, 0.6])
    assert solver.layer == 3 and solver.circuit is circuit and [g.name for g in circuit][:3] == ["H"] * 3
    rx = [round(g.params[0], 12) for g in circuit if g.name == "RX"]
    assert rx == [-0.8] * 3 + [-1.0] * 3 + [-1.2] * 3
    with pytest.raises(IndexError):
        solver._qaoa_circuit([0, 1, 2], [0.1, 0.2], [0.4, 0.5])
    assert solver.circuit is circuit
    assert len([g for g in solver._qaoa_circuit([0, 1, 2], [0.1] * 4, [0.2] * 4) if g.name == "RX"]) == 9
    assert gates(QAOA(x0 * x1 + x2)._qaoa_circuit([0, 1, 2], [], [])) == [("H", (q,), ()) for q in range(3)]


def test_caller_circuits_replace_the_defaults():
    received = []

    def mixer(qubits, angle):
        received.append(angle)
        return corvid.RY(qubits, angle)

    solver = QAOA(x0 + x1, init_circuit=lambda q: corvid.QCircuit() << corvid.X(q[0]),
                  mixer_circuit=mixer)
    circuit = solver._qaoa_circuit([0, 1], [0.3], [0.5])
    assert received == [-1.0] and "H" not in [g.name for g in circuit]
    assert gates(circuit)[0] == ("X", (0,), ())


@pytest.mark.parametrize("seed", range(4))
def test_exact_run_matches_dense_reference(seed):
    rng = np.random.default_rng(seed)
    problem, _ = random_polynomial(rng, n=5, degree=3, terms=9)
    gammas, betas = rng.uniform(-2, 2, 2), rng.uniform(-2, 2, 2)
    solver = QAOA(problem)
    result = solver.run_qaoa_circuit(gammas, betas)
    # The circuit drops the constant: only a global phase, so probabilities are unaffected.
    expected = np.abs(qaoa_state(diagonal_of_terms(solver.operator, 5), gammas, betas)) ** 2
    np.testing.assert_allclose([result[format(i, "05b")] for i in range(32)], expected, atol=1e-12)


def test_zero_angles_give_the_uniform_distribution_in_both_modes():
    solver = QAOA(2 * x0 * x1 + 3 * x2 - 1)
    exact = solver.run_qaoa_circuit([0.0], [0.0])
    assert list(exact) == [format(i, "03b") for i in range(8)]
    assert list(exact.values()) == pytest.approx([0.125] * 8, abs=1e-12)
    sampled = solver.run_qaoa_circuit([0.0], [0.0], shots=500)
    assert sum(sampled.values()) == pytest.approx(1.0) and all(len(key) == 3 for key in sampled)
    assert all(abs(v * 500 - round(v * 500)) < 1e-9 for v in sampled.values())
    assert list(solver.run_qaoa_circuit([0.0], [0.0], shots=1).values()) == [1.0]
    assert solver.circuit_iter == 3


def test_variables_that_cancel_get_no_qubit_and_indexed_ones_sort_by_name():
    solver = QAOA(x0 * (x1 + 1) - x0 * x1)
    assert solver.problem_dimension == 1
    result, _, loss = solver.run(initial_para=[0.1, 0.2])
    assert sorted(result) == ["0", "1"] and loss == pytest.approx(result["1"])
    z = sympy.IndexedBase("z")
    solver = QAOA(z[0] * z[1] - 2 * z[10])  # z[0], z[10], z[1]: the label z is no variable
    assert solver.problem_dimension == 3
    assert solver.calculate_energy([1, 0, 1]) == 1 and solver.calculate_energy([0, 1, 0]) == -2
