#pragma once
/// A run of CNOT and diagonal gates seen as a phase polynomial.
///
/// While such a run is applied, wire w carries the parity of the input bits in mask[w]
/// (CNOT(c, t): mask[t] ^= mask[c]); every diagonal gate then contributes phases that depend on
/// parities of the input bits. Wherever every wire carries its own bit again, the run so far
/// is the diagonal operator
///     amp[x] *= exp(i·(global_phase − scale·Σ_t coefficient_t · (−1)^popcount(x & mask_t)))
/// and can be applied as one pass over the state. Bit q of x is qubit q.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "corvid/circuit/gate.h"

namespace corvid {

/// exp(−i·scale·coefficient·(−1)^popcount(x & mask)): an RZ(2·scale·coefficient) on the parity
/// `mask`.
struct PhaseTerm {
  std::uint64_t mask;
  double coefficient;
  friend bool operator==(const PhaseTerm&, const PhaseTerm&) = default;
};

/// The terms and their common scale are kept apart exactly as the gates gave them: when every
/// angled gate of the run has one angle scale (Gate::angle_scale(), e.g. the γ of a phase
/// layer), the coefficients are the unscaled angles and `scale` is that scale, so the same
/// layer at another γ has the same terms; otherwise the coefficients are the whole angles and
/// the scale is 1.
struct PhasePolynomial {
  /// Distinct nonzero masks in ascending order, nonzero coefficients; empty when scale is 0.
  std::vector<PhaseTerm> terms;
  double scale = 1.0;
  /// Radians; the global phase is kept so that fused and gate-by-gate states agree exactly.
  double global_phase = 0.0;
};

/// `terms` in the canonical form of PhasePolynomial::terms: sorted by mask (stable), equal masks
/// summed in their given order, zero coefficients dropped. Mask 0 is kept like any other.
std::vector<PhaseTerm> merge_terms(std::vector<PhaseTerm> terms);

/// True for the kinds a phase polynomial absorbs: those with a phase rule in
/// circuit/gate_definitions.h (CNOT and the diagonal gates).
bool is_phase_polynomial_kind(GateKind kind);

/// The longest prefix of a run of phase-polynomial gates that is diagonal.
struct DiagonalRun {
  std::size_t length = 0;  ///< gates consumed (0: no prefix of `gates` is a diagonal run)
  std::size_t weight = 0;  ///< gates of the prefix other than I
  PhasePolynomial polynomial;
};

/// Scans at most `max_gates` leading gates of `gates` while they are phase-polynomial kinds and
/// returns the longest prefix after which every wire carries its own bit again. Qubits must be
/// < num_qubits <= 64. O(length · log length) time.
DiagonalRun longest_diagonal_run(std::span<const Gate> gates, unsigned num_qubits,
                                 std::size_t max_gates);

}  // namespace corvid
