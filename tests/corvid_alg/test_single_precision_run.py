"""An optimisation in single precision reaches what the same one in double reaches."""

import numpy as np
import pytest
import sympy

import corvid
from corvid_alg.QAOA.qaoa import QAOA

x = sympy.symbols("x0:8")
EDGES = [(0, 1), (1, 2), (2, 3), (3, 4), (4, 5), (5, 6), (6, 7), (7, 0), (0, 4), (2, 6), (1, 5)]
MAXCUT = sum(2 * x[a] * x[b] - x[a] - x[b] for a, b in EDGES)


@pytest.fixture
def single():
    corvid.set_default_precision("single")
    yield
    corvid.set_default_precision("double")


@pytest.mark.parametrize("optimizer", [None, "BFGS", "SLSQP"])
def test_differenced_gradients_do_not_stall_in_single_precision(single, optimizer):
    start = [0.2, 0.3, 0.4, 0.3]
    _, angles, loss = QAOA(MAXCUT).run(layer=2, initial_para=start, optimizer=optimizer)
    corvid.set_default_precision("double")
    _, _, reference = QAOA(MAXCUT).run(layer=2, initial_para=start, optimizer=optimizer)
    assert not np.allclose(angles, start, atol=1e-3)
    assert loss == pytest.approx(reference, abs=2e-3)
