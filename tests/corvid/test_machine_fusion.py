import numpy as np
import pytest

import corvid
from corvid import CPUQVM
from reference import marginal, run_on_machine, simulate


def qaoa_gates(edges, n, gammas, betas, scaled=False):
    """(name, qubits, params) triples of a QAOA circuit; scaled: RZ params are (2w, gamma), the
    angle and its scale, as the algorithm module builds them."""
    gates = [("H", (q,), ()) for q in range(n)]
    for gamma, beta in zip(gammas, betas):
        for (a, b), w in edges.items():
            rz = (2 * w, gamma) if scaled else (2 * w * gamma,)
            gates += [("CNOT", (a, b), ()), ("RZ", (b,), rz), ("CNOT", (a, b), ())]
        gates += [("I", (q,), ()) for q in range(n)]
        gates += [("RX", (q,), (-2 * beta,)) for q in range(n)]
    return gates


def run(gates, n):
    qvm, probs = run_on_machine(gates, n)
    return qvm.state_vector(), probs.probabilities.copy(), qvm.last_run_timings()


def random_edges(rng, n, count):
    count = min(count, n * (n - 1) // 2)
    edges = {}
    while len(edges) < count:
        a, b = sorted(int(x) for x in rng.choice(n, 2, replace=False))
        edges[(a, b)] = float(rng.uniform(-1, 1))
    return edges


def test_new_gamma_reuses_the_cost_diagonal():
    edges = {(0, 1): 1.0, (1, 2): 2.0, (0, 3): 1.0, (2, 3): 1.0}
    run(qaoa_gates(edges, 4, [0.3], [0.2], scaled=True), 4)
    before = corvid.diagonal_cache_info()
    state, _, timings = run(qaoa_gates(edges, 4, [-1.7], [0.9], scaled=True), 4)
    after = corvid.diagonal_cache_info()
    assert after["misses"] == before["misses"]
    assert after["hits"] == before["hits"] + 1
    run(qaoa_gates(edges, 4, [-1.7], [0.9]), 4)  # unscaled angles are a key of their own
    assert corvid.diagonal_cache_info()["misses"] == after["misses"] + 1
    np.testing.assert_allclose(state, simulate(qaoa_gates(edges, 4, [-1.7], [0.9]), 4), atol=1e-12)
    assert set(timings) == {"compile", "init", "diagonal", "layer", "gates", "probabilities"}
    assert all(v >= 0 for v in timings.values())


@pytest.mark.parametrize("n", [2, 7, 15])
def test_single_precision_follows_double(rng, n):
    edges = random_edges(rng, n, n)
    gates = qaoa_gates(edges, n, rng.uniform(-2, 2, 2), rng.uniform(-2, 2, 2))
    gates.append(("RXX", (0, 1), (0.3,)))  # a plain gate on the single-precision path
    want = np.abs(simulate(gates, n)) ** 2 if n < 10 else run(gates, n)[1]
    qvm, result = run_on_machine(gates, n, precision="single")
    assert qvm.precision == "single" and qvm.last_run_timings()["gates"] > 0  # the RXX
    np.testing.assert_allclose(result.probabilities, want, rtol=0, atol=2e-6)
    # The full table was written over the state, which can no longer be read.
    with pytest.raises(ValueError, match="probability table"):
        qvm.state_vector()
    # A marginal leaves the state in place.
    qvm, listed = run_on_machine(gates, n, [n - 1, 0], precision="single")
    assert qvm.state_vector().dtype == np.complex128
    np.testing.assert_allclose(listed.probabilities, marginal(want, [n - 1, 0]), atol=2e-6)


def test_default_precision_applies_to_new_machines_only():
    before = CPUQVM()
    try:
        corvid.set_default_precision("single")
        assert corvid.default_precision() == "single"
        assert CPUQVM().precision == "single"
        assert CPUQVM(precision="double").precision == "double"
        assert before.precision == "double"
    finally:
        corvid.set_default_precision("double")
