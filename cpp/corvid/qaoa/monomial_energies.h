#pragma once
/// Energies of a binary polynomial f(x) = sum_t coeffs[t] * prod_{i in masks[t]} x_i,
///   E[x] = sum_t coeffs[t] * [masks[t] is a subset of x].
/// Bit i of a basis index x is variable x_i (x_0 least significant); bit i of masks[t] is set
/// when monomial t contains x_i. Mask 0 is the constant; repeated masks add. Integer
/// coefficients give exact integer energies while the sums stay below 2^53.

#include <cstdint>
#include <span>

#include "corvid/util/aligned_buffer.h"

namespace corvid {

/// E[x] for every x < 2^num_vars, by the subset-sum (zeta) transform of the dense coefficient
/// array. O(terms + n 2^n) time, one 2^n buffer (refused with OutOfMemory before allocating
/// when it cannot fit). Throws std::invalid_argument unless 0 <= num_vars <= 63, masks and
/// coeffs have equal length and every mask < 2^num_vars.
AlignedBuffer<double> energies_from_monomials(int num_vars, std::span<const std::uint64_t> masks,
                                              std::span<const double> coeffs);

/// E[states[s]] for each s, term by term: O(terms x states), for a few sampled states.
/// Throws std::invalid_argument unless masks and coeffs have equal length.
AlignedBuffer<double> evaluate_monomials(std::span<const std::uint64_t> masks,
                                         std::span<const double> coeffs,
                                         std::span<const std::uint64_t> states);

}  // namespace corvid
