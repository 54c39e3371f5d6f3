#pragma once
/// Argument checks shared by the kernels over 2^n basis states. Each throws
/// std::invalid_argument with a message naming the offending value; kernels behind these
/// checks only assert.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace corvid {

/// Shortest round-trip text of a double ("0.1", "nan", "-inf"), for error messages.
std::string format_double(double value);

/// Requires 0 <= num_bits <= 63; `name` is the argument's name ("num_qubits").
void check_num_bits(int num_bits, const char* name);

/// Requires two arrays that pair up entry by entry to have the same length.
void check_same_length(std::size_t size_a, const char* name_a, std::size_t size_b,
                       const char* name_b);

/// Requires masks.size() == coeffs.size() and every mask to lie within bits [0, num_bits);
/// `unit` names what a bit stands for ("qubit", "variable").
void check_terms(std::span<const std::uint64_t> masks, std::span<const double> coeffs, int num_bits,
                 const char* unit);

/// Requires every entry of `values` to be finite. O(N).
void check_finite(std::span<const double> values, const char* name);

/// Requires every weight to be finite and >= 0 (-0.0 counts as 0). O(N).
void check_weights(std::span<const double> weights, const char* name);

/// True for a weight that check_weights accepts; branch-free so scans can fuse it.
inline bool is_valid_weight(double w) { return w >= 0.0 && w <= 1.7976931348623157e308; }

}  // namespace corvid
