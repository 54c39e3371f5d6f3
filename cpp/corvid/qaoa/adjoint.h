#pragma once
/// The QAOA ansatz simulated from its description (initial state, phase diagonal, mixer), the
/// loss of its final distribution, and the exact gradient of that loss in all 2p angles by
/// adjoint differentiation: one forward run, then one backward sweep that carries the state
/// and the loss's cotangent back through the layers together (two states in all, no tape).
///
/// Angles are p gammas then p betas. Layer i applies exp(−i·γ_i·D), D the phase diagonal, then
/// the mixer: exp(+i·β_i·Σ_q X_q), or for an XY mixer exp(+i·β_i·(X_aX_b + Y_aY_b)/2) pair by
/// pair in the order given. Double precision throughout.

#include <cstddef>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "corvid/circuit/gate.h"
#include "corvid/qaoa/energy_table.h"
#include "corvid/sim/compile/compiler.h"
#include "corvid/sim/compile/phase_polynomial.h"
#include "corvid/sim/machine/state_vector.h"
#include "corvid/util/aligned_buffer.h"

namespace corvid {

enum class LossKind { kExpectation, kCvar, kGibbs };

/// Which loss of the final distribution p with energies e (see losses.h): sum p·e, the CVaR of
/// mass alpha, or the Gibbs loss −ln sum p·exp(−e/temperature).
struct LossSettings {
  LossKind kind = LossKind::kExpectation;
  double alpha = 1.0;
  double temperature = 1.0;
};

struct QaoaAnsatz {
  unsigned num_qubits = 0;
  /// D(x) = Σ_t coefficient_t·(−1)^popcount(x & mask_t); a constant term only turns the global
  /// phase and is left out. Repeated masks add up.
  std::vector<PhaseTerm> phase_terms;
  /// The XY mixer's pairs in order; without it, the X mixer.
  std::optional<std::vector<std::pair<unsigned, unsigned>>> xy_pairs;
  /// Gates preparing the initial state from |0…0⟩; without them, a Hadamard on every qubit.
  std::optional<std::vector<Gate>> initial;
};

class QaoaObjective {
 public:
  /// Checks `ansatz` (num_qubits in [1, 40], masks and qubits in range, pairs of distinct
  /// qubits; else std::invalid_argument) and compiles its diagonal and initial state. `energies`
  /// gives e[x] for all 2^n basis states; what it reads is borrowed for the object's lifetime.
  QaoaObjective(QaoaAnsatz ansatz, EnergyTable energies);
  QaoaObjective(QaoaAnsatz ansatz, std::span<const double> energies)
      : QaoaObjective(std::move(ansatz), EnergyTable(energies)) {}

  /// The loss at `angles` (2p finite values, p >= 1; else std::invalid_argument). O(p·2^n).
  double loss(std::span<const double> angles, const LossSettings& settings) const;

  /// The loss at `angles` and its 2p partial derivatives, written to `gradient` (same length).
  /// Costs about three and a half forward runs and two states.
  double loss_and_gradient(std::span<const double> angles, const LossSettings& settings,
                           std::span<double> gradient) const;

  /// The losses of `rows` angle vectors stored one after another in `angles`. Small registers
  /// run one vector per thread, large ones one after another with the threads in the kernels.
  AlignedBuffer<double> losses(std::span<const double> angles, std::size_t rows,
                               const LossSettings& settings) const;

 private:
  void forward(StateVector& state, std::span<const double> angles) const;
  void apply_xy_mixer(StateVector& state, double beta) const;
  double loss_of(const StateVector& state, const LossSettings& settings) const;

  QaoaAnsatz ansatz_;
  EnergyTable energies_;
  DiagonalOp phase_;  ///< D itself: exp(−i·γ·D) is phase_ scaled by γ
  std::optional<CompiledProgram> initial_;
};

}  // namespace corvid
