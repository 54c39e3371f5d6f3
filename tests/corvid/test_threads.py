import os
import subprocess
import sys
import threading

import pytest

import corvid


def test_thread_count_applies_to_threads_that_did_not_set_it():
    before = corvid.get_num_threads()
    seen = []
    try:
        for n in (1, 3):
            corvid.set_num_threads(n)
            worker = threading.Thread(target=lambda: seen.append(corvid.get_num_threads()))
            worker.start()
            worker.join()
    finally:
        corvid.set_num_threads(before)
    assert seen == [1, 3]


def run_python(*args, **env):
    """Runs Python with `args` and `env` added, in a fresh process; returns its last line."""
    environ = {k: v for k, v in os.environ.items() if k not in ("OMP_NUM_THREADS", "OMP_WAIT_POLICY")}
    out = subprocess.run([sys.executable, *args], env={**environ, **env}, check=True,
                         capture_output=True, text=True, timeout=120).stdout
    return out.strip().splitlines()[-1]


@pytest.mark.parametrize("env, expected", [({}, "PASSIVE"), ({"OMP_WAIT_POLICY": "ACTIVE"}, "ACTIVE")])
def test_idle_threads_sleep_unless_the_user_chose(env, expected):
    assert run_python("-c", "import os, corvid; print(os.environ['OMP_WAIT_POLICY'])", **env) == expected


def test_an_absurd_environment_thread_count_is_capped_at_the_cores():
    code = ("import os, corvid; m = corvid.CPUQVM(); m.init_qvm(); q = m.qAlloc_many(16); "
            "p = corvid.QProg(); p << corvid.hadamard_circuit(q); m.prob_run_dict(p, q); "
            "print(corvid.get_num_threads(), len(os.sched_getaffinity(0)))")
    threads, cores = map(int, run_python("-c", code, OMP_NUM_THREADS="100000").split())
    assert 1 <= threads <= cores


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
    assert run_python(str(script), **env) == expected


def test_threadpoolctl_limits_the_threads():
    threadpoolctl = pytest.importorskip("threadpoolctl")
    with threadpoolctl.threadpool_limits(1, user_api="openmp"):
        assert corvid.get_num_threads() == 1
