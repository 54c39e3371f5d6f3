#pragma once
/// A quantum circuit: an ordered list of gates, applied first to last.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "corvid/circuit/gate.h"

namespace corvid {

class Circuit {
 public:
  /// Bytes one gate takes through a run: the circuit, the program built from it, the copy a run
  /// takes and its compiled form.
  static constexpr std::size_t kRunBytesPerGate = 4 * sizeof(Gate);

  Circuit() = default;

  /// Appends one gate. Returns *this so appends chain: `c << g1 << g2`.
  Circuit& append(const Gate& gate);
  /// Appends every gate of `other` in order (the circuit is inlined); `other` may be *this.
  Circuit& append(const Circuit& other);
  /// Makes room for `count` more gates, refused first with OutOfMemory naming the count when
  /// the gates could not also be copied and compiled for a run (kRunBytesPerGate each).
  void reserve(std::uint64_t count);
  Circuit& operator<<(const Gate& gate) { return append(gate); }
  Circuit& operator<<(const Circuit& other) { return append(other); }

  std::size_t size() const noexcept { return gates_.size(); }
  bool empty() const noexcept { return gates_.empty(); }
  const Gate& operator[](std::size_t i) const noexcept { return gates_[i]; }
  const std::vector<Gate>& gates() const noexcept { return gates_; }
  auto begin() const noexcept { return gates_.begin(); }
  auto end() const noexcept { return gates_.end(); }

  /// One past the highest qubit index any gate touches (0 for an empty circuit). O(size).
  std::uint32_t num_qubits() const noexcept;

  /// One gate per line in Gate::to_string form, lines joined by '\n' (no trailing newline).
  std::string to_string() const;

  friend bool operator==(const Circuit&, const Circuit&) = default;

 private:
  std::vector<Gate> gates_;
};

}  // namespace corvid
