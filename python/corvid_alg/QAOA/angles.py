"""Starting angles for QAOA: annealing ramps, published MaxCut angles, and ways to reshape a
schedule (Fourier coefficients, INTERP, transfer to another depth).

Every function returns angles in this library's order and sign convention, ready to pass as
``initial_para`` to ``QAOA.run``: a numpy array of the p gammas, then the p betas, where layer i
applies exp(-i*gamma_i*H) and then the mixer exp(+i*beta_i*sum_j X_j) (RX(-2*beta_i) on every
qubit), H being the problem's Hamiltonian, the energy to minimise.

>>> from corvid_alg.QAOA.problems import maxcut_operator
>>> from corvid_alg.QAOA.qaoa import QAOA
>>> ring = QAOA(maxcut_operator([(0, 1), (1, 2), (2, 3), (3, 4), (4, 5), (5, 0)]))
>>> solutions, angles, loss = ring.run(layer=1, initial_para=fixed_angles(2, 1))
>>> round(-loss / 6, 3)            # cut fraction 3/4, already optimal at the start
0.75
"""

import numbers

import numpy as np
from scipy.interpolate import make_interp_spline

__all__ = ["tqa", "fixed_angles", "fixed_angles_ratio", "fourier", "fourier_inverse", "interp",
           "transfer"]


def tqa(p, dt):
    """Linear-ramp annealing schedule (trotterised quantum annealing) with p layers of step dt.

    Anneals H(s) = (1 - s) * H_M + s * H from the mixer Hamiltonian H_M = -sum_j X_j, whose
    ground state is the initial |+...+>, to the problem H, in p steps of length dt taken at the
    midpoints s_i = (i - 1/2) / p:

        gamma_i = s_i * dt,    beta_i = (1 - s_i) * dt,    i = 1 .. p.

    Each step exp(-i*dt*H(s_i)) is split as exp(-i*dt*s_i*H) exp(+i*dt*(1 - s_i)*sum X), which is
    exactly this library's layer, so both angles come out positive. (In the other common
    convention, a mixer exp(-i*beta*sum X) and a cost to maximise, the same schedule also has
    positive angles.) The best dt depends on the scale of H: for MaxCut written as minus the
    cut on a 3-regular graph of 16 nodes it was 1 for p = 1 to 4 and 1.25 for p = 8, and the
    cut fraction falls off steeply beyond 1.5 (Trotter steps too long).

    >>> tqa(2, 1.0)
    array([0.25, 0.75, 0.75, 0.25])
    """
    p = _positive_int(p, "p")
    if not _is_real(dt) or not np.isfinite(dt) or dt <= 0:
        raise ValueError(f"dt must be a positive finite number, got {dt!r}")
    s = (np.arange(p) + 0.5) / p
    return np.concatenate([s * dt, (1 - s) * dt])


# Tree-limit optima for MaxCut on 3-regular graphs, transcribed from the data file
# angles_regular_graphs.json of the authors' repository github.com/danlkv/fixed-angle-QAOA:
# p -> (p gammas then p betas, as published; cut fraction reached on graphs of girth > 2p + 1).
# Some rows sit on other, equivalent branches (gamma shifted by multiples of pi); see
# _principal_branch. For p = 9 the file's ratio (0.8723780358122347) is not what its angles
# reach; the figure below is the one the authors' companion file
# data/magic_stickynote_connectivity.json gives for the same angles.
_DEGREE_3 = {
    1: ([-2.526112630848722, 1.178096198604872], 0.69245005020442),
    2: ([-2.6537053, -5.38542672, 1.01604087, 1.27853893], 0.7559063097485101),
    3: ([0.41787832, 0.79214776, 0.93232948, 0.60032889, 0.45241986, 0.23511412],
        0.792315514902161),
    4: ([0.40718406, 0.77873346, 0.97786102, 1.14390016, 0.59413038, 0.44061878, 0.31250151,
         0.16312574], 0.8167299894216052),
    5: ([-0.3592396, -3.84770284, -3.96376046, -1.003988, -4.29516192, 0.93905843, 0.52261397,
         1.18051168, 1.29460152, 1.72013775], 0.8363793482380077),
    6: ([-0.33146716, -3.78674896, -7.01448834, -0.83674612, -4.1513686, -4.26841648,
         0.93509952, 0.53407238, 2.0337603, 0.35987601, 1.31228924, 0.13888416],
        0.8498938819897202),
    7: ([0.3075471, 0.62011806, 0.7006096, 0.76412924, 0.86567754, 1.03551756, 1.1258363,
         0.64806401, 0.55839915, 0.5007673, 0.45132269, 0.33452177, 0.23544465, 0.12965313],
        0.859619124021074),
    8: ([0.30221036, 0.60130604, 0.6597921, 0.7115199, 0.77304704, 0.86802418, 1.02383154,
         1.10452208, 0.65650754, 0.56238557, 0.49776919, 0.46996502, 0.41361734, 0.31031851,
         0.22814776, 0.12058734], 0.8672299758118122),
    9: ([0.2794012, 0.56613324, 0.6312226, 0.67933252, 0.72624066, 0.76805642, 0.874522,
         1.03747092, 1.11798666, 0.65447387, 0.56186397, 0.5090114, 0.48677629, 0.45143509,
         0.40321108, 0.30473032, 0.21983296, 0.11718174], 0.8735215640022997),
    10: ([0.26671636, 0.5448227, 0.60998102, 0.65626008, 0.69570836, 0.7287574, 0.77387758,
          0.88211138, 1.043801, 1.11525922, 0.65558354, 0.56318149, 0.51388817, 0.49558422,
          0.46889487, 0.43574328, 0.38847067, 0.29117619, 0.21050905, 0.11238794],
         0.8785275447411593),
    11: ([0.2572874, 0.52804058, 0.59177096, 0.6396915, 0.67720562, 0.70206146, 0.73702426,
          0.7753075, 0.88355874, 1.04697026, 1.11523772, 0.65643879, 0.56334713, 0.51630143,
          0.50366825, 0.481823, 0.45601256, 0.42143463, 0.37077327, 0.27645017, 0.20094698,
          0.1072507], 0.8828425408436951),
}


def fixed_angles(degree, p):
    """Angles for MaxCut on `degree`-regular graphs that need no optimisation.

    They maximise the expected cut in the tree limit (graphs whose girth exceeds 2p + 1, where
    every edge sees a tree within p steps) and do nearly as well on other regular graphs; see
    :func:`fixed_angles_ratio` for the cut fraction they reach there. Use them for a problem
    written as minus the cut, such as ``problems.maxcut_operator(edges)`` (unit weights).

    Sources:

    - degree 3, p = 1 .. 11: J. Wurtz and D. Lykov, "The fixed angle conjecture for QAOA on
      regular MaxCut graphs", Phys. Rev. A 104, 052419 (2021), arXiv:2107.00677; values from
      the authors' data file angles_regular_graphs.json (github.com/danlkv/fixed-angle-QAOA).
    - any degree D >= 1, p = 1: the closed form of Z. Wang, S. Hadfield, Z. Jiang and
      E. G. Rieffel, Phys. Rev. A 97, 022304 (2018): on triangle-free D-regular graphs the cut
      fraction is 1/2 + 1/2 sin(4 beta) sin(gamma) cos(gamma)^(D-1), largest at beta = pi/8,
      tan(gamma) = 1/sqrt(D - 1).

    Conventions. The paper maximises C = sum over edges of (1 - Z_i Z_j)/2 with layers
    exp(-i*beta*sum X) exp(-i*gamma*C). Here H = -C (maxcut_operator's w/2 (Z_i Z_j - 1)) and a
    layer is exp(+i*beta*sum X) exp(-i*gamma*H) = exp(+i*beta*sum X) exp(+i*gamma*C): the
    complex conjugate of the paper's layer at the same (gamma, beta). The initial state and C
    are real, so the two states are conjugate and give every cut the same probability: the
    published numbers carry over with no change of sign and no factor of 2 (the Z_i Z_j
    coefficient is 1/2 in both). Rows published on another branch are brought to the principal
    one (see _principal_branch), which changes no cut probability on 3-regular graphs and keeps
    the schedule smooth for :func:`interp`, :func:`fourier_inverse` and :func:`transfer`.

    >>> fixed_angles(3, 1).round(4)
    array([0.6155, 0.3927])
    """
    angles, _ = _fixed_entry(degree, p)
    return angles


def fixed_angles_ratio(degree, p):
    """Expected cut fraction (cut edges over all edges) that ``fixed_angles(degree, p)``
    reaches on `degree`-regular graphs of girth greater than 2p + 1 (the published figure for
    degree 3; the closed form for p = 1)."""
    _, ratio = _fixed_entry(degree, p)
    return ratio


def _fixed_entry(degree, p):
    degree = _positive_int(degree, "degree")
    p = _positive_int(p, "p")
    if degree == 3 and p in _DEGREE_3:
        published, ratio = _DEGREE_3[p]
        return _principal_branch(np.array(published), odd_degree=True), ratio
    if p == 1:
        gamma = np.arctan2(1.0, np.sqrt(degree - 1.0))
        ratio = 0.5 + 0.5 * np.sin(gamma) * np.cos(gamma) ** (degree - 1)
        return np.array([gamma, np.pi / 8]), float(ratio)
    raise ValueError(f"no fixed angles for degree {degree} at p = {p}: available are p = 1 for "
                     f"every degree >= 1 and p = 1 .. {max(_DEGREE_3)} for degree 3")


def _principal_branch(angles, odd_degree):
    """Equivalent angles with every gamma in [-pi/2, pi/2), every beta in [-pi/4, pi/4) and the
    first gamma positive, for unweighted MaxCut on a regular graph.

    gamma_k + pi multiplies layer k by exp(-i*pi*C) = (-1)^cut, which on graphs of odd degree is
    prod Z_j (the cut's parity is that of the number of ones) and on even degree is 1. prod Z_j
    turns every later mixer exp(+i*beta*sum X) into exp(-i*beta*sum X) and ends as a sign on the
    final state, so the betas of layers k .. p change sign. beta_k + pi/2 multiplies by
    prod X_j up to a phase, which commutes with everything and only swaps a cut with its
    complement. Negating all angles conjugates the state.
    """
    gammas, betas = _split(angles)
    turns = np.round(gammas / np.pi)
    gammas = gammas - turns * np.pi
    if odd_degree:
        betas = betas * (-1.0) ** np.cumsum(turns % 2)
    betas = (betas + np.pi / 4) % (np.pi / 2) - np.pi / 4
    if gammas[0] < 0:
        gammas, betas = -gammas, -betas
    return np.concatenate([gammas, betas])


def _fourier_basis(p, q):
    """The p x q matrices sin and cos of (k - 1/2)(i - 1/2) pi / p, rows i, columns k."""
    phase = np.outer(np.arange(p) + 0.5, np.arange(q) + 0.5) * np.pi / p
    return np.sin(phase), np.cos(phase)


def fourier(u, v, p):
    """Angles of p layers from the FOURIER coefficients u (gammas) and v (betas) of Zhou, Wang,
    Choi, Pichler and Lukin, Phys. Rev. X 10, 021067 (2020):

        gamma_i = sum_k u_k sin((k - 1/2)(i - 1/2) pi / p),
        beta_i  = sum_k v_k cos((k - 1/2)(i - 1/2) pi / p),    i = 1 .. p, k = 1 .. q.

    u and v hold q coefficients each (any q >= 1; q < p gives a smooth low-frequency schedule).

    >>> fourier([1.0], [1.0], 1).round(4)
    array([0.7071, 0.7071])
    """
    p = _positive_int(p, "p")
    u = _finite_vector(u, "u")
    v = _finite_vector(v, "v")
    if len(u) != len(v):
        raise ValueError(f"u and v must have the same length, got {len(u)} and {len(v)}")
    sin, cos = _fourier_basis(p, len(u))
    return np.concatenate([sin @ u, cos @ v])


def fourier_inverse(angles, q=None):
    """The FOURIER coefficients (u, v) of p-layer angles: the inverse of :func:`fourier`.

    With q = p (the default) the transform is inverted exactly (its sine and cosine matrices
    are orthogonal up to a factor p/2); with q < p, u and v are the least-squares fit of q
    coefficients each.
    """
    gammas, betas = _split(angles)
    p = len(gammas)
    q = p if q is None else _positive_int(q, "q")
    if q > p:
        raise ValueError(f"q must be at most the number of layers {p}, got {q}")
    sin, cos = _fourier_basis(p, q)
    if q == p:
        return sin.T @ gammas * (2 / p), cos.T @ betas * (2 / p)
    return (np.linalg.lstsq(sin, gammas, rcond=None)[0],
            np.linalg.lstsq(cos, betas, rcond=None)[0])


def interp(angles):
    """Angles of p + 1 layers from those of p by the linear INTERP rule of Zhou et al.,
    Phys. Rev. X 10, 021067 (2020):

        gamma'_i = (i - 1)/p * gamma_{i-1} + (p - i + 1)/p * gamma_i,    i = 1 .. p + 1,

    with gamma_0 = gamma_{p+1} = 0, and the same for the betas. The first and last angles are
    kept and the profile in between is resampled linearly. (``qaoa.parameter_interpolate``,
    which ``run(optimize_type="interp")`` uses, resamples by a polynomial through the nodes
    cos(pi*k/p) instead.)

    >>> interp([1.0, 3.0, 0.5, 0.1])
    array([1. , 2. , 3. , 0.5, 0.3, 0.1])
    """
    gammas, betas = _split(angles)
    p = len(gammas)
    weight = np.arange(p + 1) / p

    def grow(x):
        padded = np.concatenate([[0.0], x, [0.0]])
        return weight * padded[:-1] + (1 - weight) * padded[1:]

    return np.concatenate([grow(gammas), grow(betas)])


def transfer(angles, p_new):
    """Angles of p_new layers (more or fewer) with the same gamma and beta profiles.

    Layer i of p sits at the normalised position (i - 1/2)/p in (0, 1). The gammas and the
    betas are each read as a piecewise-linear function of that position through the given
    layers, continued linearly beyond the first and last of them, and sampled at the positions
    of p_new layers; a single layer is a constant profile. So the angle values keep their shape
    over the schedule (optimal QAOA schedules approach a smooth curve as p grows), a linear
    ramp stays the same ramp (``transfer(tqa(p, dt), q)`` is ``tqa(q, dt)``), and p_new = p
    returns the angles unchanged.

    >>> transfer([0.25, 0.75, 0.75, 0.25], 4)
    array([0.125, 0.375, 0.625, 0.875, 0.875, 0.625, 0.375, 0.125])
    """
    gammas, betas = _split(angles)
    p_new = _positive_int(p_new, "p_new")
    p = len(gammas)
    if p == 1:
        return np.repeat([gammas[0], betas[0]], p_new)
    old = (np.arange(p) + 0.5) / p
    new = (np.arange(p_new) + 0.5) / p_new
    return np.concatenate([make_interp_spline(old, x, k=1)(new) for x in (gammas, betas)])


def _is_real(value):
    return isinstance(value, numbers.Real) and not isinstance(value, bool)


def _positive_int(value, name):
    if not isinstance(value, numbers.Integral) or isinstance(value, bool) or value < 1:
        raise ValueError(f"{name} must be a positive integer, got {value!r}")
    return int(value)


def _finite_vector(values, name):
    array = np.asarray(values)
    if array.dtype.kind not in "iuf":
        raise ValueError(f"{name} must be a sequence of real numbers, got {values!r}")
    array = array.astype(float)
    if array.ndim != 1 or array.size == 0:
        raise ValueError(f"{name} must be a non-empty one-dimensional sequence, got shape "
                         f"{array.shape}")
    if not np.all(np.isfinite(array)):
        raise ValueError(f"{name} must be finite, got {values!r}")
    return array


def _split(angles):
    """(gammas, betas) of a vector of p gammas then p betas."""
    array = _finite_vector(angles, "angles")
    if array.size % 2:
        raise ValueError(f"angles must hold p gammas then p betas (an even count), got "
                         f"{array.size} values")
    p = array.size // 2
    return array[:p], array[p:]
