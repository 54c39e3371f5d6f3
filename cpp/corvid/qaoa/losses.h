#pragma once
/// Losses of a distribution over basis states: weights p[x] (probabilities or sampled
/// frequencies) paired with energies e[x], entry by entry. The arrays may hold any number of
/// entries (all 2^n states or a sampled few) and are borrowed for the call only.

#include <cstddef>
#include <optional>
#include <span>

namespace corvid {

/// Energy expectation sum_x p[x] * e[x], by pairwise summation (result independent of the
/// thread count). O(N), parallel. Throws std::invalid_argument unless p and e have equal
/// length and every p[x] is finite. Empty input gives 0.0.
double expectation(std::span<const double> p, std::span<const double> e);

/// sum_x p[x] * exp(-e[x] / temperature), by pairwise summation; the Gibbs loss is its
/// negative logarithm, which the caller takes. IEEE overflow gives +inf (and 0 * inf gives
/// nan), not an error. O(N), parallel. Throws std::invalid_argument unless p and e have equal
/// length, every p[x] is finite and the temperature is finite and nonzero.
double gibbs_sum(std::span<const double> p, std::span<const double> e, double temperature);

/// Conditional value at risk: the energy of the first `alpha` of probability mass, taken by
/// weight, largest first, ties in ascending index order; the entry that crosses alpha counts
/// with the part of its weight that fits. With the entries so ordered and cdf starting at 0:
/// while cdf < alpha, add w*e if cdf + w < alpha, else (alpha - cdf)*e; then cdf += w.
/// Returns that sum, not divided by alpha (alpha = 0 gives 0.0).
/// O(N) by a radix selection of the threshold weight (no full sort); parallel. Throws
/// std::invalid_argument unless p and e have equal length, every p[x] is finite and >= 0 and
/// alpha is in [0, 1].
double cvar(std::span<const double> p, std::span<const double> e, double alpha);

/// cvar() and the entry that crosses alpha (none when alpha = 0 or the total mass stays below
/// alpha). Entries before it in the order above count whole, so to first order the loss moves
/// by sum over them of dp[x] * (e[x] - e[boundary]).
struct CvarSplit {
  double loss = 0.0;
  std::optional<std::size_t> boundary;
};
CvarSplit cvar_split(std::span<const double> p, std::span<const double> e, double alpha);

}  // namespace corvid
