#include "corvid/qaoa/energy_histogram.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/chunks.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

// Entries per block: a block's sums start at zero and are added to its chunk's once, so a
// running sum never spans more than a block's entries or a chunk's blocks.
constexpr std::size_t kBlock = std::size_t{1} << 14;
// Chunks are fixed by the entry count alone (not the threads), each one parallel work item.
constexpr int kMaxChunks = 64;

/// Which bin an energy falls into; the same arithmetic as floor((e - low) * scale) clamped
/// to [0, bins - 1], without converting an out-of-range double.
struct Binning {
  double low, scale, threshold;
  double last;  // bins - 1
  std::size_t operator()(double e) const {
    const double t = (e - low) * scale;
    if (!(t >= 1.0)) return 0;
    return static_cast<std::size_t>(std::min(t, last));
  }
};

/// Sums entries [begin, end) into `total` (1 + 2 * bins doubles: the mass at or below the
/// threshold, then mass and moment per bin), block by block through `block`.
template <class W, class E>
void sum_chunk(const W& w, const E& en, const Binning& bin, std::size_t begin, std::size_t end,
               std::size_t block_length, double* total, double* block, std::size_t width) {
  for (std::size_t start = begin; start < end; start += block_length) {
    std::fill(block, block + width, 0.0);
    const std::size_t stop = std::min(end, start + block_length);
    for (std::size_t x = start; x < stop; ++x) {
      const double wx = w(x), ex = en(x);
      block[0] += ex <= bin.threshold ? wx : 0.0;
      double* slot = block + 1 + 2 * bin(ex);
      slot[0] += wx;
      slot[1] += wx * ex;
    }
    for (std::size_t i = 0; i < width; ++i) total[i] += block[i];
  }
}

void check_arguments(const Weights& p, const EnergyTable& e, double low, double high, int bins,
                     double threshold) {
  check_same_length(p.size(), "p", e.size(), "e");
  if (bins < 1 || bins > kMaxHistogramBins) {
    throw std::invalid_argument("bins must be in [1, " + std::to_string(kMaxHistogramBins) +
                                "], got " + std::to_string(bins));
  }
  if (!std::isfinite(low) || !std::isfinite(high) || low > high) {
    throw std::invalid_argument("the energy range must be finite with low <= high, got [" +
                                format_double(low) + ", " + format_double(high) + "]");
  }
  if (std::isnan(threshold)) throw std::invalid_argument("threshold is nan");
}

}  // namespace

void EnergyHistogram::add(const EnergyHistogram& other) {
  if (other.mass.size() != mass.size()) {
    throw std::invalid_argument("histograms of " + std::to_string(mass.size()) + " and " +
                                std::to_string(other.mass.size()) + " bins do not add");
  }
  at_or_below += other.at_or_below;
  for (std::size_t k = 0; k < mass.size(); ++k) {
    mass[k] += other.mass[k];
    moment[k] += other.moment[k];
  }
}

EnergyHistogram energy_histogram(const Weights& p, const EnergyTable& e, double low, double high,
                                 int bins, double threshold) {
  check_arguments(p, e, low, high, bins, threshold);
  const std::size_t n = p.size(), count = static_cast<std::size_t>(bins);
  const std::size_t width = 1 + 2 * count;
  // Long enough that clearing and flushing a block stays small beside reading it.
  const std::size_t block_length = std::max(kBlock, 8 * width);
  const int chunks = static_cast<int>(
      std::clamp<std::size_t>((n + block_length - 1) / block_length, 1, kMaxChunks));
  const Binning bin{low, high > low ? static_cast<double>(bins) / (high - low) : 0.0, threshold,
                    static_cast<double>(bins - 1)};
  // Per chunk: its totals, then its block's scratch.
  std::vector<double> sums(static_cast<std::size_t>(chunks) * 2 * width, 0.0);
  p.visit([&](const auto& w) {
    e.visit([&](const auto& en) {
      const bool parallel = chunks > 1 && parallel_worthwhile(n);
#pragma omp parallel for schedule(dynamic, 1) if (parallel)
      for (int c = 0; c < chunks; ++c) {
        double* total = sums.data() + static_cast<std::size_t>(c) * 2 * width;
        sum_chunk(w, en, bin, chunk_begin(n, chunks, c), chunk_begin(n, chunks, c + 1),
                  block_length, total, total + width, width);
      }
    });
  });
  std::vector<double> total(width, 0.0);
  for (int c = 0; c < chunks; ++c) {
    const double* chunk = sums.data() + static_cast<std::size_t>(c) * 2 * width;
    for (std::size_t i = 0; i < width; ++i) total[i] += chunk[i];
  }
  EnergyHistogram out{total[0], std::vector<double>(count), std::vector<double>(count)};
  bool finite = std::isfinite(total[0]);
  for (std::size_t k = 0; k < count; ++k) {
    out.mass[k] = total[1 + 2 * k];
    out.moment[k] = total[2 + 2 * k];
    finite = finite && std::isfinite(out.mass[k]);
  }
  if (!finite) p.check(false);  // bad input, or a valid sum that overflowed
  return out;
}

}  // namespace corvid
