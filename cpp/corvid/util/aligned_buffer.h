#pragma once
/// A fixed-size, 64-byte aligned, uninitialised array of trivially copyable values: the
/// storage of state vectors and 2^n-sized tables. Move-only; frees on destruction.

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "corvid/util/memory.h"

namespace corvid {

inline constexpr std::size_t kBufferAlignment = 64;

template <class T>
class AlignedBuffer {
  static_assert(std::is_trivially_copyable_v<T>, "AlignedBuffer holds plain values only");

 public:
  AlignedBuffer() = default;

  /// Allocates `size` values, refusing (OutOfMemory naming `what`) before allocating when the
  /// request exceeds the memory available. The contents are uninitialised.
  explicit AlignedBuffer(std::size_t size, const std::string& what = "buffer") : size_(size) {
    if (size == 0) return;
    if (size > SIZE_MAX / sizeof(T)) require_memory(SIZE_MAX, what);
    std::size_t bytes = round_up(size * sizeof(T));
    require_memory(bytes, what);
    data_ = static_cast<T*>(std::aligned_alloc(kBufferAlignment, bytes));
    if (data_ == nullptr) throw std::bad_alloc();
  }

  AlignedBuffer(AlignedBuffer&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  AlignedBuffer& operator=(AlignedBuffer&& other) noexcept {
    if (this != &other) {
      std::free(data_);
      data_ = std::exchange(other.data_, nullptr);
      size_ = std::exchange(other.size_, 0);
    }
    return *this;
  }
  AlignedBuffer(const AlignedBuffer&) = delete;
  AlignedBuffer& operator=(const AlignedBuffer&) = delete;
  ~AlignedBuffer() { std::free(data_); }

  T* data() noexcept { return data_; }
  const T* data() const noexcept { return data_; }
  std::size_t size() const noexcept { return size_; }
  T& operator[](std::size_t i) noexcept { return data_[i]; }
  const T& operator[](std::size_t i) const noexcept { return data_[i]; }
  T* begin() noexcept { return data_; }
  T* end() noexcept { return data_ + size_; }
  const T* begin() const noexcept { return data_; }
  const T* end() const noexcept { return data_ + size_; }

 private:
  static std::size_t round_up(std::size_t bytes) {
    return (bytes + kBufferAlignment - 1) / kBufferAlignment * kBufferAlignment;
  }

  T* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace corvid
