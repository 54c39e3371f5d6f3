"""One machine shared between threads: runs, the calls that wait for a run, and Ctrl-C while
waiting. Hangs are caught in subprocesses with timeouts."""

import subprocess
import threading

import pytest

from corvid import CPUQVM, RX, H, QProg, X
from interrupt_harness import interrupt_after, run_python

# Thread A runs a 22-qubit program (seconds); the main thread calls into the same machine while
# it runs. The waiting call must not hold the GIL, which A needs to poll for Ctrl-C.
_BUSY_MACHINE = """
    import os, threading
    q = list(range(22))  # plain indices: the program runs on any machine
    prog = corvid.QProg() << corvid.H(q)
    for k in range({layers}):  # about 10 ms a layer
        for i in range(21):
            prog << corvid.CNOT(i, i + 1) << corvid.RZ(i + 1, 0.1 + k / 100 + i) << corvid.CNOT(i, i + 1)
        prog << corvid.RX(q, 0.3 + k / 100)

    def busy():
        qvm = corvid.CPUQVM(); qvm.qAlloc_many(22)
        started = threading.Event()
        def run():
            started.set()
            qvm.prob_run_dict(prog, q, 1)
        worker = threading.Thread(target=run, daemon=True)
        worker.start(); started.wait(); time.sleep(0.1)
        return qvm, worker
"""


def test_calls_waiting_for_a_running_machine_do_not_deadlock():
    # Each call in turn waits for a fresh run in the worker thread.
    code = _BUSY_MACHINE.format(layers=15) + """
    for call in ["last_run_timings", "state_vector", "qAlloc_many", "cAlloc_many", "init_qvm",
                 "finalize"]:
        qvm, worker = busy()
        try:
            getattr(qvm, call)(*([1] if call.endswith("many") else []))
        except ValueError:
            pass  # state_vector of a run not yet finished
        worker.join()
        print("returned from", call)
    """
    try:
        out = run_python(code, timeout=30)
    except subprocess.TimeoutExpired as e:
        pytest.fail(f"a call on a machine running in another thread hung after {e.stdout!r}")
    assert out.count("returned from") == 6, out


def test_ctrl_c_stops_a_wait_for_the_machine():
    elapsed, line = interrupt_after(_BUSY_MACHINE.format(layers=300) + """
    qvm, worker = busy()
    print("ready")
    try:
        qvm.finalize()
        print("finalized")
    except KeyboardInterrupt:
        print("KeyboardInterrupt while waiting")
    os._exit(0)  # the worker is still running
    """, delay=0.3)
    assert line == "KeyboardInterrupt while waiting"
    assert elapsed < 1.0


def test_gil_is_released_while_simulating():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(20)
    prog = QProg()
    for _ in range(8):
        prog << H(q) << RX(q, 0.3)
    worker = threading.Thread(target=qvm.prob_run_dict, args=(prog, q))
    ticks = 0
    worker.start()
    while worker.is_alive():
        ticks += 1
    worker.join()
    # With the GIL held for the whole run this loop could not advance while the worker computes.
    assert ticks > 1000


def test_threads_sharing_one_machine_get_correct_results():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(14)
    results, errors = {}, []

    def run(k):
        try:
            results[k] = qvm.prob_run_dict(QProg() << X(q[k]), [q[k]])["1"]
        except Exception as e:  # noqa: BLE001 - reported below
            errors.append(e)

    threads = [threading.Thread(target=run, args=(k,)) for k in range(8)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors and results == {k: 1.0 for k in range(8)}
