"""A problem's QAOA circuit for other toolkits: a Qiskit circuit whose parameters are the
gammas and betas, or OpenQASM text with the angles filled in.

Qubit k is qubit k there too (Qiskit orders basis states the same way), so the statevector
Qiskit computes for the exported circuit has exactly the probabilities ``run_qaoa_circuit``
gives. Qiskit is optional: ``pip install 'corvid[interop]'``.
"""

import math

import corvid

__all__ = ["qaoa_circuit", "to_qasm", "to_qiskit"]

_QISKIT_METHODS = {"H": "h", "X": "x", "Y": "y", "Z": "z", "S": "s", "T": "t", "RX": "rx",
                   "RY": "ry", "RZ": "rz", "P": "p", "CNOT": "cx", "CZ": "cz", "SWAP": "swap",
                   "RXX": "rxx", "RYY": "ryy", "RZZ": "rzz"}


def qaoa_circuit(qaoa, angles):
    """The whole circuit of `qaoa` (a ``QAOA``) at `angles` (p gammas, then p betas) on qubits
    0 .. n-1, as a ``corvid.QCircuit``."""
    gammas, betas = _split(angles)
    qubits = list(range(qaoa.problem_dimension))
    circuit = corvid.QCircuit() << qaoa._init_circuit(qubits)
    for gamma, beta in zip(gammas, betas):
        circuit << qaoa._phase_circuit(qubits)(gamma) << qaoa._mixer_circuit(qubits)(beta)
    return circuit


def to_qasm(qaoa, angles, version=2):
    """OpenQASM 2 or 3 text of the circuit at `angles` (see ``corvid.to_qasm``)."""
    return corvid.to_qasm(qaoa_circuit(qaoa, angles), version=version)


def to_qiskit(qaoa, layers=None, *, angles=None, parametrized=True):
    """A Qiskit ``QuantumCircuit`` of `qaoa`'s ansatz.

    parametrized=True: `layers` p (or the length of `angles`) layers whose angles are the
    Qiskit parameters ``gamma[0..p-1]`` and ``beta[0..p-1]`` (two ``ParameterVector``s), ready
    for ``assign_parameters`` or a Qiskit optimiser. Every gate angle must be linear in its
    layer's gamma or beta, as the phase circuit and the mixers of ``default_circuits`` are; a
    custom mixer that is not is refused with ValueError (export it with parametrized=False).
    parametrized=False: the circuit at `angles`.
    """
    try:
        from qiskit import QuantumCircuit
        from qiskit.circuit import ParameterVector
    except ImportError:
        raise ImportError("to_qiskit needs Qiskit: pip install 'corvid[interop]'") from None
    n = qaoa.problem_dimension
    result = QuantumCircuit(n)
    if not parametrized:
        if angles is None:
            raise ValueError("parametrized=False needs the angles")
        _append(result, qaoa_circuit(qaoa, angles), 1.0)
        return result
    if layers is None:
        if angles is None:
            raise ValueError("give the number of layers (or angles)")
        layers = len(_split(angles)[0])
    if isinstance(layers, bool) or not isinstance(layers, int) or layers < 1:
        raise ValueError(f"layers must be a positive integer, got {layers!r}")
    gamma, beta = ParameterVector("gamma", layers), ParameterVector("beta", layers)
    qubits = list(range(n))
    _append(result, qaoa._init_circuit(qubits), 1.0)
    for i in range(layers):
        _append(result, _linear_part(qaoa._phase_circuit(qubits), "phase circuit", "gamma"),
                gamma[i])
        _append(result, _linear_part(qaoa._mixer_circuit(qubits), "mixer", "beta"), beta[i])
    return result


def _linear_part(build, what, angle):
    """The circuit at angle 1, after checking that every gate angle is linear in the angle."""
    at = {t: [(g.name, g.qubits, g.params) for g in build(t)] for t in (0.0, 1.0, 2.5)}
    same_gates = [(n, q) for n, q, _ in at[0.0]] == [(n, q) for n, q, _ in at[1.0]] \
        == [(n, q) for n, q, _ in at[2.5]]
    linear = same_gates and all(
        math.isclose(p0, 0, abs_tol=1e-12) and math.isclose(p2, 2.5 * p1, rel_tol=1e-12, abs_tol=1e-12)
        for (_, _, a0), (_, _, a1), (_, _, a2) in zip(at[0.0], at[1.0], at[2.5])
        for p0, p1, p2 in zip(a0, a1, a2))
    if not linear:
        raise ValueError(f"the {what}'s gate angles are not proportional to {angle}, so it has "
                         "no parametrized form: export with parametrized=False and the angles")
    return build(1.0)


def _append(target, circuit, factor):
    for gate in circuit:
        if gate.name == "I":
            continue
        method = getattr(target, _QISKIT_METHODS[gate.name])
        method(*[p * factor for p in gate.params], *gate.qubits)


def _split(angles):
    angles = [float(a) for a in angles]
    if not angles or len(angles) % 2:
        raise ValueError(f"angles must hold p gammas then p betas (an even, non-zero count), "
                         f"got {len(angles)}")
    p = len(angles) // 2
    return angles[:p], angles[p:]
