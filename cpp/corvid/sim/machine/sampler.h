#pragma once
/// Drawing measurement outcomes from a probability table.

#include <cstdint>
#include <random>
#include <span>
#include <vector>

namespace corvid {

/// How often one outcome was drawn.
struct OutcomeCount {
  std::uint64_t outcome;
  std::uint64_t hits;
  friend bool operator==(const OutcomeCount&, const OutcomeCount&) = default;
};

/// Draws `shots` independent outcomes j with probability weights[j] / Σ weights and returns the
/// outcomes drawn at least once with their hit counts, in ascending outcome order. Outcomes of
/// weight 0 are never drawn. Weights must be finite and non-negative with a positive sum
/// (asserted). O(size + min(shots, size)) time and O(1) extra memory beyond the result. Up to
/// `size` shots, sorted uniform variates (normalised partial sums of exponential variates) are
/// merged with one walk over the running sum of the weights; beyond that, each outcome's count
/// is drawn from its binomial given the shots and weight still left (binomial() below, O(1) per
/// outcome whatever the count). Polls throw_if_interrupted().
std::vector<OutcomeCount> sample_counts(std::span<const double> weights, std::uint64_t shots,
                                        std::mt19937_64& rng);

/// One draw from Binomial(n, p), p in [0, 1], in O(1) expected time for every n (the standard
/// library's sampler does not return for n near 2^62). Exact rejection sampling: inversion when
/// n·min(p, 1-p) < 30, else Kachitvichyanukul and Schmeiser's BTPE. The arithmetic is in double,
/// so it is exact while n < 2^53; beyond that the draw is rounded to the spacing of doubles near
/// it (at most 2^10), far below its spread sqrt(n p (1-p)). Consumes only rng() words, so a
/// seed gives the same draws on every platform.
std::uint64_t binomial(std::uint64_t n, double p, std::mt19937_64& rng);

}  // namespace corvid
