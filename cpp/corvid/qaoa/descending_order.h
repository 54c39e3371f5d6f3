#pragma once
/// The order of a distribution's entries by weight, heaviest first.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "corvid/util/aligned_buffer.h"

namespace corvid {

/// The permutation `order` with p[order[0]] >= p[order[1]] >= ..., ties in ascending index
/// order (a stable sort by descending weight); -0.0 ties with +0.0.
/// Each entry is packed into one 64-bit word (order-preserving weight key, index) and the
/// words are sorted by a most-significant-digit radix sort that recurses into cache-sized
/// buckets: O(N) time, 16 N bytes of scratch (refused with OutOfMemory before allocating
/// when it cannot fit); parallel over buckets.
/// Throws std::invalid_argument unless every p[x] is finite and >= 0 and p has at most 2^32
/// entries.
AlignedBuffer<std::uint32_t> descending_order(std::span<const double> p);

/// The next `count` entries of that order after entry `after` (from the start when absent):
/// order[j + 1 ...] where order[j] == after, or fewer at the end. A selection, no sort of all
/// N: O(N + count log count) time, O(count) memory per thread, so a caller reading the order
/// a piece at a time never holds N indices. Throws std::invalid_argument unless every p[x] is
/// finite and >= 0 and `after` < N.
AlignedBuffer<std::uint64_t> descending_order_after(std::span<const double> p,
                                                    std::optional<std::uint64_t> after,
                                                    std::size_t count);

}  // namespace corvid
