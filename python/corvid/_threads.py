"""Thread defaults that keep the library from fighting the user's other work.

OpenMP's default is to let idle team threads spin for a while: a loop of small evaluations, a
second process or the user's own threads then wait for a core that a spinning thread holds
(a loop of 400 small evaluations beside one busy process took 55 times longer). Idle threads
therefore sleep unless the user chose a wait policy; the setting must be in the environment
before OpenMP is loaded, so it is made when this package is imported (a C++ program sets
OMP_WAIT_POLICY itself).

A worker process (started by `multiprocessing` or forked: a pool fills the cores with
processes) uses one thread unless OMP_NUM_THREADS or `set_num_threads` says otherwise.
"""

import multiprocessing
import os

if "OMP_WAIT_POLICY" not in os.environ and "GOMP_SPINCOUNT" not in os.environ:
    os.environ["OMP_WAIT_POLICY"] = "PASSIVE"


def share_cores_with_siblings(set_num_threads):
    def one_thread():
        if "OMP_NUM_THREADS" not in os.environ:
            set_num_threads(1)

    # A spawned worker imports its main module before it learns its parent; its name is set.
    if multiprocessing.current_process().name != "MainProcess":
        one_thread()
    os.register_at_fork(after_in_child=one_thread)
