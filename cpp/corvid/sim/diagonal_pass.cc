#include "corvid/sim/diagonal_pass.h"

#include <algorithm>
#include <cmath>

#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

// Work unit of the parallel pass: 2^12 amplitudes (64 KiB).
constexpr unsigned kChunkBits = 12;

}  // namespace

DiagonalPass::DiagonalPass(const DiagonalOp& op, const KernelSet& kernels)
    : op_(op), kernels_(kernels) {
  if (op.values == nullptr) {
    table_.push_back(std::polar(1.0, op.global_phase));
  } else {
    for (double level : op.values->levels()) {
      table_.push_back(std::polar(1.0, op.global_phase - op.scale * level));
    }
  }
}

void DiagonalPass::apply(Amplitude* amps, Index begin, Index count) const {
  const DiagonalValues* v = op_.values.get();
  if (v == nullptr) {
    const Amplitude t = table_[0];
    for (Index i = begin; i < begin + count; ++i) amps[i] = cmul(amps[i], t);
  } else if (v->index8() != nullptr) {
    kernels_.phase_table8(amps + begin, v->index8() + begin, table_.data(), count);
  } else if (v->index16() != nullptr) {
    kernels_.phase_table16(amps + begin, v->index16() + begin, table_.data(), count);
  } else {
    const double* values = v->dense();
    for (Index i = begin; i < begin + count; ++i) {
      amps[i] = cmul(amps[i], std::polar(1.0, op_.global_phase - op_.scale * values[i]));
    }
  }
}

void DiagonalPass::apply_all(Amplitude* amps, unsigned num_qubits) const {
  const Index size = Index{1} << num_qubits;
  const Index chunk = std::min(size, Index{1} << kChunkBits);
  const auto chunks = static_cast<std::int64_t>(size / chunk);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
  for (std::int64_t c = 0; c < chunks; ++c) apply(amps, static_cast<Index>(c) * chunk, chunk);
}

}  // namespace corvid
