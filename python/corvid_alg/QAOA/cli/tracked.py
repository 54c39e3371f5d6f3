"""A ``QAOA`` that records its loss evaluations and can draw its samples reproducibly."""

import numbers

import numpy as np

from ..qaoa import QAOA


class TrackedQAOA(QAOA):
    """``QAOA`` with two additions for the command line, both outside the algorithm:

    - every evaluation of the loss is appended to ``losses`` and reported to
      ``on_loss(evaluations, loss)`` (the optimisers see the same values as without it);
    - with a ``sample_seed``, runs with shots > 0 draw their samples from the exact
      distribution of the circuit with a seeded generator, so that a sampled run repeats
      exactly. Measuring every qubit of the final state is sampling that distribution, so the
      statistics are those of the machine's own sampler; without a seed that sampler is used.
    """

    def __init__(self, problem, norm=False, init_circuit=None, mixer_circuit=None,
                 on_loss=None, sample_seed=None):
        super().__init__(problem, init_circuit=init_circuit, mixer_circuit=mixer_circuit,
                         norm=norm)
        self.losses = []
        self._on_loss = on_loss
        self._sampler = None if sample_seed is None else np.random.default_rng(sample_seed)

    def _loss_function(self, paras):
        loss = super()._loss_function(paras)  # a non-finite loss stops the run
        self.losses.append(float(loss))
        if self._on_loss is not None:
            self._on_loss(len(self.losses), float(loss))
        return loss

    def run_qaoa_circuit(self, gammas, betas, shots=-1):
        # Over MPI ranks the samples are drawn there, seeded from numpy's global generator.
        if (self._sampler is None or self._ranks is not None or isinstance(shots, bool)
                or not isinstance(shots, numbers.Integral) or shots <= 0):
            return super().run_qaoa_circuit(gammas, betas, shots)
        exact = super().run_qaoa_circuit(gammas, betas, -1)
        probabilities = np.clip(exact.probabilities, 0.0, None)
        counts = self._sampler.multinomial(shots, probabilities / probabilities.sum())
        width = exact.num_qubits
        return {format(int(i), f"0{width}b"): int(counts[i]) / shots
                for i in np.flatnonzero(counts)}
