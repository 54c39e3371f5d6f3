"""The outcome of a run as one document (printed as JSON or as text)."""

import itertools
import json

# The ratio as solve() defines it, from the same energy table.
from ..solving import _ratio


def build(problem, qaoa, options, solutions, angles, loss, seconds):
    """The run's result as plain data.

    solutions: the distribution ``QAOA.run`` returned (iterates by descending probability).
    The "best" solution is the lowest-energy one among the listed top ones.
    """
    layers = qaoa.layer
    angles = [float(a) for a in angles]
    top = [_solution(problem, qaoa, key, float(solutions[key]))
           for key in itertools.islice(iter(solutions), options.top)]
    best = min(top, key=lambda s: (s["energy"], -s["probability"]))
    optimum = ratio = None
    span = qaoa._energy_range()
    if span is not None:
        optimum = span[0]
        ratio = _ratio(best["energy"], optimum, span[1])
    return {
        "problem": {
            "kind": problem.kind,
            "source": problem.source,
            "variables": problem.names,
            "free_variables": problem.free,
            "num_qubits": qaoa.problem_dimension,
        },
        "settings": {
            "layers": layers,
            "shots": options.shots,
            "loss": options.loss,
            "alpha": options.alpha,
            "temperature": options.temperature,
            "optimizer": options.optimizer,
            "optimizer_options": dict(options.option),
            "interp": options.interp,
            "init": options.init,
            "seed": options.seed,
        },
        "loss": float(loss),
        "angles": {"gammas": angles[:layers], "betas": angles[layers:]},
        "evaluations": len(qaoa.losses),
        "circuit_runs": qaoa.circuit_iter,
        "seconds": round(seconds, 4),
        "solutions": top,
        "best": best,
        "optimum": optimum,
        "approximation_ratio": ratio,
        "loss_history": qaoa.losses,
    }


def _solution(problem, qaoa, key, probability):
    vector = [int(bit) for bit in reversed(key)]  # qubit 0 is the right-most character
    assignment = {name: problem.value(bit) for name, bit in zip(problem.names, vector)}
    assignment.update({name: problem.value(0) for name in problem.free})
    return {"bits": key, "probability": probability,
            "energy": float(qaoa.calculate_energy(vector)), "assignment": assignment}


def to_json(document):
    """The document as indented JSON text."""
    return json.dumps(document, indent=2, allow_nan=False)  # NaN and Infinity are not JSON


def to_text(document):
    """The document as a human-readable report."""
    p, s, best = document["problem"], document["settings"], document["best"]
    lines = [
        f"problem    {p['kind']} from {p['source']}: {p['num_qubits']} qubits",
        f"run        {_describe_run(s)}",
        f"loss       {document['loss']:.6g} after {document['evaluations']} evaluations "
        f"({document['seconds']:.2f} s)",
        f"gammas     {_numbers(document['angles']['gammas'])}",
        f"betas      {_numbers(document['angles']['betas'])}",
        "",
        f"top {len(document['solutions'])} solutions (qubit 0 right-most):",
        f"  {'bits':>{max(4, p['num_qubits'])}}  {'probability':>11}  {'energy':>12}",
    ]
    for entry in document["solutions"]:
        lines.append(f"  {entry['bits']:>{max(4, p['num_qubits'])}}  {entry['probability']:11.6f}"
                     f"  {entry['energy']:12.6g}")
    lines += ["", f"best listed solution: energy {best['energy']:.6g}"
                  + (f" (cut weight {-best['energy']:.6g})" if p["kind"] == "maxcut" else "")
                  + f", probability {best['probability']:.6f}"]
    lines += _assignment_lines(best["assignment"], p)
    if document["approximation_ratio"] is not None:
        lines.append(f"approximation ratio {document['approximation_ratio']:.6f} "
                     f"(optimum energy {document['optimum']:.6g})")
    return "\n".join(lines)


def _describe_run(s):
    parts = [f"{s['layers']} layer{'s' if s['layers'] != 1 else ''}"]
    parts.append("exact probabilities" if s["shots"] == -1 else f"{s['shots']} shots")
    loss = s["loss"]
    if loss == "CVaR":
        loss += f" alpha={1 if s['alpha'] is None else s['alpha']}"
    elif loss == "Gibbs":
        loss += f" T={1 if s['temperature'] is None else s['temperature']}"
    parts.append(f"loss {loss}")
    parts.append(f"optimizer {s['optimizer'] or 'scipy default'}")
    if s["init"] != "random":
        parts.append(f"{s['init']} start")
    if s["interp"]:
        parts.append("INTERP")
    if s["seed"] is not None:
        parts.append(f"seed {s['seed']}")
    return ", ".join(parts)


def _assignment_lines(assignment, problem):
    if problem["kind"] == "maxcut":
        sides = {0: [], 1: []}
        for name, side in assignment.items():
            sides[side].append(name)
        return [f"  side 0: {' '.join(sides[0])}", f"  side 1: {' '.join(sides[1])}"]
    items = [f"{name}={value}" for name, value in assignment.items() if name not in problem["free_variables"]]
    lines = ["  " + "  ".join(items[k:k + 8]) for k in range(0, len(items), 8)]
    if problem["free_variables"]:
        lines.append(f"  free (in no term, any value): {' '.join(problem['free_variables'])}")
    return lines


def _numbers(values):
    return "[" + ", ".join(f"{v:.6g}" for v in values) + "]"
