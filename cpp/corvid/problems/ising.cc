#include "corvid/problems/ising.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace corvid {

PauliOperator ising_to_operator(std::span<const double> h, SquareMatrixView j, double offset) {
  if (j.n != h.size()) {
    throw std::invalid_argument("the coupling matrix must be " + std::to_string(h.size()) + "x" +
                                std::to_string(h.size()) + " to match the " +
                                std::to_string(h.size()) + " fields, got " + std::to_string(j.n) +
                                " rows");
  }
  require_square(j, "the coupling matrix");
  require_symmetric(j, "the coupling matrix", /*zero_diagonal=*/true);
  return ising_to_operator(h, upper_pairs(j, 0.5), offset);
}

PauliOperator ising_to_operator(std::span<const double> h, std::span<const WeightedPair> couplings,
                                double offset) {
  require_finite(h, "the fields h");
  require_finite(couplings, "the couplings J");
  require_finite({&offset, 1}, "the offset");
  return quadratic_z_operator(offset, h, couplings);
}

}  // namespace corvid
