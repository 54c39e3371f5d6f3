#pragma once
/// Layers of one-qubit gates on distinct qubits, applied cache-blocked.
///
/// The state is cut into tiles of 2^kTileBits amplitudes (256 KiB of complex doubles: half the
/// smallest L2 of current x86 server cores, so a tile and its neighbours' traffic stay in L2).
/// Qubits below kTileBits are all applied inside each contiguous tile in one pass over memory.
/// The higher qubits are applied in further passes, each gathering 2^m chunks of 2^c contiguous
/// amplitudes (m + c = kTileBits, c >= kMinChunkBits) at the strides of m high qubits into a
/// per-thread tile, applying those m qubits there and scattering back: a layer on n qubits costs
/// 1 + ceil((n − kTileBits) / (kTileBits − kMinChunkBits)) passes instead of n.

#include <span>
#include <type_traits>

#include "corvid/sim/kernel_set.h"
#include "corvid/sim/matrix2.h"
#include "corvid/sim/state_vector.h"

namespace corvid {

template <class Real>
class BasicDiagonalPass;
using DiagonalPass = BasicDiagonalPass<double>;
using DiagonalPass32 = BasicDiagonalPass<float>;

inline constexpr unsigned kTileBits = 14;
inline constexpr unsigned kMinChunkBits = 2;  // 4 amplitudes = one 64-byte cache line
/// Within a tile, qubits below this are applied per 16 KiB sub-tile (half of a 32 KiB L1).
inline constexpr unsigned kInnerBits = 10;

/// Tile sizes of the blocked passes; tests shrink them to reach every code path on small states.
struct LayerTiling {
  unsigned tile_bits = kTileBits;    ///< >= min_chunk_bits + 1
  unsigned inner_bits = kInnerBits;  ///< <= tile_bits
  unsigned min_chunk_bits = kMinChunkBits;
};

/// Applies every matrix of `layer` (distinct qubits, each < num_qubits; asserted) to the
/// 2^num_qubits amplitudes at `amps` (64-byte aligned). The gates commute, so order is free.
/// O(2^n · |layer|) arithmetic in the passes above; parallel over tiles. When `before` is
/// given and the layer has qubits below kTileBits, that diagonal is applied first inside the
/// same tile pass (a phase separator and its mixer in one sweep over memory); otherwise it
/// gets a pass of its own.
/// Double (Real = double) and single precision (Real = float).
template <class Real>
void apply_rotation_layer(
    std::complex<Real>* amps, unsigned num_qubits, std::span<const QubitMatrix> layer,
    const std::type_identity_t<BasicKernelSet<Real>>& kernels = active_kernels<Real>(),
    const std::type_identity_t<BasicDiagonalPass<Real>>* before = nullptr, LayerTiling tiling = {});

/// Writes layer·|0…0⟩ = ⊗_q (column 0 of q's matrix, or |0⟩ for qubits not in the layer) to
/// `amps` in one parallel pass, each tile first touched by the thread that later works on it.
/// With `after`, that diagonal is applied to each tile right after it is written.
template <class Real>
void write_product_state(std::complex<Real>* amps, unsigned num_qubits,
                         std::span<const QubitMatrix> layer,
                         const std::type_identity_t<BasicDiagonalPass<Real>>* after = nullptr);

}  // namespace corvid
