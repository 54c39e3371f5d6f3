"""The objective the optimisers minimise. A method of ``QAOA``."""

_LOSSES = (
    ("default", "_loss_function_default"),
    ("CVaR", "_loss_function_cvar"),
    ("Gibbs", "_loss_function_Gibbs"),
)


def _loss_function(self, paras):
    """Given parameters, run the QAOA circuit and calculate the loss function.

    paras: the 2p angles, the p gammas first, then the p betas (split at ``self.layer``).

    Returns the lost function value of the object's ``loss_type``.
    """
    gammas = paras[:self.layer]
    betas = paras[self.layer:]
    result = self.run_qaoa_circuit(gammas, betas, self.shots)
    methods = dict(_LOSSES)
    if not isinstance(self.loss_type, str) or self.loss_type not in methods:
        raise ValueError("wrong loss types, only support " + ", ".join(name for name, _ in _LOSSES))
    loss = getattr(self, methods[self.loss_type])(result)
    self.iter += 1
    return loss
