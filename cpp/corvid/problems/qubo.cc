#include "corvid/problems/qubo.h"

#include <algorithm>
#include <vector>

namespace corvid {
namespace {

// With x_i = (1 − Z_i)/2:  a·x_i = (a/2)·(I − Z_i)  and
// w·x_i·x_j = (w/4)·(I − Z_i − Z_j + Z_i Z_j).
PauliOperator from_binary(std::span<const double> linear, std::span<const WeightedPair> pairs,
                          double offset) {
  double constant = offset;
  std::vector<double> z(linear.size());
  auto add_linear = [&](std::size_t i, double a) {
    if (i >= z.size()) z.resize(i + 1, 0.0);
    constant += a / 2;
    z[i] -= a / 2;
  };
  for (std::size_t i = 0; i < linear.size(); ++i) add_linear(i, linear[i]);
  std::vector<WeightedPair> zz;
  zz.reserve(pairs.size());
  for (const WeightedPair& p : pairs) {
    if (p.i == p.j) {  // x_i² = x_i
      add_linear(p.i, p.weight);
      continue;
    }
    add_linear(p.i, p.weight / 2);  // (w/4)·(I − Z_i), and the same for j
    add_linear(p.j, p.weight / 2);
    constant -= p.weight / 4;  // the two halves above counted w/4 of I twice
    zz.push_back({p.i, p.j, p.weight / 4});
  }
  return quadratic_z_operator(constant, z, zz);
}

}  // namespace

PauliOperator qubo_to_operator(SquareMatrixView q, double offset) {
  require_square(q, "the QUBO matrix");
  std::vector<double> linear(q.n);
  for (std::size_t r = 0; r < q.n; ++r) linear[r] = q(r, r);
  return qubo_to_operator(linear, upper_pairs(q, 1.0), offset);
}

PauliOperator qubo_to_operator(std::span<const double> linear,
                               std::span<const WeightedPair> quadratic, double offset) {
  require_finite(linear, "the linear QUBO coefficients");
  require_finite(quadratic, "the QUBO pairs");
  require_finite({&offset, 1}, "the offset");
  return from_binary(linear, quadratic, offset);
}

}  // namespace corvid
