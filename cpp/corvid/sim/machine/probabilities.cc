#include "corvid/sim/machine/probabilities.h"

#include <omp.h>

#include <algorithm>
#include <cassert>
#include <string>
#include <vector>

#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

// Below this many outcomes each thread keeps its own table; above it, threads own outputs.
constexpr Index kPrivateTableLimit = Index{1} << 12;

template <class Real>
inline double norm2(const std::complex<Real>& a) {
  const double re = a.real(), im = a.imag();
  return re * re + im * im;
}

// Bit b of the result is bit qubits[b] of i.
inline Index gather(Index i, std::span<const unsigned> qubits) {
  Index key = 0;
  for (std::size_t b = 0; b < qubits.size(); ++b) key |= ((i >> qubits[b]) & 1) << b;
  return key;
}

// Inverse of gather: bit b of j goes to bit qubits[b].
inline Index scatter(Index j, std::span<const unsigned> qubits) {
  Index i = 0;
  for (std::size_t b = 0; b < qubits.size(); ++b) i |= ((j >> b) & 1) << qubits[b];
  return i;
}

template <class State>
bool is_identity_order(const State& state, std::span<const unsigned> qubits) {
  if (qubits.size() != state.num_qubits()) return false;
  for (std::size_t b = 0; b < qubits.size(); ++b) {
    if (qubits[b] != b) return false;
  }
  return true;
}

template <class State>
void all_qubits(const State& state, double* out) {
  const auto* a = state.data();
  const auto n = static_cast<std::int64_t>(state.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(state.size()))
  for (std::int64_t i = 0; i < n; ++i) out[i] = norm2(a[i]);
}

// Few outcomes: every thread sums its share of the state into a private table; the tables are
// added in thread order so that equal inputs give bit-identical results.
template <class State>
void few_outcomes(const State& state, std::span<const unsigned> qubits, double* out,
                  Index outcomes) {
  const auto* a = state.data();
  const auto n = static_cast<std::int64_t>(state.size());
  const bool parallel = parallel_worthwhile(state.size());
  std::vector<std::vector<double>> partial(parallel ? num_threads() : 1);
#pragma omp parallel if (parallel)
  {
    std::vector<double>& local = partial[omp_get_thread_num()];
    local.assign(outcomes, 0.0);
#pragma omp for schedule(static)
    for (std::int64_t i = 0; i < n; ++i)
      local[gather(static_cast<Index>(i), qubits)] += norm2(a[i]);
  }
  std::fill(out, out + outcomes, 0.0);
  for (const std::vector<double>& local : partial) {
    for (Index j = 0; j < local.size(); ++j) out[j] += local[j];
  }
}

// Many outcomes: every output sums the 2^(n-k) amplitudes that share its listed bits, walking
// the unlisted bits with the masked-increment trick.
template <class State>
void many_outcomes(const State& state, std::span<const unsigned> qubits, double* out,
                   Index outcomes) {
  const auto* a = state.data();
  const Index free_mask = (state.size() - 1) & ~scatter(outcomes - 1, qubits);
  const auto n = static_cast<std::int64_t>(outcomes);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(state.size()))
  for (std::int64_t j = 0; j < n; ++j) {
    const Index base = scatter(static_cast<Index>(j), qubits);
    double sum = 0.0;
    Index rest = 0;
    do {
      sum += norm2(a[base | rest]);
      rest = ((rest | ~free_mask) + 1) & free_mask;
    } while (rest != 0);
    out[j] = sum;
  }
}

}  // namespace

template <class Real>
ProbabilityTable marginal_probabilities(const BasicStateVector<Real>& state,
                                        std::span<const unsigned> qubits) {
  const unsigned k = static_cast<unsigned>(qubits.size());
  assert(k <= state.num_qubits());
  const Index outcomes = Index{1} << k;
  ProbabilityTable table{
      k, PooledBuffer<double>(outcomes, "probability table of " + std::to_string(k) + " qubits")};
  if (is_identity_order(state, qubits)) {
    all_qubits(state, table.values.data());
  } else if (outcomes <= kPrivateTableLimit) {
    few_outcomes(state, qubits, table.values.data(), outcomes);
  } else {
    many_outcomes(state, qubits, table.values.data(), outcomes);
  }
  return table;
}

template ProbabilityTable marginal_probabilities(const StateVector&, std::span<const unsigned>);
template ProbabilityTable marginal_probabilities(const StateVector32&, std::span<const unsigned>);

ProbabilityTable probabilities_in_place(StateVector32&& state) {
  const unsigned n = state.num_qubits();
  PooledBuffer<Amplitude32> buffer = state.release_buffer();
  Amplitude32* a = buffer.data();
  // Entry i is read before it is overwritten, and no other entry shares its bytes.
  double* out = reinterpret_cast<double*>(a);
  const auto size = static_cast<std::int64_t>(buffer.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(buffer.size()))
  for (std::int64_t i = 0; i < size; ++i) {
    const double p = norm2(a[i]);
    out[i] = p;
  }
  return {n, std::move(buffer).reinterpret<double>()};
}

}  // namespace corvid
