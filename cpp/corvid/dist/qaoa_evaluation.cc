#include "corvid/dist/qaoa_evaluation.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include "corvid/dist/mpi_check.h"
#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/monomial_energies.h"

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

// E[x] = sum_t c_t [m_t subset of x] on the rank's slice: a monomial whose global variables
// are not all 1 in the rank's index vanishes there; the rest is the single-process transform
// on the local variables.
AlignedBuffer<double> local_monomial_energies(const DistributedState& state,
                                              const TermList& terms) {
  const unsigned local = state.local_qubits();
  check_terms(terms.masks, terms.coeffs, static_cast<int>(state.num_qubits()), "variable");
  const std::uint64_t low = (std::uint64_t{1} << local) - 1;
  const auto rank = static_cast<std::uint64_t>(state.rank());
  TermList kept;
  for (std::size_t t = 0; t < terms.masks.size(); ++t) {
    const std::uint64_t global = terms.masks[t] >> local;
    if ((global & rank) != global) continue;
    kept.masks.push_back(terms.masks[t] & low);
    kept.coeffs.push_back(terms.coeffs[t]);
  }
  return energies_from_monomials(static_cast<int>(local), kept.masks, kept.coeffs);
}

TermList without_constant(const TermList& terms) {
  TermList out;
  for (std::size_t t = 0; t < terms.masks.size() && t < terms.coeffs.size(); ++t) {
    if (terms.masks[t] == 0) continue;
    out.masks.push_back(terms.masks[t]);
    out.coeffs.push_back(terms.coeffs[t]);
  }
  return out;
}

}  // namespace

QaoaEvaluation::QaoaEvaluation(MPI_Comm comm, unsigned num_qubits, const TermList& phase,
                               EnergyForm form, const TermList& energies)
    : state_(comm, num_qubits) {
  check_mpi(MPI_Comm_dup(comm, &comm_), "MPI_Comm_dup", comm);
  check_mpi(MPI_Comm_set_errhandler(comm_, MPI_ERRORS_RETURN), "MPI_Comm_set_errhandler", comm_);
  try {
    on_every_rank(comm_, rank(), [&] {
      energies_ = form == EnergyForm::kZTerms
                      ? local_z_energies(state_, energies.masks, energies.coeffs)
                      : local_monomial_energies(state_, energies);
      // D is often E less its constant (an operator problem): E then serves as D, the constant
      // only turning the global phase.
      if (form != EnergyForm::kZTerms || !(without_constant(energies) == phase)) {
        phase_ = local_z_energies(state_, phase.masks, phase.coeffs);
      }
    });
  } catch (...) {
    MPI_Comm_free(&comm_);
    throw;
  }
}

QaoaEvaluation::~QaoaEvaluation() {
  if (comm_ != MPI_COMM_NULL) MPI_Comm_free(&comm_);
}

void QaoaEvaluation::check_same_angles(std::span<const double> angles) const {
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
}

double QaoaEvaluation::loss(std::span<const double> angles, const LossSettings& settings) {
  check_same_angles(angles);
  if (angles.size() < 2 || angles.size() % 2 != 0) {
    throw std::invalid_argument(
        "the angles must be 2p values (p gammas, then p betas), p >= 1; got " +
        std::to_string(angles.size()));
  }
  check_finite(angles, "angles");
  const std::size_t p = angles.size() / 2;
  probabilities_ = AlignedBuffer<double>();  // the state below no longer matches them
  state_.set_uniform();
  for (std::size_t i = 0; i < p; ++i) {
    state_.apply_phase(phase_.size() != 0 ? phase_ : energies_, angles[i]);
    state_.apply_x_mixer(angles[p + i]);
  }
  AlignedBuffer<double> probabilities = state_.local_probabilities();
  double value = 0.0;
  switch (settings.kind) {
    case LossKind::kExpectation: value = state_.expectation(probabilities, energies_); break;
    case LossKind::kCvar: value = state_.cvar(probabilities, energies_, settings.alpha); break;
    case LossKind::kGibbs:
      value = state_.gibbs_loss(probabilities, energies_, settings.temperature);
      break;
  }
  probabilities_ = std::move(probabilities);
  // The sums are the same on every rank in practice; rank 0's value makes it so by contract.
  check_mpi(MPI_Bcast(&value, 1, MPI_DOUBLE, 0, comm_), "MPI_Bcast", comm_);
  return value;
}

std::vector<Solution> QaoaEvaluation::top_solutions(std::size_t count) const {
  if (probabilities_.size() == 0) {
    throw std::logic_error("top_solutions needs a state: evaluate a loss first");
  }
  return state_.top_solutions(probabilities_, count);
}

std::pair<double, double> QaoaEvaluation::energy_range() const {
  const auto [low, high] =
      std::minmax_element(energies_.data(), energies_.data() + energies_.size());
  double local[2] = {*low, -*high};
  double global[2] = {0.0, 0.0};
  check_mpi(MPI_Allreduce(local, global, 2, MPI_DOUBLE, MPI_MIN, comm_), "MPI_Allreduce", comm_);
  return {global[0], -global[1]};
}

}  // namespace corvid::dist
