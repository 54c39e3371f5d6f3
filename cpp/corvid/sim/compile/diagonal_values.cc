#include "corvid/sim/compile/diagonal_values.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cassert>
#include <string>

#include "corvid/util/bit_transform.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

// 2^12 doubles = 32 KiB of scratch per thread: the transform of a block stays in L1/L2.
constexpr unsigned kBlockBits = bit_transform_detail::kLowBits;
constexpr std::size_t kMaxLevels = 65536;

// out[l] = v(h·2^bits + l) for one block h: the terms restricted to the block's high bits give
// one coefficient per low mask; a Walsh–Hadamard transform of those gives every value.
class BlockEvaluator {
 public:
  BlockEvaluator(unsigned num_qubits, std::span<const PhaseTerm> terms)
      : bits_(std::min(num_qubits, kBlockBits)) {
    for (const PhaseTerm& t : terms) {
      low_.push_back(t.mask & ((Index{1} << bits_) - 1));
      high_.push_back(t.mask >> bits_);
      coef_.push_back(t.coefficient);
    }
  }

  unsigned bits() const { return bits_; }

  void operator()(Index block, double* out) const {
    const Index size = Index{1} << bits_;
    std::fill(out, out + size, 0.0);
    for (std::size_t t = 0; t < coef_.size(); ++t) {
      out[low_[t]] += (std::popcount(block & high_[t]) & 1) ? -coef_[t] : coef_[t];
    }
    walsh_transform_block(out, static_cast<int>(bits_));
    for (Index l = 0; l < size; ++l) out[l] += 0.0;  // −0 and +0 are one level
  }

 private:
  unsigned bits_;
  std::vector<Index> low_, high_;
  std::vector<double> coef_;
};

// Open-addressing map from a double (by bit pattern) to a small id; at most kMaxLevels keys.
class LevelMap {
 public:
  LevelMap() : keys_(kSlots, kEmpty), ids_(kSlots, 0) {}

  // Adds `value` with id `id` unless present; false when the map is full.
  bool insert(double value, std::uint32_t id = 0) {
    std::size_t s = slot(value);
    if (keys_[s] == std::bit_cast<std::uint64_t>(value)) return true;
    if (count_ == kMaxLevels) return false;
    keys_[s] = std::bit_cast<std::uint64_t>(value);
    ids_[s] = id;
    ++count_;
    return true;
  }

  std::uint32_t id(double value) const { return ids_[slot(value)]; }

  // The keys in ascending order.
  std::vector<double> sorted() const {
    std::vector<double> out;
    for (std::uint64_t k : keys_) {
      if (k != kEmpty) out.push_back(std::bit_cast<double>(k));
    }
    std::sort(out.begin(), out.end());
    return out;
  }

 private:
  static constexpr std::size_t kSlots = 2 * kMaxLevels;
  static constexpr std::uint64_t kEmpty = 0x7ff8dead0000beefULL;  // a NaN no sum produces

  // The slot holding `value`, or the empty slot where it belongs.
  std::size_t slot(double value) const {
    const std::uint64_t key = std::bit_cast<std::uint64_t>(value);
    std::size_t s = (key * 0x9e3779b97f4a7c15ULL) >> 47;  // 17 bits = log2(kSlots)
    while (keys_[s] != key && keys_[s] != kEmpty) s = (s + 1) & (kSlots - 1);
    return s;
  }

  std::vector<std::uint64_t> keys_;
  std::vector<std::uint32_t> ids_;
  std::size_t count_ = 0;
};

// Calls body(block, values) for every block, in parallel, with per-thread scratch.
template <class Body>
void for_each_block(const BlockEvaluator& eval, unsigned num_qubits, Body body) {
  const auto blocks = static_cast<std::int64_t>(Index{1} << (num_qubits - eval.bits()));
#pragma omp parallel if (parallel_worthwhile(Index{1} << num_qubits))
  {
    std::vector<double> scratch(Index{1} << eval.bits());
#pragma omp for schedule(static)
    for (std::int64_t h = 0; h < blocks; ++h) {
      eval(static_cast<Index>(h), scratch.data());
      body(static_cast<Index>(h), scratch.data());
    }
  }
}

// The sorted distinct values, or an empty list when there are more than kMaxLevels.
std::vector<double> find_levels(const BlockEvaluator& eval, unsigned num_qubits) {
  std::atomic<bool> too_many{false};
  std::vector<double> levels;
  const Index block = Index{1} << eval.bits();
#pragma omp parallel if (parallel_worthwhile(Index{1} << num_qubits))
  {
    LevelMap local;
    std::vector<double> scratch(block);
    const auto blocks = static_cast<std::int64_t>(Index{1} << (num_qubits - eval.bits()));
#pragma omp for schedule(static)
    for (std::int64_t h = 0; h < blocks; ++h) {
      if (too_many.load(std::memory_order_relaxed)) continue;
      eval(static_cast<Index>(h), scratch.data());
      for (Index l = 0; l < block; ++l) {
        if (!local.insert(scratch[l])) too_many = true;
      }
    }
    const std::vector<double> mine = local.sorted();
#pragma omp critical
    {
      std::vector<double> merged;
      std::set_union(levels.begin(), levels.end(), mine.begin(), mine.end(),
                     std::back_inserter(merged));
      levels = std::move(merged);
    }
  }
  if (too_many || levels.size() > kMaxLevels) return {};
  return levels;
}

template <class T>
void write_index(const BlockEvaluator& eval, unsigned num_qubits, const std::vector<double>& levels,
                 T* out) {
  LevelMap map;
  for (std::size_t k = 0; k < levels.size(); ++k)
    map.insert(levels[k], static_cast<std::uint32_t>(k));
  const Index block = Index{1} << eval.bits();
  for_each_block(eval, num_qubits, [&](Index h, const double* values) {
    T* dst = out + h * block;
    for (Index l = 0; l < block; ++l) dst[l] = static_cast<T>(map.id(values[l]));
  });
}

std::string describe(unsigned num_qubits) {
  return "diagonal of " + std::to_string(num_qubits) + " qubits";
}

}  // namespace

DiagonalValues::DiagonalValues(unsigned num_qubits, std::span<const PhaseTerm> terms)
    : num_qubits_(num_qubits) {
  assert(num_qubits < 64);
  const BlockEvaluator eval(num_qubits, terms);
  const Index size = Index{1} << num_qubits;
  levels_ = find_levels(eval, num_qubits);
  if (levels_.empty()) {
    dense_ = AlignedBuffer<double>(size, describe(num_qubits));
    const Index block = Index{1} << eval.bits();
    for_each_block(eval, num_qubits, [&](Index h, const double* values) {
      std::copy_n(values, block, dense_.data() + h * block);
    });
  } else if (levels_.size() <= 256) {
    index8_ = AlignedBuffer<std::uint8_t>(size, describe(num_qubits));
    write_index(eval, num_qubits, levels_, index8_.data());
  } else {
    index16_ = AlignedBuffer<std::uint16_t>(size, describe(num_qubits));
    write_index(eval, num_qubits, levels_, index16_.data());
  }
}

double DiagonalValues::at(std::uint64_t x) const noexcept {
  if (index8_.size()) return levels_[index8_[x]];
  if (index16_.size()) return levels_[index16_[x]];
  return dense_[x];
}

void DiagonalValues::expand(double* out, double offset) const {
  std::vector<double> shifted(levels_);
  for (double& l : shifted) l += offset;
  const auto size = static_cast<std::int64_t>(this->size());
  const std::uint8_t* i8 = index8();
  const std::uint16_t* i16 = index16();
#pragma omp parallel for schedule(static) if (parallel_worthwhile(this->size()))
  for (std::int64_t x = 0; x < size; ++x) {
    out[x] = i8 ? shifted[i8[x]] : i16 ? shifted[i16[x]] : offset + dense_[x];
  }
}

std::size_t DiagonalValues::bytes() const noexcept {
  return levels_.size() * sizeof(double) + index8_.size() + index16_.size() * 2 +
         dense_.size() * sizeof(double);
}

}  // namespace corvid
