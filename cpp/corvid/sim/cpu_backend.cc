#include "corvid/sim/cpu_backend.h"

#include <algorithm>
#include <chrono>

#include "corvid/sim/compiled_executor.h"
#include "corvid/sim/compiler.h"
#include "corvid/sim/state_vector.h"

namespace corvid {
namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

class CpuBackend final : public Backend {
 public:
  std::string_view name() const override { return "cpu"; }

  // The state is only marked as |0…0⟩ here; the next run writes its initial state in the
  // same pass as its first layer.
  void reset(unsigned num_qubits) override {
    timings_ = {};
    if (!has_state_ || state_.num_qubits() != num_qubits) {
      release();  // free the old register before allocating the new one
      state_ = StateVector::uninitialized(num_qubits);
      has_state_ = true;
    }
    pending_zero_ = true;
  }

  void run(std::span<const Gate> gates) override {
    auto start = Clock::now();
    const CompiledProgram program = compile(gates, state_.num_qubits());
    timings_.compile += seconds_since(start);
    execute(state_, program, pending_zero_, &timings_);
    pending_zero_ = false;
  }

  ProbabilityTable probabilities(std::span<const unsigned> qubits) const override {
    if (pending_zero_) materialize_zero();
    auto start = Clock::now();
    ProbabilityTable table = marginal_probabilities(state_, qubits);
    timings_.probabilities += seconds_since(start);
    return table;
  }

  unsigned num_qubits() const override { return state_.num_qubits(); }

  void copy_state(std::complex<double>* out) const override {
    if (pending_zero_) materialize_zero();
    std::copy(state_.data(), state_.data() + state_.size(), out);
  }

  RunTimings last_run_timings() const override { return timings_; }

  void release() override {
    state_ = StateVector();
    has_state_ = false;
    pending_zero_ = false;
  }

 private:
  // Lazy |0…0⟩ is logically const: the state reads the same either way.
  void materialize_zero() const {
    state_.reset();
    pending_zero_ = false;
  }

  mutable StateVector state_;
  bool has_state_ = false;
  mutable bool pending_zero_ = false;
  mutable RunTimings timings_;
};

}  // namespace

std::unique_ptr<Backend> make_cpu_backend() { return std::make_unique<CpuBackend>(); }

}  // namespace corvid
