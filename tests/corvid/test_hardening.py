import resource
import subprocess

import numpy as np
import pytest

import corvid
from corvid import CNOT, CPUQVM, RX, RZ, H, PauliOperator, QCircuit, QProg, diagonal
from corvid_alg.QAOA.qaoa import pauli_z_operator_to_circuit
from interrupt_harness import run_python

NAN, INF = float("nan"), float("inf")
GIB = 1 << 30


def _machine(n=3, cbits=3, seed=1):
    qvm = CPUQVM(seed=seed)
    return qvm, qvm.qAlloc_many(n), qvm.cAlloc_many(cbits)


_M, _Q, _C = _machine()
_OTHER, _OQ, _OC = _machine()
_DEAD, _DQ, _DC = _machine(2, 2)
_DEAD.finalize()
_PROG = QProg() << corvid.hadamard_circuit(_Q) << corvid.measure_all(_Q, _C)
_MASKS, _COEFFS = np.array([1, 2], dtype=np.uint64), np.array([1.0, -2.0])
_P, _E = np.array([0.25, 0.75]), np.array([1.0, -1.0])


def _inputs(label, call, cases):
    """Rows for one entry point: call(value) raises error with message, for (value, error, message)."""
    return [(f"{label} {v!r}", lambda v=v: call(v), error, message) for v, error, message in cases]


# (entry point and bad input, call, exception, message pattern)
SDK_CASES = [
    *_inputs("key", lambda key: PauliOperator(key, 1), [
        ("Z", ValueError, "has no qubit index"), ("Z-1", ValueError, "not a decimal number"),
        ("z0", ValueError, "does not start with X, Y or Z"), ("Z0 X0", ValueError, "appears more than once"),
        ("Z01", ValueError, "leading zero"), ("Z0  Z1", ValueError, "misplaced blank"), ("Z0 ", ValueError, "misplaced blank"),
        ("Z4294967296", ValueError, "too large"), ("Z0,Z1", ValueError, "invalid Pauli key"),
        ("\uff3a0", ValueError, "invalid Pauli key"), ("Z0\tZ1", ValueError, r'"Z0\\tZ1": it contains a tab'),
        ("Z0\x01", ValueError, r'"Z0\\x01"')]),
    ("key in a dict", lambda: PauliOperator({"Zx": 1}), ValueError, "not a decimal number"),
    ("key not a string", lambda: PauliOperator(5, 1), TypeError, "incompatible constructor"),
    ("coefficient a string", lambda: PauliOperator("Z0", "a"), TypeError, "incompatible constructor"),
    ("operator times a string", lambda: PauliOperator("Z0", 1) * "a", TypeError, "multiply"),
    ("operator plus None", lambda: PauliOperator("Z0", 1) + None, TypeError, "unsupported operand"),
    ("remap into a list", lambda: PauliOperator("Z0", 1).remapQubitIndex([]), TypeError, "incompatible"),
    # binary polynomials
    *_inputs("monomials", corvid.binary_polynomial_to_z_operator, [
        ([([0],)], ValueError, "pair"), ([([-1], 1)], ValueError, "out of range"), ([([1.5], 1)], TypeError, "integers"),
        ([([1], "a")], ValueError, "float"), ([([2**32], 1)], ValueError, "out of range"),
        ([([0], 1j)], TypeError, "complex|float"), (5, TypeError, "incompatible"),
        ([(list(range(30)), 1)], MemoryError, r"1\.074e\+09 terms needs")]),
    # gates
    ("RX nan angle", lambda: RX(0, NAN), ValueError, "angle must be finite"),
    ("RZ infinite angle", lambda: RZ(0, -INF), ValueError, "angle must be finite"),
    ("RX numpy nan angle", lambda: RX(0, np.float64("nan")), ValueError, "angle must be finite"),
    ("RX string angle", lambda: RX(0, "a"), TypeError, "incompatible"),
    *_inputs("H", H, [(-1, IndexError, "out of range"), (2**40, IndexError, "out of range"),
                      (True, TypeError, "got bool"), (1.0, TypeError, "got float"), (64, IndexError, "out of range")]),
    ("RX list with a negative qubit", lambda: RX([0, -1], 0.1), IndexError, "out of range"),
    ("CNOT a list", lambda: CNOT([0, 1], 2), TypeError, "incompatible|list"),
    ("CNOT same qubit twice", lambda: CNOT(0, 0), ValueError, "twice"),
    ("CNOT same handle twice", lambda: CNOT(_Q[1], _Q[1]), ValueError, "twice"),
    ("CNOT on two machines", lambda: CNOT(_Q[0], _OQ[1]), ValueError, "different machines"),
    ("circuit appends an int", lambda: QCircuit() << 5, TypeError, "unsupported operand"),
    ("circuit reserves -1 gates", lambda: QCircuit().reserve(-1), ValueError, "non-negative"),
    ("circuit reserves 2**62 gates", lambda: QCircuit().reserve(2**62), MemoryError, r"a circuit of 4\.612e\+18 gates needs"),
    ("circuit index past the end", lambda: QCircuit()[10], IndexError, "out of range"),
    ("measure_all lengths differ", lambda: corvid.measure_all(_Q, _C[:2]), ValueError, "3 qubits but 2"),
    # machine set-up
    ("seed negative", lambda: CPUQVM(seed=-1), TypeError, "incompatible"),
    *_inputs("qAlloc_many", lambda n: CPUQVM().qAlloc_many(n), [
        (-1, ValueError, "non-negative"), (1.5, ValueError, "must be an integer"), (True, ValueError, "must be an integer"),
        ("3", ValueError, "must be an integer"), (40, MemoryError, r"40 qubits needs 16\.0 TiB"),
        (64, MemoryError, "more than any machine has"), (2**40, ValueError, "too many qubits"), (2**70, ValueError, "too large")]),
    ("cAlloc_many negative", lambda: CPUQVM().cAlloc_many(-1), ValueError, "non-negative"),
    ("cAlloc_many 2**33", lambda: CPUQVM().cAlloc_many(2**33), ValueError, "too many classical bits"),
    # machine runs
    ("select_max 0", lambda: _M.prob_run_dict(_PROG, _Q, 0), ValueError, "select_max"),
    ("select_max float", lambda: _M.prob_run_dict(_PROG, _Q, 1.5), ValueError, "must be an integer"),
    ("qubits of another machine", lambda: _M.prob_run_dict(_PROG, _OQ, -1), ValueError, "another machine"),
    ("program of another machine", lambda: _M.prob_run_dict(QProg() << H(_OQ[0]), _Q, -1), ValueError, "another machine"),
    ("program on finalized qubits", lambda: _M.prob_run_dict(QProg() << H(_DQ[0]), _Q, -1), ValueError, "another machine"),
    ("qubit listed twice", lambda: _M.prob_run_dict(_PROG, [_Q[0], _Q[0]], -1), ValueError, "more than once"),
    ("qubit not allocated", lambda: _M.prob_run_dict(_PROG, [3], -1), IndexError, "not allocated"),
    ("qubit list not iterable", lambda: _M.prob_run_dict(_PROG, 5, -1), TypeError, "not iterable"),
    ("program None", lambda: _M.prob_run_dict(None, _Q, -1), TypeError, "incompatible"),
    *_inputs("shots", lambda shots: _M.run_with_configuration(_PROG, _C, shots), [
        (0, ValueError, "positive integer, got 0"), (-1, ValueError, "positive integer, got -1"),
        (1.5, ValueError, "must be an integer"), (True, ValueError, "must be an integer"),
        ("5", ValueError, "must be an integer"), (2**64, ValueError, "too large")]),
    ("bits of another machine", lambda: _M.run_with_configuration(_PROG, _OC, 5), ValueError, "another machine"),
    ("bit listed twice", lambda: _M.run_with_configuration(_PROG, [_C[1], _C[1]], 1), ValueError, "more than once"),
    ("bit not allocated", lambda: _M.run_with_configuration(_PROG, [9], 1), IndexError, "not allocated"),
    ("65 classical bits", lambda: _M.run_with_configuration(_PROG, _M.cAlloc_many(65), 5), ValueError, "at most 64"),
    ("state before any run", lambda: CPUQVM().state_vector(), ValueError, "no program has been run"),
    *[(f"finalized: {name}", lambda name=name, args=args: getattr(_DEAD, name)(*args), ValueError, "finalized")
      for name, args in [("qAlloc_many", [1]), ("prob_run_dict", [QProg() << H(_DQ[0]), _DQ, -1]), ("init_qvm", []),
                         ("run_with_configuration", [QProg(), _DC, 1]), ("cAlloc_many", [1]), ("state_vector", [])]],
    ("gate on a qubit not allocated", lambda: _M.prob_run_dict(QProg() << H(3), _Q), IndexError, "qubit 3 but only 3"),
    ("measurement into a bit not allocated", lambda: _M.run_with_configuration(QProg() << corvid.Measure(0, 1000), _C, 1), IndexError, "not allocated"),
    # performance controls
    ("kernel set unknown", lambda: corvid.set_kernel_set("no-such-set"), ValueError, "no-such-set"),
    ("diagonal cache limit -1", lambda: corvid.set_diagonal_cache_limit(-1), TypeError, "incompatible"),
    ("default precision half", lambda: corvid.set_default_precision("half"), ValueError, "half"),
    ("machine precision quad", lambda: CPUQVM(precision="quad"), ValueError, "quad"),
    # threads
    ("threads 0", lambda: corvid.set_num_threads(0), ValueError, "at least 1"),
    ("threads a million", lambda: corvid.set_num_threads(10**6), ValueError, "at most 1024"),
    ("threads 2**31", lambda: corvid.set_num_threads(2**31), TypeError, "incompatible"),
    # whole-space numerics
    ("energies 64 qubits", lambda: diagonal.energies_from_z_terms(64, _MASKS, _COEFFS), ValueError, "between 0 and 63"),
    ("energies 40 qubits", lambda: diagonal.energies_from_z_terms(40, _MASKS, _COEFFS), MemoryError, r"8\.0 TiB"),
    ("mask beyond the qubits", lambda: diagonal.energies_from_z_terms(1, _MASKS, _COEFFS), ValueError, "uses qubit 1"),
    ("masks and coeffs differ", lambda: diagonal.energies_from_monomials(2, _MASKS, _COEFFS[:1]), ValueError, "same length"),
    ("negative mask", lambda: diagonal.energies_from_z_terms(2, np.array([-1]), np.ones(1)), ValueError, "uses qubit 63"),
    ("p and e differ", lambda: diagonal.expectation(_P, _E[:1]), ValueError, "same length"),
    ("cvar alpha 2", lambda: diagonal.cvar(_P, _E, 2.0), ValueError, "alpha"),
    ("gibbs temperature 0", lambda: diagonal.gibbs_sum(_P, _E, 0.0), ValueError, "temperature"),
    ("order of a nan weight", lambda: diagonal.descending_order(np.array([0.1, NAN])), ValueError, "not finite"),
    ("order of a negative weight", lambda: diagonal.descending_order(np.array([0.1, -1.0])), ValueError, "negative"),
]


@pytest.mark.parametrize("call, error, message", [c[1:] for c in SDK_CASES], ids=[c[0] for c in SDK_CASES])
def test_bad_input_gets_a_clear_error(call, error, message):
    before = corvid.get_num_threads()
    try:
        with pytest.raises(error, match=message):
            call()
    finally:
        corvid.set_num_threads(before)


def test_machine_keeps_working_after_refused_calls():
    qvm, q, c = _machine(2, 2)
    prog = QProg() << H(q[0]) << CNOT(q[0], q[1])
    for bad in (lambda: qvm.qAlloc_many(40), lambda: qvm.prob_run_dict(prog, _OQ, -1),
                lambda: qvm.run_with_configuration(prog, c, 0), lambda: qvm.cAlloc_many(-1)):
        with pytest.raises((ValueError, MemoryError)):
            bad()
    # Nothing was allocated by the refused calls: numbering continues after the first two.
    assert [x.addr for x in qvm.qAlloc_many(1)] == [2]
    assert [x.addr for x in qvm.cAlloc_many(1)] == [2]
    probs = qvm.prob_run_dict(prog, q, -1)
    assert dict(probs) == pytest.approx({"00": 0.5, "01": 0.0, "10": 0.0, "11": 0.5})


@pytest.mark.parametrize("update", [
    lambda op: op.__iadd__("a"), lambda op: op.__imul__(None), lambda op: op.__isub__([1]),
])
def test_failed_in_place_update_leaves_the_operator_unchanged(update):
    op = PauliOperator({"": 1, "Z0 Z1": 0.5})
    text = str(op)
    result = update(op)
    if result is not NotImplemented:  # pybind answers NotImplemented, Python then raises
        pytest.fail(f"in-place update with a bad operand returned {result!r}")
    assert str(op) == text


def _peak_rss_bytes():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024


# 10^4 terms of 10^6 factors each: a phase circuit of 2e10 gates, never built.
_WIDE_TERMS = [({i: "Z" for i in range(10**6)}, 1.0)] * 10**4


@pytest.mark.parametrize("call", [
    lambda: CPUQVM().qAlloc_many(40),
    lambda: CPUQVM().qAlloc_many(36),
    lambda: diagonal.energies_from_monomials(40, np.zeros(0, np.uint64), np.zeros(0)),
    lambda: pauli_z_operator_to_circuit(_WIDE_TERMS, range(10**6)),
], ids=["40 qubits", "36 qubits", "energies of 40 variables", "phase circuit of 2e10 gates"])
def test_memory_guard_refuses_before_allocating(call):
    before = _peak_rss_bytes()
    with pytest.raises(MemoryError, match=r"needs \d+\.\d [KMGTP]iB but only .* available"):
        call()
    # A 2^36 state would be 1 TiB; even touching a sliver of it would raise the peak.
    assert _peak_rss_bytes() - before < GIB


@pytest.mark.parametrize("shots", [2**62, 2**62 + 1, 2**63 - 1])
def test_huge_shot_counts_finish_at_once(shots):
    # The standard library's binomial sampler never returned for 2**62; QAOA.run samples through
    # the same call.
    code = f"""
        from corvid_alg.QAOA.qaoa import QAOA
        import sympy
        qvm = corvid.CPUQVM(seed=1); q = qvm.qAlloc_many(3); c = qvm.cAlloc_many(3)
        prog = corvid.QProg() << corvid.H(q) << corvid.measure_all(q, c)
        counts = qvm.run_with_configuration(prog, c, {shots})
        print(sum(counts.values()) == {shots}, abs(counts["000"] / {shots} - 0.125) < 0.01)
        x0, x1 = sympy.symbols("x0 x1")
        QAOA(x0 * x1 - x0).run(layer=1, shots={shots}, optimizer="COBYLA", optimizer_option={{"options": {{"maxiter": 5}}}})
        print("ran")
    """
    try:
        out = run_python(code, timeout=30)
    except subprocess.TimeoutExpired:
        pytest.fail(f"{shots} shots did not finish within 30 s")
    assert out.split() == ["True", "True", "ran"], out


def test_a_failed_allocation_is_a_memory_error_naming_what_was_allocated():
    # Under an address-space limit the guards (which read the free memory) let the expansion
    # start; the allocation that fails must still say what it was for.
    code = """
        import resource
        corvid.set_num_threads(1)  # no thread to create (and reserve memory for) under the limit
        # Both calls once, small, so that nothing they load lazily is loaded under the limit.
        corvid.binary_polynomial_to_z_operator([([0, 1], 1.0)])
        corvid.PauliOperator("Z0", 1) * corvid.PauliOperator("X0 Y1", 1)
        try:  # and one error: the first throw allocates the thread's exception data
            corvid.PauliOperator("Z", 1)
        except ValueError:
            pass
        with open("/proc/self/status") as f:
            vm = next(int(line.split()[1]) for line in f if line.startswith("VmSize")) * 1024
        resource.setrlimit(resource.RLIMIT_AS, (vm + (300 << 20), resource.RLIM_INFINITY))
        a = corvid.PauliOperator({f"Z{i}": 1 for i in range(3000)})
        b = corvid.PauliOperator({f"X{i} Y{i + 1}": 1 for i in range(0, 6000, 2)})
        for call in (lambda: corvid.binary_polynomial_to_z_operator([(list(range(23)), 1.0)]),
                     lambda: a * b):
            try:
                call()
            except MemoryError as e:
                print(e)
    """
    out = run_python(code, timeout=60)
    assert "out of memory while expanding a binary polynomial into 8.389e+06 terms" in out, out
    assert "out of memory while multiplying Pauli operators of 3000 and 3000 terms" in out, out
