"""Running the ansatz on a fresh machine, exactly or by sampling. A method of ``QAOA``."""

import corvid


def run_qaoa_circuit(self, gammas, betas, shots=-1):
    """Given parameters, run the qaoa circuit and get the theoretical probability distribution.

    gammas: Parameter gamma for QAOA phase circuit.
    betas: Parameter beta for QAOA mixer circuit.
    shots: Times of running the same circuit. Must be positive integer or -1.

    Returns a mapping from bit string (qubit 0 right-most) to probability. With shots = -1 it
    holds every basis state, in ascending order, and is a ``corvid.ProbabilityMap`` backed by the
    machine's probability buffer; with shots > 0 it is a dict of observed frequencies hits/shots.
    """
    qvm = corvid.CPUQVM()
    qvm.init_qvm()
    qlist = qvm.qAlloc_many(self.problem_dimension)
    qaoa_prog = corvid.QProg()
    qaoa_prog << self._qaoa_circuit(qlist, gammas, betas)
    if shots == -1:
        prob_result = qvm.prob_run_dict(qaoa_prog, qlist, -1)
    elif shots > 0:
        clist = qvm.cAlloc_many(self.problem_dimension)
        qaoa_prog << corvid.measure_all(qlist, clist)
        prob_result = qvm.run_with_configuration(qaoa_prog, clist, shots)
        for key in prob_result:
            prob_result[key] = prob_result[key] / shots
    else:
        raise ValueError("Invalid shots number: " + str(shots))
    qvm.finalize()
    self.circuit_iter += 1
    return prob_result
