"""Starting angles for --init: random (QAOA.run's own draw), tqa or fixed."""

import collections

import numpy as np

from .. import angles
from .errors import UsageError


def check(problem, opts):
    """Refuse --init fixed for a problem it does not fit, before any work is done."""
    if opts.init == "fixed":
        _fixed(problem, opts)


def _fixed(problem, opts):
    try:
        return list(angles.fixed_angles(_regular_degree(problem), _start_layers(opts)))
    except ValueError as error:  # no table entry for this degree and depth
        raise UsageError(f"--init fixed: {error}") from None


def initial_angles(problem, qaoa, opts):
    """`initial_para` for QAOA.run: None (random) or the chosen schedule; with --interp one layer."""
    if opts.init == "random":
        if opts.interp and opts.initial_angles is None:
            return list(np.random.random(2) * np.pi)  # INTERP starts from one layer
        return opts.initial_angles
    p = _start_layers(opts)
    if opts.init == "tqa":
        return list(angles.tqa(p, tqa_step(qaoa)))
    return _fixed(problem, opts)


def tqa_step(qaoa):
    """The annealing step dt for the circuit's Hamiltonian: 1 for unweighted MaxCut (terms of
    magnitude 1/2, where it was measured best), scaled inversely with the mean term size."""
    sizes = [abs(c) for qubits, c in qaoa.operator if qubits]
    return 0.5 / float(np.mean(sizes))


def _start_layers(opts):
    return 1 if opts.interp else opts.layers


def _regular_degree(problem):
    """The degree of an unweighted regular MaxCut graph, or UsageError."""
    if problem.kind != "maxcut":
        raise UsageError("--init fixed needs an unweighted regular graph (--maxcut or --gset)")
    degrees = collections.Counter()
    for term, coefficient in problem.target:
        qubits = term.split()
        if not qubits:
            continue
        if len(qubits) != 2 or not np.isclose(coefficient, 0.5):
            raise UsageError("--init fixed needs every edge of weight 1 (no parallel edges)")
        degrees.update(qubits)
    counts = set(degrees.values())
    if len(counts) != 1 or problem.free:
        raise UsageError(f"--init fixed needs a regular graph; node degrees here range from "
                         f"{0 if problem.free else min(counts)} to {max(counts)}")
    return counts.pop()
