import re

import numpy as np
import pytest

from corvid_alg.QAOA.angles import _DEGREE_3, fixed_angles, fourier, fourier_inverse, interp, tqa, transfer
from corvid_alg.QAOA.problems import maxcut_operator
from corvid_alg.QAOA.qaoa import QAOA

RING = [(i, (i + 1) % 8) for i in range(8)]
S8, C8 = np.sin(np.pi / 8), np.cos(np.pi / 8)
HEAWOOD = [(i, (i + 1) % 14) for i in range(14)] + [(i, (i + 5) % 14) for i in range(0, 14, 2)]


def random_cubic_graph(n, seed):
    rng = np.random.default_rng(seed)
    while True:
        pairs = rng.permutation(np.repeat(np.arange(n), 3)).reshape(-1, 2)
        edges = {tuple(sorted(pair)) for pair in pairs.tolist()}
        if len(edges) == len(pairs) and all(a != b for a, b in edges):
            return sorted(edges)


def cut_fraction(edges, angles):
    """Expected fraction of edges cut, from the exact distribution and cuts counted in numpy."""
    p = len(angles) // 2
    probs = QAOA(maxcut_operator(edges)).run_qaoa_circuit(angles[:p], angles[p:]).probabilities
    states = np.arange(len(probs))
    cuts = sum(((states >> i) ^ (states >> j)) & 1 for i, j in edges)
    return float(np.asarray(probs) @ cuts) / len(edges)


# Girth 6 makes the Heawood graph a tree around every edge up to p = 2, so the published
# tree-limit ratios hold exactly there; a random graph has a few short cycles.
@pytest.mark.parametrize("edges, angles, expected, tol", [
    (RING, fixed_angles(2, 1), 0.75, 1e-12),
    (HEAWOOD, fixed_angles(3, 1), 0.69245005020442, 1e-6),
    (HEAWOOD, fixed_angles(3, 2), 0.7559063097485101, 1e-6),
    (random_cubic_graph(18, 0), fixed_angles(3, 3), 0.792315514902161, 0.03),
    (random_cubic_graph(18, 0), fixed_angles(3, 5), 0.8363793482380077, 0.03),
])
def test_fixed_angles_reach_the_published_cut_fraction(edges, angles, expected, tol):
    assert cut_fraction(edges, angles) == pytest.approx(expected, abs=tol)


def test_principal_branch_changes_no_cut_fraction_and_is_smooth():
    edges = random_cubic_graph(12, 3)
    for p, (published, _) in _DEGREE_3.items():
        angles = fixed_angles(3, p)
        assert np.all(np.diff(angles[:p]) > 0) and np.all(np.diff(angles[p:]) < 0)
        assert cut_fraction(edges, angles) == pytest.approx(cut_fraction(edges, published),
                                                            abs=1e-12)


@pytest.mark.parametrize("p, q", [(1, 1), (3, 3), (8, 8), (8, 3)])
def test_fourier_round_trip(rng, p, q):
    u, v = rng.normal(size=q), rng.normal(size=q)
    assert np.concatenate(fourier_inverse(fourier(u, v, p), q=q)) == pytest.approx(
        np.concatenate([u, v]), abs=1e-12)
    angles = rng.normal(size=2 * p)
    assert fourier(*fourier_inverse(angles), p) == pytest.approx(angles, abs=1e-12)


@pytest.mark.parametrize("call, angles, expected", [
    (tqa, (2, 1.0), [0.25, 0.75, 0.75, 0.25]),
    (fourier, ([1, 0], [0, 1], 2), [S8, C8, S8, -C8]),
    (interp, ([0.7, 0.2],), [0.7, 0.7, 0.2, 0.2]),
    (interp, ([1.0, 3.0, 0.5, 0.1],), [1.0, 2.0, 3.0, 0.5, 0.3, 0.1]),
    (interp, ([0.3, 0.6, 0.9, 0.6, 0.3, 0.3],), [0.3, 0.5, 0.7, 0.9, 0.6, 0.4, 0.3, 0.3]),
])
def test_schedules_by_hand(call, angles, expected):
    assert call(*angles) == pytest.approx(expected)


def test_tqa_anneals_towards_the_minimum():
    assert cut_fraction(RING, tqa(4, 1.0)) > 0.75


@pytest.mark.parametrize("p, p_new", [(1, 1), (3, 3), (11, 11), (3, 7), (8, 3)])
def test_transfer(rng, p, p_new):
    angles = rng.normal(size=2 * p) if p == p_new else tqa(p, 0.8)
    assert transfer(angles, p_new) == pytest.approx(angles if p == p_new else tqa(p_new, 0.8), abs=1e-15)


@pytest.mark.parametrize("call, message", [
    (lambda: tqa(0, 1.0), "p must be a positive integer, got 0"),
    (lambda: tqa(True, 1.0), "p must be a positive integer"),
    (lambda: tqa(2, -1.0), "dt must be a positive finite number"),
    (lambda: tqa(2, float("nan")), "dt must be a positive finite number"),
    (lambda: fixed_angles(4, 2), "available are p = 1 for every degree >= 1 and p = 1 .. 11"),
    (lambda: fixed_angles(3, 12), "no fixed angles for degree 3 at p = 12"),
    (lambda: fixed_angles(0, 1), "degree must be a positive integer"),
    (lambda: fixed_angles(3, 1.5), "p must be a positive integer"),
    (lambda: fourier([1.0], [1.0, 2.0], 2), "u and v must have the same length"),
    (lambda: fourier([np.inf], [1.0], 1), "u must be finite"),
    (lambda: fourier_inverse([1.0, 2.0], q=2), "q must be at most the number of layers 1"),
    (lambda: interp([0.1, 0.2, 0.3]), "even count"),
    (lambda: interp([]), "non-empty one-dimensional"),
    (lambda: interp(["0.1", "0.2"]), "sequence of real numbers"),
    (lambda: transfer([0.1, 0.2], 0), "p_new must be a positive integer"),
])
def test_bad_input(call, message):
    with pytest.raises(ValueError, match=re.escape(message)):
        call()
