// Speed of the 2^n-state numerics, beside the machine's memory bandwidth (BM_MemoryCopy):
// each benchmark reports bytes_per_second for the bytes it must at least read and write, so
// its figure reads as a fraction of the copy floor. Arguments are log2 of the entry count.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "corvid/qaoa/diagonal.h"

namespace corvid {
namespace {

std::size_t entries(const benchmark::State& state) { return std::size_t{1} << state.range(0); }

void set_bytes(benchmark::State& state, std::size_t bytes_per_iteration) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes_per_iteration));
}

/// A QAOA-like distribution: weights spread over ~40 binades (many repeats), energies in [-n, n].
struct Distribution {
  std::vector<double> p, e;
  explicit Distribution(std::size_t n, bool all_equal = false) : p(n), e(n) {
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    double total = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
      p[i] = all_equal ? 1.0 : std::pow(u(rng), 12.0);
      total += p[i];
      e[i] = static_cast<double>(std::popcount(i)) - 0.5 * std::log2(static_cast<double>(n));
    }
    for (double& w : p) w /= total;
  }
};

void BM_MemoryCopy(benchmark::State& state) {
  const std::size_t n = entries(state);
  AlignedBuffer<double> a(n), b(n);
  std::fill(a.begin(), a.end(), 1.0);
  std::fill(b.begin(), b.end(), 0.0);
  for (auto _ : state) {
    std::memcpy(b.data(), a.data(), n * sizeof(double));
    benchmark::ClobberMemory();
  }
  set_bytes(state, 2 * n * sizeof(double));
}

/// MaxCut on a ring plus all Z terms: 2n terms.
void BM_EnergiesFromZTerms(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<std::uint64_t> masks;
  std::vector<double> coeffs;
  for (int q = 0; q < n; ++q) {
    masks.push_back((std::uint64_t{1} << q) | (std::uint64_t{1} << ((q + 1) % n)));
    masks.push_back(std::uint64_t{1} << q);
    coeffs.push_back(0.5);
    coeffs.push_back(-0.25);
  }
  for (auto _ : state) benchmark::DoNotOptimize(energies_from_z_terms(n, masks, coeffs).data());
  set_bytes(state, entries(state) * sizeof(double));
}

void BM_EnergiesFromMonomials(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<std::uint64_t> masks;
  std::vector<double> coeffs;
  for (int q = 0; q < n; ++q) {
    masks.push_back((std::uint64_t{1} << q) | (std::uint64_t{1} << ((q + 1) % n)));
    coeffs.push_back(2.0);
  }
  for (auto _ : state) benchmark::DoNotOptimize(energies_from_monomials(n, masks, coeffs).data());
  set_bytes(state, entries(state) * sizeof(double));
}

void BM_Expectation(benchmark::State& state) {
  const Distribution d(entries(state));
  for (auto _ : state) benchmark::DoNotOptimize(expectation(d.p, d.e));
  set_bytes(state, 2 * d.p.size() * sizeof(double));
}

void BM_GibbsSum(benchmark::State& state) {
  const Distribution d(entries(state));
  for (auto _ : state) benchmark::DoNotOptimize(gibbs_sum(d.p, d.e, 0.5));
  set_bytes(state, 2 * d.p.size() * sizeof(double));
}

void BM_Cvar(benchmark::State& state) {
  const Distribution d(entries(state));
  for (auto _ : state) benchmark::DoNotOptimize(cvar(d.p, d.e, 0.1));
  set_bytes(state, 2 * d.p.size() * sizeof(double));
}

/// The worst case for the selection: every weight ties, so no level narrows the candidates.
void BM_CvarAllEqual(benchmark::State& state) {
  const Distribution d(entries(state), true);
  for (auto _ : state) benchmark::DoNotOptimize(cvar(d.p, d.e, 0.1));
  set_bytes(state, 2 * d.p.size() * sizeof(double));
}

void BM_DescendingOrder(benchmark::State& state) {
  const Distribution d(entries(state));
  for (auto _ : state) benchmark::DoNotOptimize(descending_order(d.p).data());
  set_bytes(state, d.p.size() * (sizeof(double) + sizeof(std::uint32_t)));
}

/// The comparison-sort baseline that descending_order replaces.
void BM_StableSortBaseline(benchmark::State& state) {
  const Distribution d(entries(state));
  std::vector<std::uint32_t> order(d.p.size());
  for (auto _ : state) {
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return d.p[a] > d.p[b]; });
    benchmark::DoNotOptimize(order.data());
  }
  set_bytes(state, d.p.size() * (sizeof(double) + sizeof(std::uint32_t)));
}

BENCHMARK(BM_MemoryCopy)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EnergiesFromZTerms)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EnergiesFromMonomials)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Expectation)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GibbsSum)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Cvar)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CvarAllEqual)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DescendingOrder)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StableSortBaseline)->Arg(20)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace corvid
