#pragma once
/// Everything QAOA computes over the 2^n basis states, in one include: cost diagonals from
/// Z terms or monomials, per-state energies, the losses of a distribution, and its order by
/// weight. Bit i of a basis index is qubit / variable i (qubit 0 least significant).

#include "corvid/qaoa/descending_order.h"
#include "corvid/qaoa/losses.h"
#include "corvid/qaoa/monomial_energies.h"
#include "corvid/qaoa/z_energies.h"
