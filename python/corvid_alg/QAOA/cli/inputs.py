"""Reading a problem: a polynomial as text, a JSON model, a dense QUBO matrix or an edge list.

Every reader returns a :class:`Problem`: what ``QAOA`` is given, and the name of the variable
each qubit carries. Operators are renumbered so that their qubits are 0 .. m-1 without gaps;
variables that appear in no term are listed as free (any value gives the same energy).

JSON model format (all keys but one of linear/quadratic/terms optional)::

    {
      "type": "qubo",                 // "qubo": x in {0, 1};  "ising": s in {+1, -1}
      "variables": ["a", "b", "c"],   // qubit order; default: order of first appearance
      "offset": -1.0,
      "linear": {"a": 3.0, "b": -1.0},
      "quadratic": [["a", "b", 2.0]],
      "terms": [[["a", "b", "c"], 0.5]]   // any degree; [] is a constant
    }

Edge list format: one edge per line, ``i j`` or ``i j weight`` (whitespace or commas); ``#``
starts a comment. Node labels are integers (ordered by value) or names (ordered by first
appearance).

G-set (rudy) format: a header line ``n m`` (nodes, edges), then exactly m lines ``i j weight``
with nodes numbered 1 .. n (the weight may be left out: 1). Nodes keep their numbers as names;
nodes in no edge are free. A file whose lines disagree with its header is refused with the line.
An edge list cannot tell the two apart (``4 3`` is an edge too), hence a separate option.
"""

import json
import math
import os
from dataclasses import dataclass, field

import numpy as np

import corvid

from .. import formula, problems
from .errors import InputError

_MODEL_KEYS = {"type", "variables", "offset", "linear", "quadratic", "terms"}
MAX_FILE_BYTES = 256 * 2**20


@dataclass
class Problem:
    """A problem ready for ``QAOA``.

    kind: "polynomial", "qubo", "ising" or "maxcut".
    source: the expression text or the file it came from.
    target: a sympy expression or a ``corvid.PauliOperator``, what ``QAOA`` is given.
    names: names[k] is the variable carried by qubit k.
    free: variables that appear in no term (no qubit; reported with value 0 / +1).
    spins: values are spins (+1 for bit 0, -1 for bit 1) instead of bits.
    """

    kind: str
    source: str
    target: object
    names: list
    free: list = field(default_factory=list)
    spins: bool = False

    def energy_scale(self):
        """The sum of the absolute coefficients: no energy exceeds it in magnitude."""
        if isinstance(self.target, corvid.PauliOperator):
            return sum(abs(c) for _, c in self.target)
        return float(sum(abs(c) for c in self.target.as_coefficients_dict().values()))

    def value(self, bit):
        """The variable's value for a qubit read as `bit`."""
        return 1 - 2 * bit if self.spins else bit


def polynomial(text):
    """A polynomial in binary variables written as text, e.g. ``"2*x0*x1 + 3*x2 - 1"``.

    Read by the grammar of :mod:`corvid_alg.QAOA.formula`: never evaluated."""
    try:
        terms = formula.parse(text)
    except formula.FormulaError as error:
        raise InputError(f"cannot parse the polynomial (--expr), {error}") from None
    names = sorted({name for monomial in terms for name in monomial})
    if not names:
        raise InputError("the polynomial (--expr) has no variables (or they cancel)")
    return Problem("polynomial", text, formula.to_sympy(terms), names)


def json_model(path):
    """A QUBO or Ising model from a JSON file (format in the module documentation)."""
    text = _read_text(path)
    try:
        model = json.loads(text, parse_constant=_no_constant)
    except json.JSONDecodeError as error:
        raise InputError(f"{path} is not valid JSON: {error}") from None
    except RecursionError:
        raise InputError(f"{path}: JSON nested too deeply for a model") from None
    except ValueError as error:  # an integer of more than 4300 digits, NaN, Infinity
        raise InputError(f"{path}: {first_line(error)}") from None
    if not isinstance(model, dict):
        raise InputError(f"{path}: the model must be a JSON object")
    unknown = set(model) - _MODEL_KEYS
    if unknown:
        raise InputError(f"{path}: unknown key(s) {', '.join(sorted(unknown))}; "
                         f"expected {', '.join(sorted(_MODEL_KEYS))}")
    kind = model.get("type", "qubo")
    if kind not in ("qubo", "ising"):
        raise InputError(f'{path}: "type" must be "qubo" or "ising", got {kind!r}')
    names = list(_names(model.get("variables", []), path))
    index = {name: k for k, name in enumerate(names)}
    closed = "variables" in model  # then every name must be declared: catches typos
    terms = [(_indices(variables, index, names, closed, path), weight)
             for variables, weight in _model_terms(model, path)]
    if not terms:
        raise InputError(f"{path}: the model has no linear, quadratic or higher-order terms")
    try:
        op = problems.polynomial_to_operator(
            terms, spins=kind == "ising", offset=_weight(model.get("offset", 0.0), '"offset"', path))
    except ValueError as error:
        raise InputError(f"{path}: {error}") from None
    return _operator_problem(kind, path, op, names, spins=kind == "ising")


def qubo_matrix(path):
    """A dense QUBO matrix from ``.npy`` or ``.csv``: minimise x^T Q x, variables x0, x1, ..."""
    extension = os.path.splitext(path)[1].lower()
    try:
        if extension == ".npy":
            matrix = np.load(path, allow_pickle=False)
        elif extension == ".csv":
            matrix = np.loadtxt(path, delimiter=",", ndmin=2, comments="#")
        else:
            raise InputError(f"{path}: a QUBO matrix must be a .npy or .csv file")
        if not isinstance(matrix, np.ndarray):
            raise InputError(f"{path}: not one array (an .npz archive?)")
        if not np.issubdtype(matrix.dtype, np.number) or np.iscomplexobj(matrix):
            raise InputError(f"{path}: a QUBO matrix must be real numbers, got {matrix.dtype}")
        op = problems.qubo_to_operator(matrix)
    except OSError as error:
        raise InputError(f"cannot read {path}: {error.strerror or error}") from None
    except ValueError as error:
        raise InputError(f"{path}: {first_line(error)}") from None
    return _operator_problem("qubo", path, op, [f"x{i}" for i in range(len(matrix))])


def edge_list(path):
    """A graph for MaxCut from an edge list file (format in the module documentation)."""
    edges = []
    for number, line, fields in _data_lines(path):
        if len(fields) not in (2, 3):
            raise InputError(f"{path}, line {number}: expected 'i j' or 'i j weight', got {line.strip()!r}")
        edges.append(_edge(path, number, fields))
    if not edges:
        raise InputError(f"{path}: no edges")
    labels = list(dict.fromkeys(label for i, j, _ in edges for label in (i, j)))
    if all(label.isascii() and label.isdigit() for label in labels):
        labels.sort(key=int)
    index = {label: k for k, label in enumerate(labels)}
    op = problems.maxcut_operator([(index[i], index[j], w) for i, j, w in edges])
    return _operator_problem("maxcut", path, op, labels)


def gset(path):
    """A graph for MaxCut in the G-set (rudy) format (see the module documentation)."""
    lines = _data_lines(path)
    header = next(lines, None)
    if header is None:
        raise InputError(f"{path}: empty; expected a header line 'n m'")
    number, line, fields = header
    try:
        n, m = (int(field) for field in fields)
    except ValueError:
        raise InputError(f"{path}, line {number}: expected the header 'n m' (nodes, edges), "
                         f"got {line.strip()!r}") from None
    if n < 2 or m < 1:
        raise InputError(f"{path}, line {number}: the header needs n >= 2 nodes and m >= 1 edges")
    edges = []
    for number, line, fields in lines:
        if len(fields) not in (2, 3):
            raise InputError(f"{path}, line {number}: expected 'i j weight', got {line.strip()!r}")
        if len(edges) == m:
            raise InputError(f"{path}, line {number}: an edge beyond the {m} the header announces")
        i, j, weight = _edge(path, number, fields)
        nodes = [_node(path, number, label, n) for label in (i, j)]
        edges.append((*nodes, weight))
    if len(edges) != m:
        raise InputError(f"{path}: the header announces {m} edges, the file has {len(edges)}")
    op = problems.maxcut_operator(edges)
    return _operator_problem("maxcut", path, op, [str(k) for k in range(1, n + 1)])


def _data_lines(path):
    """(line number, line, fields) of the lines that are not blank or comments."""
    for number, line in enumerate(_read_text(path).splitlines(), 1):
        fields = line.split("#", 1)[0].replace(",", " ").split()
        if fields:
            yield number, line, fields


def _edge(path, number, fields):
    """(i, j, weight) of an edge line's fields; the weight is 1 when not given."""
    weight = 1.0
    if len(fields) == 3:
        try:
            weight = float(fields[2])
        except ValueError:
            raise InputError(f"{path}, line {number}: weight {fields[2]!r} is not a number") from None
        if not math.isfinite(weight):
            raise InputError(f"{path}, line {number}: weight must be finite, got {fields[2]}")
    if fields[0] == fields[1]:
        raise InputError(f"{path}, line {number}: self-loop on node {fields[0]}")
    return fields[0], fields[1], weight


def _node(path, number, label, n):
    """The 0-based index of a 1-based node label of a G-set file."""
    node = int(label) if label.isascii() and label.isdigit() else 0
    if not 1 <= node <= n:
        raise InputError(f"{path}, line {number}: node {label!r} is not in 1 .. {n}")
    return node - 1


def _operator_problem(kind, source, op, names, spins=False):
    compacted, used = problems.compact(op)
    if not used:
        raise InputError(f"{source}: every term cancels or has weight 0; nothing to optimise")
    kept = set(used)
    free = [name for k, name in enumerate(names) if k not in kept]
    return Problem(kind, source, compacted, [names[k] for k in used], free, spins)


def _names(declared, path):
    if not isinstance(declared, list) or not all(isinstance(n, str) for n in declared):
        raise InputError(f'{path}: "variables" must be a list of names')
    if len(set(declared)) != len(declared):
        raise InputError(f'{path}: "variables" lists a name twice')
    return declared


def _model_terms(model, path):
    """(variable names, weight) for every term of the model, in file order."""
    linear = model.get("linear", {})
    if not isinstance(linear, dict):
        raise InputError(f'{path}: "linear" must be an object {{"name": weight}}')
    for name, weight in linear.items():
        yield [name], _weight(weight, f'"linear" {name!r}', path)
    for k, entry in enumerate(_list(model, "quadratic", path)):
        if not isinstance(entry, list) or len(entry) != 3:
            raise InputError(f'{path}: "quadratic" entry {k} must be ["a", "b", weight]')
        yield entry[:2], _weight(entry[2], f'"quadratic" entry {k}', path)
    for k, entry in enumerate(_list(model, "terms", path)):
        if not isinstance(entry, list) or len(entry) != 2 or not isinstance(entry[0], list):
            raise InputError(f'{path}: "terms" entry {k} must be [["a", ...], weight]')
        yield entry[0], _weight(entry[1], f'"terms" entry {k}', path)


def _list(model, key, path):
    value = model.get(key, [])
    if not isinstance(value, list):
        raise InputError(f'{path}: "{key}" must be a list')
    return value


def _weight(value, where, path):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise InputError(f"{path}: {where}: weight must be a number, got {_short(value)}")
    try:
        return float(value)
    except OverflowError:
        raise InputError(f"{path}: {where}: weight {_short(value)} overflows a float") from None


def _short(value):
    text = repr(value)
    return text if len(text) <= 40 else text[:37] + "..."


def _no_constant(name):
    raise ValueError(f"{name} is not a number in a model (weights must be finite)")


def _read_text(path):
    """The file's text, refusing files larger than MAX_FILE_BYTES."""
    try:
        with open(path, "rb") as f:
            data = f.read(MAX_FILE_BYTES + 1)
    except OSError as error:
        raise InputError(f"cannot read {path}: {error.strerror or error}") from None
    if len(data) > MAX_FILE_BYTES:
        raise InputError(f"{path} is larger than {MAX_FILE_BYTES // 2**20} MiB")
    try:
        return data.decode("utf-8")
    except UnicodeDecodeError:
        raise InputError(f"{path} is not a UTF-8 text file") from None


def _indices(variables, index, names, closed, path):
    """Qubit indices of named variables, adding names not seen before unless `closed`."""
    out = []
    for name in variables:
        if not isinstance(name, str):
            raise InputError(f"{path}: variable names must be strings, got {name!r}")
        if name not in index and closed:
            raise InputError(f'{path}: variable {name!r} is not listed in "variables"')
        if name not in index:
            index[name] = len(names)
            names.append(name)
        out.append(index[name])
    return out


def first_line(error):
    return str(error).strip().splitlines()[0] if str(error).strip() else type(error).__name__
