#pragma once
/// FactorList: the storage of a Pauli string's factors. Strings of up to kInline factors (all
/// terms of quadratic and cubic problems, and their pairwise products) live inside the object,
/// so copying, moving and multiplying such terms never touches the heap; longer strings spill
/// to a heap array. A value type; not thread-safe for concurrent mutation.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace corvid {

/// One factor of a Pauli string: `letter` ('X', 'Y' or 'Z') acting on qubit `qubit`.
struct PauliFactor {
  std::uint32_t qubit;
  char letter;

  friend bool operator==(const PauliFactor&, const PauliFactor&) = default;
};

class FactorList {
 public:
  static constexpr std::uint32_t kInline = 4;

  FactorList() noexcept {}
  explicit FactorList(std::span<const PauliFactor> factors) { assign(factors); }
  FactorList(const FactorList& other) {
    if (other.on_heap()) {
      assign(other.span());
    } else {
      copy_inline(other);
    }
  }
  FactorList(FactorList&& other) noexcept { take(other); }
  FactorList& operator=(const FactorList& other) {
    if (this != &other) assign(other.span());
    return *this;
  }
  FactorList& operator=(FactorList&& other) noexcept {
    if (this != &other) {
      release();
      take(other);
    }
    return *this;
  }
  ~FactorList() { release(); }

  std::size_t size() const noexcept { return size_; }
  PauliFactor* data() noexcept { return on_heap() ? heap_ : inline_; }
  const PauliFactor* data() const noexcept { return on_heap() ? heap_ : inline_; }
  std::span<const PauliFactor> span() const noexcept { return {data(), size_}; }
  PauliFactor* begin() noexcept { return data(); }
  PauliFactor* end() noexcept { return data() + size_; }

  /// Makes room for `n` factors, keeping the current ones. Amortised O(1) per push_back.
  void reserve(std::size_t n) {
    if (n <= capacity_) return;
    auto* grown = new PauliFactor[n];
    std::copy(data(), data() + size_, grown);
    if (on_heap()) delete[] heap_;
    heap_ = grown;  // shares storage with inline_, so written only after the copy
    capacity_ = static_cast<std::uint32_t>(n);
  }
  void push_back(PauliFactor f) {
    if (size_ == capacity_) reserve(2 * std::size_t{capacity_});
    data()[size_++] = f;
  }
  void assign(std::span<const PauliFactor> factors) {
    size_ = 0;
    reserve(factors.size());
    std::copy(factors.begin(), factors.end(), data());
    size_ = static_cast<std::uint32_t>(factors.size());
  }

 private:
  bool on_heap() const noexcept { return capacity_ > kInline; }
  void release() noexcept {
    if (on_heap()) delete[] heap_;
    size_ = 0;
    capacity_ = kInline;
  }
  // A fixed-size copy of the whole inline array compiles to a few register moves, where a
  // variable-length one would call memmove.
  void copy_inline(const FactorList& other) noexcept {
    std::memcpy(static_cast<void*>(inline_), other.inline_, sizeof inline_);
    size_ = other.size_;
  }
  // Steals a heap array, or copies inline factors; `other` is left empty.
  void take(FactorList& other) noexcept {
    if (other.on_heap()) {
      heap_ = other.heap_;
      capacity_ = other.capacity_;
    } else {
      copy_inline(other);
    }
    size_ = other.size_;
    other.size_ = 0;
    other.capacity_ = kInline;
  }

  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = kInline;
  union {
    PauliFactor inline_[kInline];
    PauliFactor* heap_;
  };
};

}  // namespace corvid
