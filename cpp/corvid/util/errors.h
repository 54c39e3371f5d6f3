#pragma once
/// Error types of the core. Validation happens once, at public entry points; kernels only assert.
/// Python sees std::invalid_argument as ValueError, std::out_of_range as IndexError and
/// corvid::OutOfMemory as MemoryError.

#include <stdexcept>
#include <string>

namespace corvid {

/// A request that cannot fit in the memory available, refused before anything is allocated.
class OutOfMemory : public std::length_error {
 public:
  using std::length_error::length_error;
};

/// The operation was interrupted by the host (for example Ctrl-C in Python).
class Interrupted : public std::runtime_error {
 public:
  Interrupted() : std::runtime_error("interrupted") {}
};

}  // namespace corvid
