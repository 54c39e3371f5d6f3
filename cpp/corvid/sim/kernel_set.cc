#include "corvid/sim/kernel_set.h"

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvid {
namespace {

using Index = std::uint64_t;

inline Amplitude mul(Amplitude a, Amplitude b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

template <class T>
void phase_table(Amplitude* amps, const T* index, const Amplitude* table, Index count) {
  for (Index i = 0; i < count; ++i) amps[i] = mul(amps[i], table[index[i]]);
}

void matrix_tile(Amplitude* tile, unsigned tile_bits, unsigned q, const Matrix2& m) {
  const Index size = Index{1} << tile_bits;
  const Index stride = Index{1} << q;
  for (Index base = 0; base < size; base += 2 * stride) {
    for (Index i = base; i < base + stride; ++i) {
      const Amplitude a0 = tile[i];
      const Amplitude a1 = tile[i + stride];
      tile[i] = mul(m.m00, a0) + mul(m.m01, a1);
      tile[i + stride] = mul(m.m10, a0) + mul(m.m11, a1);
    }
  }
}

void matrix_pair_tile(Amplitude* tile, unsigned tile_bits, unsigned qa, const Matrix2& ma,
                      unsigned qb, const Matrix2& mb) {
  matrix_tile(tile, tile_bits, qa, ma);
  matrix_tile(tile, tile_bits, qb, mb);
}

const KernelSet kScalar{"scalar", &phase_table<std::uint8_t>, &phase_table<std::uint16_t>,
                        &matrix_tile, &matrix_pair_tile};

std::atomic<const KernelSet*>& active() {
  static std::atomic<const KernelSet*> set{available_kernel_sets().back()};
  return set;
}

}  // namespace

const KernelSet& scalar_kernel_set() { return kScalar; }

std::span<const KernelSet* const> available_kernel_sets() {
  static const std::vector<const KernelSet*> sets = [] {
    std::vector<const KernelSet*> out{&kScalar};
    if (const KernelSet* avx2 = avx2_kernel_set()) out.push_back(avx2);
    return out;
  }();
  return sets;
}

const KernelSet& active_kernel_set() { return *active().load(std::memory_order_relaxed); }

void set_active_kernel_set(std::string_view name) {
  for (const KernelSet* set : available_kernel_sets()) {
    if (set->name == name) {
      active() = set;
      return;
    }
  }
  throw std::invalid_argument("kernel set '" + std::string(name) +
                              "' is unknown or not supported by this CPU");
}

}  // namespace corvid
