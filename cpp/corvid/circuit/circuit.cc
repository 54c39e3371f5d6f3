#include "corvid/circuit/circuit.h"

#include <algorithm>

namespace corvid {

Circuit& Circuit::append(const Gate& gate) {
  gates_.push_back(gate);
  return *this;
}

Circuit& Circuit::append(const Circuit& other) {
  if (&other == this) {
    // Inserting a vector's own range into itself would read from reallocated storage.
    std::vector<Gate> copy = gates_;
    gates_.insert(gates_.end(), copy.begin(), copy.end());
  } else {
    gates_.insert(gates_.end(), other.gates_.begin(), other.gates_.end());
  }
  return *this;
}

std::uint32_t Circuit::num_qubits() const noexcept {
  std::uint32_t n = 0;
  for (const Gate& g : gates_) {
    for (std::uint32_t q : g.qubits()) n = std::max(n, q + 1);
  }
  return n;
}

std::string Circuit::to_string() const {
  std::string out;
  for (std::size_t i = 0; i < gates_.size(); ++i) {
    if (i > 0) out += '\n';
    out += gates_[i].to_string();
  }
  return out;
}

}  // namespace corvid
