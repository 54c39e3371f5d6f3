"""Energies of solutions: the problem compiled once, and the energy cache ``energy_dict``.

A solution is a list of 0/1 values, entry i the value of variable (qubit) i. A result key is a
bit string with qubit 0 right-most, so key '001' is the solution [1, 0, 0] and basis index 1.
"""

import numbers
from collections.abc import MutableMapping
from itertools import islice

import numpy as np

from corvid import diagonal

from .encoding import binary_variables, monomials

# Masks are 64-bit words; wider problems never fit in memory as 2^n states anyway.
_MAX_MASK_BITS = 64
# The energy table of 2^30 doubles (8 GiB) is the largest the optimum is read from.
MAX_TABLE_QUBITS = 30
# Above this a float64 sum of integers may round: integer problems then go key by key in Python.
_EXACT_FLOAT_LIMIT = 2 ** 53


def solution_vector(key):
    """The solution of a result key: its characters read right to left, as integers."""
    return [int(bit) for bit in reversed(key)]


def _mask(qubits):
    mask = 0
    for q in qubits:
        mask |= 1 << q
    return mask


class EnergyModel:
    """The problem's energy function, compiled once per problem.

    kind "symbolic": a sympy polynomial, kept as its monomials (exponents, coefficient);
    "operator": a Hamiltonian list form, kept as its Z terms (every letter counts as Z);
    anything else has energy 0. Energies of many bit strings, or of all 2^n of them, are then
    computed in C++ (``whole_space``) unless that could round an integer problem's energies.
    """

    def __init__(self, problem, kind, num_bits):
        self.kind = kind
        self.num_bits = num_bits
        self.num_variables = 0
        self.masks = np.zeros(0, dtype=np.uint64)
        self.coeffs = np.zeros(0)
        self.integer_terms = None
        self.whole_space = False
        if kind == "symbolic":
            variables = binary_variables(problem)
            terms = monomials(problem, variables) if variables else []
            self.num_variables = len(variables)
            self.exponents = np.array([e for e, _ in terms], dtype=float).reshape(
                len(terms), self.num_variables)
            self.coeffs = np.array([float(c) for _, c in terms], dtype=float)
            if all(c.is_Integer for _, c in terms):
                self.integer_terms = [([(i, int(e)) for i, e in enumerate(ex) if e], int(c))
                                      for ex, c in terms]
            exact_in_float = self.integer_terms is None or sum(
                abs(c) for _, c in self.integer_terms) < _EXACT_FLOAT_LIMIT
            # Bit strings of the circuit are solutions of the polynomial only when every qubit
            # is a variable; otherwise energies go one by one, and fail as calculate_energy does.
            self.whole_space = (self.num_variables == num_bits < _MAX_MASK_BITS
                                and exact_in_float)
            if self.whole_space:
                self.masks = np.array(
                    [_mask(i for i, e in enumerate(ex) if e) for ex, _ in terms], dtype=np.uint64)
        elif kind == "operator":
            self.terms = problem
            self.coeffs = np.array([c for _, c in problem], dtype=float)
            self.whole_space = num_bits < _MAX_MASK_BITS and all(
                q < num_bits for m, _ in problem for q in m)
            if self.whole_space:
                self.masks = np.array([_mask(m) for m, _ in problem], dtype=np.uint64)

    def energy(self, x):
        """f(x) for one solution: exact (a Python int) for an integer polynomial at integer x."""
        if self.kind == "symbolic":
            return self._polynomial_value(x)
        if self.kind == "operator":
            result = 0
            for qubit_map, coefficient in self.terms:
                sign = 1
                for qubit in qubit_map:
                    sign *= (-1) ** x[qubit]
                result += sign * coefficient
            return result
        return 0

    def _polynomial_value(self, x):
        if len(x) > self.num_variables:
            raise IndexError(
                f"solution has {len(x)} entries but the problem has {self.num_variables} variables")
        if len(x) < self.num_variables:
            raise TypeError(
                f"solution has {len(x)} entries but the problem has {self.num_variables} variables")
        if self.integer_terms is not None and all(
                isinstance(v, numbers.Integral) for v in x):
            total = 0
            for factors, coefficient in self.integer_terms:
                for i, e in factors:
                    coefficient *= int(x[i]) ** e
                total += coefficient
            return total
        if not len(self.coeffs):
            return 0.0
        powers = np.power(np.asarray(x, dtype=float), self.exponents)
        return float(np.prod(powers, axis=1) @ self.coeffs)

    def energies_of_states(self, states):
        """Energies of the basis states `states` (uint64 indices, bit i = qubit i)."""
        if self.kind == "symbolic":
            return diagonal.evaluate_monomials(self.masks, self.coeffs, states)
        return diagonal.evaluate_z_terms(self.masks, self.coeffs, states)

    def all_energies(self):
        """Energies of all 2^n basis states, index = basis index; O(n 2^n) in C++."""
        if self.kind == "symbolic":
            return diagonal.energies_from_monomials(self.num_bits, self.masks, self.coeffs)
        return diagonal.energies_from_z_terms(self.num_bits, self.masks, self.coeffs)


class EnergyCache(MutableMapping):
    """Result key -> energy of that solution: the object's ``energy_dict``.

    Filled by the losses as solutions are met. Exact runs attach the energies of all 2^n states
    at once (one C++ transform), after which every n-bit key is present; keys met one by one
    (sampling, or a ``calculate_energy`` of the caller's) are kept in a dict. An energy written
    into it is what later losses use; ``clear()`` empties it. Compares equal to the plain dict
    of the same entries; pickles and copies as plain data.
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

    def __setitem__(self, key, energy):
        self._computed[key] = energy
        index = self._index(key)
        if index is not None:
            self._all[index] = energy

    def __delitem__(self, key):
        if key not in self:
            raise KeyError(key)
        self._computed.pop(key, None)
        if self._index(key) is not None:
            # The array cannot lose one state: forget it, the next exact run recomputes it.
            self._all = None

    def clear(self):
        self._computed.clear()
        self._all = None

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
        shown = ", ".join(f"{k!r}: {self[k]!r}" for k in islice(self, 4))
        more = f", ... ({len(self)} entries)" if len(self) > 4 else ""
        return f"EnergyCache({{{shown}{more}}})"

    def all_energies(self):
        """The energy of every basis state (a read-only view), computed on first use; energies
        written into the cache replace the computed ones."""
        if self._all is None:
            energies = self._model.all_energies()
            n = self._model.num_bits
            for key, energy in self._computed.items():
                if isinstance(key, str) and len(key) == n and not key.strip("01"):
                    energies[int(key, 2) if n else 0] = energy
            self._all = energies
        view = self._all.view()
        view.setflags(write=False)
        return view

    @property
    def whole_space(self):
        """True when ``all_energies`` can give the energy of every basis state."""
        return self._model.whole_space

    def covers_whole_space(self, result):
        """True when `result` is an exact distribution whose energies can come as one array."""
        return (
            self.whole_space
            and getattr(result, "num_qubits", None) == self._model.num_bits
            and hasattr(result, "probabilities")
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
