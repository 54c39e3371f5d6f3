"""The class's evaluations over the ranks of an MPI job (``corvid.mpi`` says when that is on).

Every rank runs the same script and the same optimiser; each loss is computed by all ranks
together on a state spread over them, and every rank receives rank 0's value, so the
optimisers cannot drift apart. What crosses ranks is the angles, the loss, its gradient, the
energy range, sampled counts and the top solutions, never the 2^n probabilities: an exact
``run`` returns the most probable ``TOP_SOLUTIONS`` basis states (all of them up to 16 qubits).
"""

import os

import numpy as np

from corvid import mpi

from .. import default_circuits

# Solutions `run` returns under MPI: rank 0 merges every rank's best this many.
TOP_SOLUTIONS = 1 << 16


def active():
    return mpi.requested()


def backend():
    """The object's evaluation over the ranks when this process is one rank of a job, else
    None (one process computes alone)."""
    return Ranks() if active() else None


def refuse(feature):
    raise NotImplementedError(
        f"{feature} is not distributed over MPI ranks: run it in one process "
        "(without mpirun, or with CORVID_MPI=0)")


class Ranks:
    """What the class asks of the ranks. The ``corvid.mpi.QaoaEvaluation`` is made on first
    use and again when the mixer or initial circuit changes."""

    def __init__(self):
        self._evaluation = None
        self._made_for = None

    def _of(self, qaoa):
        mixer = qaoa.mixer_circuit
        if mixer not in (None, default_circuits.x_mixer) and mixer not in default_circuits.XY_PAIRS:
            refuse("a mixer_circuit other than those of default_circuits")
        qaoa._check_hamiltonian()
        if not qaoa._own_energies():
            refuse("a replaced calculate_energy")
        if self._evaluation is None or self._made_for != (mixer, qaoa.init_circuit):
            description = qaoa._ansatz_description()
            if description is None:
                refuse("this problem's energy table (not every qubit is a variable, or integer "
                       "coefficients too large for exact doubles)")
            model = qaoa._energy_model
            self._evaluation = None  # the old one lets go of its memory first
            self._evaluation = mpi.QaoaEvaluation(
                description["num_qubits"], description["masks"], description["coeffs"],
                "monomials" if model.kind == "symbolic" else "z", model.masks, model.coeffs,
                xy_pairs=description["xy_pairs"], initial=description["initial"])
            self._made_for = (mixer, qaoa.init_circuit)
        return self._evaluation

    def start(self, initial_para, optimizer, optimizer_option):
        """(starting angles, optimiser options) of rank 0 on every rank, and rank 0's state of
        numpy's global generator, so that every rank draws alike from here on (sample seeds,
        SPSA without a seed)."""
        _share_random_state()
        if initial_para is not None:
            initial_para = np.frombuffer(
                mpi.broadcast(np.asarray(initial_para, dtype=np.float64).tobytes())).copy()
        if optimizer == "SPSA" and optimizer_option.get("seed") is None:
            seed = int.from_bytes(mpi.broadcast(os.urandom(8)), "little")
            optimizer_option = {**optimizer_option, "seed": seed}
        return initial_para, optimizer_option

    def loss(self, qaoa, angles, settings):
        return self._of(qaoa).loss(angles, *settings)

    def loss_and_gradient(self, qaoa, angles, settings):
        loss, gradient = self._of(qaoa).loss_and_gradient(angles, *settings)
        return float(loss), gradient

    def samples(self, qaoa, angles, shots):
        """{bit string: hits/shots} of `shots` measurements, keys ascending, as one process
        samples; the seed comes from numpy's global generator, which ``start`` made alike on
        every rank."""
        if shots == -1:
            refuse("run_qaoa_circuit with shots=-1 (it returns all 2^n probabilities)")
        evaluation = self._of(qaoa)
        seed = int(np.random.randint(0, 2**63 - 1, dtype=np.int64))
        indices, counts = evaluation.sample(angles, shots, seed)
        width = qaoa.problem_dimension
        return {format(int(i), f"0{width}b"): int(c) / shots for i, c in zip(indices, counts)}

    def solutions(self, qaoa):
        """The most probable basis states at the last evaluation's angles, key -> probability,
        most probable first (ties by ascending index)."""
        width = qaoa.problem_dimension
        indices, probabilities = self._of(qaoa).top_solutions(min(2 ** width, TOP_SOLUTIONS))
        return {format(int(i), f"0{width}b"): float(p) for i, p in zip(indices, probabilities)}

    def energy_range(self, qaoa):
        return self._of(qaoa).energy_range()


def _share_random_state():
    kind, keys, position, has_gauss, gauss = np.random.get_state()
    data = mpi.broadcast(keys.astype(np.uint32).tobytes()
                         + np.array([position, has_gauss], dtype=np.int64).tobytes()
                         + np.array([gauss], dtype=np.float64).tobytes())
    keys = np.frombuffer(data[:-24], dtype=np.uint32)
    position, has_gauss = np.frombuffer(data[-24:-8], dtype=np.int64)
    np.random.set_state((kind, keys, int(position), int(has_gauss),
                         float(np.frombuffer(data[-8:], dtype=np.float64)[0])))
