"""corvid-qaoa: read a problem, run QAOA on it, report the solutions."""

import contextlib
import os
import sys
import time
import warnings

import numpy as np

import corvid

from .. import export
from ..qaoa import QAOA
from . import checkpoint, inputs, options as cli_options, plot, report, starts
from .errors import InputError, UsageError
from .progress import Progress
from .tracked import TrackedQAOA

_READERS = (("expr", inputs.polynomial), ("model", inputs.json_model),
            ("qubo", inputs.qubo_matrix), ("maxcut", inputs.edge_list),
            ("gset", inputs.gset))


def main(argv=None, stdout=None, stderr=None):
    """Run the command line with `argv` (default sys.argv[1:]); returns the exit status.

    0: solved; 1: the problem could not be read or solved; 2: bad options.
    Errors are one line on stderr, never a traceback.

    Under an MPI launcher (see ``corvid.mpi``) every rank runs the command and takes part in
    each evaluation; rank 0 alone prints and writes files, the others write to stderr only
    when they fail (their line names the rank).
    """
    stdout = sys.stdout if stdout is None else stdout
    stderr = sys.stderr if stderr is None else stderr
    try:
        rank = corvid.mpi.rank()
    except (RuntimeError, ValueError) as error:  # launched under MPI, but no MPI here
        print(f"{cli_options.PROG}: error: {error}", file=stderr)
        return 1
    prefix = f"{cli_options.PROG}: rank {rank}" if rank else cli_options.PROG
    errors = stderr
    if rank:
        stdout = stderr = open(os.devnull, "w")  # noqa: SIM115
    _short_warnings(stderr)
    try:
        # Everything that can be checked is checked before the solve: no finished work is lost.
        opts = cli_options.parse(sys.argv[1:] if argv is None else argv)
        if opts.plot or opts.landscape:
            plot.check_available()
        _set_threads(opts)
        problem = _read(opts)
        starts.check(problem, opts)
        document, qaoa = _solve(problem, opts, stderr, writes=rank == 0)
        try:
            text = report.to_json(document) if opts.json else report.to_text(document)
        except ValueError as error:  # NaN or infinity: not JSON
            raise InputError(f"the result is not finite: {error}") from None
        _write(stdout, text)
        if opts.plot and rank == 0:
            plot.write_png(document, opts.plot)
        if opts.qasm and rank == 0:
            _write_file(opts.qasm, export.to_qasm(qaoa, _angle_list(document)))
        if opts.landscape:  # the slowest last; under MPI every rank takes part
            figure = plot.landscape(_exact_qaoa(problem, opts), document)
            if rank == 0:
                plot.save(figure, opts.landscape)
        return 0
    except BrokenPipeError:  # the reader left (`| head`): nothing to say to anyone
        return 1
    except (UsageError, InputError) as error:
        print(f"{prefix}: error: {error}", file=errors)
        return error.exit_status
    except MemoryError as error:
        print(f"{prefix}: error: out of memory: {error}", file=errors)
        return 1
    except KeyboardInterrupt:
        print(f"{prefix}: interrupted", file=errors)
        return 130
    except Exception as error:  # noqa: BLE001 -- a command line answers in one line
        print(f"{prefix}: error: {type(error).__name__}: "
              f"{inputs.first_line(error)}", file=errors)
        return 1


def _write(stdout, text):
    try:
        print(text, file=stdout)
        stdout.flush()
    except BrokenPipeError:
        raise
    except OSError as error:  # a full disk, /dev/full
        raise InputError(f"cannot write the report: {error.strerror or error}") from None


def _write_file(path, text):
    try:
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
    except OSError as error:
        raise InputError(f"cannot write {path}: {error.strerror or error}") from None


def _angle_list(document):
    return document["angles"]["gammas"] + document["angles"]["betas"]


def _exact_qaoa(problem, opts):
    """A QAOA of the problem for the landscape: exact probabilities whatever --shots was."""
    return QAOA(problem.target, norm=opts.norm)


def _set_threads(opts):
    if opts.threads:
        try:
            corvid.set_num_threads(opts.threads)
        except (ValueError, TypeError) as error:
            raise UsageError(f"argument --threads: {error}") from None


def _short_warnings(stderr):
    """Warnings (for example scipy's about methods without bounds) as one line each."""
    def show(message, category, filename, lineno, file=None, line=None):
        print(f"{cli_options.PROG}: warning: {message}", file=stderr)
    warnings.showwarning = show


def _read(opts):
    for name, reader in _READERS:
        value = getattr(opts, name)
        if value is not None:
            return reader(value)
    raise UsageError("give a problem: --expr, --model, --qubo, --maxcut or --gset")


def _solve(problem, opts, stderr, writes=True):
    if opts.seed is not None:
        np.random.seed(opts.seed % 2**32)  # QAOA draws its starting angles from numpy's global generator
    progress = Progress(stderr, enabled=False if opts.quiet else None)
    saver = checkpoint.Saver(opts.checkpoint) if opts.checkpoint and writes else None

    def on_loss(evaluations, loss):
        progress.update(evaluations, loss)
        if saver is not None:
            saver.maybe_save(qaoa)

    try:
        qaoa = TrackedQAOA(problem.target, norm=opts.norm, on_loss=on_loss,
                           sample_seed=opts.seed)
    except ValueError as error:  # coefficients beyond the float range
        raise InputError(" ".join(str(error).split())) from None  # one line
    if opts.resume:
        opts.initial_angles = checkpoint.resume(opts.resume, qaoa, opts.layers)
    start = time.perf_counter()
    try:
        # The algorithm prints its rare warnings on stdout; keep stdout for the report alone.
        with contextlib.redirect_stdout(stderr):
            solutions, angles, loss = qaoa.run(
                **_run_arguments(opts, starts.initial_angles(problem, qaoa, opts)))
    except ValueError as error:  # the algorithm's own checks of the options
        raise UsageError(str(error)) from None
    except TypeError as error:  # an --option the optimiser does not take
        raise UsageError(f"the optimizer rejected its options: {error}") from None
    except FloatingPointError:
        raise InputError(_overflow_message(problem, opts, len(qaoa.losses) + 1)) from None
    except KeyboardInterrupt:
        progress.close()
        _report_best_so_far(qaoa, stderr)
        if saver is not None:
            saver.save(qaoa)
        raise
    finally:
        progress.close()
    if saver is not None:
        saver.save(qaoa)
    document = report.build(problem, qaoa, opts, solutions, angles, loss,
                            time.perf_counter() - start)
    return document, qaoa


def _report_best_so_far(qaoa, stderr):
    """After Ctrl-C: the best angles of the evaluations made, so that the work is not lost."""
    best = qaoa.best
    if best is not None:
        angles = ",".join(f"{a:.17g}" for a in best.angles)
        print(f"{cli_options.PROG}: best so far after {len(qaoa.history)} evaluations: "
              f"loss {best.loss:.17g} at angles {angles} (--initial-angles continues from there)",
              file=stderr)


def _overflow_message(problem, opts, evaluation):
    remedies = ["--norm" if problem.kind == "polynomial" else "smaller weights",
                "a constant shift that brings the energies near 0"]
    if opts.loss == "Gibbs":
        remedies.append("a higher --temperature")
    return (f"the {opts.loss} loss is not finite at evaluation {evaluation}; the energies reach about "
            f"{problem.energy_scale():.3g}: try {', '.join(remedies[:-1])} or {remedies[-1]}")


# Keywords of scipy.optimize.minimize itself; any other --option is one of the method's options.
_MINIMIZE_KEYWORDS = {"args", "jac", "hess", "hessp", "constraints", "tol", "callback", "options"}


def _optimizer_option(opts):
    given = dict(opts.option)
    if opts.optimizer == "SPSA":
        if opts.seed is not None:
            given.setdefault("seed", opts.seed)
        return given
    options = {key: value for key, value in given.items() if key not in _MINIMIZE_KEYWORDS}
    keywords = {key: value for key, value in given.items() if key in _MINIMIZE_KEYWORDS}
    if options:
        keywords["options"] = {**keywords.get("options", {}), **options}
    return keywords


def _run_arguments(opts, initial):
    """The keyword arguments of QAOA.run for the options, starting from `initial`."""
    optimizer_option = _optimizer_option(opts)
    arguments = dict(layer=opts.layers, initial_para=initial, shots=opts.shots,
                     loss_type=opts.loss, optimize_type="interp" if opts.interp else "default",
                     optimizer=opts.optimizer, optimizer_option=optimizer_option)
    for name in ("alpha", "temperature", "gamma_bounds", "beta_bounds"):
        if getattr(opts, name) is not None:
            arguments[name] = getattr(opts, name)
    return arguments
