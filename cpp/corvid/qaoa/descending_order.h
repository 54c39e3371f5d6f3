#pragma once
/// The order of a distribution's entries by weight, heaviest first.

#include <cstdint>
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

}  // namespace corvid
