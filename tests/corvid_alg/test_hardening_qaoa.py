"""Bad input to the QAOA module: one row per (entry point, bad value). Each must raise a clear
exception (the documented message where there is one), and the object must keep exactly the
attributes written before the failure. Also: problems too large for memory, Ctrl-C during an
optimisation, threads, and numerical health of deep circuits."""

import itertools
import threading
import time

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
LOSS = "^wrong loss types, only support default, CVaR, Gibbs$"
ALPHA = "^CVaR method needs parameter alpha to be a number between 0~1$"
TEMPERATURE = "^Gibbs free energy method needs parameter temperature to be a number between 0~1$"
SHAPE = "^Shape of parameter bounds should be same with the layer$"
FINITE = "angle must be finite"

RUN_SETTINGS = ("loss_type", "optimize_type", "optimizer", "alpha", "temperature", "shots")


def state(q):
    """What a failed call may have changed on a QAOA object."""
    return {
        **{name: getattr(q, name) for name in RUN_SETTINGS},
        "layer": q.layer, "iter": q.iter, "circuit_iter": q.circuit_iter,
        "energies": len(q.energy_dict), "has_circuit": hasattr(q, "circuit"),
    }


DEFAULTS = dict(loss_type="default", optimize_type="default", optimizer=None, alpha=1,
                temperature=1, shots=-1)
FRESH = dict(layer=None, iter=0, circuit_iter=0, energies=0, has_circuit=False)

# (bad call of run, error, message, state afterwards beyond the settings run always writes)
RUN_CASES = [
    ("layer 0", dict(layer=0), ValueError, LAYER, {}),
    ("layer -1", dict(layer=-1), ValueError, LAYER, {}),
    ("layer 2.0", dict(layer=2.0), ValueError, LAYER, {}),
    ("layer '2'", dict(layer="2"), ValueError, LAYER, {}),
    ("layer True", dict(layer=True), ValueError, LAYER, {}),
    ("layer None", dict(layer=None), ValueError, LAYER, {}),
    ("layer 0 beats a bad optimize type", dict(layer=0, optimize_type="x"), ValueError, LAYER,
     dict(optimize_type="x")),
    ("optimize type upper case", dict(layer=2, optimize_type="INTERP"), ValueError,
     "^wrong optimize type, only support default, interp$", dict(optimize_type="INTERP")),
    ("interp without a start", dict(layer=2, optimize_type="interp"), ValueError,
     "^Interpolation method requires initial parameters.$", dict(optimize_type="interp")),
    ("interp start too deep", dict(layer=2, optimize_type="interp", initial_para=[.1, .2, .3, .4]),
     ValueError, "^Interpolation method initial parameter size should less than final layer.$",
     dict(optimize_type="interp", layer=2)),
    ("interp start of one angle", dict(layer=2, optimize_type="interp", initial_para=[0.1]),
     ValueError, "^start layer number should be a positive integer and less than final layer$",
     dict(optimize_type="interp", layer=2)),
    ("shots 0", dict(shots=0), ValueError, "^Invalid shots number: 0$",
     dict(shots=0, layer=1, has_circuit=True)),
    ("shots -2", dict(shots=-2), ValueError, "^Invalid shots number: -2$",
     dict(shots=-2, layer=1, has_circuit=True)),
    ("shots 2.5", dict(shots=2.5), ValueError, "shots must be an integer",
     dict(shots=2.5, layer=1, has_circuit=True)),
    ("loss type lower case", dict(loss_type="cvar"), ValueError, LOSS,
     dict(loss_type="cvar", layer=1, circuit_iter=1, has_circuit=True)),
    ("loss type a number", dict(loss_type=5), ValueError, LOSS,
     dict(loss_type=5, layer=1, circuit_iter=1, has_circuit=True)),
] + [
    (f"alpha {a!r}", dict(loss_type="CVaR", alpha=a), ValueError, ALPHA,
     dict(loss_type="CVaR", alpha=a, layer=1, circuit_iter=1, has_circuit=True))
    for a in (NAN, INF, 1.5, -0.1, "0.5", None)
] + [
    (f"temperature {t!r}", dict(loss_type="Gibbs", temperature=t), ValueError, TEMPERATURE,
     dict(loss_type="Gibbs", temperature=t, layer=1, circuit_iter=1, has_circuit=True))
    for t in (NAN, -INF, 1.2, "x")
] + [
    (f"start angle {v}", dict(initial_para=v), ValueError, FINITE, dict(layer=1))
    for v in ([NAN, 0.1], [INF, 0.1], [0.1, -INF])
] + [
    ("gamma bounds too short", dict(layer=3, gamma_bounds=[(0, 1), (0, 2)]), ValueError, SHAPE,
     dict(layer=3)),
    ("beta bounds empty", dict(beta_bounds=[]), ValueError, SHAPE, dict(layer=1)),
    ("option sets bounds twice", dict(optimizer_option={"bounds": None}), TypeError,
     "got multiple values for keyword argument 'bounds'", dict(layer=1)),
    ("option sets method twice", dict(optimizer_option={"method": "COBYLA"}), TypeError,
     "got multiple values for keyword argument 'method'", dict(layer=1)),
    ("unknown optimizer", dict(optimizer="spsa"), ValueError, "Unknown solver spsa",
     dict(optimizer="spsa", layer=1)),
    ("SPSA with negative iterations", dict(optimizer="SPSA", optimizer_option={"maxiter": -1}),
     ValueError, "maxiter must be >= 0", dict(optimizer="SPSA", layer=1)),
]


@pytest.mark.parametrize("kwargs, error, message, changed", [c[1:] for c in RUN_CASES],
                         ids=[c[0] for c in RUN_CASES])
def test_run_rejects_bad_input_and_keeps_what_was_written(kwargs, error, message, changed):
    q = QAOA(ROAD)
    settings = {**DEFAULTS, **{k: v for k, v in kwargs.items() if k in RUN_SETTINGS}}
    with pytest.raises(error, match=message):
        q.run(**kwargs)
    expected = {**settings, **FRESH, **changed}
    got = state(q)
    for name in ("alpha", "temperature"):  # nan != nan
        if isinstance(expected[name], float) and np.isnan(expected[name]):
            assert np.isnan(got.pop(name))
            expected.pop(name)
    assert got == expected


def test_run_takes_at_most_seven_positional_arguments():
    with pytest.raises(TypeError):
        QAOA(ROAD).run(1, None, -1, None, None, None, None, "eighth")


CIRCUIT_CASES = [
    ("gamma nan", ([NAN], [0.1], -1), ValueError, FINITE, dict(layer=1)),
    ("gamma infinite", ([INF], [0.1], -1), ValueError, FINITE, dict(layer=1)),
    ("beta nan", ([0.1], [NAN], -1), ValueError, FINITE, dict(layer=1)),
    ("gamma a string", (["a"], [0.1], -1), TypeError, None, dict(layer=1)),
    ("fewer betas than layers", ([0.1, 0.2], [0.1], -1), IndexError, None, dict(layer=2)),
    ("shots 0", ([0.1], [0.1], 0), ValueError, "^Invalid shots number: 0$",
     dict(layer=1, has_circuit=True)),
    ("shots -2", ([0.1], [0.1], -2), ValueError, "^Invalid shots number: -2$",
     dict(layer=1, has_circuit=True)),
    ("shots 1.5", ([0.1], [0.1], 1.5), ValueError, "shots must be an integer",
     dict(layer=1, has_circuit=True)),
    ("shots True", ([0.1], [0.1], True), ValueError, "shots must be an integer",
     dict(layer=1, has_circuit=True)),
    ("shots 10**30", ([0.1], [0.1], 10**30), ValueError, "shots is too large",
     dict(layer=1, has_circuit=True)),
    ("shots a string", ([0.1], [0.1], "5"), TypeError, None, dict(layer=1, has_circuit=True)),
]


@pytest.mark.parametrize("args, error, message, changed", [c[1:] for c in CIRCUIT_CASES],
                         ids=[c[0] for c in CIRCUIT_CASES])
def test_run_qaoa_circuit_rejects_bad_input(args, error, message, changed):
    q = QAOA(ROAD)
    with pytest.raises(error, match=message):
        q.run_qaoa_circuit(*args)
    assert state(q) == {**{name: None for name in RUN_SETTINGS}, **FRESH, **changed}


@pytest.mark.parametrize("problem, x, error", [
    (ROAD, [1, 0, 0, 1], IndexError),
    (ROAD, [1, 0], TypeError),
    (ROAD, None, TypeError),
    (ROAD, "abc", ValueError),
    (2 * p_1(0) * p_1(1) - 1, [1], IndexError),
])
def test_calculate_energy_rejects_solutions_of_the_wrong_shape(problem, x, error):
    q = QAOA(problem)
    with pytest.raises(error):
        q.calculate_energy(x)
    assert len(q.energy_dict) == 0


@pytest.mark.parametrize("problem, error, message", [
    (sympy.sin(x0), PolynomialError, "generators"),
    (1 / x0, PolynomialError, "generators"),
    (sympy.sqrt(x0) + x1, PolynomialError, "generators"),
    (sympy.Integer(5), GeneratorsNeeded, None),
    # Without variables sympy would read pi or nan as a variable: a silently wrong Hamiltonian.
    (sympy.pi, GeneratorsNeeded, "no variables"),
    (x0 * sympy.nan, GeneratorsNeeded, "no variables"),
    (x0 * float("nan") + x1, GeneratorsNeeded, "no variables"),
    (x0 + sympy.I * x1, TypeError, "complex"),
])
def test_constructor_rejects_what_is_not_a_binary_polynomial(problem, error, message):
    with pytest.raises(error, match=message):
        QAOA(problem)


@pytest.mark.parametrize("constant, value", [(corvid.PauliOperator(3), "3.0"), (corvid.PauliOperator(), "0")])
def test_constant_operator_is_stored_but_cannot_run(constant, value):
    q = QAOA(constant)
    with pytest.raises(GeneratorsNeeded, match=f"^{value} has no variables: a constant is not an"):
        q.run(initial_para=[0.1, 0.2])


@pytest.mark.parametrize("problem", [5, "x0", None, 2.5])
def test_unsupported_problem_is_stored_but_cannot_run(problem):
    q = QAOA(problem)
    assert (q.problem, q.operator, q.problem_dimension) == (problem, None, 0)
    with pytest.raises(TypeError, match="no Hamiltonian for a problem of type"):
        q.run(initial_para=[0.1, 0.2])


@pytest.mark.parametrize("call, error, message", [
    (lambda: p_1(-1), ValueError, "invalid Pauli key"),
    (lambda: p_1(1.5), ValueError, "invalid Pauli key"),
    (lambda: p_1(2**32), ValueError, "too large"),
    (lambda: pauli_z_operator_to_circuit([({3: "Z"}, 1.0)], [0, 1]), IndexError, None),
    (lambda: pauli_z_operator_to_circuit([({0: "Z"}, 1.0)], [0], NAN), ValueError, FINITE),
    (lambda: pauli_z_operator_to_circuit([({0: "Z"}, NAN)], [0], 1.0), ValueError, FINITE),
    (lambda: pauli_z_operator_to_circuit([({0: "Z"}, 1.0)], [0], "a"), TypeError, None),
    (lambda: parameter_interpolate([]), ValueError, None),
], ids=["p_1(-1)", "p_1(1.5)", "p_1(2**32)", "qubit outside the list", "gamma nan",
        "coefficient nan", "gamma a string", "interpolate nothing"])
def test_module_functions_reject_bad_input(call, error, message):
    with pytest.raises(error, match=message):
        call()


def test_qubits_of_another_or_a_finalized_machine_are_refused():
    other = corvid.CPUQVM()
    foreign = other.qAlloc_many(3)
    dead = corvid.CPUQVM()
    stale = dead.qAlloc_many(3)
    dead.finalize()
    for qubits in (foreign, stale):
        q = QAOA(ROAD, init_circuit=lambda qlist, qubits=qubits: corvid.hadamard_circuit(qubits))
        with pytest.raises(ValueError, match="belongs to another machine"):
            q.run_qaoa_circuit([0.1], [0.2])
        assert q.circuit_iter == 0


def test_problems_too_large_for_memory_are_refused_at_the_first_run():
    forty = QAOA(sum(sympy.symbols("y0:40")))
    seventy = QAOA(sum(sympy.symbols("y0:70")))  # wider than a 64-bit basis index
    operator = sum((corvid.PauliOperator(f"Z{i}", 1) for i in range(70)), corvid.PauliOperator())
    assert (forty.problem_dimension, seventy.problem_dimension) == (40, 70)
    assert QAOA(operator).problem_dimension == 70
    with pytest.raises(MemoryError, match=r"40 qubits needs 16\.0 TiB"):
        forty.run(initial_para=[0.1, 0.2])
    with pytest.raises(MemoryError, match="70 qubits needs 2\\^74 bytes"):
        seventy.run_qaoa_circuit([0.1], [0.2])
    assert forty.circuit_iter == seventy.circuit_iter == 0
    # Energies of single solutions still work without the whole space.
    assert seventy.calculate_energy([1] * 70) == 70


def test_operator_with_a_qubit_index_beyond_the_register_fails_with_an_index_error():
    q = QAOA(corvid.PauliOperator("Z4294967295", 1))
    assert q.problem_dimension == 1
    with pytest.raises(IndexError):
        q.run(initial_para=[0.1, 0.2])


# --- Ctrl-C, threads, numerical health -----------------------------------------------------------

def test_ctrl_c_stops_a_long_optimisation_within_a_second():
    elapsed, line = interrupt_after("""
        import sympy
        from corvid_alg.QAOA.qaoa import QAOA
        xs = sympy.symbols("x0:14")
        problem = sum((i % 3 - 1) * xs[i] * xs[(i + 1) % 14] for i in range(14)) + xs[0]
        q = QAOA(problem)
        q.run_qaoa_circuit([0.1] * 3, [0.2] * 3)  # warm up: energies and caches
        print("ready")
        try:
            q.run(layer=3, initial_para=[0.1] * 6, optimizer="Nelder-Mead",
                  optimizer_option={"options": {"maxiter": 10**7, "maxfev": 10**7,
                                                "xatol": 0, "fatol": 0}})
            print("finished")
        except KeyboardInterrupt:
            print("KeyboardInterrupt in optimisation", q.circuit_iter > 10)
    """)
    assert line == "KeyboardInterrupt in optimisation True"
    assert elapsed < 1.0


def _solve(problem, start):
    q = QAOA(problem)
    distribution, angles, loss = q.run(layer=2, initial_para=start)
    return list(distribution.items()), np.asarray(angles).tolist(), loss, q.circuit_iter


def test_objects_optimised_in_parallel_threads_match_sequential_runs():
    xs = sympy.symbols("x0:10")
    problems = [sum(((i * k) % 5 - 2) * xs[i] * xs[(i + k) % 10] for i in range(10)) + k * xs[k]
                for k in range(1, 5)]
    starts = [[0.2 * k, 0.1, 0.3, 0.05 * k] for k in range(1, 5)]
    sequential = [_solve(p, s) for p, s in zip(problems, starts)]
    parallel = [None] * len(problems)

    def work(i):
        parallel[i] = _solve(problems[i], starts[i])

    threads = [threading.Thread(target=work, args=(i,)) for i in range(len(problems))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert parallel == sequential


def test_simulation_releases_the_gil():
    """While one thread simulates, another keeps running Python: the gaps in its progress stay
    far below the length of the simulation (holding the GIL would stall it throughout)."""
    n = 20
    qvm = corvid.CPUQVM()
    q = qvm.qAlloc_many(n)
    c = corvid.QCircuit() << corvid.hadamard_circuit(q)
    for layer in range(60):
        for i in range(n - 1):
            c << corvid.CNOT(q[i], q[i + 1]) << corvid.RZ(q[i + 1], 0.1 * (layer + 1))
            c << corvid.CNOT(q[i], q[i + 1])
        c << corvid.RX(q, 0.3)
    prog = corvid.QProg() << c
    done = threading.Event()
    span = []

    def simulate():
        start = time.monotonic()
        qvm.prob_run_dict(prog, q, 1)
        span.extend([start, time.monotonic()])
        done.set()

    worker = threading.Thread(target=simulate)
    ticks = []
    worker.start()
    while not done.is_set():
        ticks.append(time.monotonic())
    worker.join()
    start, end = span
    inside = [t for t in ticks if start <= t <= end]
    assert end - start > 0.05, "the simulation was too short to tell"
    gaps = np.diff([start] + inside + [end])
    assert gaps.max() < 0.5 * (end - start)


def test_probabilities_stay_normalised_after_fifty_layers_on_twenty_qubits():
    xs = sympy.symbols("x0:20")
    problem = sum(xs[i] * xs[(i + 1) % 20] - xs[i] for i in range(20))
    q = QAOA(problem)
    rng = np.random.default_rng(7)
    result = q.run_qaoa_circuit(rng.uniform(-np.pi, np.pi, 50), rng.uniform(-np.pi, np.pi, 50))
    p = result.probabilities
    assert len(p) == 1 << 20 and p.min() >= 0
    assert abs(p.sum() - 1) < 1e-12


def test_energies_of_integer_problems_are_exact():
    xs = sympy.symbols("x0:12")
    rng = np.random.default_rng(11)
    problem = sum(int(rng.integers(-9, 10)) * xs[i] * xs[j] * (xs[k] if k % 3 == 0 else 1)
                  for i, j, k in itertools.combinations(range(12), 3) if rng.random() < 0.1)
    problem += sum(int(rng.integers(-9, 10)) * x for x in xs) + 7
    q = QAOA(problem)
    q.run(layer=1, initial_para=[0.3, 0.4], optimizer_option={"options": {"maxiter": 2}})
    f = sympy.lambdify(sorted(xs, key=lambda x: x.name), problem)  # bit i: i-th name in order
    for index in rng.integers(0, 1 << 12, 200):
        key = format(int(index), "012b")
        exact = f(*[int(bit) for bit in reversed(key)])
        assert q.energy_dict[key] == exact
        assert q.calculate_energy([int(bit) for bit in reversed(key)]) == exact
