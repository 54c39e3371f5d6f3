#include "corvid/qaoa/binary_polynomial.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>

#include "corvid/pauli/term_accumulator.h"
#include "corvid/util/errors.h"
#include "corvid/util/memory.h"

namespace corvid {
namespace {

std::vector<std::uint32_t> distinct_sorted(std::vector<std::uint32_t> variables) {
  std::sort(variables.begin(), variables.end());
  variables.erase(std::unique(variables.begin(), variables.end()), variables.end());
  return variables;
}

// Refuses expansions that cannot fit before building any of them. Estimated in double so that
// 2^k cannot overflow; small expansions skip the (file-reading) memory query.
// Returns the description of the expansion for later errors.
std::string require_expansion_memory(const std::vector<std::vector<std::uint32_t>>& sets) {
  double terms = 0, bytes = 0;
  for (const auto& set : sets) {
    double n = std::ldexp(1.0, static_cast<int>(set.size()));
    terms += n;
    bytes +=
        n * static_cast<double>(sizeof(PauliOperator::Term) + set.size() * sizeof(PauliFactor));
  }
  char what[96];
  std::snprintf(what, sizeof what, "expanding a binary polynomial into %.4g terms", terms);
  if (bytes < static_cast<double>(std::size_t{1} << 26)) return what;
  if (bytes >= 0x1p62) throw OutOfMemory(std::string(what) + " needs more memory than exists");
  require_memory(static_cast<std::size_t>(bytes), what);
  return what;
}

// Appends c·2^{−k}·Σ_{S⊆T} (−1)^{|S|} Z_S for the k distinct variables T.
// `factors` is scratch space, reused across calls.
void expand(const std::vector<std::uint32_t>& set, double coefficient, TermAccumulator& out,
            std::vector<PauliFactor>& factors) {
  const double scale = std::ldexp(coefficient, -static_cast<int>(set.size()));
  const std::uint64_t subsets = std::uint64_t{1} << set.size();
  for (std::uint64_t mask = 0; mask < subsets; ++mask) {
    factors.clear();
    for (std::size_t j = 0; j < set.size(); ++j) {
      if (mask >> j & 1) factors.push_back({set[j], 'Z'});
    }
    double sign = std::popcount(mask) % 2 ? -1.0 : 1.0;
    out.add(PauliString(factors), sign * scale);
  }
}

}  // namespace

PauliOperator binary_polynomial_to_z_operator(const std::vector<Monomial>& monomials) {
  std::vector<std::vector<std::uint32_t>> sets;  // of the monomials with nonzero coefficients
  std::vector<double> coefficients;
  sets.reserve(monomials.size());
  coefficients.reserve(monomials.size());
  for (const Monomial& m : monomials) {
    if (m.coefficient == 0.0) continue;
    sets.push_back(distinct_sorted(m.variables));
    coefficients.push_back(m.coefficient);
  }
  const std::string what = require_expansion_memory(sets);
  return naming_allocation(what, [&] {
    TermAccumulator sum(sets.size());
    std::vector<PauliFactor> factors;
    for (std::size_t i = 0; i < sets.size(); ++i) expand(sets[i], coefficients[i], sum, factors);
    return sum.finish();
  });
}

}  // namespace corvid
