// Sorting by descending weight, stably, without comparisons on the hot path. Each entry is
// packed into one 64-bit word, (rank-preserving prefix of the weight's key, index), so all
// words are distinct and ascending words mean descending weights with ties in index order.
// The words are sorted by a most-significant-digit radix sort that recurses into buckets,
// which soon fit in cache; entries whose key prefixes tie but whose weights differ (only
// when the keys span more bits than fit beside the index) are then put right by a
// comparison sort of just those runs.
#include "corvid/qaoa/descending_order.h"

#include <omp.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/chunks.h"
#include "corvid/qaoa/weight_key.h"

namespace corvid {
namespace {

constexpr int kDigitBits = 8;  // 256 buckets: every scatter target stays in the L1 and the TLB
constexpr std::size_t kRadix = std::size_t{1} << kDigitBits;
constexpr std::size_t kLeaf = 64;  // below this a comparison sort beats another scatter
constexpr std::size_t kParallelBucket = std::size_t{1} << 18;

using Word = std::uint64_t;

inline std::size_t digit_of(Word w, int shift) { return (w >> shift) & (kRadix - 1); }
inline int next_shift(int shift) { return shift >= kDigitBits ? shift - kDigitBits : 0; }

/// How weights map to words: word = (((max_key - key) >> drop) << index_bits) | index.
struct Packing {
  std::uint64_t max_key = 0;
  int drop = 0;        // low key bits that do not fit beside the index
  int index_bits = 0;  // bit_width(n - 1)
  int word_bits = 0;   // significant bits of a word
};

/// Also counts the places where a weight exceeds its predecessor: with none, the identity is
/// already the order.
Packing choose_packing(std::span<const double> p, bool& already_ordered) {
  std::uint64_t lo = kWeightKeyMax, hi = 0;
  std::size_t invalid = 0, ascents = 0;
  const auto n = static_cast<std::int64_t>(p.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(p.size())) \
    reduction(min : lo) reduction(max : hi) reduction(+ : invalid, ascents)
  for (std::int64_t i = 0; i < n; ++i) {
    const std::uint64_t k = weight_key(p[i]);
    lo = std::min(lo, k);
    hi = std::max(hi, k);
    invalid += !is_valid_weight(p[i]);
    ascents += i > 0 && k > weight_key(p[i - 1]);
  }
  if (invalid != 0) check_weights(p, "p");
  already_ordered = ascents == 0;
  Packing pack;
  pack.max_key = hi;
  pack.index_bits = p.size() > 1 ? std::bit_width(p.size() - 1) : 0;
  const int key_bits = p.empty() ? 0 : std::bit_width(hi - lo);
  pack.drop = std::max(0, key_bits - (64 - pack.index_bits));
  pack.word_bits = key_bits - pack.drop + pack.index_bits;
  return pack;
}

/// The words before sorting: made on the fly from the weights...
struct FromWeights {
  std::span<const double> p;
  Packing pack;
  Word operator()(std::size_t i) const {
    return (((pack.max_key - weight_key(p[i])) >> pack.drop) << pack.index_bits) | i;
  }
};

/// ... or read from a buffer.
struct FromBuffer {
  const Word* data;
  Word operator()(std::size_t i) const { return data[i]; }
};

void sort_words(Word* data, Word* other, std::size_t n, int shift, bool in_data);

/// Sorts the distinct words data[0 .. n) on bits [0, shift + kDigitBits); the result lands
/// in `data` when in_data, else in `other`; both are scratch otherwise.
void sort_serial(Word* data, Word* other, std::size_t n, int shift, bool in_data) {
  if (n <= kLeaf) {
    std::sort(data, data + n);
    if (!in_data) std::copy(data, data + n, other);
    return;
  }
  std::size_t count[kRadix] = {};
  for (std::size_t i = 0; i < n; ++i) ++count[digit_of(data[i], shift)];
  if (count[digit_of(data[0], shift)] == n) {  // one bucket: nothing to move at this digit
    sort_serial(data, other, n, next_shift(shift), in_data);
    return;
  }
  std::size_t start[kRadix + 1];
  start[0] = 0;
  for (std::size_t d = 0; d < kRadix; ++d) start[d + 1] = start[d] + count[d];
  std::size_t at[kRadix];
  std::copy(start, start + kRadix, at);
  for (std::size_t i = 0; i < n; ++i) other[at[digit_of(data[i], shift)]++] = data[i];
  for (std::size_t d = 0; d < kRadix; ++d) {
    // Distinct words: after the last digit every bucket holds at most one.
    sort_serial(other + start[d], data + start[d], count[d], shift == 0 ? 0 : next_shift(shift),
                !in_data);
  }
}

/// sort_serial for large n, reading the words from `source` (which may be `data` itself):
/// the scatter is split over chunks, the buckets over threads.
template <class Source>
void sort_parallel(const Source& source, Word* data, Word* other, std::size_t n, int shift,
                   bool in_data) {
  const int chunks = chunk_count(n);
  std::vector<std::size_t> count(static_cast<std::size_t>(chunks) * kRadix, 0);
#pragma omp parallel for schedule(static, 1) num_threads(chunks)
  for (int c = 0; c < chunks; ++c) {
    std::size_t* h = &count[static_cast<std::size_t>(c) * kRadix];
    const std::size_t end = chunk_begin(n, chunks, c + 1);
    for (std::size_t i = chunk_begin(n, chunks, c); i < end; ++i) ++h[digit_of(source(i), shift)];
  }
  // Bucket d starts after all smaller digits; chunk c writes it after earlier chunks.
  std::vector<std::size_t> start(kRadix + 1, 0);
  for (std::size_t d = 0; d < kRadix; ++d) {
    start[d + 1] = start[d];
    for (int c = 0; c < chunks; ++c) {
      std::size_t& slot = count[static_cast<std::size_t>(c) * kRadix + d];
      const std::size_t here = slot;
      slot = start[d + 1];
      start[d + 1] += here;
    }
    if (start[d + 1] - start[d] == n) {  // one bucket: nothing to move at this digit
      if constexpr (!std::is_same_v<Source, FromBuffer>) {
#pragma omp parallel for schedule(static) num_threads(chunks)
        for (std::int64_t i = 0; i < static_cast<std::int64_t>(n); ++i) data[i] = source(i);
      }
      return sort_words(data, other, n, next_shift(shift), in_data);
    }
  }
#pragma omp parallel for schedule(static, 1) num_threads(chunks)
  for (int c = 0; c < chunks; ++c) {
    std::size_t* at = &count[static_cast<std::size_t>(c) * kRadix];
    const std::size_t end = chunk_begin(n, chunks, c + 1);
    for (std::size_t i = chunk_begin(n, chunks, c); i < end; ++i) {
      const Word w = source(i);
      other[at[digit_of(w, shift)]++] = w;
    }
  }
  const int next = shift == 0 ? 0 : next_shift(shift);
  for (std::size_t d = 0; d < kRadix; ++d) {  // big buckets parallelise inside themselves
    const std::size_t size = start[d + 1] - start[d];
    if (size >= kParallelBucket)
      sort_words(other + start[d], data + start[d], size, next, !in_data);
  }
#pragma omp parallel for schedule(dynamic, 1)
  for (std::size_t d = 0; d < kRadix; ++d) {
    const std::size_t size = start[d + 1] - start[d];
    if (size < kParallelBucket)
      sort_serial(other + start[d], data + start[d], size, next, !in_data);
  }
}

void sort_words(Word* data, Word* other, std::size_t n, int shift, bool in_data) {
  if (n < kParallelBucket || chunk_count(n) == 1)
    return sort_serial(data, other, n, shift, in_data);
  sort_parallel(FromBuffer{data}, data, other, n, shift, in_data);
}

/// order[j] = the index in words[j]. Words whose key prefixes tie may still differ in the
/// dropped key bits: such runs (already in index order) are stably re-sorted by weight.
void extract_order(std::span<const double> p, const Packing& pack, const Word* words,
                   std::uint32_t* order) {
  const std::size_t n = p.size();
  const int chunks = chunk_count(n);
  const Word index_mask = (Word{1} << pack.index_bits) - 1;
  auto same_prefix = [&](std::size_t a, std::size_t b) {
    return pack.drop > 0 && (words[a] >> pack.index_bits) == (words[b] >> pack.index_bits);
  };
#pragma omp parallel for schedule(static, 1) num_threads(chunks)
  for (int c = 0; c < chunks; ++c) {
    // A chunk owns the runs that start inside it, including their tails in the next chunk.
    std::size_t j = chunk_begin(n, chunks, c);
    const std::size_t end = chunk_begin(n, chunks, c + 1);
    while (j < end && j > 0 && same_prefix(j, j - 1)) ++j;
    while (j < end) {
      std::size_t last = j + 1;
      while (last < n && same_prefix(last, j)) ++last;
      for (std::size_t k = j; k < last; ++k)
        order[k] = static_cast<std::uint32_t>(words[k] & index_mask);
      if (last - j > 1) {
        std::stable_sort(order + j, order + last,
                         [&](std::uint32_t a, std::uint32_t b) { return p[a] > p[b]; });
      }
      j = last;
    }
  }
}

}  // namespace

AlignedBuffer<std::uint32_t> descending_order(std::span<const double> p) {
  const std::size_t n = p.size();
  if (n > (std::size_t{1} << 32)) {
    throw std::invalid_argument("descending_order takes at most 2^32 weights, got " +
                                std::to_string(n));
  }
  bool already_ordered = false;
  const Packing pack = choose_packing(p, already_ordered);
  AlignedBuffer<std::uint32_t> order(n, "order");
  if (already_ordered) {
#pragma omp parallel for schedule(static) if (parallel_worthwhile(n))
    for (std::int64_t j = 0; j < static_cast<std::int64_t>(n); ++j) {
      order[j] = static_cast<std::uint32_t>(j);
    }
    return order;
  }
  AlignedBuffer<Word> words(n, "sort words");
  AlignedBuffer<Word> scratch(n, "sort scratch");
  const int top_shift = std::max(0, pack.word_bits - kDigitBits);
  if (n < kParallelBucket || chunk_count(n) == 1) {
    const FromWeights word{p, pack};
    for (std::size_t i = 0; i < n; ++i) words[i] = word(i);
    sort_serial(words.data(), scratch.data(), n, top_shift, true);
  } else {
    sort_parallel(FromWeights{p, pack}, words.data(), scratch.data(), n, top_shift, true);
  }
  extract_order(p, pack, words.data(), order.data());
  return order;
}

namespace {

struct Ranked {
  std::uint64_t key;  // weight_key of the weight
  std::uint64_t index;
};

// Ahead in the order: heavier, or as heavy and of lower index.
inline bool ahead(const Ranked& a, const Ranked& b) {
  return a.key > b.key || (a.key == b.key && a.index < b.index);
}

// The best `count` entries offered, in a buffer of twice that: when it fills, the worse half
// goes and the worst kept entry becomes the bar a new entry must pass.
class TopEntries {
 public:
  explicit TopEntries(std::size_t count) : count_(count) { kept_.reserve(2 * count); }

  void offer(const Ranked& r) {
    if (full_ && !ahead(r, bar_)) return;
    kept_.push_back(r);
    if (kept_.size() == 2 * count_) shrink();
  }

  std::vector<Ranked>& entries() { return kept_; }

 private:
  void shrink() {
    std::nth_element(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(count_ - 1),
                     kept_.end(), ahead);
    bar_ = kept_[count_ - 1];
    kept_.resize(count_);
    full_ = true;
  }

  std::size_t count_;
  std::vector<Ranked> kept_;
  Ranked bar_{};
  bool full_ = false;
};

}  // namespace

AlignedBuffer<std::uint64_t> descending_order_after(std::span<const double> p,
                                                    std::optional<std::uint64_t> after,
                                                    std::size_t count) {
  const std::size_t n = p.size();
  if (after && *after >= n) {
    throw std::invalid_argument("after = " + std::to_string(*after) + " is not an index of the " +
                                std::to_string(n) + " weights");
  }
  const Ranked cursor = after ? Ranked{weight_key(p[*after]), *after} : Ranked{};
  count = std::min(count, n);
  std::vector<Ranked> all;
  if (count > 0) {
    const int chunks = chunk_count(n);
    std::vector<std::vector<Ranked>> found(chunks);
    std::size_t invalid = 0;
#pragma omp parallel for schedule(static, 1) num_threads(chunks) reduction(+ : invalid)
    for (int c = 0; c < chunks; ++c) {
      TopEntries top(count);
      for (std::size_t i = chunk_begin(n, chunks, c); i < chunk_begin(n, chunks, c + 1); ++i) {
        invalid += !is_valid_weight(p[i]);
        const Ranked r{weight_key(p[i]), i};
        if (!after || ahead(cursor, r)) top.offer(r);
      }
      found[c] = std::move(top.entries());
    }
    if (invalid != 0) check_weights(p, "p");
    for (auto& part : found) all.insert(all.end(), part.begin(), part.end());
  }
  const std::size_t kept = std::min(count, all.size());
  std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(kept), all.end(), ahead);
  AlignedBuffer<std::uint64_t> out(kept, "order");
  for (std::size_t j = 0; j < kept; ++j) out[j] = all[j].index;
  return out;
}

}  // namespace corvid
