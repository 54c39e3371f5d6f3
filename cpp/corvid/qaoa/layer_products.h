#pragma once
/// The gradient's inner products of two states, Σ Im(conj(λ)·H·φ) for H a phase diagonal or X on
/// a set of qubits, taken range by range while a layer's passes hold both states in cache. The
/// single-process adjoint and the distributed sweep (on each rank's slice) share them.

#include <complex>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "corvid/qaoa/energy_table.h"
#include "corvid/sim/compile/compiler.h"
#include "corvid/sim/execute/rotation_layer.h"
#include "corvid/sim/kernels/kernel_set.h"

namespace corvid {

struct LossSettings;

/// exp(iθS) on the pair (a, b) of the 2^n amplitudes at `phi`, S exchanging the amplitudes where
/// exactly one of the two is 1 (an XY mixer's term). With `lambda`, the same on it, and
/// Σ Im(conj(λ)·S·φ) before the step is returned. One parallel pass over both states.
double rotate_pair(Amplitude* phi, Amplitude* lambda, unsigned n, unsigned a, unsigned b,
                   double theta);

/// Kernels for the products: AVX2 or portable.
struct ProductKernels {
  double (*range)(const Amplitude*, const Amplitude*, std::uint64_t, std::span<const unsigned>);
  double (*rows)(const Amplitude* const*, const Amplitude* const*, unsigned, std::uint64_t);
  double (*weighted8)(const std::uint8_t*, const double*, const Amplitude*, const Amplitude*,
                      std::uint64_t);
  double (*weighted16)(const std::uint16_t*, const double*, const Amplitude*, const Amplitude*,
                       std::uint64_t);
  double (*weighted_dense)(const double*, const double*, const Amplitude*, const Amplitude*,
                           std::uint64_t);
};

/// AVX2 wherever the active kernel set is not the portable one (every other set implies it).
const ProductKernels& product_kernels(const KernelSet& k);

/// D(x) = scale·v(x) over a range, whatever form the diagonal is stored in.
class DiagonalProducts {
 public:
  /// Borrows `op` for the object's lifetime.
  DiagonalProducts(const DiagonalOp& op, const ProductKernels& k);

  /// Σ D(x)·Im(conj(λ_x)·φ_x) over x in [begin, begin + count).
  double operator()(const Amplitude* lam, const Amplitude* phi, std::uint64_t begin,
                    std::uint64_t count) const;

  /// The same over a whole state of 2^n amplitudes, in one parallel read pass.
  double all(const Amplitude* lam, const Amplitude* phi, unsigned n) const;

 private:
  const DiagonalOp& op_;
  const ProductKernels& k_;
  std::vector<double> levels_;
};

/// λ = w∘φ over a range for the losses whose weights need no figure of the whole state first,
/// w[x] = ∂loss/∂p[x] up to a constant factor: the expectation (w = e) and the Gibbs loss
/// (w = −exp(shift − e/t), the factor 1/Z left to the caller, Z = Σ p·exp(shift − e/t) with
/// shift = min e/t so that nothing overflows). Returns the range's share of Σ p·e, or of Z; a
/// null λ takes only that figure.
struct LossWeights {
  const EnergyTable* e;
  bool gibbs;
  double shift, t;

  double operator()(const Amplitude* phi, Amplitude* lam, std::uint64_t begin,
                    std::uint64_t count) const;
  /// The same over a whole state of 2^n amplitudes, in one parallel pass.
  double all(const Amplitude* phi, Amplitude* lam, unsigned n) const;
};

/// The weights of `settings`' loss over `energies`; none for CVaR, whose weights need the whole
/// distribution first. Throws std::invalid_argument for a temperature that is 0 or not finite.
std::optional<LossWeights> loss_weights(const EnergyTable& energies, const LossSettings& settings);

/// The products of one backward X-mixer layer, gathered while the layer's passes hold both
/// states in cache: Im⟨λ|D|φ⟩ before the pending phase is undone, Im⟨λ|Σ_q X_q|φ⟩ once the
/// mixer's qubits of a range are. The first backward layer writes λ from φ on the way
/// (`weights`). One running sum per thread.
class MixerProducts final : public LayerWatcher {
 public:
  /// `pending` and `weights` may be null; both are borrowed.
  MixerProducts(const DiagonalProducts* pending, const ProductKernels& k,
                const LossWeights* weights);

  void before_range(Amplitude* lam, Amplitude* phi, std::uint64_t begin,
                    std::uint64_t count) override;
  void after_range(const Amplitude* lam, const Amplitude* phi, std::uint64_t count,
                   std::span<const unsigned> qubits, double weight) override;
  void after_rows(const Amplitude* const* lam, const Amplitude* const* phi, unsigned row_bits,
                  std::uint64_t length) override;

  double diagonal() const { return total(&Sums::diagonal); }
  double mixer() const { return total(&Sums::mixer); }
  double weights() const { return total(&Sums::weights); }

 private:
  struct alignas(64) Sums {
    double diagonal = 0.0, mixer = 0.0, weights = 0.0;
  };
  Sums& mine();
  double total(double Sums::*field) const;

  const DiagonalProducts* d_;
  const ProductKernels& k_;
  const LossWeights* weights_;
  std::vector<Sums> sums_;
};

}  // namespace corvid
