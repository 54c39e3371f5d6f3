import copy
import pathlib
import pickle

from corvid import CNOT, CPUQVM, RXX, RZ, H, PauliOperator, QCircuit, QProg, measure_all
from interrupt_harness import run_python


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


def test_pickles_and_copies_keep_the_value_apart_and_run_on_any_machine():
    objects = _objects()
    for x in objects.values():
        for y in (pickle.loads(pickle.dumps(x)), copy.copy(x), copy.deepcopy(x)):
            assert y is not x and _same(x, y), x
    circuit = objects["circuit"]
    clone = copy.copy(circuit)
    clone << H(0)
    assert len(clone) == len(circuit) + 1
    # Handles lose their machine in a pickle (ids mean nothing in another process).
    other = CPUQVM()
    q = other.qAlloc_many(3)
    moved = pickle.loads(pickle.dumps(QProg() << circuit))
    assert other.prob_run_dict(moved, q) == objects["probabilities"]


def test_pickles_come_back_from_another_process():
    here = pathlib.Path(__file__).parent
    out = run_python(f"""
        import pickle; sys.path[:0] = [{str(here)!r}, {str(here.parent)!r}]
        from test_serialisation import _objects; print(pickle.dumps(_objects()).hex())
    """, timeout=120)
    theirs, mine = pickle.loads(bytes.fromhex(out.split()[-1])), _objects()
    assert all(_same(theirs[name], mine[name]) for name in mine)
