"""The command line's options, their parsing and their checks.

Options mirror ``QAOA.run``: --layers is `layer`, --shots `shots`, --loss with --alpha or
--temperature the loss and its option, --optimizer and --option the optimiser and its
keyword options, --interp with --initial-angles the INTERP schedule and its start,
--gamma-bounds/--beta-bounds the bounds.
"""

import argparse
import ast
import json
import math
import os

from .errors import UsageError

PROG = "corvid-qaoa"

_LOSSES = {"default": "default", "cvar": "CVaR", "gibbs": "Gibbs"}
_SCIPY_METHODS = ("Nelder-Mead", "Powell", "CG", "BFGS", "Newton-CG", "L-BFGS-B", "TNC",
                  "COBYLA", "COBYQA", "SLSQP", "trust-constr", "dogleg", "trust-ncg",
                  "trust-exact", "trust-krylov")

_EPILOG = """\
examples:
  corvid-qaoa -e "2*x0*x1 + 3*x2 - 1" --layers 2
  corvid-qaoa --maxcut examples/maxcut14.txt --layers 3 --interp --seed 7 --plot run.png
  corvid-qaoa --gset examples/cube.gset --layers 2 --init fixed --qasm cube.qasm
  corvid-qaoa --qubo Q.npy --loss cvar --alpha 0.25 --shots 2000 --optimizer SPSA \\
              --option maxiter=100 --json
  corvid-qaoa --model model.json --optimizer COBYLA --option maxiter=200 --top 10

Bit strings show qubit 0 right-most; qubit k carries the k-th variable listed under
"variables". Exit status: 0 solved, 1 unreadable problem, 2 bad options.
"""


class _Parser(argparse.ArgumentParser):
    def error(self, message):
        raise UsageError(message)


INITS = ("random", "tqa", "fixed")
MAX_TOP = 10**6
MAX_LAYERS = 10_000
MAX_SHOTS = 10**15
MAX_SEED = 2**128


def _positive_int(text, most=None):
    value = _int(text)
    if value < 1:
        raise argparse.ArgumentTypeError(f"must be a positive integer, got {text!r}")
    if most is not None and value > most:
        raise argparse.ArgumentTypeError(f"must be at most {most}, got {text}")
    return value


def _int(text):
    if len(text) > 50:  # int() of thousands of digits is slow, and no count needs them
        raise argparse.ArgumentTypeError(f"must be an integer of at most 50 digits, got {text[:20]!r}...")
    try:
        return int(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"must be an integer, got {text!r}") from None


def _layers(text):
    return _positive_int(text, MAX_LAYERS)


def _top(text):
    return _positive_int(text, MAX_TOP)


def _seed(text):
    value = _int(text)
    if not 0 <= value < MAX_SEED:
        raise argparse.ArgumentTypeError(f"must be an integer in [0, 2^128), got {text}")
    return value


def _shots(text):
    value = _int(text)
    if value != -1 and value < 1:
        raise argparse.ArgumentTypeError(f"must be -1 (exact) or a positive count, got {text!r}")
    if value > MAX_SHOTS:
        raise argparse.ArgumentTypeError(f"must be at most 10^15, got {text}")
    return value


def _float(text):
    try:
        value = float(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"must be a number, got {text!r}") from None
    if math.isnan(value):
        raise argparse.ArgumentTypeError("must be a number, got nan")
    return value


def _unit(text, low_open):
    value = _float(text)
    if value > 1 or value < 0 or (low_open and value == 0):
        interval = "(0, 1]" if low_open else "[0, 1]"
        raise argparse.ArgumentTypeError(f"must be in {interval}, got {text!r}")
    return value


def _alpha(text):
    return _unit(text, low_open=False)


def _temperature(text):
    return _unit(text, low_open=True)


def _loss(text):
    try:
        return _LOSSES[text.lower()]
    except KeyError:
        raise argparse.ArgumentTypeError(
            f"must be one of default, cvar, gibbs, got {text!r}") from None


def _optimizer(text):
    if text.upper() == "SPSA":
        return "SPSA"
    for method in _SCIPY_METHODS:
        if text.lower() == method.lower():
            return method
    raise argparse.ArgumentTypeError(
        f"must be SPSA or a scipy.optimize.minimize method ({', '.join(_SCIPY_METHODS)}), "
        f"got {text!r}")


def _angles(text):
    values = [_float(part) for part in text.replace(",", " ").split()]
    if not values or len(values) % 2:
        raise argparse.ArgumentTypeError(
            f"needs an even, non-zero number of angles (p gammas, then p betas), got {text!r}")
    return values


def _bounds(text):
    parts = text.split(",")
    if len(parts) != 2:
        raise argparse.ArgumentTypeError(f"must be LOW,HIGH, got {text!r}")
    low, high = (_float(part) for part in parts)
    if low > high:
        raise argparse.ArgumentTypeError(f"LOW must not exceed HIGH, got {text!r}")
    return (low, high)


def _option(text):
    """KEY=VALUE; the value read as JSON or a Python literal when it is one, else as text."""
    key, sep, raw = text.partition("=")
    if not sep or not key.isidentifier():
        raise argparse.ArgumentTypeError(f"must be KEY=VALUE, got {text!r}")
    if len(raw) > 1000:
        raise argparse.ArgumentTypeError(f"the value of {key} is longer than 1000 characters")
    for read in (json.loads, ast.literal_eval):  # data only: literal_eval evaluates no code
        try:
            return key, read(raw)
        except (ValueError, SyntaxError, RecursionError, MemoryError):
            pass
    return key, raw


def build_parser():
    """The argument parser of corvid-qaoa."""
    parser = _Parser(
        prog=PROG, formatter_class=argparse.RawDescriptionHelpFormatter, epilog=_EPILOG,
        description="Solve a binary optimisation problem with QAOA: minimise a polynomial, a "
                    "QUBO or Ising model, or find a maximum cut.")
    source = parser.add_argument_group("problem (exactly one)")
    given = source.add_mutually_exclusive_group(required=True)
    given.add_argument("-e", "--expr", metavar="POLY",
                       help='a polynomial in binary variables, e.g. "2*x0*x1 + 3*x2 - 1"; '
                            "variables are ordered by name as strings (x10 before x2)")
    given.add_argument("--model", metavar="FILE.json",
                       help="a QUBO or Ising model in JSON (linear, quadratic and higher-order "
                            "terms with named variables)")
    given.add_argument("--qubo", metavar="FILE",
                       help="a dense QUBO matrix Q (.npy or .csv): minimise x^T Q x")
    given.add_argument("--maxcut", metavar="FILE",
                       help="a graph edge list ('i j' or 'i j weight' per line): maximise the cut")
    given.add_argument("--gset", metavar="FILE",
                       help="a graph in the G-set (rudy) format: a line 'n m', then m lines "
                            "'i j weight' with nodes 1 .. n: maximise the cut")

    run = parser.add_argument_group("optimisation (as QAOA.run)")
    run.add_argument("-p", "--layers", type=_layers, default=1, metavar="P",
                     help="QAOA layers (default 1; the final depth with --interp)")
    run.add_argument("--shots", type=_shots, default=-1, metavar="N",
                     help="-1 for exact probabilities (default), or N samples per evaluation")
    run.add_argument("--loss", type=_loss, default="default", metavar="{default,cvar,gibbs}",
                     help="energy expectation (default), CVaR (--alpha) or Gibbs (--temperature)")
    run.add_argument("--alpha", type=_alpha, metavar="A",
                     help="CVaR fraction of probability mass in [0, 1] (default 1)")
    run.add_argument("--temperature", type=_temperature, metavar="T",
                     help="Gibbs temperature in (0, 1] (default 1)")
    run.add_argument("--optimizer", type=_optimizer, metavar="NAME",
                     help="SPSA, or a scipy.optimize.minimize method such as COBYLA, Nelder-Mead, "
                          "L-BFGS-B (default: scipy's choice)")
    run.add_argument("--option", type=_option, action="append", default=[], metavar="KEY=VALUE",
                     help="an optimiser option, e.g. maxiter=50 (repeatable): a keyword of "
                          "spsa_minimize for SPSA; for scipy, tol goes to minimize() and the "
                          "rest (maxiter, rhobeg, ...) into its options dict")
    run.add_argument("--interp", action="store_true",
                     help="grow the circuit one layer at a time (INTERP) up to --layers")
    run.add_argument("--initial-angles", type=_angles, metavar="G1,..,B1,..",
                     help="starting angles, p gammas then p betas (default: random in [0, pi); "
                          "with --interp: one random layer)")
    run.add_argument("--init", choices=INITS, default="random",
                     help="starting angles: random in [0, pi) (default), tqa (a linear annealing "
                          "ramp) or fixed (published angles for MaxCut on regular graphs); with "
                          "--interp they start the first layer")
    run.add_argument("--gamma-bounds", type=_bounds, action="append", metavar="LOW,HIGH",
                     help="bounds of the gammas: once for every layer, or once per layer; "
                          "write --gamma-bounds=-1,1 for a negative LOW")
    run.add_argument("--beta-bounds", type=_bounds, action="append", metavar="LOW,HIGH",
                     help="bounds of the betas, as --gamma-bounds")
    run.add_argument("--resume", metavar="FILE.json",
                     help="start from the best angles of a --checkpoint file of the same "
                          "problem and --layers")
    run.add_argument("--norm", action="store_true",
                     help="scale the polynomial's Hamiltonian to mean coefficient 1 for the "
                          "circuit (energies stay unscaled)")
    run.add_argument("--seed", type=_seed, metavar="S",
                     help="make the run reproducible: seeds the starting angles, SPSA and the "
                          "sampling of --shots")
    run.add_argument("--threads", type=_positive_int, metavar="N",
                     help="simulation threads (default: OMP_NUM_THREADS, else every core)")

    out = parser.add_argument_group("output")
    out.add_argument("-k", "--top", type=_top, default=5, metavar="K",
                     help="how many of the most probable solutions to list (default 5)")
    out.add_argument("--json", action="store_true", help="print one JSON document on stdout")
    out.add_argument("--plot", metavar="FILE.png",
                     help="draw the loss history and the top-K distribution (needs matplotlib)")
    out.add_argument("--landscape", metavar="FILE.png",
                     help="draw the p = 1 loss over a gamma-beta grid (needs matplotlib)")
    out.add_argument("--qasm", metavar="FILE",
                     help="write the optimised circuit as OpenQASM 2")
    out.add_argument("--checkpoint", metavar="FILE.json",
                     help="keep the best angles so far in FILE.json (rewritten at most every "
                          "5 s, at the end and on Ctrl-C) for --resume")
    out.add_argument("-q", "--quiet", action="store_true", help="no progress line on stderr")
    return parser


def parse(argv):
    """Parsed and cross-checked options; raises UsageError with a one-line message."""
    options = build_parser().parse_args(argv)
    if options.alpha is not None and options.loss != "CVaR":
        raise UsageError("--alpha applies to --loss cvar only")
    if options.temperature is not None and options.loss != "Gibbs":
        raise UsageError("--temperature applies to --loss gibbs only")
    if options.interp and options.layers < 2:
        raise UsageError("--interp needs --layers of at least 2")
    if options.initial_angles is not None and options.interp:
        if len(options.initial_angles) // 2 >= options.layers:
            raise UsageError("with --interp, --initial-angles must have fewer layers than --layers")
    for name in ("gamma_bounds", "beta_bounds"):
        bounds = getattr(options, name)
        if bounds is not None and len(bounds) not in (1, options.layers):
            raise UsageError(f"--{name.replace('_', '-')} must be given once or once per layer "
                             f"({options.layers}), got {len(bounds)}")
    keys = [key for key, _ in options.option]
    if len(set(keys)) != len(keys):
        raise UsageError("an --option key is given twice")
    if {"bounds", "method"} & set(keys):
        raise UsageError("use --gamma-bounds/--beta-bounds and --optimizer instead of "
                         "--option bounds/method")
    code = sorted(_CALLABLE_KEYWORDS & set(keys))
    if code:
        raise UsageError(f"--option {code[0]} needs a Python function; the command line takes "
                         "only data")
    if not isinstance(dict(options.option).get("options", {}), dict):
        raise UsageError('--option options= must be a JSON object, e.g. options={"maxiter": 50}')
    if options.initial_angles is not None and options.init != "random":
        raise UsageError(f"--initial-angles and --init {options.init} both give the starting "
                         "angles; use one")
    if options.resume is not None and (options.interp or options.init != "random"
                                       or options.initial_angles is not None):
        raise UsageError("--resume gives the starting angles; it does not go with --interp, "
                         "--init or --initial-angles")
    outputs = (("plot", ".png"), ("landscape", ".png"), ("qasm", None), ("checkpoint", None))
    for name, extension in outputs:
        if getattr(options, name) is not None:
            _check_output(f"--{name}", getattr(options, name), extension)
    written = [getattr(options, name) for name, _ in outputs if getattr(options, name)]
    if len({os.path.realpath(path) for path in written}) != len(written):
        raise UsageError("--plot, --landscape, --qasm and --checkpoint must name different files")
    return options


# Keywords of scipy.optimize.minimize whose values are functions or arguments to them.
_CALLABLE_KEYWORDS = {"args", "callback", "constraints", "hessp"}


def _check_output(option, path, extension):
    """Refuse an output path that cannot be written, before any work is done."""
    if extension and not path.lower().endswith(extension):
        raise UsageError(f"{option} writes a {extension[1:].upper()} file, got {path!r}")
    folder = os.path.dirname(path) or "."
    if os.path.isdir(path):
        raise UsageError(f"{option} {path}: is a directory")
    if not os.path.isdir(folder):
        raise UsageError(f"{option} {path}: the folder {folder} does not exist")
    if not os.access(folder, os.W_OK) or (os.path.exists(path) and not os.access(path, os.W_OK)):
        raise UsageError(f"{option} {path}: not writable")
