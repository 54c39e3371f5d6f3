"""Every example runs with a small budget (main(quick=True)), and its outcome makes sense."""

import contextlib
import io
import os
import runpy

import pytest

EXAMPLES = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))),
                        "examples")


def run_example(name):
    module = runpy.run_path(os.path.join(EXAMPLES, name), run_name="example")
    out = io.StringIO()
    with contextlib.redirect_stdout(out):
        result = module["main"](quick=True)
    assert out.getvalue().strip()
    return result


def test_maxcut_with_interp_beats_a_random_cut():
    result = run_example("maxcut_interp.py")
    assert result["best_cut"] == 21  # the graph is bipartite: every edge can be cut
    assert all(0.5 < ratio <= 1 for ratio in result["ratios"])  # a random cut scores 0.5


def test_portfolio_penalty_prefers_feasible_choices():
    result = run_example("portfolio_penalty.py")
    # 10 of the 32 strings choose two assets; a uniform guess puts 10/32 on them
    assert result["feasible_mass"] > 10 / 32
    assert result["most_likely"].count("1") == 2


def test_cvar_sampling_finds_ground_states():
    result = run_example("cvar_sampling.py")
    assert result["ground"] == -8
    assert all(0 <= p <= 1 for p in result["p_ground"].values())


def test_xy_mixer_stays_one_hot():
    result = run_example("xy_mixer_onehot.py")
    assert result["W state + XY ring mixer"]["valid"] == pytest.approx(1.0, abs=1e-9)
    assert result["Hadamards + X mixer"]["valid"] < 0.9


def test_demo_runs():
    assert run_example("demo.py") == 0
