"""``solve``: build the QAOA solver for a problem, run it at one depth or several, and return one
:class:`~corvid_alg.QAOA.result.QAOAResult`."""

import numbers
import time
from itertools import islice

import numpy as np
import sympy

import corvid
from corvid import diagonal

from . import angles as _angles
from .problems import NamedProblem
from .qaoa import QAOA, distributed
from .qaoa.encoding import binary_variables, non_diagonal_parts
from .result import QAOAResult, Solution

__all__ = ["solve"]

# Energies this close to the optimum (relative to the energy scale) count as optimal.
_OPTIMUM_TOLERANCE = 1e-9
# The energy distribution a result keeps: at most this many levels (bins of equal width).
_LEVEL_BINS = 256


def solve(problem, layers=1, *, top_k=10, init_circuit=None, mixer_circuit=None, norm=False,
          **run_options):
    """Minimise `problem` with QAOA and return a ``QAOAResult``.

    problem: a sympy polynomial in binary variables (variables named as strings), a diagonal
        ``corvid.PauliOperator`` (variable k is qubit k, named k) or a ``NamedProblem`` from
        ``corvid_alg.QAOA.problems`` (assignments by its names). An operator with X or Y
        factors or complex coefficients is refused (ValueError).
    layers: the depth p, or an increasing sequence of depths (``range(1, 7)``): a depth study,
        each depth started from the previous one's angles (``angles.interp`` one layer up,
        ``angles.transfer`` otherwise; with optimize_type="interp" the previous angles as they
        are), one row per depth in ``depths``.
    top_k: how many of the most probable solutions to keep.
    init_circuit, mixer_circuit, norm: as ``QAOA(...)``.
    run_options: as ``QAOA.run`` (initial_para serves the first depth).

    >>> import networkx as nx                                          # doctest: +SKIP
    >>> from corvid_alg.QAOA.problems import maxcut_problem            # doctest: +SKIP
    >>> result = solve(maxcut_problem(nx.cycle_graph("abcd")), layers=2)  # doctest: +SKIP
    >>> result.assignment, result.approximation_ratio                  # doctest: +SKIP
    ({'a': 0, 'b': 1, 'c': 0, 'd': 1}, 1.0)
    """
    started = time.perf_counter()
    depths = _depths(layers)
    if "layer" in run_options:
        raise TypeError("solve takes the depth as layers=, not layer=")
    if isinstance(top_k, bool) or not isinstance(top_k, numbers.Integral) or top_k < 1:
        raise ValueError(f"top_k must be a positive integer, got {top_k!r}")
    hamiltonian, variables, free, spins = _problem_parts(problem)
    qaoa = QAOA(hamiltonian, init_circuit=init_circuit, mixer_circuit=mixer_circuit, norm=norm)
    if variables is None:
        variables = ([str(v) for v in binary_variables(qaoa.problem)]
                     if isinstance(hamiltonian, sympy.Basic)
                     else list(range(qaoa.problem_dimension)))
    built = time.perf_counter()
    start = run_options.pop("initial_para", None)
    rows, running = [], 0.0
    for p in depths:
        if rows:
            start = _warm_start(rows[-1]["angles"], p, run_options.get("optimize_type"))
        runs_before = qaoa.circuit_iter
        t0 = time.perf_counter()
        solutions, final_angles, loss = qaoa.run(layer=p, initial_para=start, **run_options)
        seconds = time.perf_counter() - t0
        running += seconds
        summary = _summary(qaoa, solutions, final_angles, loss, top_k)
        summary["circuit_runs"] = qaoa.circuit_iter - runs_before
        rows.append({"layers": p, "seconds": seconds,
                     **{key: summary[key] for key in _ROW_FIELDS}})
    return QAOAResult(
        **summary, layers=depths[-1], num_qubits=qaoa.problem_dimension, variables=variables,
        free=free, spins=spins, settings=_settings(qaoa),
        timings={"build": built - started, "run": running,
                 "total": time.perf_counter() - started},
        depths=rows)


_ROW_FIELDS = ("loss", "bits", "energy", "probability", "optimum_probability",
               "approximation_ratio", "expected_ratio", "best_loss", "evaluations",
               "circuit_runs", "success", "message", "angles")


def _depths(layers):
    if isinstance(layers, numbers.Integral) and not isinstance(layers, bool):
        depths = [layers]
    else:
        try:
            depths = list(layers)
        except TypeError:
            raise TypeError(f"layers must be a positive integer or a sequence of them, got "
                            f"{layers!r}") from None
    if not depths or any(isinstance(p, bool) or not isinstance(p, numbers.Integral) or p < 1
                         for p in depths):
        raise ValueError(f"layers must be a positive integer or a non-empty sequence of them, "
                         f"got {layers!r}")
    if any(b <= a for a, b in zip(depths, depths[1:])):
        raise ValueError(f"the depths of a study must increase, got {depths}")
    return [int(p) for p in depths]


def _problem_parts(problem):
    """(what QAOA takes, variable names or None to read them off the solver, free names,
    spins)."""
    if isinstance(problem, NamedProblem):
        _check_diagonal(problem.operator)
        return problem.operator, list(problem.variables), list(problem.free), problem.spins
    if isinstance(problem, corvid.PauliOperator):
        _check_diagonal(problem)
        return problem, None, [], False
    if isinstance(problem, sympy.Basic):
        return problem, None, [], False
    raise TypeError(f"solve takes a sympy polynomial, a corvid.PauliOperator or a NamedProblem, "
                    f"not {type(problem).__name__} (a networkx graph: "
                    "problems.maxcut_problem(graph))")


def _check_diagonal(operator):
    parts = non_diagonal_parts(operator)
    if parts:
        raise ValueError(f"the operator has {parts}: QAOA minimises a real diagonal "
                         "Hamiltonian (Z factors and real coefficients only)")


def _warm_start(previous, p, optimize_type):
    if optimize_type == "interp":
        return list(previous)
    if p == len(previous) // 2 + 1:
        return _angles.interp(previous)
    return _angles.transfer(previous, p)


def _summary(qaoa, solutions, final_angles, loss, top_k):
    """One depth's outcome from the solver's state after ``run``."""

    def energy_of(key):
        return qaoa.energy_dict.energy_of(key, qaoa.calculate_energy)

    top = [Solution(key, float(probability), _plain(energy_of(key)))
           for key, probability in islice(solutions.items(), top_k)]
    best = min(top, key=lambda s: (s.energy, -s.probability))
    low = high = p_optimum = ratio = expected_ratio = levels = None
    # Exact under MPI, the solutions are the most probable states only.
    top_only = distributed.active() and qaoa.shots == -1
    expected = float(qaoa.evaluate(final_angles, loss_type="default")[0] if top_only
                     else qaoa._loss_function_default(solutions))
    span = qaoa._energy_range()
    if span is not None:
        low, high = span
        threshold = low + _OPTIMUM_TOLERANCE * max(1.0, abs(low), abs(high))
        counts = None
        if hasattr(solutions, "probabilities"):
            counts = diagonal.energy_histogram(solutions.probabilities,
                                               qaoa.energy_dict.energies(), low, high,
                                               _LEVEL_BINS, threshold)
        elif not top_only or len(solutions) == 2 ** qaoa.problem_dimension:
            # sampled (the keys drawn), or MPI with every state returned
            qaoa.energy_dict.prefetch(solutions)
            energies = np.array([energy_of(key) for key in solutions], dtype=float)
            weights = np.fromiter(solutions.values(), dtype=float, count=len(solutions))
            counts = diagonal.energy_histogram(weights, energies, low, high, _LEVEL_BINS,
                                               threshold)
        if counts is not None:
            p_optimum, levels = float(counts[0]), _energy_levels(*counts[1:], low, high)
        ratio, expected_ratio = (_ratio(best.energy, low, high), _ratio(expected, low, high))
    history = qaoa.history
    result = qaoa.optimizer_result
    message = getattr(result, "message", "")
    return {
        "bits": best.bits, "energy": best.energy, "probability": best.probability,
        "solutions": top, "optimum_energy": low, "worst_energy": high,
        "optimum_probability": p_optimum, "approximation_ratio": ratio,
        "expected_energy": expected, "expected_ratio": expected_ratio,
        "angles": [float(a) for a in final_angles], "loss": float(loss),
        "loss_history": [e.loss for e in history],
        "best_angles": [float(a) for a in qaoa.best.angles], "best_loss": qaoa.best.loss,
        "energy_levels": levels,
        "evaluations": len(history), "circuit_runs": 0,
        "success": None if getattr(result, "success", None) is None else bool(result.success),
        "message": message.decode() if isinstance(message, bytes) else str(message),
    }


def _energy_levels(mass, moment, low, high):
    """[energy, probability] per occupied bin, each at the mean energy of its probability
    (rounded to 12 digits, so a bin holding one level reports that level)."""
    if high == low:
        return [[low, float(mass[0])]]
    return [[float(f"{moment[k] / mass[k]:.12g}"), float(mass[k])]
            for k in np.flatnonzero(mass > 0)]


def _ratio(energy, low, high):
    return 1.0 if high == low else float((high - energy) / (high - low))


def _settings(qaoa):
    optimizer = qaoa.optimizer
    if optimizer is not None and not isinstance(optimizer, str):
        optimizer = getattr(optimizer, "__name__", repr(optimizer))
    return {"shots": _plain(qaoa.shots), "loss_type": qaoa.loss_type,
            "alpha": _plain(qaoa.alpha), "temperature": _plain(qaoa.temperature),
            "optimize_type": qaoa.optimize_type, "optimizer": optimizer}


def _plain(value):
    """A numpy scalar as the Python number it holds (for JSON and exact round trips)."""
    return value.item() if hasattr(value, "item") and hasattr(value, "dtype") else value
