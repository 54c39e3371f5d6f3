#include "corvid/sim/execute/rotation_layer.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <optional>
#include <type_traits>
#include <vector>

#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/util/aligned_buffer.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

// Inserts a zero bit at each of `positions` (ascending) into i.
inline Index insert_zeros(Index i, std::span<const unsigned> positions) {
  for (unsigned p : positions) {
    const Index low = i & ((Index{1} << p) - 1);
    i = ((i ^ low) << 1) | low;
  }
  return i;
}

// body(t, scratch) for every tile t; `scratch_size` amplitudes of per-thread scratch.
template <class V, class Body>
void for_each_tile(Index tiles, Index work, Index scratch_size, Body body) {
  const auto count = static_cast<std::int64_t>(tiles);
#pragma omp parallel if (parallel_worthwhile(work) && tiles > 1)
  {
    AlignedBuffer<V> scratch(scratch_size, "layer tile");
#pragma omp for schedule(static)
    for (std::int64_t t = 0; t < count; ++t) body(static_cast<Index>(t), scratch.data());
  }
}

// start·|0…0⟩ = ⊗_q (column 0 of q's matrix, or |0⟩ for qubits not in `start`), written range
// by range: the factor of the low `bits` qubits is tabulated once, the rest is one product per
// range. A range must lie inside one aligned block of 2^bits amplitudes.
class ProductState {
 public:
  ProductState(unsigned n, std::span<const QubitMatrix> start, unsigned bits)
      : bits_(bits), u0_(n, 1.0), u1_(n, 0.0), low_(Index{1} << bits) {
    for (const QubitMatrix& g : start) {
      u0_[g.qubit] = g.matrix.m00;
      u1_[g.qubit] = g.matrix.m10;
    }
    low_[0] = 1.0;  // built by doubling
    for (unsigned q = 0; q < bits; ++q) {
      const Index half = Index{1} << q;
      for (Index i = 0; i < half; ++i) {
        low_[i + half] = low_[i] * u1_[q];
        low_[i] *= u0_[q];
      }
    }
  }

  template <class Real>
  void write(std::complex<Real>* amps, Index begin, Index count) const {
    Amplitude high = 1.0;
    for (unsigned q = bits_; q < u0_.size(); ++q) high *= ((begin >> q) & 1) ? u1_[q] : u0_[q];
    const Amplitude* low = low_.data() + (begin & (low_.size() - 1));
    const double hr = high.real(), hi = high.imag();
    for (Index i = 0; i < count; ++i) {
      amps[begin + i] = {Real(hr * low[i].real() - hi * low[i].imag()),
                         Real(hr * low[i].imag() + hi * low[i].real())};
    }
  }

 private:
  unsigned bits_;
  std::vector<Amplitude> u0_, u1_, low_;
};

// The second state of a pair and its watcher (apply_rotation_layer_pair); none for one state.
template <class Real>
struct Companion {
  std::complex<Real>* second = nullptr;
  LayerWatcher* watch = nullptr;
};

// The same product of gates with every matrix but the last replaced by its unit part and the
// scales multiplied into the last: all but one sweep then take one multiply-add per amplitude.
std::vector<QubitMatrix> with_scales_folded(std::span<const QubitMatrix> gates) {
  std::vector<QubitMatrix> folded(gates.begin(), gates.end());
  if (folded.size() < 2) return folded;
  Amplitude scale = 1.0;
  for (QubitMatrix& g : folded) {
    const ScaledMatrix2 f = factor_scale(g.matrix);
    scale *= f.scale;
    g.matrix = f.unit;
  }
  Matrix2& last = folded.back().matrix;
  last = {scale * last.m00, scale * last.m01, scale * last.m10, scale * last.m11};
  return folded;
}

// `low`: ascending qubits below tile_bits. Per contiguous tile, those below inner_bits are
// applied per L1-sized sub-tile, preceded there by the diagonal `before` (so that reading the
// tile from memory overlaps the sweeps) and, with `start`, by writing the sub-tile's starting
// amplitudes (so that the state is never read); then the rest sweep the (L2-resident) tile.
// A pair takes each sub-tile and then the tile of the first state, then of the second, and
// the watcher after each.
template <class Real>
void apply_low(std::complex<Real>* amps, unsigned n, std::span<const QubitMatrix> unfolded,
               const BasicKernelSet<Real>& k, const BasicDiagonalPass<Real>* before,
               const LayerTiling& tiling, const ProductState* start, const Companion<Real>& pair) {
  const std::vector<QubitMatrix> low = with_scales_folded(unfolded);
  const unsigned bits = std::min(n, tiling.tile_bits);
  const unsigned inner = std::min(bits, tiling.inner_bits);
  const auto split = std::partition_point(low.begin(), low.end(),
                                          [&](const QubitMatrix& g) { return g.qubit < inner; });
  const Index sub_size = Index{1} << (split != low.begin() ? inner : bits);
  const Index size = Index{1} << bits;
  std::vector<unsigned> inner_qubits, outer_qubits;
  for (const QubitMatrix& g : low)
    (g.qubit < inner ? inner_qubits : outer_qubits).push_back(g.qubit);
  // Sums over a sub-tile see the inner gates without their scales, which the last gate pays
  // (with_scales_folded) unless it is inner itself: the factor that restores them.
  double inner_weight = 1.0;
  if (!outer_qubits.empty()) {
    for (const QubitMatrix& g : unfolded) {
      if (g.qubit < inner) inner_weight *= std::norm(factor_scale(g.matrix).scale);
    }
  }
  std::complex<Real>* const second = pair.second;
  for_each_tile<std::complex<Real>>(Index{1} << (n - bits), Index{1} << n, 0, [&](Index t, auto*) {
    const Index begin = t << bits;
    for (Index sub = begin; sub < begin + size; sub += sub_size) {
      if constexpr (std::is_same_v<Real, double>) {
        if (pair.watch != nullptr && before != nullptr)
          pair.watch->before_diagonal(amps, second, sub, sub_size);
      }
      for (std::complex<Real>* state : {amps, second}) {
        if (state == nullptr) continue;
        if (start != nullptr) start->write(state, sub, sub_size);
        if (before != nullptr) before->apply(state, sub, sub_size);
        if (split != low.begin()) k.matrices_tile(state + sub, inner, {low.begin(), split});
      }
      if constexpr (std::is_same_v<Real, double>) {
        if (pair.watch != nullptr && !inner_qubits.empty())
          pair.watch->after_range(amps + sub, second + sub, sub_size, inner_qubits, inner_weight);
      }
    }
    if (split != low.end()) {
      for (std::complex<Real>* state : {amps, second}) {
        if (state != nullptr) k.matrices_tile(state + begin, bits, {split, low.end()});
      }
      if constexpr (std::is_same_v<Real, double>) {
        if (pair.watch != nullptr)
          pair.watch->after_range(amps + begin, second + begin, size, outer_qubits, 1.0);
      }
    }
  });
}

// `group`: ascending qubits, all >= tile_bits, at most high_tile_bits − min_row_bits of them.
// A tile here is 2^m rows of 2^c contiguous amplitudes (m + c = high_tile_bits, or fewer when
// the state is smaller) at the strides of the m qubits, worked on in place at three levels:
// the group's first qubits per block of consecutive rows that fits L1, the next per block of
// rows at their strides that fits L2 (as large as a low tile), the rest over the whole tile.
// Each level reads the tile once from the level below.
template <class Real>
void apply_high(std::complex<Real>* amps, unsigned n, std::span<const QubitMatrix> group,
                const BasicKernelSet<Real>& k, const LayerTiling& tiling,
                const Companion<Real>& pair) {
  using V = std::complex<Real>;
  const auto m = static_cast<unsigned>(group.size());
  const unsigned bits = std::min(n, tiling.high_tile_bits);
  const unsigned c = std::min(bits - m, group.front().qubit);  // rows end below the group
  std::vector<unsigned> fixed;  // bit positions a tile does not enumerate: [0, c) and the group
  std::vector<Index> offsets(Index{1} << m, 0);
  std::vector<QubitMatrix> local;  // the group's qubits as row bits 0, 1, ...
  for (unsigned b = 0; b < c; ++b) fixed.push_back(b);
  for (unsigned j = 0; j < m; ++j) {
    fixed.push_back(group[j].qubit);
    local.push_back({j, group[j].matrix});
    for (Index s = 0; s < offsets.size(); ++s) {
      if ((s >> j) & 1) offsets[s] |= Index{1} << group[j].qubit;
    }
  }
  auto row_bits_within = [&](unsigned level_bits) {
    return std::min(m, level_bits > c ? level_bits - c : 0);
  };
  const unsigned l1 = row_bits_within(tiling.inner_bits);
  const unsigned l2 = std::max(l1, row_bits_within(tiling.tile_bits));
  std::vector<QubitMatrix> middle;  // qubits [l1, l2) as row bits 0, 1, ... of an L2 block
  for (unsigned j = l1; j < l2; ++j) middle.push_back({j - l1, group[j].matrix});
  const Index length = Index{1} << c;
  const Index scratch = (Index{1} << m) + (Index{1} << (l2 - l1));
  const Index states = pair.second != nullptr ? 2 : 1;
  for_each_tile<V*>(
      Index{1} << (n - m - c), Index{1} << n, states * scratch, [&](Index t, V** all_rows) {
        const Index base = insert_zeros(t, fixed);
        for (Index state = 0; state < states; ++state) {
          V* const origin = state == 0 ? amps : pair.second;
          V** rows = all_rows + state * scratch;
          for (Index s = 0; s < offsets.size(); ++s) rows[s] = origin + base + offsets[s];
          if (l1 > 0) {
            for (Index r = 0; r < offsets.size(); r += Index{1} << l1) {
              k.matrices_rows(rows + r, l1, length, {local.begin(), local.begin() + l1});
            }
          }
          if (l2 > l1) {
            V** block = rows + offsets.size();
            for (Index high = 0; high < (Index{1} << (m - l2)); ++high) {
              for (Index low = 0; low < (Index{1} << l1); ++low) {
                for (Index r = 0; r < (Index{1} << (l2 - l1)); ++r)
                  block[r] = rows[high << l2 | r << l1 | low];
                k.matrices_rows(block, l2 - l1, length, middle);
              }
            }
          }
          if (l2 < m) k.matrices_rows(rows, m, length, {local.begin() + l2, local.end()});
        }
        if constexpr (std::is_same_v<Real, double>) {
          if (pair.watch != nullptr)
            pair.watch->after_rows(all_rows, all_rows + scratch, m, length);
        }
      });
}

template <class Real>
void apply_layer(std::complex<Real>* amps, unsigned n, std::span<const QubitMatrix> layer,
                 const BasicKernelSet<Real>& kernels, const BasicDiagonalPass<Real>* before,
                 LayerTiling tiling, std::optional<std::span<const QubitMatrix>> start,
                 const Companion<Real>& pair) {
  std::vector<QubitMatrix> sorted(layer.begin(), layer.end());
  std::sort(sorted.begin(), sorted.end(),
            [](const QubitMatrix& a, const QubitMatrix& b) { return a.qubit < b.qubit; });
  assert(sorted.empty() || sorted.back().qubit < n);
  const std::ptrdiff_t group = tiling.high_tile_bits - tiling.min_row_bits;
  // A second or later high group of one qubit would cost a whole pass: a low tile twice as
  // large takes it (at n = 26, four layers took 2200 ms instead of 2424 ms).
  if (n > tiling.tile_bits + group && (n - tiling.tile_bits) % group == 1) ++tiling.tile_bits;
  const auto split = std::partition_point(sorted.begin(), sorted.end(), [&](const QubitMatrix& g) {
    return g.qubit < tiling.tile_bits;
  });
  if (split != sorted.begin() || (pair.second != nullptr && before != nullptr)) {
    // A pair always takes the low pass: the watcher sees the diagonal there.
    const std::optional<ProductState> first =
        start ? std::optional<ProductState>(std::in_place, n, *start, std::min(n, tiling.tile_bits))
              : std::nullopt;
    apply_low(amps, n, {sorted.begin(), split}, kernels, before, tiling, first ? &*first : nullptr,
              pair);
  } else if (start) {
    write_product_state<Real>(amps, n, *start, before);
  } else if (before != nullptr) {
    before->apply_all(amps, n);
  }
  for (auto it = split; it != sorted.end();) {
    const auto end = it + std::min(group, sorted.end() - it);
    apply_high(amps, n, with_scales_folded({it, end}), kernels, tiling, pair);
    it = end;
  }
}

}  // namespace

template <class Real>
void apply_rotation_layer(std::complex<Real>* amps, unsigned n, std::span<const QubitMatrix> layer,
                          const std::type_identity_t<BasicKernelSet<Real>>& kernels,
                          const std::type_identity_t<BasicDiagonalPass<Real>>* before,
                          LayerTiling tiling, std::optional<std::span<const QubitMatrix>> start) {
  apply_layer<Real>(amps, n, layer, kernels, before, tiling, start, {});
}

void apply_rotation_layer_pair(Amplitude* first, Amplitude* second, unsigned n,
                               std::span<const QubitMatrix> layer, const KernelSet& kernels,
                               const DiagonalPass* before, LayerWatcher& watcher,
                               LayerTiling tiling) {
  apply_layer<double>(first, n, layer, kernels, before, tiling, std::nullopt, {second, &watcher});
}

template <class Real>
void write_product_state(std::complex<Real>* amps, unsigned n, std::span<const QubitMatrix> layer,
                         const std::type_identity_t<BasicDiagonalPass<Real>>* after) {
  const unsigned bits = std::min(n, kTileBits);
  const ProductState state(n, layer, bits);
  for_each_tile<std::complex<Real>>(Index{1} << (n - bits), Index{1} << n, 0, [&](Index t, auto*) {
    state.write(amps, t << bits, Index{1} << bits);
    if (after != nullptr) after->apply(amps, t << bits, Index{1} << bits);
  });
}

template void apply_rotation_layer<double>(Amplitude*, unsigned, std::span<const QubitMatrix>,
                                           const KernelSet&, const DiagonalPass*, LayerTiling,
                                           std::optional<std::span<const QubitMatrix>>);
template void apply_rotation_layer<float>(Amplitude32*, unsigned, std::span<const QubitMatrix>,
                                          const KernelSet32&, const DiagonalPass32*, LayerTiling,
                                          std::optional<std::span<const QubitMatrix>>);
template void write_product_state<double>(Amplitude*, unsigned, std::span<const QubitMatrix>,
                                          const DiagonalPass*);
template void write_product_state<float>(Amplitude32*, unsigned, std::span<const QubitMatrix>,
                                         const DiagonalPass32*);

}  // namespace corvid
