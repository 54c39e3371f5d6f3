import collections.abc
import math

import numpy as np
import pytest

import corvid
from corvid import CNOT, CPUQVM, H, QProg, X, measure_all
from reference import keys, sdk_circuit, simulate


def test_keys_put_the_first_listed_qubit_right_most_and_select_max_keeps_the_first():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(3)
    prog = QProg() << X(q[0])
    assert qvm.prob_run_dict(prog, q)["001"] == 1.0
    assert qvm.prob_run_dict(prog, [q[2], q[1], q[0]])["100"] == 1.0
    assert dict(qvm.prob_run_dict(prog, [q[1], q[0]])) == {"00": 0.0, "01": 0.0, "10": 1.0, "11": 0.0}
    prog << H(q[1]) << X(q[2])
    full, head = qvm.prob_run_dict(prog, q, -1), qvm.prob_run_dict(prog, q, 5)
    assert list(head) == ["000", "001", "010", "011", "100"]
    assert list(head.values()) == list(full.values())[:5]
    assert "101" not in head and head.get("101") is None
    assert len(qvm.prob_run_dict(prog, q, select_max=1000)) == 8
    state = qvm.state_vector()  # a copy
    state[:] = 0
    assert np.count_nonzero(qvm.state_vector()) == 2


def test_probability_map_is_a_read_only_mapping():
    qvm = CPUQVM()
    q = qvm.qAlloc_many(2)
    m = qvm.prob_run_dict(QProg() << H(q[0]) << CNOT(q[0], q[1]), q)
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


def test_sampled_frequencies_are_within_five_sigma():
    n, shots = 4, 40000
    gates = [("H", (q,), ()) for q in range(n)] + [("RY", (1,), (0.7,)), ("CNOT", (1, 2), ()),
                                                   ("RZZ", (0, 3), (0.4,)), ("RX", (3,), (2.1,))]
    qvm = CPUQVM(seed=1)
    q, c = qvm.qAlloc_many(n), qvm.cAlloc_many(n)
    counts = qvm.run_with_configuration(QProg() << sdk_circuit(gates, q) << measure_all(q, c), c, shots)
    assert type(counts) is dict
    assert list(counts) == sorted(counts)
    assert sum(counts.values()) == shots
    p = np.abs(simulate(gates, n)) ** 2
    for i, k in enumerate(keys(n)):
        hits = counts.get(k, 0)
        if p[i] < 1e-15:
            assert hits == 0
        else:
            sigma = math.sqrt(shots * p[i] * (1 - p[i]))
            assert abs(hits - shots * p[i]) <= 5 * sigma + 1, (k, hits, shots * p[i])


def sample(seed):
    """Two runs of one program on a machine seeded with seed, one reading c1 only, one of measure_all."""
    qvm = CPUQVM(seed=seed)
    q, c = qvm.qAlloc_many(3), qvm.cAlloc_many(3)
    prog = QProg() << X(q[0]) << H(q[2]) << corvid.Measure(q[0], c[1]) << corvid.Measure(q[2], c[0])
    return [qvm.run_with_configuration(prog, c, 300) for _ in range(2)] + [
        qvm.run_with_configuration(prog, [c[1]], 7),
        qvm.run_with_configuration(QProg() << X(q[1]) << measure_all(q, c), c, 1)]


def test_sampling_reads_bits_in_clist_order_and_repeats_by_seed():
    first = sample(11)
    assert set(first[0]) == {"010", "011"}  # c2 is never written, c1 holds q0 = 1
    assert first[2:] == [{"1": 7}, {"010": 1}]
    assert first == sample(11)
    assert first[0] != first[1]  # the generator moves on between runs


def test_plain_ints_run_anywhere_and_init_qvm_makes_old_handles_foreign():
    a, b = CPUQVM(), CPUQVM()
    qa, qb = a.qAlloc_many(2), b.qAlloc_many(2)
    ca, cb = a.cAlloc_many(1), b.cAlloc_many(1)
    with pytest.raises(ValueError, match="another machine"):
        b.run_with_configuration(QProg() << corvid.Measure(0, ca[0]), cb, 1)
    plain = QProg() << X(1)
    assert a.prob_run_dict(plain, [0, 1])["10"] == 1.0
    assert b.prob_run_dict(plain, qb)["10"] == 1.0
    a.init_qvm()
    a.qAlloc_many(2)
    with pytest.raises(ValueError, match="another machine"):
        a.prob_run_dict(plain, qa)


