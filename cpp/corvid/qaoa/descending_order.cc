#include "corvid/qaoa/descending_order.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/chunks.h"
#include "corvid/qaoa/weight_key.h"

namespace corvid {
namespace {

constexpr int kDigitBits = 11;  // 2048 buckets: the scatter targets stay within the L1/L2
constexpr std::size_t kBuckets = std::size_t{1} << kDigitBits;
constexpr int kPasses = 6;  // 6 x 11 >= 63 key bits

/// Ascending sort keys for descending weights; LSD radix sorting is stable, so equal weights
/// keep their ascending index order.
inline std::uint64_t sort_key(double w) { return kWeightKeyMax - weight_key(w); }

inline std::size_t digit_of(std::uint64_t key, int pass) {
  return (key >> (pass * kDigitBits)) & (kBuckets - 1);
}

/// Before the first scatter the entries are read straight from the weights.
struct FromWeights {
  const double* p;
  std::uint64_t key(std::size_t j) const { return sort_key(p[j]); }
  std::uint32_t index(std::size_t j) const { return static_cast<std::uint32_t>(j); }
};

/// After it, from the (key, index) arrays of the previous pass.
struct FromArrays {
  const std::uint64_t* keys;
  const std::uint32_t* indices;
  std::uint64_t key(std::size_t j) const { return keys[j]; }
  std::uint32_t index(std::size_t j) const { return indices[j]; }
};

/// One stable counting-sort pass on digit `pass`. Writes keys (unless keys_out is null) and
/// indices in the new order and returns true; returns false, writing nothing, when every entry
/// has the same digit. `weights` is non-null on the first pass, which also validates them.
template <class Source>
bool scatter_pass(const Source& src, std::size_t n, int pass, std::uint64_t* keys_out,
                  std::uint32_t* indices_out, std::span<const double> weights) {
  const int chunks = chunk_count(n);
  std::vector<std::size_t> count(static_cast<std::size_t>(chunks) * kBuckets, 0);
  const bool validate = !weights.empty();
  std::size_t invalid = 0;
#pragma omp parallel for schedule(static, 1) num_threads(chunks) reduction(+ : invalid)
  for (int c = 0; c < chunks; ++c) {
    std::size_t* h = &count[static_cast<std::size_t>(c) * kBuckets];
    const std::size_t end = chunk_begin(n, chunks, c + 1);
    for (std::size_t j = chunk_begin(n, chunks, c); j < end; ++j) {
      ++h[digit_of(src.key(j), pass)];
      if (validate) invalid += !is_valid_weight(weights[j]);
    }
  }
  if (invalid != 0) check_weights(weights, "p");

  // Exclusive prefix over (digit, chunk): chunk c writes digit d after all smaller digits and
  // after the entries of digit d from earlier chunks.
  std::size_t next = 0;
  for (std::size_t d = 0; d < kBuckets; ++d) {
    std::size_t total = 0;
    for (int c = 0; c < chunks; ++c) total += count[static_cast<std::size_t>(c) * kBuckets + d];
    if (total == n) return false;
    for (int c = 0; c < chunks; ++c) {
      std::size_t& slot = count[static_cast<std::size_t>(c) * kBuckets + d];
      const std::size_t here = slot;
      slot = next;
      next += here;
    }
  }
#pragma omp parallel for schedule(static, 1) num_threads(chunks)
  for (int c = 0; c < chunks; ++c) {
    std::size_t* offset = &count[static_cast<std::size_t>(c) * kBuckets];
    const std::size_t end = chunk_begin(n, chunks, c + 1);
    for (std::size_t j = chunk_begin(n, chunks, c); j < end; ++j) {
      const std::uint64_t key = src.key(j);
      const std::size_t at = offset[digit_of(key, pass)]++;
      if (keys_out != nullptr) keys_out[at] = key;
      indices_out[at] = src.index(j);
    }
  }
  return true;
}

}  // namespace

AlignedBuffer<std::uint32_t> descending_order(std::span<const double> p) {
  const std::size_t n = p.size();
  if (n > (std::size_t{1} << 32)) {
    throw std::invalid_argument("descending_order takes at most 2^32 weights, got " +
                                std::to_string(n));
  }
  AlignedBuffer<std::uint64_t> keys[2] = {AlignedBuffer<std::uint64_t>(n, "sort keys"),
                                          AlignedBuffer<std::uint64_t>(n, "sort keys")};
  AlignedBuffer<std::uint32_t> order[2] = {AlignedBuffer<std::uint32_t>(n, "order"),
                                           AlignedBuffer<std::uint32_t>(n, "order")};
  int current = -1;  // which (keys, order) pair holds the entries; -1: still in p's order
  for (int pass = 0; pass < kPasses; ++pass) {
    const int target = current == 0 ? 1 : 0;
    std::uint64_t* keys_out = pass + 1 < kPasses ? keys[target].data() : nullptr;
    const bool moved =
        current < 0
            ? scatter_pass(FromWeights{p.data()}, n, pass, keys_out, order[target].data(),
                           pass == 0 ? p : std::span<const double>())
            : scatter_pass(FromArrays{keys[current].data(), order[current].data()}, n, pass,
                           keys_out, order[target].data(), {});
    if (moved) current = target;
  }
  if (current >= 0) return std::move(order[current]);
  // Every weight has the same key: the identity is the stable order.
#pragma omp parallel for schedule(static) if (parallel_worthwhile(n))
  for (std::int64_t j = 0; j < static_cast<std::int64_t>(n); ++j) {
    order[0][j] = static_cast<std::uint32_t>(j);
  }
  return std::move(order[0]);
}

}  // namespace corvid
