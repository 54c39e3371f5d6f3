#include "corvid/sim/machine/sampler.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "corvid/util/interrupt.h"

namespace corvid {
namespace {

double exponential(std::mt19937_64& rng) {
  std::exponential_distribution<double> dist(1.0);
  return dist(rng);
}

/// Uniform in [0, 1) from the top 53 bits of one word.
double uniform(std::mt19937_64& rng) { return static_cast<double>(rng() >> 11) * 0x1.0p-53; }

/// Binomial(n, p) for n·p < 30 by walking the probabilities up from 0 (expected n·p + 1 steps).
/// A variate beyond n·p + 10 sd (reached only through rounding of the running sum) starts over.
std::uint64_t binomial_inversion(std::uint64_t n, double p, std::mt19937_64& rng) {
  const double q = 1.0 - p;
  const double nd = static_cast<double>(n);
  const double p0 = std::exp(nd * std::log1p(-p));
  const double bound = std::min(nd, nd * p + 10.0 * std::sqrt(nd * p * q + 1.0));
  for (;;) {
    double u = uniform(rng);
    double px = p0;
    std::uint64_t x = 0;
    while (u > px && static_cast<double>(x) <= bound) {
      ++x;
      u -= px;
      px *= static_cast<double>(n - x + 1) * p / (static_cast<double>(x) * q);
    }
    if (static_cast<double>(x) <= bound) return x;
  }
}

/// Stirling's series for log Γ past its leading terms, 1/(12x) - 1/(360x^3) + ..., to 1/x^9.
double stirling_tail(double x) {
  const double x2 = x * x;
  return (13860.0 - (462.0 - (132.0 - (99.0 - 140.0 / x2) / x2) / x2) / x2) / x / 166320.0;
}

/// BTPE (Kachitvichyanukul & Schmeiser 1988) for n·p >= 30, p <= 1/2: a triangle, two
/// parallelograms and two exponential tails cover the scaled distribution; a candidate outside
/// the triangle is accepted by the exact ratio f(y)/f(mode), computed directly near the mode
/// and otherwise squeezed, then bounded with Stirling's series.
std::uint64_t binomial_btpe(std::uint64_t n_int, double p, std::mt19937_64& rng) {
  const double n = static_cast<double>(n_int);
  const double q = 1.0 - p;
  const double fm = n * p + p;
  const double m = std::floor(fm);
  const double npq = n * p * q;
  const double p1 = std::floor(2.195 * std::sqrt(npq) - 4.6 * q) + 0.5;
  const double xm = m + 0.5, xl = xm - p1, xr = xm + p1;
  const double c = 0.134 + 20.5 / (15.3 + m);
  double a = (fm - xl) / (fm - xl * p);
  const double lambda_l = a * (1.0 + a / 2.0);
  a = (xr - fm) / (xr * q);
  const double lambda_r = a * (1.0 + a / 2.0);
  const double p2 = p1 * (1.0 + 2.0 * c);
  const double p3 = p2 + c / lambda_l;
  const double p4 = p3 + c / lambda_r;
  for (;;) {
    const double u = uniform(rng) * p4;
    double v = uniform(rng);
    double y;
    if (u <= p1) return static_cast<std::uint64_t>(std::floor(xm - p1 * v + u));
    if (u <= p2) {
      const double x = xl + (u - p1) / c;
      v = v * c + 1.0 - std::fabs(m - x + 0.5) / p1;
      if (v > 1.0) continue;
      y = std::floor(x);
    } else if (u <= p3) {
      if (v == 0.0) continue;
      y = std::floor(xl + std::log(v) / lambda_l);
      if (y < 0.0) continue;
      v *= (u - p2) * lambda_l;
    } else {
      if (v == 0.0) continue;
      y = std::floor(xr - std::log(v) / lambda_r);
      if (y > n) continue;
      v *= (u - p3) * lambda_r;
    }
    const double k = std::fabs(y - m);
    if (k <= 20.0 || k >= npq / 2.0 - 1.0) {
      // f(y)/f(m) as a product of successive ratios; k is small here whatever n is.
      const double s = p / q, as = s * (n + 1.0);
      double ratio = 1.0;
      const auto steps = static_cast<std::uint64_t>(k);
      for (std::uint64_t j = 1; j <= steps; ++j) {
        ratio = y > m ? ratio * (as / (m + static_cast<double>(j)) - s)
                      : ratio / (as / (m - static_cast<double>(j) + 1.0) - s);
      }
      if (v <= ratio) return static_cast<std::uint64_t>(y);
      continue;
    }
    const double rho = (k / npq) * ((k * (k / 3.0 + 0.625) + 1.0 / 6.0) / npq + 0.5);
    const double t = -k * k / (2.0 * npq);
    const double log_v = std::log(v);
    if (log_v < t - rho) return static_cast<std::uint64_t>(y);
    if (log_v > t + rho) continue;
    const double x1 = y + 1.0, f1 = m + 1.0, z = n + 1.0 - m, w = n - y + 1.0;
    const double bound = xm * std::log(f1 / x1) + (n - m + 0.5) * std::log(z / w) +
                         (y - m) * std::log(w * p / (x1 * q)) + stirling_tail(f1) +
                         stirling_tail(z) + stirling_tail(x1) + stirling_tail(w);
    if (log_v <= bound) return static_cast<std::uint64_t>(y);
  }
}

/// Many shots: the hit count of each outcome in turn is binomial given the shots and the mass
/// left, so the cost is one draw per outcome whatever the number of shots.
std::vector<OutcomeCount> sample_counts_by_outcome(std::span<const double> weights,
                                                   std::uint64_t shots, std::mt19937_64& rng) {
  std::vector<OutcomeCount> counts;
  double remaining_mass = 0.0;
  for (double w : weights) remaining_mass += w;
  std::size_t last_positive = 0;
  for (std::size_t j = 0; j < weights.size(); ++j) {
    if (weights[j] > 0.0) last_positive = j;
  }
  for (std::size_t j = 0; j < weights.size() && shots > 0; ++j) {
    throw_if_interrupted();
    if (weights[j] <= 0.0) continue;
    std::uint64_t hits = shots;  // the last outcome that can occur takes what is left
    if (j != last_positive) {
      const double p = std::clamp(weights[j] / remaining_mass, 0.0, 1.0);
      hits = binomial(shots, p, rng);
    }
    remaining_mass -= weights[j];
    shots -= hits;
    if (hits > 0) counts.push_back({j, hits});
  }
  return counts;
}

}  // namespace

std::uint64_t binomial(std::uint64_t n, double p, std::mt19937_64& rng) {
  assert(p >= 0.0 && p <= 1.0);
  if (n == 0 || p <= 0.0) return 0;
  if (p >= 1.0) return n;
  // Draw the count of the less likely side; the other is what is left.
  const double r = std::min(p, 1.0 - p);
  std::uint64_t y =
      static_cast<double>(n) * r < 30.0 ? binomial_inversion(n, r, rng) : binomial_btpe(n, r, rng);
  y = std::min(y, n);  // above 2^53 rounding may step past n
  return p > 0.5 ? n - y : y;
}

std::vector<OutcomeCount> sample_counts(std::span<const double> weights, std::uint64_t shots,
                                        std::mt19937_64& rng) {
  std::vector<OutcomeCount> counts;
  if (shots == 0 || weights.empty()) return counts;
  if (shots > weights.size()) return sample_counts_by_outcome(weights, shots, rng);

  // The walk below adds the weights in this same order, so `total` equals its final running sum.
  double total = 0.0;
  std::size_t last_positive = 0;
  for (std::size_t j = 0; j < weights.size(); ++j) {
    assert(weights[j] >= 0.0);
    total += weights[j];
    if (weights[j] > 0.0) last_positive = j;
  }
  assert(total > 0.0);

  // E_1 + … + E_k over E_1 + … + E_{shots+1} are `shots` sorted uniforms on [0, 1). A copy of
  // the generator replays the same variates, so nothing has to be stored.
  std::mt19937_64 replay = rng;
  double spacing_sum = 0.0;
  for (std::uint64_t k = 0; k <= shots; ++k) {
    if (k % 65536 == 0) throw_if_interrupted();
    spacing_sum += exponential(rng);
  }
  const double scale = total / spacing_sum;

  std::size_t j = 0;
  double upper = weights[0];  // running sum through weights[j]
  double partial = 0.0;
  for (std::uint64_t k = 0; k < shots; ++k) {
    if (k % 65536 == 0) throw_if_interrupted();
    partial += exponential(replay);
    const double u = partial * scale;
    while (u >= upper && j + 1 < weights.size()) upper += weights[++j];
    // Rounding can carry u to the very end of the table; the last outcome that can occur takes it.
    const std::size_t outcome = weights[j] == 0.0 ? last_positive : j;
    if (!counts.empty() && counts.back().outcome == outcome) {
      ++counts.back().hits;
    } else {
      counts.push_back({outcome, 1});
    }
  }
  return counts;
}

}  // namespace corvid
