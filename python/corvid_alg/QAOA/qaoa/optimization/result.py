"""The final distribution of ``run``, ordered by descending probability."""

from collections.abc import ItemsView, Mapping
from itertools import islice

from corvid import diagonal


class SortedDistribution(Mapping):
    """A read-only view of an exact result whose iteration runs by descending probability.

    Ties keep ascending basis order. The order is one stable sort in C++; keys and values are
    made only as they are read, so a 24-qubit result costs no 2^n Python objects.
    ``next(iter(d))`` is the most likely bit string; ``dict(d)`` copies it in order.
    """

    def __init__(self, result):
        self._result = result
        self._order = diagonal.descending_order(result.probabilities)
        self._width = result.num_qubits

    def _key(self, index):
        return format(int(index), f"0{self._width}b") if self._width else ""

    def __getitem__(self, key):
        return self._result[key]

    def __contains__(self, key):
        return key in self._result

    def __len__(self):
        return len(self._order)

    def __iter__(self):
        for index in self._order:
            yield self._key(index)

    def items(self):
        return _Items(self)

    @property
    def probabilities(self):
        """Probabilities indexed by basis state (bit i = qubit i), as a read-only array."""
        return self._result.probabilities

    @property
    def order(self):
        """Basis indices by descending probability, ties in ascending order."""
        return self._order

    def __repr__(self):
        head = ", ".join(f"{k!r}: {v!r}" for k, v in islice(self.items(), 4))
        more = ", ..." if len(self) > 4 else ""
        return f"SortedDistribution({{{head}{more}}})"


class _Items(ItemsView):
    """(key, probability) pairs by descending probability, made as they are read."""

    def __iter__(self):
        distribution = self._mapping
        probabilities = distribution.probabilities
        for index in distribution.order:
            yield distribution._key(index), float(probabilities[index])
