#pragma once
/// Handles of quantum and classical bits. A handle is an index into a machine's register plus
/// the id of the machine that allocated it; machine id 0 marks a plain index that any machine
/// accepts. Ids are never reused, so a handle of one machine is recognised as foreign by every
/// other.

#include <cstdint>

namespace corvid {

/// Qubit indices are below this bound: a basis index is a 64-bit integer whose bit i is qubit i.
inline constexpr std::uint32_t kMaxQubits = 64;

/// Machine id of a plain index (not allocated by any machine).
inline constexpr std::uint64_t kAnyMachine = 0;

struct Qubit {
  std::uint32_t addr = 0;
  std::uint64_t machine = kAnyMachine;

  constexpr Qubit(std::uint32_t addr_ = 0, std::uint64_t machine_ = kAnyMachine)  // NOLINT
      : addr(addr_), machine(machine_) {}
  friend bool operator==(const Qubit&, const Qubit&) = default;
};

struct CBit {
  std::uint32_t addr = 0;
  std::uint64_t machine = kAnyMachine;

  constexpr CBit(std::uint32_t addr_ = 0, std::uint64_t machine_ = kAnyMachine)  // NOLINT
      : addr(addr_), machine(machine_) {}
  friend bool operator==(const CBit&, const CBit&) = default;
};

}  // namespace corvid
