"""An independent dense numpy model of the QAOA state, for checking the machine and the module.

Basis index bit i is qubit i.
"""

import itertools

import numpy as np
import sympy


def diagonal_of_terms(terms, n):
    """Diagonal of sum_t c_t * prod_{q in t} Z_q from list-form terms, by brute force."""
    energies = np.zeros(1 << n)
    for index in range(1 << n):
        for qubit_map, coefficient in terms:
            sign = 1
            for q in qubit_map:
                sign *= -1 if (index >> q) & 1 else 1
            energies[index] += sign * coefficient
    return energies


def polynomial_values(expr, variables):
    """f(x) for every basis index (bit i = variable i), by sympy substitution."""
    n = len(variables)
    values = np.zeros(1 << n)
    for index in range(1 << n):
        assignment = {v: (index >> i) & 1 for i, v in enumerate(variables)}
        values[index] = float(expr.xreplace(assignment))
    return values


def rx_layer(state, n, angle):
    """RX(angle) on every qubit of `state`."""
    c, s = np.cos(angle / 2), -1j * np.sin(angle / 2)
    gate = np.array([[c, s], [s, c]])
    psi = state.reshape([2] * n)
    for q in range(n):
        axis = n - 1 - q  # reshape puts the most significant bit first
        psi = np.moveaxis(np.tensordot(gate, psi, axes=([1], [axis])), 0, axis)
    return psi.reshape(-1)


def qaoa_state(diagonal, gammas, betas):
    """Hadamard layer, then per layer exp(-i*gamma*diag) and RX(-2*beta) on every qubit."""
    size = len(diagonal)
    n = size.bit_length() - 1
    state = np.full(size, 1 / np.sqrt(size), dtype=complex)
    for gamma, beta in zip(gammas, betas):
        state = state * np.exp(-1j * gamma * diagonal)
        state = rx_layer(state, n, -2 * beta)
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
