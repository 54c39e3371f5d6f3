"""An independent dense numpy model of the QAOA state, for checking the machine and the module.

Basis index bit i is qubit i.
"""

import functools
import itertools

import numpy as np
import sympy


def diagonal_of_terms(terms, n):
    """Diagonal of sum_t c_t * prod_{q in t} Z_q from list-form terms, by brute force."""
    spins = 1 - 2 * ((np.arange(1 << n)[:, None] >> np.arange(max(n, 1))) & 1)  # column q: Z_q
    return sum((np.prod(spins[:, list(qubit_map)], axis=1) * c for qubit_map, c in terms), np.zeros(1 << n))


def polynomial_values(expr, variables):
    """f(x) for every basis index (bit i = variable i), by sympy substitution."""
    n = len(variables)
    values = np.zeros(1 << n)
    for index in range(1 << n):
        assignment = {v: (index >> i) & 1 for i, v in enumerate(variables)}
        values[index] = float(expr.xreplace(assignment))
    return values


def qaoa_state(diagonal, gammas, betas):
    """Hadamard layer, then per layer exp(-i*gamma*diag) and RX(-2*beta) on every qubit."""
    size = len(diagonal)
    n = size.bit_length() - 1
    state = np.full(size, 1 / np.sqrt(size), dtype=complex)
    for gamma, beta in zip(gammas, betas):
        c, s = np.cos(beta), 1j * np.sin(beta)  # RX(-2 beta), the same on every qubit
        mixer = functools.reduce(np.kron, [np.array([[c, s], [s, c]])] * n)
        state = mixer @ (state * np.exp(-1j * gamma * diagonal))
    return state


def literal_z_expansion(problem):
    """The encoding by symbolic substitution x_k -> (1 - z_k)/2 and expansion, reducing even
    powers of z to 1: {sorted qubit tuple: coefficient}."""
    variables = sorted(problem.free_symbols, key=lambda s: s.name)
    zs = [sympy.Symbol(f"z{k}") for k in range(len(variables))]
    substituted = problem.xreplace({v: (1 - z) / 2 for v, z in zip(variables, zs)})
    terms = {}
    for exponents, coefficient in sympy.Poly(substituted, *zs).as_dict().items():
        key = tuple(j for j, e in enumerate(exponents) if e % 2)
        terms[key] = terms.get(key, 0) + coefficient
    return {key: float(value) for key, value in terms.items() if value != 0}


def random_polynomial(rng, n, degree=3, terms=8):
    """A random integer-coefficient polynomial in x0..x(n-1) with terms up to `degree`."""
    xs = sympy.symbols(f"x0:{n}")
    expr = sympy.Integer(int(rng.integers(-3, 4)))
    for _ in range(terms):
        size = int(rng.integers(1, degree + 1))
        chosen = rng.choice(n, size=min(size, n), replace=False)
        expr += int(rng.integers(-5, 6)) * sympy.Mul(*[xs[i] for i in chosen])
    for x in xs:  # every variable present, so the problem has exactly n qubits
        expr += x * int(rng.integers(1, 3))
    return expr, list(xs)


def all_bitstrings(n):
    return ["".join(bits) for bits in itertools.product("01", repeat=n)]
