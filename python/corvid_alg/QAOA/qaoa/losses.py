"""The three losses over one result (key -> weight).

`energies` is the energy of every basis state (a ``corvid.diagonal.EnergyTable`` or an array)
when the result is an exact machine result (it then has ``probabilities``) and the class's own
energies apply: the loss is then computed in C++. Otherwise it is None and the entries are
walked, `energy_of(key)` giving each energy. Both give the same value up to rounding.
"""

import numbers

import numpy as np

from corvid import diagonal

ALPHA_ERROR = "CVaR method needs parameter alpha to be a number between 0~1"
TEMPERATURE_ERROR = "Gibbs free energy method needs parameter temperature to be a number between 0~1"


def check_unit_interval(value, message):
    # NaN passes neither comparison, so it is refused explicitly.
    if not isinstance(value, numbers.Real) or value > 1 or value < 0 or value != value:
        raise ValueError(message)


def expectation(result, energies, energy_of):
    """sum_k w_k E_k."""
    if energies is not None:
        return float(diagonal.expectation(result.probabilities, energies))
    loss = 0.0
    for key, weight in result.items():
        loss += weight * energy_of(key)
    return loss


def cvar(result, energies, energy_of, alpha):
    """Entries taken by weight, largest first (ties in the result's order), until `alpha` of
    probability mass is covered; the energy sum over that mass, not divided by alpha."""
    if energies is not None:
        return float(diagonal.cvar(result.probabilities, energies, float(alpha)))
    cdf = 0.0
    loss = 0.0
    for key, weight in sorted(result.items(), key=lambda entry: entry[1], reverse=True):
        energy = energy_of(key)
        if cdf < alpha:
            if cdf + weight < alpha:
                loss += energy * weight
            else:
                loss += energy * (alpha - cdf)
            cdf += weight
    return loss


def gibbs(result, energies, energy_of, temperature):
    """-ln sum_k w_k exp(-E_k / T), with IEEE results (inf, -inf, nan) where it overflows."""
    if energies is not None and temperature != 0:
        return -np.log(diagonal.gibbs_sum(result.probabilities, energies, float(temperature)))
    total = 0.0
    for key, weight in result.items():
        total += weight * np.exp(-energy_of(key) / temperature)
    return -np.log(total)
