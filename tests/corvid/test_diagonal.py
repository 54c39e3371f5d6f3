import gc

import numpy as np
import pytest

from corvid import diagonal


def reference_cvar(p, e, alpha):
    cdf = loss = 0.0
    for i in np.argsort(-p, kind="stable"):
        if cdf < alpha:
            loss += e[i] * (p[i] if cdf + p[i] < alpha else alpha - cdf)
            cdf += p[i]
    return loss


@pytest.mark.parametrize("size", [1, 10, 1 << 15])
@pytest.mark.parametrize("alpha", [0.0, 0.05, 0.5, 1.0])
def test_losses_and_order_match_numpy(size, alpha):
    rng = np.random.default_rng(size)
    p = rng.random(size) ** 8
    p[rng.random(size) < 0.3] = p[0]  # many ties
    p /= p.sum()
    e = rng.normal(size=size)
    assert diagonal.expectation(p, e) == pytest.approx(p @ e, rel=1e-12)
    assert diagonal.gibbs_sum(p, e, 0.7) == pytest.approx(p @ np.exp(-e / 0.7), rel=1e-12)
    assert diagonal.cvar(p, e, alpha) == pytest.approx(reference_cvar(p, e, alpha), rel=1e-9, abs=1e-15)
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
