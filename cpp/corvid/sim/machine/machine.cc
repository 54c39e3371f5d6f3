#include "corvid/sim/machine/machine.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <stdexcept>
#include <string>

#include "corvid/sim/machine/cpu_backend.h"
#include "corvid/sim/machine/state_vector.h"
#include "corvid/util/errors.h"
#include "corvid/util/interrupt.h"
#include "corvid/util/memory.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

std::uint64_t next_machine_id() {
  static std::atomic<std::uint64_t> next{1};
  return next.fetch_add(1);
}

std::mt19937_64 make_rng(std::optional<std::uint64_t> seed) {
  if (seed) return std::mt19937_64(*seed);
  std::random_device device;
  std::seed_seq seq{device(), device(), device(), device()};
  return std::mt19937_64(seq);
}

void check_count(std::int64_t count, std::uint64_t have, const char* what) {
  if (count < 0) {
    throw std::invalid_argument(std::string("number of ") + what + " must be non-negative, got " +
                                std::to_string(count));
  }
  if (static_cast<std::uint64_t>(count) > std::numeric_limits<std::uint32_t>::max() - have) {
    throw std::invalid_argument(std::string("too many ") + what + ": " + std::to_string(count));
  }
}

void check_owner(std::uint64_t owner, std::uint64_t id, const std::string& what) {
  if (owner != kAnyMachine && owner != id) {
    throw std::invalid_argument(what + " belongs to another machine");
  }
}

void check_distinct(std::vector<unsigned> indices, const char* what) {
  std::sort(indices.begin(), indices.end());
  auto dup = std::adjacent_find(indices.begin(), indices.end());
  if (dup != indices.end()) {
    throw std::invalid_argument(std::string(what) + " " + std::to_string(*dup) +
                                " is listed more than once");
  }
}

}  // namespace

Machine::Machine(std::optional<std::uint64_t> seed, std::optional<Precision> precision)
    : Machine(make_cpu_backend(precision.value_or(default_precision())), seed) {
  precision_ = precision.value_or(default_precision());
}

Precision Machine::precision() const { return precision_; }

Machine::Machine(std::unique_ptr<Backend> backend, std::optional<std::uint64_t> seed)
    : backend_(std::move(backend)), rng_(make_rng(seed)), id_(next_machine_id()) {}

std::uint64_t Machine::id() const {
  const auto held = lock();
  return id_;
}

std::unique_lock<std::timed_mutex> Machine::lock() const {
  std::unique_lock held(mutex_, std::defer_lock);
  // Another thread's run may hold the lock for minutes: wait in slices so Ctrl-C still works.
  while (!held.try_lock_for(kInterruptPollInterval)) throw_if_interrupted();
  return held;
}

void Machine::require_live() const {
  if (finalized_) throw std::invalid_argument("machine has been finalized");
}

void Machine::init() {
  const auto held = lock();
  require_live();
  if (num_qubits_ > 0 || num_cbits_ > 0) id_ = next_machine_id();
  num_qubits_ = 0;
  num_cbits_ = 0;
  has_run_ = false;
  backend_->release();
}

std::vector<Qubit> Machine::allocate_qubits(std::int64_t count) {
  const auto held = lock();
  require_live();
  check_count(count, num_qubits_, "qubits");
  const auto total = num_qubits_ + static_cast<std::uint64_t>(count);
  // Refuse now rather than at the first run; nothing is allocated until a program runs.
  require_state_memory(total, precision_ == Precision::kSingle ? 8 : 16);
  std::vector<Qubit> qubits;
  qubits.reserve(static_cast<std::size_t>(count));
  for (auto q = num_qubits_; q < total; ++q) qubits.emplace_back(q, id_);
  num_qubits_ = static_cast<unsigned>(total);
  return qubits;
}

std::vector<CBit> Machine::allocate_cbits(std::int64_t count) {
  const auto held = lock();
  require_live();
  check_count(count, num_cbits_, "classical bits");
  std::vector<CBit> cbits;
  cbits.reserve(static_cast<std::size_t>(count));
  for (std::int64_t i = 0; i < count; ++i) cbits.emplace_back(num_cbits_++, id_);
  return cbits;
}

unsigned Machine::num_qubits() const {
  const auto held = lock();
  return num_qubits_;
}

std::uint32_t Machine::num_cbits() const {
  const auto held = lock();
  return num_cbits_;
}

void Machine::check_program(const Program& program) const {
  for (const Gate& gate : program.circuit()) {
    check_owner(gate.machine(), id_, "gate '" + gate.to_string() + "'");
    for (std::uint32_t q : gate.qubits()) {
      if (q >= num_qubits_) {
        throw std::out_of_range("gate '" + gate.to_string() + "' acts on qubit " +
                                std::to_string(q) + " but only " + std::to_string(num_qubits_) +
                                " qubits are allocated");
      }
    }
  }
  for (const Measurement& m : program.measurements()) {
    check_owner(m.machine(), id_, "measurement '" + m.to_string() + "'");
    if (m.qubit.addr >= num_qubits_ || m.cbit.addr >= num_cbits_) {
      throw std::out_of_range("measurement '" + m.to_string() +
                              "' refers to a bit that is not "
                              "allocated (" +
                              std::to_string(num_qubits_) + " qubits, " +
                              std::to_string(num_cbits_) + " classical bits)");
    }
  }
}

std::vector<unsigned> Machine::check_qubits(std::span<const Qubit> qubits) const {
  std::vector<unsigned> indices;
  indices.reserve(qubits.size());
  for (const Qubit& q : qubits) {
    check_owner(q.machine, id_, "qubit " + std::to_string(q.addr));
    if (q.addr >= num_qubits_) {
      throw std::out_of_range("qubit " + std::to_string(q.addr) + " is not allocated (" +
                              std::to_string(num_qubits_) + " qubits)");
    }
    indices.push_back(q.addr);
  }
  check_distinct(indices, "qubit");
  return indices;
}

std::vector<unsigned> Machine::check_cbits(std::span<const CBit> cbits) const {
  if (cbits.size() > 64) {
    throw std::invalid_argument("at most 64 classical bits can be read per run, got " +
                                std::to_string(cbits.size()));
  }
  std::vector<unsigned> indices;
  indices.reserve(cbits.size());
  for (const CBit& c : cbits) {
    check_owner(c.machine, id_, "classical bit " + std::to_string(c.addr));
    if (c.addr >= num_cbits_) {
      throw std::out_of_range("classical bit " + std::to_string(c.addr) + " is not allocated (" +
                              std::to_string(num_cbits_) + " classical bits)");
    }
    indices.push_back(c.addr);
  }
  check_distinct(indices, "classical bit");
  return indices;
}

void Machine::run(const Program& program) {
  has_run_ = false;  // a failed run leaves no state to read
  naming_allocation(
      [&] {
        return "running " + std::to_string(program.circuit().size()) + " gates on " +
               std::to_string(num_qubits_) + " qubits";
      },
      [&] {
        backend_->reset(num_qubits_);
        backend_->run(program.circuit().gates());
      });
  has_run_ = true;
}

ProbabilityTable Machine::probabilities(const Program& program, std::span<const Qubit> qubits,
                                        std::int64_t select_max) {
  const auto held = lock();
  const ConcurrentRun running;  // runs at once share the threads
  require_live();
  if (select_max != -1 && select_max <= 0) {
    throw std::invalid_argument(
        "select_max must be -1 (every basis state) or a positive number of entries, got " +
        std::to_string(select_max));
  }
  const std::vector<unsigned> indices = check_qubits(qubits);
  check_program(program);
  run(program);
  ProbabilityTable table = backend_->probabilities(indices);
  record_latest_run_timings(backend_->last_run_timings());
  if (select_max > 0 && static_cast<std::uint64_t>(select_max) < table.values.size()) {
    PooledBuffer<double> head(static_cast<std::size_t>(select_max), "probability table");
    std::copy_n(table.values.data(), head.size(), head.data());
    table.values = std::move(head);
  }
  return table;
}

std::vector<OutcomeCount> Machine::sample(const Program& program, std::span<const CBit> cbits,
                                          std::int64_t shots) {
  const auto held = lock();
  const ConcurrentRun running;  // runs at once share the threads
  require_live();
  if (shots <= 0) {
    throw std::invalid_argument("shots must be a positive integer, got " + std::to_string(shots));
  }
  const std::vector<unsigned> bits = check_cbits(cbits);
  check_program(program);

  // source[b]: the position in `measured` of the qubit read into cbits[b], or -1.
  std::vector<unsigned> measured;
  std::vector<int> source(bits.size(), -1);
  for (std::size_t b = 0; b < bits.size(); ++b) {
    const Measurement* last = nullptr;
    for (const Measurement& m : program.measurements()) {
      if (m.cbit.addr == bits[b]) last = &m;
    }
    if (last == nullptr) continue;
    auto it = std::find(measured.begin(), measured.end(), last->qubit.addr);
    source[b] = static_cast<int>(it - measured.begin());
    if (it == measured.end()) measured.push_back(last->qubit.addr);
  }

  run(program);
  const ProbabilityTable table = backend_->probabilities(measured);
  record_latest_run_timings(backend_->last_run_timings());
  std::vector<OutcomeCount> counts = sample_counts({table.values.data(), table.values.size()},
                                                   static_cast<std::uint64_t>(shots), rng_);

  for (OutcomeCount& c : counts) {
    std::uint64_t key = 0;
    for (std::size_t b = 0; b < bits.size(); ++b) {
      if (source[b] >= 0) key |= ((c.outcome >> source[b]) & 1) << b;
    }
    c.outcome = key;
  }
  // Outcomes that differ only in qubits no listed bit reads now share a key.
  std::sort(counts.begin(), counts.end(),
            [](const OutcomeCount& a, const OutcomeCount& b) { return a.outcome < b.outcome; });
  std::vector<OutcomeCount> merged;
  for (const OutcomeCount& c : counts) {
    if (!merged.empty() && merged.back().outcome == c.outcome) {
      merged.back().hits += c.hits;
    } else {
      merged.push_back(c);
    }
  }
  return merged;
}

std::uint64_t Machine::state_size() const {
  const auto held = lock();
  return has_run_ ? std::uint64_t{1} << backend_->num_qubits() : 0;
}

void Machine::copy_state(std::span<std::complex<double>> out) const {
  const auto held = lock();
  require_live();
  if (!has_run_) throw std::invalid_argument("no program has been run on this machine yet");
  const std::uint64_t size = std::uint64_t{1} << backend_->num_qubits();
  if (out.size() != size) {
    throw std::invalid_argument("state copy needs room for " + std::to_string(size) +
                                " amplitudes, got " + std::to_string(out.size()));
  }
  backend_->copy_state(out.data());
}

std::vector<std::complex<double>> Machine::state() const {
  const auto held = lock();
  require_live();
  if (!has_run_) throw std::invalid_argument("no program has been run on this machine yet");
  const std::uint64_t size = std::uint64_t{1} << backend_->num_qubits();
  require_memory(state_vector_bytes(backend_->num_qubits()), "a copy of the state");
  std::vector<std::complex<double>> out(size);
  backend_->copy_state(out.data());
  return out;
}

RunTimings Machine::last_run_timings() const {
  const auto held = lock();
  return backend_->last_run_timings();
}

void Machine::finalize() {
  const auto held = lock();
  finalized_ = true;
  has_run_ = false;
  backend_->release();
}

bool Machine::finalized() const {
  const auto held = lock();
  return finalized_;
}

}  // namespace corvid
