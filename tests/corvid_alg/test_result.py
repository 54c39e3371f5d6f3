"""solve and QAOAResult, checked against brute force over a small named graph; what a QAOA
object remembers of its run (history, best, optimiser result), Ctrl-C included."""

import functools
import itertools
import multiprocessing
import pickle

import networkx as nx
import numpy as np
import pytest
import sympy

import corvid
from corvid_alg.QAOA import QAOAResult, solve
from corvid_alg.QAOA.angles import interp
from corvid_alg.QAOA.problems import ising_problem, maxcut_operator, maxcut_problem
from corvid_alg.QAOA.qaoa import QAOA
from corvid_alg.QAOA.qaoa.distribution import SortedDistribution

GRAPH = nx.Graph()
GRAPH.add_weighted_edges_from([("ann", "bob", 1.0), ("bob", "cy", 2.0), ("cy", "dee", 1.0),
                               ("dee", "ann", 1.5), ("ann", "cy", 0.5), ("dee", "eve", 1.0)])
NAMES = list(GRAPH.nodes)


def cut(side):
    return sum(w for u, v, w in GRAPH.edges(data="weight") if side[u] != side[v])


MAX_CUT = max(cut(dict(zip(NAMES, bits))) for bits in itertools.product((0, 1), repeat=5))


def as_polynomial():
    x = {name: sympy.Symbol(f"x_{name}") for name in NAMES}
    return -sum(w * (x[u] + x[v] - 2 * x[u] * x[v]) for u, v, w in GRAPH.edges(data="weight"))


FORMS = {  # the same problem three ways, and how its variables read back as graph nodes
    "named": (lambda: maxcut_problem(GRAPH), lambda name: name),
    "operator": (lambda: maxcut_operator([(NAMES.index(u), NAMES.index(v), w)
                                          for u, v, w in GRAPH.edges(data="weight")]),
                 lambda index: NAMES[index]),
    "polynomial": (as_polynomial, lambda name: name[2:]),
}


def probabilities_at(angles):
    """Each cut's probability at `angles`, by a separate solver on the operator form."""
    p = len(angles) // 2
    distribution = QAOA(FORMS["operator"][0]()).run_qaoa_circuit(angles[:p], angles[p:])
    return {tuple(int(b) for b in reversed(key)): q for key, q in distribution.items()}


@pytest.mark.parametrize("form", FORMS)
def test_solve_maxcut_against_brute_force(form):
    build, node = FORMS[form]
    np.random.seed(3)
    result = solve(build(), layers=2, top_k=4)
    side = {node(name): value for name, value in result.assignment.items()}
    assert sorted(side) == sorted(NAMES)
    assert result.energy == pytest.approx(-cut(side))
    assert result.optimum_energy == pytest.approx(-MAX_CUT)
    assert result.worst_energy == pytest.approx(0, abs=1e-12)
    # The empty cut is the worst state, so the ratio is the cut over the maximum cut.
    assert result.approximation_ratio == pytest.approx(cut(side) / MAX_CUT)
    assert (result.approximation_ratio == 1) == (cut(side) == MAX_CUT)
    probabilities = probabilities_at(result.angles)
    assert sum(probabilities.values()) == pytest.approx(1)
    cuts = {bits: cut(dict(zip(NAMES, bits))) for bits in probabilities}
    assert result.optimum_probability == pytest.approx(
        sum(q for bits, q in probabilities.items() if cuts[bits] == MAX_CUT))
    assert result.expected_ratio == pytest.approx(
        sum(q * cuts[bits] for bits, q in probabilities.items()) / MAX_CUT)
    assert result.expected_energy == pytest.approx(result.loss)
    levels = {}
    for bits, q in probabilities.items():
        levels[-cuts[bits]] = levels.get(-cuts[bits], 0.0) + q
    assert [e for e, _ in result.energy_levels] == sorted(levels)
    assert [q for _, q in result.energy_levels] == pytest.approx([levels[e] for e in sorted(levels)])
    top = result.solutions
    assert len(top) == 4 and [s.probability for s in top] == sorted(
        (s.probability for s in top), reverse=True)
    assert result.bits == min(top, key=lambda s: (s.energy, -s.probability)).bits
    assert result.loss_history[-1] == result.loss and result.best_loss == min(result.loss_history)
    assert result.evaluations == len(result.loss_history) and result.success is True
    assert result.layers == 2 and len(result.angles) == 4 and result.depths[0]["layers"] == 2


def test_sampled_result_reads_optimum_and_levels_off_its_draws():
    np.random.seed(4)
    result = solve(maxcut_problem(GRAPH), layers=1, shots=500, top_k=32, optimizer="COBYLA",
                   optimizer_option={"options": {"maxiter": 20}})
    drawn = {}
    for s in result.solutions:  # every state drawn, each with its own energy
        assert s.energy == -cut(result.assignment_of(s.bits))
        drawn[s.energy] = drawn.get(s.energy, 0.0) + s.probability
    assert dict(result.energy_levels) == pytest.approx(drawn)
    assert result.optimum_probability == pytest.approx(drawn.get(-MAX_CUT, 0.0))


def test_depth_study_warm_starts_each_depth_from_the_previous():
    np.random.seed(5)
    result = solve(maxcut_problem(GRAPH), layers=range(1, 4), optimizer="COBYLA",
                   optimizer_option={"options": {"maxiter": 60}})
    rows = result.depths
    assert [row["layers"] for row in rows] == [1, 2, 3]
    assert result.layers == 3 and result.loss == rows[-1]["loss"] and result.angles == rows[-1]["angles"]
    assert all(0 <= row["approximation_ratio"] <= 1 and row["evaluations"] > 1 for row in rows)
    # COBYLA evaluates its start first: the deepest run started from INTERP of depth 2's angles.
    start = interp(rows[1]["angles"])
    probabilities = probabilities_at(start)
    assert result.loss_history[0] == pytest.approx(
        -sum(q * cut(dict(zip(NAMES, bits))) for bits, q in probabilities.items()))
    text = str(result)
    assert all(f"{row['loss']:.6g}" in text for row in rows)


@pytest.mark.parametrize("problem, layers, options, error", [
    (corvid.PauliOperator({"Z0 X1": 1.0, "Z1": 1.0}), 1, {}, "X or Y factors"),
    (corvid.PauliOperator({"Z0": 1 + 2j, "Z1": 1.0}), 1, {}, "complex coefficients"),
    (GRAPH, 1, {}, "maxcut_problem"),
    (maxcut_problem(GRAPH), [2, 1], {}, "must increase"),
    (maxcut_problem(GRAPH), [], {}, "non-empty"),
    (maxcut_problem(GRAPH), 0, {}, "positive integer"),
    (maxcut_problem(GRAPH), 1, {"top_k": 0}, "top_k"),
    (maxcut_problem(GRAPH), 1, {"layer": 2}, "layers="),
])
def test_solve_refuses(problem, layers, options, error):
    with pytest.raises((ValueError, TypeError), match=error):
        solve(problem, layers, **options)


@pytest.fixture(scope="module")
def results():
    """A spin problem with tuple names (JSON must keep them) and a depth study."""
    np.random.seed(7)
    spins = ising_problem({("a", 1): 0.5, ("b", 2): -1.0}, {(("a", 1), ("b", 2)): 1.0, (("b", 2), 3): 0.25})
    return [solve(spins, layers=1, top_k=3), solve(maxcut_problem(GRAPH), layers=[1, 2])]


def test_round_trips_are_exact(results, tmp_path):
    for k, result in enumerate(results):
        for copy in (pickle.loads(pickle.dumps(result)),
                     QAOAResult.load(result.save(tmp_path / f"r{k}.json")),
                     QAOAResult.from_dict(result.to_dict()),
                     QAOAResult.from_json(result.to_json())):
            assert copy == result and copy.assignment == result.assignment
    spins = results[0]
    assert set(spins.assignment) == {("a", 1), ("b", 2), 3}
    assert set(spins.assignment.values()) <= {-1, 1}
    with pytest.raises(ValueError, match="not a QAOAResult"):
        QAOAResult.from_dict({"bits": "01"})


def test_pool_workers_return_results():
    problems = [maxcut_problem(nx.cycle_graph(n)) for n in (4, 5)]
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        found = pool.map(functools.partial(solve, layers=1, top_k=2), problems)
    assert [r.num_qubits for r in found] == [4, 5]
    assert [r.optimum_energy for r in found] == [-4, -4]


def test_summary_html_and_dataframe(results):
    result = results[1]
    text, page = str(result), result._repr_html_()
    for shown in (result.bits, f"{result.energy:.6g}", f"{result.approximation_ratio:.4g}",
                  f"{result.optimum_probability:.4g}", str(result.evaluations)):
        assert shown in text and shown in page
    assert page.count("<tr>") == 1 + len(result.solutions) + 1 + len(result.depths)
    try:
        import pandas  # noqa: F401
    except ImportError:
        with pytest.raises(ImportError, match="pip install pandas"):
            result.to_dataframe()
    else:
        frame = result.to_dataframe()
        assert list(frame["bits"]) == [s.bits for s in result.solutions]
        assert list(frame["ann"]) == [result.assignment_of(s.bits)["ann"] for s in result.solutions]
        assert list(result.to_dataframe("depths")["layers"]) == [1, 2]


def test_result_keeps_only_the_top_solutions():
    ring = maxcut_operator([(i, (i + 1) % 14) for i in range(14)])
    result = solve(ring, layers=1, top_k=5, optimizer="COBYLA",
                   optimizer_option={"options": {"maxiter": 5}})
    assert len(result.solutions) == 5 and result.optimum_energy == -14
    assert len(pickle.dumps(result)) < 5000


# --- what QAOA remembers --------------------------------------------------------------------

@pytest.mark.parametrize("options", [
    {}, {"optimizer": "COBYLA"}, {"optimizer": "SPSA", "optimizer_option": {"maxiter": 5}},
    {"optimizer_option": {"jac": True}}, {"optimize_type": "interp", "initial_para": [0.3, 0.2]},
    {"loss_type": "CVaR", "alpha": 0.2}, {"loss_type": "Gibbs", "temperature": 0.5},
])
def test_run_leaves_distribution_settings_history_best_and_optimizer_result(options, capsys):
    solver = QAOA(FORMS["operator"][0]())
    np.random.seed(11)
    result, angles, loss = solver.run(layer=2, **options)
    assert (solver.alpha, solver.temperature, solver.shots, solver.layer) == (
        options.get("alpha", 1), options.get("temperature", 1), -1, 2)
    history = solver.history
    assert len(history) == solver.iter
    assert np.array_equal(history[-1].angles, angles) and history[-1].loss == loss
    assert solver.best.loss == min(e.loss for e in history)
    assert any(e is solver.best for e in history)
    assert np.array_equal(solver.optimizer_result.x, angles) and solver.optimizer_result.success
    if options.get("optimizer") == "SPSA":
        assert solver.optimizer_result.nfev == len(history) - 1
    assert isinstance(result, SortedDistribution) and len(result) == 32
    assert list(result.values()) == sorted(result.values(), reverse=True)
    assert dict(result) == pytest.approx(dict(solver.run_qaoa_circuit(angles[:2], angles[2:])))
    assert loss == pytest.approx(solver._loss_function(angles))
    solver.run(layer=1)
    assert all(len(e.angles) == 2 for e in solver.history)  # a new run starts a new history
