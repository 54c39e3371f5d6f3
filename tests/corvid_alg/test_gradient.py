import numpy as np
import pytest

import corvid
from corvid_alg.QAOA import problems
from corvid_alg.QAOA.qaoa import QAOA, xy_complete_mixer, xy_ring_mixer
from reference import qaoa_state, random_polynomial

LOSSES = [("default", {}), ("CVaR", {"alpha": 0.3}), ("Gibbs", {"temperature": 0.5})]


def tilted_start(qubits):
    circuit = corvid.QCircuit()
    for k, q in enumerate(qubits):
        circuit << corvid.RY(q, 0.4 + 0.3 * k)
    for a, b in zip(qubits, qubits[1:]):
        circuit << corvid.CNOT(a, b)
    return circuit


def solver_for(seed, n, mixer=None, init=None):
    expr, _ = random_polynomial(np.random.default_rng(seed), n, terms=10)
    return QAOA(expr, mixer_circuit=mixer, init_circuit=init)


def central_differences(f, paras, step=1e-6):
    return [(f(paras + step * e) - f(paras - step * e)) / (2 * step) for e in np.eye(len(paras))]


def circuit_loss(solver, paras, loss_type, options):
    solver.loss_type, solver.shots, solver.layer = loss_type, -1, len(paras) // 2
    solver.alpha, solver.temperature = options.get("alpha", 1), options.get("temperature", 1)
    return solver._loss_function(np.asarray(paras, dtype=float))


@pytest.mark.parametrize("loss_type,options", LOSSES)
@pytest.mark.parametrize("mixer", [None, xy_ring_mixer, xy_complete_mixer])
@pytest.mark.parametrize("init", [None, tilted_start])
@pytest.mark.parametrize("p", [1, 2, 4, 8])
def test_gradient_matches_central_differences_of_the_circuit(loss_type, options, mixer, init, p):
    n = 5 + p % 2
    solver = solver_for(p, n, mixer, init)
    paras = np.random.default_rng(10 + p).uniform(-1, 1, 2 * p)
    loss, gradient = solver.loss_and_gradient(paras, loss_type=loss_type, **options)
    assert loss == pytest.approx(circuit_loss(solver, paras, loss_type, options), abs=1e-10)
    expected = central_differences(lambda x: circuit_loss(solver, x, loss_type, options), paras)
    np.testing.assert_allclose(gradient, expected, rtol=1e-6, atol=1e-7 * max(1, abs(loss)))


def test_gradient_of_the_dense_reference_with_a_dense_diagonal():
    # n = 10 with real coefficients: ~1000 distinct energy levels, another diagonal storage.
    rng = np.random.default_rng(3)
    n, p = 10, 3
    terms = {f"Z{i}": rng.normal() for i in range(n)}
    terms.update({f"Z{i} Z{(i + 3) % n}": rng.normal() for i in range(n)})
    solver = QAOA(corvid.PauliOperator(terms))
    diagonal = solver.energy_dict.all_energies()
    paras = rng.uniform(-1, 1, 2 * p)

    def reference(x):
        state = qaoa_state(diagonal, x[:p], x[p:])
        return float(np.abs(state) ** 2 @ diagonal)

    loss, gradient = solver.loss_and_gradient(paras)
    assert loss == pytest.approx(reference(paras), abs=1e-10)
    np.testing.assert_allclose(gradient, central_differences(reference, paras), rtol=1e-6, atol=1e-8)


def test_custom_mixer_falls_back_to_central_differences():
    exact = solver_for(4, 5)
    custom = solver_for(4, 5, mixer=lambda qubits, angle: corvid.RX(qubits, angle))
    paras = np.array([0.3, -0.7, 0.5, 0.2])
    loss, gradient = exact.loss_and_gradient(paras)
    fallback_loss, fallback = custom.loss_and_gradient(paras)
    assert fallback_loss == pytest.approx(loss, abs=1e-12)
    np.testing.assert_allclose(fallback, gradient, rtol=1e-6, atol=1e-8)
    assert (exact.iter, exact.circuit_iter) == (1, 1)
    assert custom.iter == custom.circuit_iter == 1 + 2 * len(paras)


@pytest.mark.parametrize("loss_type,options", LOSSES)
@pytest.mark.parametrize("mixer", [None, xy_ring_mixer, lambda q, a: corvid.RX(q, a)])
def test_evaluate_matches_the_loss_row_by_row(loss_type, options, mixer):
    solver = solver_for(7, 6, mixer)
    matrix = np.random.default_rng(1).uniform(-1, 1, (5, 4))
    losses = solver.evaluate(matrix, loss_type=loss_type, **options)
    expected = [circuit_loss(solver, row, loss_type, options) for row in matrix]
    np.testing.assert_allclose(losses, expected, rtol=1e-12, atol=1e-12)
    if mixer is not None and mixer is not xy_ring_mixer:
        return
    rows = [solver.loss_and_gradient(row, loss_type=loss_type, **options)[0] for row in matrix]
    np.testing.assert_allclose(losses, rows, rtol=1e-12, atol=1e-12)


def test_settings_fall_back_to_the_run_settings_then_the_defaults():
    solver = solver_for(2, 5)
    paras = np.array([0.4, 0.3])
    default = solver.evaluate(paras)[0]
    assert default == pytest.approx(solver.loss_and_gradient(paras)[0], abs=1e-12)
    solver.run(layer=1, loss_type="CVaR", alpha=0.2, initial_para=paras,
               optimizer_option={"options": {"maxiter": 1}})
    assert solver.evaluate(paras)[0] == pytest.approx(
        solver.evaluate(paras, loss_type="CVaR", alpha=0.2)[0], abs=1e-12)
    assert solver.evaluate(paras)[0] != pytest.approx(default)
    before = (solver.iter, solver.circuit_iter)
    assert solver.evaluate(np.tile(paras, (3, 1))).shape == (3,)
    assert (solver.iter, solver.circuit_iter) == (before[0] + 3, before[1] + 3)


def test_lbfgsb_with_exact_gradients_reaches_the_same_optimum_in_fewer_evaluations():
    edges = [(0, 1), (1, 2), (2, 3), (3, 4), (4, 5), (5, 0), (0, 3), (1, 4), (2, 5), (6, 0),
             (6, 2), (6, 4)]
    start = np.array([0.2, 0.35, 0.5, 0.6, 0.45, 0.3])
    outcomes = {}
    for jac in (False, True):
        solver = QAOA(problems.maxcut_operator(edges))
        option = {"jac": True} if jac else {}
        _, angles, loss = solver.run(layer=3, initial_para=start, optimizer="L-BFGS-B",
                                     optimizer_option=option)
        outcomes[jac] = (loss, solver.iter, solver.circuit_iter)
    assert outcomes[True][0] == pytest.approx(outcomes[False][0], abs=1e-6)
    assert outcomes[True][1] * 3 < outcomes[False][1]
