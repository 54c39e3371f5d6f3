#include "corvid/sim/execute/diagonal_pass.h"

#include <algorithm>
#include <cmath>

#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

// Work unit of the parallel pass: 2^12 amplitudes.
constexpr unsigned kChunkBits = 12;

template <class Real>
std::complex<Real> phase(double angle) {
  return {Real(std::cos(angle)), Real(std::sin(angle))};
}

template <class Real>
std::complex<Real> mul(std::complex<Real> a, std::complex<Real> b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

}  // namespace

template <class Real>
BasicDiagonalPass<Real>::BasicDiagonalPass(
    const DiagonalOp& op, const std::type_identity_t<BasicKernelSet<Real>>& kernels)
    : op_(op), kernels_(kernels) {
  if (op.values == nullptr) {
    table_.push_back(phase<Real>(op.global_phase));
  } else {
    for (double level : op.values->levels()) {
      table_.push_back(phase<Real>(op.global_phase - op.scale * level));
    }
  }
}

template <class Real>
void BasicDiagonalPass<Real>::apply(Value* amps, Index begin, Index count) const {
  const DiagonalValues* v = op_.values.get();
  if (v == nullptr) {
    const Value t = table_[0];
    for (Index i = begin; i < begin + count; ++i) amps[i] = mul(amps[i], t);
  } else if (v->index8() != nullptr) {
    kernels_.phase_table8(amps + begin, v->index8() + begin, table_.data(), count);
  } else if (v->index16() != nullptr) {
    kernels_.phase_table16(amps + begin, v->index16() + begin, table_.data(), count);
  } else {
    const double* values = v->dense();
    for (Index i = begin; i < begin + count; ++i) {
      amps[i] = mul(amps[i], phase<Real>(op_.global_phase - op_.scale * values[i]));
    }
  }
}

template <class Real>
void BasicDiagonalPass<Real>::apply_all(Value* amps, unsigned num_qubits) const {
  const Index size = Index{1} << num_qubits;
  const Index chunk = std::min(size, Index{1} << kChunkBits);
  const auto chunks = static_cast<std::int64_t>(size / chunk);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
  for (std::int64_t c = 0; c < chunks; ++c) apply(amps, static_cast<Index>(c) * chunk, chunk);
}

template class BasicDiagonalPass<double>;
template class BasicDiagonalPass<float>;

}  // namespace corvid
