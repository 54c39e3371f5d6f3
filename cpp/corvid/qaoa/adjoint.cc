// Adjoint differentiation of the QAOA loss. With U_j = exp(−i·θ_j·H_j) the 2p factors, ψ the
// final state and w[x] = ∂loss/∂p[x], the partial in θ_j is 2·Im⟨λ|H_j|φ⟩ at the point of the
// circuit where U_j acts, for φ the state and λ = U^†·(w∘ψ) carried back to that point. Both
// are carried back together, so one sweep gives every partial. The phase layer has H = D; the
// X mixer exp(+iβΣX) has H = −ΣX; each XY pair exp(+iβS) has H = −S.
#include "corvid/qaoa/adjoint.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <omp.h>

#include "corvid/qaoa/layer_products.h"
#include "corvid/qaoa/losses.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/sim/execute/compiled_executor.h"
#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/sim/execute/rotation_layer.h"
#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/kernels/matrix2.h"
#include "corvid/sim/machine/probabilities.h"
#include "corvid/util/interrupt.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;
using Amp = std::complex<double>;

constexpr unsigned kMaxAnsatzQubits = 40;
// Below this many amplitudes a batch runs one vector per thread: a kernel's thread team costs
// more than the work of one small vector.
constexpr Index kPerThreadSize = Index{1} << 15;

// exp(+iβX) = RX(−2β) on every qubit.
std::vector<QubitMatrix> x_mixer(unsigned n, double beta) {
  const Amp c{std::cos(beta), 0.0};
  const Amp s{0.0, std::sin(beta)};
  std::vector<QubitMatrix> layer;
  for (unsigned q = 0; q < n; ++q) layer.push_back({q, {c, s, s, c}});
  return layer;
}

void check_angles(std::span<const double> angles) {
  if (angles.size() < 2 || angles.size() % 2 != 0) {
    throw std::invalid_argument(
        "angles must hold 2p values (p gammas, then p betas), p >= 1; got " +
        std::to_string(angles.size()));
  }
  for (double a : angles) {
    if (!std::isfinite(a)) throw std::invalid_argument("angles must be finite");
  }
}

}  // namespace

QaoaObjective::QaoaObjective(QaoaAnsatz ansatz, EnergyTable energies)
    : ansatz_(std::move(ansatz)), energies_(std::move(energies)) {
  const unsigned n = ansatz_.num_qubits;
  if (n < 1 || n > kMaxAnsatzQubits) {
    throw std::invalid_argument("num_qubits must be in [1, " + std::to_string(kMaxAnsatzQubits) +
                                "], got " + std::to_string(n));
  }
  if (energies_.size() != (Index{1} << n)) {
    throw std::invalid_argument(
        "energies must hold 2^num_qubits = " + std::to_string(Index{1} << n) + " values, got " +
        std::to_string(energies_.size()));
  }
  for (const PhaseTerm& t : ansatz_.phase_terms) {
    if (t.mask == 0 || (t.mask >> n) != 0) {
      throw std::invalid_argument("phase term mask " + std::to_string(t.mask) +
                                  " is zero or names a qubit >= " + std::to_string(n));
    }
    if (!std::isfinite(t.coefficient))
      throw std::invalid_argument("phase coefficients must be finite");
  }
  if (ansatz_.xy_pairs) {
    for (const auto& [a, b] : *ansatz_.xy_pairs) {
      if (a >= n || b >= n || a == b) {
        throw std::invalid_argument("XY pair (" + std::to_string(a) + ", " + std::to_string(b) +
                                    ") needs two distinct qubits < " + std::to_string(n));
      }
    }
  }
  if (ansatz_.initial) {
    for (const Gate& g : *ansatz_.initial) {
      for (unsigned i = 0; i < g.num_qubits(); ++i) {
        if (g.qubit(i) >= n) {
          throw std::invalid_argument("initial-state gate " + g.to_string() +
                                      " acts on a qubit >= " + std::to_string(n));
        }
      }
    }
    initial_ = compile(*ansatz_.initial, n);
  }
  const std::vector<PhaseTerm> terms = merge_terms(ansatz_.phase_terms);
  if (!terms.empty()) phase_ = {cached_diagonal(terms, n), 1.0, 0.0};
}

void QaoaObjective::forward(StateVector& state, std::span<const double> angles) const {
  const unsigned n = ansatz_.num_qubits;
  const std::size_t p = angles.size() / 2;
  const KernelSet& k = active_kernels<double>();
  if (initial_) {
    execute(state, *initial_, true, nullptr, k);
  } else {
    // The Hadamard start is the uniform state; a plain fill is several times faster here than
    // writing it as a general product state inside the first layer's pass.
    const Index size = state.size();
    const Amp uniform{1.0 / std::sqrt(static_cast<double>(size)), 0.0};
    Amp* amps = state.data();
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < static_cast<std::int64_t>(size); ++x) amps[x] = uniform;
  }
  for (std::size_t j = 0; j < p; ++j) {
    if (!omp_in_parallel()) throw_if_interrupted();  // only the thread that started the work
    const DiagonalOp op{phase_.values, phase_.scale * angles[j], 0.0};
    const DiagonalPass pass(op, k);
    if (!ansatz_.xy_pairs) {
      apply_rotation_layer<double>(state.data(), n, x_mixer(n, angles[p + j]), k, &pass);
    } else {
      pass.apply_all(state.data(), n);
      for (const auto& [a, b] : *ansatz_.xy_pairs) {
        rotate_pair(state.data(), nullptr, n, a, b, angles[p + j]);
      }
    }
  }
}

double QaoaObjective::loss_of(const StateVector& state, const LossSettings& settings) const {
  // Every loss reads the weights straight from the amplitudes: no probability table.
  if (settings.kind == LossKind::kExpectation) {
    const Index size = state.size();
    const Amp* f = state.data();
    return energies_.visit([&](const auto& e) {
      double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) if (parallel_worthwhile(size))
      for (std::int64_t x = 0; x < static_cast<std::int64_t>(size); ++x)
        sum += std::norm(f[x]) * e(static_cast<Index>(x));
      return sum;
    });
  }
  const Weights p(std::span<const Amp>(state.data(), state.size()));
  if (settings.kind == LossKind::kCvar) return cvar(p, energies_, settings.alpha);
  return -std::log(gibbs_sum(p, energies_, settings.temperature));
}

double QaoaObjective::loss(std::span<const double> angles, const LossSettings& settings) const {
  check_angles(angles);
  const ConcurrentRun running;
  StateVector state = StateVector::uninitialized(ansatz_.num_qubits);
  forward(state, angles);
  return loss_of(state, settings);
}

AlignedBuffer<double> QaoaObjective::losses(std::span<const double> angles, std::size_t rows,
                                            const LossSettings& settings) const {
  if (rows == 0 || angles.size() % rows != 0) {
    throw std::invalid_argument("angles must hold rows x 2p values");
  }
  const std::size_t width = angles.size() / rows;
  check_angles(angles.subspan(0, width));
  check_angles(angles);
  AlignedBuffer<double> out(rows, "losses");
  const ConcurrentRun running;
  const unsigned n = ansatz_.num_qubits;
  const auto count = static_cast<std::int64_t>(rows);
  if ((Index{1} << n) < kPerThreadSize && rows > 1) {
    std::exception_ptr error;
    adopt_thread_count();
#pragma omp parallel
    {
      StateVector state;
#pragma omp for schedule(dynamic)
      for (std::int64_t r = 0; r < count; ++r) {
        try {
          if (state.size() == 0) state = StateVector::uninitialized(n);
          const auto row = angles.subspan(static_cast<std::size_t>(r) * width, width);
          forward(state, row);
          out[static_cast<std::size_t>(r)] = loss_of(state, settings);
        } catch (...) {
#pragma omp critical(corvid_qaoa_losses)
          if (!error) error = std::current_exception();
        }
      }
    }
    if (error) std::rethrow_exception(error);
    return out;
  }
  StateVector state = StateVector::uninitialized(n);
  for (std::size_t r = 0; r < rows; ++r) {
    forward(state, angles.subspan(r * width, width));
    out[r] = loss_of(state, settings);
  }
  return out;
}

namespace {

// λ = w∘ψ with w[x] = ∂loss/∂p[x] in a pass of its own (see LossWeights: for the Gibbs loss up
// to the factor 1/Z, and Z is returned), or for CVaR, whose weights are read from the
// amplitudes as the selection reads them (the loss is returned).
double cotangent(const EnergyTable& energies, const StateVector& phi, StateVector& lambda,
                 const LossSettings& settings, const LossWeights* weights) {
  const Index size = phi.size();
  const auto count = static_cast<std::int64_t>(size);
  const Amp* f = phi.data();
  Amp* l = lambda.data();
  if (weights != nullptr) return weights->all(f, l, phi.num_qubits());
  const auto weight = [f](Index x) {
    const double re = f[x].real(), im = f[x].imag();
    return re * re + im * im;
  };
  const CvarSplit split =
      cvar_split(Weights(std::span<const Amp>(f, size)), energies, settings.alpha);
  return energies.visit([&](const auto& e) {
    // Entries ahead of the boundary count whole: w = e − e[boundary]; the rest 0. Without a
    // boundary every entry counts whole (w = e), unless alpha = 0 (nothing counts).
    const bool none = settings.alpha == 0.0;
    const bool all_in = !none && !split.boundary;
    const Index b = split.boundary.value_or(0);
    const double pb = split.boundary ? weight(b) : 0.0;
    const double eb = split.boundary ? e(b) : 0.0;
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) {
      const Index i = static_cast<Index>(x);
      const double pr = weight(i);
      const bool ahead = pr > pb || (pr == pb && i < b);
      const double w = all_in ? e(i) : (!none && ahead ? e(i) - eb : 0.0);
      l[x] = w * f[x];
    }
    return split.loss;
  });
}

}  // namespace

double QaoaObjective::loss_and_gradient(std::span<const double> angles,
                                        const LossSettings& settings,
                                        std::span<double> gradient) const {
  check_angles(angles);
  if (gradient.size() != angles.size()) {
    throw std::invalid_argument("gradient must have as many entries as angles");
  }
  const ConcurrentRun running;
  const unsigned n = ansatz_.num_qubits;
  const std::size_t p = angles.size() / 2;
  StateVector phi = StateVector::uninitialized(n);
  forward(phi, angles);
  StateVector lambda = StateVector::uninitialized(n);
  // The expectation and Gibbs weights ride in the first backward pass of the X mixer.
  const std::optional<LossWeights> w = loss_weights(energies_, settings);
  const bool fused = w && !ansatz_.xy_pairs;
  double figure = fused ? 0.0 : cotangent(energies_, phi, lambda, settings, w ? &*w : nullptr);

  const KernelSet& k = active_kernels<double>();
  const DiagonalProducts diagonal(phase_, product_kernels(k));
  for (std::size_t j = p; j-- > 0;) {
    throw_if_interrupted();
    const double beta = angles[p + j];
    const DiagonalOp undo_phase{phase_.values, -phase_.scale * (j + 1 < p ? angles[j + 1] : 0.0),
                                0.0};
    const DiagonalPass pass(undo_phase, k);
    const bool phase_pending = j + 1 < p;
    if (!ansatz_.xy_pairs) {
      // One sweep of both states undoes phase j + 1 and mixer j and gathers the products of
      // both layers on the way.
      MixerProducts watch(phase_pending ? &diagonal : nullptr, product_kernels(k),
                          fused && j + 1 == p ? &*w : nullptr);
      apply_rotation_layer_pair(lambda.data(), phi.data(), n, x_mixer(n, -beta), k,
                                phase_pending ? &pass : nullptr, watch);
      if (fused && j + 1 == p) figure = watch.weights();
      if (phase_pending) gradient[j + 1] = 2.0 * watch.diagonal();
      gradient[p + j] = -2.0 * watch.mixer();
    } else {
      if (phase_pending) {
        pass.apply_all(phi.data(), n);
        pass.apply_all(lambda.data(), n);
      }
      double z = 0.0;
      const auto& pairs = *ansatz_.xy_pairs;
      for (auto it = pairs.rbegin(); it != pairs.rend(); ++it) {
        z += rotate_pair(phi.data(), lambda.data(), n, it->first, it->second, -beta);
      }
      gradient[p + j] = -2.0 * z;
      gradient[j] = 2.0 * diagonal.all(lambda.data(), phi.data(), n);
    }
  }
  if (!ansatz_.xy_pairs) gradient[0] = 2.0 * diagonal.all(lambda.data(), phi.data(), n);
  if (settings.kind != LossKind::kGibbs) return figure;
  for (double& g : gradient) g /= figure;  // λ was short of the factor 1/Z
  return w->shift - std::log(figure);
}

}  // namespace corvid
