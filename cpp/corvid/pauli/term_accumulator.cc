#include "corvid/pauli/term_accumulator.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace corvid {
namespace {

std::uint64_t hash_string(const PauliString& s) {
  std::uint64_t h = 0x9E3779B97F4A7C15ull ^ s.size();
  for (const PauliFactor& f : s.factors()) {
    h = (h ^ (std::uint64_t{f.qubit} << 8 | static_cast<unsigned char>(f.letter))) *
        0xFF51AFD7ED558CCDull;
    h ^= h >> 29;
  }
  return h;
}

}  // namespace

TermAccumulator::TermAccumulator(std::size_t expected_distinct) {
  expected_distinct = std::min(expected_distinct, kMaxPresize);
  terms_.reserve(expected_distinct);
  hashes_.reserve(expected_distinct);
  rehash(std::bit_ceil(std::max<std::size_t>(16, 2 * expected_distinct)));
}

void TermAccumulator::rehash(std::size_t slot_count) {
  slots_.assign(slot_count, 0);
  const std::size_t mask = slot_count - 1;
  for (std::size_t t = 0; t < terms_.size(); ++t) {
    std::size_t i = hashes_[t] & mask;
    while (slots_[i] != 0) i = (i + 1) & mask;
    slots_[i] = t + 1;
  }
}

void TermAccumulator::add(PauliString string, PauliOperator::Coefficient coefficient) {
  if (2 * (terms_.size() + 1) > slots_.size()) rehash(2 * slots_.size());  // load ≤ 1/2
  const std::uint64_t h = hash_string(string);
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t i = h & mask;; i = (i + 1) & mask) {
    std::size_t slot = slots_[i];
    if (slot == 0) {
      slots_[i] = terms_.size() + 1;
      terms_.push_back({std::move(string), coefficient});
      hashes_.push_back(h);
      return;
    }
    if (hashes_[slot - 1] == h && terms_[slot - 1].string == string) {
      terms_[slot - 1].coefficient += coefficient;
      return;
    }
  }
}

PauliOperator TermAccumulator::finish() {
  std::erase_if(terms_, [](const PauliOperator::Term& t) { return t.coefficient == 0.0; });
  std::sort(terms_.begin(), terms_.end(),
            [](const PauliOperator::Term& a, const PauliOperator::Term& b) {
              return a.string < b.string;
            });
  PauliOperator result;
  result.terms_ = std::move(terms_);
  terms_.clear();
  hashes_.clear();
  rehash(16);
  return result;
}

}  // namespace corvid
