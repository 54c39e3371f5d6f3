"""The QAOA ansatz run from its description, in C++: the losses of many angle vectors in one
call, and a loss with its exact gradient by adjoint differentiation."""

from ._core.ansatz import loss_and_gradient, losses  # noqa: F401
