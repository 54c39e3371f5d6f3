#pragma once
/// Pairwise summation of term(0) + ... + term(n-1): rounding error grows like O(log n) rather
/// than O(n) for a running sum. Fixed-size blocks are summed in parallel and their partial sums
/// combined pairwise, so the result does not depend on the number of threads.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "corvid/util/parallel.h"

namespace corvid {
namespace pairwise_detail {

inline constexpr std::size_t kLeaf = 128;  // summed with 8 independent accumulators
inline constexpr std::size_t kBlock = std::size_t{1} << 13;  // one parallel work item

template <class Term>
double sum_range(std::size_t begin, std::size_t end, const Term& term) {
  const std::size_t n = end - begin;
  if (n > kLeaf) {
    const std::size_t half = (n / 2 + 7) / 8 * 8;  // keep leaves a multiple of 8 long
    return sum_range(begin, begin + half, term) + sum_range(begin + half, end, term);
  }
  double acc[8] = {};
  std::size_t i = begin;
  for (; i + 8 <= end; i += 8) {
    for (int k = 0; k < 8; ++k) acc[k] += term(i + k);
  }
  double s = ((acc[0] + acc[1]) + (acc[2] + acc[3])) + ((acc[4] + acc[5]) + (acc[6] + acc[7]));
  for (; i < end; ++i) s += term(i);
  return s;
}

}  // namespace pairwise_detail

/// Sum of term(i) for i < n; `term` is called exactly once per i, possibly from several
/// threads at once. O(n).
template <class Term>
double pairwise_sum(std::size_t n, const Term& term) {
  using namespace pairwise_detail;
  if (!parallel_worthwhile(n)) return sum_range(0, n, term);
  const std::size_t blocks = (n + kBlock - 1) / kBlock;
  std::vector<double> partial(blocks);
#pragma omp parallel for schedule(static)
  for (std::int64_t b = 0; b < static_cast<std::int64_t>(blocks); ++b) {
    const std::size_t begin = static_cast<std::size_t>(b) * kBlock;
    partial[b] = sum_range(begin, begin + kBlock < n ? begin + kBlock : n, term);
  }
  return sum_range(0, blocks, [&](std::size_t b) { return partial[b]; });
}

}  // namespace corvid
