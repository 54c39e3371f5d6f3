import copy
import json
import math
import multiprocessing
import pickle

import numpy as np
import pytest
import sympy

import corvid
from corvid_alg.QAOA.qaoa import QAOA, p_1
from reference import keys, polynomial_values, random_polynomial

x = sympy.symbols("x0:11")
x0, x1, x2 = x[:3]
ROAD = 2 * x0 * x1 + 3 * x2 - 1
ROAD_OPERATOR = 2 * p_1(0) * p_1(1) + 3 * p_1(2) - 1
RUN_SETTINGS = ["shots", "loss_type", "alpha", "temperature", "optimizer", "optimize_type", "layer"]


def test_construction_from_a_polynomial_or_an_operator():
    solver = QAOA(ROAD)
    assert solver.problem_dimension == 3 and solver.problem == sympy.simplify(ROAD)
    assert (solver.iter, solver.circuit_iter, solver.energy_dict) == (0, 0, {})
    assert all(getattr(solver, name) is None for name in RUN_SETTINGS)
    scaled = QAOA(ROAD, norm=True)
    assert scaled.problem == solver.problem and scaled.operator != solver.operator
    by_operator = QAOA(ROAD_OPERATOR)
    assert by_operator.problem_dimension == 3
    assert by_operator.problem == by_operator.operator and by_operator.problem is not by_operator.operator


@pytest.mark.filterwarnings("ignore:not a real diagonal Hamiltonian")
@pytest.mark.parametrize("problem, solution, energy", [
    *[(p, s, e) for p in (ROAD, ROAD_OPERATOR) for s, e in [([1, 0, 0], -1), ([0, 1, 1], 2), ([1, 1, 1], 4)]],
    (sum((i + 1) * v for i, v in enumerate(x)), [0, 0, 1] + [0] * 8, 11),  # names sort: entry 2 is x10
    (corvid.PauliOperator("X0", 2.0), [1], -2.0),  # X read as Z
    (corvid.PauliOperator(2.5) + corvid.PauliOperator("Z1", 0.0), [0, 1], 2.5),
])
def test_calculate_energy(problem, solution, energy):
    assert QAOA(problem).calculate_energy(solution) == energy


def with_settings(problem, **settings):
    solver = QAOA(problem)
    for name, value in settings.items():
        setattr(solver, name, value)
    return solver


def test_losses_on_plain_results():
    solver = with_settings(ROAD, alpha=0.5, temperature=1)
    assert solver._loss_function_default({"001": 0.5, "110": 0.5}) == 0.5
    assert dict(solver.energy_dict) == {"001": -1, "110": 2}
    assert solver._loss_function_default({}) == 0.0
    # CVaR takes mass by weight in result order, not by energy: the lowest ('000': -1) comes last
    assert solver._loss_function_cvar({"011": 0.3, "000": 0.3, "100": 0.4}) == pytest.approx(0.4 * 2 + 0.1)
    solver.alpha = 0
    assert solver._loss_function_cvar({"111": 0.7, "010": 0.3}) == 0.0
    assert {"111", "010"} <= set(solver.energy_dict)
    solver.alpha = 0.25  # equal weights on the machine's map: '000' and '001' (both -1) come first
    assert solver._loss_function_cvar(solver.run_qaoa_circuit([0.0], [0.0])) == pytest.approx(-0.25)
    assert solver._loss_function_Gibbs({"001": 1.0}) == pytest.approx(-1.0)
    # energies of '000' and '011' are -1 and 1; shifted by +1 that is the 0 and 2 example
    assert solver._loss_function_Gibbs({"000": 0.5, "011": 0.5}) == pytest.approx(
        -math.log(0.5 + 0.5 * math.exp(-2)) - 1)
    solver.temperature = 0.5
    assert solver._loss_function_Gibbs({"001": 1.0}) == pytest.approx(-2.0)
    solver.temperature = 0
    with pytest.raises(ZeroDivisionError):
        solver._loss_function_Gibbs({"101": 0.5, "001": 0.5})
    assert "101" in solver.energy_dict


@pytest.mark.parametrize("seed", range(3))
@pytest.mark.parametrize("loss, settings", [("default", {}), ("cvar", {"alpha": 0.3}), ("cvar", {"alpha": 1}),
                                            ("Gibbs", {"temperature": 0.7})])
def test_machine_backed_and_plain_results_give_the_same_loss(seed, loss, settings):
    rng = np.random.default_rng(seed)
    problem, variables = random_polynomial(rng, n=5)
    fast, plain = with_settings(problem, **settings), with_settings(problem, **settings)
    result = fast.run_qaoa_circuit(rng.uniform(0, 1, 1), rng.uniform(0, 1, 1))
    assert isinstance(result, corvid.ProbabilityMap)
    loss = "_loss_function_" + loss
    expected = getattr(plain, loss)(dict(result))
    assert getattr(fast, loss)(result) == pytest.approx(expected, rel=1e-12, abs=1e-12)
    values = polynomial_values(problem, variables)  # both caches hold every state, with its value
    assert fast.energy_dict == dict(plain.energy_dict)
    assert [plain.energy_dict[k] for k in keys(5)] == pytest.approx(values, abs=1e-9)


def test_loss_driver_splits_the_angles_and_counts_and_samples_compute_only_their_energies():
    sampled = with_settings(x0 * x1 + sum(x[2:9]) - x[9], shots=20, layer=1, loss_type="default")
    sampled._loss_function([0.3, 0.4])
    assert 0 < len(sampled.energy_dict) <= 20  # of 1024 states
    solver = with_settings(ROAD, layer=2, shots=-1, loss_type="default")
    direct = solver._loss_function_default(solver.run_qaoa_circuit([0.1, 0.2], [0.3, 0.4], -1))
    assert solver._loss_function([0.1, 0.2, 0.3, 0.4]) == pytest.approx(direct, abs=1e-14)
    assert (solver.iter, solver.circuit_iter) == (1, 2)
    assert [g.params[0] for g in solver.circuit if g.name == "RX"] == pytest.approx([-0.6] * 3 + [-0.8] * 3)
    solver.layer = None  # unset: the whole vector is both halves, and sets the layer
    solver._loss_function([0.1, 0.2])
    assert solver.layer == 2
    assert [g.params[0] for g in solver.circuit if g.name == "RX"] == pytest.approx([-0.2] * 3 + [-0.4] * 3)


def _own_energy(x):
    return 10 * x[0] - x[2]


class OwnEnergy(QAOA):
    def calculate_energy(self, x):
        self.calls.append(tuple(x))
        return _own_energy(x)


@pytest.mark.parametrize("shots", [-1, 40])
@pytest.mark.parametrize("how", ["subclass", "instance"])
def test_a_replaced_calculate_energy_is_called_once_per_new_key(how, shots):
    solver = OwnEnergy(ROAD) if how == "subclass" else QAOA(ROAD)
    if how == "instance":
        solver.calculate_energy = lambda x: (solver.calls.append(tuple(x)), _own_energy(x))[1]
    solver.calls = []
    solver.layer, solver.shots, solver.loss_type = 1, shots, "default"
    for _ in range(3):
        loss = solver._loss_function([0.3, 0.4])
    assert len(solver.calls) == len(set(solver.calls)) == len(solver.energy_dict)
    assert all(e == _own_energy([int(b) for b in reversed(k)]) for k, e in solver.energy_dict.items())
    if shots == -1:
        result = solver.run_qaoa_circuit([0.3], [0.4])
        assert loss == pytest.approx(sum(p * solver.energy_dict[k] for k, p in result.items()))


def test_energy_dict_is_a_map_whose_entries_the_losses_use():
    solver = QAOA(ROAD)
    uniform = solver.run_qaoa_circuit([0.0], [0.0])  # every state 1/8
    solver.energy_dict["000"] = 7.0  # written before the whole space is computed
    base = solver._loss_function_default(uniform)
    assert base == pytest.approx((7 - 1 - 1 + 1 + 2 + 2 + 2 + 4) / 8)
    solver.energy_dict["001"] = 100.0  # and after
    assert solver._loss_function_default(uniform) == pytest.approx(base + 101 / 8)
    assert solver._loss_function_default({"001": 1.0}) == 100.0
    assert repr(solver.energy_dict).endswith("... (8 entries)})")
    del solver.energy_dict["001"]
    assert "001" not in solver.energy_dict
    solver.energy_dict.clear()
    assert len(solver.energy_dict) == 0 and solver._loss_function_default({"001": 1.0}) == -1
    wide = QAOA(sum(sympy.symbols("y0:16")))
    wide._loss_function_default(wide.run_qaoa_circuit([0.1], [0.2]))
    assert len(wide.energy_dict) == 1 << 16 and len(repr(wide.energy_dict)) < 200


@pytest.mark.parametrize("big", [2 ** 40 + 1, 2 ** 60 + 1])  # the C++ path, then the exact one
def test_integer_energies_are_exact(big):
    solver = with_settings(big * x0 * x1 - 3 * x2 + 7 * x0 * x1 * x2, layer=1, shots=-1, loss_type="default")
    solver._loss_function([0.1, 0.2])
    for key in keys(3):
        b = [int(bit) for bit in reversed(key)]
        exact = big * b[0] * b[1] - 3 * b[2] + 7 * b[0] * b[1] * b[2]
        assert solver.calculate_energy(b) == exact and solver.energy_dict[key] == exact


def _solve_road(seed):
    np.random.seed(seed)
    return QAOA(ROAD).run(layer=1, optimizer_option={"options": {"maxiter": 3}})


@pytest.mark.parametrize("shots", [-1, 30])
def test_run_results_pickle_copy_convert_and_cross_processes(shots):
    np.random.seed(1)
    solver = QAOA(ROAD)
    out = solver.run(layer=1, shots=shots, optimizer_option={"options": {"maxiter": 3}})
    for clone in (pickle.loads(pickle.dumps(out)), copy.copy(out), copy.deepcopy(out)):
        assert list(clone[0].items()) == list(out[0].items())
        assert list(clone[1]) == list(out[1]) and clone[2] == out[2]
    assert json.loads(json.dumps(dict(out[0]))) == dict(out[0])
    with multiprocessing.get_context("fork").Pool(1) as pool:
        assert list(pool.apply(_solve_road, (4,))[0].items()) == list(_solve_road(4)[0].items())
    for clone in (pickle.loads(pickle.dumps(solver)), copy.deepcopy(solver)):
        assert dict(clone.energy_dict) == dict(solver.energy_dict)
        assert clone.run(layer=1, initial_para=[0.1, 0.2])[0] is not None


MAXCUT_8 = sum(-(x[i] + x[j] - 2 * x[i] * x[j]) for i, j in
               [(0, 1), (1, 2), (2, 3), (3, 0), (4, 5), (5, 6), (6, 7), (7, 4), (0, 4), (2, 6)])
FLOAT_OPERATOR = 0.3 * p_1(0) * p_1(1) - 1.7 * p_1(2) + 0.1 * p_1(1) * p_1(3) + 2.5


@pytest.mark.parametrize("problem", [MAXCUT_8, FLOAT_OPERATOR, ROAD + sympy.Rational(1, 10) * x0 * x2],
                         ids=["maxcut", "float operator", "non-dyadic polynomial"])
@pytest.mark.parametrize("loss, option", [("default", {}), ("CVaR", {"alpha": 0.3}),
                                          ("Gibbs", {"temperature": 0.5})])
def test_losses_through_the_level_table_equal_those_of_the_energy_array(problem, loss, option):
    from corvid import diagonal
    solver = QAOA(problem)
    table = solver.energy_dict.energies()
    assert isinstance(table, diagonal.EnergyTable) and table.nbytes < 8 * len(table)
    array = solver._energy_model.all_energies()  # the whole-space transform
    np.testing.assert_allclose(np.asarray(table), array, rtol=0, atol=1e-12)
    p = solver.run_qaoa_circuit([0.3, 0.7], [0.4, 0.2]).probabilities
    score = {"default": lambda e: diagonal.expectation(p, e),
             "CVaR": lambda e: diagonal.cvar(p, e, 0.3),
             "Gibbs": lambda e: diagonal.gibbs_sum(p, e, 0.5)}[loss]
    assert score(table) == pytest.approx(score(array), rel=0, abs=1e-12)
    angles = np.array([[0.3, 0.7, 0.4, 0.2], [1.1, -0.2, 0.3, 0.9]])
    settings = dict(loss=loss, alpha=option.get("alpha", 1), temperature=option.get("temperature", 1),
                    **solver._ansatz_description())
    np.testing.assert_allclose(corvid.ansatz.losses(energies=table, angles=angles, **settings),
                               corvid.ansatz.losses(energies=array, angles=angles, **settings),
                               rtol=0, atol=1e-12)
    via_table = corvid.ansatz.loss_and_gradient(energies=table, angles=angles[1], **settings)
    via_array = corvid.ansatz.loss_and_gradient(energies=array, angles=angles[1], **settings)
    np.testing.assert_allclose(np.append(*via_table), np.append(*via_array), rtol=0, atol=1e-12)


def test_an_energy_written_into_the_cache_replaces_the_tables():
    solver = with_settings(ROAD, layer=1, shots=-1, loss_type="default")
    before = solver._loss_function([0.1, 0.2])
    solver.energy_dict["000"] = 100.0
    p = solver.run_qaoa_circuit([0.1], [0.2]).probabilities
    assert solver._loss_function([0.1, 0.2]) == pytest.approx(before + p[0] * (100.0 - (-1)), abs=1e-12)
    assert solver.energy_dict["000"] == 100.0 and len(solver.energy_dict) == 8


def test_large_results_select_their_order_piece_by_piece(monkeypatch):
    from corvid_alg.QAOA.qaoa import distribution
    solver = QAOA(MAXCUT_8)
    result = solver.run_qaoa_circuit([0.3], [0.4])
    sorted_once = distribution.by_descending_probability(result)
    for name, value in [("_SORT_LIMIT", 0), ("_FIRST_PIECE", 3), ("_LARGEST_PIECE", 20)]:
        monkeypatch.setattr(distribution, name, value)
    selected = distribution.by_descending_probability(result)
    assert selected._order is None and list(selected.items()) == list(sorted_once.items())
    assert len(selected) == 256 and list(selected.order) == list(sorted_once.order)


@pytest.mark.parametrize("call, limit", [("solver.evaluate([0.3, 0.4], loss_type='CVaR', alpha=0.5)", 1.3),
                                         ("solver._loss_function([0.3, 0.4])", 1.8)],
                         ids=["evaluate", "run's loss"])
def test_an_evaluation_holds_no_energy_array_beside_the_state(call, limit):
    # 2^22 states in double precision: the state is 64 MiB; an array of energies would add 0.5
    # of it, the probability table of corvid.ansatz another 0.5 (the run's loss needs its table).
    from interrupt_harness import run_python
    code = f"""
        import sympy
        from corvid_alg.QAOA.qaoa import QAOA
        n = 22
        x = sympy.symbols(f"x0:{{n}}")
        solver = QAOA(sum(-(x[i] + x[i - 1] - 2 * x[i] * x[i - 1]) for i in range(n)))
        solver.layer, solver.shots, solver.loss_type, solver.alpha = 1, -1, "CVaR", 0.5

        def figure(field):
            with open("/proc/self/status") as f:
                return next(int(line.split()[1]) for line in f if line.startswith(field + ":")) * 1024

        with open("/proc/self/clear_refs", "w") as f:
            f.write("5")  # the peak restarts here
        before = figure("VmRSS")
        {call}
        print((figure("VmHWM") - before) / (16 << n))
    """
    out = run_python(code, timeout=120)
    assert float(out.split()[-1]) < limit, out
