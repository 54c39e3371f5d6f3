"""INTERP: starting angles for p + 1 layers from optimal angles for p layers."""

import numpy as np

from ... import qaoa as _module  # b_interp is looked up on the module at call time


def parameter_interpolate(pm):
    """Guess the 2(p+1) angles of a (p+1)-layer circuit from the 2p angles `pm` of p layers.

    The gammas (and separately the betas) are read as samples of a smooth profile at the nodes
    cos(pi*k/p) and re-sampled by polynomial interpolation at cos(pi*k/(p+1)); the first angle
    of each half is kept. One layer (p = 1) prints a warning and returns
    [g, g/2, b/2, b].

    >>> parameter_interpolate([0.1, 0.2, 0.2, 0.1])
    array([0.1 , 0.15, 0.25, 0.2 , 0.15, 0.05])
    """

    def interp_x(n):
        return np.cos(np.pi * np.arange(n) / n)

    p = len(pm) // 2
    gammas = pm[:p]
    betas = pm[p:]
    if p == 1:
        print("warning of one-element interpolation")
        return np.append([gammas[0], gammas[0] / 2], [betas[0] / 2, betas[0]])
    old_nodes = interp_x(p)
    new_nodes = interp_x(p + 1)
    new_gammas = _module.b_interp(old_nodes, gammas, new_nodes)
    new_betas = _module.b_interp(old_nodes, betas, new_nodes)
    return np.append(new_gammas, new_betas)
