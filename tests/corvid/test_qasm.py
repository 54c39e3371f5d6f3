"""OpenQASM out and in, checked against Qiskit's own reader, writer and statevector."""

import numpy as np
import pytest

import corvid
from reference import run_on_machine

qiskit = pytest.importorskip("qiskit")
from qiskit import qasm2  # noqa: E402
from qiskit.quantum_info import Statevector  # noqa: E402


def every_kind_of_gate(n=4):
    q = list(range(n))
    prog = corvid.QProg() << corvid.H(q) << corvid.X(0) << corvid.Y(1) << corvid.Z(2)
    prog << corvid.S(3) << corvid.T(0) << corvid.P(1, 0.4) << corvid.RY(2, 1.3)
    for layer in range(2):  # QAOA-shaped: phase terms as CNOT-RZ-CNOT, then an RX mixer
        for a, b in [(0, 1), (1, 2), (2, 3), (3, 0)]:
            prog << corvid.CNOT(a, b) << corvid.RZ(b, 0.7 + layer) << corvid.CNOT(a, b)
        prog << corvid.RX(q, -0.9 + layer)
    return prog << corvid.RXX(0, 2, 0.3) << corvid.RYY(1, 3, -1.1) << corvid.RZZ(2, 0, 0.8) \
        << corvid.CZ(1, 2) << corvid.SWAP(0, 3) << corvid.I(1)


def corvid_probabilities(prog):
    return run_on_machine(prog, 4)[1].probabilities


def test_exported_qasm_runs_in_qiskit_with_the_same_probabilities():
    prog = every_kind_of_gate()
    text = corvid.to_qasm(prog)
    assert "rzz(" in text and " id " not in text
    circuit = qasm2.loads(text)
    expected = Statevector(circuit).probabilities()  # qubit 0 is the lowest bit there too
    assert np.allclose(corvid_probabilities(prog), expected, atol=1e-12, rtol=0)


def test_qasm_written_by_qiskit_reads_back_the_same_circuit():
    prog = every_kind_of_gate()
    circuit = qasm2.loads(corvid.to_qasm(prog))
    again = corvid.from_qasm(qasm2.dumps(circuit))
    assert np.allclose(corvid_probabilities(again), corvid_probabilities(prog), atol=1e-12, rtol=0)


def test_version_3_round_trips_exactly_and_errors_name_the_line():
    prog = every_kind_of_gate()
    back = corvid.from_qasm(corvid.to_qasm(prog, version=3, fuse_rzz=False, keep_identities=True))
    assert str(back) == str(prog)
    with pytest.raises(ValueError, match="line 3: gate 'u3' is not in corvid's gate set"):
        corvid.from_qasm('OPENQASM 2.0;\nqreg q[1];\nu3(1, 2, 3) q[0];')
