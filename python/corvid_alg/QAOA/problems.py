"""Problem builders: QUBO, Ising and MaxCut problems as ``corvid.PauliOperator`` Hamiltonians,
ready to hand to ``QAOA``. The work is done in C++, so they scale to problems far larger than a
sympy expansion handles quickly.

Conventions (the same as everywhere in corvid):

- Variable i is carried by qubit i, bit i of a basis index; result keys show qubit 0
  right-most.
- Binary variables: x_i = 1 where bit i is 1, so x_i becomes (I - Z_i)/2.
- Spins: s_i = +1 where bit i is 0 and -1 where it is 1, the eigenvalue of Z_i.
- Every builder returns H with <x|H|x> = the problem's energy at x, to be minimised.

>>> op = qubo_to_operator([[0, 2], [0, 3]], offset=-1)     # 2*x0*x1 + 3*x1 - 1
>>> solutions, angles, loss = QAOA(op).run(layer=2)         # doctest: +SKIP

``QAOA`` numbers its qubits 0 .. n-1 without gaps, so a variable that appears in no term must
not sit below one that does; :func:`compact` removes such variables.

Problems whose variables have names (a networkx graph, a dimod model, a QUBO keyed by strings,
a Qiskit ``QuadraticProgram``) become a :class:`NamedProblem`: the operator, the name carried by
each qubit, and the decoding of result keys back to names.

>>> problem = maxcut_problem(networkx.cycle_graph(["a", "b", "c"]))  # doctest: +SKIP
>>> solutions, angles, loss = QAOA(problem.operator).run(layer=2)    # doctest: +SKIP
>>> problem.assignment(next(iter(solutions)))                         # doctest: +SKIP
{'a': 1, 'b': 0, 'c': 0}
"""

import numbers
from collections.abc import Mapping
from dataclasses import dataclass, field

import numpy as np

from corvid import PauliOperator, binary_polynomial_to_z_operator, problems as _core

__all__ = ["qubo_to_operator", "ising_to_operator", "maxcut_operator", "polynomial_to_operator",
           "compact", "NamedProblem", "maxcut_problem", "qubo_problem", "ising_problem",
           "bqm_problem", "quadratic_program_problem"]


def qubo_to_operator(Q, offset=0.0):
    """The Hamiltonian of E(x) = x^T Q x + offset over binary x.

    Q: a square matrix (array-like), or a mapping {(i, j): weight} meaning
        sum of weight * x_i * x_j (i == j is the linear term weight * x_i; repeats add up).
        The diagonal Q_ii is linear because x_i^2 = x_i; Q_ij and Q_ji both multiply
        x_i * x_j, so Q need not be symmetric and an upper-triangular Q means what it shows.
    offset: a constant added to every energy.

    Raises ValueError for a matrix that is not square, NaN or infinite entries, or a key that
    is not a pair of non-negative integers.

    >>> list(qubo_to_operator({(0, 1): 2, (1, 1): 3}, offset=-1))
    [('', 1.0), ('Z0', -0.5), ('Z1', -2.0), ('Z0 Z1', 0.5)]
    """
    if isinstance(Q, Mapping):
        rows, cols, weights = _pairs(Q, "QUBO")
        return _core.qubo_terms_to_operator(np.zeros(0), rows, cols, weights, float(offset))
    return _core.qubo_to_operator(_matrix(Q, "Q"), float(offset))


def ising_to_operator(h, J, offset=0.0):
    """The Hamiltonian of E(s) = sum_i h_i s_i + sum_{i<j} J_ij s_i s_j + offset over spins.

    h: the fields, a sequence (h[i] for spin i) or a mapping {i: h_i}.
    J: the couplings, a symmetric matrix with a zero diagonal (each pair counted once:
        the sum is s^T J s / 2), or a mapping {(i, j): J_ij} with i != j (repeats add up).
    offset: a constant added to every energy.

    Spin s_i is +1 where bit i is 0 and -1 where it is 1, so the operator is
    offset + sum h_i Z_i + sum J_ij Z_i Z_j. Raises ValueError for an asymmetric J, a nonzero
    diagonal (s_i^2 = 1 is a constant: put it in `offset`), mismatched sizes or NaN/inf.

    >>> list(ising_to_operator([1, 0], {(0, 1): 0.5}))
    [('Z0', 1.0), ('Z0 Z1', 0.5)]
    """
    if isinstance(J, Mapping):
        fields = _fields(h)
        rows, cols, weights = _pairs(J, "Ising coupling")
        return _core.ising_terms_to_operator(fields, rows, cols, weights, float(offset))
    J = _matrix(J, "J")
    fields = _fields(h, len(J) if isinstance(h, Mapping) else 0)
    return _core.ising_to_operator(fields, J, float(offset))


def maxcut_operator(edges=None, *, weights=None):
    """The MaxCut Hamiltonian sum over edges (i, j) of w/2 * (Z_i Z_j - I).

    Give exactly one of
    edges: an iterable of (i, j) or (i, j, w) with node indices i != j (w defaults to 1;
        parallel edges add up), or
    weights: a symmetric weight matrix with a zero diagonal (0 means no edge).

    The energy of a basis state is minus the total weight of the edges it cuts (bit i is the
    side of node i), so minimising it finds a maximum cut. Raises ValueError for self-loops,
    asymmetric matrices, NaN/inf or malformed edges.

    >>> list(maxcut_operator([(0, 1), (1, 2, 2.0)]))
    [('', -1.5), ('Z0 Z1', 0.5), ('Z1 Z2', 1.0)]
    """
    if (edges is None) == (weights is None):
        raise ValueError("give exactly one of edges and weights")
    if weights is not None:
        return _core.maxcut_matrix_operator(_matrix(weights, "weights"))
    rows, cols, ws = [], [], []
    for k, edge in enumerate(edges):
        if not isinstance(edge, (tuple, list, np.ndarray)) or len(edge) not in (2, 3):
            raise ValueError(f"edge {k} must be (i, j) or (i, j, weight), got {edge!r}")
        rows.append(_index(edge[0], f"edge {k}"))
        cols.append(_index(edge[1], f"edge {k}"))
        ws.append(_number(edge[2], f"the weight of edge {k}") if len(edge) == 3 else 1.0)
    return _core.maxcut_operator(np.array(rows, dtype=np.int64), np.array(cols, dtype=np.int64),
                                 np.array(ws, dtype=float))


def polynomial_to_operator(terms, spins=False, offset=0.0):
    """The Hamiltonian of a polynomial of any degree given as (variables, weight) terms.

    terms: an iterable of (variable indices, weight); () is a constant.
    spins: False for binary variables (x^2 = x, x_i -> (I - Z_i)/2), True for spins
        (s^2 = 1, s_i -> Z_i).

    >>> list(polynomial_to_operator([((0, 1, 2), 1.0)], spins=True))
    [('Z0 Z1 Z2', 1.0)]
    """
    monomials = []
    for k, (variables, weight) in enumerate(terms):
        monomials.append(([_index(v, f"term {k}") for v in variables],
                          _number(weight, f"the weight of term {k}")))
    if not spins:
        return binary_polynomial_to_z_operator(monomials + [((), float(offset))])
    summed = {"": _number(offset, "the offset")}
    for variables, weight in monomials:
        odd = sorted(v for v in set(variables) if variables.count(v) % 2)  # s^2 = 1
        key = " ".join(f"Z{v}" for v in odd)
        summed[key] = summed.get(key, 0.0) + weight
    return PauliOperator(summed)


def compact(operator):
    """Renumber the qubits of `operator` to 0 .. m-1 in ascending order.

    Returns (operator, used) where used[k] is the original index of new qubit k. Variables
    that appear in no term have no qubit; any value of them gives the same energy.
    """
    mapping = {}
    renumbered = operator.remapQubitIndex(mapping)
    used = sorted(mapping, key=mapping.get)
    return renumbered, used


@dataclass(frozen=True)
class NamedProblem:
    """A Hamiltonian over named variables.

    operator: the Hamiltonian, qubit k carrying variables[k].
    variables: the names, in qubit order (the order the names first appear in the input).
    free: names that appear in no term (no qubit; any value gives the same energy; they read 0,
        or +1 for spins, in an assignment).
    spins: True when the variables are spins (bit 0 is +1, bit 1 is -1), False for binary.
    """

    operator: PauliOperator
    variables: list
    free: list = field(default_factory=list)
    spins: bool = False

    def assignment(self, key):
        """The value of every variable for a result key (qubit 0 right-most) or a bit
        sequence (entry k for qubit k), as {name: value}."""
        return decode(key, self.variables, self.free, self.spins)

    def assignments(self, solutions):
        """(assignment, probability) for each entry of a result mapping, in its order."""
        return [(self.assignment(key), probability) for key, probability in solutions.items()]


def decode(key, variables, free=(), spins=False):
    """{name: value} for a result key (qubit 0 right-most) or a bit sequence (entry k for
    qubit k), qubit k carrying variables[k]; `free` names read 0, or +1 for spins."""
    bits = [int(b) for b in reversed(key)] if isinstance(key, str) else [int(b) for b in key]
    if len(bits) != len(variables) or any(b not in (0, 1) for b in bits):
        raise ValueError(f"a solution of this problem has {len(variables)} bits, got {key!r}")
    values = [1 - 2 * b for b in bits] if spins else bits
    resting = 1 if spins else 0
    return {**dict(zip(variables, values)), **{name: resting for name in free}}


def maxcut_problem(graph):
    """MaxCut of a graph with any hashable node labels: a networkx graph (edge attribute
    ``weight``, default 1; isolated nodes are free) or an iterable of (u, v) / (u, v, w)."""
    nodes, edges = _graph_parts(graph)
    index = _Names(nodes)
    rows, cols, ws = [], [], []
    for k, edge in enumerate(edges):
        if not isinstance(edge, (tuple, list)) or len(edge) not in (2, 3):
            raise ValueError(f"edge {k} must be (u, v) or (u, v, weight), got {edge!r}")
        rows.append(index(edge[0]))
        cols.append(index(edge[1]))
        ws.append(_number(edge[2], f"the weight of edge {k}") if len(edge) == 3 else 1.0)
    if any(r == c for r, c in zip(rows, cols)):
        raise ValueError("MaxCut graphs cannot have self-loops")
    op = _core.maxcut_operator(np.array(rows, dtype=np.int64), np.array(cols, dtype=np.int64),
                               np.array(ws, dtype=float))
    return index.problem(op)


def qubo_problem(Q, offset=0.0):
    """x^T Q x + offset over binary variables with any hashable names: Q a mapping
    {(a, b): weight} (a == b is linear; repeats add up), as :func:`qubo_to_operator`."""
    index = _Names()
    rows, cols, weights = _named_pairs(Q, index, "QUBO")
    op = _core.qubo_terms_to_operator(np.zeros(0), rows, cols, weights,
                                      _number(offset, "the offset"))
    return index.problem(op)


def ising_problem(h, J, offset=0.0):
    """sum h_a s_a + sum J_ab s_a s_b + offset over spins with any hashable names: h a mapping
    {a: field}, J a mapping {(a, b): coupling} with a != b, as :func:`ising_to_operator`."""
    index = _Names()
    if not isinstance(h, Mapping):
        raise ValueError(f"h must be a mapping {{name: field}}, got {type(h).__name__}")
    fields = {index(name): _number(value, f"h[{name!r}]") for name, value in h.items()}
    rows, cols, weights = _named_pairs(J, index, "Ising coupling")
    dense = np.zeros(len(index.names))
    for i, value in fields.items():
        dense[i] += value
    op = _core.ising_terms_to_operator(dense, rows, cols, weights, _number(offset, "the offset"))
    return index.problem(op, spins=True)


def bqm_problem(bqm):
    """A dimod ``BinaryQuadraticModel``, binary or spin, with its variable names and order."""
    try:
        vartype = bqm.vartype.name
        linear, quadratic, offset = dict(bqm.linear), dict(bqm.quadratic), bqm.offset
        variables = list(bqm.variables)
    except AttributeError:
        raise TypeError(f"expected a dimod BinaryQuadraticModel, got {type(bqm).__name__} "
                        "(pip install 'corvid[interop]' installs dimod)") from None
    if vartype == "SPIN":
        problem = ising_problem(linear, quadratic, offset)
    else:
        problem = qubo_problem({**{(v, v): w for v, w in linear.items()}, **quadratic}, offset)
    return _in_order(problem, variables)


def quadratic_program_problem(program):
    """An unconstrained Qiskit Optimization ``QuadraticProgram`` of binary variables (minimised,
    or maximised when its sense says so)."""
    try:
        constraints = len(program.linear_constraints) + len(program.quadratic_constraints)
        variables = program.variables
        objective = program.objective
    except AttributeError:
        raise TypeError(f"expected a qiskit_optimization QuadraticProgram, got "
                        f"{type(program).__name__} (pip install 'corvid[interop]' installs "
                        "qiskit-optimization)") from None
    if constraints:
        raise ValueError(f"the program has {constraints} constraints; QAOA needs an unconstrained "
                         "problem: turn constraints into penalties with "
                         "qiskit_optimization.converters.QuadraticProgramToQubo first")
    kinds = {v.name: v.vartype.name for v in variables}
    if any(kind != "BINARY" for kind in kinds.values()):
        raise ValueError("every variable must be binary, got "
                         + ", ".join(f"{n}: {k.lower()}" for n, k in kinds.items() if k != "BINARY")
                         + " (qiskit_optimization.converters.IntegerToBinary converts integers)")
    sign = -1.0 if objective.sense.name == "MAXIMIZE" else 1.0
    terms = {(name, name): sign * w for name, w in objective.linear.to_dict(use_name=True).items()}
    for pair, w in objective.quadratic.to_dict(use_name=True).items():
        terms[pair] = terms.get(pair, 0.0) + sign * w
    problem = qubo_problem(terms, sign * objective.constant)
    return _in_order(problem, list(kinds))


class _Names:
    """Numbers names 0, 1, ... in the order they are first seen."""

    def __init__(self, names=()):
        self.names, self.numbers = [], {}
        for name in names:
            self(name)

    def __call__(self, name):
        try:
            known = name in self.numbers
        except TypeError:
            raise ValueError(f"variable names must be hashable, got {name!r}") from None
        if not known:
            self.numbers[name] = len(self.names)
            self.names.append(name)
        return self.numbers[name]

    def problem(self, op, spins=False):
        renumbered, used = compact(op)
        variables = [self.names[i] for i in used]
        taken = set(used)
        free = [name for i, name in enumerate(self.names) if i not in taken]
        return NamedProblem(renumbered, variables, free, spins)


def _in_order(problem, order):
    """`problem` with its variables renumbered to follow `order` (a model's own order)."""
    position = {name: k for k, name in enumerate(order)}
    variables = sorted(problem.variables, key=position.__getitem__)
    mapping = {problem.variables.index(name): k for k, name in enumerate(variables)}
    operator = PauliOperator({_renumbered(key, mapping): c for key, c in problem.operator})
    free = sorted(problem.free, key=position.__getitem__)
    return NamedProblem(operator, variables, free, problem.spins)


def _renumbered(key, mapping):
    return " ".join(f"Z{mapping[int(factor[1:])]}" for factor in key.split())


def _graph_parts(graph):
    if hasattr(graph, "nodes") and hasattr(graph, "edges"):  # networkx, without importing it
        if getattr(graph, "is_directed", lambda: False)():
            raise ValueError("MaxCut needs an undirected graph (graph.to_undirected())")
        edges = [(u, v, data.get("weight", 1.0)) for u, v, data in graph.edges(data=True)]
        return list(graph.nodes), edges
    return (), list(graph)


def _named_pairs(mapping, index, what):
    if not isinstance(mapping, Mapping):
        raise ValueError(f"{what} terms must be a mapping {{(a, b): weight}}, "
                         f"got {type(mapping).__name__}")
    rows, cols, weights = [], [], []
    for key, value in mapping.items():
        if not isinstance(key, tuple) or len(key) != 2:
            raise ValueError(f"{what} keys must be pairs (a, b) of variable names, got {key!r}")
        rows.append(index(key[0]))
        cols.append(index(key[1]))
        weights.append(_number(value, f"{what} weight of {key!r}"))
    return (np.array(rows, dtype=np.int64), np.array(cols, dtype=np.int64),
            np.array(weights, dtype=float))


def _matrix(values, name):
    try:
        matrix = np.asarray(values, dtype=float)
    except (TypeError, ValueError) as error:
        raise ValueError(f"{name} must be a square matrix of numbers: {error}") from None
    if matrix.ndim != 2 or matrix.shape[0] != matrix.shape[1]:
        raise ValueError(f"{name} must be a square matrix, got shape {matrix.shape}")
    return matrix


def _fields(h, size=0):
    """h as an array; a mapping {i: h_i} is spread over max(size, largest index + 1) entries."""
    if isinstance(h, Mapping):
        fields = np.zeros(max(size, 1 + max((_index(i, "field") for i in h), default=-1)))
        for i, value in h.items():
            fields[i] += _number(value, f"h[{i}]")
        return fields
    fields = np.asarray(h, dtype=float)
    if fields.ndim != 1:
        raise ValueError(f"h must be one-dimensional, got shape {fields.shape}")
    return fields


def _pairs(mapping, what):
    rows, cols, weights = [], [], []
    for key, value in mapping.items():
        if not isinstance(key, tuple) or len(key) != 2:
            raise ValueError(f"{what} keys must be pairs (i, j) of variable indices, got {key!r}")
        rows.append(_index(key[0], f"{what} key {key!r}"))
        cols.append(_index(key[1], f"{what} key {key!r}"))
        weights.append(_number(value, f"{what} weight of {key!r}"))
    return (np.array(rows, dtype=np.int64), np.array(cols, dtype=np.int64),
            np.array(weights, dtype=float))


def _index(value, where):
    if isinstance(value, (bool, np.bool_)) or not isinstance(value, numbers.Integral) or value < 0:
        raise ValueError(f"{where}: variable indices must be non-negative integers, got {value!r}")
    return int(value)


def _number(value, what):
    if isinstance(value, (bool, np.bool_)) or not isinstance(value, numbers.Real):
        raise ValueError(f"{what} must be a real number, got {value!r}")
    value = float(value)
    if not np.isfinite(value):
        raise ValueError(f"{what} must be finite, got {value}")
    return value
