"""The optimisation entry point. A method of ``QAOA``."""

import corvid

from .result import SortedDistribution


def run(self, layer=1, initial_para=None, shots=-1, loss_type=None, optimize_type=None,
        optimizer=None, optimizer_option=None, **loss_option):
    """run the optimization process

    layer: number of QAOA layers p (the final depth with "interp").
    initial_para: starting angles (p gammas, then p betas); random in [0, pi) when absent;
        required by "interp", where its length sets the start layer.
    shots: -1 for exact probabilities, or a positive number of samples.
    loss_type: "default" (energy expectation), "CVaR" (option alpha) or "Gibbs" (option
        temperature).
    optimize_type: "default" (all 2p angles at once) or "interp" (layer by layer).
    optimizer: "SPSA", or a method of scipy.optimize.minimize (None: its default).
    optimizer_option: keyword arguments for every minimiser call.
    loss_option: alpha, temperature, gamma_bounds, beta_bounds (list of (low, high) per layer,
        or one pair for all layers); other keys are ignored.

    Returns (solutions, angles, loss): solutions maps bit strings (qubit 0 right-most) to their
    probability at the optimal angles, iterating by descending probability; angles is the
    optimiser's final vector; loss is the loss at those angles.
    """
    self.loss_type = "default" if loss_type is None else loss_type
    self.optimize_type = "default" if optimize_type is None else optimize_type
    self.optimizer = optimizer
    self.alpha = loss_option.get("alpha", 1)
    self.temperature = loss_option.get("temperature", 1)
    self.shots = shots
    checked = self._check_layer_and_generate_initial_para(layer, initial_para)
    if self.optimize_type not in ("default", "interp"):
        raise ValueError("wrong optimize type, only support default, interp")
    initial_para, start_layer = checked
    if optimizer_option is None:
        optimizer_option = {}
    gamma_bounds = loss_option.get("gamma_bounds")
    beta_bounds = loss_option.get("beta_bounds")
    if self.optimize_type == "default":
        para_result = self._optimize_qaoa_parameter_default(
            initial_para, gamma_bounds, beta_bounds, **optimizer_option)
    else:
        para_result = self._optimize_qaoa_parameter_interp(
            initial_para, start_layer, gamma_bounds, beta_bounds, **optimizer_option)
    p = self.layer
    qaoa_result = self.run_qaoa_circuit(para_result[:p], para_result[p:], self.shots)
    loss_result = self._loss_function(para_result)
    if isinstance(qaoa_result, corvid.ProbabilityMap):
        qaoa_result = SortedDistribution(qaoa_result)
    else:
        qaoa_result_list = sorted(qaoa_result.items(), key=lambda entry: entry[1], reverse=True)
        keys = [key for key, _ in qaoa_result_list]
        values = [value for _, value in qaoa_result_list]
        qaoa_result = dict(zip(keys, values))
    return qaoa_result, para_result, loss_result
