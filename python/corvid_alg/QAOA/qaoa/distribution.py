"""The final distribution of ``QAOA.run``, ordered by descending probability."""

from collections.abc import ItemsView, Mapping
from itertools import islice

from corvid import diagonal

# Up to this many states the whole order is sorted at once; beyond, it is selected a piece at
# a time as it is read (pieces growing from _FIRST_PIECE to _LARGEST_PIECE indices).
_SORT_LIMIT = 1 << 22
_FIRST_PIECE = 1 << 10
_LARGEST_PIECE = 1 << 20


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
    Python objects. Above 2^22 states not even the order is held: iteration selects the next
    piece of it in C++ as it goes (a pass over the probabilities per piece, pieces growing to
    2^20 entries), so reading the top solutions costs no 2^n buffer. It pickles and copies as
    plain data. ``next(iter(d))`` is the most likely bit string; ``dict(d)`` copies it in order.
    """

    def __init__(self, probabilities, num_qubits):
        self._probabilities = probabilities
        self._width = num_qubits
        if len(probabilities) <= _SORT_LIMIT:
            self._order = diagonal.descending_order(probabilities)
            self._head = None
        else:  # also checks the probabilities, as the sort does
            self._order = None
            self._head = diagonal.descending_order_after(probabilities, -1, _FIRST_PIECE)

    def _indices(self):
        """Basis indices in the order of iteration."""
        if self._order is not None:
            yield from self._order
            return
        piece, size = self._head, _FIRST_PIECE
        while len(piece):
            yield from piece
            if len(piece) < size:
                return
            size = min(4 * size, _LARGEST_PIECE)
            piece = diagonal.descending_order_after(self._probabilities, int(piece[-1]), size)

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
        return len(self._probabilities)

    def __iter__(self):
        for index in self._indices():
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
        """Basis indices by descending probability, ties in ascending order (above 2^22 states
        sorted when first asked for: 4 bytes per state, and 16 more while it sorts)."""
        if self._order is None:
            self._order = diagonal.descending_order(self._probabilities)
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
        for index in distribution._indices():
            yield distribution._key(index), float(probabilities[index])
