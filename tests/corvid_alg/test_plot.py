"""corvid_alg.QAOA.plot: every picture is written at its size and shows something; the
landscape's values are the loss itself."""

import sys

import numpy as np
import pytest

matplotlib = pytest.importorskip("matplotlib")
from matplotlib.figure import Figure  # noqa: E402

from corvid_alg.QAOA import plot  # noqa: E402
from corvid_alg.QAOA.problems import maxcut_operator  # noqa: E402
from corvid_alg.QAOA.qaoa import QAOA  # noqa: E402

TRIANGLE_TAIL = [(0, 1), (1, 2), (2, 0), (2, 3, 2.0)]


def png_pixels(path):
    return matplotlib.image.imread(path)


@pytest.mark.parametrize("draw", [
    lambda ax: plot.energy_histogram([0, -1, -1, -3, -4, -4], [.1, .2, .1, .3, .2, .1], ax=ax),
    lambda ax: plot.loss_history([3.0, 2.5, 2.7, 1.0, 1.2], ax=ax),
    lambda ax: plot.landscape(QAOA(maxcut_operator(TRIANGLE_TAIL)), 8, 6, mark=(0.5, 0.3),
                              ax=ax)[0],
    lambda ax: plot.depth_curve([(2, 0.8), (1, 0.7), (3, 0.85)], ax=ax, ylabel="ratio"),
], ids=["histogram", "history", "landscape", "depth"])
@pytest.mark.parametrize("own_axes", [False, True])
def test_each_picture_is_written_at_its_size_and_not_blank(tmp_path, draw, own_axes):
    ax = None
    if own_axes:
        given = Figure(figsize=(3, 2))
        ax = given.add_subplot()
    figure = draw(ax)
    assert figure is (given if own_axes else figure)
    path = tmp_path / "p.png"
    figure.savefig(path, dpi=50)
    pixels = png_pixels(path)
    width, height = figure.get_size_inches() * 50
    assert pixels.shape[:2] == (round(height), round(width))
    assert len(np.unique(pixels.reshape(-1, pixels.shape[-1]), axis=0)) > 10


def test_landscape_values_are_single_evaluations():
    qaoa = QAOA(maxcut_operator(TRIANGLE_TAIL))
    # Off the special angles (gamma = pi/2 here) where states of different energies tie in
    # probability and the CVaR depends on how rounding breaks the tie.
    gammas, betas = np.linspace(0.1, 3.0, 7), [0.1, 0.4, 1.3]
    qaoa.shots, qaoa.layer = -1, 1  # what run() sets before it evaluates
    for settings in ({"loss_type": "default"}, {"loss_type": "CVaR", "alpha": 0.3}):
        _, values = plot.landscape(qaoa, gammas, betas, **settings)
        assert values.shape == (3, 7)
        qaoa.loss_type, qaoa.alpha = settings["loss_type"], settings.get("alpha")
        for i, j in [(0, 0), (1, 3), (2, 6), (2, 2)]:
            single = qaoa._loss_function([gammas[j], betas[i]])
            assert values[i, j] == pytest.approx(single, rel=1e-12, abs=1e-12)


def test_histogram_sums_mass_per_level():
    figure = plot.energy_histogram([-1, 0, -1 + 1e-12, -2], [0.25, 0.25, 0.25, 0.25])
    bars = figure.axes[0].patches
    assert sorted((round(b.get_x() + b.get_width() / 2, 6), b.get_height()) for b in bars) \
        == [(-2, 0.25), (-1, 0.5), (0, 0.25)]


def test_missing_matplotlib_says_what_to_install(monkeypatch):
    monkeypatch.setitem(sys.modules, "matplotlib.figure", None)  # its import fails
    with pytest.raises(ImportError, match=r"pip install 'corvid\[plot\]'"):
        plot.loss_history([1.0])
