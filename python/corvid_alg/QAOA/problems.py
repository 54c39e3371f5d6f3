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
"""

import numbers
from collections.abc import Mapping

import numpy as np

from corvid import PauliOperator, binary_polynomial_to_z_operator, problems as _core

__all__ = ["qubo_to_operator", "ising_to_operator", "maxcut_operator", "polynomial_to_operator",
           "compact"]


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
