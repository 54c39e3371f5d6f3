#include "corvid/sim/compile/diagonal_cache.h"

#include <bit>
#include <list>
#include <mutex>
#include <vector>

#include "corvid/util/errors.h"
#include "corvid/util/memory.h"

namespace corvid {
namespace {

struct Entry {
  unsigned num_qubits;
  std::uint64_t hash;
  std::vector<PhaseTerm> terms;
  std::shared_ptr<const DiagonalValues> values;
};

// An entry the store does not keep (over the limit, or evicted) but a caller may still hold,
// e.g. as the energies of its cost function: while it lives, a lookup finds it rather than
// computing a second copy beside it.
struct Held {
  unsigned num_qubits;
  std::uint64_t hash;
  std::vector<PhaseTerm> terms;
  std::weak_ptr<const DiagonalValues> values;
};

struct Store {
  std::mutex mutex;
  std::list<Entry> entries;  // most recently used first
  std::list<Held> held;
  std::size_t bytes = 0;
  std::size_t limit = std::size_t{2} << 30;
  std::size_t hits = 0;
  std::size_t misses = 0;

  void hold(const Entry& e) { held.push_back({e.num_qubits, e.hash, e.terms, e.values}); }

  void evict_to(std::size_t target) {
    while (bytes > target && !entries.empty()) {
      bytes -= entries.back().values->bytes();
      hold(entries.back());
      entries.pop_back();
    }
  }
};

Store& store() {
  static Store s;
  return s;
}

// The store registers itself to be emptied when memory runs short.
void register_hook() {
  static const bool registered = (add_memory_pressure_hook(&clear_diagonal_cache), true);
  (void)registered;
}

std::uint64_t hash_of(unsigned n, std::span<const PhaseTerm> terms) {
  std::uint64_t h = n;
  for (const PhaseTerm& t : terms) {
    for (std::uint64_t word : {t.mask, std::bit_cast<std::uint64_t>(t.coefficient)}) {
      h = (h ^ word) * 0x100000001b3ULL;
      h ^= h >> 29;
    }
  }
  return h;
}

// Exact: equal masks and bit-for-bit equal coefficients.
template <class E>
bool same_key(const E& e, unsigned n, std::uint64_t hash, std::span<const PhaseTerm> terms) {
  if (e.hash != hash || e.num_qubits != n || e.terms.size() != terms.size()) return false;
  for (std::size_t t = 0; t < terms.size(); ++t) {
    if (e.terms[t].mask != terms[t].mask ||
        std::bit_cast<std::uint64_t>(e.terms[t].coefficient) !=
            std::bit_cast<std::uint64_t>(terms[t].coefficient)) {
      return false;
    }
  }
  return true;
}

std::shared_ptr<const DiagonalValues> compute(unsigned n, std::span<const PhaseTerm> terms) {
  register_hook();
  try {
    return std::make_shared<const DiagonalValues>(n, terms);
  } catch (const OutOfMemory&) {
    release_cached_memory();  // make room and try once more
    return std::make_shared<const DiagonalValues>(n, terms);
  }
}

// The entry of `terms` moved to the front and counted as a hit, or nullptr. Caller locks.
std::shared_ptr<const DiagonalValues> find_locked(Store& s, unsigned n, std::uint64_t hash,
                                                  std::span<const PhaseTerm> terms) {
  for (auto it = s.entries.begin(); it != s.entries.end(); ++it) {
    if (!same_key(*it, n, hash, terms)) continue;
    s.entries.splice(s.entries.begin(), s.entries, it);
    ++s.hits;
    return it->values;
  }
  std::erase_if(s.held, [](const Held& h) { return h.values.expired(); });
  for (const Held& h : s.held) {
    if (!same_key(h, n, hash, terms)) continue;
    if (auto values = h.values.lock()) {
      ++s.hits;
      return values;
    }
  }
  return nullptr;
}

}  // namespace

std::shared_ptr<const DiagonalValues> find_cached_diagonal(std::span<const PhaseTerm> terms,
                                                           unsigned num_qubits) {
  std::lock_guard lock(store().mutex);
  return find_locked(store(), num_qubits, hash_of(num_qubits, terms), terms);
}

std::shared_ptr<const DiagonalValues> cached_diagonal(std::span<const PhaseTerm> terms,
                                                      unsigned num_qubits) {
  const std::uint64_t hash = hash_of(num_qubits, terms);
  Store& s = store();
  {
    std::lock_guard lock(s.mutex);
    if (auto found = find_locked(s, num_qubits, hash, terms)) return found;
    ++s.misses;
  }
  // Computed outside the lock: other machines keep running meanwhile. Two threads missing on
  // the same key both compute; the second insert is a harmless duplicate that ages out.
  auto values = compute(num_qubits, terms);
  std::lock_guard lock(s.mutex);
  Entry entry{num_qubits, hash, {terms.begin(), terms.end()}, values};
  if (values->bytes() <= s.limit) {
    s.entries.push_front(std::move(entry));
    s.bytes += values->bytes();
    s.evict_to(s.limit);
  } else {
    s.hold(entry);
  }
  return values;
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
  store().held.clear();
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
