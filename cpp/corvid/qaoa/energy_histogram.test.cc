// energy_histogram against long-double sums per bin, through every energy form, and its checks.
#include "corvid/qaoa/energy_histogram.h"

#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using ::testing::ThrowsMessage;

Weights weights(const std::vector<double>& p) { return std::span<const double>(p); }

struct Naive {
  long double below = 0.0L;
  std::vector<long double> mass, moment;
};

Naive naive(const std::vector<double>& p, const std::vector<double>& e, double low, double high,
            int bins, double threshold) {
  Naive out{0.0L, std::vector<long double>(bins), std::vector<long double>(bins)};
  for (std::size_t x = 0; x < p.size(); ++x) {
    if (e[x] <= threshold) out.below += p[x];
    const double t = high > low ? std::floor((e[x] - low) * (bins / (high - low))) : 0.0;
    const int k = static_cast<int>(std::clamp(t, 0.0, bins - 1.0));
    out.mass[k] += p[x];
    out.moment[k] += static_cast<long double>(p[x]) * e[x];
  }
  return out;
}

void expect_near(const EnergyHistogram& h, const Naive& want) {
  EXPECT_NEAR(h.at_or_below, static_cast<double>(want.below), 1e-13);
  ASSERT_EQ(h.mass.size(), want.mass.size());
  for (std::size_t k = 0; k < h.mass.size(); ++k) {
    EXPECT_NEAR(h.mass[k], static_cast<double>(want.mass[k]), 1e-13) << "bin " << k;
    EXPECT_NEAR(h.moment[k], static_cast<double>(want.moment[k]), 1e-12) << "bin " << k;
  }
}

// Sizes around the parallel threshold and the block and chunk lengths; energies from a level
// table (MaxCut on a ring with chords), so every stored form is read.
TEST(EnergyHistogram, MatchesNaiveSumsForEveryForm) {
  for (int n : {0, 3, 14, 17, 21}) {
    std::mt19937_64 rng(n);
    std::vector<std::uint64_t> masks;
    std::vector<double> coeffs;
    for (int q = 0; q < n; ++q) {
      masks.push_back((1ULL << q) | (1ULL << ((q + 1 + q % 3) % n)));
      coeffs.push_back(q % 2 ? 0.5 : 1.0);
    }
    if (n == 0) masks.clear(), coeffs.clear();
    const EnergyTable table = energy_table_from_z_terms(n, masks, coeffs);
    const AlignedBuffer<double> dense = table.to_array();
    const std::vector<double> e(dense.data(), dense.data() + table.size());
    std::vector<std::complex<double>> a(e.size());
    std::vector<double> p(e.size());
    double norm = 0.0;
    for (auto& z : a) {
      z = {std::normal_distribution<double>()(rng), std::normal_distribution<double>()(rng)};
      norm += std::norm(z);
    }
    for (std::size_t x = 0; x < a.size(); ++x) p[x] = std::norm(a[x] /= std::sqrt(norm));
    const double low = table.min(), high = table.max();
    for (int bins : {1, 7, 256}) {
      SCOPED_TRACE("n=" + std::to_string(n) + " bins=" + std::to_string(bins));
      const double threshold = low + 0.3 * (high - low);
      const int threads = num_threads();
      set_num_threads(1);
      const EnergyHistogram one = energy_histogram(weights(p), table, low, high, bins, threshold);
      set_num_threads(3);
      const EnergyHistogram three = energy_histogram(weights(p), table, low, high, bins, threshold);
      set_num_threads(threads);
      expect_near(one, naive(p, e, low, high, bins, threshold));
      // Same bits whatever the thread count, the energy form or the weight form.
      EXPECT_EQ(three.mass, one.mass);
      EXPECT_EQ(three.at_or_below, one.at_or_below);
      EXPECT_EQ(energy_histogram(weights(p), EnergyTable(e), low, high, bins, threshold).moment,
                one.moment);
      const auto from_amplitudes = energy_histogram(
          Weights(std::span<const std::complex<double>>(a)), table, low, high, bins, threshold);
      EXPECT_EQ(from_amplitudes.mass, one.mass);
    }
  }
}

// Energies outside [low, high] clamp to the end bins; a zero-width range is one bin.
TEST(EnergyHistogram, ClampsAndCollapses) {
  const std::vector<double> p = {0.1, 0.2, 0.3, 0.4}, e = {-5.0, 0.0, 1.0, 9.0};
  const EnergyHistogram h = energy_histogram(weights(p), EnergyTable(e), 0.0, 1.0, 2, 0.0);
  EXPECT_DOUBLE_EQ(h.at_or_below, 0.3);
  EXPECT_THAT(h.mass, ::testing::Pointwise(::testing::DoubleEq(), {0.3, 0.7}));
  EXPECT_THAT(h.moment, ::testing::Pointwise(::testing::DoubleEq(), {-0.5, 3.9}));
  const EnergyHistogram flat = energy_histogram(weights(p), EnergyTable(e), 2.0, 2.0, 3, 2.0);
  EXPECT_THAT(flat.mass, ::testing::Pointwise(::testing::DoubleEq(), {1.0, 0.0, 0.0}));
}

TEST(EnergyHistogram, RejectsBadArguments) {
  const std::vector<double> p = {0.5, 0.5}, e = {1.0, 2.0}, bad = {0.5, std::nan("")};
  const double inf = std::numeric_limits<double>::infinity();
  const std::pair<std::function<void()>, std::string> calls[] = {
      {[&] { energy_histogram(weights(p), EnergyTable(std::span(e).first(1)), 1, 2, 4, 1); },
       "p and e must have the same length, got 2 and 1"},
      {[&] { energy_histogram(weights(p), EnergyTable(e), 1, 2, 0, 1); },
       "bins must be in [1, 4096], got 0"},
      {[&] { energy_histogram(weights(p), EnergyTable(e), 2, 1, 4, 1); },
       "the energy range must be finite with low <= high, got [2, 1]"},
      {[&] { energy_histogram(weights(p), EnergyTable(e), 1, inf, 4, 1); },
       "the energy range must be finite with low <= high, got [1, inf]"},
      {[&] { energy_histogram(weights(p), EnergyTable(e), 1, 2, 4, std::nan("")); },
       "threshold is nan"},
      {[&] { energy_histogram(weights(bad), EnergyTable(e), 1, 2, 4, 1); },
       "p[1] = nan is not finite"},
  };
  for (const auto& [call, message] : calls) {
    EXPECT_THAT(call, ThrowsMessage<std::invalid_argument>(message));
  }
}

}  // namespace
}  // namespace corvid
