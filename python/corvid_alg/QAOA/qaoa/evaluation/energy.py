"""Energies of solutions: the problem compiled once, and the per-object energy cache.

A solution is a list of 0/1 values, entry i the value of variable (qubit) i. A result key is a
bit string with qubit 0 right-most, so key '001' is the solution [1, 0, 0] and basis index 1.
"""

from collections.abc import Mapping

import corvid
import numpy as np
import sympy
from corvid import diagonal

from ..encoding.polynomial import binary_variables, monomials


def solution_vector(key):
    """The solution of a result key: its characters read right to left, as integers."""
    return [int(bit) for bit in reversed(key)]


class EnergyModel:
    """The problem's energy function, compiled once per problem.

    A symbolic problem becomes its monomials (coefficient, exponents, variable mask); an operator
    problem (list form) its Z terms (coefficient, qubit mask; every letter counts as Z). Energies
    of many bit strings, or of all 2^n of them, are then computed in C++.
    """

    def __init__(self, problem, num_bits):
        self.num_bits = num_bits
        self.kind = "other"
        self.masks = np.zeros(0, dtype=np.uint64)
        self.coeffs = np.zeros(0)
        self.whole_space = False
        if isinstance(problem, sympy.Basic):
            self.kind = "symbolic"
            variables = binary_variables(problem)
            terms = monomials(problem, variables) if variables else []
            self.num_variables = len(variables)
            self.exponents = np.array([e for e, _ in terms], dtype=float).reshape(
                len(terms), self.num_variables)
            self.coeffs = np.array([c for _, c in terms], dtype=float)
            # Bit strings of the circuit are solutions of the polynomial only when every qubit
            # is a variable; otherwise energies go one by one, and fail as calculate_energy does.
            self.whole_space = self.num_variables == num_bits < _MAX_MASK_BITS
            if self.whole_space:
                self.masks = np.array(
                    [_mask(i for i, e in enumerate(ex) if e) for ex, _ in terms], dtype=np.uint64)
        elif isinstance(problem, list):
            self.kind = "operator"
            self.coeffs = np.array([c for _, c in problem], dtype=float)
            self.whole_space = num_bits < _MAX_MASK_BITS and all(
                q < num_bits for m, _ in problem for q in m)
            if self.whole_space:
                self.masks = np.array([_mask(m) for m, _ in problem], dtype=np.uint64)

    def symbolic_energy(self, x):
        """f(x) of the polynomial at any numeric x (one value per variable, in name order)."""
        if len(x) > self.num_variables:
            raise IndexError(
                f"solution has {len(x)} entries but the problem has {self.num_variables} variables")
        if len(x) < self.num_variables:
            raise TypeError(
                f"solution has {len(x)} entries but the problem has {self.num_variables} variables")
        if not len(self.coeffs):
            return 0.0
        powers = np.power(np.asarray(x, dtype=float), self.exponents)
        return float(np.prod(powers, axis=1) @ self.coeffs)

    def energies_of_states(self, states):
        """Energies of the basis states `states` (uint64 indices, bit i = qubit i)."""
        if self.kind == "symbolic":
            return diagonal.evaluate_monomials(self.masks, self.coeffs, states)
        if self.kind == "operator":
            return diagonal.evaluate_z_terms(self.masks, self.coeffs, states)
        return np.zeros(len(states))

    def all_energies(self):
        """Energies of all 2^n basis states, index = basis index; O(n 2^n) in C++."""
        if self.kind == "symbolic":
            return diagonal.energies_from_monomials(self.num_bits, self.masks, self.coeffs)
        if self.kind == "operator":
            return diagonal.energies_from_z_terms(self.num_bits, self.masks, self.coeffs)
        return np.zeros(1 << self.num_bits)


# Masks are 64-bit words; wider problems never fit in memory as 2^n states anyway.
_MAX_MASK_BITS = 64


def _mask(qubits):
    mask = 0
    for q in qubits:
        mask |= 1 << q
    return mask


class EnergyCache(Mapping):
    """Result key -> energy of that solution, filled as solutions are met, never cleared.

    Exact runs attach the energies of all 2^n states at once (one C++ transform); from then on
    every n-bit key is in the cache. Keys met one by one (sampling) are kept in a dict.
    Compares equal to the plain dict of the same entries.
    """

    def __init__(self, model):
        self._model = model
        self._computed = {}
        self._all = None

    def _index(self, key):
        n = self._model.num_bits
        if self._all is None or not isinstance(key, str) or len(key) != n or key.strip("01"):
            return None
        return int(key, 2) if n else 0

    def __contains__(self, key):
        return key in self._computed or self._index(key) is not None

    def __getitem__(self, key):
        if key in self._computed:
            return self._computed[key]
        index = self._index(key)
        if index is None:
            raise KeyError(key)
        return float(self._all[index])

    def __len__(self):
        if self._all is None:
            return len(self._computed)
        extra = sum(1 for key in self._computed if self._index(key) is None)
        return len(self._all) + extra

    def __iter__(self):
        yield from self._computed
        if self._all is not None:
            width = self._model.num_bits
            for index in range(len(self._all)):
                key = format(index, f"0{width}b") if width else ""
                if key not in self._computed:
                    yield key

    def __repr__(self):
        if self._all is None:
            return f"EnergyCache({self._computed!r})"
        return f"EnergyCache(<all {len(self._all)} states>, {len(self._computed)} keyed)"

    def all_energies(self):
        """The energy of every basis state (read-only array), computed on first use."""
        if self._all is None:
            energies = self._model.all_energies()
            energies.setflags(write=False)
            self._all = energies
        return self._all

    def covers_whole_space(self, result):
        """True when `result` is an exact distribution whose energies can come as one array."""
        return (
            isinstance(result, corvid.ProbabilityMap)
            and result.num_qubits == self._model.num_bits
            and self._model.whole_space
        )

    def prefetch(self, keys):
        """Compute, in one C++ call, the energies of the plain n-bit keys not yet cached.

        Stops at the first key that is not a plain n-bit string: from there on the keys go one
        by one through ``calculate_energy``, so its errors surface at the same key.
        """
        if not self._model.whole_space:
            return
        n = self._model.num_bits
        fresh = []
        for key in keys:
            if not isinstance(key, str) or len(key) != n or key.strip("01"):
                break
            if key not in self:
                fresh.append(key)
        if fresh:
            states = np.array([int(key, 2) if n else 0 for key in fresh], dtype=np.uint64)
            for key, energy in zip(fresh, self._model.energies_of_states(states)):
                self._computed[key] = float(energy)

    def energy_of(self, key, calculate_energy):
        """The energy of `key`, calling `calculate_energy` on its solution the first time."""
        if key not in self:
            self._computed[key] = calculate_energy(solution_vector(key))
        return self[key]


def calculate_energy(self, x):
    """Calculate the function value for one solution.

    x: one binary variables solution in vector form (entry i = variable i).

    A symbolic problem gives the polynomial's value at x; an operator problem the diagonal
    entry <x|H|x> (every factor counts as Z: +c for bit 0, -c for bit 1).

    >>> import sympy
    >>> x0, x1, x2 = sympy.symbols("x0 x1 x2")
    >>> QAOA(2*x0*x1 + 3*x2 - 1).calculate_energy([1, 0, 0])
    -1.0
    """
    result = 0
    if self._energy_model.kind == "symbolic":
        result = self._energy_model.symbolic_energy(x)
    if isinstance(self.problem, list):
        result = 0
        for qubit_map, coefficient in self.problem:
            if qubit_map:
                sign = 1
                for qubit in qubit_map:
                    sign *= (-1) ** x[qubit]
                result += sign * coefficient
            else:
                result += coefficient
    return result
