"""QAOA: the quantum approximate optimisation algorithm for binary polynomials.

``solve(problem, layers=...)`` runs it in one call and returns a ``QAOAResult``; both are
imported on first use, so that importing a submodule stays light.
"""

__all__ = ["solve", "QAOAResult"]


def __getattr__(name):
    if name == "solve":
        from .solving import solve
        return solve
    if name == "QAOAResult":
        from .result import QAOAResult
        return QAOAResult
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
