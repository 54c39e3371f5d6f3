"""The command line's PNG files: a run (loss history and top solutions) and the p = 1 landscape."""

from .. import plot
from .errors import InputError

LANDSCAPE_POINTS = 50  # per axis: 2,500 evaluations in one call


def check_available():
    """Raise InputError now, before a run, when matplotlib is missing."""
    _figure_class()


def _figure_class():
    try:
        return plot.figure_class()
    except ImportError as error:
        raise InputError(str(error)) from None


def write_png(document, path):
    """Draw `document` (see report.build) into the PNG file `path`. Raises InputError when
    matplotlib is missing or the file cannot be written."""
    figure = _figure_class()(figsize=(10, 4), layout="constrained")
    history, distribution = figure.subplots(1, 2)
    plot.loss_history(document["loss_history"], ax=history,
                      label=f"loss ({document['settings']['loss']})")

    solutions = document["solutions"]
    labels = [s["bits"] for s in solutions]
    bars = distribution.bar(range(len(solutions)), [s["probability"] for s in solutions],
                            color="tab:orange")
    for bar, s in zip(bars, solutions):
        distribution.annotate(f"{s['energy']:.3g}", (bar.get_x() + bar.get_width() / 2, bar.get_height()),
                              ha="center", va="bottom", fontsize=8)
    distribution.set_xticks(range(len(solutions)), labels, rotation=60, fontsize=8, family="monospace")
    distribution.set(title="top solutions (energy above each bar)", ylabel="probability")
    save(figure, path)


def landscape(qaoa, document):
    """The p = 1 landscape of the run's loss (exact probabilities, whatever the run's --shots)
    on `qaoa`, a fresh ``QAOA`` of the problem; the run's angles marked when it has one layer."""
    _figure_class()
    settings = document["settings"]
    loss = {"loss_type": settings["loss"]}
    for name in ("alpha", "temperature"):
        if settings[name] is not None:
            loss[name] = settings[name]
    angles = document["angles"]
    mark = (angles["gammas"][0], angles["betas"][0]) if settings["layers"] == 1 else None
    figure, _ = plot.landscape(qaoa, LANDSCAPE_POINTS, LANDSCAPE_POINTS, mark=mark, **loss)
    return figure


def save(figure, path):
    try:
        figure.savefig(path, format="png", dpi=100)
    except OSError as error:
        raise InputError(f"cannot write {path}: {error.strerror or error}") from None
