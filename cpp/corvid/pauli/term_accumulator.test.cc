#include "corvid/pauli/term_accumulator.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "corvid/pauli/pauli_key.h"

namespace corvid {
namespace {

// Many repeats of a few hundred strings, through several table growths, against a std::map sum.
TEST(TermAccumulator, MatchesOrderedMapSum) {
  std::mt19937 gen(5);
  std::uniform_int_distribution<std::uint32_t> qubit(0, 40);
  std::uniform_int_distribution<int> small(-3, 3);
  std::vector<PauliString> pool;
  for (int i = 0; i < 300; ++i) {
    std::uint32_t a = qubit(gen), b = qubit(gen);
    pool.push_back(a == b ? PauliString({{a, 'Y'}}) : PauliString({{a, 'Z'}, {b, 'X'}}));
  }
  pool.push_back(PauliString());
  std::uniform_int_distribution<std::size_t> pick(0, pool.size() - 1);
  TermAccumulator sum;
  std::map<PauliString, double> expected;
  for (int i = 0; i < 5000; ++i) {
    const PauliString& s = pool[pick(gen)];
    double c = small(gen);  // integers, so every order of summation is exact
    sum.add(s, c);
    expected[s] += c;
  }
  PauliOperator op = sum.finish();
  std::vector<PauliOperator::Term> want;
  for (const auto& [s, c] : expected) {
    if (c != 0) want.push_back({s, c});
  }
  EXPECT_EQ(op.terms(), want);
  EXPECT_TRUE(sum.finish().empty());  // finish leaves it empty
}

}  // namespace
}  // namespace corvid
