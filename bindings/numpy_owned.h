#pragma once
// Hands a C++ buffer to numpy without copying.
#include <pybind11/numpy.h>

#include <type_traits>
#include <utility>

namespace corvid_py {

/// A one-dimensional numpy array over `buffer` (anything with data() and size()), which it takes
/// over; the array frees it when collected.
template <class Buffer>
auto to_numpy(Buffer&& buffer) {
  using T = std::remove_cvref_t<decltype(*buffer.data())>;
  auto* owned = new std::remove_cvref_t<Buffer>(std::forward<Buffer>(buffer));
  pybind11::capsule free_when_done(
      owned, [](void* p) { delete static_cast<std::remove_cvref_t<Buffer>*>(p); });
  return pybind11::array_t<T>({static_cast<pybind11::ssize_t>(owned->size())}, {sizeof(T)},
                              owned->data(), free_when_done);
}

}  // namespace corvid_py
