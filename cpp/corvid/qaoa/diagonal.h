#pragma once
/// Everything QAOA computes over the 2^n basis states, in one include: cost diagonals from
/// Z terms or monomials, per-state energies, the losses of a distribution, its order by
/// weight and its mass per energy bin. Bit i of a basis index is qubit / variable i (qubit 0
/// least significant).

#include "corvid/qaoa/descending_order.h"
#include "corvid/qaoa/energy_histogram.h"
#include "corvid/qaoa/losses.h"
#include "corvid/qaoa/monomial_energies.h"
#include "corvid/qaoa/z_energies.h"
