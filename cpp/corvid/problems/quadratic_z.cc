#include "corvid/problems/quadratic_z.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <string>

#include "corvid/pauli/term_accumulator.h"
#include "corvid/util/memory.h"

namespace corvid {
namespace {

std::string number(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", v);
  return text;
}

// Cost of the result's terms, checked only when large (the memory query reads a file).
void require_term_memory(std::size_t terms) {
  const std::size_t bytes = terms * (sizeof(PauliOperator::Term) + 2 * sizeof(PauliFactor));
  if (bytes >= std::size_t{1} << 26) require_memory(bytes, "building a quadratic Z operator");
}

}  // namespace

std::vector<WeightedPair> upper_pairs(SquareMatrixView m, double scale) {
  std::vector<WeightedPair> pairs;
  for (std::size_t r = 0; r < m.n; ++r) {
    for (std::size_t c = r + 1; c < m.n; ++c) {
      const double w = scale * (m(r, c) + m(c, r));
      if (w != 0.0)
        pairs.push_back({static_cast<std::uint32_t>(r), static_cast<std::uint32_t>(c), w});
    }
  }
  return pairs;
}

void require_finite(std::span<const double> values, const char* what) {
  for (std::size_t k = 0; k < values.size(); ++k) {
    if (!std::isfinite(values[k])) {
      throw std::invalid_argument(std::string(what) + " must be finite, but entry " +
                                  std::to_string(k) + " is " + number(values[k]));
    }
  }
}

void require_finite(std::span<const WeightedPair> pairs, const char* what) {
  for (std::size_t p = 0; p < pairs.size(); ++p) {
    if (!std::isfinite(pairs[p].weight)) {
      throw std::invalid_argument(std::string(what) + " must be finite, but the weight of pair " +
                                  std::to_string(p) + " is " + number(pairs[p].weight));
    }
  }
}

void require_square(SquareMatrixView m, const char* what) {
  if (m.values.size() != m.n * m.n) {
    throw std::invalid_argument(std::string(what) + " must be square: " + std::to_string(m.n) +
                                " rows need " + std::to_string(m.n * m.n) + " entries, got " +
                                std::to_string(m.values.size()));
  }
  require_finite(m.values, what);
}

void require_symmetric(SquareMatrixView m, const char* what, bool zero_diagonal) {
  for (std::size_t r = 0; r < m.n; ++r) {
    if (zero_diagonal && m(r, r) != 0.0) {
      throw std::invalid_argument(std::string(what) + " must have a zero diagonal, but entry (" +
                                  std::to_string(r) + ", " + std::to_string(r) + ") is " +
                                  number(m(r, r)));
    }
    for (std::size_t c = r + 1; c < m.n; ++c) {
      const double a = m(r, c), b = m(c, r);
      if (std::fabs(a - b) > 1e-9 * std::max(std::fabs(a), std::fabs(b))) {
        throw std::invalid_argument(std::string(what) + " must be symmetric, but entry (" +
                                    std::to_string(r) + ", " + std::to_string(c) + ") is " +
                                    number(a) + " and entry (" + std::to_string(c) + ", " +
                                    std::to_string(r) + ") is " + number(b));
      }
    }
  }
}

PauliOperator quadratic_z_operator(double constant, std::span<const double> linear,
                                   std::span<const WeightedPair> pairs) {
  require_finite({&constant, 1}, "the constant");
  require_finite(linear, "the linear coefficients");
  if (linear.size() > std::size_t{std::numeric_limits<std::uint32_t>::max()} + 1) {
    throw std::invalid_argument("too many variables: qubit indices are 32-bit");
  }
  for (std::size_t p = 0; p < pairs.size(); ++p) {
    if (pairs[p].i == pairs[p].j) {
      throw std::invalid_argument("pair " + std::to_string(p) + " joins variable " +
                                  std::to_string(pairs[p].i) + " to itself");
    }
  }
  require_finite(pairs, "the pair weights");
  require_term_memory(1 + linear.size() + pairs.size());
  TermAccumulator sum(1 + linear.size() + pairs.size());
  sum.add(PauliString(), constant);
  for (std::size_t i = 0; i < linear.size(); ++i) {
    if (linear[i] != 0.0) sum.add(PauliString{{static_cast<std::uint32_t>(i), 'Z'}}, linear[i]);
  }
  for (const WeightedPair& p : pairs) {
    if (p.weight != 0.0) sum.add(PauliString{{p.i, 'Z'}, {p.j, 'Z'}}, p.weight);
  }
  return sum.finish();
}

}  // namespace corvid
