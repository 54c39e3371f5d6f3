#include "corvid/sim/kernels/kernel_set.h"

#include <array>
#include <atomic>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace corvid {
namespace {

using Index = std::uint64_t;

template <class Real>
inline std::complex<Real> mul(std::complex<Real> a, std::complex<Real> b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

template <class Real, class T>
void phase_table(std::complex<Real>* amps, const T* index, const std::complex<Real>* table,
                 Index count) {
  for (Index i = 0; i < count; ++i) amps[i] = mul(amps[i], table[index[i]]);
}

// `m` on the pairs (p0[i], p1[i]), i < count.
template <class Real>
void apply_to_pairs(const Matrix2& m, std::complex<Real>* p0, std::complex<Real>* p1, Index count) {
  using V = std::complex<Real>;
  const V m00(m.m00), m01(m.m01), m10(m.m10), m11(m.m11);
  for (Index i = 0; i < count; ++i) {
    const V a0 = p0[i], a1 = p1[i];
    p0[i] = mul(m00, a0) + mul(m01, a1);
    p1[i] = mul(m10, a0) + mul(m11, a1);
  }
}

template <class Real>
void matrix_tile(std::complex<Real>* tile, unsigned tile_bits, unsigned q, const Matrix2& m) {
  const Index size = Index{1} << tile_bits;
  const Index stride = Index{1} << q;
  for (Index base = 0; base < size; base += 2 * stride) {
    apply_to_pairs(m, tile + base, tile + base + stride, stride);
  }
}

template <class Real>
void matrices_tile(std::complex<Real>* tile, unsigned tile_bits,
                   std::span<const QubitMatrix> gates) {
  for (const QubitMatrix& g : gates) matrix_tile<Real>(tile, tile_bits, g.qubit, g.matrix);
}

template <class Real>
void matrices_rows(std::complex<Real>* const* rows, unsigned row_bits, Index length,
                   std::span<const QubitMatrix> gates) {
  for (const QubitMatrix& g : gates) {
    const Index bit = Index{1} << g.qubit;
    for (Index r = 0; r < (Index{1} << row_bits); ++r) {
      if (!(r & bit)) apply_to_pairs(g.matrix, rows[r], rows[r | bit], length);
    }
  }
}

template <class Real>
constexpr BasicKernelSet<Real> kScalar{"scalar",
                                       &phase_table<Real, std::uint8_t>,
                                       &phase_table<Real, std::uint16_t>,
                                       &matrix_tile<Real>,
                                       &matrices_tile<Real>,
                                       &matrices_rows<Real>};

// The vector sets, narrowest first; nullptr for those this CPU cannot run.
template <class Real>
std::array<const BasicKernelSet<Real>*, 2> vector_sets() {
  if constexpr (std::is_same_v<Real, double>) {
    return {avx2_kernel_set(), avx512_kernel_set()};
  } else {
    return {avx2_kernel_set32(), avx512_kernel_set32()};
  }
}

template <class Real>
std::atomic<const BasicKernelSet<Real>*>& active() {
  static std::atomic<const BasicKernelSet<Real>*> set{available_kernel_sets<Real>().back()};
  return set;
}

template <class Real>
bool choose(std::string_view name) {
  for (const BasicKernelSet<Real>* set : available_kernel_sets<Real>()) {
    if (set->name == name) {
      active<Real>() = set;
      return true;
    }
  }
  return false;
}

}  // namespace

const KernelSet& scalar_kernel_set() { return kScalar<double>; }
const KernelSet32& scalar_kernel_set32() { return kScalar<float>; }

template <class Real>
std::span<const BasicKernelSet<Real>* const> available_kernel_sets() {
  static const std::vector<const BasicKernelSet<Real>*> sets = [] {
    std::vector<const BasicKernelSet<Real>*> out{&kScalar<Real>};
    for (const BasicKernelSet<Real>* set : vector_sets<Real>()) {
      if (set) out.push_back(set);
    }
    return out;
  }();
  return sets;
}
template std::span<const KernelSet* const> available_kernel_sets<double>();
template std::span<const KernelSet32* const> available_kernel_sets<float>();

std::span<const KernelSet* const> available_kernel_sets() {
  return available_kernel_sets<double>();
}

template <class Real>
const BasicKernelSet<Real>& active_kernels() {
  return *active<Real>().load(std::memory_order_relaxed);
}
template const KernelSet& active_kernels<double>();
template const KernelSet32& active_kernels<float>();

const KernelSet& active_kernel_set() { return active_kernels<double>(); }

void set_active_kernel_set(std::string_view name) {
  if (!choose<double>(name) || !choose<float>(name)) {
    throw std::invalid_argument("kernel set '" + std::string(name) +
                                "' is unknown or not supported by this CPU");
  }
}

}  // namespace corvid
