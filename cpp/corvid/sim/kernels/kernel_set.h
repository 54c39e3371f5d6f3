#pragma once
/// The hot kernels of compiled programs, one implementation per instruction set behind one
/// table of function pointers, for double- and single-precision states. The portable scalar
/// set is the reference every other set is tested against; the best set the running CPU
/// supports is chosen at first use (__builtin_cpu_supports), never from the build host.
///
/// Every kernel works serially on the range it is given; callers split the state into ranges
/// for the OpenMP team. Bit q of an amplitude's index is qubit q. Tiles are 32-byte aligned.

#include <complex>
#include <cstdint>
#include <span>
#include <string_view>

#include "corvid/sim/kernels/matrix2.h"

namespace corvid {

template <class Real>
struct BasicKernelSet {
  using Value = std::complex<Real>;
  std::string_view name;
  /// amps[i] *= table[index[i]] for i < count.
  void (*phase_table8)(Value* amps, const std::uint8_t* index, const Value* table,
                       std::uint64_t count);
  void (*phase_table16)(Value* amps, const std::uint16_t* index, const Value* table,
                        std::uint64_t count);
  /// Applies `m` to qubit q of the 2^tile_bits contiguous amplitudes at `tile` (q < tile_bits).
  void (*matrix_tile)(Value* tile, unsigned tile_bits, unsigned q, const Matrix2& m);
  /// Every gate of `gates` (distinct qubits, < tile_bits, at most 64 gates) on the tile: the
  /// same as one matrix_tile call per gate, with several gates per sweep where the set can.
  void (*matrices_tile)(Value* tile, unsigned tile_bits, std::span<const QubitMatrix> gates);
  /// The same on 2^row_bits rows of `length` amplitudes each (length even, rows 32-byte
  /// aligned) anywhere in memory, gate qubit j being bit j of the row number (< row_bits): the
  /// high qubits of a state, applied in place without gathering their rows into a tile.
  void (*matrices_rows)(Value* const* rows, unsigned row_bits, std::uint64_t length,
                        std::span<const QubitMatrix> gates);
};

using KernelSet = BasicKernelSet<double>;
using KernelSet32 = BasicKernelSet<float>;

/// The portable reference sets.
const KernelSet& scalar_kernel_set();
const KernelSet32& scalar_kernel_set32();
/// AVX2 + FMA sets, or nullptr when the CPU lacks either.
const KernelSet* avx2_kernel_set();
const KernelSet32* avx2_kernel_set32();
/// AVX-512 (F, DQ, VL) sets, or nullptr when the CPU lacks any of them.
const KernelSet* avx512_kernel_set();
const KernelSet32* avx512_kernel_set32();

/// Every set this CPU can run, the scalar one first.
template <class Real>
std::span<const BasicKernelSet<Real>* const> available_kernel_sets();
std::span<const KernelSet* const> available_kernel_sets();

/// The set compiled programs use: the best available unless chosen otherwise.
template <class Real>
const BasicKernelSet<Real>& active_kernels();
const KernelSet& active_kernel_set();
/// Chooses the active sets of both precisions by name ("scalar", "avx2", "avx512");
/// std::invalid_argument when that set is unknown or this CPU cannot run it.
void set_active_kernel_set(std::string_view name);

}  // namespace corvid
