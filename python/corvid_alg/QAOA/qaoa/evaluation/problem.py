"""Construction of a ``QAOA`` object: the problem, its Hamiltonian and every attribute."""

import corvid
import sympy

from ..encoding.polynomial import problem_to_z_operator
from .energy import EnergyCache, EnergyModel


def qaoa_init(self, problem, init_circuit=None, mixer_circuit=None, norm=False):
    """Set up a QAOA solver for `problem`.

    problem: a sympy polynomial in binary variables, or a ``corvid.PauliOperator``.
    init_circuit: optional function (qubit list) -> circuit preparing the initial state;
        default a Hadamard layer.
    mixer_circuit: optional function (qubit list, angle) -> mixer circuit; it receives
        angle = -2*beta. Default: RX(-2*beta) on every qubit.
    norm: scale the Hamiltonian of a symbolic problem so that its non-identity coefficients
        have mean magnitude 1 (energies and losses keep the unscaled polynomial).
    """
    self.optimizer = None
    self.shots = None
    self.optimize_type = None
    self.temperature = None
    self.alpha = None
    self.loss_type = None
    dimension = 0
    self.problem = problem
    self.operator = None
    if isinstance(problem, sympy.Basic):
        self.problem = sympy.simplify(problem)
        dimension = len(problem.atoms(sympy.Symbol))
        self.operator = problem_to_z_operator(self.problem, norm).toHamiltonian(True)
    elif isinstance(problem, corvid.PauliOperator):
        self.problem = problem.toHamiltonian(True)
        self.operator = problem.toHamiltonian(True)
        index_map = {}
        re_index = problem.remapQubitIndex(index_map)
        dimension = re_index.getMaxIndex() + 1
    self.problem_dimension = dimension
    self.init_circuit = init_circuit
    self.mixer_circuit = mixer_circuit
    self.layer = None
    self.iter = 0
    self.circuit_iter = 0
    self._energy_model = EnergyModel(self.problem, dimension)
    self.energy_dict = EnergyCache(self._energy_model)
