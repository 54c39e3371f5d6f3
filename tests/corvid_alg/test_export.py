"""Exported circuits run in Qiskit with the probabilities corvid computes."""

import numpy as np
import pytest
import sympy

import corvid
from corvid_alg.QAOA import default_circuits
from corvid_alg.QAOA.export import qaoa_circuit, to_qasm, to_qiskit
from corvid_alg.QAOA.qaoa import QAOA

qiskit = pytest.importorskip("qiskit")
from qiskit import qasm2  # noqa: E402
from qiskit.quantum_info import Statevector  # noqa: E402

x = sympy.symbols("x0:4")
PROBLEM = 2 * x[0] * x[1] - 3 * x[1] * x[2] * x[3] + x[3] - 0.5 * x[0] * x[2]
ANGLES = [0.4, -0.7, 1.1, 0.3, 0.9, -0.2]


@pytest.mark.parametrize("options", [{}, {"init_circuit": default_circuits.dicke_state(2),
                                          "mixer_circuit": default_circuits.xy_ring_mixer}])
def test_exports_give_corvids_probabilities(options):
    qaoa = QAOA(PROBLEM, **options)
    expected = np.array(qaoa.run_qaoa_circuit(ANGLES[:3], ANGLES[3:]).probabilities)
    parametrized = to_qiskit(qaoa, 3)
    values = {p: ANGLES[p.index] if p.vector.name == "gamma" else ANGLES[3 + p.index]
              for p in parametrized.parameters}
    circuits = [parametrized.assign_parameters(values),
                to_qiskit(qaoa, angles=ANGLES, parametrized=False),
                qasm2.loads(to_qasm(qaoa, ANGLES))]
    for circuit in circuits:
        assert np.allclose(Statevector(circuit).probabilities(), expected, atol=1e-12, rtol=0)


def test_a_mixer_not_linear_in_beta_has_no_parametrized_form():
    qaoa = QAOA(PROBLEM, mixer_circuit=lambda q, angle: corvid.RX(q, angle ** 2))
    with pytest.raises(ValueError, match="not proportional to beta"):
        to_qiskit(qaoa, 1)
    assert len(qaoa_circuit(qaoa, [0.1, 0.2])) > 0
    with pytest.raises(ValueError, match="even, non-zero count"):
        to_qasm(qaoa, [0.1, 0.2, 0.3])
