import itertools

import numpy as np
import pytest
import sympy

from corvid_alg.QAOA import qaoa as module
from corvid_alg.QAOA.qaoa import QAOA, parameter_interpolate
from corvid_alg.QAOA.spsa import spsa_minimize

x0, x1, x2 = sympy.symbols("x0 x1 x2")
ROAD = 2 * x0 * x1 + 3 * x2 - 1
INF = (-np.inf, np.inf)
SHAPE = "^Shape of parameter bounds should be same with the layer$"


@pytest.mark.parametrize("length, gamma, beta, expected", [
    (6, None, [(0, 1)], ([INF] * 3, [(0, 1)] * 3)),
    (4, [(0, 1), (0, 2), (0, 3)], None, ([(0, 1), (0, 2)], [INF] * 2)),
    (4, (0, 1), None, ([(0, 1)] * 2, [INF] * 2)),  # one pair for all layers
    (1, [], [(0, 1)], ([], [])),
    (0, [(0, 1)], None, ([], [])),
    *[(length, gamma, beta, SHAPE) for length, gamma, beta in [
        (6, [(0, 1), (0, 2)], None), (2, [], None), (4, None, []), (6, [(0, 1), (0, 2)], "not looked at")]],
])
def test_check_bounds(length, gamma, beta, expected):
    if expected == SHAPE:
        with pytest.raises(ValueError, match=SHAPE):
            QAOA(ROAD)._check_bounds([0.0] * length, gamma, beta)
    else:
        assert QAOA(ROAD)._check_bounds([0.0] * length, gamma, beta) == expected


@pytest.mark.parametrize("pm, expected", [
    ([0.4, 0.6], [0.4, 0.2, 0.3, 0.6]),  # one layer: a warning on every call
    ([0.1, 0.2, 0.2, 0.1], [0.1, 0.15, 0.25, 0.2, 0.15, 0.05]),
    ([0.1, 0.2, 0.3, 0.3, 0.2, 0.1], [0.1, 0.162623, 0.266667, 0.304044, 0.3, 0.237377, 0.133333, 0.095956]),
])
def test_parameter_interpolate(pm, expected, capsys):
    for given in (pm, np.array(pm)):
        out = parameter_interpolate(given)
        assert isinstance(out, np.ndarray)
        np.testing.assert_allclose(out, expected, atol=5e-7)
    assert capsys.readouterr().out == ("warning of one-element interpolation\n" * 2 if len(pm) == 2 else "")


def layer_check(optimize_type, layer, initial=None):
    solver = QAOA(ROAD)
    solver.optimize_type = optimize_type
    return solver, solver._check_layer_and_generate_initial_para(layer, initial)


def test_layer_check_fits_the_starting_vector():
    solver, (para, start) = layer_check("default", 3)
    assert len(para) == 6 and start is None and solver.layer == 3 and np.all((para >= 0) & (para < np.pi))
    assert list(layer_check("default", 2, [1, 2, 3, 4, 5, 6])[1][0]) == [1, 2, 4, 5]
    _, (para, _) = layer_check("default", 3, [7, 8])
    assert para[0] == 7 and para[3] == 8 and len(para) == 6
    assert np.all((para[[1, 2, 4, 5]] >= 0) & (para[[1, 2, 4, 5]] < np.pi))
    solver, checked = layer_check("interp", 3, [1, 2, 3, 4])
    assert checked == ([1, 2, 3, 4], 2) and solver.layer == 3
    solver, checked = layer_check("nonsense", 3)
    assert checked is None and solver.layer is None


@pytest.fixture
def calls(monkeypatch):
    """Stands in for the minimisers: records each call and returns the start shifted by 1."""
    calls = []

    def record(fun, x0, **kwargs):
        calls.append((len(x0), kwargs))
        return np.asarray(x0) + 1

    monkeypatch.setattr(module, "minimize", lambda *a, **k: type("Result", (), {"x": record(*a, **k)})())
    monkeypatch.setattr(module.spsa, "spsa_minimize", record)
    return calls


def test_direct_optimisation_dispatch_and_options(calls):
    solver = QAOA(ROAD)
    solver.layer, solver.optimizer = 2, None
    out = solver._optimize_qaoa_parameter_default([0, 0, 0, 0], None, [(0, 1)], options={"maxiter": 10})
    assert list(out) == [1, 1, 1, 1]
    assert calls[-1] == (4, {"bounds": [INF, INF, (0, 1), (0, 1)], "method": None,
                             "options": {"maxiter": 10}})
    solver.optimizer = "SPSA"
    solver._optimize_qaoa_parameter_default([0, 0, 0, 0], None, None, seed=3)
    assert calls[-1] == (4, {"bounds": [INF] * 4, "seed": 3})
    for optimizer, key in [(None, "bounds"), ("COBYLA", "method"), ("SPSA", "bounds")]:
        solver.optimizer = optimizer
        message = rf"^function\(\) got multiple values for keyword argument '{key}'$"
        with pytest.raises(TypeError, match=message):
            solver._optimize_qaoa_parameter_default([0, 0], None, None, **{key: 1})


def test_interp_schedule_grows_layer_by_layer(calls, capsys):
    solver = QAOA(ROAD)
    solver.layer, solver.optimizer = 3, None
    out = solver._optimize_qaoa_parameter_interp([0.5, 0.5], 1, None, [(0, 1), (0, 2), (0, 3)])
    assert [n for n, _ in calls] == [2, 4, 6] and len(out) == 6 and solver.layer == 3
    assert [kw["bounds"][-1] for _, kw in calls] == [(0, 1), (0, 2), (0, 3)]
    assert "warning of one-element interpolation" in capsys.readouterr().out
    solver.layer = 3
    with pytest.raises(ValueError, match=SHAPE):
        solver._optimize_qaoa_parameter_interp([0.5, 0.5], 1, [(0, 1), (0, 2)], None)
    assert len(calls) == 5  # stages 1 and 2 ran, the third failed on its bounds
    for start, message in [(0, "and less than final layer"), (2.0, "integer$"), (4, "less than final layer")]:
        solver.layer = 3
        with pytest.raises(ValueError, match=message):
            solver._optimize_qaoa_parameter_interp([0.5] * 4, start)


def test_small_graph_optimum_is_most_likely_with_interp_and_bounds():
    edges = [(0, 1), (1, 2), (2, 3), (3, 0), (0, 2)]
    xs = sympy.symbols("x0:4")  # minimising minus the cut maximises it

    def cut(key):
        return sum(key[::-1][i] != key[::-1][j] for i, j in edges)

    np.random.seed(3)
    result, angles, _ = QAOA(sum(2 * xs[i] * xs[j] - xs[i] - xs[j] for i, j in edges)).run(
        layer=3, initial_para=[0.5, 0.5], optimize_type="interp",
        gamma_bounds=[(0, np.pi)], beta_bounds=[(0, np.pi)])
    assert len(angles) == 6 and np.all((angles >= 0) & (angles <= np.pi))
    assert cut(next(iter(result))) == max(cut("".join(b)) for b in itertools.product("01", repeat=4))


def test_sampling_run_with_spsa():
    np.random.seed(11)
    solver = QAOA(ROAD)
    result = solver.run(layer=1, shots=400, optimizer="SPSA", optimizer_option={"maxiter": 40, "seed": 2})[0]
    values = list(result.values())
    assert isinstance(result, dict) and sum(values) == pytest.approx(1)
    assert values == sorted(values, reverse=True)
    assert all(v * 400 == pytest.approx(round(v * 400)) for v in values)
    assert solver.iter == 40 * 2 + 5 * 2 + 1


def test_spsa_minimises_within_bounds_and_is_reproducible():
    target = np.array([1.0, -2.0, 0.5])
    fun = lambda v: float(np.sum((v - target) ** 2))
    seen = []
    x = spsa_minimize(fun, [0.0, 0.0, 0.0], maxiter=400, seed=4, callback=seen.append)
    np.testing.assert_allclose(x, target, atol=0.05)
    assert len(seen) == 400
    np.testing.assert_array_equal(x, spsa_minimize(fun, [0.0, 0.0, 0.0], maxiter=400, seed=4))
    bounded = spsa_minimize(fun, [0.0] * 3, bounds=[(0, 2), (-1, np.inf), (None, 0.2)], maxiter=400, seed=4)
    assert 0 <= bounded[0] <= 2 and bounded[1] == -1.0 and bounded[2] <= 0.2
    # the constrained optimum is (1, -1, 0.2); a coordinate pinned at its bound keeps adding
    # gradient noise to the others, so the free one is only roughly there
    assert abs(bounded[0] - 1.0) < 0.5
