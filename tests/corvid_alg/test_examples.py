"""Every example runs with a small budget (main(quick=True)), and its outcome makes sense."""

import contextlib
import io
import pathlib
import runpy

import pytest

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"


def run_example(name):
    main, out = runpy.run_path(str(EXAMPLES / name), run_name="example")["main"], io.StringIO()
    with contextlib.redirect_stdout(out):
        result = main(quick=True)
    assert out.getvalue().strip()
    return result


def test_examples_reach_sensible_outcomes():
    cut = run_example("maxcut_interp.py")
    assert cut["best_cut"] == 21  # the graph is bipartite: every edge can be cut
    assert all(0.5 < ratio <= 1 for ratio in cut["ratios"])  # a random cut scores 0.5
    portfolio = run_example("portfolio_penalty.py")
    # 10 of the 32 strings choose two assets; a uniform guess puts 10/32 on them
    assert portfolio["feasible_mass"] > 10 / 32 and portfolio["most_likely"].count("1") == 2
    cvar = run_example("cvar_sampling.py")
    assert cvar["ground"] == -8 and all(0 <= p <= 1 for p in cvar["p_ground"].values())
    xy = run_example("xy_mixer_onehot.py")
    assert xy["W state + XY ring mixer"]["valid"] == pytest.approx(1.0, abs=1e-9)
    assert xy["Hadamards + X mixer"]["valid"] < 0.9
    assert run_example("demo.py") == 0
