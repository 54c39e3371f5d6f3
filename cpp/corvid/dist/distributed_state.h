#pragma once
/// A state vector of n qubits spread over the 2^k ranks of an MPI communicator.
///
/// The top k qubits name the rank: rank r holds the 2^(n-k) amplitudes whose indices are
/// r·2^(n-k) + y, y < 2^(n-k), so qubits below n-k are local (the single-process kernels apply
/// to the slice unchanged) and a one-qubit gate on qubit n-k+j pairs rank r with rank r ^ 2^j.
/// Such a pair swaps its slices chunk by chunk through one exchange buffer of at most 1/8 of
/// the slice (and at most max_chunk amplitudes), combining each chunk as the 2×2 gate needs.
///
/// Probabilities stay distributed: a rank sees only its slice's. The losses sum the ranks'
/// pairwise sums with one MPI_Allreduce; the top solutions merge every rank's local best on
/// rank 0 and are broadcast. Every call that communicates is collective: all ranks make it in
/// the same order with the same arguments. An argument error found on one rank only is
/// reported on every rank (std::invalid_argument), and a failed MPI call aborts the job.

#include <mpi.h>

#include <complex>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "corvid/sim/kernels/matrix2.h"
#include "corvid/util/aligned_buffer.h"

namespace corvid::dist {

/// The largest exchange chunk by default: 2^20 amplitudes (16 MiB).
inline constexpr std::size_t kMaxExchangeChunk = std::size_t{1} << 20;

/// A basis state and its probability, as the top solutions report them.
struct Solution {
  std::uint64_t index;
  double probability;
};

class DistributedState {
 public:
  /// Splits n = num_qubits qubits over the ranks of `comm` (duplicated, so its error handler
  /// stays the caller's). Throws std::invalid_argument, on every rank alike, unless the rank
  /// count is a power of two, at most 2^(n-1) (each rank keeps a local qubit) and n <= 62,
  /// or when max_chunk is 0; OutOfMemory, on every rank alike, when the slices of the ranks
  /// that share a node do not fit in its available memory together or any rank's allocation
  /// fails. The state starts as |0…0⟩. Collective.
  DistributedState(MPI_Comm comm, unsigned num_qubits, std::size_t max_chunk = kMaxExchangeChunk);
  ~DistributedState();
  DistributedState(const DistributedState&) = delete;
  DistributedState& operator=(const DistributedState&) = delete;

  unsigned num_qubits() const { return num_qubits_; }
  unsigned local_qubits() const { return local_qubits_; }
  int rank() const { return rank_; }
  int ranks() const { return ranks_; }
  /// Global index of the slice's first amplitude.
  std::uint64_t first_index() const { return std::uint64_t(rank_) << local_qubits_; }
  std::span<std::complex<double>> local_amplitudes() { return {amps_.data(), amps_.size()}; }
  std::span<const std::complex<double>> local_amplitudes() const {
    return {amps_.data(), amps_.size()};
  }
  /// Amplitudes per exchange chunk.
  std::size_t chunk_size() const { return buffer_.size(); }
  /// Bytes this rank has sent to its partners in exchanges since construction.
  std::uint64_t bytes_exchanged() const { return bytes_exchanged_; }

  /// |0…0⟩, or the uniform superposition (H on every qubit). Local, no communication.
  void set_zero();
  void set_uniform();

  /// Multiplies amplitude x by exp(-i·gamma·E[x]); `local_energies` holds E for this rank's
  /// slice (see local_z_energies). Local. Throws std::invalid_argument (this rank only; the
  /// sizes are the caller's) unless it has one entry per local amplitude.
  void apply_phase(std::span<const double> local_energies, double gamma);

  /// RX(-2·beta) on every qubit: local qubits in one blocked pass, each global qubit by one
  /// pairwise exchange of the slice. Collective.
  void apply_x_mixer(double beta);

  /// `matrix` on one qubit (< num_qubits; std::invalid_argument otherwise). Collective when the
  /// qubit is global.
  void apply_one_qubit(unsigned qubit, const Matrix2& matrix);

  /// |amplitude|^2 of the slice.
  AlignedBuffer<double> local_probabilities() const;

  /// sum_x p[x]·E[x] over all ranks, each passing its slice's p and E. Collective.
  double expectation(std::span<const double> p, std::span<const double> e) const;
  /// -log(sum_x p[x]·exp(-E[x]/temperature)) over all ranks. Collective.
  double gibbs_loss(std::span<const double> p, std::span<const double> e, double temperature) const;
  /// CVaR over all ranks, as corvid::cvar defines it for the whole distribution (the heaviest
  /// entries first, ties in ascending global index order, not divided by alpha). A radix
  /// selection of the crossing weight on summed per-rank histograms (8 passes over the slice,
  /// one MPI_Allreduce of 256 sums each) tells every rank how much of alpha's mass is its own;
  /// corvid::cvar on the slice with that mass gives its share. Collective; errors as above.
  double cvar(std::span<const double> p, std::span<const double> e, double alpha) const;
  /// The `count` most probable basis states over all ranks (fewer when the state has fewer),
  /// most probable first, ties in ascending index order; the same list on every rank.
  /// O(2^(n-k) log count) per rank. Collective. Throws std::invalid_argument when rank 0
  /// could not gather every rank's min(count, 2^(n-k)) candidates in one message.
  std::vector<Solution> top_solutions(std::span<const double> p, std::size_t count) const;

 private:
  void exchange_global(unsigned global_bit, const Matrix2& matrix);
  /// Sums one local value over the ranks; when `error` is nonempty on any rank, every rank
  /// throws std::invalid_argument (naming this rank's error where it has one).
  double sum_over_ranks(double local, const std::string& error) const;

  MPI_Comm comm_ = MPI_COMM_NULL;
  unsigned num_qubits_;
  unsigned local_qubits_ = 0;
  int rank_ = 0;
  int ranks_ = 1;
  AlignedBuffer<std::complex<double>> amps_;
  AlignedBuffer<std::complex<double>> buffer_;
  std::uint64_t bytes_exchanged_ = 0;
};

/// E[x] = sum_t coeffs[t]·(-1)^popcount(x & masks[t]) for the slice of `state`'s rank: each
/// term's global bits are fixed by the rank, so they fold into the sign of its coefficient and
/// the local part is the single-process transform on n-k bits. Local. Throws
/// std::invalid_argument as energies_from_z_terms does for n qubits.
AlignedBuffer<double> local_z_energies(const DistributedState& state,
                                       std::span<const std::uint64_t> masks,
                                       std::span<const double> coeffs);

}  // namespace corvid::dist
