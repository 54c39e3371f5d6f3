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

#include <omp.h>

#include "corvid/qaoa/losses.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/sim/execute/compiled_executor.h"
#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/sim/execute/rotation_layer.h"
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
// The read passes below work on 2^12-amplitude chunks (low qubits) and 2^14-amplitude blocks
// (high qubits, up to 8 per pass), so that both states of a chunk or block stay in cache.
constexpr unsigned kChunkBits = 12;
constexpr unsigned kBlockBits = 14;
constexpr unsigned kMaxGroup = 8;

// Im(conj(a)·b).
inline double im_dot(Amp a, Amp b) { return a.real() * b.imag() - a.imag() * b.real(); }

// Inserts a zero at bit `bit` of t.
inline Index insert_zero(Index t, unsigned bit) {
  const Index low = t & ((Index{1} << bit) - 1);
  return ((t >> bit) << (bit + 1)) | low;
}

// exp(+iβX) = RX(−2β) on every qubit.
std::vector<QubitMatrix> x_mixer(unsigned n, double beta) {
  const Amp c{std::cos(beta), 0.0};
  const Amp s{0.0, std::sin(beta)};
  std::vector<QubitMatrix> layer;
  for (unsigned q = 0; q < n; ++q) layer.push_back({q, {c, s, s, c}});
  return layer;
}

// exp(iθS) on the pair (a, b), S exchanging the amplitudes where exactly one of the two is 1.
// With `lambda`, the same is applied to it and Σ Im(conj(λ)·S·φ) before the step is returned.
double rotate_pair(Amp* phi, Amp* lambda, unsigned n, unsigned a, unsigned b, double theta) {
  const Index quarter = Index{1} << (n - 2);
  const unsigned lo = std::min(a, b), hi = std::max(a, b);
  const Index bit_a = Index{1} << a, bit_b = Index{1} << b;
  const double c = std::cos(theta), s = std::sin(theta);
  const auto step = [c, s](Amp& u, Amp& v) {
    const Amp u0 = u, v0 = v;
    u = {c * u0.real() - s * v0.imag(), c * u0.imag() + s * v0.real()};
    v = {c * v0.real() - s * u0.imag(), c * v0.imag() + s * u0.real()};
  };
  double z = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : z) if (parallel_worthwhile(quarter))
  for (std::int64_t t = 0; t < static_cast<std::int64_t>(quarter); ++t) {
    const Index x = insert_zero(insert_zero(static_cast<Index>(t), lo), hi);
    if (lambda != nullptr) {
      z += im_dot(lambda[x | bit_a], phi[x | bit_b]) + im_dot(lambda[x | bit_b], phi[x | bit_a]);
      step(lambda[x | bit_a], lambda[x | bit_b]);
    }
    step(phi[x | bit_a], phi[x | bit_b]);
  }
  return z;
}

// D(x) over a range, whatever form the diagonal is stored in.
class DiagonalReader {
 public:
  explicit DiagonalReader(const DiagonalOp& op) : op_(op) {
    if (op.values != nullptr) {
      for (double level : op.values->levels()) levels_.push_back(op.scale * level);
    }
  }

  void fill(Index begin, Index count, double* out) const {
    const DiagonalValues* v = op_.values.get();
    if (v == nullptr) {
      std::fill(out, out + count, 0.0);
    } else if (const std::uint8_t* i8 = v->index8()) {
      for (Index i = 0; i < count; ++i) out[i] = levels_[i8[begin + i]];
    } else if (const std::uint16_t* i16 = v->index16()) {
      for (Index i = 0; i < count; ++i) out[i] = levels_[i16[begin + i]];
    } else {
      const double* dense = v->dense();
      for (Index i = 0; i < count; ++i) out[i] = op_.scale * dense[begin + i];
    }
  }

 private:
  const DiagonalOp& op_;
  std::vector<double> levels_;
};

// Σ_j Im(conj(a_j)·b_j) + Im(conj(c_j)·d_j) over j < count (complex values as pairs of
// doubles). Eight independent sums over the doubles, so that the additions overlap instead of
// waiting for each other and the loop vectorises: five times faster than one sum per term.
double cross_products(const double* a, const double* b, const double* c, const double* d,
                      Index count) {
  double acc[8] = {};
  const Index m = 2 * count;
  Index k = 0;
  for (; k + 8 <= m; k += 8) {
    for (unsigned u = 0; u < 8; u += 2) {
      acc[u] += a[k + u] * b[k + u + 1] + c[k + u] * d[k + u + 1];
      acc[u + 1] += a[k + u + 1] * b[k + u] + c[k + u + 1] * d[k + u];
    }
  }
  double s = (acc[0] - acc[1]) + (acc[2] - acc[3]) + ((acc[4] - acc[5]) + (acc[6] - acc[7]));
  for (; k < m; k += 2) s += a[k] * b[k + 1] - a[k + 1] * b[k] + c[k] * d[k + 1] - c[k + 1] * d[k];
  return s;
}

// Σ_x Im(conj(λ_x)·φ_(x ^ step)) for step 1 or 2, whose partners lie in the same group of 4
// amplitudes (count a multiple of 4): every pair counted from both ends.
double near_products(const double* l, const double* f, Index step, Index count) {
  double acc[8] = {};
  for (Index g = 0; g < count; g += 4) {
    for (unsigned u = 0; u < 4; ++u) {
      const Index i = g + u, k = g + (u ^ step);
      acc[2 * u] += l[2 * i] * f[2 * k + 1];
      acc[2 * u + 1] += l[2 * i + 1] * f[2 * k];
    }
  }
  return (acc[0] - acc[1]) + (acc[2] - acc[3]) + ((acc[4] - acc[5]) + (acc[6] - acc[7]));
}

// Σ Im(conj(λ)·X_q·φ) over the pairs (x, x + 2^q) inside [0, count), count a multiple of
// 2^(q+1).
double pair_products(const Amp* lam, const Amp* phi, unsigned q, Index count) {
  const Index step = Index{1} << q;
  const auto* l = reinterpret_cast<const double*>(lam);
  const auto* f = reinterpret_cast<const double*>(phi);
  if (step < 4 && count >= 4) return near_products(l, f, step, count);
  double z = 0.0;
  for (Index base = 0; base < count; base += 2 * step) {
    const Index a = 2 * base, b = 2 * (base + step);
    z += cross_products(l + a, f + b, l + b, f + a, step);
  }
  return z;
}

// The X products of qubits [first, first + width): blocks of 2^width rows of 2^row_bits
// contiguous amplitudes, one row per value of those qubits, so each block holds every pair.
double group_products(const Amp* lam, const Amp* phi, unsigned n, unsigned first, unsigned width,
                      unsigned row_bits) {
  const Index row = Index{1} << row_bits;
  const Index rows = Index{1} << width;
  const unsigned mid_bits = first - row_bits;
  const auto blocks = static_cast<std::int64_t>(Index{1} << (n - width - row_bits));
  double z = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : z) if (parallel_worthwhile(Index{1} << n))
  for (std::int64_t t = 0; t < blocks; ++t) {
    const Index mid = static_cast<Index>(t) & ((Index{1} << mid_bits) - 1);
    const Index outer = static_cast<Index>(t) >> mid_bits;
    const Index base = (outer << (first + width)) | (mid << row_bits);
    for (unsigned k = 0; k < width; ++k) {
      const Index bit = Index{1} << k;
      for (Index r = 0; r < rows; ++r) {
        if (r & bit) continue;
        const Index a = base | (r << first), b = base | ((r | bit) << first);
        z += cross_products(reinterpret_cast<const double*>(lam + a),
                            reinterpret_cast<const double*>(phi + b),
                            reinterpret_cast<const double*>(lam + b),
                            reinterpret_cast<const double*>(phi + a), row);
      }
    }
  }
  return z;
}

struct Products {
  double diagonal = 0.0;  ///< Im⟨λ|D|φ⟩
  double mixer = 0.0;     ///< Im⟨λ|Σ_q X_q|φ⟩ (when asked for)
};

// Read passes only, no scratch state: one over chunks for D and the low qubits, then one per
// group of up to kMaxGroup higher qubits.
Products products(const Amp* lam, const Amp* phi, unsigned n, const DiagonalReader& d, bool mixer) {
  const Index size = Index{1} << n;
  const unsigned low = std::min(n, kChunkBits);
  const Index chunk = Index{1} << low;
  const auto chunks = static_cast<std::int64_t>(size >> low);
  double zd = 0.0, zx = 0.0;
#pragma omp parallel reduction(+ : zd, zx) if (parallel_worthwhile(size))
  {
    std::vector<double> values(chunk);
#pragma omp for schedule(static)
    for (std::int64_t c = 0; c < chunks; ++c) {
      const Index base = static_cast<Index>(c) << low;
      d.fill(base, chunk, values.data());
      const Amp* la = lam + base;
      const Amp* fa = phi + base;
      double s0 = 0.0, s1 = 0.0;
      for (Index i = 0; i < chunk; i += 2) {
        s0 += values[i] * im_dot(la[i], fa[i]);
        s1 += values[i + 1] * im_dot(la[i + 1], fa[i + 1]);
      }
      zd += s0 + s1;
      if (mixer) {
        for (unsigned q = 0; q < low; ++q) zx += pair_products(la, fa, q, chunk);
      }
    }
  }
  if (mixer && n > low) {
    const unsigned high = n - low;
    const unsigned groups = (high + kMaxGroup - 1) / kMaxGroup;
    unsigned first = low;
    for (unsigned g = 0; g < groups; ++g) {
      const unsigned left = n - first;
      const unsigned width = (left + (groups - g) - 1) / (groups - g);
      const unsigned row_bits = std::min(first, kBlockBits - width);
      zx += group_products(lam, phi, n, first, width, row_bits);
      first += width;
    }
  }
  return {zd, zx};
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

// λ = w∘ψ with w[x] = ∂loss/∂p[x]; returns the loss. The expectation and the Gibbs loss are
// summed in the same pass that writes λ (no probability table); CVaR needs the table to find
// the entry that crosses alpha.
double QaoaObjective::cotangent(const StateVector& phi, StateVector& lambda,
                                const LossSettings& settings) const {
  return energies_.visit([&](const auto& e) { return cotangent(phi, lambda, settings, e); });
}

template <class Energy>
double QaoaObjective::cotangent(const StateVector& phi, StateVector& lambda,
                                const LossSettings& settings, const Energy& e) const {
  const Index size = phi.size();
  const auto count = static_cast<std::int64_t>(size);
  const Amp* f = phi.data();
  Amp* l = lambda.data();
  if (settings.kind == LossKind::kExpectation) {
    double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) {
      const double ex = e(static_cast<Index>(x));
      l[x] = ex * f[x];
      sum += std::norm(f[x]) * ex;
    }
    return sum;
  }
  if (settings.kind == LossKind::kGibbs) {
    const double t = settings.temperature;
    if (!std::isfinite(t) || t == 0.0) {
      throw std::invalid_argument("temperature must be finite and nonzero");
    }
    // w = −exp(−e/t)/Z; both scaled by exp(shift) so that nothing overflows. exp(shift − e/t)
    // waits in λ's real part between the two passes.
    double shift = INFINITY;
#pragma omp parallel for schedule(static) reduction(min : shift) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) shift = std::min(shift, e(static_cast<Index>(x)) / t);
    double z = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : z) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) {
      const double w = std::exp(shift - e(static_cast<Index>(x)) / t);
      l[x] = {w, 0.0};
      z += std::norm(f[x]) * w;
    }
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) l[x] = (-l[x].real() / z) * f[x];
    return shift - std::log(z);
  }
  // CVaR: the weights are read from the amplitudes, as the selection reads them.
  const auto weight = [f](Index x) {
    const double re = f[x].real(), im = f[x].imag();
    return re * re + im * im;
  };
  const CvarSplit split =
      cvar_split(Weights(std::span<const Amp>(f, size)), energies_, settings.alpha);
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
}

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
  const double loss = cotangent(phi, lambda, settings);

  const KernelSet& k = active_kernels<double>();
  const DiagonalReader reader(phase_);
  for (std::size_t j = p; j-- > 0;) {
    throw_if_interrupted();
    const double beta = angles[p + j];
    const DiagonalOp undo_phase{phase_.values, -phase_.scale * (j + 1 < p ? angles[j + 1] : 0.0),
                                0.0};
    const DiagonalPass pass(undo_phase, k);
    const bool phase_pending = j + 1 < p;
    if (!ansatz_.xy_pairs) {
      const std::vector<QubitMatrix> undo_mixer = x_mixer(n, -beta);
      for (StateVector* s : {&phi, &lambda}) {
        apply_rotation_layer<double>(s->data(), n, undo_mixer, k, phase_pending ? &pass : nullptr);
      }
      const Products z = products(lambda.data(), phi.data(), n, reader, true);
      gradient[j] = 2.0 * z.diagonal;
      gradient[p + j] = -2.0 * z.mixer;
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
      gradient[j] = 2.0 * products(lambda.data(), phi.data(), n, reader, false).diagonal;
    }
  }
  return loss;
}

}  // namespace corvid
