"""The corvid-qaoa command line: every input kind end to end, the JSON fields against
independently computed energies, reproducibility, the plot, and bad input."""

import io
import itertools
import json
import os
import subprocess
import sys
import types

import numpy as np
import pytest

from corvid_alg.QAOA import angles
from corvid_alg.QAOA.cli import checkpoint, main, plot
from corvid_alg.QAOA.cli.errors import InputError
from corvid_alg.QAOA.cli.progress import Progress
from corvid_alg.QAOA.export import to_qasm
from corvid_alg.QAOA.problems import maxcut_operator
from corvid_alg.QAOA.qaoa import QAOA

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MAXCUT14 = os.path.join(ROOT, "examples", "maxcut14.txt")
CUBE = os.path.join(ROOT, "examples", "cube.gset")
FAST = ["--optimizer", "COBYLA", "--option", "maxiter=25", "--seed", "5", "--quiet"]


def run_cli(*argv):
    """main() in this process: (status, stdout, stderr)."""
    out, err = io.StringIO(), io.StringIO()
    status = main(list(argv), stdout=out, stderr=err)
    return status, out.getvalue(), err.getvalue()


MODULE = [sys.executable, "-m", "corvid_alg.QAOA"]
SOURCE_TREE_SCRIPT = [os.path.join(ROOT, "bin", "corvid-qaoa")]


def run_process(*argv, launcher=MODULE, timeout=120):
    return subprocess.run([*launcher, *argv], capture_output=True, text=True, timeout=timeout)


def written(folder, name, content):
    """The path of `content` written to folder/name: an array as .npy or .csv, else text or bytes."""
    path = folder / name
    if name.endswith(".csv") and isinstance(content, np.ndarray):
        np.savetxt(path, content, delimiter=",")
    elif isinstance(content, np.ndarray):
        np.save(path, content)
    else:
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
    return path


def solved(*argv):
    status, out, err = run_cli(*argv, "--json", *FAST)
    assert status == 0, err
    return json.loads(out)


def vector(bits):
    return np.array([int(b) for b in reversed(bits)])


QUBO = np.diag([-1.0] * 4) + np.diag([2.0] * 3, 1)
QUBO[0, 3] = 0.5
MODEL = {"type": "ising", "variables": ["a", "b", "c", "unused"], "offset": 0.5,
         "linear": {"a": 1.0}, "quadratic": [["a", "b", -1.0], ["b", "c", 2.0]],
         "terms": [[["a", "b", "c"], 0.25]]}


def minus_cut(*edges):
    return lambda x: -sum(w for i, j, w in edges if x[i] != x[j])


# (option, file written first or None, its content or the formula, variables, free variables,
#  spins (bit 0 is spin +1), energy of the variables' values)
INPUTS = [
    ("-e", None, "2*x0*x1 + 3*x2 - 1", "x0 x1 x2", "", False, lambda x: 2 * x[0] * x[1] + 3 * x[2] - 1),
    ("--qubo", "q.npy", QUBO, "x0 x1 x2 x3", "", False, lambda x: x @ QUBO @ x),
    ("--qubo", "q.csv", QUBO, "x0 x1 x2 x3", "", False, lambda x: x @ QUBO @ x),
    ("--model", "m.json", json.dumps(MODEL), "a b c", "unused", True,
     lambda s: 0.5 + s[0] - s[0] * s[1] + 2 * s[1] * s[2] + 0.25 * s[0] * s[1] * s[2]),
    ("--maxcut", "g.txt", "# weighted square with a diagonal\na b 2\nb c\nc d, 1.5\nd a\na c -1\n",
     "a b c d", "", False, minus_cut((0, 1, 2), (1, 2, 1), (2, 3, 1.5), (3, 0, 1), (0, 2, -1))),
    # '²'.isdigit(), but not a number: labels stay in file order
    ("--maxcut", "g.txt", "² 1\n1 2\n", "² 1 2", "", False, minus_cut((0, 1, 1), (1, 2, 1))),
    ("--gset", "g.gset", "5 3\n1 2 2\n2 3 1\n1 3 -1\n", "1 2 3", "4 5", False,
     minus_cut((0, 1, 2), (1, 2, 1), (0, 2, -1))),
]


@pytest.mark.parametrize("option, name, content, variables, free, spins, energy", INPUTS,
                         ids=[f"{row[0]} {row[1]}" for row in INPUTS])
def test_each_input_kind_reports_its_energies_by_name(tmp_path, option, name, content, variables,
                                                      free, spins, energy):
    source = written(tmp_path, name, content) if name else content
    variables, free = variables.split(), free.split()
    doc = solved(option, str(source), "--top", str(2 ** len(variables)))
    assert (doc["problem"]["variables"], doc["problem"]["free_variables"]) == (variables, free)
    solutions = doc["solutions"]
    assert len(solutions) == 2 ** len(variables)
    probabilities = [s["probability"] for s in solutions]
    # descending; ties to rounding (1e-10) by bit string
    assert probabilities == pytest.approx(sorted(probabilities, reverse=True), rel=1e-10)
    assert sum(probabilities) == pytest.approx(1)
    for s in solutions:
        values = 1 - 2 * vector(s["bits"]) if spins else vector(s["bits"])
        assert s["energy"] == pytest.approx(energy(values))
        assert s["assignment"] == {**dict(zip(variables, values)), **{f: int(spins) for f in free}}
    # every state is listed: the best is the optimum
    assert doc["best"]["energy"] == min(s["energy"] for s in solutions) == doc["optimum"]
    assert doc["approximation_ratio"] == 1
    assert len(doc["angles"]["gammas"]) == len(doc["angles"]["betas"]) == doc["settings"]["layers"]
    assert doc["evaluations"] == len(doc["loss_history"]) > 0
    assert doc["loss_history"][-1] == pytest.approx(doc["loss"])  # the final evaluation


@pytest.mark.parametrize("launcher", [MODULE, SOURCE_TREE_SCRIPT], ids=["module", "bin-script"])
def test_a_text_report_in_a_subprocess(launcher):
    result = run_process("--maxcut", MAXCUT14, *FAST, launcher=launcher)
    assert result.returncode == 0, result.stderr
    assert "14 qubits" in result.stdout and "cut weight" in result.stdout
    assert "side 0:" in result.stdout and result.stderr == ""


@pytest.mark.parametrize("extra", [
    # random starting angles and sampling
    ["--shots", "300", "--loss", "cvar", "--alpha", "0.3", "--optimizer", "COBYLA",
     "--option", "maxiter=15"],
    # SPSA's perturbations and sampling, from given angles
    ["--optimizer", "SPSA", "--option", "maxiter=10", "--shots", "200",
     "--initial-angles", "0.5,0.5"],
    # INTERP's random first layer
    ["--loss", "gibbs", "--temperature", "0.5", "--layers", "2", "--interp",
     "--optimizer", "COBYLA", "--option", "maxiter=10"],
])
def test_a_seed_makes_runs_repeat(extra):
    def history(seed):
        status, out, err = run_cli("-e", "x0*x1 - 2*x1 + x2*x0", "--json", "--seed", seed, *extra)
        assert status == 0, err
        doc = json.loads(out)
        doc.pop("seconds")
        return doc

    first = history("5")
    assert history("5") == first
    assert history("6")["loss_history"] != first["loss_history"]


@pytest.mark.parametrize("interp", [[], ["--interp"]])
def test_bounds_are_respected(interp):
    doc = solved("-e", "x0 + x1 - 3*x0*x1", "--layers", "2", "--gamma-bounds", "0.1,0.2",
                 "--beta-bounds", "0,0.5", "--beta-bounds", "0.5,0.6", *interp)
    eps = 1e-12  # COBYLA may step outside by rounding
    assert all(0.1 - eps <= g <= 0.2 + eps for g in doc["angles"]["gammas"])
    b1, b2 = doc["angles"]["betas"]
    assert -eps <= b1 <= 0.5 + eps and 0.5 - eps <= b2 <= 0.6 + eps


def cube_qaoa():
    with open(CUBE) as f:
        edges = [tuple(int(v) - 1 for v in line.split()[:2]) for line in f.readlines()[1:]]
    return QAOA(maxcut_operator(edges))


@pytest.mark.parametrize("init, layers, expected", [
    ("tqa", 2, angles.tqa(2, 1.0)),  # unweighted MaxCut: dt 1
    ("tqa", 3, angles.tqa(1, 1.0)),  # with --interp: the first layer
    ("fixed", 3, angles.fixed_angles(3, 3)),
])
def test_init_starts_from_the_schedule(init, layers, expected):
    extra = ["--interp"] if init == "tqa" and layers == 3 else []
    doc = solved("--gset", CUBE, "--init", init, "--layers", str(layers), *extra)
    start = cube_qaoa().evaluate([expected])[0]
    assert doc["settings"]["init"] == init
    assert doc["loss_history"][0] == pytest.approx(start, rel=1e-9)


def test_plot_qasm_and_landscape_are_written_after_the_report(tmp_path, monkeypatch):
    qasm, image, plotted = tmp_path / "c.qasm", tmp_path / "l.png", tmp_path / "run.png"
    status, out, err = run_cli("--gset", CUBE, "--qasm", str(qasm), "--landscape", str(image),
                               "--plot", str(plotted), "--json", *FAST)
    assert status == 0, err
    doc = json.loads(out)
    assert 0 < doc["approximation_ratio"] <= 1 and doc["optimum"] == -12  # bipartite: every edge cut
    found = doc["angles"]["gammas"] + doc["angles"]["betas"]
    assert qasm.read_text() == to_qasm(cube_qaoa(), found)
    from matplotlib.image import imread
    for path, size in [(image, (400, 600)), (plotted, None)]:
        pixels = imread(path)
        assert size is None or pixels.shape[:2] == size
        assert len(np.unique(pixels.reshape(-1, pixels.shape[-1]), axis=0)) > 10

    def fail(document, path):
        raise InputError(f"cannot write {path}: disk full")
    monkeypatch.setattr(plot, "write_png", fail)
    status, out, err = run_cli("-e", "x0 - x1", "--plot", "run.png", *FAST)
    assert status == 1 and "best listed solution" in out
    assert err == "corvid-qaoa: error: cannot write run.png: disk full\n"


class FakeTerminal(io.StringIO):
    def isatty(self):
        return True


def test_progress_draws_only_on_a_terminal():
    times = itertools.count(0, 0.05)
    screen = FakeTerminal()
    progress = Progress(screen, clock=lambda: next(times))
    for k, loss in enumerate([3.0, 1.0, 2.0, 0.5], 1):
        progress.update(k, loss)
    drawn = screen.getvalue()
    # redrawn at most every 0.1 s of the fake clock: evaluations 1 and 3 only
    assert "1 evaluations" in drawn and "3 evaluations  loss 2  best 1" in drawn
    assert "2 evaluations" not in drawn and "4 evaluations" not in drawn
    progress.close()
    assert screen.getvalue().endswith("\r")
    pipe = io.StringIO()
    Progress(pipe).update(1, 1.0)
    assert pipe.getvalue() == ""


@pytest.mark.parametrize("argv, status, fragment", [
    ([], 2, "one of the arguments"),
    ("--layers 0", 2, "positive integer"), ("--shots -3", 2, "--shots"),
    ("--alpha 0.5", 2, "--loss cvar"), ("--loss cvar --alpha 1.5", 2, "[0, 1]"),
    ("--loss gibbs --temperature 0", 2, "(0, 1]"), ("--optimizer newton", 2, "SPSA or a scipy"),
    ("--optimizer SPSA --option bogus=1", 2, "bogus"), ("--option bounds=1", 2, "--gamma-bounds"),
    ("--interp", 2, "at least 2"), ("--layers 2 --interp --initial-angles 1,2,3,4", 2, "fewer layers"),
    ("--layers 3 --gamma-bounds 0,1 --gamma-bounds 0,1", 2, "once per layer"),
    ("--gamma-bounds 2,1", 2, "LOW must not exceed"), ("--plot out.svg", 2, "PNG"),
    ("--plot /no/such/dir/run.png", 2, "the folder /no/such/dir does not exist"),
    (["-e", "x0", "--top", "1" + "0" * 21], 2, "--top: must be at most 1000000"),
    (["-e", "x0", "--layers", "1" + "0" * 60], 2, "at most 50 digits"),
    ("--seed -5", 2, "--seed: must be an integer in [0, 2^128)"),
    ("--threads 1000000", 2, "--threads: number of threads must be"),
    (["-e", "x0", "--shots", "1" + "0" * 20, "--seed", "1"], 2, "--shots: must be at most 10^15"),
    ("--option options=5", 2, "options= must be a JSON object"),
    ("--option callback=print", 2, "needs a Python function"), ("--init zero", 2, "invalid choice: 'zero'"),
    ("--init tqa --initial-angles 1,2", 2, "use one"),
    ("--init fixed", 2, "--init fixed needs an unweighted regular graph"),
    (["--init", "fixed", "--maxcut", ("g.txt", "0 1 2\n1 2\n2 0\n")], 2, "every edge of weight 1"),
    (["--init", "fixed", "--maxcut", ("g.txt", "0 1\n1 2\n")], 2,
     "needs a regular graph; node degrees here range from 1 to 2"),
    (["--gset", CUBE, "--init", "fixed", "--layers", "12"], 2, "no fixed angles for degree 3 at p = 12"),
    ("--landscape l.svg", 2, "--landscape writes a PNG file"),
    ("--qasm /no/such/dir/c.qasm", 2, "--qasm /no/such/dir/c.qasm: the folder"),
    ("--qasm /", 2, "is a directory"), ("--plot a.png --landscape ./a.png", 2, "must name different files"),
    ("--checkpoint /no/such/dir/c.json", 2, "--checkpoint /no/such/dir/c.json: the"),
    ("--resume c.json --init tqa", 2, "--resume gives the starting angles"),
    ("--resume /no/such/c.json", 1, "--resume /no/such/c.json: cannot read it"),
    (["-e", "x0", "--resume", ("c.json", "{")], 1, "cannot read it"),
    (["-e", "x0", "--resume", ("c.json", '{"angles": [1, 2]}')], 1, "not a corvid-qaoa checkpoint"),
    (["-e", "x0", "--resume", ("c.json", '{"format": "corvid-qaoa checkpoint", "layers": 1, '
                                         '"angles": [1, NaN]}')], 1, "not 2 x layers finite"),
    (["-e", "1000*x0 - 1000*x1", "--loss", "gibbs", "--json"], 1,
     "the Gibbs loss is not finite at evaluation 1; the energies reach about 2e+03: "
     "try --norm, a constant shift that brings the energies near 0 or a higher --temperature"),
    (["-e", "x0 +* 1"], 1, "column 5: expected a number"),
    (["-e", "3"], 1, "no variables"),
    (["-e", "x0*(x1+1) - x0*x1 - x0"], 1, "no variables"),
    (["-e", "1e308*x0 + 1e308*x1"], 1, "are infinite or overflow a float"),
    (["--maxcut", "/no/such/file"], 1, "cannot read"),
    (["--qubo", "q.txt"], 1, ".npy or .csv"),
] + [([{"g": "--maxcut", "q": "--qubo", "m": "--model", "s": "--gset"}[name[0]], (name, content)],
      1, fragment)
     for name, content, fragment in [  # files (name, content) written first
    ("g.txt", "0 1\n1 1\n", "line 2: self-loop"), ("g.txt", "0 1 x\n", "line 1: weight 'x'"),
    ("g.txt", "0 1 2 3\n", "line 1: expected"),
    ("s.gset", "4 2\n1 2 1\n2 3 1\n3 4 1\n", "line 4: an edge beyond the 2"),
    ("s.gset", "4 3\n1 2 1\n2 3 1\n", "the header announces 3 edges, the file has 2"),
    ("s.gset", "3 1\n1 4 1\n", "line 2: node '4' is not in 1 .. 3"),
    ("s.gset", "3 1\n0 2 1\n", "line 2: node '0' is not in 1 .. 3"),
    ("s.gset", "3\n1 2 1\n", "line 1: expected the header 'n m'"),
    ("s.gset", "# only a comment\n", "empty; expected a header"),
    ("s.gset", "3 1\n1 2 w\n", "line 2: weight 'w'"), ("g.txt", "# nothing\n", "no edges"),
    ("g.txt", b"\xff\xfe\x00", "not a UTF-8 text file"), ("q.csv", "1,2\n3\n", "q.csv"),
    ("q.csv", "1,2,3\n4,5,6\n", "square"), ("q.npy", "not numpy", "q.npy"),
    ("m.json", "{", "not valid JSON"),
    ("m.json", '{"linear": {"a": 1' + "0" * 400 + "}}",
     "weight 1000000000000000000000000000000000000... overflows"),
    ("m.json", "[" * 100_000 + "]" * 100_000, "nested too deeply"),
    ("m.json", '{"linear": {"a": NaN}}', "NaN is not a number"),
    ("q.npy", np.eye(2) * 1j, "must be real numbers, got complex128"),
    ("m.json", '{"linear": {"a": 1}, "quadratc": []}', "unknown key(s) quadratc"),
    ("m.json", '{"type": "spin", "linear": {"a": 1}}', '"type"'),
    ("m.json", '{"variables": ["a"], "linear": {"b": 1}}', "'b' is not listed"),
    ("m.json", '{"linear": {"a": "heavy"}}', "must be a number"),
    ("m.json", '{"quadratic": [["a", "b"]]}', '"quadratic" entry 0'),
    ("m.json", '{"offset": 2}', "no linear, quadratic"),
    ("m.json", '{"linear": {"a": 1, "b": 0}, "quadratic": [["a", "a", -1]]}', "nothing to optimise"),
]])
def test_bad_input_ends_in_one_line(tmp_path, argv, status, fragment):
    argv = ["-e", "x0", *argv.split()] if isinstance(argv, str) else argv  # a string: options of "-e x0"
    argv = [written(tmp_path, *a) if isinstance(a, tuple) else a for a in argv]  # files first
    code, out, err = run_cli(*map(str, argv))
    assert (code, out) == (status, "")
    assert err.count("\n") == 1 and err.startswith("corvid-qaoa: error: ")
    assert fragment in err


def test_lost_stdout_ends_quietly_or_in_one_line():
    argv = [*MODULE, "-e", "x0*x1 - x1", "--json", *FAST]
    with open("/dev/full", "w") as full:
        result = subprocess.run(argv, stdout=full, stderr=subprocess.PIPE, text=True, timeout=120)
    assert result.returncode == 1
    assert result.stderr == "corvid-qaoa: error: cannot write the report: No space left on device\n"
    process = subprocess.Popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    process.stdout.close()  # the reader is gone before the report is written: `| head`
    assert process.stderr.read() == b"" and process.wait(timeout=120) == 1



def test_ctrl_c_reports_the_best_angles_so_far_and_exits_130(monkeypatch, tmp_path):
    import corvid_alg.QAOA.qaoa as module

    tried = []

    def interrupted_minimize(fun, x0, **options):
        for shift in (0.3, -0.2, 0.1):
            tried.append((fun(np.asarray(x0) + shift), np.asarray(x0) + shift))
        raise KeyboardInterrupt

    monkeypatch.setattr(module, "minimize", interrupted_minimize)
    saved = tmp_path / "c.json"
    status, out, err = run_cli("--gset", CUBE, "--initial-angles", "0.4,0.2", "--quiet",
                               "--checkpoint", str(saved))
    loss, angles = min(tried, key=lambda t: t[0])
    assert status == 130 and out == ""
    assert json.loads(saved.read_text())["angles"] == list(angles)
    assert (f"best so far after 3 evaluations: loss {loss:.17g} at angles "
            f"{angles[0]:.17g},{angles[1]:.17g} (--initial-angles continues from there)") in err


def test_a_checkpoint_resumes_at_its_best_loss_and_only_for_its_problem(tmp_path):
    saved = str(tmp_path / "c.json")
    first = solved("--gset", CUBE, "--layers", "2", "--checkpoint", saved)
    point = json.loads(open(saved).read())
    assert point["loss"] == min(first["loss_history"]) and point["layers"] == 2
    assert point["evaluations"] == first["evaluations"]
    again = solved("--gset", CUBE, "--layers", "2", "--resume", saved, "--checkpoint", saved)
    assert again["loss_history"][0] == pytest.approx(point["loss"], rel=1e-12)
    assert json.loads(open(saved).read())["loss"] <= point["loss"]
    for argv, fragment in [(["--gset", CUBE, "--layers", "3"], "has 2 layers, --layers is 3"),
                           (["--maxcut", MAXCUT14, "--layers", "2"], "of another problem")]:
        status, out, err = run_cli(*argv, "--resume", saved, *FAST)
        assert status in (1, 2) and err.startswith("corvid-qaoa: error: ") and fragment in err


def test_the_checkpoint_is_rewritten_at_most_every_interval(tmp_path):
    now = [0.0]
    saver = checkpoint.Saver(str(tmp_path / "c.json"), interval=5.0, clock=lambda: now[0])
    run = types.SimpleNamespace(operator=[("Z0", 1.0)], history=[])
    for t, loss in [(1.0, 3.0), (5.5, 2.0), (6.0, 1.0), (11.0, 1.5)]:
        now[0] = t
        run.history.append(types.SimpleNamespace(angles=np.array([t, 0.0]), loss=loss))
        run.best = min(run.history, key=lambda e: e.loss)
        saver.maybe_save(run)
        if os.path.exists(saver.path):
            saved = json.loads(open(saver.path).read())
            assert (t, saved["loss"], saved["evaluations"]) in [(5.5, 2.0, 2), (6.0, 2.0, 2),
                                                                 (11.0, 1.0, 4)]
    assert os.listdir(tmp_path) == ["c.json"]  # no temporary file left behind
