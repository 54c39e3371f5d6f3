"""A PNG of a run: the loss at every evaluation, and the probabilities of the top solutions."""

from .errors import InputError


def check_available():
    """Raise InputError now, before a run, when matplotlib is missing."""
    _figure_class()


def _figure_class():
    try:
        import matplotlib
        matplotlib.use("Agg")
        from matplotlib.figure import Figure
    except ImportError:
        raise InputError("--plot needs matplotlib: pip install 'corvid[plot]'") from None
    return Figure


def write_png(document, path):
    """Draw `document` (see report.build) into the PNG file `path` with matplotlib's Agg
    backend. Raises InputError when matplotlib is missing or the file cannot be written."""
    figure = _figure_class()(figsize=(10, 4), layout="constrained")
    history, distribution = figure.subplots(1, 2)

    losses = document["loss_history"]
    history.plot(range(1, len(losses) + 1), losses, color="tab:blue", linewidth=1)
    history.set(title="loss per evaluation", xlabel="evaluation",
                ylabel=f"loss ({document['settings']['loss']})")
    history.grid(alpha=0.3)

    solutions = document["solutions"]
    labels = [s["bits"] for s in solutions]
    bars = distribution.bar(range(len(solutions)), [s["probability"] for s in solutions],
                            color="tab:orange")
    for bar, s in zip(bars, solutions):
        distribution.annotate(f"{s['energy']:.3g}", (bar.get_x() + bar.get_width() / 2, bar.get_height()),
                              ha="center", va="bottom", fontsize=8)
    distribution.set_xticks(range(len(solutions)), labels, rotation=60, fontsize=8, family="monospace")
    distribution.set(title="top solutions (energy above each bar)", ylabel="probability")
    try:
        figure.savefig(path, format="png", dpi=100)
    except OSError as error:
        raise InputError(f"cannot write {path}: {error.strerror or error}") from None
