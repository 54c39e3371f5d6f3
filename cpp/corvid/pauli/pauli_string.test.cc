#include "corvid/pauli/pauli_string.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

#include "corvid/pauli/pauli_key.h"

namespace corvid {
namespace {

// Single-qubit products meet the dense matrices in test_pauli.py. Factors on different
// qubits interleave; per-qubit phases multiply (i·i = −1, i·(−i) = 1).
TEST(PauliString, ProductsOnSeveralQubits) {
  using Case = std::tuple<const char*, const char*, int, const char*>;  // phase: a power of i
  for (const auto& [left, right, phase, key] :
       {Case{"", "Y7", 0, "Y7"}, Case{"Z0", "Z1", 0, "Z0 Z1"}, Case{"Z5", "X2", 0, "X2 Z5"},
        Case{"X0 X1", "Y0 Y1", 2, "Z0 Z1"}, Case{"X0 Y1", "Y0 X1", 0, "Z0 Z1"},
        Case{"X0 Z4 Y9", "Z0 X4 Y9 Z10", 0, "Y0 Y4 Z10"}, Case{"Z0 Z1", "Z1 Z2", 0, "Z0 Z2"},
        Case{"X4294967295", "Y4294967295", 1, "Z4294967295"}}) {
    const PauliProduct p = multiply(parse_pauli_key(left), parse_pauli_key(right));
    EXPECT_EQ(p.phase, phase) << left << " * " << right;
    EXPECT_EQ(format_pauli_key(p.string), key) << left << " * " << right;
  }
}

TEST(PauliString, SortsFactorsAndRejectsRepeatsAndBadLetters) {
  PauliString s({{3, 'Z'}, {0, 'X'}, {7, 'Y'}});
  EXPECT_EQ(format_pauli_key(s), "X0 Z3 Y7");
  EXPECT_THROW(PauliString({{1, 'Z'}, {1, 'X'}}), std::invalid_argument);
  EXPECT_THROW(PauliString({{1, 'I'}}), std::invalid_argument);
  EXPECT_THROW(PauliString({{1, 'z'}}), std::invalid_argument);
}

TEST(PauliString, TermOrderIsSizeThenQubitsThenLetters) {
  const char* sorted[] = {"",      "Z0",    "X1",    "Y1",    "Z1",    "Z2",
                          "X0 Z1", "Z0 X1", "Z0 Z1", "X0 Z2", "Z1 Z2", "Z0 Z1 Z2"};
  for (std::size_t i = 0; i < std::size(sorted); ++i) {
    for (std::size_t j = 0; j < std::size(sorted); ++j) {
      EXPECT_EQ(parse_pauli_key(sorted[i]) <=> parse_pauli_key(sorted[j]), i <=> j)
          << sorted[i] << " vs " << sorted[j];
    }
  }
}

TEST(PauliString, LongStringsCopyMoveAndMultiplyLikeShortOnes) {
  // Beyond FactorList::kInline factors the storage moves to the heap.
  PauliString a = parse_pauli_key("X0 X1 X2 X3 X4 X5");
  PauliString copy = a;
  PauliString moved = std::move(copy);
  EXPECT_EQ(moved, a);
  copy = moved;  // assignment into a moved-from string
  EXPECT_EQ(format_pauli_key(copy), "X0 X1 X2 X3 X4 X5");
  PauliProduct p = multiply(a, parse_pauli_key("Y0 Y1 Y2 Y3 Z6 Z7 Z8"));
  EXPECT_EQ(p.phase, 0);  // i^4
  EXPECT_EQ(format_pauli_key(p.string), "Z0 Z1 Z2 Z3 X4 X5 Z6 Z7 Z8");
  PauliString short_string = parse_pauli_key("Z1");
  copy = short_string;  // heap-backed string shrinks to one factor
  EXPECT_EQ(copy, short_string);
  EXPECT_LT(short_string, a);
}

}  // namespace
}  // namespace corvid
