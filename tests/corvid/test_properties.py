import numpy as np
from hypothesis import given, settings, strategies as st

import corvid
from reference import ONE, ONE_ANGLED, TWO, TWO_ANGLED, diagonal_of_terms, marginal, run_on_machine, simulate

bounded = settings(max_examples=50, deadline=None)

angles = st.floats(-4 * np.pi, 4 * np.pi, allow_nan=False)


@st.composite
def gates(draw, n):
    """(name, qubits, params) with runs that the machine fuses (diagonals, CNOT ladders,
    one-qubit layers) as likely as isolated gates."""
    names = ONE + ONE_ANGLED + (TWO + TWO_ANGLED if n >= 2 else [])
    name = draw(st.sampled_from(names))
    k = 2 if name in TWO + TWO_ANGLED else 1
    qubits = tuple(draw(st.lists(st.integers(0, n - 1), min_size=k, max_size=k, unique=True)))
    params = (draw(angles),) if name in ONE_ANGLED + TWO_ANGLED else ()
    return name, qubits, params


@st.composite
def layered_gates(draw, n):
    """Blocks of the kinds the compiler rewrites: a rotation on every qubit, or a phase gadget."""
    kind = draw(st.sampled_from(["layer", "gadget", "single"]))
    if kind == "layer":
        name = draw(st.sampled_from(["RX", "RY", "H"]))
        theta = draw(angles)
        return [(name, (q,), (theta,) if name != "H" else ()) for q in range(n)]
    if kind == "gadget" and n >= 2:
        chain = draw(st.permutations(range(n)))[: draw(st.integers(2, n))]
        ladder = [("CNOT", (a, b), ()) for a, b in zip(chain, chain[1:])]
        return ladder + [("RZ", (chain[-1],), (draw(angles),))] + ladder[::-1]
    return [draw(gates(n))]


@st.composite
def circuits(draw):
    n = draw(st.integers(1, 6))
    blocks = draw(st.lists(layered_gates(n), max_size=12))
    return n, [g for block in blocks for g in block]


@bounded
@given(circuits(), st.data())
def test_machine_matches_the_dense_reference(circuit, data):
    n, gate_list = circuit
    listed = data.draw(st.permutations(range(n)))[: data.draw(st.integers(1, n))]
    qvm, probs = run_on_machine(gate_list, n, listed)
    want = simulate(gate_list, n)
    np.testing.assert_allclose(qvm.state_vector(), want, atol=1e-10)
    np.testing.assert_allclose(probs.probabilities, marginal(np.abs(want) ** 2, listed), atol=1e-12)
    assert abs(probs.probabilities.sum() - 1) < 1e-12


@bounded
@given(st.lists(st.tuples(st.lists(st.integers(0, 4), max_size=4), st.integers(-5, 5)), max_size=6))
def test_binary_polynomial_diagonal_is_the_polynomial(monomials):
    op = corvid.binary_polynomial_to_z_operator(monomials)
    assert all(c != 0 and set(key) <= set("Z0123456789 ") for key, c in op)
    values = [sum(c for vs, c in monomials if all((x >> v) & 1 for v in vs)) for x in range(32)]
    np.testing.assert_array_equal(diagonal_of_terms(op, 5), values)
