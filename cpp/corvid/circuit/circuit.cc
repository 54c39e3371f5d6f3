#include "corvid/circuit/circuit.h"

#include <algorithm>
#include <cstdio>

#include "corvid/util/errors.h"
#include "corvid/util/memory.h"

namespace corvid {

namespace {

std::string gate_count(std::uint64_t count) {
  char text[64];
  std::snprintf(text, sizeof text, "a circuit of %.4g gates", static_cast<double>(count));
  return text;
}

}  // namespace

void Circuit::reserve(std::uint64_t count) {
  const std::uint64_t total = gates_.size() + count;
  const std::string what = gate_count(total);
  if (total > SIZE_MAX / kRunBytesPerGate) require_memory(SIZE_MAX, what);
  // Small circuits skip the (file-reading) memory query.
  if (total * kRunBytesPerGate >= std::size_t{1} << 26)
    require_memory(total * kRunBytesPerGate, what);
  naming_allocation(what, [&] { gates_.reserve(total); });
}

Circuit& Circuit::append(const Gate& gate) {
  naming_allocation([&] { return "appending to " + gate_count(gates_.size()); },
                    [&] { gates_.push_back(gate); });
  return *this;
}

Circuit& Circuit::append(const Circuit& other) {
  naming_allocation([&] { return "appending to " + gate_count(gates_.size()); },
                    [&] {
                      if (&other == this) {
                        // Inserting a vector's own range into itself would read from reallocated
                        // storage.
                        std::vector<Gate> copy = gates_;
                        gates_.insert(gates_.end(), copy.begin(), copy.end());
                      } else {
                        gates_.insert(gates_.end(), other.gates_.begin(), other.gates_.end());
                      }
                    });
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
