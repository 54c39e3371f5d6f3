"""Problem encoding: binary variables, polynomials over them, and their Pauli-Z operators.

x_n = (I - Z_n)/2 and 1 - x_n = (I + Z_n)/2. Variable k of a polynomial is the k-th of its
variables sorted by name as strings ("x10" before "x2"), and it is qubit k.
"""

import math
import warnings

import numpy as np
import sympy
from sympy.logic.boolalg import Boolean

import corvid


def p_1(n):
    """The operator of binary variable x_n: (I - Z_n)/2, eigenvalue 1 where qubit n is |1>.

    >>> print(p_1(0))
    {
    "" : 0.500000,
    "Z0" : -0.500000
    }
    """
    return corvid.PauliOperator(0.5) - corvid.PauliOperator("Z" + str(n), 0.5)


def p_0(n):
    """The operator of the complement 1 - x_n: (I + Z_n)/2, eigenvalue 1 where qubit n is |0>."""
    return corvid.PauliOperator(0.5) + corvid.PauliOperator("Z" + str(n), 0.5)


def check_objective(problem):
    """Refuse a relation or a boolean expression: a constraint is not an objective."""
    if isinstance(problem, Boolean) and not isinstance(problem, sympy.Expr):
        raise ValueError(
            f"{problem} is a constraint ({type(problem).__name__}), not an objective to minimise: write a "
            "constraint as a penalty added to the objective, e.g. P*(x0 + x1 - 1)**2 for "
            "x0 + x1 = 1, with P larger than any gain from breaking it")


def binary_variables(problem):
    """The variables of `problem` sorted by name as strings: variable k is qubit k.

    Symbols and indexed symbols (``z[0]``) are variables; the label ``z`` of an indexed symbol
    is not one by itself.
    """
    indexed = problem.atoms(sympy.Indexed)
    for item in indexed:
        if not all(index.is_Integer for index in item.indices):
            raise ValueError(f"indexed variable {item} needs integer indices")
    labels = {item.base.label for item in indexed}
    return sorted((s for s in problem.free_symbols if s not in labels), key=str)


def constant_problem_error(problem):
    """The error for a problem without variables (a number, or an operator of identity terms)."""
    return sympy.polys.polyerrors.GeneratorsNeeded(
        f"{problem} has no variables: a constant is not an optimisation problem")


def monomials(problem, variables):
    """The monomials of `problem` over `variables` as (exponent tuple, exact coefficient).

    Fails (sympy's error) when `problem` is not a polynomial in `variables` with numeric
    coefficients, or when there are no variables; ValueError for a coefficient that is not
    finite as a float.
    """
    if not variables:
        # Without generators sympy would take any non-numeric atom (pi, nan) for a variable.
        raise constant_problem_error(problem)
    terms = list(sympy.Poly(problem, *variables).as_dict().items())
    check_finite([c for _, c in terms], problem)
    return terms


def check_finite(coefficients, problem):
    """Every coefficient, and the sum of their magnitudes, must be a finite float: an energy
    is such a sum, and an infinite one would leave the optimiser nothing to compare."""
    values = np.array([complex(c).real if isinstance(c, complex) else float(c)
                       for c in coefficients], dtype=float)
    with np.errstate(over="ignore"):
        total = float(np.sum(np.abs(values)))
    if not np.all(np.isfinite(values)) or not math.isfinite(total):
        raise ValueError(f"the coefficients of {_short(problem)} are infinite or overflow a "
                         "float (largest magnitude about "
                         f"{max((abs(float(c)) for c in coefficients), default=0):g}): scale the "
                         "problem down")


def _short(problem):
    text = str(problem)
    return text if len(text) <= 80 else text[:77] + "..."


def non_diagonal_parts(operator):
    """What keeps `operator` from being a real diagonal Hamiltonian ("X or Y factors",
    "complex coefficients", both joined by "and"), or "" when nothing does."""
    letters = {letter for key, _ in operator for letter in key.split() if letter[0] in "XY"}
    complex_terms = [key for key, c in operator if isinstance(c, complex) and c.imag != 0]
    return " and ".join(part for part, found in (("X or Y factors", letters),
                                                 ("complex coefficients", complex_terms)) if found)


def warn_if_not_diagonal(operator):
    """Warn when an operator has X or Y factors or complex coefficients: it is then solved as
    its real Z part (every letter read as Z), which is a different problem."""
    parts = non_diagonal_parts(operator)
    if parts:
        warnings.warn(
            f"the operator is not a real diagonal Hamiltonian ({parts}): QAOA reads every "
            "factor as Z and takes real parts, so it solves a different problem", stacklevel=3)


def problem_to_z_operator(problem, norm=False):
    """Encode a binary polynomial as a Pauli-Z operator, substituting x_k -> (I - Z_k)/2.

    With `norm` true the whole operator is scaled so that its non-identity coefficients have
    mean magnitude 1.

    >>> x0, x1, x2 = sympy.symbols("x0 x1 x2")
    >>> print(problem_to_z_operator(2*x0*x1 + 3*x2 - 1))
    {
    "" : 1.000000,
    "Z0" : -0.500000,
    "Z1" : -0.500000,
    "Z2" : -1.500000,
    "Z0 Z1" : 0.500000
    }
    """
    variables = binary_variables(problem)
    # Expanding each monomial as a product of (I - Z)/2 factors is the same as substituting and
    # expanding symbolically (x^k = x for binary x), and runs in C++.
    expansion = [
        ([k for k, power in enumerate(exponents) if power], float(coefficient))
        for exponents, coefficient in monomials(problem, variables)
    ]
    hamiltonian = corvid.binary_polynomial_to_z_operator(expansion)
    if norm:
        magnitudes = [np.fabs(c) for qubit_map, c in hamiltonian.toHamiltonian(True) if qubit_map]
        hamiltonian = _scaled(hamiltonian, 1 / np.mean(magnitudes))
    return hamiltonian


def _scaled(hamiltonian, factor):
    scaled = 0 * corvid.PauliOperator(1)
    for qubit_map, coefficient in hamiltonian.toHamiltonian(True):
        term = (coefficient * factor) * corvid.PauliOperator(1)
        for qubit in qubit_map:
            term *= corvid.PauliOperator(qubit_map[qubit] + str(qubit), 1)
        scaled += term
    return scaled
