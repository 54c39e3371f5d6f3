"""The final distribution of ``QAOA.run``, ordered by descending probability."""

from collections.abc import ItemsView, Mapping
from itertools import islice

from corvid import diagonal


def by_descending_probability(result):
    """An exact machine result as a :class:`SortedDistribution`, any other mapping as a dict in
    descending order of its values (a stable sort: ties keep the result's order)."""
    if hasattr(result, "probabilities") and hasattr(result, "num_qubits"):
        return SortedDistribution(result.probabilities, result.num_qubits)
    return dict(sorted(result.items(), key=lambda entry: entry[1], reverse=True))


class SortedDistribution(Mapping):
    """A read-only mapping bit string -> probability whose iteration runs by descending
    probability, ties in ascending basis order.

    It holds only the probability array (bit i of an index = qubit i) and the order, one stable
    sort in C++; keys and values are made as they are read, so a 24-qubit result costs no 2^n
    Python objects. It pickles and copies as plain data. ``next(iter(d))`` is the most likely
    bit string; ``dict(d)`` copies it in order.
    """

    def __init__(self, probabilities, num_qubits):
        self._probabilities = probabilities
        self._width = num_qubits
        self._order = diagonal.descending_order(probabilities)

    def _key(self, index):
        return format(int(index), f"0{self._width}b") if self._width else ""

    def _index(self, key):
        if not isinstance(key, str) or len(key) != self._width or key.strip("01"):
            return None
        return int(key, 2) if self._width else 0

    def __getitem__(self, key):
        index = self._index(key)
        if index is None:
            raise KeyError(key)
        return float(self._probabilities[index])

    def __contains__(self, key):
        return self._index(key) is not None

    def __len__(self):
        return len(self._order)

    def __iter__(self):
        for index in self._order:
            yield self._key(index)

    def items(self):
        return _Items(self)

    @property
    def probabilities(self):
        """Probabilities indexed by basis state (bit i = qubit i)."""
        return self._probabilities

    @property
    def num_qubits(self):
        return self._width

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
