import gc

import numpy as np
import pytest

from corvid import diagonal


@pytest.mark.parametrize("size", [1, 10, 1 << 15])
def test_order_in_pieces_is_the_stable_descending_order(size):
    rng = np.random.default_rng(size)
    p = rng.random(size) ** 8
    p[rng.random(size) < 0.3] = p[0]  # many ties
    order = np.argsort(-p, kind="stable")
    np.testing.assert_array_equal(diagonal.descending_order(p), order)
    piece = max(3, size // 5)
    pieces = [diagonal.descending_order_after(p, -1, piece)]
    while len(pieces[-1]):
        pieces.append(diagonal.descending_order_after(p, int(pieces[-1][-1]), piece))
    np.testing.assert_array_equal(np.concatenate(pieces), order)


def test_results_own_their_memory():
    e = diagonal.energies_from_z_terms(3, [1, 6], [1.0, 2.0])
    view = e[2:]
    del e
    gc.collect()
    np.testing.assert_array_equal(view, [-1.0, -3.0, -1.0, -3.0, 3.0, 1.0])  # Z0 + 2 Z1 Z2, x = 2..7
