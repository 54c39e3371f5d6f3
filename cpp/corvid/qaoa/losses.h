#pragma once
/// Losses of a distribution over basis states: weights p[x] (probabilities or sampled
/// frequencies, or a state's |amplitude|^2) paired with energies e[x], entry by entry. The
/// arrays may hold any number of entries (all 2^n states or a sampled few) and are borrowed
/// for the call only; energies may come as an EnergyTable (a level index, no 2^n doubles).

#include <complex>
#include <cstddef>
#include <optional>
#include <span>

#include "corvid/qaoa/energy_table.h"

namespace corvid {

/// The weights of a loss: an array p, or |a[x]|^2 of a state's amplitudes read as they are
/// needed, so that no probability table is made (the same values a table would hold).
class Weights {
 public:
  Weights(std::span<const double> p) : size_(p.size()), p_(p.data()) {}  // NOLINT: implicit
  explicit Weights(std::span<const std::complex<double>> a) : size_(a.size()), a64_(a.data()) {}
  explicit Weights(std::span<const std::complex<float>> a) : size_(a.size()), a32_(a.data()) {}

  std::size_t size() const noexcept { return size_; }
  /// f(reader) for the form in use, reader(x) = the weight of x.
  template <class F>
  decltype(auto) visit(F&& f) const {
    if (a64_ != nullptr) return f(Norm<double>{a64_});
    if (a32_ != nullptr) return f(Norm<float>{a32_});
    return f(Array{p_});
  }
  /// Throws std::invalid_argument naming the first weight that is not finite (or, with
  /// `nonnegative`, negative). O(N).
  void check(bool nonnegative) const;

 private:
  struct Array {
    const double* p;
    double operator()(std::size_t x) const { return p[x]; }
  };
  template <class Real>
  struct Norm {
    const std::complex<Real>* a;
    double operator()(std::size_t x) const {
      const double re = a[x].real(), im = a[x].imag();
      return re * re + im * im;
    }
  };

  std::size_t size_;
  const double* p_ = nullptr;
  const std::complex<double>* a64_ = nullptr;
  const std::complex<float>* a32_ = nullptr;
};

/// Energy expectation sum_x p[x] * e[x], by pairwise summation (result independent of the
/// thread count). O(N), parallel. Throws std::invalid_argument unless p and e have equal
/// length and every p[x] is finite. Empty input gives 0.0.
double expectation(std::span<const double> p, std::span<const double> e);
double expectation(const Weights& p, const EnergyTable& e);

/// sum_x p[x] * exp(-e[x] / temperature), by pairwise summation; the Gibbs loss is its
/// negative logarithm, which the caller takes. IEEE overflow gives +inf (and 0 * inf gives
/// nan), not an error. O(N), parallel. Throws std::invalid_argument unless p and e have equal
/// length, every p[x] is finite and the temperature is finite and nonzero.
double gibbs_sum(std::span<const double> p, std::span<const double> e, double temperature);
double gibbs_sum(const Weights& p, const EnergyTable& e, double temperature);

/// Conditional value at risk: the energy of the first `alpha` of probability mass, taken by
/// weight, largest first, ties in ascending index order; the entry that crosses alpha counts
/// with the part of its weight that fits. With the entries so ordered and cdf starting at 0:
/// while cdf < alpha, add w*e if cdf + w < alpha, else (alpha - cdf)*e; then cdf += w.
/// Returns that sum, not divided by alpha (alpha = 0 gives 0.0).
/// O(N) by a radix selection of the threshold weight (no full sort); parallel. Throws
/// std::invalid_argument unless p and e have equal length, every p[x] is finite and >= 0 and
/// alpha is in [0, 1].
double cvar(std::span<const double> p, std::span<const double> e, double alpha);
double cvar(const Weights& p, const EnergyTable& e, double alpha);

/// cvar() and the entry that crosses alpha (none when alpha = 0 or the total mass stays below
/// alpha). Entries before it in the order above count whole, so to first order the loss moves
/// by sum over them of dp[x] * (e[x] - e[boundary]).
struct CvarSplit {
  double loss = 0.0;
  std::optional<std::size_t> boundary;
};
CvarSplit cvar_split(const Weights& p, const EnergyTable& e, double alpha);

}  // namespace corvid
