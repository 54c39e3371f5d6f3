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
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "corvid/circuit/gate.h"
#include "corvid/qaoa/adjoint.h"
#include "corvid/qaoa/layer_products.h"
#include "corvid/sim/compile/diagonal_values.h"
#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/sim/kernels/matrix2.h"
#include "corvid/sim/kernels/two_qubit_matrix.h"
#include "corvid/sim/machine/buffer_pool.h"
#include "corvid/util/aligned_buffer.h"

namespace corvid::dist {

/// The largest exchange chunk by default: 2^20 amplitudes (16 MiB).
inline constexpr std::size_t kMaxExchangeChunk = std::size_t{1} << 20;

/// A basis state and its probability, as the top solutions report them.
struct Solution {
  std::uint64_t index;
  double probability;
};

/// A basis state and how many shots fell on it.
struct Count {
  std::uint64_t index;
  std::uint64_t shots;
};

/// A QAOA ansatz on the distributed state, for its loss and exact gradient. Layer j applies
/// exp(-i·gamma_j·D), then exp(+i·beta_j·sum_q X_q) or, for an XY mixer, exp(+i·beta_j·(X_aX_b +
/// Y_aY_b)/2) pair by pair, as the single-process QaoaObjective does.
struct DistributedAnsatz {
  /// This rank's part of the phase diagonal D and of the loss's energies e (local_diagonal;
  /// often the same object). Borrowed.
  const DiagonalValues* phase = nullptr;
  const DiagonalValues* energies = nullptr;
  /// The XY mixer's pairs in order; without them, the X mixer.
  std::optional<std::vector<std::pair<unsigned, unsigned>>> xy_pairs;
  /// Gates preparing the initial state from |0…0⟩; without them, a Hadamard on every qubit.
  std::optional<std::vector<Gate>> initial;
  /// D in the transposed layout (local_diagonal with Layout::kTransposed). With it, X-mixer
  /// layers leave the state transposed for the next phase layer to act on: one transposition
  /// per layer instead of two. Optional; borrowed.
  const DiagonalValues* phase_transposed = nullptr;
};

/// Where the qubits sit. kCanonical: the top k qubits name the rank. kTransposed: they sit at
/// the top k local positions, and qubits n-2k .. n-k-1 name the rank (what the X mixer's
/// transposition makes).
enum class Layout { kCanonical, kTransposed };

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
  /// Qubits swapped between a global and a local position since construction (each one
  /// exchange of half the slice).
  std::uint64_t swaps() const { return swaps_; }
  /// Bytes this rank has sent to its partners in exchanges since construction.
  std::uint64_t bytes_exchanged() const { return bytes_exchanged_; }
  /// Whether X-mixer layers can stay transposed between layers (k >= 1 global qubits and at
  /// least k local ones): where they can, an ansatz wants its phase_transposed.
  bool keeps_x_layout() const { return transposes(true); }

  /// |0…0⟩, or the uniform superposition (H on every qubit). Local, no communication.
  void set_zero();
  void set_uniform();

  /// Multiplies amplitude x by exp(-i·gamma·E[x]); `local_energies` holds E for this rank's
  /// slice (see local_z_energies). Local. Throws std::invalid_argument (this rank only; the
  /// sizes are the caller's) unless it has one entry per local amplitude.
  void apply_phase(std::span<const double> local_energies, double gamma);

  /// RX(-2·beta) on every qubit: local qubits in one blocked pass; with k >= 2 global qubits
  /// and at least k local ones, a transposition that makes the global qubits local, their
  /// pass, and the transposition back (2·(1 - 1/2^k) slices sent per rank); otherwise each
  /// global qubit by one pairwise exchange of the slice (k slices). run_ansatz keeps the
  /// transposed layout between layers, for any k >= 1: (1 - 1/2^k) slices. Collective.
  void apply_x_mixer(double beta);

  /// `matrix` on one qubit (< num_qubits; std::invalid_argument otherwise). Collective when the
  /// qubit is global.
  void apply_one_qubit(unsigned qubit, const Matrix2& matrix);

  /// Multiplies amplitude x by exp(-i·gamma·D[x]), D this rank's part of the diagonal (see
  /// local_diagonal): a table of phases per level, no sin/cos per amplitude. Local. Throws
  /// std::invalid_argument (this rank only) unless D covers the local qubits.
  void apply_phase(const DiagonalValues& local_diagonal, double gamma);

  /// Gates of the SDK (one- and two-qubit kinds) in order, their qubit numbers being the state's
  /// qubits. Gates on local qubits run the single-process kernels on the slice. A gate on a global
  /// qubit first swaps that qubit with a local one that no pending gate needs soon (a pairwise
  /// exchange of half the slice); the swapped layout is kept across the following gates and
  /// restored at the end. Throws std::invalid_argument (every rank alike, before any gate runs)
  /// for a qubit >= num_qubits, or a gate with more qubits than the local qubits. Collective.
  void apply_gates(std::span<const Gate> gates);

  /// exp(+i·beta·(X_aX_b + Y_aY_b)/2) on each pair in order: the XY mixer, ring or complete
  /// as the pairs say. Pairs with a global qubit go through apply_gates' swaps. Throws
  /// std::invalid_argument (every rank alike) unless each pair holds two distinct qubits
  /// < num_qubits. Collective.
  void apply_xy_mixer(std::span<const std::pair<unsigned, unsigned>> pairs, double beta);

  /// sum_x |amplitude x|^2 · D[x] over all ranks, straight from the amplitudes (no probability
  /// table). Collective; a D that does not cover the local qubits is an error on every rank.
  double expectation(const DiagonalValues& local_diagonal) const;

  /// Throws std::invalid_argument (this rank only) unless `ansatz` fits this state: its
  /// diagonals cover the local qubits, the XY pairs and the initial gates name qubits below
  /// num_qubits (apply_xy_mixer's and apply_gates' conditions). Local.
  void check_ansatz(const DistributedAnsatz& ansatz) const;

  /// Prepares the ansatz's state at `angles` (p gammas then p betas) on this state, in the
  /// canonical layout. With the transposed phase (X mixer, k >= 1), p layers send p
  /// transpositions, p + 1 when p is odd and the start is a circuit. Throws
  /// std::invalid_argument (every rank alike) for an odd, empty or non-finite angle vector, a
  /// missing diagonal or one that does not cover the local qubits. Collective.
  void run_ansatz(const DistributedAnsatz& ansatz, std::span<const double> angles);

  /// run_ansatz, then the loss of the final state (expectation, CVaR or Gibbs) and its 2p
  /// partial derivatives in `gradient`, the same on every rank: one backward sweep carries
  /// the state and the loss's cotangent back together through the same exchanges, the cotangent
  /// in a second distributed state made here (twice the memory). The sweep leaves this state's
  /// amplitudes spent: run_ansatz again before reading them. Collective.
  double loss_and_gradient(const DistributedAnsatz& ansatz, std::span<const double> angles,
                           const LossSettings& settings, std::span<double> gradient);

  /// The loss (expectation, CVaR or Gibbs) of this state's distribution with this rank's part
  /// of the energies (local_diagonal), as loss_and_gradient computes it; the CVaR alone takes
  /// the slice's probabilities as a transient (half a slice). Throws std::invalid_argument
  /// (every rank alike) for bad settings or a diagonal that does not cover the local qubits.
  /// Collective.
  double loss(const DiagonalValues& local_energies, const LossSettings& settings) const;

  /// `shots` samples of the whole state, as this rank's part of the counts: basis states of its
  /// slice in ascending order, each with its count (zero counts left out). One multinomial
  /// split over a fixed binary tree of the basis states: every node divides its shots between
  /// its halves by a binomial draw from a generator seeded by (seed, node), so the counts are the
  /// multinomial of the probabilities, and the same seed gives the same counts on any number of
  /// ranks up to 2^(n - min(12, n/2)) (the tree and its sums do not depend on the split).
  /// Collective.
  std::vector<Count> sample(std::uint64_t shots, std::uint64_t seed) const;
  /// sample's counts of every rank, in ascending index order, on every rank (at most
  /// min(shots, 2^n) entries). Collective.
  std::vector<Count> sample_all(std::uint64_t shots, std::uint64_t seed) const;

  /// |amplitude|^2 of the slice, in a block of the buffer pool (its pages reused call to call).
  PooledBuffer<double> local_probabilities() const;

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
  /// The public constructor; without `zero`, the amplitudes are left unset (their pages
  /// untouched) for a state that is written whole before it is read.
  DistributedState(MPI_Comm comm, unsigned num_qubits, std::size_t max_chunk, bool zero);
  /// A gate on qubit a (one-qubit: b < 0, matrix m2) or on qubits a, b (m4, a the low bit of
  /// its index).
  struct LocalOp {
    unsigned a;
    int b;
    Matrix2 m2;
    Matrix4 m4;
    /// An XY pair instead, exp(+i·theta·(XX + YY)/2): the pair pass over |01> and |10> alone.
    bool xy = false;
    double theta = 0.0;
  };
  /// `matrix` on a global qubit, on this state and on `companion` (the cotangent of the
  /// gradient's sweep) when given; with `z`, first adds sum_x Im(conj(companion[x])·this[x ^
  /// qubit]) over the slice to *z.
  void exchange_global(unsigned global_bit, const Matrix2& matrix,
                       DistributedState* companion = nullptr, double* z = nullptr);
  /// Whether the X mixer reaches the global qubits by transpositions: at least k local qubits
  /// and k >= 2, or k >= 1 when the transposed layout is `kept` for the next layer.
  bool transposes(bool kept) const;
  /// `rx` on every qubit: the local ones in one pass (`before` first inside it, when given),
  /// the global ones as the top local qubits after a transposition (see transposes) or by
  /// pairwise exchanges. With `layout` (the state's, updated), the layer ends in the other
  /// layout; without, a transposition back. With `companion` and `watch` (which sees the local
  /// pass over both states), on the companion too, adding to *z the sum over the other qubits
  /// q and x of Im(conj(companion[x])·this[x ^ q]).
  void x_layer(const Matrix2& rx, const DiagonalPass* before, DistributedState* companion,
               MixerProducts* watch, double* z, Layout* layout = nullptr);
  /// Whether run_ansatz and the gradient's sweep keep X layers transposed: the ansatz has the
  /// transposed phase and the X mixer transposes.
  bool keeps_layout(const DistributedAnsatz& ansatz) const;
  /// Every local amplitude set to `value`, in one parallel pass.
  void fill(std::complex<double> value);
  /// Swaps the k global qubits with the top k local ones: an all-to-all of equal blocks in
  /// 2^k - 1 pairwise rounds, in place, through MPI_Sendrecv_replace in chunks.
  void transpose();
  /// Exchanges the qubit at global position `global_bit` with the one at local position
  /// `local_bit`: this rank sends the half of its slice whose local bit differs from its own
  /// global bit and takes the partner's.
  void swap_global_local(unsigned global_bit, unsigned local_bit);
  /// Runs `ops` (qubit numbers of the state) in order, swapping global qubits in as needed; on
  /// `companion` too when given, and with `z`, first adds each (XY) op's sum_x
  /// Im(conj(companion[x])·(S·this)[x]) to *z.
  void run_ops(std::span<const LocalOp> ops, DistributedState* companion = nullptr,
               double* z = nullptr);
  /// The XY mixer's gates exp(+i·beta·(XX + YY)/2) on `pairs`, in order.
  static std::vector<LocalOp> xy_ops(std::span<const std::pair<unsigned, unsigned>> pairs,
                                     double beta);
  /// Where CVaR's alpha falls: the weight key of the entry that crosses it, the mass of all
  /// heavier entries, the entries of that weight here and on lower ranks (not crossed when
  /// alpha exceeds the total mass). Collective; alpha > 0.
  struct CvarCut {
    bool crossed = false;
    std::uint64_t threshold = 0;
    double above = 0.0;
    std::uint64_t ties = 0;
    std::uint64_t ties_before = 0;
  };
  CvarCut cvar_cut(std::span<const double> p, double alpha) const;
  /// Writes CVaR's cotangent w∘φ of this state to `lambda` when given; returns the loss.
  /// Collective.
  double cvar_cotangent(const DiagonalValues& e, double alpha, DistributedState* lambda) const;
  /// The loss of this state's distribution with energies `e`. Collective.
  double final_loss(const DiagonalValues& e, const LossSettings& settings) const;
  /// loss_weights, the Gibbs loss's shift the least over all ranks. Collective.
  std::optional<LossWeights> weights_over_ranks(const EnergyTable& energies,
                                                const LossSettings& settings) const;
  static void check_loss_settings(const LossSettings& settings);
  void check_ansatz(const DistributedAnsatz& ansatz, std::span<const double> angles) const;
  /// Sums one local value over the ranks; when `error` is nonempty on any rank, every rank
  /// throws std::invalid_argument (naming this rank's error where it has one).
  double sum_over_ranks(double local, const std::string& error) const;

  MPI_Comm comm_ = MPI_COMM_NULL;
  unsigned num_qubits_;
  unsigned local_qubits_ = 0;
  int rank_ = 0;
  int ranks_ = 1;
  // From the simulator's buffer pool: huge pages, and a slice (or the gradient's companion)
  // freed by one evaluation is reused by the next instead of being faulted in again.
  PooledBuffer<std::complex<double>> amps_;
  AlignedBuffer<std::complex<double>> buffer_;
  std::uint64_t bytes_exchanged_ = 0;
  std::uint64_t swaps_ = 0;
};

/// E[x] = sum_t coeffs[t]·(-1)^popcount(x & masks[t]) for the slice of `state`'s rank: each
/// term's global bits are fixed by the rank, so they fold into the sign of its coefficient and
/// the local part is the single-process transform on n-k bits. Local. Throws
/// std::invalid_argument as energies_from_z_terms does for n qubits.
AlignedBuffer<double> local_z_energies(const DistributedState& state,
                                       std::span<const std::uint64_t> masks,
                                       std::span<const double> coeffs);

/// The same diagonal in the compact form of the single-process phase layer (one 8- or 16-bit
/// level index per amplitude when the values are few, doubles otherwise): a sixteenth of the
/// slice's bytes for a MaxCut-like problem; for the rank's slice in `layout` (the transposed
/// one exists when the state has at least as many local qubits as global ones). Local. Throws
/// as local_z_energies.
DiagonalValues local_diagonal(const DistributedState& state, std::span<const std::uint64_t> masks,
                              std::span<const double> coeffs, Layout layout = Layout::kCanonical);

}  // namespace corvid::dist
