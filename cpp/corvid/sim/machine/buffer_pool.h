#pragma once
/// A process-wide pool of the large buffers of simulation: state vectors and probability
/// tables. A QAOA optimiser creates and finalises a machine per evaluation; with the pool, each
/// evaluation reuses the previous one's buffers instead of paying the kernel for fresh zeroed
/// pages (about one extra pass over the state).
///
/// Only free blocks are pooled: a buffer returns to the pool when its owner (a state, or a
/// probability table handed to Python) is destroyed. The pool keeps at most kMaxPooledBlocks
/// free blocks and at most half of the memory available when a block comes back; a request
/// that does not fit runs the memory-pressure hooks (util/memory.h: the pool's own free blocks,
/// the diagonal cache, whatever else registered) before it is refused. Free blocks are
/// released at exit.
/// Blocks of 2 MiB and more are asked to be backed by huge pages (fewer TLB misses in the
/// strided passes). Thread-safe.

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

#include "corvid/util/memory.h"  // release_cached_memory()

namespace corvid {

inline constexpr std::size_t kMaxPooledBlocks = 4;

/// A block of at least `bytes` bytes, 64-byte aligned, contents unspecified: a pooled free
/// block of exactly that size if there is one, else a new allocation. Throws OutOfMemory naming
/// `what` when it does not fit even after releasing cached memory.
void* acquire_block(std::size_t bytes, const std::string& what);
/// Throws what acquire_block(bytes, what) would throw, allocating nothing: passes when a pooled
/// block of that size is free or the memory is available (once cached memory is released).
void require_block(std::size_t bytes, const std::string& what);
/// Returns a block from acquire_block (with the same size) to the pool, or frees it.
void release_block(void* block, std::size_t bytes) noexcept;

/// Frees every pooled free block (also registered as a memory-pressure hook).
void release_pooled_blocks();
/// Bytes held by free pooled blocks.
std::size_t pooled_bytes();

/// An array of trivially copyable values in a pooled block, uninitialised. Move-only; the
/// block goes back to the pool on destruction. The same interface as AlignedBuffer.
template <class T>
class PooledBuffer {
  static_assert(std::is_trivially_copyable_v<T>, "PooledBuffer holds plain values only");

 public:
  PooledBuffer() = default;
  explicit PooledBuffer(std::size_t size, const std::string& what = "buffer") : size_(size) {
    if (size == 0) return;
    if (size > SIZE_MAX / sizeof(T)) acquire_block(SIZE_MAX, what);  // throws OutOfMemory
    data_ = static_cast<T*>(acquire_block(size * sizeof(T), what));
  }
  PooledBuffer(PooledBuffer&& o) noexcept
      : data_(std::exchange(o.data_, nullptr)), size_(std::exchange(o.size_, 0)) {}
  PooledBuffer& operator=(PooledBuffer&& o) noexcept {
    if (this != &o) {
      reset();
      data_ = std::exchange(o.data_, nullptr);
      size_ = std::exchange(o.size_, 0);
    }
    return *this;
  }
  PooledBuffer(const PooledBuffer&) = delete;
  PooledBuffer& operator=(const PooledBuffer&) = delete;
  ~PooledBuffer() { reset(); }

  /// The same block viewed as values of another type of the same size (contents kept
  /// bit for bit); this buffer becomes empty.
  template <class U>
  PooledBuffer<U> reinterpret() && noexcept {
    static_assert(sizeof(U) == sizeof(T) && std::is_trivially_copyable_v<U>);
    PooledBuffer<U> out;
    out.data_ = reinterpret_cast<U*>(std::exchange(data_, nullptr));
    out.size_ = std::exchange(size_, 0);
    return out;
  }

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
  void reset() noexcept {
    if (data_ != nullptr) release_block(data_, size_ * sizeof(T));
    data_ = nullptr;
    size_ = 0;
  }

  template <class U>
  friend class PooledBuffer;

  T* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace corvid
