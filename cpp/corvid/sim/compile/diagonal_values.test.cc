// Diagonal values against direct evaluation, in each storage form, and the cache around them.
#include "corvid/sim/compile/diagonal_values.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "corvid/sim/compile/diagonal_cache.h"

namespace corvid {
namespace {

double direct(std::span<const PhaseTerm> terms, std::uint64_t x) {
  double v = 0;
  for (const PhaseTerm& t : terms)
    v += (std::popcount(x & t.mask) & 1) ? -t.coefficient : t.coefficient;
  return v;
}

enum class Form { kIndex8, kIndex16, kDense };

struct Case {
  const char* name;
  unsigned n;
  std::vector<PhaseTerm> terms;
  Form form;
};

// Terms on single bits with weights 1, 2, 4, ... give 2^k distinct values: forms by count.
std::vector<PhaseTerm> binary_weights(unsigned k) {
  std::vector<PhaseTerm> terms;
  for (unsigned q = 0; q < k; ++q) terms.push_back({std::uint64_t{1} << q, double(1u << q)});
  return terms;
}

// 30 terms of high order on 16 qubits with small integer weights: few levels.
std::vector<PhaseTerm> random_high_order() {
  std::mt19937_64 rng(3);
  std::vector<PhaseTerm> terms;
  for (int t = 0; t < 30; ++t) terms.push_back({(rng() & 0xffff) | 1, double(rng() % 7) - 3});
  return terms;
}

class Forms : public ::testing::TestWithParam<Case> {};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

TEST_P(Forms, EveryValueMatchesDirectEvaluation) {
  const Case& c = GetParam();
  const DiagonalValues v(c.n, c.terms);
  EXPECT_EQ(v.index8() != nullptr, c.form == Form::kIndex8);
  EXPECT_EQ(v.index16() != nullptr, c.form == Form::kIndex16);
  EXPECT_EQ(v.dense() != nullptr, c.form == Form::kDense);
  EXPECT_TRUE(std::is_sorted(v.levels().begin(), v.levels().end()));
  for (std::uint64_t x = 0; x < v.size(); ++x) {
    ASSERT_NEAR(v.at(x), direct(c.terms, x), 1e-9) << "x = " << x;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, Forms,
    ::testing::Values(
        Case{"no_qubits_constant", 0, {}, Form::kIndex8},
        Case{"one_term", 1, {{1, 0.25}}, Form::kIndex8},
        // 14 qubits: more than one transform block, high-bit masks included.
        Case{"maxcut_ring", 14, {{0b11, 1}, {0b110, 1}, {0x3000, 1}, {0x2001, -1}}, Form::kIndex8},
        Case{"exactly_256", 8, binary_weights(8), Form::kIndex8},
        Case{"257_and_more", 9, binary_weights(9), Form::kIndex16},
        Case{"exactly_65536", 16, binary_weights(16), Form::kIndex16},
        Case{"over_65536", 17, binary_weights(17), Form::kDense},
        Case{"random_high_order", 16, random_high_order(), Form::kIndex8}),
    [](const auto& info) { return std::string(info.param.name); });

std::vector<PhaseTerm> terms_times(double factor) {
  return {{0b011, 0.5 * factor}, {0b110, 1.5 * factor}, {0b101, -factor}};
}

TEST(DiagonalCache, EqualTermsShareOneEntryAnyOtherKeyDoesNot) {
  clear_diagonal_cache();
  const auto a = cached_diagonal(terms_times(0.3), 3);
  EXPECT_EQ(cached_diagonal(terms_times(0.3), 3), a);
  for (std::uint64_t x = 0; x < 8; ++x) EXPECT_NEAR(a->at(x), direct(terms_times(0.3), x), 1e-15);
  std::vector<PhaseTerm> other = terms_times(0.3);
  other[2].coefficient = std::nextafter(other[2].coefficient, 0.0);  // one ulp apart
  const auto c = cached_diagonal(other, 3);
  const auto d = cached_diagonal(terms_times(0.3), 4);  // another register size
  const auto e = cached_diagonal(terms_times(0.6), 3);  // proportional is not equal
  EXPECT_NE(c, a);
  EXPECT_NE(d, a);
  EXPECT_NE(e, a);
  EXPECT_EQ(diagonal_cache_bytes(), a->bytes() + c->bytes() + d->bytes() + e->bytes());
}

TEST(DiagonalCache, LimitEvictsLeastRecentlyUsedAndHeldEntriesSurvive) {
  clear_diagonal_cache();
  const std::size_t limit = diagonal_cache_limit();
  const auto a = cached_diagonal(terms_times(1.0), 12);
  set_diagonal_cache_limit(a->bytes() + 100);
  const std::vector<PhaseTerm> one = {{0b1, 1.0}};
  const auto b = cached_diagonal(one, 12);  // evicts a
  EXPECT_EQ(diagonal_cache_bytes(), b->bytes());
  const std::size_t misses = diagonal_cache_misses();
  EXPECT_NE(cached_diagonal(terms_times(1.0), 12), a);  // recomputed
  EXPECT_EQ(diagonal_cache_misses(), misses + 1);
  EXPECT_NEAR(a->at(4095), direct(terms_times(1.0), 4095), 1e-15);  // still held
  set_diagonal_cache_limit(limit);
  clear_diagonal_cache();
  EXPECT_EQ(diagonal_cache_bytes(), 0u);
}

}  // namespace
}  // namespace corvid
