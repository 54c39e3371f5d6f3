import numpy as np
import pytest

import corvid
from corvid import CNOT, RX, RZ, H, I, QCircuit, QProg, hadamard_circuit, measure_all
from reference import ONE, ONE_ANGLED, TWO, TWO_ANGLED


def make(name, qubits, angle=0.25):
    fn = getattr(corvid, name)
    return fn(*qubits, angle) if name in ONE_ANGLED + TWO_ANGLED else fn(*qubits)


@pytest.mark.parametrize("name", ONE + ONE_ANGLED + TWO + TWO_ANGLED)
def test_gate_attributes(name):
    qubits = (3,) if name in ONE + ONE_ANGLED else (4, 1)
    g = make(name, qubits, -0.5)
    assert g.name == name
    assert g.qubits == qubits
    assert g.params == ((-0.5,) if name in ONE_ANGLED + TWO_ANGLED else ())
    assert all(type(q) is int for q in g.qubits)


@pytest.mark.parametrize("name", ONE + ONE_ANGLED)
def test_one_qubit_gate_on_a_list_gives_a_circuit_in_list_order(name):
    qvm = corvid.CPUQVM()
    q = qvm.qAlloc_many(3)
    c = make(name, ([q[2], q[0], q[1]],), 0.7)
    assert isinstance(c, QCircuit)
    assert [g.qubits for g in c] == [(2,), (0,), (1,)]
    assert all(g.name == name for g in c)
    assert make(name, ([],)) == QCircuit()


def test_handles_and_numpy_integers_are_qubits_like_plain_ints():
    q = corvid.CPUQVM().qAlloc_many(3)
    assert hadamard_circuit(q) == (QCircuit() << H(0) << H(1) << H(2)) == H(q)
    assert RX(q, 0.3) == (QCircuit() << RX(0, 0.3) << RX(1, 0.3) << RX(2, 0.3))
    assert RX(q, 0.3) == RX(np.arange(3), np.float64(0.3))
    assert [x.addr for x in q] == [0, 1, 2] and q[1] == q[1] and q[1] != q[2]
    assert H(np.int64(2)) == H(2) and CNOT(np.int32(1), 0).qubits == (1, 0)


def test_append_chains_inlines_and_returns_the_same_circuit():
    inner = QCircuit() << H(0) << CNOT(0, 1)
    c = QCircuit()
    out = c << RZ(2, -3.0) << inner << I(1)
    assert out is c
    assert len(c) == 4 and len(inner) == 2
    assert [g.name for g in c] == ["RZ", "H", "CNOT", "I"]
    assert c[1] == H(0) and c[-1] == I(1)
    with pytest.raises(IndexError):
        c[4]
    with pytest.raises(IndexError):
        c[-5]
    c << c
    assert len(c) == 8 and c[4] == RZ(2, -3.0)


def test_printed_form_and_equality_of_gates_and_angles():
    c = QCircuit() << RZ(2, -3.0) << CNOT(0, 1) << H(0) << corvid.RXX(0, 1, 0.2)
    assert str(c) == "RZ q[2], (-3.000000)\nCNOT q[0], q[1]\nH q[0]\nRXX q[0], q[1], (0.200000)"
    assert str(QCircuit()) == "" and str(corvid.P(1, 0.5)) == "P q[1], (0.500000)"
    a = QCircuit() << RZ(0, 0.5) << CNOT(0, 1)
    assert a == (QCircuit() << RZ(0, 0.5) << CNOT(0, 1))
    assert a != (QCircuit() << RZ(0, 0.5000001) << CNOT(0, 1))
    assert a != (QCircuit() << RZ(0, 0.5) << CNOT(1, 0))
    assert a != (QCircuit() << RZ(0, 0.5))
    assert H(0) != H(1) and RZ(0, 1.0) != corvid.P(0, 1.0)


def test_program_takes_gates_circuits_and_terminal_measurements():
    c = QCircuit() << H(0) << CNOT(0, 1)
    prog = QProg()
    assert (prog << c << corvid.X(2) << measure_all([0, 1], [1, 0])) is prog
    assert len(prog) == 5
    assert str(prog) == "H q[0]\nCNOT q[0], q[1]\nX q[2]\nMEASURE q[0], c[1]\nMEASURE q[1], c[0]"
    prog << corvid.Measure(2, 2) << QCircuit()  # an empty circuit adds no gate
    assert [(m.qubit, m.cbit) for m in prog.measurements] == [(0, 1), (1, 0), (2, 2)]
    with pytest.raises(ValueError, match="mid-circuit measurement is not supported"):
        prog << H(0)
    with pytest.raises(ValueError, match="mid-circuit measurement is not supported"):
        prog << c
    assert len(prog) == 6  # the refused appends changed nothing
    assert QProg(c).circuit == c
