"""``QAOAResult``: what :func:`corvid_alg.QAOA.solve` found, as plain data that prints, pickles,
converts to JSON or a DataFrame, and saves to and loads from a JSON file.

It holds the top solutions only, never the 2^n distribution, so a 28-qubit result is small.
"""

import dataclasses
import html
import json
import numbers
from typing import NamedTuple

from .problems import decode

__all__ = ["QAOAResult", "Solution"]

_FORMAT = "corvid.QAOAResult"
_VERSION = 1


class Solution(NamedTuple):
    """One of the most probable bit strings (qubit 0 right-most) with its probability and
    energy."""

    bits: str
    probability: float
    energy: float


@dataclasses.dataclass
class QAOAResult:
    """The outcome of ``solve``. Energies are the problem's, to be minimised.

    bits, energy, probability: the best solution, the lowest-energy one among ``solutions``
        (the more probable one of equal energies), and its probability.
    solutions: the top-k bit strings by descending probability, as ``Solution`` tuples.
    optimum_energy, worst_energy: the least and greatest energy over all 2^n states, read
        from the energy table for n <= 30 (None above, except over MPI ranks, where each
        rank reads its slice's).
    optimum_probability: the probability of measuring an optimal state (every state within
        1e-9 relative of the optimum counts); None where the optimum is.
    approximation_ratio: (worst - energy) / (worst - optimum) for the best solution: 1 when it
        is optimal, 0 for the worst state (1 when all energies are equal; None above 30 qubits).
    expected_energy, expected_ratio: the energy expectation of the final distribution and the
        same ratio for it; for MaxCut (energy minus the cut, the empty cut 0) expected_ratio is
        the usual expected cut over the maximum cut.
    angles, loss: the final angles (p gammas, then p betas) and the loss there.
    loss_history, best_angles, best_loss: the loss of every evaluation of the run and the
        evaluation of least loss.
    evaluations, circuit_runs, success, message: the optimiser's status.
    layers, num_qubits, variables, free, spins: the depth p and the problem: qubit k carries
        variables[k]; free names appear in no term; spins read bit 0 as +1, bit 1 as -1.
    settings: the run's loss, optimiser and sampling settings.
    timings: seconds to build the solver ("build"), to optimise ("run", every depth) and in all
        ("total").
    depths: one summary per depth run (a depth study has several; the fields above are the
        deepest run's).
    energy_levels: the final distribution over energies, [energy, probability] pairs in
        ascending energy, from 256 bins of equal width between the optimum and the worst
        energy, each shown at the mean energy of its probability: one level per pair where the
        levels are whole numbers spanning at most 255 (MaxCut with unit weights on up to 255
        edges); None where the optimum is. ``plot.energy_histogram(result)`` draws it.
    """

    bits: str
    energy: float
    probability: float
    solutions: list
    optimum_energy: float | None
    worst_energy: float | None
    optimum_probability: float | None
    approximation_ratio: float | None
    expected_energy: float
    expected_ratio: float | None
    angles: list
    loss: float
    loss_history: list
    best_angles: list
    best_loss: float
    evaluations: int
    circuit_runs: int
    success: bool | None
    message: str
    layers: int
    num_qubits: int
    variables: list
    free: list
    spins: bool
    settings: dict
    timings: dict
    depths: list
    energy_levels: list | None = None

    # --- reading it ---------------------------------------------------------------------------

    @property
    def assignment(self):
        """The best solution as a dict from variable name to value."""
        return self.assignment_of(self.bits)

    def assignment_of(self, bits):
        """{variable name: value} for a bit string (qubit 0 right-most)."""
        return decode(bits, self.variables, self.free, self.spins)

    @property
    def gammas(self):
        """The p final gammas."""
        return self.angles[:self.layers]

    @property
    def betas(self):
        """The p final betas."""
        return self.angles[self.layers:]

    # --- conversions --------------------------------------------------------------------------

    def to_dict(self):
        """The result as plain Python data (``from_dict`` reads it back unchanged)."""
        data = {"format": _FORMAT, "version": _VERSION}
        for field in dataclasses.fields(self):
            data[field.name] = getattr(self, field.name)
        data["solutions"] = [s._asdict() for s in self.solutions]
        data["depths"] = [dict(row) for row in self.depths]
        for name in ("angles", "loss_history", "best_angles", "variables", "free"):
            data[name] = list(data[name])
        data["settings"], data["timings"] = dict(self.settings), dict(self.timings)
        return data

    @classmethod
    def from_dict(cls, data):
        """The result that ``to_dict`` made `data` from; ValueError for anything else."""
        if not isinstance(data, dict) or data.get("format") != _FORMAT:
            raise ValueError(f"not a QAOAResult document (its 'format' must be {_FORMAT!r})")
        if data.get("version") != _VERSION:
            raise ValueError(f"QAOAResult document version {data.get('version')!r} is not "
                             f"supported (this library reads version {_VERSION})")
        fields = dataclasses.fields(cls)
        missing = [f.name for f in fields
                   if f.name not in data and f.default is dataclasses.MISSING]
        if missing:
            raise ValueError("QAOAResult document lacks " + ", ".join(missing))
        values = {f.name: data[f.name] for f in fields if f.name in data}
        values["solutions"] = [Solution(**s) for s in data["solutions"]]
        values["depths"] = [dict(row) for row in data["depths"]]
        return cls(**values)

    def to_json(self, indent=None):
        """The result as JSON text; floats are written exactly, variable names that are tuples
        as {"tuple": [...]}. Names other than str, int, float, bool, None and tuples of them
        have no JSON form (TypeError): pickle such a result."""
        data = self.to_dict()
        data["variables"] = [_name_to_json(name) for name in self.variables]
        data["free"] = [_name_to_json(name) for name in self.free]
        return json.dumps(data, indent=indent, allow_nan=False)

    @classmethod
    def from_json(cls, text):
        """The result that ``to_json`` wrote as `text`."""
        data = json.loads(text)
        if isinstance(data, dict):
            for key in ("variables", "free"):
                if isinstance(data.get(key), list):
                    data[key] = [_name_from_json(name) for name in data[key]]
        return cls.from_dict(data)

    def save(self, path):
        """Write the result to `path` as JSON; returns `path`."""
        with open(path, "w", encoding="utf-8") as file:
            file.write(self.to_json(indent=1))
        return path

    @classmethod
    def load(cls, path):
        """The result that ``save`` wrote to `path`."""
        with open(path, encoding="utf-8") as file:
            return cls.from_json(file.read())

    def to_dataframe(self, table="solutions"):
        """A pandas DataFrame of the top solutions (bits, probability, energy, then one column
        per variable, the solution's own columns winning over variables of the same name) or,
        with table="depths", one row per depth."""
        try:
            import pandas
        except ImportError:
            raise ImportError("QAOAResult.to_dataframe needs pandas: pip install pandas") from None
        if table == "solutions":
            rows = [{**s._asdict(), **{name: value for name, value in
                                       self.assignment_of(s.bits).items()
                                       if name not in Solution._fields}}
                    for s in self.solutions]
            return pandas.DataFrame(rows)
        if table == "depths":
            return pandas.DataFrame(self.depths)
        raise ValueError(f"table must be 'solutions' or 'depths', got {table!r}")

    # --- display ------------------------------------------------------------------------------

    def _headline(self):
        status = "converged" if self.success else "not converged" if self.success is False else "?"
        return (f"QAOA on {self.num_qubits} qubits, p = {self.layers}: loss {self.loss:.6g} after "
                f"{self.evaluations} evaluations in {self.timings.get('total', 0):.3g} s "
                f"({status}: {self.message})")

    def _quality(self):
        if self.approximation_ratio is None:
            return f"expected energy {self.expected_energy:.6g} (optimum unknown above 30 qubits)"
        return (f"optimum {self.optimum_energy:.6g}, measured with probability "
                f"{self.optimum_probability:.4g}; approximation ratio "
                f"{self.approximation_ratio:.4g} (best), {self.expected_ratio:.4g} (expected "
                f"energy {self.expected_energy:.6g})")

    def __str__(self):
        shown = list(self.assignment.items())
        text = " ".join(f"{name}={value}" for name, value in shown[:12])
        lines = [self._headline(),
                 f"best {self.bits}: energy {self.energy:.6g}, probability {self.probability:.4g}",
                 "  " + text + (" ..." if len(shown) > 12 else ""),
                 self._quality()]
        if len(self.depths) > 1:
            lines.append("   p  loss          ratio    p(optimum)  evaluations  seconds")
            for row in self.depths:
                lines.append(f"  {row['layers']:>2}  {row['loss']:<12.6g}  "
                             f"{_number(row['approximation_ratio']):<7}  "
                             f"{_number(row['optimum_probability']):<10}  "
                             f"{row['evaluations']:>11}  {row['seconds']:7.3g}")
        return "\n".join(lines)

    def __repr__(self):
        return (f"<QAOAResult {self.num_qubits} qubits p={self.layers} bits={self.bits!r} "
                f"energy={self.energy:.6g} loss={self.loss:.6g}>")

    def _repr_html_(self):
        e = html.escape
        rows = "".join(f"<tr><td><code>{e(s.bits)}</code></td><td>{s.probability:.4g}</td>"
                       f"<td>{s.energy:.6g}</td></tr>" for s in self.solutions)
        depths = ""
        if len(self.depths) > 1:
            depths = ("<table><tr><th>p</th><th>loss</th><th>ratio</th><th>p(optimum)</th>"
                      "<th>evaluations</th></tr>" + "".join(
                          f"<tr><td>{row['layers']}</td><td>{row['loss']:.6g}</td>"
                          f"<td>{_number(row['approximation_ratio'])}</td>"
                          f"<td>{_number(row['optimum_probability'])}</td>"
                          f"<td>{row['evaluations']}</td></tr>" for row in self.depths)
                      + "</table>")
        return (f"<div><p><b>{e(self._headline())}</b></p>"
                f"<p>best <code>{e(self.bits)}</code>: energy {self.energy:.6g}, probability "
                f"{self.probability:.4g}<br>{e(self._quality())}</p>"
                "<table><tr><th>bits</th><th>probability</th><th>energy</th></tr>"
                f"{rows}</table>{depths}</div>")


def _number(value):
    return "-" if value is None else f"{value:.4g}"


def _name_to_json(name):
    if name is None or isinstance(name, (str, bool)):
        return name
    if isinstance(name, numbers.Integral):
        return int(name)
    if isinstance(name, numbers.Real):
        return float(name)
    if isinstance(name, tuple):
        return {"tuple": [_name_to_json(part) for part in name]}
    raise TypeError(f"variable name {name!r} ({type(name).__name__}) has no JSON form; pickle "
                    "the result instead")


def _name_from_json(name):
    if isinstance(name, dict):
        return tuple(_name_from_json(part) for part in name["tuple"])
    return name
