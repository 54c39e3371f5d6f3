"""Running one computation over the ranks of an MPI job.

Distribution is on when ``CORVID_MPI`` says so ("1"/"on", or "0"/"off" to turn it off), and
otherwise when the launcher's environment reports more than one rank (``OMPI_COMM_WORLD_SIZE``
under OpenMPI's ``mpirun``, ``PMI_SIZE`` under MPICH's and Slurm's). Without a launcher nothing
here loads MPI. A ``corvid_alg.QAOA`` object asks once, when it is made (or unpickled), and
then computes over the ranks or alone for its whole life. MPI itself is initialised by the
first call that needs it (``rank``, ``size``, ``QaoaEvaluation``) and finalised at exit; a
program that initialised it already (mpi4py) keeps that.
"""

import os
import sys
import traceback

_LAUNCHER_SIZES = ("OMPI_COMM_WORLD_SIZE", "PMI_SIZE")
_ON, _OFF = ("1", "on", "yes", "true"), ("0", "off", "no", "false")
_hooked = False


def requested():
    """True when this process is to work as one rank of a distributed computation."""
    setting = os.environ.get("CORVID_MPI", "").strip().lower()
    if setting in _ON:
        return True
    if setting in _OFF:
        return False
    if setting:
        raise ValueError(f"CORVID_MPI must be 1/on or 0/off, got {setting!r}")
    for name in _LAUNCHER_SIZES:
        value = os.environ.get(name, "")
        if value.isdigit() and int(value) > 1:
            return True
    return False


def _module():
    try:
        from . import _mpi
    except ImportError as error:
        raise RuntimeError(
            "this process runs as one rank of an MPI job, but this corvid was built without MPI "
            f"({error}); rebuild it where CMake finds MPI, or set CORVID_MPI=0 to make every "
            "rank compute alone") from None
    global _hooked
    if not _hooked:
        _abort_on_uncaught_exception(_mpi)
        _hooked = True
    _mpi.init()
    return _mpi


def _abort_on_uncaught_exception(module):
    """An exception that ends one rank ends the job, instead of leaving the other ranks waiting
    for it in a collective call."""
    previous = sys.excepthook

    def hook(kind, value, trace):
        if issubclass(kind, KeyboardInterrupt):
            return previous(kind, value, trace)
        print(f"corvid: rank {module.rank()}: uncaught exception, ending the MPI job:",
              file=sys.stderr)
        traceback.print_exception(kind, value, trace)
        sys.stderr.flush()
        module.abort(1)

    sys.excepthook = hook


def rank():
    """This process's rank (0 when distribution is off)."""
    return _module().rank() if requested() else 0


def size():
    """The number of ranks (1 when distribution is off)."""
    return _module().size() if requested() else 1


def broadcast(data):
    """Rank 0's bytes on every rank (`data` itself when distribution is off). Collective."""
    return _module().broadcast(bytes(data)) if requested() else bytes(data)


def QaoaEvaluation(*args, **kwargs):  # noqa: N802 -- it stands for the class
    """A ``corvid._mpi.QaoaEvaluation`` over all ranks (see its documentation)."""
    return _module().QaoaEvaluation(*args, **kwargs)
