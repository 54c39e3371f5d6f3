"""The p-layer QAOA ansatz: initial state, then per layer a phase circuit and a mixer.

These functions are methods of ``QAOA``.
"""

import corvid

from ..encoding.polynomial import constant_problem_error
from .hamiltonian_circuit import pauli_z_operator_to_circuit


def _init_circuit(self, qlist):
    """The initial-state circuit: a Hadamard layer, or the caller's ``init_circuit(qlist)``."""
    if self.init_circuit is None:
        return corvid.hadamard_circuit(qlist)
    return self.init_circuit(qlist)


def _phase_circuit(self, qlist):
    """A function of gamma returning the phase circuit exp(-i*gamma*(H - h0)) on `qlist`."""

    def phase(gamma):
        if self.operator is None:
            raise TypeError("QAOA has no Hamiltonian for a problem of type "
                            f"{type(self.problem).__name__}: give a sympy polynomial or a "
                            "corvid.PauliOperator")
        if not any(qubit_map for qubit_map, _ in self.operator):
            # Stored as given at construction; refused here like a constant polynomial.
            raise constant_problem_error(sum(c for _, c in self.operator))
        circuit, _ = pauli_z_operator_to_circuit(self.operator, qlist, gamma)
        return circuit

    return phase


def _mixer_circuit(self, qlist):
    """A function of beta returning the mixer circuit on `qlist`.

    The default mixer is RX(-2*beta) on every qubit, exp(+i*beta*sum_k X_k); a caller's
    ``mixer_circuit`` receives (qlist, -2*beta).
    """
    if self.mixer_circuit is None:
        return lambda beta: corvid.RX(qlist, -2 * beta)
    return lambda beta: self.mixer_circuit(qlist, -2 * beta)


def _qaoa_circuit(self, qlist, gammas, betas):
    """Build, store in ``self.circuit`` and return the ansatz for the first `layer` angles."""
    if self.layer is None:
        self.layer = len(gammas)
    circuit = corvid.QCircuit()
    circuit << self._init_circuit(qlist)
    for i in range(self.layer):
        circuit << self._phase_circuit(qlist)(gammas[i])
        circuit << self._mixer_circuit(qlist)(betas[i])
    self.circuit = circuit
    return circuit
