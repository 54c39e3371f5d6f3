"""The three losses over one result (key -> weight). Methods of ``QAOA``.

An exact result from the machine (``corvid.ProbabilityMap``) is scored in C++ against the
energies of all basis states; any other mapping is walked entry by entry. Both give the same
value up to rounding.
"""

import numbers

import numpy as np
from corvid import diagonal

_ALPHA_ERROR = "CVaR method needs parameter alpha to be a number between 0~1"
_TEMPERATURE_ERROR = "Gibbs free energy method needs parameter temperature to be a number between 0~1"


def _check_unit_interval(value, message):
    # NaN passes neither comparison, so it is refused explicitly.
    if not isinstance(value, numbers.Real) or value > 1 or value < 0 or value != value:
        raise ValueError(message)


def _energies(self, measure_result):
    """Energies of every entry, in the result's order: one array for an exact machine result,
    else the per-key cache walk (which computes each new key once)."""
    if self.energy_dict.covers_whole_space(measure_result):
        return self.energy_dict.all_energies()
    self.energy_dict.prefetch(measure_result)
    return None


def _energy(self, key):
    return self.energy_dict.energy_of(key, self.calculate_energy)


def _loss_function_default(self, measure_result):
    """Given a result, calculate the energy expectation."""
    energies = _energies(self, measure_result)
    if energies is not None:
        return float(diagonal.expectation(measure_result.probabilities, energies))
    lost = 0.0
    for key, weight in measure_result.items():
        lost += weight * _energy(self, key)
    return lost


def _loss_function_cvar(self, measure_result):
    """Given a result, calculate the CVaR energy expectation.

    Entries are taken by weight, largest first (ties in the result's order), until `alpha` of
    probability mass is covered; the loss is the energy sum over that mass, not divided by alpha.
    """
    _check_unit_interval(self.alpha, _ALPHA_ERROR)
    energies = _energies(self, measure_result)
    if energies is not None:
        return float(diagonal.cvar(measure_result.probabilities, energies, float(self.alpha)))
    cdf = 0.0
    loss = 0.0
    for key, weight in sorted(measure_result.items(), key=lambda entry: entry[1], reverse=True):
        energy = _energy(self, key)
        if cdf < self.alpha:
            if cdf + weight < self.alpha:
                loss += energy * weight
            else:
                loss += energy * (self.alpha - cdf)
            cdf += weight
    return loss


def _loss_function_Gibbs(self, measure_result):
    """Given a result, calculate the Gibbs energy expectation: -ln sum_k w_k exp(-E_k / T)."""
    _check_unit_interval(self.temperature, _TEMPERATURE_ERROR)
    energies = _energies(self, measure_result)
    if energies is not None and self.temperature != 0:
        total = diagonal.gibbs_sum(measure_result.probabilities, energies, float(self.temperature))
        return -np.log(total)
    lost = 0.0
    for key, weight in measure_result.items():
        lost += weight * np.exp(-_energy(self, key) / self.temperature)
    return -np.log(lost)
