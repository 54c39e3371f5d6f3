#include "corvid/sim/machine/sampler.h"

#include <algorithm>
#include <cassert>

namespace corvid {
namespace {

double exponential(std::mt19937_64& rng) {
  std::exponential_distribution<double> dist(1.0);
  return dist(rng);
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
    if (weights[j] <= 0.0) continue;
    std::uint64_t hits = shots;  // the last outcome that can occur takes what is left
    if (j != last_positive) {
      const double p = std::clamp(weights[j] / remaining_mass, 0.0, 1.0);
      hits = std::binomial_distribution<std::uint64_t>(shots, p)(rng);
    }
    remaining_mass -= weights[j];
    shots -= hits;
    if (hits > 0) counts.push_back({j, hits});
  }
  return counts;
}

}  // namespace

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
  for (std::uint64_t k = 0; k <= shots; ++k) spacing_sum += exponential(rng);
  const double scale = total / spacing_sum;

  std::size_t j = 0;
  double upper = weights[0];  // running sum through weights[j]
  double partial = 0.0;
  for (std::uint64_t k = 0; k < shots; ++k) {
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
