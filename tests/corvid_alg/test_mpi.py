"""QAOA.run and corvid-qaoa under mpirun give what one process gives. Run as a script (by
mpirun), this file prints rank 0's results of CASES; the tests compare them with the same
cases in this process."""

import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import sympy
from scipy.optimize import OptimizeResult

import corvid
from corvid_alg.QAOA.qaoa import QAOA, xy_ring_mixer
from corvid_alg.QAOA.solving import solve

ROOT = Path(__file__).resolve().parents[2]
# (qubits, p, problem form, loss options): polynomials of degree 3 and Z-term operators, with
# fields so that no two states tie by symmetry.
CASES = [(16, 6, "polynomial", {}), (12, 3, "operator", {"loss_type": "CVaR", "alpha": 0.3}),
         (9, 2, "polynomial", {"loss_type": "Gibbs", "temperature": 0.5}),
         (5, 4, "operator", {"loss_type": "CVaR", "alpha": 0.05})]


def _stay(fun, x0, args=(), **unused):  # a minimiser that evaluates its start only
    return OptimizeResult(x=x0, fun=fun(x0), success=True, nit=0)


def run_case(n, p, form, loss):
    rng = np.random.default_rng(n * 10 + p)
    masks = [rng.choice(n, size=rng.integers(1, 4), replace=False) for _ in range(3 * n)]
    weights = rng.uniform(-1, 1, size=len(masks))
    if form == "operator":
        problem = corvid.PauliOperator({" ".join(f"Z{q}" for q in m): w for m, w in zip(masks, weights)})
    else:
        x = sympy.symbols(f"x:{n}")
        problem = sum(round(w, 3) * sympy.Mul(*(x[q] for q in m)) for m, w in zip(masks, weights))
    qaoa = QAOA(problem, mixer_circuit=xy_ring_mixer if form == "xy" else None)
    start = rng.uniform(0, 1, 2 * p)
    try:
        solutions, _, value = qaoa.run(layer=p, initial_para=start, optimizer=_stay, **loss)
    except NotImplementedError as error:
        return {"error": str(error)}
    solved = solve(problem, p, initial_para=start, optimizer=_stay, **loss)
    return {"loss": value, "solutions": dict(list(solutions.items())[:64]),
            "count": len(solutions), "ranks": corvid.mpi.size(),
            "solved": [solved.expected_energy, solved.optimum_probability]}


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


@pytest.mark.parametrize("ranks", [1, 2, 4])
def test_run_matches_one_process(ranks, tmp_path):
    results = json.loads(_mpirun(ranks, [__file__], tmp_path))
    for case, spread in zip(CASES, results):
        alone = run_case(*case)
        assert spread["ranks"] == ranks and spread["count"] == alone["count"]
        assert spread["loss"] == pytest.approx(alone["loss"], abs=1e-12)
        assert spread["solved"] == pytest.approx(alone["solved"], abs=1e-12)
        for key, probability in spread["solutions"].items():
            assert probability == pytest.approx(alone["solutions"].get(key, -1), abs=1e-12), key


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
    results = [run_case(*case) for case in CASES]
    if corvid.mpi.rank() == 0:
        print(json.dumps(results))
