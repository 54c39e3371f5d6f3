#pragma once
/// How a distribution's mass spreads over the energies: the mass at or below a threshold (the
/// optimum's probability) and, per bin of equal width over [low, high], the mass and its energy
/// moment, read in one pass through an EnergyTable so that no 2^n array of energies is made.

#include <cstddef>
#include <vector>

#include "corvid/qaoa/energy_table.h"
#include "corvid/qaoa/losses.h"

namespace corvid {

struct EnergyHistogram {
  double at_or_below = 0.0;    ///< sum of p[x] over e[x] <= threshold
  std::vector<double> mass;    ///< per bin, sum of p[x]
  std::vector<double> moment;  ///< per bin, sum of p[x] * e[x]

  /// Adds `other`'s sums (same bin count) into this one.
  void add(const EnergyHistogram& other);
};

/// The largest bin count energy_histogram takes.
inline constexpr int kMaxHistogramBins = 1 << 12;

/// Bin k of `bins` holds the states with low + k*w <= e[x] < low + (k+1)*w, w = (high - low) /
/// bins, computed as floor((e - low) * (bins / (high - low))); energies at or past `high` go
/// into the last bin and below `low` into the first; low == high puts everything into bin 0.
/// Sums run over fixed chunks of the entries, each summed block by block, so the result does
/// not depend on the thread count. O(N + bins * N / 2^14), parallel. Throws
/// std::invalid_argument unless p and e have equal length, bins is in [1, kMaxHistogramBins],
/// low and high are finite with low <= high, the threshold is not NaN and every p[x] is finite.
EnergyHistogram energy_histogram(const Weights& p, const EnergyTable& e, double low, double high,
                                 int bins, double threshold);

}  // namespace corvid
