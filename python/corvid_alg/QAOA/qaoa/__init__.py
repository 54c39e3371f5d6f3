"""QAOA solver for minimisation problems over binary variables.

A problem is a polynomial in binary variables (a sympy expression such as
``2*x0*x1 + 3*x2 - 1``) or a ``corvid.PauliOperator`` built from :func:`p_0` and :func:`p_1`.
Variable k is qubit k, where variables are ordered by their names as strings ("x10" before
"x2"); x_k = 1 is the basis state |1> of qubit k. Result keys are bit strings with qubit 0
right-most.

The class reads top to bottom in the order of one run: construction, energies, the ansatz, its
execution, the losses, the optimisers, ``run``. Helpers that need no object live in the
modules ``encoding``, ``circuits``, ``energy``, ``losses``, ``optimize`` and ``distribution``.
``minimize`` and ``spsa`` are globals of this module, looked up at every call, so that they can
be replaced.

Example::

    >>> import sympy
    >>> from corvid_alg.QAOA.qaoa import *
    >>> x0, x1, x2 = sympy.symbols("x0 x1 x2")
    >>> solutions, angles, loss = QAOA(2*x0*x1 + 3*x2 - 1).run(layer=2)
    >>> next(iter(solutions))   # the most likely solution, qubit 0 right-most
    '001'
"""

import functools
import threading

import numpy as np
import sympy
from scipy.optimize import minimize

import corvid

from .. import default_circuits as _default_circuits, spsa
from ..default_circuits import *  # noqa: F403
from . import distributed, gradient, losses
from .circuits import pauli_z_operator_to_circuit
from .distribution import by_descending_probability
from .encoding import (
    binary_variables,
    check_finite,
    check_objective,
    constant_problem_error,
    p_0,
    p_1,
    problem_to_z_operator,
    warn_if_not_diagonal,
)
from .energy import MAX_TABLE_QUBITS, EnergyCache, EnergyModel
from .optimize import (
    Evaluation,
    fit_angles,
    is_integer,
    layer_bounds,
    lowest,
    parameter_interpolate,
    reject_duplicates,
    spsa_result,
    stopped_result,
    with_difference_step,
)

_LOSSES = {"default": "_loss_function_default", "CVaR": "_loss_function_cvar",
           "Gibbs": "_loss_function_Gibbs"}


def _exclusive(method):
    """One thread at a time per object: another thread entering while a run or a circuit
    execution is in progress gets a RuntimeError instead of mixing its results in."""

    @functools.wraps(method)
    def guarded(self, *args, **kwargs):
        if not self._busy.acquire(blocking=False):
            raise RuntimeError(
                f"this QAOA object is already in {method.__name__} or a run in another thread; "
                "one object serves one thread at a time (make one object per thread)")
        try:
            return method(self, *args, **kwargs)
        finally:
            self._busy.release()

    return guarded


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
        history: the last run's loss evaluations in order, each an ``Evaluation`` (angles,
            loss), the final evaluation of ``run`` included.
        best: the ``Evaluation`` of least loss in ``history`` (None before a run).
        optimizer_result: the last minimiser call's result (see ``run``).

    ``run`` optimises; ``calculate_energy``, ``run_qaoa_circuit``, ``loss_and_gradient`` and
    ``evaluate`` give one energy, one circuit's distribution, a loss with its gradient and the
    losses of many angle vectors.
    """

    # --- the problem --------------------------------------------------------------------------

    def __init__(self, problem, init_circuit=None, mixer_circuit=None, norm=False):
        """Set up a QAOA solver for `problem`.

        problem: a sympy polynomial in binary variables, or a ``corvid.PauliOperator``. Any
            other value is stored and refused by the first run that needs its Hamiltonian.
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
        kind = "other"
        self.problem = problem
        self.operator = None
        if isinstance(problem, sympy.Basic):
            check_objective(problem)
            kind = "symbolic"
            self.problem = sympy.simplify(problem)
            # Counted after simplification: a variable that cancels gets no qubit.
            dimension = len(binary_variables(self.problem))
            self.operator = problem_to_z_operator(self.problem, norm).toHamiltonian(True)
        elif isinstance(problem, corvid.PauliOperator):
            kind = "operator"
            warn_if_not_diagonal(problem)
            self.problem = problem.toHamiltonian(True)
            self.operator = problem.toHamiltonian(True)
            check_finite([c for _, c in self.operator], problem)
            dimension = problem.remapQubitIndex({}).getMaxIndex() + 1
        self.problem_dimension = dimension
        self.init_circuit = init_circuit
        self.mixer_circuit = mixer_circuit
        self.layer = None
        self.iter = 0
        self.circuit_iter = 0
        self.history = []
        self.optimizer_result = None
        self._energy_model = EnergyModel(self.problem, kind, dimension)
        self.energy_dict = EnergyCache(self._energy_model)
        self._busy = threading.RLock()
        self._in_run = False
        # Under an MPI launcher every evaluation runs over the ranks; None: in this process.
        self._ranks = distributed.backend()

    def __getstate__(self):
        state = self.__dict__.copy()
        state.pop("_busy", None)
        state.pop("_ranks", None)
        return state

    def __setstate__(self, state):
        self.__dict__.update(state)
        self._busy = threading.RLock()
        self._ranks = distributed.backend()  # where the copy lives

    # --- energies -----------------------------------------------------------------------------

    def calculate_energy(self, x):
        """Calculate the function value for one solution.

        x: one binary variables solution in vector form (entry i = variable i).

        A symbolic problem gives the polynomial's value at x (an exact int for integer
        coefficients and entries); an operator problem the diagonal entry <x|H|x> (every
        factor counts as Z: +c for bit 0, -c for bit 1); any other problem 0.

        >>> import sympy
        >>> x0, x1, x2 = sympy.symbols("x0 x1 x2")
        >>> QAOA(2*x0*x1 + 3*x2 - 1).calculate_energy([1, 0, 0])
        -1
        """
        return self._energy_model.energy(x)

    def _own_energies(self):
        """True unless a subclass or the instance replaced ``calculate_energy``: only then may
        energies come from the compiled problem instead of calls to it."""
        return (type(self).calculate_energy is QAOA.calculate_energy
                and "calculate_energy" not in self.__dict__)

    def _energies(self, measure_result):
        """The energies of an exact result for the C++ losses (a level table or an array, basis
        order), or None: the losses then walk the keys, and the per-key energies of a sampled
        result are fetched in one call."""
        if not self._own_energies():
            return None
        if self.energy_dict.covers_whole_space(measure_result):
            return self.energy_dict.energies()
        self.energy_dict.prefetch(measure_result)
        return None

    def _energy(self, key):
        return self.energy_dict.energy_of(key, self.calculate_energy)

    @property
    def best(self):
        """The best-ever evaluation of the last run, read from ``history`` so that the two
        agree even when an interrupt lands between evaluations."""
        return lowest(self.history)

    # --- the ansatz ---------------------------------------------------------------------------

    def _init_circuit(self, qlist):
        """The initial-state circuit: a Hadamard layer, or the caller's ``init_circuit(qlist)``."""
        if self.init_circuit is None:
            return corvid.hadamard_circuit(qlist)
        return self.init_circuit(qlist)

    def _phase_circuit(self, qlist):
        """A function of gamma returning the phase circuit exp(-i*gamma*(H - h0)) on `qlist`."""

        def phase(gamma):
            self._check_hamiltonian()
            circuit, _ = pauli_z_operator_to_circuit(self.operator, qlist, gamma)
            return circuit

        return phase

    def _check_hamiltonian(self):
        if self.operator is None:
            raise TypeError("QAOA has no Hamiltonian for a problem of type "
                            f"{type(self.problem).__name__}: give a sympy polynomial or a "
                            "corvid.PauliOperator")
        if not any(qubit_map for qubit_map, _ in self.operator):
            # Stored as given at construction; refused here like a constant polynomial.
            raise constant_problem_error(sum(c for _, c in self.operator))

    def _mixer_circuit(self, qlist):
        """A function of beta returning the mixer circuit on `qlist`.

        The default mixer is RX(-2*beta) on every qubit, exp(+i*beta*sum_k X_k); a caller's
        ``mixer_circuit`` receives (qlist, -2*beta).
        """
        if self.mixer_circuit is None:
            return lambda beta: corvid.RX(qlist, -2 * beta)
        return lambda beta: self.mixer_circuit(qlist, -2 * beta)

    def _qaoa_circuit(self, qlist, gammas, betas):
        """Build, store in ``self.circuit`` and return the ansatz for the first `layer` angles."""
        if self.layer is None:
            self.layer = len(gammas)
        circuit = corvid.QCircuit()
        circuit << self._init_circuit(qlist)
        for i in range(self.layer):
            circuit << self._phase_circuit(qlist)(gammas[i])
            circuit << self._mixer_circuit(qlist)(betas[i])
        self.circuit = circuit
        return circuit

    @_exclusive
    def run_qaoa_circuit(self, gammas, betas, shots=-1):
        """Given parameters, run the qaoa circuit and get the theoretical probability distribution.

        gammas: Parameter gamma for QAOA phase circuit.
        betas: Parameter beta for QAOA mixer circuit.
        shots: Times of running the same circuit. Must be positive integer or -1.

        Returns a mapping from bit string (qubit 0 right-most) to probability. With shots = -1
        it holds every basis state, in ascending order, and is a ``corvid.ProbabilityMap``
        backed by the machine's probability buffer; with shots > 0 it is a dict of observed
        frequencies hits/shots. Under MPI (see ``run``) shots = -1 is refused (the 2^n
        probabilities stay spread over the ranks) and the samples are drawn over the ranks.
        """
        if shots != -1 and not shots > 0:
            raise ValueError("Invalid shots number: " + str(shots))
        if self._ranks is not None:
            layer = len(gammas) if self.layer is None else self.layer
            angles = np.concatenate((np.asarray(gammas[:layer], dtype=float),
                                     np.asarray(betas[:layer], dtype=float)))
            prob_result = self._ranks.samples(self, angles, shots)
            self.circuit_iter += 1
            return prob_result
        qvm = corvid.CPUQVM()
        qvm.init_qvm()
        qlist = qvm.qAlloc_many(self.problem_dimension)
        qaoa_prog = corvid.QProg()
        qaoa_prog << self._qaoa_circuit(qlist, gammas, betas)
        if shots == -1:
            prob_result = qvm.prob_run_dict(qaoa_prog, qlist, -1)
        else:
            clist = qvm.cAlloc_many(self.problem_dimension)
            qaoa_prog << corvid.measure_all(qlist, clist)
            prob_result = qvm.run_with_configuration(qaoa_prog, clist, shots)
            for key in prob_result:
                prob_result[key] = prob_result[key] / shots
        qvm.finalize()
        self.circuit_iter += 1
        return prob_result

    # --- the losses ---------------------------------------------------------------------------

    def _loss_function_default(self, measure_result):
        """Given a result, calculate the energy expectation."""
        return losses.expectation(measure_result, self._energies(measure_result), self._energy)

    def _loss_function_cvar(self, measure_result):
        """Given a result, calculate the CVaR energy expectation (the energy over the `alpha`
        most likely probability mass, not divided by alpha)."""
        losses.check_unit_interval(self.alpha, losses.ALPHA_ERROR)
        return losses.cvar(measure_result, self._energies(measure_result), self._energy,
                           self.alpha)

    def _loss_function_Gibbs(self, measure_result):
        """Given a result, calculate the Gibbs energy expectation: -ln sum_k w_k exp(-E_k / T)."""
        losses.check_unit_interval(self.temperature, losses.TEMPERATURE_ERROR)
        return losses.gibbs(measure_result, self._energies(measure_result), self._energy,
                            self.temperature)

    def _loss_function(self, paras):
        """Given parameters, run the QAOA circuit and calculate the loss function.

        paras: the 2p angles, the p gammas first, then the p betas (split at ``self.layer``).

        Returns the loss of the object's ``loss_type``. Inside ``run`` a loss that is not
        finite stops the run with FloatingPointError; called directly it is returned as is.
        """
        gammas, betas = paras[:self.layer], paras[self.layer:]
        if self._ranks is not None and self.shots == -1:
            result = None
            settings = gradient.loss_settings(self.loss_type, self.alpha, self.temperature)
            loss = self._ranks.loss(self, np.asarray(paras[:2 * self.layer], dtype=float),
                                    settings)
            self.circuit_iter += 1
        else:
            result = self.run_qaoa_circuit(gammas, betas, self.shots)
            if not isinstance(self.loss_type, str) or self.loss_type not in _LOSSES:
                raise ValueError("wrong loss types, only support " + ", ".join(_LOSSES))
            loss = getattr(self, _LOSSES[self.loss_type])(result)
        self.iter += 1
        if self._in_run and not np.isfinite(loss):
            raise FloatingPointError(self._non_finite_message(loss, result))
        return loss

    def _energy_range(self):
        """(least, greatest) energy over all basis states, or None where the energies do not
        come as one table or that table would exceed 2^MAX_TABLE_QUBITS entries."""
        if not self.energy_dict.whole_space:
            return None
        if self._ranks is not None:
            return self._ranks.energy_range(self)
        if self.problem_dimension > MAX_TABLE_QUBITS:
            return None
        energies = self.energy_dict.energies()  # a level table: its levels' range
        return float(energies.min()), float(energies.max())

    def _non_finite_message(self, loss, result):
        if result is None:  # the loss came from all basis states' energies
            low, high = self._energy_range() or (0, 0)
        else:
            energies = self._energies(result)
            if energies is None:
                energies = np.array([self.energy_dict[key] for key in result
                                     if key in self.energy_dict])
            low, high = (float(energies.min()), float(energies.max())) if len(energies) else (0, 0)
        scale = f"energies from {low:g} to {high:g}"
        if self.loss_type == "Gibbs":
            scale += f" at temperature {self.temperature:g}: exp(-E/T) over- or underflows"
        return (f"the {self.loss_type} loss is {loss} ({scale}); the optimiser cannot compare "
                "such values. Remedies: scale the problem down (divide the polynomial; "
                "norm=True rescales only the circuit's Hamiltonian), shift it by a constant so "
                "that its low energies are near 0, or use a higher temperature")

    # --- the public objective ---------------------------------------------------------------

    def _ansatz_description(self):
        """The ansatz for ``corvid.ansatz``, or None where the circuit path must serve (see
        ``gradient.ansatz_description``; also when energies come from the caller's
        ``calculate_energy``)."""
        if not (self._own_energies() and self._energy_model.whole_space):
            return None
        return gradient.ansatz_description(self.operator, self.problem_dimension,
                                           self.mixer_circuit, self.init_circuit,
                                           self._init_circuit)

    def _call_settings(self, loss_type, alpha, temperature):
        """A call's loss settings: each argument, else the object's run setting, else the
        default."""
        return gradient.loss_settings(self.loss_type if loss_type is None else loss_type,
                                      self.alpha if alpha is None else alpha,
                                      self.temperature if temperature is None else temperature)

    def _loss_with(self, paras, settings):
        """The loss through the circuit path under `settings`, exactly; the object's settings
        are restored."""
        saved = (self.loss_type, self.alpha, self.temperature, self.layer, self.shots)
        self.loss_type, self.alpha, self.temperature = settings
        self.layer, self.shots = len(paras) // 2, -1
        try:
            return self._loss_function(paras)
        finally:
            self.loss_type, self.alpha, self.temperature, self.layer, self.shots = saved

    def _check_finite_in_run(self, loss):
        if self._in_run and not np.isfinite(loss):
            raise FloatingPointError(self._non_finite_message(loss, None))

    @_exclusive
    def loss_and_gradient(self, paras, *, loss_type=None, alpha=None, temperature=None):
        """The loss at `paras` and its gradient, from exact probabilities.

        paras: 2p angles, the p gammas then the p betas; p is read from the length.
        loss_type, alpha, temperature: the loss, as in ``run``; each one left out is the
            object's run setting, else the default ("default", 1, 1).

        Returns (loss, gradient), gradient a numpy array of the 2p partial derivatives in the
        order of `paras`. With the X mixer or the XY mixers of ``default_circuits`` and any
        initial state the gradient is exact, by adjoint differentiation in double precision:
        about three and a half evaluations' time and two more states of memory, counted as one
        evaluation (``iter``) and one circuit run (``circuit_iter``). With any other mixer it
        is estimated by central differences (two counted evaluations per angle); under MPI
        (see ``run``) the ranks differentiate together and other mixers are refused. A
        sampling object (shots > 0) is refused with ValueError.
        """
        gradient.require_exact(self.shots, "loss_and_gradient")
        if np.ndim(paras) != 1:
            raise ValueError(f"paras must be one vector of 2p angles, got shape {np.shape(paras)}")
        paras = gradient.angle_matrix(paras, "paras")[0]
        settings = self._call_settings(loss_type, alpha, temperature)
        description = self._ansatz_description()
        if self._ranks is not None:
            loss, grad = self._ranks.loss_and_gradient(self, paras, settings)
        elif description is None:
            return gradient.central_differences(lambda x: self._loss_with(x, settings), paras,
                                                corvid.default_precision())
        else:
            loss, grad = corvid.ansatz.loss_and_gradient(
                energies=self.energy_dict.energies(), angles=paras, loss=settings[0],
                alpha=settings[1], temperature=settings[2], **description)
        self.iter += 1
        self.circuit_iter += 1
        self._check_finite_in_run(loss)
        return float(loss), grad

    @_exclusive
    def evaluate(self, angle_matrix, *, loss_type=None, alpha=None, temperature=None):
        """The losses of k angle vectors in one call, from exact probabilities.

        angle_matrix: k x 2p array, one vector (p gammas, then p betas) per row; p is read
            from the width; a single vector is one row.
        loss_type, alpha, temperature: as in ``loss_and_gradient``.

        Returns a numpy array of k losses. The ansatzes ``loss_and_gradient`` differentiates
        exactly run in one C++ call, small registers one vector per thread; others row by row
        through the circuit. Each row counts as one evaluation and one circuit run. A sampling
        object (shots > 0) is refused with ValueError.
        """
        gradient.require_exact(self.shots, "evaluate")
        matrix = gradient.angle_matrix(angle_matrix, "angle_matrix")
        settings = self._call_settings(loss_type, alpha, temperature)
        description = self._ansatz_description()
        if description is None or self._ranks is not None:
            return np.array([float(self._loss_with(row, settings)) for row in matrix])
        values = corvid.ansatz.losses(
            energies=self.energy_dict.energies(), angles=matrix, loss=settings[0],
            alpha=settings[1], temperature=settings[2], **description)
        self.iter += len(matrix)
        self.circuit_iter += len(matrix)
        return values

    # --- the optimisers -----------------------------------------------------------------------

    def _record(self, paras, loss):
        self.history.append(Evaluation(np.array(paras, dtype=float), float(loss)))

    def _recorded(self, objective):
        """`objective` (returning a loss, or a tuple that starts with it) adding each of its
        evaluations to ``history``."""

        def recorded(paras):
            value = objective(paras)
            self._record(paras, value[0] if isinstance(value, tuple) else value)
            return value

        return recorded

    def _check_bounds(self, initial_para, gamma_bounds, beta_bounds):
        """One (lower, upper) pair per layer for the gammas and for the betas of `initial_para`
        (see ``optimize.layer_bounds``)."""
        layers = len(initial_para) // 2
        return layer_bounds(gamma_bounds, layers), layer_bounds(beta_bounds, layers)

    def _optimize_qaoa_parameter_default(self, initial_para, gamma_bounds, beta_bounds,
                                         **optimize_option):
        """Minimise the loss over the angles from `initial_para`; return the final angles.

        ``optimizer`` "SPSA" uses ``spsa.spsa_minimize``; any other value (None included) is the
        method of ``minimize`` (None: L-BFGS-B, since bounds are always given). Further keyword
        options go to the minimiser unchanged; with ``jac=True`` it gets the loss and its
        gradient from ``loss_and_gradient``. Every evaluation goes to ``history``; the
        minimiser's result to ``optimizer_result`` (SPSA's vector wrapped as an
        ``OptimizeResult``).
        """
        gamma_bounds, beta_bounds = self._check_bounds(initial_para, gamma_bounds, beta_bounds)
        bounds = list(gamma_bounds) + list(beta_bounds)
        objective = self._recorded(self.loss_and_gradient if optimize_option.get("jac") is True
                                   else self._loss_function)
        if self.optimizer == "SPSA":
            reject_duplicates(optimize_option, ("bounds",))
            before = len(self.history)
            x = spsa.spsa_minimize(objective, initial_para, bounds=bounds, **optimize_option)
            self.optimizer_result = spsa_result(x, len(self.history) - before)
            return x
        reject_duplicates(optimize_option, ("bounds", "method"))
        optimize_option = with_difference_step(self.optimizer, optimize_option,
                                                corvid.default_precision())
        result = minimize(objective, initial_para, bounds=bounds,
                          method=self.optimizer, **optimize_option)
        self.optimizer_result = result
        return result.x

    def _optimize_qaoa_parameter_interp(self, initial_para, start_layer=None, gamma_bounds=None,
                                        beta_bounds=None, **optimize_options):
        """Optimise at `start_layer` layers, interpolate to one more layer, optimise again, ...
        up to the object's ``layer``; return the final angles. Bounds are re-derived for every
        stage."""
        if start_layer is None:
            start_layer = 1
        if not is_integer(start_layer):
            raise ValueError("start layer number should be a positive integer")
        if start_layer <= 0 or start_layer > self.layer:
            raise ValueError(
                "start layer number should be a positive integer and less than final layer")
        final_layer = self.layer
        para = np.random.random(2 * start_layer) if initial_para is None else initial_para
        for layer in range(start_layer, final_layer):
            para = para[:2 * layer]
            gamma_stage, beta_stage = self._check_bounds(para, gamma_bounds, beta_bounds)
            self.layer = layer
            optimized = self._optimize_qaoa_parameter_default(para, gamma_stage, beta_stage,
                                                              **optimize_options)
            para = parameter_interpolate(optimized)
        self.layer = final_layer
        gamma_stage, beta_stage = self._check_bounds(para, gamma_bounds, beta_bounds)
        return self._optimize_qaoa_parameter_default(para, gamma_stage, beta_stage,
                                                     **optimize_options)

    def _check_layer_and_generate_initial_para(self, layer=1, initial_para=None):
        """Validate `layer`, store it, and return (starting angles, start layer).

        "default": the starting vector fitted to 2*layer angles (cut, or extended with random
        angles in [0, pi)), or drawn at random; the start layer is None. "interp":
        `initial_para` unchanged and its layer count, which must be below `layer`. Other
        optimize types return None. A starting vector of odd length is refused.
        """
        if not is_integer(layer) or layer <= 0:
            raise ValueError("layer number must be a positive integer")
        if initial_para is not None and len(initial_para) % 2:
            raise ValueError(
                f"initial_para has {len(initial_para)} angles: it needs an even number, the p "
                "gammas followed by the p betas")
        if self.optimize_type == "default":
            self.layer = layer
            return fit_angles(initial_para, layer), None
        if self.optimize_type == "interp":
            if initial_para is None:
                raise ValueError("Interpolation method requires initial parameters.")
            self.layer = layer
            start_layer = len(initial_para) // 2
            if start_layer >= self.layer:
                raise ValueError(
                    "Interpolation method initial parameter size should less than final layer.")
            return initial_para, start_layer
        return None

    # --- the entry point ----------------------------------------------------------------------

    @_exclusive
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
        optimizer_option: keyword arguments for every minimiser call; ``jac=True`` gives a
            scipy minimiser the exact gradient (``loss_and_gradient``, exact runs only).
        loss_option: alpha, temperature, gamma_bounds, beta_bounds (list of (low, high) per
            layer, or one pair for all layers); other keys are ignored.

        Returns (solutions, angles, loss): solutions maps bit strings (qubit 0 right-most) to
        their probability at the optimal angles, iterating by descending probability; angles is
        the optimiser's final vector; loss is the loss at those angles. A loss that is not
        finite during the run raises FloatingPointError.

        Under an MPI launcher (``mpirun -n R``, R a power of two; see ``corvid.mpi`` for when
        distribution is on) every rank runs the same script: the state is spread over the
        ranks, each loss (and gradient) is computed by all of them and every rank gets the same
        value, and the run starts from rank 0's angles and rank 0's state of numpy's global
        generator. With shots = -1 solutions then holds the most probable
        ``distributed.TOP_SOLUTIONS`` (65,536) states only, the same on every rank; with
        shots > 0 each sample is seeded from numpy's global generator, so ``np.random.seed``
        makes a sampled run repeat, on any number of ranks. Refused there with
        NotImplementedError: a mixer_circuit other than those of ``default_circuits``, a
        replaced ``calculate_energy``, ``run_qaoa_circuit`` with shots = -1.

        The run also leaves ``history`` (every loss evaluation, the final one included),
        ``best`` (the least loss among them) and ``optimizer_result``: scipy's
        ``OptimizeResult``, SPSA's final vector wrapped in one, with INTERP the last stage's.
        An exception in the minimiser (KeyboardInterrupt included) propagates after setting
        ``optimizer_result`` to an unsuccessful result holding the best point so far; the
        history up to it stays.
        """
        self.loss_type = "default" if loss_type is None else loss_type
        self.optimize_type = "default" if optimize_type is None else optimize_type
        self.optimizer = optimizer
        self.alpha = loss_option.get("alpha", 1)
        self.temperature = loss_option.get("temperature", 1)
        self.shots = shots
        if not (optimizer is None or isinstance(optimizer, str) or callable(optimizer)):
            raise TypeError("optimizer must be None, 'SPSA' or a scipy.optimize.minimize method "
                            f"(a name or a callable), not {type(optimizer).__name__} "
                            f"{optimizer!r}")
        checked = self._check_layer_and_generate_initial_para(layer, initial_para)
        if self.optimize_type not in ("default", "interp"):
            raise ValueError("wrong optimize type, only support default, interp")
        initial_para, start_layer = checked
        if optimizer_option is None:
            optimizer_option = {}
        gamma_bounds = loss_option.get("gamma_bounds")
        beta_bounds = loss_option.get("beta_bounds")
        if self._ranks is not None:  # every rank starts where rank 0 does and draws alike
            initial_para, optimizer_option = self._ranks.start(initial_para, self.optimizer,
                                                               optimizer_option)
        self.history = []
        self.optimizer_result = None
        self._in_run = True
        try:
            try:
                if self.optimize_type == "default":
                    para_result = self._optimize_qaoa_parameter_default(
                        initial_para, gamma_bounds, beta_bounds, **optimizer_option)
                else:
                    para_result = self._optimize_qaoa_parameter_interp(
                        initial_para, start_layer, gamma_bounds, beta_bounds, **optimizer_option)
            except BaseException as error:
                self.optimizer_result = stopped_result(self.best, len(self.history), error)
                raise
            p = self.layer
            # The loss first: its circuit's state and table are gone before the result's run,
            # so the two never share memory.
            loss_result = self._loss_function(para_result)
            self._record(para_result, loss_result)
            if self._ranks is not None and self.shots == -1:
                qaoa_result = self._ranks.solutions(self)
            else:
                qaoa_result = self.run_qaoa_circuit(para_result[:p], para_result[p:], self.shots)
        finally:
            self._in_run = False
        return by_descending_probability(qaoa_result), para_result, loss_result


__all__ = [
    "QAOA",
    "p_0",
    "p_1",
    "problem_to_z_operator",
    "parameter_interpolate",
    "pauli_z_operator_to_circuit",
] + list(_default_circuits.__all__)
