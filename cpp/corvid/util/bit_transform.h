#pragma once
/// In-place butterfly transforms over the bits of a 2^n array of doubles: for every bit i and
/// every index x with bit i clear, `butterfly(a[x], a[x | 1 << i])` is applied once, bit by bit
/// (the bits commute for the transforms used here). The Walsh–Hadamard transform and the
/// subset-sum (zeta) transform both have this form; both are defined here once and serve the
/// energies (qaoa/) and the simulator's phase diagonals (sim/compile/).
///
/// Work O(n 2^n). Memory traffic is kept low: the lowest kLowBits bits are done inside
/// L1-sized blocks in one pass, the higher bits kGroupBits at a time, each group in one pass
/// over the array on tiles of kGroupRows rows x kTileColumns contiguous doubles. OpenMP over
/// blocks / tiles above kParallelThreshold entries.

#include <cstddef>
#include <cstdint>

#include "corvid/util/parallel.h"

namespace corvid {
namespace bit_transform_detail {

inline constexpr int kLowBits = 12;  // 4096 doubles = 32 KiB, one L1 data cache
inline constexpr int kGroupBits = 4;
inline constexpr std::size_t kGroupRows = std::size_t{1} << kGroupBits;
inline constexpr std::size_t kTileColumns = 64;  // 16 rows x 64 x 8 B = 8 KiB per tile

/// All bits below `bits` of one contiguous block of 2^bits entries.
template <class Butterfly>
void transform_block(double* a, int bits, const Butterfly& butterfly) {
  const std::size_t size = std::size_t{1} << bits;
  for (std::size_t h = 1; h < size; h <<= 1) {
    for (std::size_t i = 0; i < size; i += 2 * h) {
      double* lo = a + i;
      double* hi = a + i + h;
#pragma omp simd
      for (std::size_t j = 0; j < h; ++j) butterfly(lo[j], hi[j]);
    }
  }
}

/// Bits [first, first + count) on a tile: `count` levels over 2^count rows of kTileColumns
/// doubles, row r starting at a + r * 2^first.
template <class Butterfly>
void transform_tile(double* a, int first, int count, const Butterfly& butterfly) {
  const std::size_t stride = std::size_t{1} << first;
  const std::size_t rows = std::size_t{1} << count;
  for (std::size_t h = 1; h < rows; h <<= 1) {
    for (std::size_t r = 0; r < rows; r += 2 * h) {
      for (std::size_t q = r; q < r + h; ++q) {
        double* lo = a + q * stride;
        double* hi = a + (q + h) * stride;
#pragma omp simd
        for (std::size_t j = 0; j < kTileColumns; ++j) butterfly(lo[j], hi[j]);
      }
    }
  }
}

}  // namespace bit_transform_detail

/// The unnormalised Walsh–Hadamard butterfly: a[x] becomes sum_m a[m] (-1)^popcount(x & m).
struct WalshButterfly {
  void operator()(double& lo, double& hi) const {
    const double sum = lo + hi;
    hi = lo - hi;
    lo = sum;
  }
};

/// The subset-sum (zeta) butterfly: a[x] becomes sum over masks m contained in x of a[m].
struct SubsetSumButterfly {
  void operator()(double& lo, double& hi) const { hi += lo; }
};

/// Applies `butterfly(double& lo, double& hi)` over every bit of a[0 .. 2^num_bits).
/// `a` is borrowed; num_bits <= 63 and the caller owns validation.
template <class Butterfly>
void transform_bits(double* a, int num_bits, const Butterfly& butterfly) {
  using namespace bit_transform_detail;
  const std::size_t size = std::size_t{1} << num_bits;
  const bool parallel = parallel_worthwhile(size);
  const int low = num_bits < kLowBits ? num_bits : kLowBits;
  const std::int64_t blocks = static_cast<std::int64_t>(size >> low);
#pragma omp parallel for schedule(static) if (parallel)
  for (std::int64_t b = 0; b < blocks; ++b) {
    transform_block(a + (static_cast<std::size_t>(b) << low), low, butterfly);
  }
  for (int first = low; first < num_bits; first += kGroupBits) {
    const int count = num_bits - first < kGroupBits ? num_bits - first : kGroupBits;
    // A tile is fixed by its column run (bits below `first`) and the bits above the group.
    const std::size_t runs = (std::size_t{1} << first) / kTileColumns;
    const std::int64_t tiles = static_cast<std::int64_t>((size >> count) / kTileColumns);
#pragma omp parallel for schedule(static) if (parallel)
    for (std::int64_t t = 0; t < tiles; ++t) {
      const std::size_t outer = static_cast<std::size_t>(t) / runs;
      const std::size_t run = static_cast<std::size_t>(t) % runs;
      double* base = a + (outer << (first + count)) + run * kTileColumns;
      transform_tile(base, first, count, butterfly);
    }
  }
}

/// The Walsh–Hadamard transform of a[0 .. 2^num_bits), in place (see transform_bits).
inline void walsh_transform(double* a, int num_bits) {
  transform_bits(a, num_bits, WalshButterfly{});
}

/// The same on one block small enough for the cache, serially: for callers that fill and
/// consume blocks themselves (num_bits <= kLowBits keeps it in L1).
inline void walsh_transform_block(double* a, int num_bits) {
  bit_transform_detail::transform_block(a, num_bits, WalshButterfly{});
}

/// The subset-sum transform of a[0 .. 2^num_bits), in place (see transform_bits).
inline void subset_sum_transform(double* a, int num_bits) {
  transform_bits(a, num_bits, SubsetSumButterfly{});
}

}  // namespace corvid
