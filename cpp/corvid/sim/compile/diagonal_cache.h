#pragma once
/// A process-wide, size-bounded store of diagonal values, so that the O(n·2^n) transform of a
/// phase polynomial is paid once per Hamiltonian rather than once per evaluation.
///
/// Entries are keyed exactly: the number of qubits, the term masks and the bit patterns of
/// their coefficients. A phase layer carries its common angle apart from its coefficients (see
/// PhasePolynomial::scale), so a new γ of the same cost function finds the same entry without
/// any scale being recovered from the angles. The store evicts least recently used entries
/// beyond its byte limit (default 2 GiB) and is safe to use from several threads. An entry it
/// does not keep (evicted, or alone over the limit) is still found while a caller holds it, so
/// that a diagonal held as a cost function's energies is never computed a second time beside it.

#include <cstddef>
#include <memory>
#include <span>

#include "corvid/sim/compile/diagonal_values.h"
#include "corvid/sim/compile/phase_polynomial.h"

namespace corvid {

/// The values v(x) = Σ_t coefficient_t·(−1)^popcount(x & mask_t) of `terms` (at least one),
/// from the store or computed and stored. Thread-safe; the entry stays valid for as long as the
/// caller holds it, even if evicted. Throws OutOfMemory when a new entry does not fit (after
/// dropping every other entry).
std::shared_ptr<const DiagonalValues> cached_diagonal(std::span<const PhaseTerm> terms,
                                                      unsigned num_qubits);

/// The stored values of `terms` when present (counted as a hit), else nullptr; never computes.
/// Lets the energies of a cost function reuse the diagonal its phase layer already paid for.
std::shared_ptr<const DiagonalValues> find_cached_diagonal(std::span<const PhaseTerm> terms,
                                                           unsigned num_qubits);

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
