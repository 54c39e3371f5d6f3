#pragma once
/// Error types of the core. Validation happens once, at public entry points; kernels only assert.
/// Python sees std::invalid_argument as ValueError, std::out_of_range as IndexError and
/// corvid::OutOfMemory as MemoryError.

#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

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

/// Runs `allocate`, reporting std::bad_alloc as OutOfMemory "out of memory while <what>", for
/// allocations no guard can size in advance (containers that grow with their result). `what`
/// is a string, or a function returning one, called only on failure (for hot paths).
template <class What, class F>
decltype(auto) naming_allocation(const What& what, F&& allocate) {
  try {
    return std::forward<F>(allocate)();
  } catch (const std::bad_alloc&) {
    if constexpr (std::is_invocable_v<const What&>) {
      throw OutOfMemory("out of memory while " + std::string(what()));
    } else {
      throw OutOfMemory("out of memory while " + std::string(what));
    }
  }
}

}  // namespace corvid
