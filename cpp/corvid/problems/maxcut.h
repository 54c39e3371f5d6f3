#pragma once
/// MaxCut as a minimisation: node i is carried by qubit i, its side of the cut is bit i, and
///   H = Σ_{edges (i, j)} (w/2)·(Z_i Z_j − I),
/// whose diagonal entry at basis state x is −(the total weight of the edges x cuts). So the
/// ground states of H are the maximum cuts, and −E is the cut weight. Weights may be negative
/// (such an edge prefers to stay uncut).

#include <span>

#include "corvid/pauli/pauli_operator.h"
#include "corvid/problems/quadratic_z.h"

namespace corvid {

/// The operator of a graph given by its edges; parallel edges add up. Throws
/// std::invalid_argument for a self-loop or a NaN or infinite weight. Nodes that no edge
/// touches have no term (and so no qubit when they come last). O(t + d log d).
PauliOperator maxcut_operator(std::span<const WeightedPair> edges);

/// The operator of a graph given by its symmetric n×n weight matrix (W_ij = W_ji is the
/// weight of edge {i, j}, 0 for no edge; zero diagonal). Throws std::invalid_argument for a
/// wrong shape, NaN or infinity, an asymmetric W or a nonzero diagonal. O(n²).
PauliOperator maxcut_operator(SquareMatrixView weights);

}  // namespace corvid
