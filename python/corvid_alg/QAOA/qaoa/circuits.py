"""The circuit of exp(-i*gamma*H) for a diagonal Hamiltonian H given in list form."""

import numpy as np

import corvid

_PI = np.pi


def pauli_z_operator_to_circuit(operator, qlist, gamma=_PI):
    """Build the circuit of exp(-i*gamma*(H - h0)) for a diagonal Hamiltonian H.

    operator: the list form of H, ``PauliOperator.toHamiltonian(True)``: (qubit index -> letter,
        coefficient) pairs; every listed qubit counts as a Z factor, an empty map is a constant.
    qlist: the qubits; index i of the list form is qlist[i].
    gamma: the evolution time.

    Returns (circuit, constant): a term c*Z_a...Z_d becomes a CNOT ladder onto its last qubit,
    RZ(2*c*gamma) there and the ladder undone; the circuit ends with an I gate on every qubit.
    ``constant`` is the sum of the identity coefficients h0 ("Constant number in the
    hamiltonian."), not multiplied by gamma.
    """
    operator = list(operator)
    circuit = corvid.QCircuit()
    # Refuse a circuit that cannot be run before building any of it.
    circuit.reserve(sum(2 * len(qubit_map) - 1 for qubit_map, _ in operator if qubit_map)
                    + len(qlist))
    constant = 0
    for qubit_map, coefficient in operator:
        index_list = sorted(qubit_map)
        if not index_list:
            constant += coefficient
            continue
        if index_list[-1] >= len(qlist):
            raise IndexError(
                f"the Hamiltonian acts on qubit {index_list[-1]} but the qubit list has "
                f"{len(qlist)} qubits (an operator whose qubit indices have gaps needs "
                "renumbering, e.g. with remapQubitIndex)")
        qubits = [qlist[i] for i in index_list]
        for j in range(len(qubits) - 1):
            circuit << corvid.CNOT(qubits[j], qubits[j + 1])
        # gamma kept as the angle's scale: every gamma reuses one fused diagonal
        circuit << corvid.RZ(qubits[-1], 2 * coefficient, scale=gamma)
        for j in range(len(qubits) - 2, -1, -1):
            circuit << corvid.CNOT(qubits[j], qubits[j + 1])
    for qubit in qlist:
        circuit << corvid.I(qubit)
    return circuit, constant
