// CVaR without sorting: a most-significant-digit radix selection over the weight keys finds
// the key t of the entry that crosses alpha, accumulating whole buckets above it on the way;
// only the entries whose key equals t are then walked one by one, in ascending index order.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/chunks.h"
#include "corvid/qaoa/losses.h"
#include "corvid/qaoa/weight_key.h"
#include "corvid/util/aligned_buffer.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

struct Digit {
  int shift;
  int bits;
};
// Sign and exponent first, then the mantissa in four steps: 63 key bits in 5 levels.
constexpr Digit kDigits[] = {{52, 12}, {39, 13}, {26, 13}, {13, 13}, {0, 13}};

struct Bucket {
  double mass = 0.0;      // sum of w
  double weighted = 0.0;  // sum of w * e
  std::size_t count = 0;
};

/// The entries still in the running, in ascending index order: all of them or a list (of
/// 32-bit indices below 2^32 entries: half the memory where most entries share a bucket).
class Candidates {
 public:
  explicit Candidates(std::size_t n) : size_(n), wide_(n > UINT32_MAX) {}
  std::size_t size() const { return size_; }
  std::size_t operator[](std::size_t j) const {
    return all_ ? j : wide_ ? list64_[j] : std::size_t{list32_[j]};
  }
  /// An empty list of `kept` entries (as wide as this one), to fill with set().
  Candidates list(std::size_t kept) const {
    Candidates c(kept);
    c.wide_ = wide_;
    c.all_ = false;
    if (wide_) {
      c.list64_ = AlignedBuffer<std::uint64_t>(kept, "CVaR candidates");
    } else {
      c.list32_ = AlignedBuffer<std::uint32_t>(kept, "CVaR candidates");
    }
    return c;
  }
  void set(std::size_t j, std::size_t i) {
    if (wide_) {
      list64_[j] = i;
    } else {
      list32_[j] = static_cast<std::uint32_t>(i);
    }
  }

 private:
  std::size_t size_;
  bool wide_;
  bool all_ = true;
  AlignedBuffer<std::uint32_t> list32_;
  AlignedBuffer<std::uint64_t> list64_;
};

/// W and E read a weight and an energy by index (see Weights::visit, EnergyTable::visit).
template <class W, class E>
class Selection {
 public:
  Selection(const Weights& weights, W p, E e, double alpha)
      : weights_(weights), p_(p), e_(e), alpha_(alpha), candidates_(weights.size()) {}

  double run() {
    for (const Digit& digit : kDigits) {
      if (candidates_.size() == 0) return loss_;
      histogram(digit);
      std::size_t b = 0;
      if (!find_threshold_bucket(digit, b)) return loss_;  // alpha exceeds the total mass
      narrow(digit, b);
    }
    return walk_ties();
  }

  std::optional<std::size_t> boundary() const { return boundary_; }

 private:
  std::size_t bucket_of(std::size_t i, const Digit& d) const {
    return (weight_key(p_(i)) >> d.shift) & ((std::size_t{1} << d.bits) - 1);
  }

  /// Per-chunk histograms of the candidates by this digit; the first level also validates p.
  void histogram(const Digit& d) {
    const std::size_t n = candidates_.size();
    const std::size_t buckets = std::size_t{1} << d.bits;
    chunks_ = chunk_count(n);
    hist_.assign(static_cast<std::size_t>(chunks_) * buckets, Bucket{});
    const bool first = d.shift == kDigits[0].shift;
    std::size_t invalid = 0;
#pragma omp parallel for schedule(static, 1) num_threads(chunks_) reduction(+ : invalid)
    for (int c = 0; c < chunks_; ++c) {
      Bucket* h = &hist_[static_cast<std::size_t>(c) * buckets];
      for (std::size_t j = chunk_begin(n, chunks_, c); j < chunk_begin(n, chunks_, c + 1); ++j) {
        const std::size_t i = candidates_[j];
        const double w = p_(i);
        if (first) invalid += !is_valid_weight(w);
        Bucket& bucket = h[bucket_of(i, d)];
        bucket.mass += w;
        bucket.weighted += w * e_(i);
        ++bucket.count;
      }
    }
    if (invalid != 0) weights_.check(true);
  }

  /// Scans buckets from the heaviest weights down, taking whole buckets while the mass stays
  /// below alpha; `b` is the bucket that reaches alpha. False when none does.
  bool find_threshold_bucket(const Digit& d, std::size_t& b) {
    const std::size_t buckets = std::size_t{1} << d.bits;
    total_.assign(buckets, Bucket{});
    for (int c = 0; c < chunks_; ++c) {
      for (std::size_t k = 0; k < buckets; ++k) {
        const Bucket& from = hist_[static_cast<std::size_t>(c) * buckets + k];
        total_[k].mass += from.mass;
        total_[k].weighted += from.weighted;
        total_[k].count += from.count;
      }
    }
    for (std::size_t k = buckets; k-- > 0;) {
      if (total_[k].count == 0) continue;
      if (cdf_ + total_[k].mass >= alpha_) {
        b = k;
        return true;
      }
      cdf_ += total_[k].mass;
      loss_ += total_[k].weighted;
    }
    return false;
  }

  /// Keeps only the candidates in bucket b, in order (each chunk copies its own run).
  void narrow(const Digit& d, std::size_t b) {
    const std::size_t kept = total_[b].count;
    if (kept == candidates_.size()) return;
    const std::size_t buckets = std::size_t{1} << d.bits;
    const std::size_t n = candidates_.size();
    std::vector<std::size_t> offset(chunks_ + 1, 0);
    for (int c = 0; c < chunks_; ++c) offset[c + 1] = offset[c] + hist_[c * buckets + b].count;
    Candidates list = candidates_.list(kept);
#pragma omp parallel for schedule(static, 1) num_threads(chunks_)
    for (int c = 0; c < chunks_; ++c) {
      std::size_t out = offset[c];
      for (std::size_t j = chunk_begin(n, chunks_, c); j < chunk_begin(n, chunks_, c + 1); ++j) {
        const std::size_t i = candidates_[j];
        if (bucket_of(i, d) == b) list.set(out++, i);
      }
    }
    candidates_ = std::move(list);
  }

  /// Every remaining candidate has the threshold weight: take them in index order.
  double walk_ties() {
    for (std::size_t j = 0; j < candidates_.size() && cdf_ < alpha_; ++j) {
      const std::size_t i = candidates_[j];
      const double w = p_(i);
      if (cdf_ + w >= alpha_) boundary_ = i;
      loss_ += (cdf_ + w < alpha_ ? w : alpha_ - cdf_) * e_(i);
      cdf_ += w;
    }
    return loss_;
  }

  const Weights& weights_;
  W p_;
  E e_;
  double alpha_;
  Candidates candidates_;
  double cdf_ = 0.0;   // mass already taken: everything above the threshold so far
  double loss_ = 0.0;  // its weighted energy
  std::optional<std::size_t> boundary_;  // the entry that crosses alpha
  int chunks_ = 1;
  std::vector<Bucket> hist_;
  std::vector<Bucket> total_;
};

}  // namespace

CvarSplit cvar_split(const Weights& p, const EnergyTable& e, double alpha) {
  check_same_length(p.size(), "p", e.size(), "e");
  if (!(alpha >= 0.0 && alpha <= 1.0)) {
    throw std::invalid_argument("alpha must be a number in [0, 1], got " + format_double(alpha));
  }
  if (alpha == 0.0) {
    p.check(true);
    return {0.0, std::nullopt};
  }
  return p.visit([&](const auto& w) {
    return e.visit([&](const auto& en) {
      Selection selection(p, w, en, alpha);
      const double loss = selection.run();
      return CvarSplit{loss, selection.boundary()};
    });
  });
}

double cvar(const Weights& p, const EnergyTable& e, double alpha) {
  return cvar_split(p, e, alpha).loss;
}

double cvar(std::span<const double> p, std::span<const double> e, double alpha) {
  return cvar(Weights(p), EnergyTable(e), alpha);
}

}  // namespace corvid
