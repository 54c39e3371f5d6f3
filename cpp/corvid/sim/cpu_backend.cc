#include <algorithm>

#include "corvid/sim/cpu_backend.h"
#include "corvid/sim/executor.h"
#include "corvid/sim/state_vector.h"

namespace corvid {
namespace {

class CpuBackend final : public Backend {
 public:
  std::string_view name() const override { return "cpu"; }

  void reset(unsigned num_qubits) override {
    if (has_state_ && state_.num_qubits() == num_qubits) {
      state_.reset();
      return;
    }
    release();  // free the old register before allocating the new one
    state_ = StateVector(num_qubits);
    has_state_ = true;
  }

  void run(std::span<const Gate> gates) override { execute(state_, gates); }

  ProbabilityTable probabilities(std::span<const unsigned> qubits) const override {
    return marginal_probabilities(state_, qubits);
  }

  unsigned num_qubits() const override { return state_.num_qubits(); }

  void copy_state(std::complex<double>* out) const override {
    std::copy(state_.data(), state_.data() + state_.size(), out);
  }

  void release() override {
    state_ = StateVector();
    has_state_ = false;
  }

 private:
  StateVector state_;
  bool has_state_ = false;
};

}  // namespace

std::unique_ptr<Backend> make_cpu_backend() { return std::make_unique<CpuBackend>(); }

}  // namespace corvid
