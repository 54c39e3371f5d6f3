#include "corvid/problems/maxcut.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace corvid {

PauliOperator maxcut_operator(std::span<const WeightedPair> edges) {
  require_finite(edges, "the edge weights");
  double constant = 0;
  std::vector<WeightedPair> zz;
  zz.reserve(edges.size());
  for (std::size_t e = 0; e < edges.size(); ++e) {
    if (edges[e].i == edges[e].j) {
      throw std::invalid_argument("edge " + std::to_string(e) + " is a self-loop on node " +
                                  std::to_string(edges[e].i) + ": it can never be cut");
    }
    constant -= edges[e].weight / 2;
    zz.push_back({edges[e].i, edges[e].j, edges[e].weight / 2});
  }
  return quadratic_z_operator(constant, {}, zz);
}

PauliOperator maxcut_operator(SquareMatrixView weights) {
  require_square(weights, "the weight matrix");
  require_symmetric(weights, "the weight matrix", /*zero_diagonal=*/true);
  return maxcut_operator(upper_pairs(weights, 0.5));
}

}  // namespace corvid
