#include "corvid/sim/compile/diagonal_cache.h"

#include <algorithm>
#include <cmath>
#include <list>
#include <mutex>
#include <vector>

#include "corvid/util/errors.h"

namespace corvid {
namespace {

constexpr double kRatioTolerance = 1e-14;

struct Entry {
  unsigned num_qubits;
  std::vector<PhaseTerm> unit_terms;  // masks with angle ratios
  std::shared_ptr<const DiagonalValues> values;
};

struct Store {
  std::mutex mutex;
  std::list<Entry> entries;  // most recently used first
  std::size_t bytes = 0;
  std::size_t limit = std::size_t{2} << 30;
  std::size_t hits = 0;
  std::size_t misses = 0;

  void evict_to(std::size_t target) {
    while (bytes > target && !entries.empty()) {
      bytes -= entries.back().values->bytes();
      entries.pop_back();
    }
  }
};

Store& store() {
  static Store s;
  return s;
}

bool same_structure(const Entry& e, unsigned n, const std::vector<PhaseTerm>& unit) {
  if (e.num_qubits != n || e.unit_terms.size() != unit.size()) return false;
  for (std::size_t t = 0; t < unit.size(); ++t) {
    const double a = e.unit_terms[t].angle;
    const double b = unit[t].angle;
    if (e.unit_terms[t].mask != unit[t].mask) return false;
    if (std::abs(a - b) > kRatioTolerance * std::max(std::abs(a), std::abs(b))) return false;
  }
  return true;
}

std::shared_ptr<const DiagonalValues> compute(unsigned n, const std::vector<PhaseTerm>& unit) {
  try {
    return std::make_shared<const DiagonalValues>(n, unit);
  } catch (const OutOfMemory&) {
    clear_diagonal_cache();  // make room and try once more
    return std::make_shared<const DiagonalValues>(n, unit);
  }
}

}  // namespace

ScaledDiagonal cached_diagonal(const PhasePolynomial& polynomial, unsigned num_qubits) {
  // Angles relative to the largest, so that no ratio overflows (a tiny first angle would make
  // the others infinite); a new gamma scales them all and keeps the same key.
  std::vector<PhaseTerm> unit = polynomial.terms;
  const auto largest = std::max_element(unit.begin(), unit.end(), [](const auto& a, const auto& b) {
    return std::abs(a.angle) < std::abs(b.angle);
  });
  const double scale = largest->angle;
  if (scale != 0) {
    for (PhaseTerm& t : unit) t.angle /= scale;
  }
  largest->angle = 1.0;

  Store& s = store();
  {
    std::lock_guard lock(s.mutex);
    for (auto it = s.entries.begin(); it != s.entries.end(); ++it) {
      if (!same_structure(*it, num_qubits, unit)) continue;
      s.entries.splice(s.entries.begin(), s.entries, it);
      ++s.hits;
      return {it->values, scale};
    }
    ++s.misses;
  }
  // Computed outside the lock: other machines keep running meanwhile. Two threads missing on
  // the same key both compute; the second insert is a harmless duplicate that ages out.
  auto values = compute(num_qubits, unit);
  std::lock_guard lock(s.mutex);
  if (values->bytes() <= s.limit) {
    s.entries.push_front({num_qubits, std::move(unit), values});
    s.bytes += values->bytes();
    s.evict_to(s.limit);
  }
  return {values, scale};
}

std::size_t diagonal_cache_bytes() {
  std::lock_guard lock(store().mutex);
  return store().bytes;
}

std::size_t diagonal_cache_limit() {
  std::lock_guard lock(store().mutex);
  return store().limit;
}

void set_diagonal_cache_limit(std::size_t bytes) {
  std::lock_guard lock(store().mutex);
  store().limit = bytes;
  store().evict_to(bytes);
}

void clear_diagonal_cache() {
  std::lock_guard lock(store().mutex);
  store().evict_to(0);
}

std::size_t diagonal_cache_hits() {
  std::lock_guard lock(store().mutex);
  return store().hits;
}

std::size_t diagonal_cache_misses() {
  std::lock_guard lock(store().mutex);
  return store().misses;
}

}  // namespace corvid
