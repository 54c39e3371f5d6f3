#pragma once
/// A fixed split of [0, n) into `chunks` contiguous parts of nearly equal size, for passes
/// that need per-chunk state (histograms, write offsets) to be the same in two parallel loops.

#include <algorithm>
#include <cstddef>

#include "corvid/util/parallel.h"

namespace corvid {

/// Start of chunk c (0 <= c <= chunks; chunk_begin(n, chunks, chunks) == n).
inline std::size_t chunk_begin(std::size_t n, int chunks, int c) {
  const auto k = static_cast<std::size_t>(chunks);
  const auto i = static_cast<std::size_t>(c);
  return n / k * i + std::min(i, n % k);
}

/// One chunk per thread when a pass over n entries is worth parallelising, else one.
inline int chunk_count(std::size_t n) { return parallel_worthwhile(n) ? num_threads() : 1; }

}  // namespace corvid
