import os
import subprocess
import sys
import threading

import pytest

import corvid
from corvid import CPUQVM, QProg, X
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


@pytest.mark.parametrize("setup, call", [
    ("qvm = corvid.CPUQVM(); qvm.qAlloc_many(22)", "qvm.prob_run_dict(prog, q, 1)"),
    ("qvm, worker = busy()", "qvm.finalize()"),  # waiting for the machine another thread runs
])
def test_ctrl_c_stops_within_a_second(setup, call):
    elapsed, line = interrupt_after(_BUSY_MACHINE.format(layers=300) + f"""
    {setup}
    print("ready")
    try:
        {call}
        print("finished")
    except KeyboardInterrupt:
        print("KeyboardInterrupt")
    os._exit(0)  # a worker may still be running
    """, delay=0.3)
    assert line == "KeyboardInterrupt"
    assert elapsed < 1.0


def test_threads_share_a_machine():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(20)
    results = {}
    threads = [threading.Thread(target=lambda k=k: results.update(
        {k: qvm.prob_run_dict(QProg() << X(q[k]), [q[k]])["1"]})) for k in range(8)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert results == {k: 1.0 for k in range(8)}


def test_threadpoolctl_limits_the_thread_count():
    threadpoolctl = pytest.importorskip("threadpoolctl")
    with threadpoolctl.threadpool_limits(1, user_api="openmp"):
        assert corvid.get_num_threads() == 1


def fresh_python(*args, **env):
    environ = {k: v for k, v in os.environ.items() if k not in ("OMP_NUM_THREADS", "OMP_WAIT_POLICY")}
    out = subprocess.run([sys.executable, *args], env={**environ, **env}, check=True,
                         capture_output=True, text=True, timeout=120).stdout
    return out.strip().splitlines()[-1]


@pytest.mark.parametrize("env, policy", [
    ({}, "PASSIVE"), ({"OMP_WAIT_POLICY": "ACTIVE", "OMP_NUM_THREADS": "100000"}, "ACTIVE")])
def test_idle_threads_sleep_unless_the_user_chose_and_threads_stay_within_the_cores(env, policy):
    code = ("import os, corvid; m = corvid.CPUQVM(); q = m.qAlloc_many(16); "
            "m.prob_run_dict(corvid.QProg() << corvid.hadamard_circuit(q), q); "
            "print(os.environ['OMP_WAIT_POLICY'], corvid.get_num_threads(), len(os.sched_getaffinity(0)))")
    seen, threads, cores = fresh_python("-c", code, **env).split()
    assert seen == policy and 1 <= int(threads) <= int(cores)


POOL = """
import multiprocessing, corvid
def threads(_):
    import corvid
    return corvid.get_num_threads()
if __name__ == "__main__":
    with multiprocessing.get_context({context!r}).Pool(2) as pool:
        print(sorted(set(pool.map(threads, range(4)))))
"""


@pytest.mark.parametrize("context", ["spawn", "fork"])
@pytest.mark.parametrize("env, expected", [({}, 1), ({"OMP_NUM_THREADS": "2"}, 2)])
def test_pool_workers_use_one_thread_unless_told(tmp_path, context, env, expected):
    expected = str([min(expected, len(os.sched_getaffinity(0)))])
    script = tmp_path / "pool.py"
    script.write_text(POOL.format(context=context))
    assert fresh_python(str(script), **env) == expected
