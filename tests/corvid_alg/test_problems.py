"""The problem builders against direct numpy evaluation over all 2^n states, by index and by name."""

import math
from types import SimpleNamespace as Namespace

import networkx as nx
import numpy as np
import pytest

from corvid_alg.QAOA.problems import (
    bqm_problem,
    compact,
    ising_problem,
    ising_to_operator,
    maxcut_operator,
    maxcut_problem,
    polynomial_to_operator,
    quadratic_program_problem,
    qubo_problem,
    qubo_to_operator,
)
from corvid_alg.QAOA.qaoa import QAOA
from reference import bits, diagonal_of_terms


def assert_energies(op, expected):
    n = len(expected).bit_length() - 1
    np.testing.assert_allclose(diagonal_of_terms(op.toHamiltonian(True), n), expected, atol=1e-12)


@pytest.mark.parametrize("n, density", [(1, 1.0), (3, 0.5), (6, 1.0)])
def test_qubo_energies_are_xQx(rng, n, density):
    Q = rng.normal(size=(n, n)) * (rng.random((n, n)) < density)
    assert_energies(qubo_to_operator(Q, offset=-0.5), np.einsum("ki,ij,kj->k", bits(n), Q, bits(n)) - 0.5)
    pairs = {(i, j): Q[i, j] for i in range(n) for j in range(n)}
    pairs[(n - 1, 0)] = pairs.get((n - 1, 0), 0) + 1.0  # the other orientation adds to the pair
    Q[n - 1, 0] += 1.0
    assert_energies(qubo_to_operator(pairs, -0.5), np.einsum("ki,ij,kj->k", bits(n), Q, bits(n)) - 0.5)


@pytest.mark.parametrize("n", [2, 5])
def test_ising_energies_are_hs_plus_half_sJs(rng, n):
    h, J = rng.normal(size=n), np.triu(rng.normal(size=(n, n)), 1)
    J = J + J.T
    s = 1 - 2 * bits(n)  # bit 0 is spin +1
    expected = s @ h + 0.5 * np.einsum("ki,ij,kj->k", s, J, s) + 3.0
    assert_energies(ising_to_operator(h, J, 3.0), expected)
    pairs = {(i, j): J[i, j] for i in range(n) for j in range(i + 1, n)}
    assert_energies(ising_to_operator(dict(enumerate(h)), pairs, 3.0), expected)


def test_maxcut_energy_is_minus_cut():
    edges = [(0, 1, 1.5), (1, 2), (2, 3, -0.5), (0, 3), (1, 3, 2.0), (0, 1)]
    x, W = bits(4), np.zeros((4, 4))
    for e in edges:
        W[e[0], e[1]] += e[2] if len(e) == 3 else 1.0
    cut = sum((x[:, e[0]] != x[:, e[1]]) * (e[2] if len(e) == 3 else 1.0) for e in edges)
    assert_energies(maxcut_operator(edges), -cut)
    assert_energies(maxcut_operator(weights=W + W.T), -cut)


def test_higher_order_terms_binary_and_spin():
    terms = [((0, 1, 2), 2.0), ((1,), -1.0), ((2, 2), 0.5)]
    x = bits(3)
    s = 1 - 2 * x
    binary = 2 * x[:, 0] * x[:, 1] * x[:, 2] - x[:, 1] + 0.5 * x[:, 2] + 1
    assert_energies(polynomial_to_operator(terms, offset=1), binary)
    assert_energies(polynomial_to_operator(terms, spins=True), 2 * s[:, 0] * s[:, 1] * s[:, 2] - s[:, 1] + .5)


def test_compact_removes_unused_variables():
    op, used = compact(maxcut_operator([(2, 5), (5, 7)]))
    assert used == [2, 5, 7] and [key for key, _ in op] == ["", "Z0 Z1", "Z1 Z2"]


def assert_by_name(problem, energy):
    """Every basis state's energy, read back by name, equals energy(assignment)."""
    n = len(problem.variables)
    diagonal = diagonal_of_terms(problem.operator.toHamiltonian(True), n)
    for index in range(1 << n):
        assignment = problem.assignment(format(index, f"0{n}b") if n else "")
        assert diagonal[index] == pytest.approx(energy(assignment)), assignment


def test_maxcut_of_a_named_weighted_graph():
    graph = nx.Graph()
    graph.add_node("lonely")
    graph.add_edges_from([("a", ("b", 1), {"weight": 2.5}), (("b", 1), "c"), ("c", "a", {"weight": -1})])
    problem = maxcut_problem(graph)
    assert problem.variables == ["a", ("b", 1), "c"] and problem.free == ["lonely"]

    def minus_cut(side):
        assert side["lonely"] == 0
        return -sum(w for u, v, w in graph.edges(data="weight", default=1) if side[u] != side[v])

    assert_by_name(problem, minus_cut)


def test_qaoa_on_a_named_graph_reads_back_a_maximum_cut():
    problem = maxcut_problem(nx.cycle_graph(["n0", "n1", "n2", "n3"]))
    np.random.seed(3)
    best, _ = problem.assignments(QAOA(problem.operator).run(layer=2)[0])[0]
    assert [best[f"n{k}"] for k in range(4)] in ([0, 1, 0, 1], [1, 0, 1, 0])


def test_named_qubo_and_ising_energies():
    Q = {("x", "x"): 1.0, ("x", "y"): -3.0, ("y", "z"): 2.0, ("z", "z"): -0.5}
    assert_by_name(qubo_problem(Q, offset=4), lambda x: 4 + sum(w * x[a] * x[b] for (a, b), w in Q.items()))
    h, J = {"u": 0.5, "v": -1.0}, {("u", "w"): 2.0, ("v", "w"): -0.75}

    def ising(s):
        assert set(s.values()) <= {1, -1}
        return sum(f * s[a] for a, f in h.items()) + sum(w * s[a] * s[b] for (a, b), w in J.items())

    assert_by_name(ising_problem(h, J), ising)


@pytest.mark.parametrize("vartype", ["BINARY", "SPIN"])
def test_dimod_models_keep_their_names_order_and_energies(vartype):
    dimod = pytest.importorskip("dimod")
    bqm = dimod.BinaryQuadraticModel({"b": 1.0, "a": -2.0, "idle": 0.0, "c": 0.25},
                                     {("a", "b"): 3.0, ("b", "c"): -1.5}, 0.5, vartype)
    problem = bqm_problem(bqm)
    assert problem.variables == [v for v in bqm.variables if v != "idle"] and problem.free == ["idle"]
    assert_by_name(problem, bqm.energy)


def fake_program(constraints=0, vartype="BINARY"):
    """The parts of a QuadraticProgram the builder reads."""
    terms = lambda d: Namespace(to_dict=lambda use_name: d)
    return Namespace(
        linear_constraints=[None] * constraints, quadratic_constraints=[],
        variables=[Namespace(name=n, vartype=Namespace(name=vartype)) for n in ("p", "q")],
        objective=Namespace(sense=Namespace(name="MAXIMIZE"), constant=1.0,
                            linear=terms({"q": 2.0}), quadratic=terms({("p", "q"): -3.0})))


def test_a_maximised_quadratic_program_is_negated():
    problem = quadratic_program_problem(fake_program())
    assert problem.variables == ["p", "q"]  # the program's order, not the order of its terms
    assert_by_name(problem, lambda x: -(1 + 2 * x["q"] - 3 * x["p"] * x["q"]))


@pytest.mark.parametrize("call, error, fragment", [
    (lambda: qubo_to_operator(np.ones((2, 3))), ValueError, "square"),
    (lambda: qubo_to_operator([[1.0, math.nan], [0, 0]]), ValueError, "finite"),
    (lambda: qubo_to_operator({(0, -1): 1.0}), ValueError, "non-negative"),
    (lambda: qubo_to_operator({(0,): 1.0}), ValueError, "pairs"),
    (lambda: qubo_to_operator({(0, 1): "a"}), ValueError, "real number"),
    (lambda: ising_to_operator([0, 0], [[0, 1], [2, 0]]), ValueError, "symmetric"),
    (lambda: ising_to_operator([0, 0], [[1, 0], [0, 0]]), ValueError, "diagonal"),
    (lambda: ising_to_operator([0, 0, 0], [[0, 1], [1, 0]]), ValueError, "3x3"),
    (lambda: ising_to_operator([0, 0], {(1, 1): 1.0}), ValueError, "itself"),
    (lambda: ising_to_operator([0, math.inf], {}), ValueError, "finite"),
    (lambda: maxcut_operator([(0, 1), (2, 2)]), ValueError, "self-loop"),
    (lambda: maxcut_operator([(0, 1, 2, 3)]), ValueError, "(i, j)"),
    (lambda: maxcut_operator([(0, 1.5)]), ValueError, "non-negative integers"),
    (lambda: maxcut_operator(weights=[[0, 1], [0, 0]]), ValueError, "symmetric"),
    (lambda: maxcut_operator(), ValueError, "exactly one"),
    (lambda: maxcut_problem(nx.DiGraph([("a", "b")])), ValueError, "undirected"),
    (lambda: maxcut_problem([("a", "a")]), ValueError, "self-loops"),
    (lambda: maxcut_problem([("a", "b", "heavy")]), ValueError, "real number"),
    (lambda: maxcut_problem([(["a"], "b")]), ValueError, "hashable"),
    (lambda: qubo_problem([1, 2]), ValueError, "mapping"),
    (lambda: bqm_problem({"a": 1}), TypeError, "pip install 'corvid[interop]'"),
    (lambda: quadratic_program_problem(fake_program(constraints=2)), ValueError, "QuadraticProgramToQubo"),
    (lambda: quadratic_program_problem(fake_program(vartype="INTEGER")), ValueError, "IntegerToBinary"),
    (lambda: maxcut_problem([("a", "b")]).assignment("101"), ValueError, "2 bits"),
])
def test_bad_input_is_refused_clearly(call, error, fragment):
    with pytest.raises(error) as info:
        call()
    assert fragment in str(info.value)
