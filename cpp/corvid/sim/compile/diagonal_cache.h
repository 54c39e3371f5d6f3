#pragma once
/// A process-wide, size-bounded store of diagonal values, so that the O(n·2^n) transform of a
/// phase polynomial is paid once per Hamiltonian rather than once per evaluation.
///
/// Entries are keyed by structure: the number of qubits, the term masks and the angle ratios
/// angle_t / angle_ref, where the reference is the first term. A polynomial whose angles are
/// all scaled by one factor (a new γ of the same cost function) finds the same entry. Ratios
/// match within a relative 1e-14, which absorbs the rounding of products such as 2·c·γ.
/// The store evicts least recently used entries beyond its byte limit (default 2 GiB) and is
/// safe to use from several threads.

#include <cstddef>
#include <memory>

#include "corvid/sim/compile/diagonal_values.h"
#include "corvid/sim/compile/phase_polynomial.h"

namespace corvid {

/// v(x) from the store and the factor that turns it into the polynomial's phase sum:
/// Σ_t angle_t·(−1)^popcount(x & mask_t) = scale · values->at(x).
struct ScaledDiagonal {
  std::shared_ptr<const DiagonalValues> values;
  double scale = 0.0;
};

/// Looks `polynomial` (at least one term) up or computes and stores it. Thread-safe; the entry
/// stays valid for as long as the caller holds it, even if evicted. Throws OutOfMemory when a
/// new entry does not fit (after dropping every other entry).
ScaledDiagonal cached_diagonal(const PhasePolynomial& polynomial, unsigned num_qubits);

/// Bytes held by the store now, and its limit.
std::size_t diagonal_cache_bytes();
std::size_t diagonal_cache_limit();
/// Sets the byte limit (0 disables storing) and evicts down to it.
void set_diagonal_cache_limit(std::size_t bytes);
/// Drops every entry (entries still held by callers live on until released).
void clear_diagonal_cache();
/// Number of lookups answered from the store / computed since the process started.
std::size_t diagonal_cache_hits();
std::size_t diagonal_cache_misses();

}  // namespace corvid
