"""corvid: a quantum SDK with Pauli operators, circuits and a fast CPU state-vector machine.

Bit order: basis index bit i is qubit i; printed keys show qubit 0 right-most.
"""

__version__ = "0.1.0"

# A development build keeps the compiled extension in build/<dir>/python/corvid; listing that
# folder on sys.path merges it into this package.
__path__ = __import__("pkgutil").extend_path(__path__, __name__)

from . import _threads  # noqa: E402  (before the core loads OpenMP)

from ._core import get_num_threads, set_num_threads  # noqa: E402,F401
from ._core import PauliOperator, binary_polynomial_to_z_operator  # noqa: E402,F401
from ._core import (  # noqa: E402,F401
    CNOT, CPUQVM, CZ, RX, RXX, RY, RYY, RZ, RZZ, SWAP, CBit, Gate, H, I, Measure, Measurement, P,
    ProbabilityMap, QCircuit, QProg, Qubit, S, T, X, Y, Z, hadamard_circuit, measure_all,
    measure_bandwidth,
)
from ._core import from_qasm, to_qasm  # noqa: E402,F401
from ._core import (  # noqa: E402,F401
    clear_diagonal_cache, default_precision, diagonal_cache_info, fusion_enabled, kernel_set,
    kernel_sets, last_run_timings, set_default_precision, set_diagonal_cache_limit,
    set_fusion_enabled, set_kernel_set,
)
from . import ansatz, diagonal, mpi  # noqa: E402,F401

_threads.share_cores_with_siblings(set_num_threads)
