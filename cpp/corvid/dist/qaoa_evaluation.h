#pragma once
/// The QAOA ansatz evaluated on a DistributedState, as the single-process QaoaObjective
/// evaluates it: a Hadamard on every qubit, then per layer exp(−i·γ_i·D) and exp(+i·β_i·Σ_q X_q),
/// and one loss of the final distribution. Each rank keeps its slice of the phase diagonal D
/// and of the loss's energies E, computed once at construction; nothing of size 2^n is ever
/// gathered. Every call is collective (all ranks, same order, same arguments): a value is
/// returned only after the ranks have agreed on it, so optimisers that run on every rank see
/// the same numbers to the last bit.

#include <mpi.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "corvid/dist/distributed_state.h"
#include "corvid/qaoa/adjoint.h"
#include "corvid/util/aligned_buffer.h"

namespace corvid::dist {

/// How the loss's energies are written: as Z terms, E[x] = Σ_t c_t·(−1)^popcount(x & m_t), or
/// as monomials of binary variables, E[x] = Σ_t c_t·[m_t ⊆ x] (x_i = bit i of x).
enum class EnergyForm { kZTerms, kMonomials };

struct TermList {
  std::vector<std::uint64_t> masks;
  std::vector<double> coeffs;
  friend bool operator==(const TermList&, const TermList&) = default;
};

class QaoaEvaluation {
 public:
  /// `phase` holds D's Z terms (a constant only turns the global phase), `energies` E's terms
  /// in `form`. Throws std::invalid_argument, on every rank alike, for terms that do not fit
  /// n qubits and for the rank counts DistributedState refuses; OutOfMemory as it does.
  QaoaEvaluation(MPI_Comm comm, unsigned num_qubits, const TermList& phase, EnergyForm form,
                 const TermList& energies);
  ~QaoaEvaluation();
  QaoaEvaluation(const QaoaEvaluation&) = delete;
  QaoaEvaluation& operator=(const QaoaEvaluation&) = delete;

  int rank() const { return state_.rank(); }
  int ranks() const { return state_.ranks(); }
  unsigned num_qubits() const { return state_.num_qubits(); }

  /// Runs the ansatz at `angles` (p gammas, then p betas, p >= 1, all finite) and returns its
  /// loss, rank 0's value on every rank. Throws std::invalid_argument on every rank for bad
  /// angles or loss settings, and when the ranks were given different angles (their
  /// optimisers have drifted apart).
  double loss(std::span<const double> angles, const LossSettings& settings);

  /// The `count` most probable basis states of the last state `loss` made, as
  /// DistributedState::top_solutions orders them. std::logic_error before any `loss`.
  std::vector<Solution> top_solutions(std::size_t count) const;

  /// The least and the greatest energy over all 2^n basis states.
  std::pair<double, double> energy_range() const;

 private:
  /// Throws std::invalid_argument on every rank unless every rank holds rank 0's `angles`.
  void check_same_angles(std::span<const double> angles) const;

  DistributedState state_;
  MPI_Comm comm_ = MPI_COMM_NULL;
  AlignedBuffer<double> phase_;  ///< empty where energies_ serves as D
  AlignedBuffer<double> energies_;
  AlignedBuffer<double> probabilities_;
};

}  // namespace corvid::dist
