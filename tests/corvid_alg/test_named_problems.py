"""Problems over named variables: energies by name against independent evaluations."""

from types import SimpleNamespace as Namespace

import numpy as np
import pytest

from corvid_alg.QAOA.problems import (
    bqm_problem,
    ising_problem,
    maxcut_problem,
    quadratic_program_problem,
    qubo_problem,
)
from corvid_alg.QAOA.qaoa import QAOA
from reference import diagonal_of_terms

nx = pytest.importorskip("networkx")


def assert_energies(problem, energy):
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

    assert_energies(problem, minus_cut)


def test_qaoa_on_a_named_graph_reads_back_a_maximum_cut():
    problem = maxcut_problem(nx.cycle_graph(["n0", "n1", "n2", "n3"]))
    np.random.seed(3)
    best, _ = problem.assignments(QAOA(problem.operator).run(layer=2)[0])[0]
    assert [best[f"n{k}"] for k in range(4)] in ([0, 1, 0, 1], [1, 0, 1, 0])


def test_named_qubo_and_ising_energies():
    Q = {("x", "x"): 1.0, ("x", "y"): -3.0, ("y", "z"): 2.0, ("z", "z"): -0.5}
    assert_energies(qubo_problem(Q, offset=4), lambda x: 4 + sum(w * x[a] * x[b] for (a, b), w in Q.items()))
    h, J = {"u": 0.5, "v": -1.0}, {("u", "w"): 2.0, ("v", "w"): -0.75}

    def ising(s):
        assert set(s.values()) <= {1, -1}
        return sum(f * s[a] for a, f in h.items()) + sum(w * s[a] * s[b] for (a, b), w in J.items())

    assert_energies(ising_problem(h, J), ising)


@pytest.mark.parametrize("vartype", ["BINARY", "SPIN"])
def test_dimod_models_keep_their_names_order_and_energies(vartype):
    dimod = pytest.importorskip("dimod")
    bqm = dimod.BinaryQuadraticModel({"b": 1.0, "a": -2.0, "idle": 0.0, "c": 0.25},
                                     {("a", "b"): 3.0, ("b", "c"): -1.5}, 0.5, vartype)
    problem = bqm_problem(bqm)
    assert problem.variables == [v for v in bqm.variables if v != "idle"] and problem.free == ["idle"]
    assert_energies(problem, bqm.energy)


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
    assert_energies(problem, lambda x: -(1 + 2 * x["q"] - 3 * x["p"] * x["q"]))


@pytest.mark.parametrize("call, error, fragment", [
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
def test_bad_named_input_is_refused(call, error, fragment):
    with pytest.raises(error) as info:
        call()
    assert fragment in str(info.value)
