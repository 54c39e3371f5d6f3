import collections.abc
import math

import numpy as np
import pytest

import corvid
from corvid import CNOT, CPUQVM, H, QCircuit, QProg, X, measure_all
from dense_reference import key, marginal, simulate

ONE = ["I", "H", "X", "Y", "Z", "S", "T", "RX", "RY", "RZ", "P"]
TWO = ["CNOT", "CZ", "SWAP", "RXX", "RYY", "RZZ"]
ANGLED = {"RX", "RY", "RZ", "P", "RXX", "RYY", "RZZ"}


def random_gates(rng, n, count):
    """(name, qubits, params) triples using every gate kind that fits on n qubits."""
    names = ONE + (TWO if n >= 2 else [])
    names = names + list(rng.choice(names, size=max(0, count - len(names))))
    rng.shuffle(names)
    gates = []
    for name in names:
        k = 2 if name in TWO else 1
        qubits = tuple(int(q) for q in rng.choice(n, size=k, replace=False))
        params = (float(rng.uniform(-2 * np.pi, 2 * np.pi)),) if name in ANGLED else ()
        gates.append((str(name), qubits, params))
    return gates


def to_circuit(gates, qubits):
    c = QCircuit()
    for name, idx, params in gates:
        c << getattr(corvid, name)(*[qubits[i] for i in idx], *params)
    return c


@pytest.mark.parametrize("n", [1, 2, 3, 4, 5, 6])
def test_random_circuits_match_the_dense_reference(rng, n):
    for _ in range(4):
        gates = random_gates(rng, n, 30)
        qvm = CPUQVM()
        q = qvm.qAlloc_many(n)
        result = qvm.prob_run_dict(QProg() << to_circuit(gates, q), q)
        want = simulate(gates, n)
        np.testing.assert_allclose(qvm.state_vector(), want, rtol=0, atol=1e-12)
        np.testing.assert_allclose(result.probabilities, np.abs(want) ** 2, rtol=0, atol=1e-12)
        assert list(result) == [key(i, n) for i in range(2**n)]
        qvm.finalize()


def test_marginals_on_subsets_in_any_order(rng):
    n = 6
    gates = random_gates(rng, n, 40)
    qvm = CPUQVM()
    q = qvm.qAlloc_many(n)
    prog = QProg() << to_circuit(gates, q)
    state = simulate(gates, n)
    for subset in ([0], [5], [3, 1], [0, 2, 4], [5, 4, 3, 2, 1, 0], list(rng.permutation(n)[:4])):
        result = qvm.prob_run_dict(prog, [q[int(i)] for i in subset])
        assert result.num_qubits == len(subset)
        assert all(len(k) == len(subset) for k in result)
        np.testing.assert_allclose(result.probabilities, marginal(state, n, subset), atol=1e-12)


def test_key_format_puts_the_first_listed_qubit_right_most():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(3)
    prog = QProg() << X(q[0])
    assert qvm.prob_run_dict(prog, q)["001"] == 1.0
    assert qvm.prob_run_dict(prog, [q[2], q[1], q[0]])["100"] == 1.0
    assert dict(qvm.prob_run_dict(prog, [q[1], q[0]])) == {"00": 0.0, "01": 0.0, "10": 1.0, "11": 0.0}


def test_select_max_keeps_the_first_entries_in_basis_order():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(3)
    prog = QProg() << H(q[0]) << X(q[2])
    full = qvm.prob_run_dict(prog, q, -1)
    head = qvm.prob_run_dict(prog, q, 5)
    assert list(head) == ["000", "001", "010", "011", "100"]
    assert list(head.values()) == list(full.values())[:5]
    assert "101" not in head and head.get("101") is None
    assert len(qvm.prob_run_dict(prog, q, select_max=1000)) == 8
    for bad in (0, -2, 1.5, "3", None):
        with pytest.raises(ValueError, match="select_max"):
            qvm.prob_run_dict(prog, q, bad)


def test_probability_map_is_a_read_only_mapping():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(2)
    m = qvm.prob_run_dict(QProg() << H(q[0]) << CNOT(q[0], q[1]), q)
    assert isinstance(m, corvid.ProbabilityMap)
    assert isinstance(m, collections.abc.Mapping)
    plain = dict(m)
    assert plain == pytest.approx({"00": 0.5, "01": 0.0, "10": 0.0, "11": 0.5}, abs=1e-15)
    assert m == plain and plain == m and not (m != plain)
    assert m != {**plain, "11": 0.4} and m != {"00": 1.0} and m != {**plain, "xx": 0.0}
    assert m == qvm.prob_run_dict(QProg() << H(q[0]) << CNOT(q[0], q[1]), q)
    assert m != 3 and m != [("00", 0.5)]
    assert len(m) == 4 and list(m.keys()) == ["00", "01", "10", "11"]
    assert list(m.items()) == list(plain.items()) and list(m.values()) == list(plain.values())
    assert "11" in m.keys() and ("00", m["00"]) in m.items()
    for missing in ("2", "000", "0", "1x", 3, None, b"00"):
        assert missing not in m and m.get(missing, -1) == -1
        with pytest.raises(KeyError):
            m[missing]
    with pytest.raises(TypeError):
        m["00"] = 1.0
    with pytest.raises(ValueError):
        m.probabilities[0] = 1.0
    assert "ProbabilityMap({'00': " in repr(m)


def test_probability_view_is_zero_copy_and_keeps_the_buffer_alive():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(12)
    m = qvm.prob_run_dict(QProg() << H(q), q)
    a, b = m.probabilities, m.probabilities
    assert a.dtype == np.float64 and a.shape == (4096,)
    assert np.shares_memory(a, b)
    assert a.ctypes.data % 64 == 0
    del m
    qvm.finalize()
    del qvm
    np.testing.assert_allclose(a, 1 / 4096, rtol=1e-12)


@pytest.mark.parametrize("seed", [1, 2])
def test_sampled_frequencies_are_within_five_sigma(rng, seed):
    n, shots = 4, 40000
    gates = random_gates(rng, n, 25)
    qvm = CPUQVM(seed=seed)
    q, c = qvm.qAlloc_many(n), qvm.cAlloc_many(n)
    counts = qvm.run_with_configuration(QProg() << to_circuit(gates, q) << measure_all(q, c), c, shots)
    assert type(counts) is dict
    assert list(counts) == sorted(counts)
    assert sum(counts.values()) == shots
    p = np.abs(simulate(gates, n)) ** 2
    for i in range(2**n):
        hits = counts.get(key(i, n), 0)
        if p[i] < 1e-15:
            assert hits == 0
        else:
            sigma = math.sqrt(shots * p[i] * (1 - p[i]))
            assert abs(hits - shots * p[i]) <= 5 * sigma + 1, (key(i, n), hits, shots * p[i])


def test_sampling_reads_bits_in_clist_order():
    qvm = CPUQVM(seed=5)
    q, c = qvm.qAlloc_many(3), qvm.cAlloc_many(3)
    prog = QProg() << X(q[0]) << H(q[2]) << corvid.Measure(q[0], c[1]) << corvid.Measure(q[2], c[0])
    counts = qvm.run_with_configuration(prog, c, 200)
    assert set(counts) == {"010", "011"}  # c2 is never written, c1 holds q0 = 1
    assert qvm.run_with_configuration(prog, [c[1]], 7) == {"1": 7}
    assert qvm.run_with_configuration(QProg() << X(q[1]) << measure_all(q, c), c, 1) == {"010": 1}


def test_seeded_sampling_is_reproducible():
    def sample(seed):
        qvm = CPUQVM(seed=seed)
        q, c = qvm.qAlloc_many(3), qvm.cAlloc_many(3)
        prog = QProg() << H(q) << corvid.RY(q[1], 0.4) << measure_all(q, c)
        return [qvm.run_with_configuration(prog, c, 300) for _ in range(2)]

    first = sample(11)
    assert first == sample(11)
    assert first[0] != first[1]  # the generator moves on between runs


@pytest.mark.parametrize("shots", [0, -1, -2, 2.5, "10", None, True])
def test_bad_shots(shots):
    qvm = CPUQVM()
    q, c = qvm.qAlloc_many(1), qvm.cAlloc_many(1)
    with pytest.raises(ValueError, match="shots"):
        qvm.run_with_configuration(QProg() << H(q[0]) << measure_all(q, c), c, shots)


def test_finalized_machine_refuses_every_use():
    qvm = CPUQVM()
    q, c = qvm.qAlloc_many(2), qvm.cAlloc_many(2)
    prog = QProg() << H(q[0])
    qvm.prob_run_dict(prog, q)
    qvm.finalize()
    calls = [
        lambda: qvm.prob_run_dict(prog, q),
        lambda: qvm.run_with_configuration(prog, c, 10),
        lambda: qvm.qAlloc_many(1),
        lambda: qvm.cAlloc_many(1),
        lambda: qvm.state_vector(),
        lambda: qvm.init_qvm(),
    ]
    for call in calls:
        with pytest.raises(ValueError, match="finalized"):
            call()
    qvm.finalize()


def test_foreign_qubits_are_refused_and_plain_ints_accepted():
    a, b = CPUQVM(), CPUQVM()
    qa, qb = a.qAlloc_many(2), b.qAlloc_many(2)
    with pytest.raises(ValueError, match="another machine"):
        a.prob_run_dict(QProg() << H(qb[0]), qa)
    with pytest.raises(ValueError, match="another machine"):
        a.prob_run_dict(QProg() << H(qa[0]), qb)
    ca, cb = a.cAlloc_many(1), b.cAlloc_many(1)
    with pytest.raises(ValueError, match="another machine"):
        b.run_with_configuration(QProg() << corvid.Measure(0, ca[0]), cb, 1)
    plain = QProg() << X(1)
    assert a.prob_run_dict(plain, [0, 1])["10"] == 1.0
    assert b.prob_run_dict(plain, qb)["10"] == 1.0
    # After init_qvm the machine starts over and its old handles are foreign too.
    a.init_qvm()
    a.qAlloc_many(2)
    with pytest.raises(ValueError, match="another machine"):
        a.prob_run_dict(plain, qa)


def test_indices_beyond_the_register_are_index_errors():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(2)
    c = qvm.cAlloc_many(1)
    with pytest.raises(IndexError, match="qubit 2"):
        qvm.prob_run_dict(QProg() << H(2), q)
    with pytest.raises(IndexError):
        qvm.prob_run_dict(QProg(), [0, 5])
    with pytest.raises(IndexError):
        qvm.run_with_configuration(QProg() << corvid.Measure(q[0], 3), c, 1)
    with pytest.raises(ValueError, match="more than once"):
        qvm.prob_run_dict(QProg(), [q[0], q[0]])


def test_allocation_appends_and_is_checked():
    qvm = CPUQVM()
    a = qvm.qAlloc_many(2)
    b = qvm.qAlloc_many(2)
    assert [x.addr for x in a + b] == [0, 1, 2, 3]
    assert qvm.qAlloc_many(0) == []
    m = qvm.prob_run_dict(QProg() << X(b[1]), a + b)
    assert m["1000"] == 1.0
    assert qvm.state_vector().shape == (16,)
    for bad in (-1, 1.0, "2"):
        with pytest.raises(ValueError):
            qvm.qAlloc_many(bad)


@pytest.mark.parametrize("n", [40, 63, 64, 200])
def test_huge_register_is_a_memory_error_before_allocating(n):
    qvm = CPUQVM()
    with pytest.raises(MemoryError, match=f"state vector of {n} qubits"):
        qvm.qAlloc_many(n)
    assert qvm.qAlloc_many(1)[0].addr == 0  # the refused request allocated nothing
    qvm.qAlloc_many(20)
    with pytest.raises(MemoryError, match=f"state vector of {21 + n} qubits"):
        qvm.qAlloc_many(n)


def test_state_vector_is_a_copy():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(2)
    with pytest.raises(ValueError, match="no program"):
        qvm.state_vector()
    qvm.prob_run_dict(QProg() << H(q[1]), q)
    s = qvm.state_vector()
    assert s.dtype == np.complex128
    s[:] = 0
    np.testing.assert_allclose(qvm.state_vector(), [2**-0.5, 0, 2**-0.5, 0], atol=1e-15)
