#pragma once
/// The QAOA ansatz evaluated on a DistributedState, as the single-process QaoaObjective
/// evaluates it: an initial state (a Hadamard on every qubit, or gates from |0…0⟩), then per
/// layer exp(−i·γ_i·D) and the X mixer exp(+i·β_i·Σ_q X_q) or the XY mixer pair by pair, and
/// one loss of the final distribution. Each rank keeps its slice of the state and of D and
/// the loss's energies E in the compact form of the phase layer (local_diagonal; one object
/// when D and E coincide; for the X mixer D in the transposed layout too, so that its layers
/// stay transposed between them), computed once at construction; nothing else of the slice's size
/// lives between calls, and nothing of size 2^n is ever gathered. Every call is collective
/// (all ranks, same order, same arguments): a value is returned only after the ranks have
/// agreed on it, so optimisers that run on every rank see the same numbers to the last bit.

#include <mpi.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "corvid/circuit/gate.h"
#include "corvid/dist/distributed_state.h"
#include "corvid/qaoa/adjoint.h"
#include "corvid/qaoa/energy_histogram.h"
#include "corvid/qaoa/term_list.h"
#include "corvid/sim/compile/diagonal_values.h"

namespace corvid::dist {

/// How the loss's energies are written: as Z terms, E[x] = Σ_t c_t·(−1)^popcount(x & m_t), or
/// as monomials of binary variables, E[x] = Σ_t c_t·[m_t ⊆ x] (x_i = bit i of x).
enum class EnergyForm { kZTerms, kMonomials };

class QaoaEvaluation {
 public:
  /// `phase` holds D's Z terms (a constant only turns the global phase), `energies` E's terms
  /// in `form`; `xy_pairs` selects the XY mixer, `initial` the gates that prepare the initial
  /// state from |0…0⟩. Throws std::invalid_argument, on every rank alike, for terms, pairs or
  /// gates that do not fit n qubits and for the rank counts DistributedState refuses;
  /// OutOfMemory as it does.
  QaoaEvaluation(MPI_Comm comm, unsigned num_qubits, const TermList& phase, EnergyForm form,
                 const TermList& energies,
                 std::optional<std::vector<std::pair<unsigned, unsigned>>> xy_pairs = {},
                 std::optional<std::vector<Gate>> initial = {});
  ~QaoaEvaluation();
  QaoaEvaluation(const QaoaEvaluation&) = delete;
  QaoaEvaluation& operator=(const QaoaEvaluation&) = delete;

  int rank() const { return state_.rank(); }
  int ranks() const { return state_.ranks(); }
  unsigned num_qubits() const { return state_.num_qubits(); }
  /// The state the calls run on (its layout and exchange counters).
  const DistributedState& state() const { return state_; }

  /// The loss at `angles` (p gammas, then p betas, p >= 1, all finite), rank 0's value on
  /// every rank. Throws std::invalid_argument on every rank for bad angles or loss settings,
  /// and when the ranks were given different angles (their optimisers have drifted apart).
  double loss(std::span<const double> angles, const LossSettings& settings);

  /// The loss and its 2p partial derivatives in `gradient` (as many entries as angles), rank
  /// 0's values on every rank; twice the state's memory while it runs. Throws as loss does.
  double loss_and_gradient(std::span<const double> angles, const LossSettings& settings,
                           std::span<double> gradient);

  /// `shots` samples of the state at `angles`: every sampled basis state with its count, in
  /// ascending index order, the same on every rank (rank 0's shots and seed are used). The
  /// same seed gives the same counts on any rank count. Throws as loss does.
  std::vector<Count> sample(std::span<const double> angles, std::uint64_t shots,
                            std::uint64_t seed);

  /// The `count` most probable basis states of the state at the angles of the last loss,
  /// loss_and_gradient or sample call, as DistributedState::top_solutions orders them.
  /// std::logic_error before any such call.
  std::vector<Solution> top_solutions(std::size_t count);

  /// energy_histogram (corvid/qaoa/energy_histogram.h) of the same state over all 2^n basis
  /// states: each rank reads its slice's amplitudes and energies in place, and the sums are
  /// added over the ranks (one MPI_Allreduce). std::logic_error before
  /// any loss, loss_and_gradient or sample call; std::invalid_argument, on every rank alike,
  /// for the arguments energy_histogram refuses.
  EnergyHistogram energy_histogram(double low, double high, int bins, double threshold);

  /// The least and the greatest energy over all 2^n basis states.
  std::pair<double, double> energy_range() const;

 private:
  /// Checks `angles` (the same on every rank, 2p finite values) and remembers them as the
  /// state's; std::invalid_argument on every rank otherwise.
  void accept_angles(std::span<const double> angles);
  /// Runs the ansatz again where the state has left the last call's angles; `what` names the
  /// caller in the std::logic_error thrown before any call.
  void bring_state_to_angles(const char* what);
  /// Rank 0's values of `values`, on every rank.
  void share_rank0(std::span<double> values) const;

  DistributedState state_;
  MPI_Comm comm_ = MPI_COMM_NULL;
  std::shared_ptr<const DiagonalValues> phase_;
  std::shared_ptr<const DiagonalValues> energies_;
  std::shared_ptr<const DiagonalValues> phase_transposed_;  ///< null unless X layers keep it
  DistributedAnsatz ansatz_;
  std::vector<double> angles_;  ///< of the last call; empty before any
  bool state_at_angles_ = false;
};

}  // namespace corvid::dist
