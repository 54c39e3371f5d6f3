"""A polynomial in binary variables as a diagonal (Pauli-Z) Hamiltonian."""

import corvid
import numpy as np
import sympy


def binary_variables(problem):
    """The free symbols of `problem` sorted by name as strings: variable k is qubit k."""
    return sorted(problem.free_symbols, key=lambda symbol: symbol.name)


def constant_problem_error(problem):
    """The error for a problem without variables (a number, or an operator of identity terms)."""
    return sympy.polys.polyerrors.GeneratorsNeeded(
        f"{problem} has no variables: a constant is not an optimisation problem")


def monomials(problem, variables):
    """The monomials of `problem` over `variables` as (exponent tuple, float coefficient).

    Fails (sympy's error) when `problem` is not a polynomial in `variables` with numeric
    coefficients, or when there are no variables.
    """
    if not variables:
        # Without generators sympy would take any non-numeric atom (pi, nan) for a variable.
        raise constant_problem_error(problem)
    terms = sympy.Poly(problem, *variables).as_dict()
    return [(exponents, float(coefficient)) for exponents, coefficient in terms.items()]


def problem_to_z_operator(problem, norm=False):
    """Encode a binary polynomial as a Pauli-Z operator, substituting x_k -> (I - Z_k)/2.

    Variable k (free symbols sorted by name as strings) becomes qubit k. With `norm` true the
    whole operator is scaled so that its non-identity coefficients have mean magnitude 1.

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

    def norm_hami(h, n0):
        """normalize the hamiltonian with factor n0"""
        normalized = 0 * corvid.PauliOperator(1)
        for qubit_map, coefficient in h.toHamiltonian(True):
            term = (coefficient * n0) * corvid.PauliOperator(1)
            for qubit in qubit_map:
                term *= corvid.PauliOperator(qubit_map[qubit] + str(qubit), 1)
            normalized += term
        return normalized

    variables = binary_variables(problem)
    # Expanding each monomial of the x-polynomial as a product of (I - Z)/2 factors is the same
    # as substituting and expanding symbolically (x^k = x for binary x), and runs in C++.
    expansion = [
        ([k for k, power in enumerate(exponents) if power], coefficient)
        for exponents, coefficient in monomials(problem, variables)
    ]
    hamiltonian = corvid.binary_polynomial_to_z_operator(expansion)
    if norm:
        magnitudes = [np.fabs(c) for qubit_map, c in hamiltonian.toHamiltonian(True) if qubit_map]
        norm_factor = 1 / np.mean(magnitudes)
        hamiltonian = norm_hami(hamiltonian, norm_factor)
    return hamiltonian
