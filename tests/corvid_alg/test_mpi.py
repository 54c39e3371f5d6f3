"""QAOA and corvid-qaoa under mpirun give what one process gives. Run as a script (by mpirun),
this file prints rank 0's results of CASES, SAMPLED and REFUSED; the tests compare them with
the same cases in this process, and the sampled run across rank counts."""

import functools
import json
import os
import pickle
import shutil
import subprocess
import sys
from itertools import islice
from pathlib import Path

import numpy as np
import pytest
import sympy
from scipy.optimize import OptimizeResult

import corvid
from corvid_alg.QAOA.qaoa import QAOA, w_state, xy_complete_mixer, xy_ring_mixer
from corvid_alg.QAOA.solving import solve

ROOT = Path(__file__).resolve().parents[2]


def _tilted(qubits):  # a custom initial state: no two amplitudes alike, one entangling gate
    circuit = corvid.QCircuit()
    for k, q in enumerate(qubits):
        circuit << corvid.RY(q, 0.4 + 0.23 * k)
    return circuit << corvid.CNOT(qubits[0], qubits[-1])


MIXERS = {"x": None, "ring": xy_ring_mixer, "complete": xy_complete_mixer}
INITIAL = {"h": None, "tilted": _tilted, "w": w_state}
# (qubits, p, problem form, mixer, initial state, loss options): polynomials of degree 3 and
# Z-term operators, with fields so that no two states tie by symmetry.
CASES = [(16, 6, "operator", "x", "h", {}),
         (12, 3, "operator", "ring", "tilted", {"loss_type": "CVaR", "alpha": 0.3}),
         (9, 2, "operator", "complete", "w", {"loss_type": "Gibbs", "temperature": 0.5}),
         (5, 4, "polynomial", "x", "tilted", {"loss_type": "CVaR", "alpha": 0.6}),
         (7, 5, "polynomial", "ring", "h", {"loss_type": "Gibbs", "temperature": 0.2}),
         (10, 1, "operator", "complete", "h", {})]
SAMPLED = (6, 2, "polynomial", "ring", "tilted", {"loss_type": "CVaR", "alpha": 0.2})
# What stays refused under MPI, and the words the refusal names it by.
REFUSED = {
    "a mixer_circuit other than": lambda q: q.__setattr__("mixer_circuit", corvid.RX),
    "a replaced calculate_energy": lambda q: q.__setattr__("calculate_energy", sum),
    "shots=-1": lambda q: q.run_qaoa_circuit([0.1], [0.2]),
}


def _stay(fun, x0, args=(), **unused):  # a minimiser that evaluates its start only
    return OptimizeResult(x=x0, fun=fun(x0), success=True, nit=0)


def _problem(n, p, form):
    rng = np.random.default_rng(n * 10 + p)
    masks = [rng.choice(n, size=rng.integers(1, 4), replace=False) for _ in range(3 * n)]
    weights = rng.uniform(-1, 1, size=len(masks))
    if form == "operator":
        return corvid.PauliOperator({" ".join(f"Z{q}" for q in m): w
                                     for m, w in zip(masks, weights)}), rng
    x = sympy.symbols(f"x:{n}")
    return sum(round(w, 3) * sympy.Mul(*(x[q] for q in m)) for m, w in zip(masks, weights)), rng


def _qaoa(n, p, form, mixer, initial):
    problem, rng = _problem(n, p, form)
    qaoa = QAOA(problem, mixer_circuit=MIXERS[mixer], init_circuit=INITIAL[initial])
    return qaoa, problem, rng.uniform(0, 1, 2 * p)


def run_case(n, p, form, mixer, initial, loss):
    qaoa, problem, start = _qaoa(n, p, form, mixer, initial)
    value, grad = qaoa.loss_and_gradient(start, **loss)
    rows = qaoa.evaluate([start, start[::-1]], **loss)
    solutions, _, final = qaoa.run(layer=p, initial_para=start, optimizer=_stay, **loss)
    copied = pickle.loads(pickle.dumps(qaoa)).evaluate(start, **loss)[0]  # its own evaluation
    qaoa.mixer_circuit = xy_ring_mixer if mixer == "x" else None  # another ansatz
    switched = qaoa.evaluate(start, **loss)[0]
    solved = solve(problem, p, initial_para=start, optimizer=_stay, init_circuit=INITIAL[initial],
                   mixer_circuit=MIXERS[mixer], **loss)
    return {"values": [value, *grad, *rows, final, copied, switched, solved.expected_energy,
                       solved.optimum_probability],
            "solutions": solutions, "count": len(solutions),
            "ranks": corvid.mpi.size()}


def sampled_run(n, p, form, mixer, initial, loss):
    qaoa, _, _ = _qaoa(n, p, form, mixer, initial)
    np.random.seed(5)
    solutions, angles, value = qaoa.run(layer=p, shots=20000, optimizer="COBYLA",
                                        optimizer_option={"options": {"maxiter": 6}}, **loss)
    return {"solutions": solutions, "angles": list(angles), "loss": value,
            "history": [e.loss for e in qaoa.history]}


def refusals():
    found = {}
    for words, act in REFUSED.items():
        qaoa, _, _ = _qaoa(5, 1, "polynomial", "x", "h")
        try:
            act(qaoa)
            qaoa.run(layer=1)
        except NotImplementedError as error:
            found[words] = str(error)
    return found


def _mpirun(ranks, args, tmp_path):
    env = {k: v for k, v in os.environ.items() if k != "CORVID_MPI"}
    env.update(TMPDIR=str(tmp_path), OMPI_ALLOW_RUN_AS_ROOT="1", OMP_NUM_THREADS="1",
               OMPI_ALLOW_RUN_AS_ROOT_CONFIRM="1", OMPI_MCA_rmaps_base_oversubscribe="1",
               PYTHONPATH=os.pathsep.join(sys.path))
    if ranks == 1:
        env["CORVID_MPI"] = "1"  # one rank is not distributed unless asked
    done = subprocess.run([shutil.which("mpirun") or "mpirun", "-n", str(ranks), sys.executable,
                           *args], env=env, capture_output=True, text=True, timeout=300, cwd=ROOT)
    assert done.returncode == 0, done.stderr
    return done.stdout


def _built():
    try:
        from corvid import _mpi  # noqa: F401
    except ImportError:
        return False
    return shutil.which("mpirun") is not None


pytestmark = pytest.mark.skipif(not _built(), reason="corvid built without MPI, or no mpirun")


@pytest.fixture(scope="module")
def spread(tmp_path_factory):
    """Rank 0's results of this file run as a script on a given number of ranks (one launch
    per rank count)."""
    return functools.cache(
        lambda ranks: json.loads(_mpirun(ranks, [__file__], tmp_path_factory.mktemp("mpi"))))


@pytest.fixture(scope="module")
def alone():  # the cases in this process
    return [run_case(*case) for case in CASES]


@pytest.mark.parametrize("ranks", [1, 2, 4])
def test_matches_one_process(ranks, spread, alone):
    results = spread(ranks)
    for case, got, want in zip(CASES, results["cases"], alone):
        assert got["ranks"] == ranks and got["count"] == want["count"]
        assert got["values"] == pytest.approx(want["values"], abs=1e-12), case
        for key, probability in got["solutions"].items():
            assert probability == pytest.approx(want["solutions"][key], abs=1e-12), key
    assert sorted(results["refused"]) == sorted(REFUSED)
    for words, message in results["refused"].items():
        assert words in message and "MPI" in message


def test_sampling_is_the_same_on_every_rank_count(spread):
    one, *more = (spread(ranks)["sampled"] for ranks in (1, 2, 4))
    assert all(run == one for run in more)
    # The final samples follow the exact distribution at the final angles (bit order included).
    qaoa, _, _ = _qaoa(*SAMPLED[:5])
    qaoa.layer = SAMPLED[1]
    exact = qaoa.run_qaoa_circuit(one["angles"][:SAMPLED[1]], one["angles"][SAMPLED[1]:])
    assert sum(one["solutions"].values()) == pytest.approx(1)
    distance = sum(abs(one["solutions"].get(key, 0) - p) for key, p in exact.items()) / 2
    assert distance < 0.05


def test_command_line_matches_one_process(tmp_path):
    args = ["-m", "corvid_alg.QAOA", "--maxcut", "examples/maxcut14.txt", "--seed", "7", "--json"]
    spread = json.loads(_mpirun(4, args, tmp_path))  # one document: rank 0 alone prints
    alone = json.loads(subprocess.run([sys.executable, *args], capture_output=True, text=True,
                                      check=True, cwd=ROOT, timeout=300).stdout)
    # The optimiser's finite differences magnify rounding: the angles agree to about 1e-7.
    assert spread["loss"] == pytest.approx(alone["loss"], abs=1e-11)
    assert [s["bits"] for s in spread["solutions"]] == [s["bits"] for s in alone["solutions"]]
    assert [s["probability"] for s in spread["solutions"]] == pytest.approx(
        [s["probability"] for s in alone["solutions"]], rel=1e-6)
    assert spread["optimum"] == alone["optimum"]


if __name__ == "__main__":
    cases = [run_case(*case) for case in CASES]  # the 64 most probable solutions of each
    cases = [{**c, "solutions": dict(islice(c["solutions"].items(), 64))} for c in cases]
    results = {"cases": cases, "sampled": sampled_run(*SAMPLED), "refused": refusals()}
    if corvid.mpi.rank() == 0:
        print(json.dumps(results))
