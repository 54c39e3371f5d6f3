"""Every tutorial page's Python blocks run in order, as one script, in a fresh directory; the
figures they save are written."""

import pathlib
import re
import textwrap

import numpy as np
import pytest

for optional in ("networkx", "dimod", "qiskit", "pandas"):
    pytest.importorskip(optional)
pytest.importorskip("matplotlib").use("Agg")

PAGES = sorted((pathlib.Path(__file__).resolve().parents[1] / "docs" / "tutorials").glob("*.rst"))
BLOCK = re.compile(r"^\.\. code-block:: python\n((?:\n| {3}.*\n)+)", re.M)


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_tutorial_runs(page, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    np.random.seed(1)
    text = page.read_text(encoding="utf-8")
    blocks = list(BLOCK.finditer(text))
    assert blocks, f"{page.name} has no Python block"
    namespace = {"__name__": "tutorial"}
    for block in blocks:
        # Padded so that a traceback names the page's own line.
        source = "\n" * text.count("\n", 0, block.start(1)) + textwrap.dedent(block[1])
        exec(compile(source, str(page), "exec"), namespace)
    for figure in re.findall(r'savefig\("([^"]+)"\)', text):
        assert (tmp_path / figure).stat().st_size > 10_000
