#include "corvid/dist/qaoa_evaluation.h"

#include <climits>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "corvid/dist/mpi_check.h"
#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/energy_table.h"
#include "corvid/qaoa/term_list.h"

namespace corvid::dist {
namespace {

// Runs `local` on every rank; when it throws on any, every rank throws: the failing ones their
// own exception, the others one naming the lowest failing rank. Without this a rank that
// failed alone would leave the others waiting in their next collective.
template <class F>
void on_every_rank(MPI_Comm comm, int rank, const F& local) {
  std::exception_ptr error;
  try {
    local();
  } catch (...) {
    error = std::current_exception();
  }
  const int mine = error ? rank : INT_MAX;
  int first = INT_MAX;
  check_mpi(MPI_Allreduce(&mine, &first, 1, MPI_INT, MPI_MIN, comm), "MPI_Allreduce", comm);
  if (error) std::rethrow_exception(error);
  if (first != INT_MAX) {
    throw std::runtime_error("rank " + std::to_string(first) +
                             " of the distributed QAOA evaluation failed (see its error)");
  }
}

// The merged non-constant Z terms of a list: D's terms as the phase layer sees them.
std::vector<PhaseTerm> varying_terms(const TermList& terms) {
  return phase_form(terms.masks, terms.coeffs).terms;
}

}  // namespace

QaoaEvaluation::QaoaEvaluation(MPI_Comm comm, unsigned num_qubits, const TermList& phase,
                               EnergyForm form, const TermList& energies,
                               std::optional<std::vector<std::pair<unsigned, unsigned>>> xy_pairs,
                               std::optional<std::vector<Gate>> initial)
    : state_(comm, num_qubits) {
  check_mpi(MPI_Comm_dup(comm, &comm_), "MPI_Comm_dup", comm);
  check_mpi(MPI_Comm_set_errhandler(comm_, MPI_ERRORS_RETURN), "MPI_Comm_set_errhandler", comm_);
  try {
    on_every_rank(comm_, rank(), [&] {
      const int n = static_cast<int>(num_qubits);
      check_terms(phase.masks, phase.coeffs, n, "qubit");
      TermList z;
      if (form == EnergyForm::kMonomials) {
        check_terms(energies.masks, energies.coeffs, n, "variable");
        z = z_terms_of_monomials(energies.masks, energies.coeffs);
      }
      const TermList& e = form == EnergyForm::kMonomials ? z : energies;
      energies_ = std::make_shared<const DiagonalValues>(local_diagonal(state_, e.masks, e.coeffs));
      // D is often E less its constant: E then serves as D, the constant only turning the
      // global phase.
      const std::vector<PhaseTerm> d = varying_terms(phase);
      TermList own;  // D's terms where they are not E's
      if (d == varying_terms(e)) {
        phase_ = energies_;
      } else {
        for (const PhaseTerm& t : d) {
          own.masks.push_back(t.mask);
          own.coeffs.push_back(t.coefficient);
        }
        phase_ =
            std::make_shared<const DiagonalValues>(local_diagonal(state_, own.masks, own.coeffs));
      }
      // X layers stay transposed between layers: D in that layout too, from the same terms.
      if (!xy_pairs && state_.keeps_x_layout()) {
        const TermList& terms = phase_ == energies_ ? e : own;
        phase_transposed_ = std::make_shared<const DiagonalValues>(
            local_diagonal(state_, terms.masks, terms.coeffs, Layout::kTransposed));
      }
      ansatz_ = {phase_.get(), energies_.get(), std::move(xy_pairs), std::move(initial),
                 phase_transposed_.get()};
      state_.check_ansatz(ansatz_);
    });
  } catch (...) {
    MPI_Comm_free(&comm_);
    throw;
  }
}

QaoaEvaluation::~QaoaEvaluation() {
  if (comm_ != MPI_COMM_NULL) MPI_Comm_free(&comm_);
}

void QaoaEvaluation::accept_angles(std::span<const double> angles) {
  long long sizes[2] = {static_cast<long long>(angles.size()),
                        -static_cast<long long>(angles.size())};
  long long extremes[2] = {0, 0};
  check_mpi(MPI_Allreduce(sizes, extremes, 2, MPI_LONG_LONG, MPI_MAX, comm_), "MPI_Allreduce",
            comm_);
  bool same = extremes[0] == -extremes[1];
  if (same) {
    std::vector<double> first(angles.begin(), angles.end());
    check_mpi(MPI_Bcast(first.data(), static_cast<int>(first.size()), MPI_DOUBLE, 0, comm_),
              "MPI_Bcast", comm_);
    // Bit for bit: the ranks must run the very same optimisation.
    int differs = std::memcmp(first.data(), angles.data(), angles.size_bytes()) != 0 ? 1 : 0;
    int any = 0;
    check_mpi(MPI_Allreduce(&differs, &any, 1, MPI_INT, MPI_MAX, comm_), "MPI_Allreduce", comm_);
    same = any == 0;
  }
  if (!same) {
    throw std::invalid_argument(
        "the ranks were given different angles: every rank must run the same optimisation from "
        "the same starting angles (seed random draws alike on every rank)");
  }
  if (angles.size() < 2 || angles.size() % 2 != 0) {
    throw std::invalid_argument(
        "the angles must be 2p values (p gammas, then p betas), p >= 1; got " +
        std::to_string(angles.size()));
  }
  check_finite(angles, "angles");
  // From here on the state follows these angles; until it holds them, top_solutions re-runs.
  angles_.assign(angles.begin(), angles.end());
  state_at_angles_ = false;
}

void QaoaEvaluation::share_rank0(std::span<double> values) const {
  // The sums are the same on every rank in practice; rank 0's values make it so by contract.
  check_mpi(MPI_Bcast(values.data(), static_cast<int>(values.size()), MPI_DOUBLE, 0, comm_),
            "MPI_Bcast", comm_);
}

double QaoaEvaluation::loss(std::span<const double> angles, const LossSettings& settings) {
  accept_angles(angles);
  state_.run_ansatz(ansatz_, angles);
  state_at_angles_ = true;
  double value = state_.loss(*energies_, settings);
  share_rank0({&value, 1});
  return value;
}

double QaoaEvaluation::loss_and_gradient(std::span<const double> angles,
                                         const LossSettings& settings, std::span<double> gradient) {
  accept_angles(angles);
  double value = state_.loss_and_gradient(ansatz_, angles, settings, gradient);
  share_rank0({&value, 1});
  share_rank0(gradient);
  return value;
}

std::vector<Count> QaoaEvaluation::sample(std::span<const double> angles, std::uint64_t shots,
                                          std::uint64_t seed) {
  accept_angles(angles);
  std::uint64_t shared[2] = {shots, seed};
  check_mpi(MPI_Bcast(shared, 2, MPI_UINT64_T, 0, comm_), "MPI_Bcast", comm_);
  state_.run_ansatz(ansatz_, angles);
  state_at_angles_ = true;
  return state_.sample_all(shared[0], shared[1]);
}

void QaoaEvaluation::bring_state_to_angles(const char* what) {
  if (angles_.empty()) {
    throw std::logic_error(std::string(what) + " needs a state: evaluate a loss or sample first");
  }
  // The gradient's backward sweep leaves the state spent.
  if (!state_at_angles_) {
    state_.run_ansatz(ansatz_, angles_);
    state_at_angles_ = true;
  }
}

std::vector<Solution> QaoaEvaluation::top_solutions(std::size_t count) {
  bring_state_to_angles("top_solutions");
  const PooledBuffer<double> p = state_.local_probabilities();
  return state_.top_solutions(p, count);
}

EnergyHistogram QaoaEvaluation::energy_histogram(double low, double high, int bins,
                                                 double threshold) {
  bring_state_to_angles("energy_histogram");
  EnergyHistogram local;
  on_every_rank(comm_, rank(), [&] {
    const EnergyTable energies(energies_, 0.0, state_.local_qubits());
    local = corvid::energy_histogram(Weights(state_.local_amplitudes()), energies, low, high, bins,
                                     threshold);
  });
  // One message: the mass at or below the threshold, then the masses, then the moments.
  std::vector<double> sums{local.at_or_below};
  sums.insert(sums.end(), local.mass.begin(), local.mass.end());
  sums.insert(sums.end(), local.moment.begin(), local.moment.end());
  check_mpi(MPI_Allreduce(MPI_IN_PLACE, sums.data(), static_cast<int>(sums.size()), MPI_DOUBLE,
                          MPI_SUM, comm_),
            "MPI_Allreduce", comm_);
  const auto count = static_cast<std::ptrdiff_t>(local.mass.size());
  return {sums[0],
          {sums.begin() + 1, sums.begin() + 1 + count},
          {sums.begin() + 1 + count, sums.end()}};
}

std::pair<double, double> QaoaEvaluation::energy_range() const {
  const EnergyTable e(energies_, 0.0, state_.local_qubits());
  double local[2] = {e.min(), -e.max()};
  double global[2] = {0.0, 0.0};
  check_mpi(MPI_Allreduce(local, global, 2, MPI_DOUBLE, MPI_MIN, comm_), "MPI_Allreduce", comm_);
  return {global[0], -global[1]};
}

}  // namespace corvid::dist
