"""Mutation fuzzing of the command line's readers: the formula grammar, JSON models and edge lists.

    PYTHONPATH=python:build/dev/python python fuzz/readers_fuzz.py SECONDS [SEED]   (make fuzz)

Each target gets an equal share of SECONDS. Inputs are the seeds under fuzz/corpus/<target>,
mutated (tokens inserted, spans deleted, repeated or spliced, digits blown up). Every input must
be read or refused with the reader's own error (FormulaError, InputError; MemoryError for a model
too large to expand), within a second of CPU, without running code: an audit hook fails the run
on any exec, compile, process or socket event during a read. A formula that is read must print
back (through sympy) as the same polynomial. A failing input is saved under build/fuzz/crashes/.
"""

import os
import random
import sys
import tempfile
import time

from corvid_alg.QAOA import formula
from corvid_alg.QAOA.cli import inputs
from corvid_alg.QAOA.cli.errors import InputError

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

TIME_LIMIT = 1.0
_FORBIDDEN = ("exec", "compile", "os.system", "os.exec", "os.posix_spawn", "os.fork",
              "subprocess.Popen", "socket.", "builtins.input", "pickle.")
_watching = False


def _audit(event, args):
    if not _watching or not event.startswith(_FORBIDDEN):
        return
    if event in ("exec", "compile"):  # a lazy import runs module code from its file: allowed
        name = args[0].co_filename if event == "exec" else args[1]
        if not str(name).startswith("<") or str(name).startswith("<frozen"):
            return
    raise AssertionError(f"a reader raised the audit event {event}")


TOKENS = {
    "formula": ["x0", "z[0]", "E", "I", "lambda", "2", "0.5", "1e-3", "1e308", "9", "0", "+", "-",
                "*", "/", "**", "^", "(", ")", " ", "**9**9", "__import__('os')", ".system",
                "sqrt(", ",", "'", "\\", "²", "007", "-1", "**-1", "[", "]"],
    "model": ['{', '}', '[', ']', ',', ':', '"a"', '"b"', '"linear"', '"quadratic"', '"terms"',
              '"type"', '"ising"', '"variables"', '"offset"', "1", "-2.5", "1e400", "NaN",
              "Infinity", "null", "true", '"x"', "1" * 400, "[" * 50, "]" * 50, "\\u00b2"],
    "edges": ["0", "1", "2", "a", "b", "²", " ", "\t", ",", "\n", "#", "1.5", "-1", "nan", "inf",
              "1e400", "x", "\u0663", "\r\n"],
}


def mutate(rng, data, corpus, tokens):
    for _ in range(rng.randint(1, 4)):
        at = rng.randint(0, len(data))
        choice = rng.random()
        if choice < 0.35:
            data = data[:at] + rng.choice(tokens) + data[at:]
        elif choice < 0.55 and data:
            data = data[:at] + data[at + rng.randint(1, 8):]
        elif choice < 0.7 and data:  # repeat a span: grows nesting and term counts
            end = min(len(data), at + rng.randint(1, 16))
            data = data[:at] + data[at:end] * rng.randint(2, 40) + data[end:]
        elif choice < 0.85:
            other = rng.choice(corpus)
            cut = rng.randint(0, len(other))
            data = data[:at] + other[cut:]
        else:
            data = data[:at] + rng.choice("0123456789") * rng.randint(1, 400) + data[at:]
    return data[:30_000]


def read_formula(text, _folder):
    try:
        parsed = formula.parse(text)
    except formula.FormulaError as error:
        if "\n" in str(error) or not 1 <= error.column <= len(text) + 1:
            raise AssertionError(f"bad error: {error!r}") from None
        return
    if len(parsed) <= 50:
        printed = str(formula.to_sympy(parsed))
        if formula.parse(printed) != parsed:
            raise AssertionError(f"{printed!r} does not read back as the same polynomial")


def _read_file(reader, suffix):
    def read(text, folder):
        path = os.path.join(folder, "input" + suffix)
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
        try:
            reader(path)
        except (InputError, MemoryError):
            pass
    return read


READERS = {"formula": read_formula,
           "model": _read_file(inputs.json_model, ".json"),
           "edges": _read_file(inputs.edge_list, ".txt")}


def fuzz(target, seconds, rng, folder):
    global _watching
    corpus_dir = os.path.join(ROOT, "fuzz", "corpus", target)
    corpus = [open(os.path.join(corpus_dir, name), encoding="utf-8").read()
              for name in sorted(os.listdir(corpus_dir))]
    reader, runs, deadline = READERS[target], 0, time.monotonic() + seconds
    for seed in corpus:  # unwatched: the first reads import what they need
        reader(seed, folder)
    while time.monotonic() < deadline:
        data = mutate(rng, rng.choice(corpus), corpus, TOKENS[target])
        start = time.process_time()
        try:
            _watching = True
            reader(data, folder)
            _watching = False
            elapsed = time.process_time() - start
            if elapsed > TIME_LIMIT:
                raise AssertionError(f"took {elapsed:.2f} s")
        except Exception as error:  # noqa: BLE001 -- anything else is a finding
            _watching = False
            crash = os.path.join(ROOT, "build", "fuzz", "crashes", f"{target}-{runs}")
            os.makedirs(os.path.dirname(crash), exist_ok=True)
            with open(crash, "w", encoding="utf-8") as f:
                f.write(data)
            print(f"{target}: {type(error).__name__}: {error}; input saved in {crash}")
            return False
        runs += 1
    print(f"{target}: {runs} inputs in {seconds:.0f} s, all read or refused as documented")
    return True


def main(argv):
    seconds = float(argv[1]) if len(argv) > 1 else 30.0
    seed = int(argv[2]) if len(argv) > 2 else random.SystemRandom().randrange(2**32)
    print(f"readers_fuzz: seed {seed} (rerun: python fuzz/readers_fuzz.py {seconds:g} {seed})")
    rng = random.Random(seed)
    sys.addaudithook(_audit)
    with tempfile.TemporaryDirectory() as folder:
        ok = [fuzz(target, seconds / len(READERS), rng, folder) for target in READERS]
    return 0 if all(ok) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv))
