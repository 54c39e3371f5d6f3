"""The class's evaluations over the ranks of an MPI job (``corvid.mpi`` says when that is on).

Every rank runs the same script and the same optimiser; each loss is computed by all ranks
together on a state spread over them, and every rank receives rank 0's value, so the
optimisers cannot drift apart. What crosses ranks is the angles, the loss, the energy range
and the top solutions, never the 2^n probabilities: ``run`` returns the most probable
``TOP_SOLUTIONS`` basis states (all of them up to 16 qubits).
"""

import os

import numpy as np

from corvid import mpi

from .. import default_circuits

# Solutions `run` returns under MPI: rank 0 merges every rank's best this many.
TOP_SOLUTIONS = 1 << 16


def active():
    return mpi.requested()


def refuse(feature):
    raise NotImplementedError(
        f"{feature} is not distributed over MPI ranks yet: run it in one process "
        "(without mpirun, or with CORVID_MPI=0)")


def evaluation(qaoa, shots):
    """The object's ``corvid.mpi.QaoaEvaluation``, made on first use; raises
    NotImplementedError naming what the distributed evaluation cannot do."""
    if isinstance(shots, (int, np.integer)) and shots > 0:
        refuse("sampling (shots > 0)")
    if qaoa.mixer_circuit in default_circuits.XY_PAIRS:
        refuse("the XY mixer")
    if qaoa.mixer_circuit not in (None, default_circuits.x_mixer):
        refuse("a custom mixer_circuit")
    if qaoa.init_circuit not in (None, default_circuits.uniform_superposition):
        refuse("a custom init_circuit")
    qaoa._check_hamiltonian()
    if not qaoa._own_energies():
        refuse("a replaced calculate_energy")
    description = qaoa._ansatz_description()
    if description is None:
        refuse("this problem's energy table (not every qubit is a variable, or integer "
                "coefficients too large for exact doubles)")
    if qaoa._distributed is None:
        model = qaoa._energy_model
        qaoa._distributed = mpi.QaoaEvaluation(
            description["num_qubits"], description["masks"], description["coeffs"],
            "monomials" if model.kind == "symbolic" else "z", model.masks, model.coeffs)
    return qaoa._distributed


def solutions(evaluation, num_qubits):
    """The most probable basis states of the last evaluation, key -> probability, in
    descending order (ties by ascending index)."""
    indices, probabilities = evaluation.top_solutions(min(2 ** num_qubits, TOP_SOLUTIONS))
    return {format(int(i), f"0{num_qubits}b"): float(p) for i, p in zip(indices, probabilities)}


def share_random_state():
    """Give every rank rank 0's state of numpy's global generator, so that random starting
    angles are drawn alike."""
    kind, keys, position, has_gauss, gauss = np.random.get_state()
    data = mpi.broadcast(keys.astype(np.uint32).tobytes()
                         + np.array([position, has_gauss], dtype=np.int64).tobytes()
                         + np.array([gauss], dtype=np.float64).tobytes())
    keys = np.frombuffer(data[:-24], dtype=np.uint32)
    position, has_gauss = np.frombuffer(data[-24:-8], dtype=np.int64)
    np.random.set_state((kind, keys, int(position), int(has_gauss),
                         float(np.frombuffer(data[-8:], dtype=np.float64)[0])))


def rank0_angles(angles):
    """Rank 0's starting angles, on every rank."""
    if angles is None:
        return None
    return np.frombuffer(mpi.broadcast(np.asarray(angles, dtype=np.float64).tobytes())).copy()


def shared_seed():
    """A seed drawn by rank 0, the same on every rank (numpy's generators left untouched)."""
    return int.from_bytes(mpi.broadcast(os.urandom(8)), "little")
