"""The ``corvid-qaoa`` command line: solve a binary optimisation problem end to end.

Run ``corvid-qaoa --help`` (or ``python -m corvid_alg.QAOA --help``) for the options.
"""

from .main import main

__all__ = ["main"]
