#pragma once
/// The order of a distribution's entries by weight, heaviest first.

#include <cstdint>
#include <span>

#include "corvid/util/aligned_buffer.h"

namespace corvid {

/// The permutation `order` with p[order[0]] >= p[order[1]] >= ..., ties in ascending index
/// order (a stable sort by descending weight); -0.0 ties with +0.0.
/// An LSD radix sort on the IEEE-754 bits of the weights: at most six stable scatter passes
/// of 11-bit digits, each skipped when all weights share that digit; O(N) time, about 32 N
/// bytes of scratch (refused with OutOfMemory before allocating when it cannot fit); parallel.
/// Throws std::invalid_argument unless every p[x] is finite and >= 0 and p has at most 2^32
/// entries.
AlignedBuffer<std::uint32_t> descending_order(std::span<const double> p);

}  // namespace corvid
