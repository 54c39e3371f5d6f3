import numpy as np
import pytest


@pytest.fixture
def rng():
    """A seeded generator, so a failing random case can be replayed."""
    return np.random.default_rng(20261123)
