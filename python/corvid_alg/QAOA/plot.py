"""Pictures of a QAOA problem and its runs, drawn with matplotlib (``pip install 'corvid[plot]'``).

Every function draws into the matplotlib ``Axes`` it is given, or into a new figure of its own
(made without pyplot, so nothing opens a window), and returns the figure.

>>> from corvid_alg.QAOA.problems import maxcut_operator
>>> from corvid_alg.QAOA.qaoa import QAOA
>>> figure, values = landscape(QAOA(maxcut_operator([(0, 1), (1, 2), (2, 0)])), 20, 20)
>>> values.shape
(20, 20)
"""

import numpy as np

__all__ = ["energy_histogram", "loss_history", "landscape", "depth_curve"]


def energy_histogram(energies, probabilities=None, *, optimum=None, ax=None):
    """The probability mass on each energy level, the optimum (default: the lowest energy in
    `energies`) marked. `energies` and `probabilities` are per basis state (or per solution);
    or `energies` is a ``QAOAResult`` alone, whose ``energy_levels`` and optimum are drawn."""
    if probabilities is None:
        levels = getattr(energies, "energy_levels", None)
        if levels is None:
            raise ValueError("give energies and probabilities, or a QAOAResult that holds its "
                             "energy levels (30 qubits or fewer)")
        optimum = energies.optimum_energy if optimum is None else optimum
        energies, probabilities = zip(*levels)
    energies = np.asarray(energies, dtype=float)
    probabilities = np.asarray(probabilities, dtype=float)
    if energies.shape != probabilities.shape or energies.ndim != 1 or not len(energies):
        raise ValueError("energies and probabilities must be two equally long, non-empty lists")
    # Levels that differ by rounding only are one level.
    levels, index = np.unique(np.round(energies, 9), return_inverse=True)
    mass = np.bincount(index.ravel(), weights=probabilities)
    figure, ax = _axes(ax)
    width = 0.8 * float(np.min(np.diff(levels))) if len(levels) > 1 else 0.8
    ax.bar(levels, mass, width=width, color="tab:blue")
    optimum = float(levels[0]) if optimum is None else float(optimum)
    ax.axvline(optimum, color="tab:red", linestyle="--", label=f"optimum {optimum:.6g}")
    ax.set(title="probability per energy level", xlabel="energy", ylabel="probability")
    ax.legend()
    return figure


def loss_history(losses, *, ax=None, label="loss"):
    """The loss at every evaluation of a run, with the best so far."""
    losses = np.asarray(losses, dtype=float)
    figure, ax = _axes(ax)
    steps = np.arange(1, len(losses) + 1)
    ax.plot(steps, losses, color="tab:blue", linewidth=1, label=label)
    if len(losses):
        ax.plot(steps, np.minimum.accumulate(losses), color="tab:green", linewidth=1,
                label="best so far")
    ax.set(title="loss per evaluation", xlabel="evaluation", ylabel=label)
    ax.grid(alpha=0.3)
    ax.legend()
    return figure


def landscape(qaoa, gammas=50, betas=50, *, gamma_range=(0.0, np.pi), beta_range=(0.0, np.pi),
              mark=None, ax=None, **loss):
    """The p = 1 loss of `qaoa` (a ``QAOA``) over a gamma-beta grid, as a heatmap.

    gammas, betas: the grid's points along each axis (counts over the ranges, ends included),
        or the values themselves.
    mark: optional (gamma, beta) drawn as a cross, e.g. a run's optimised angles.
    loss: loss_type, alpha, temperature as ``QAOA.evaluate`` takes them.

    The whole grid is one ``QAOA.evaluate`` call. Returns (figure, values) where
    values[i, j] is the loss at (betas[i], gammas[j]).
    """
    gammas, betas = _grid(gammas, gamma_range), _grid(betas, beta_range)
    g, b = np.meshgrid(gammas, betas)
    values = qaoa.evaluate(np.column_stack([g.ravel(), b.ravel()]), **loss).reshape(g.shape)
    figure, ax = _axes(ax)
    image = ax.pcolormesh(gammas, betas, values, shading="nearest", cmap="viridis")
    figure.colorbar(image, ax=ax, label="loss")
    low = np.unravel_index(np.argmin(values), values.shape)
    ax.plot(gammas[low[1]], betas[low[0]], "w*", markersize=10, label="grid minimum")
    if mark is not None:
        ax.plot(*mark, "rx", markersize=10, label="marked")
    ax.set(title="p = 1 loss landscape", xlabel="gamma", ylabel="beta")
    ax.legend(loc="upper right", fontsize=8)
    return figure, values


def depth_curve(rows, *, ax=None, ylabel="loss"):
    """A depth study: `rows` of (p, value), the value a loss or an approximation ratio."""
    rows = sorted((int(p), float(value)) for p, value in rows)
    if not rows:
        raise ValueError("no rows to draw")
    figure, ax = _axes(ax)
    ax.plot([p for p, _ in rows], [v for _, v in rows], "o-", color="tab:blue")
    ax.set(title="depth study", xlabel="layers p", ylabel=ylabel)
    ax.set_xticks([p for p, _ in rows])
    ax.grid(alpha=0.3)
    return figure


def figure_class():
    """matplotlib's Figure (no pyplot, no window), or ImportError saying what to install."""
    try:
        from matplotlib.figure import Figure
    except ImportError:
        raise ImportError("plotting needs matplotlib: pip install 'corvid[plot]'") from None
    return Figure


def _axes(ax):
    if ax is not None:
        return ax.figure, ax
    figure = figure_class()(figsize=(6, 4), layout="constrained")
    return figure, figure.add_subplot()


def _grid(points, span):
    if isinstance(points, (int, np.integer)) and not isinstance(points, bool):
        if points < 2:
            raise ValueError(f"a grid needs at least 2 points per axis, got {points}")
        return np.linspace(*span, points)
    values = np.asarray(points, dtype=float)
    if values.ndim != 1 or len(values) < 1 or not np.all(np.isfinite(values)):
        raise ValueError("grid values must be a non-empty list of finite numbers")
    return values
