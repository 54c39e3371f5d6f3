"""Bad input to the QAOA module, one table per entry point; memory, Ctrl-C, threads, numerics."""

import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import sympy
from sympy.polys.polyerrors import GeneratorsNeeded, PolynomialError

import corvid
from corvid_alg.QAOA.qaoa import QAOA, p_1, parameter_interpolate, pauli_z_operator_to_circuit
from interrupt_harness import interrupt_after

x0, x1, x2 = sympy.symbols("x0 x1 x2")
ROAD = 2 * x0 * x1 + 3 * x2 - 1
NAN, INF = float("nan"), float("inf")
LAYER = "^layer number must be a positive integer$"
PENALTY = r"not an objective to minimise: write a constraint as a penalty .* P\*\(x0 \+ x1 - 1\)\*\*2"
ALPHA = "^CVaR method needs parameter alpha to be a number between 0~1$"
TEMPERATURE = "^Gibbs free energy method needs parameter temperature to be a number between 0~1$"
INTERP = dict(layer=2, optimize_type="interp")
OVERFLOW = "infinite or overflow"


def table(names, cases):
    return pytest.mark.parametrize(names, [c[1:] for c in cases], ids=[c[0] for c in cases])


RUN_CASES = [
    *[(f"layer {v!r}", dict(layer=v), ValueError, LAYER) for v in (0, -1, 2.0, "2", True, None)],
    ("optimize type upper case", dict(layer=2, optimize_type="INTERP"), ValueError, "^wrong optimize type, only support default, interp$"),
    ("interp without a start", INTERP, ValueError, "^Interpolation method requires initial parameters.$"),
    ("interp start too deep", dict(INTERP, initial_para=[.1, .2, .3, .4]), ValueError, "^Interpolation method initial parameter size should less than final layer.$"),
    ("interp start of no angle", dict(INTERP, initial_para=[]), ValueError, "^start layer number should be a positive integer and less than final layer$"),
    ("odd number of angles", dict(layer=2, initial_para=[.1, .2, .3]), ValueError, "initial_para has 3 angles: it needs an even number"),
    ("odd interp start", dict(INTERP, initial_para=[0.1]), ValueError, "initial_para has 1 angles"),
    *[(f"shots {v}", dict(shots=v), ValueError, f"^Invalid shots number: {v}$") for v in (0, -2)],
    *[(f"loss type {v!r}", dict(loss_type=v), ValueError,
       "^wrong loss types, only support default, CVaR, Gibbs$") for v in ("cvar", 5)],
    *[(f"alpha {a!r}", dict(loss_type="CVaR", alpha=a), ValueError, ALPHA)
      for a in (NAN, INF, 1.5, -0.1, "0.5", None)],
    *[(f"temperature {t!r}", dict(loss_type="Gibbs", temperature=t), ValueError, TEMPERATURE)
      for t in (NAN, -INF, 1.2, "x")],
    ("start angle nan", dict(initial_para=[NAN, 0.1]), ValueError, "angle must be finite"),
    ("unknown optimizer", dict(optimizer="spsa"), ValueError, "Unknown solver spsa"),
    ("optimizer a number", dict(optimizer=5), TypeError, "^optimizer must be None, 'SPSA' or"),
    ("crossed bounds", dict(gamma_bounds=[(1, 0)]), ValueError, "upper bound is less than"),
    ("crossed bounds for SPSA", dict(optimizer="SPSA", beta_bounds=(1, 0)), ValueError, "lower bound 1 is above the upper bound 0"),
    ("SPSA with negative iterations", dict(optimizer="SPSA", optimizer_option={"maxiter": -1}),
     ValueError, "maxiter must be >= 0"),
]


@table("kwargs, error, message", RUN_CASES)
def test_run_rejects_bad_input(kwargs, error, message):
    with pytest.raises(error, match=message):
        QAOA(ROAD).run(**kwargs)


def test_run_stores_its_settings_first_and_checks_layer_before_optimize_type():
    q = QAOA(ROAD)  # nothing written before a failure is rolled back
    q.run(initial_para=[0.1, 0.2], optimizer_option={"options": {"maxiter": 2}})
    with pytest.raises(ValueError, match=LAYER):
        q.run(0, None, 7, "CVaR", "x", "COBYLA", None, alpha=5, temperature=9)
    assert (q.shots, q.loss_type, q.optimize_type, q.optimizer, q.alpha, q.temperature,
            q.layer) == (7, "CVaR", "x", "COBYLA", 5, 9, 1)
    with pytest.raises(ValueError, match="wrong optimize type"):
        q.run(layer=3, optimize_type="x")
    assert q.layer == 1
    with pytest.raises(TypeError):
        q.run(1, None, -1, None, None, None, None, "eighth")


OTHER_CASES = [
    ("circuit: fewer betas", lambda q: q.run_qaoa_circuit([.1, .2], [.1]), IndexError, None),
    ("circuit: shots 0", lambda q: q.run_qaoa_circuit([.1], [.1], 0), ValueError, "^Invalid shots number: 0"),
    ("circuit: shots a string", lambda q: q.run_qaoa_circuit([.1], [.1], "5"), TypeError, None),
    ("energy: too long", lambda q: q.calculate_energy([1, 0, 0, 1]), IndexError, None),
    ("energy: too short", lambda q: q.calculate_energy([1, 0]), TypeError, None),
    ("energy: None", lambda q: q.calculate_energy(None), TypeError, None),
    ("energy: a string", lambda q: q.calculate_energy("abc"), ValueError, None),
    ("energy: operator index", lambda q: QAOA(2 * p_1(0) * p_1(1)).calculate_energy([1]), IndexError, None),
    ("p_1(-1)", lambda q: p_1(-1), ValueError, "invalid Pauli key"),
    ("p_1(2**32)", lambda q: p_1(2**32), ValueError, "too large"),
    ("phase: qubit outside the list", lambda q: pauli_z_operator_to_circuit([({3: "Z"}, 1.0)], [0, 1]),
     IndexError, "acts on qubit 3 but the qubit list has 2"),
    ("interpolate nothing", lambda q: parameter_interpolate([]), ValueError, None),
    *[(f"{name}: sampling", lambda q, c=c: (setattr(q, "shots", 100), c(q)), ValueError, "exact probabilities")
      for name, c in [("gradient", lambda q: q.loss_and_gradient([.1, .2])), ("evaluate", lambda q: q.evaluate([[.1, .2]]))]],
    *[(f"gradient: {len(v)} angles", lambda q, v=v: q.loss_and_gradient(v), ValueError, "2p") for v in ([.1, .2, .3], [])],
    ("evaluate: rows of one angle", lambda q: q.evaluate([[.1], [.2]]), ValueError, "2p"),
    ("gradient: alpha 2", lambda q: q.loss_and_gradient([.1, .2], loss_type="CVaR", alpha=2), ValueError, "CVaR"),
    ("evaluate: loss mean", lambda q: q.evaluate([[.1, .2]], loss_type="mean"), ValueError, "wrong loss types"),
]


@table("call, error, message", OTHER_CASES)
def test_other_entry_points_reject_bad_input(call, error, message):
    q = QAOA(ROAD)
    with pytest.raises(error, match=message):
        call(q)
    assert len(q.energy_dict) == 0 and q.circuit_iter == 0


@pytest.mark.parametrize("problem, error, message", [
    *[(p, PolynomialError, "generators") for p in (sympy.sin(x0), 1 / x0, sympy.sqrt(x0) + x1)],
    (sympy.Integer(5), GeneratorsNeeded, None),
    # Without variables sympy would read pi or nan as a variable: a silently wrong Hamiltonian.
    (sympy.pi, GeneratorsNeeded, "no variables"),
    (x0 * float("nan") + x1, GeneratorsNeeded, "no variables"),
    (x0 + sympy.I * x1, TypeError, "complex"),
    *[(p, ValueError, OVERFLOW) for p in (sympy.oo * x0, sympy.Integer(10) ** 400 * x0,
                                          1e308 * x0 + 1e308 * x1, corvid.PauliOperator("Z0", INF))],
    *[(p, ValueError, PENALTY) for p in (sympy.Eq(x0 + x1, 1), x0 + x1 <= 1, sympy.And(x0, x1), x0 | ~x1)],
    (sympy.IndexedBase("z")[sympy.Symbol("i")], ValueError, "needs integer indices"),
])
def test_constructor_rejects_what_is_not_a_binary_polynomial(problem, error, message):
    with pytest.raises(error, match=message):
        QAOA(problem)


@pytest.mark.parametrize("problem, error, message", [
    *[(p, TypeError, "no Hamiltonian for a problem of type")
      for p in (5, "x0", None, 2.5, [1, 2], [({0: "Z"}, 1.0)])],
    (corvid.PauliOperator(3), GeneratorsNeeded, "^3.0 has no variables: a constant is not an"),
    (corvid.PauliOperator(), GeneratorsNeeded, "^0 has no variables"),
])
def test_a_problem_without_a_hamiltonian_is_accepted_but_cannot_run(problem, error, message):
    q = QAOA(problem)
    if error is TypeError:  # an unsupported kind is stored as given and has energy 0
        assert (q.problem, q.operator, q.problem_dimension, q.calculate_energy([1])) == (problem, None, 0, 0)
    with pytest.raises(error, match=message):
        q.run(initial_para=[0.1, 0.2])


def test_problems_too_large_for_memory_are_refused_at_the_first_run():
    forty, seventy = QAOA(sum(sympy.symbols("y0:40"))), QAOA(sum(sympy.symbols("y0:70")))
    assert (forty.problem_dimension, seventy.problem_dimension) == (40, 70)  # 70: past a 64-bit index
    with pytest.raises(MemoryError, match=r"40 qubits needs 16\.0 TiB"):
        forty.run(initial_para=[0.1, 0.2])
    with pytest.raises(MemoryError, match=r"70 qubits needs 2\^74 bytes"):
        seventy.run_qaoa_circuit([0.1], [0.2])
    assert forty.circuit_iter == seventy.circuit_iter == 0
    assert seventy.calculate_energy([1] * 70) == 70  # single solutions need no state


@pytest.mark.parametrize("optimizer, options", [
    ("Nelder-Mead", {"options": {"maxiter": 10**7, "maxfev": 10**7, "xatol": 0, "fatol": 0}}),
    ("SPSA", {"maxiter": 10**9}),
])
def test_ctrl_c_stops_a_long_optimisation_within_a_second_with_its_history(optimizer, options):
    elapsed, line = interrupt_after(f"""
        import sympy
        from corvid_alg.QAOA.qaoa import QAOA
        xs = sympy.symbols("x0:14")
        q = QAOA(sum((i % 3 - 1) * xs[i] * xs[(i + 1) % 14] for i in range(14)) + xs[0])
        q.run_qaoa_circuit([0.1] * 3, [0.2] * 3)  # warm up: energies and caches
        print("ready")
        try:
            q.run(layer=3, initial_para=[0.1] * 6, optimizer={optimizer!r}, optimizer_option={options!r})
            print("finished")
        except KeyboardInterrupt:
            h, best, result = q.history, q.best, q.optimizer_result
            print("interrupted", len(h) > 10, q.iter - len(h) in (0, 1), best.loss == min(e.loss for e in h),
                  result.success, result.message, list(result.x) == list(best.angles))
    """)
    assert line == "interrupted True True True False stopped by KeyboardInterrupt True" and elapsed < 1.0


def _solve(problem, start):
    q = QAOA(problem)
    distribution, angles, loss = q.run(layer=2, initial_para=start)
    return list(distribution.items()), np.asarray(angles).tolist(), loss, q.circuit_iter


def test_objects_optimised_in_parallel_threads_match_sequential_runs():
    xs = sympy.symbols("x0:10")
    cases = [(sum(((i * k) % 5 - 2) * xs[i] * xs[(i + k) % 10] for i in range(10)) + k * xs[k],
              [0.2 * k, 0.1, 0.3, 0.05 * k]) for k in range(1, 5)]
    with ThreadPoolExecutor(len(cases)) as pool:
        assert list(pool.map(lambda case: _solve(*case), cases)) == [_solve(*case) for case in cases]


def test_probabilities_stay_normalised_after_fifty_layers_on_twenty_qubits():
    xs = sympy.symbols("x0:20")
    rng = np.random.default_rng(7)
    p = QAOA(sum(xs[i] * xs[(i + 1) % 20] - xs[i] for i in range(20))).run_qaoa_circuit(
        rng.uniform(-np.pi, np.pi, 50), rng.uniform(-np.pi, np.pi, 50)).probabilities
    assert len(p) == 1 << 20 and p.min() >= 0 and abs(p.sum() - 1) < 1e-12


def test_one_object_used_from_two_threads_is_refused_not_mixed():
    entered, release = threading.Event(), threading.Event()

    def blocking_start(qlist):
        entered.set()
        release.wait(10)
        return corvid.hadamard_circuit(qlist)

    q = QAOA(ROAD, init_circuit=blocking_start)
    outcome = []
    worker = threading.Thread(target=lambda: outcome.append(
        q.run(initial_para=[0.1, 0.2], optimizer_option={"options": {"maxiter": 2}})))
    worker.start()
    assert entered.wait(10)
    for call in (q.run, lambda: q.run_qaoa_circuit([0.1], [0.2]), lambda: q._loss_function([0.1, 0.2])):
        with pytest.raises(RuntimeError, match="one object serves one thread at a time"):
            call()
    release.set()
    worker.join(10)
    assert len(outcome) == 1 and q.layer == 1 and q.loss_type == "default"


@pytest.mark.parametrize("operator, what", [
    (corvid.PauliOperator("X0", 2.0) + corvid.PauliOperator("Z1", 1.0), "X or Y factors"),
    (corvid.PauliOperator("X0", 1.0) * corvid.PauliOperator("Y0", 1.0), "complex coefficients"),
])
def test_an_operator_that_is_not_real_diagonal_warns_and_keeps_its_values(operator, what):
    with pytest.warns(UserWarning, match=f"not a real diagonal Hamiltonian \\({what}\\)"):
        assert QAOA(operator).operator == operator.toHamiltonian(True)


def test_a_non_finite_loss_stops_run_naming_the_energy_scale():
    q = QAOA(800 * x0 + 800 * x1 - 1600 * x0 * x1 - 2000)
    with pytest.raises(FloatingPointError, match="energies from -2000 to -1200 at temperature 1"
                       ".*norm=True.*shift it by a constant.*higher temperature"):
        q.run(loss_type="Gibbs", initial_para=[0.1, 0.2])
    assert q._loss_function([0.1, 0.2]) == -np.inf  # outside run the loss keeps its IEEE value
