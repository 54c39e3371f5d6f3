#pragma once
/// Layers of one-qubit gates on distinct qubits, applied cache-blocked.
///
/// The state is cut into tiles of 2^kTileBits amplitudes (512 KiB of complex doubles: most
/// sweeps run per 16 KiB sub-tile from L1, so only the tile's last few sweep through L2).
/// Qubits below kTileBits are all applied inside each contiguous tile in one pass over memory.
/// The higher qubits are applied in further passes, each working in place on tiles of 2^m rows
/// of 2^c contiguous amplitudes (m + c = kHighTileBits, c >= kMinRowBits) at the strides of m
/// high qubits: a layer on n qubits costs 1 + ceil((n − kTileBits) / (kHighTileBits −
/// kMinRowBits)) passes instead of n (the low tile takes one qubit more where that saves one). High
/// tiles are larger than low ones because short rows scattered over the state read slowly from
/// memory (rows of 256 bytes took twice as long as a streaming pass on the 2-core benchmark
/// machine), while a 2 MiB tile's sweeps still run from L2 and L3: at n = 24 the ten high qubits
/// took 82 ms with 256-byte rows, 47 ms with 2 KiB rows. The low pass is the cheaper of the two per
/// qubit, so it takes one qubit more than half of L2 would suggest: on that machine four
/// phase-and-mixer layers at n = 24 took 503-524 ms with 15 low qubits against 524-624 ms with 14,
/// and no size from 20 to 26 qubits got slower.

#include <cstdint>
#include <optional>
#include <span>
#include <type_traits>

#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/kernels/matrix2.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {

template <class Real>
class BasicDiagonalPass;
using DiagonalPass = BasicDiagonalPass<double>;
using DiagonalPass32 = BasicDiagonalPass<float>;

inline constexpr unsigned kTileBits = 15;
/// Within a tile, qubits below this are applied per 16 KiB sub-tile (half of a 32 KiB L1).
inline constexpr unsigned kInnerBits = 10;
inline constexpr unsigned kHighTileBits = 17;
inline constexpr unsigned kMinRowBits = 7;  // 128 amplitudes = 2 KiB of complex doubles

/// Tile sizes of the blocked passes; tests shrink them to reach every code path on small states.
struct LayerTiling {
  unsigned tile_bits = kTileBits;
  unsigned inner_bits = kInnerBits;  ///< <= tile_bits
  unsigned high_tile_bits = kHighTileBits;
  unsigned min_row_bits = kMinRowBits;  ///< >= 1 (rows of whole vectors), < high_tile_bits
};

/// Applies every matrix of `layer` (distinct qubits, each < num_qubits; asserted) to the
/// 2^num_qubits amplitudes at `amps` (64-byte aligned). The gates commute, so order is free.
/// O(2^n · |layer|) arithmetic in the passes above; parallel over tiles. When `before` is
/// given and the layer has qubits below kTileBits, that diagonal is applied first inside the
/// same tile pass (a phase separator and its mixer in one sweep over memory); otherwise it
/// gets a pass of its own. With `start`, the contents of `amps` are ignored and the state
/// begins as start·|0…0⟩ (see write_product_state), written tile by tile inside the same pass,
/// so that preparing it costs no pass over memory of its own.
/// Double (Real = double) and single precision (Real = float).
template <class Real>
void apply_rotation_layer(
    std::complex<Real>* amps, unsigned num_qubits, std::span<const QubitMatrix> layer,
    const std::type_identity_t<BasicKernelSet<Real>>& kernels = active_kernels<Real>(),
    const std::type_identity_t<BasicDiagonalPass<Real>>* before = nullptr, LayerTiling tiling = {},
    std::optional<std::span<const QubitMatrix>> start = std::nullopt);

/// Sees a layer applied to two states at once (apply_rotation_layer_pair), range by range while
/// the range is in cache: the gradient's inner products of the two states ride in the layer's
/// passes instead of passes of their own. Called from the team's threads concurrently.
class LayerWatcher {
 public:
  /// Amplitudes [begin, begin + count) of both states, before the diagonal is applied there.
  virtual void before_diagonal(const Amplitude* first, const Amplitude* second, std::uint64_t begin,
                               std::uint64_t count) = 0;
  /// `count` contiguous amplitudes of both states right after the gates on `qubits` (all <
  /// log2(count)) were applied there: every pair of those qubits lies inside. A sum of
  /// products of the two states over the range times `weight` is what it would be without
  /// the scales the layer defers to a later gate.
  virtual void after_range(const Amplitude* first, const Amplitude* second, std::uint64_t count,
                           std::span<const unsigned> qubits, double weight) = 0;
  /// 2^row_bits rows of `length` amplitudes of both states right after the gates on the row
  /// bits were applied there (row bit j: the j-th of those qubits).
  virtual void after_rows(const Amplitude* const* first, const Amplitude* const* second,
                          unsigned row_bits, std::uint64_t length) = 0;

 protected:
  ~LayerWatcher() = default;
};

/// apply_rotation_layer (double precision) on two states of the same size, tile by tile: each
/// tile of `first`, then the same tile of `second`, then the watcher, so that the watcher reads
/// both from cache. `before` (optional) applies to both.
void apply_rotation_layer_pair(Amplitude* first, Amplitude* second, unsigned num_qubits,
                               std::span<const QubitMatrix> layer, const KernelSet& kernels,
                               const DiagonalPass* before, LayerWatcher& watcher,
                               LayerTiling tiling = {});

/// Writes layer·|0…0⟩ = ⊗_q (column 0 of q's matrix, or |0⟩ for qubits not in the layer) to
/// `amps` in one parallel pass, each tile first touched by the thread that later works on it.
/// With `after`, that diagonal is applied to each tile right after it is written.
template <class Real>
void write_product_state(std::complex<Real>* amps, unsigned num_qubits,
                         std::span<const QubitMatrix> layer,
                         const std::type_identity_t<BasicDiagonalPass<Real>>* after = nullptr);

}  // namespace corvid
