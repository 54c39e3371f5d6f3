"""PauliOperator, QCircuit, QProg and ProbabilityMap survive pickle, copy, deepcopy and another
process; a ProbabilityMap converts to a plain dict and to JSON."""

import copy
import json
import os
import pathlib
import pickle
import subprocess
import sys

import pytest

from corvid import CNOT, CPUQVM, RXX, RZ, H, PauliOperator, QCircuit, QProg, measure_all


def _objects():
    qvm = CPUQVM()
    q, c = qvm.qAlloc_many(3), qvm.cAlloc_many(3)
    circuit = QCircuit() << H(q[0]) << CNOT(q[0], q[1]) << RZ(q[2], 0.3) << RXX(q[0], q[2], -1.5)
    return {
        "operator": PauliOperator({"": 1, "Z0 Z1": 0.5, "X2": 1j}),
        "circuit": circuit,
        "program": QProg() << circuit << measure_all(q, c),
        "probabilities": qvm.prob_run_dict(QProg() << circuit, q),
    }


def _same(a, b):
    return str(a) == str(b) and type(a) is type(b)


@pytest.mark.parametrize("name", ["operator", "circuit", "program", "probabilities"])
def test_pickle_copy_and_deepcopy_keep_the_value(name):
    x = _objects()[name]
    for y in (pickle.loads(pickle.dumps(x)), copy.copy(x), copy.deepcopy(x)):
        assert y is not x and _same(x, y)


def test_copies_are_independent_and_pickles_run_on_any_machine():
    objects = _objects()
    circuit = objects["circuit"]
    clone = copy.copy(circuit)
    clone << H(0)
    assert len(clone) == len(circuit) + 1
    # Handles lose their machine in a pickle (ids mean nothing in another process).
    other = CPUQVM()
    q = other.qAlloc_many(3)
    moved = pickle.loads(pickle.dumps(QProg() << circuit))
    assert other.prob_run_dict(moved, q) == objects["probabilities"]


def test_probability_map_converts_to_dict_and_json():
    m = _objects()["probabilities"]
    plain = dict(m)
    assert type(plain) is dict and plain == m
    assert json.loads(json.dumps(dict(m))) == plain


POOL = """
import multiprocessing, pickle, sys
sys.path.insert(0, {tests!r})
from test_serialisation import _objects

def build(name):
    return _objects()[name]

if __name__ == "__main__":
    names = ["operator", "circuit", "program", "probabilities"]
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        results = pool.map(build, names)
    local = _objects()
    print(all(str(r) == str(local[n]) for n, r in zip(names, results)))
"""


def test_results_come_back_from_a_process_pool(tmp_path):
    script = tmp_path / "pool.py"
    script.write_text(POOL.format(tests=str(pathlib.Path(__file__).parent)))
    done = subprocess.run([sys.executable, str(script)], capture_output=True, text=True, timeout=120,
                          env={**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)})
    assert done.stdout.strip() == "True", done.stdout + done.stderr
