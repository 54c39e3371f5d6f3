"""Sphinx configuration: the API reference from the docstrings, the tutorials and the command
line's page.

`make docs` builds it into build/docs with the compiled extension on the path."""

import os
import re

from docutils import nodes
from sphinx.util.docutils import SphinxDirective

import corvid

project = "corvid"
release = version = corvid.__version__
extensions = ["sphinx.ext.autodoc", "sphinx.ext.napoleon"]

# Google-style sections (Attributes:, Example:) in the docstrings; the rest is reStructuredText.
napoleon_google_docstring = True
napoleon_numpy_docstring = False
napoleon_use_ivar = True  # attributes as fields: a property of the same name is documented once
autodoc_member_order = "bysource"
autodoc_default_options = {"members": True}
# Members added by the pybind11 runtime say nothing about this library.
autodoc_inherit_docstrings = False

exclude_patterns = ["_build", "*.md"]
html_theme = "alabaster"

# The docstrings list parameters as "name: text" lines, often continued by an indented line.
# Each such line becomes a definition list item (name, then its text), so that a continuation
# line is not read as a stray block quote.
_TERM = re.compile(r"^( *)([\w.*=]+(?:, [\w.*=]+)*): (\S.*)$")
# Kets such as |0> and |+...+> are plain text, not substitution references.
_KET = re.compile(r"\|(?=[\w+\-.(), ]*>)")


def _definition_lists(app, what, name, obj, options, lines):
    # literal: the indent of a "::" line above; doctest: inside a >>> block; item: a term's indent
    out, literal, doctest, item = [], None, False, None
    for number, line in enumerate(lines):
        indent = len(line) - len(line.lstrip())
        blank = not line.strip()
        doctest = not blank and (doctest or line.lstrip().startswith(">>>"))
        if doctest or literal is not None and (blank or indent > literal):
            out.append(line)
            continue
        literal = None
        line = "``".join(part if k % 2 else _KET.sub(r"\\|", part)
                         for k, part in enumerate(line.split("``")))
        match = _TERM.match(line) if number else None  # the summary line is no term
        # Inside an item, deeper lines and lines at its indent that start no item continue it.
        if item is not None and not blank and (indent > item or indent == item and not match):
            out.append(" " * (item + 4) + line.strip())
            continue
        if match:
            if item is None and out and out[-1].strip():
                out.append("")
            item = indent
            out += [match[1] + match[2], " " * (indent + 4) + match[3]]
            continue
        if item is not None and not blank:
            out.append("")
        item = None
        out.append(line)
        if line.rstrip().endswith("::"):
            literal = indent
    lines[:] = out


class _CommandHelp(SphinxDirective):
    """``.. command-help::``: the command line's --help as its parser prints it, so that the
    page lists the options the program has."""

    def run(self):
        from corvid_alg.QAOA.cli.options import build_parser

        columns = os.environ.get("COLUMNS")
        os.environ["COLUMNS"] = "92"  # argparse wraps to the terminal's width
        try:
            text = build_parser().format_help()
        finally:
            if columns is None:
                del os.environ["COLUMNS"]
            else:
                os.environ["COLUMNS"] = columns
        return [nodes.literal_block(text, text, language="text")]


def setup(app):
    app.connect("autodoc-process-docstring", _definition_lists, priority=600)
    app.add_directive("command-help", _CommandHelp)
