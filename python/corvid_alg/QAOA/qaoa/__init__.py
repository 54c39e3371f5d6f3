"""QAOA solver for minimisation problems over binary variables.

A problem is a polynomial in binary variables (a sympy expression such as
``2*x0*x1 + 3*x2 - 1``) or a ``corvid.PauliOperator`` built from :func:`p_0` and :func:`p_1`.
Variable k is qubit k, where variables are ordered by their names as strings ("x10" before
"x2"); x_k = 1 is the basis state |1> of qubit k. Result keys are bit strings with qubit 0
right-most.

Example::

    >>> import sympy
    >>> from corvid_alg.QAOA.qaoa import *
    >>> x0, x1, x2 = sympy.symbols("x0 x1 x2")
    >>> solutions, angles, loss = QAOA(2*x0*x1 + 3*x2 - 1).run(layer=2)
    >>> next(iter(solutions))   # the most likely solution, qubit 0 right-most
    '001'
"""

import corvid  # noqa: F401
import numpy as np  # noqa: F401
import sympy  # noqa: F401
from scipy.interpolate import barycentric_interpolate as b_interp  # noqa: F401
from scipy.optimize import minimize  # noqa: F401

from .. import default_circuits as _default_circuits
from .. import spsa  # noqa: F401
from ..default_circuits import *  # noqa: F401,F403

from .encoding.binary_operators import p_0, p_1
from .encoding.polynomial import problem_to_z_operator
from .optimization.interpolation import parameter_interpolate
from .circuits.hamiltonian_circuit import pauli_z_operator_to_circuit
from .circuits import ansatz as _ansatz, execution as _execution
from .evaluation import driver as _driver, energy as _energy, losses as _losses, problem as _problem
from .evaluation import gradient as _gradient
from .optimization import bounds as _bounds, direct as _direct, initial as _initial
from .optimization import run as _run, schedule as _schedule


class QAOA:
    """This class provides the quantum alternative operator ansatz algorithm optimizer.

    It minimises a polynomial in binary variables (or a diagonal ``corvid.PauliOperator``).

    Attributes:
        problem_dimension: The problem dimension, and also the qubit number.
        energy_dict: The dict which stores the function value for solutions being sampled
            during the optimization.
        circuit_iter: The number of times the quantum circuit being called during
            optimization.
        iter: the number of completed loss evaluations.

    Methods:
        calculate_energy : Calculate the function value for one solution.
        run_qaoa_circuit : Given parameters, run the qaoa circuit and get the theoretical
            probability distribution.
        run : run the optimization process
        loss_and_gradient : the loss and its exact gradient at one angle vector
        evaluate : the losses of many angle vectors in one call
    """

    __init__ = _problem.qaoa_init
    calculate_energy = _energy.calculate_energy
    _init_circuit = _ansatz._init_circuit
    _phase_circuit = _ansatz._phase_circuit
    _mixer_circuit = _ansatz._mixer_circuit
    _qaoa_circuit = _ansatz._qaoa_circuit
    run_qaoa_circuit = _execution.run_qaoa_circuit
    _loss_function_default = _losses._loss_function_default
    _loss_function_cvar = _losses._loss_function_cvar
    _loss_function_Gibbs = _losses._loss_function_Gibbs
    _loss_function = _driver._loss_function
    loss_and_gradient = _gradient.loss_and_gradient
    evaluate = _gradient.evaluate
    _check_bounds = _bounds._check_bounds
    _optimize_qaoa_parameter_default = _direct._optimize_qaoa_parameter_default
    _optimize_qaoa_parameter_interp = _schedule._optimize_qaoa_parameter_interp
    _check_layer_and_generate_initial_para = _initial._check_layer_and_generate_initial_para
    run = _run.run


__all__ = [
    "QAOA",
    "p_0",
    "p_1",
    "problem_to_z_operator",
    "parameter_interpolate",
    "pauli_z_operator_to_circuit",
] + list(_default_circuits.__all__)
