#include "corvid/sim/machine/cpu_backend.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "corvid/sim/compile/compiler.h"
#include "corvid/sim/execute/compiled_executor.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {
namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

bool all_in_order(std::span<const unsigned> qubits, unsigned n) {
  if (qubits.size() != n) return false;
  for (unsigned b = 0; b < n; ++b) {
    if (qubits[b] != b) return false;
  }
  return true;
}

template <class Real>
class CpuBackend final : public Backend {
 public:
  std::string_view name() const override { return "cpu"; }

  // The state is only marked as |0…0⟩ here; the next run writes its initial state in the
  // same pass as its first layer.
  void reset(unsigned num_qubits) override {
    timings_ = {};
    if (!has_state_ || state_.num_qubits() != num_qubits) {
      release();  // free the old register before allocating the new one
      state_ = BasicStateVector<Real>::uninitialized(num_qubits);
      has_state_ = true;
    }
    num_qubits_ = num_qubits;
    pending_zero_ = true;
  }

  void run(std::span<const Gate> gates) override {
    auto start = Clock::now();
    const CompiledProgram program = compile(gates, state_.num_qubits());
    timings_.compile += seconds_since(start);
    execute<Real>(state_, program, pending_zero_, &timings_);
    pending_zero_ = false;
  }

  ProbabilityTable probabilities(std::span<const unsigned> qubits) override {
    if (pending_zero_) materialize_zero();
    auto start = Clock::now();
    ProbabilityTable table;
    if constexpr (std::is_same_v<Real, float>) {
      if (all_in_order(qubits, num_qubits_)) {
        table = probabilities_in_place(std::move(state_));  // the state is consumed
        has_state_ = false;
      }
    }
    if (has_state_) table = marginal_probabilities(state_, qubits);
    timings_.probabilities += seconds_since(start);
    return table;
  }

  unsigned num_qubits() const override { return num_qubits_; }

  void copy_state(std::complex<double>* out) const override {
    if (!has_state_) {
      throw std::invalid_argument(
          "the single-precision state of the last run became its probability table; run the "
          "program again to read the state");
    }
    if (pending_zero_) materialize_zero();
    std::copy(state_.data(), state_.data() + state_.size(), out);
  }

  RunTimings last_run_timings() const override { return timings_; }

  void release() override {
    state_ = BasicStateVector<Real>();
    has_state_ = false;
    pending_zero_ = false;
  }

 private:
  // Lazy |0…0⟩ is logically const: the state reads the same either way.
  void materialize_zero() const {
    state_.reset();
    pending_zero_ = false;
  }

  mutable BasicStateVector<Real> state_;
  unsigned num_qubits_ = 0;
  bool has_state_ = false;
  mutable bool pending_zero_ = false;
  RunTimings timings_;
};

}  // namespace

std::unique_ptr<Backend> make_cpu_backend(Precision precision) {
  if (precision == Precision::kSingle) return std::make_unique<CpuBackend<float>>();
  return std::make_unique<CpuBackend<double>>();
}

}  // namespace corvid
