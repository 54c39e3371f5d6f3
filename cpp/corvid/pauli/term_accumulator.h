#pragma once
/// TermAccumulator: sums Pauli terms that arrive one at a time in any order. Like strings are
/// merged on arrival through an open-addressing hash table, so the final sort into term order
/// touches each distinct string once: building an operator from t terms with d distinct
/// strings costs O(t + d log d) instead of O(t log t).

#include <cstddef>
#include <cstdint>
#include <vector>

#include "corvid/pauli/pauli_operator.h"

namespace corvid {

class TermAccumulator {
 public:
  static constexpr std::size_t kMaxPresize = std::size_t{1} << 16;

  /// `expected_distinct` presizes the table (up to kMaxPresize terms); it is only a hint.
  explicit TermAccumulator(std::size_t expected_distinct = 0);

  /// Adds coefficient · string. Amortised O(|string|).
  void add(PauliString string, PauliOperator::Coefficient coefficient);

  /// The sum, with exact zeros dropped; leaves the accumulator empty. O(d log d).
  PauliOperator finish();

 private:
  void rehash(std::size_t slot_count);

  std::vector<PauliOperator::Term> terms_;  // distinct strings, in order of arrival
  std::vector<std::uint64_t> hashes_;       // hash of terms_[i].string
  std::vector<std::size_t> slots_;          // 1 + index into terms_, 0 when free; size 2^k
};

}  // namespace corvid
