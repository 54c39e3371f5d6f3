"""Optimising the 2p angles of a fixed-depth circuit. A method of ``QAOA``."""

from ... import qaoa as _module  # minimize and spsa are looked up on the module at call time


def _reject_duplicates(options, reserved):
    for key in options:
        if key in reserved:
            raise TypeError(f"function() got multiple values for keyword argument '{key}'")


def _optimize_qaoa_parameter_default(self, initial_para, gamma_bounds, beta_bounds, **optimize_option):
    """Minimise the loss over the angles from `initial_para`; return the final angles.

    ``optimizer`` "SPSA" uses ``spsa.spsa_minimize``; any other value (None included) is the
    method of ``scipy.optimize.minimize`` (None: L-BFGS-B, since bounds are always given).
    With the option ``jac=True`` the minimiser gets the loss and its gradient from
    ``loss_and_gradient`` (exact probabilities only).
    Further keyword options go to the minimiser unchanged.
    """
    gamma_bounds, beta_bounds = self._check_bounds(initial_para, gamma_bounds, beta_bounds)
    bounds = list(gamma_bounds) + list(beta_bounds)
    if self.optimizer == "SPSA":
        _reject_duplicates(optimize_option, ("bounds",))
        return _module.spsa.spsa_minimize(self._loss_function, initial_para, bounds=bounds,
                                          **optimize_option)
    _reject_duplicates(optimize_option, ("bounds", "method"))
    # jac=True: the loss returns its exact gradient too (loss_and_gradient).
    objective = self.loss_and_gradient if optimize_option.get("jac") is True else self._loss_function
    result = _module.minimize(objective, initial_para, bounds=bounds,
                              method=self.optimizer, **optimize_option)
    return result.x
