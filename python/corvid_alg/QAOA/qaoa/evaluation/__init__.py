"""Evaluation: the problem object, solution energies, the losses and the loss driver."""
