#include "corvid/dist/distributed_state.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <queue>
#include <stdexcept>
#include <string>

#include "corvid/circuit/gate.h"
#include "corvid/dist/mpi_check.h"
#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/losses.h"
#include "corvid/qaoa/weight_key.h"
#include "corvid/qaoa/z_energies.h"
#include "corvid/sim/execute/rotation_layer.h"
#include "corvid/util/errors.h"
#include "corvid/util/memory.h"
#include "corvid/util/parallel.h"

namespace corvid::dist {
namespace {

using Amp = std::complex<double>;

int size_of(MPI_Comm comm) {
  int size = 0;
  check_mpi(MPI_Comm_size(comm, &size), "MPI_Comm_size", comm);
  return size;
}

// Heavier first, ties by ascending index: the order every top list uses.
bool better(const Solution& a, const Solution& b) {
  return a.probability > b.probability || (a.probability == b.probability && a.index < b.index);
}

}  // namespace

DistributedState::DistributedState(MPI_Comm comm, unsigned num_qubits, std::size_t max_chunk)
    : num_qubits_(num_qubits) {
  const int ranks = size_of(comm);
  const auto r = static_cast<std::uint64_t>(ranks);
  if (!std::has_single_bit(r)) {
    throw std::invalid_argument("the distributed state needs a power-of-two number of ranks, got " +
                                std::to_string(ranks));
  }
  if (num_qubits > 62) {
    throw std::invalid_argument("the distributed state holds at most 62 qubits, got " +
                                std::to_string(num_qubits));
  }
  if (num_qubits == 0 || r > (std::uint64_t{1} << (num_qubits - 1))) {
    throw std::invalid_argument(
        std::to_string(ranks) + " ranks are too many for " + std::to_string(num_qubits) +
        " qubits: each rank needs at least one local qubit (at most 2^(n-1) ranks)");
  }
  if (max_chunk == 0) throw std::invalid_argument("the exchange chunk must hold an amplitude");
  local_qubits_ = num_qubits - static_cast<unsigned>(std::countr_zero(r));
  check_mpi(MPI_Comm_dup(comm, &comm_), "MPI_Comm_dup", comm);
  check_mpi(MPI_Comm_set_errhandler(comm_, MPI_ERRORS_RETURN), "MPI_Comm_set_errhandler", comm_);
  check_mpi(MPI_Comm_rank(comm_, &rank_), "MPI_Comm_rank", comm_);
  ranks_ = ranks;
  // The ranks that share a node share its memory: each checks that all their slices fit
  // together, before any touches its own (the pages of a large allocation are taken on first
  // touch, in set_zero below, after everyone has checked).
  MPI_Comm node = MPI_COMM_NULL;
  check_mpi(MPI_Comm_split_type(comm_, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &node),
            "MPI_Comm_split_type", comm_);
  int node_ranks = 1;
  check_mpi(MPI_Comm_size(node, &node_ranks), "MPI_Comm_size", node);
  check_mpi(MPI_Comm_free(&node), "MPI_Comm_free", comm_);
  // Ranks may differ in free memory: all agree on whether every slice fitted before any goes
  // on, so that none waits in a collective for a rank that has thrown.
  const std::size_t local_size = std::size_t{1} << local_qubits_;
  const std::size_t chunk = std::min(max_chunk, std::max<std::size_t>(local_size / 8, 1));
  std::string error;
  try {
    const std::size_t per_rank = (local_size + (ranks > 1 ? chunk : 0)) * sizeof(Amp);
    if (per_rank > SIZE_MAX / static_cast<std::size_t>(node_ranks)) {
      require_memory(SIZE_MAX, "the distributed state");
    }
    require_memory(per_rank * static_cast<std::size_t>(node_ranks),
                   "the slices of the distributed state's " + std::to_string(node_ranks) +
                       " ranks on this node");
    amps_ = AlignedBuffer<Amp>(local_size, "the local slice of the distributed state");
    if (ranks > 1) {
      buffer_ = AlignedBuffer<Amp>(chunk, "the exchange buffer of the distributed state");
    }
  } catch (const OutOfMemory& e) {
    error = e.what();
  } catch (const std::bad_alloc&) {
    error = "out of memory while allocating the local slice of the distributed state";
  }
  int failed = error.empty() ? 0 : 1;
  int any_failed = 0;
  check_mpi(MPI_Allreduce(&failed, &any_failed, 1, MPI_INT, MPI_MAX, comm_), "MPI_Allreduce",
            comm_);
  if (any_failed != 0) {
    MPI_Comm_free(&comm_);
    throw OutOfMemory(error.empty() ? "another rank could not allocate its slice (see its error)"
                                    : "rank " + std::to_string(rank_) + ": " + error);
  }
  set_zero();
}

DistributedState::~DistributedState() {
  if (comm_ != MPI_COMM_NULL) MPI_Comm_free(&comm_);
}

void DistributedState::set_zero() {
  std::fill(amps_.data(), amps_.data() + amps_.size(), Amp{});
  if (rank_ == 0) amps_[0] = 1.0;
}

void DistributedState::set_uniform() {
  const double value = 1.0 / std::sqrt(std::ldexp(1.0, static_cast<int>(num_qubits_)));
  std::fill(amps_.data(), amps_.data() + amps_.size(), Amp{value, 0.0});
}

void DistributedState::apply_phase(std::span<const double> local_energies, double gamma) {
  check_same_length(local_energies.size(), "local_energies", amps_.size(), "the local slice");
  const auto size = static_cast<std::int64_t>(amps_.size());
  Amp* amps = amps_.data();
#pragma omp parallel for schedule(static) if (parallel_worthwhile(amps_.size()))
  for (std::int64_t i = 0; i < size; ++i) {
    const double angle = -gamma * local_energies[i];
    amps[i] = cmul(amps[i], Amp{std::cos(angle), std::sin(angle)});
  }
}

void DistributedState::apply_x_mixer(double beta) {
  const Matrix2 rx = matrix_of(Gate(GateKind::RX, {Qubit(0)}, -2.0 * beta));
  std::vector<QubitMatrix> layer;
  for (unsigned q = 0; q < local_qubits_; ++q) layer.push_back({q, rx});
  apply_rotation_layer<double>(amps_.data(), local_qubits_, layer);
  for (unsigned j = 0; j < num_qubits_ - local_qubits_; ++j) exchange_global(j, rx);
}

void DistributedState::apply_one_qubit(unsigned qubit, const Matrix2& matrix) {
  if (qubit >= num_qubits_) {
    throw std::invalid_argument("qubit " + std::to_string(qubit) + " is not below " +
                                std::to_string(num_qubits_));
  }
  if (qubit < local_qubits_) {
    const QubitMatrix gate{qubit, matrix};
    apply_rotation_layer<double>(amps_.data(), local_qubits_, std::span(&gate, 1));
  } else {
    exchange_global(qubit - local_qubits_, matrix);
  }
}

void DistributedState::exchange_global(unsigned global_bit, const Matrix2& m) {
  const int partner = rank_ ^ (1 << global_bit);
  // This rank holds the amplitudes with the qubit at `mine`; the partner those at 1 - mine.
  const bool mine = ((rank_ >> global_bit) & 1) != 0;
  const Amp keep = mine ? m.m11 : m.m00;
  const Amp take = mine ? m.m10 : m.m01;
  const std::size_t chunk = buffer_.size();
  for (std::size_t offset = 0; offset < amps_.size(); offset += chunk) {
    const std::size_t count = std::min(chunk, amps_.size() - offset);
    Amp* own = amps_.data() + offset;
    check_mpi(
        MPI_Sendrecv(own, static_cast<int>(2 * count), MPI_DOUBLE, partner, 0, buffer_.data(),
                     static_cast<int>(2 * count), MPI_DOUBLE, partner, 0, comm_, MPI_STATUS_IGNORE),
        "MPI_Sendrecv", comm_);
    bytes_exchanged_ += count * sizeof(Amp);
    const Amp* theirs = buffer_.data();
    const auto n = static_cast<std::int64_t>(count);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(count))
    for (std::int64_t i = 0; i < n; ++i) own[i] = cmul(keep, own[i]) + cmul(take, theirs[i]);
  }
}

AlignedBuffer<double> DistributedState::local_probabilities() const {
  AlignedBuffer<double> p(amps_.size(), "the local probabilities");
  const auto size = static_cast<std::int64_t>(amps_.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(amps_.size()))
  for (std::int64_t i = 0; i < size; ++i) p[i] = std::norm(amps_[i]);
  return p;
}

double DistributedState::sum_over_ranks(double local, const std::string& error) const {
  double in[2] = {local, error.empty() ? 0.0 : 1.0};
  double out[2] = {0.0, 0.0};
  check_mpi(MPI_Allreduce(in, out, 2, MPI_DOUBLE, MPI_SUM, comm_), "MPI_Allreduce", comm_);
  if (out[1] != 0.0) {
    throw std::invalid_argument(
        error.empty() ? "invalid input on another rank of the distributed state (see its error)"
                      : "rank " + std::to_string(rank_) + ": " + error);
  }
  return out[0];
}

namespace {

// Runs `local` and returns its value, or its std::invalid_argument's message in `error`.
template <class F>
double catching(std::string& error, const F& local) {
  try {
    return local();
  } catch (const std::invalid_argument& e) {
    error = e.what();
    return 0.0;
  }
}

}  // namespace

double DistributedState::expectation(std::span<const double> p, std::span<const double> e) const {
  std::string error;
  const double local = catching(error, [&] {
    check_same_length(p.size(), "p", amps_.size(), "the local slice");
    return corvid::expectation(p, e);
  });
  return sum_over_ranks(local, error);
}

double DistributedState::gibbs_loss(std::span<const double> p, std::span<const double> e,
                                    double temperature) const {
  std::string error;
  const double local = catching(error, [&] {
    check_same_length(p.size(), "p", amps_.size(), "the local slice");
    return gibbs_sum(p, e, temperature);
  });
  return -std::log(sum_over_ranks(local, error));
}

double DistributedState::cvar(std::span<const double> p, std::span<const double> e,
                              double alpha) const {
  std::string error;
  catching(error, [&] {
    check_same_length(p.size(), "p", amps_.size(), "the local slice");
    check_same_length(p.size(), "p", e.size(), "e");
    check_weights(p, "p");
    if (!(alpha >= 0.0 && alpha <= 1.0)) {
      throw std::invalid_argument("alpha must be a number in [0, 1], got " + format_double(alpha));
    }
    return 0.0;
  });
  sum_over_ranks(0.0, error);
  if (alpha == 0.0) return 0.0;

  // The key of the entry that crosses alpha, one byte at a time from the top; `above` is the
  // mass of all heavier keys over all ranks.
  std::uint64_t threshold = 0;
  double above = 0.0;
  bool crossed = true;
  for (int shift = 56; shift >= 0 && crossed; shift -= 8) {
    std::vector<double> local(256, 0.0), total(256, 0.0);
    for (double w : p) {
      const std::uint64_t key = weight_key(w);
      if (shift < 56 && (key >> (shift + 8)) != (threshold >> (shift + 8))) continue;
      local[(key >> shift) & 255] += w;
    }
    check_mpi(MPI_Allreduce(local.data(), total.data(), 256, MPI_DOUBLE, MPI_SUM, comm_),
              "MPI_Allreduce", comm_);
    crossed = false;
    for (int b = 255; b >= 0; --b) {
      if (above + total[b] >= alpha) {
        threshold |= std::uint64_t(b) << shift;
        crossed = true;
        break;
      }
      above += total[b];
    }
  }
  // This rank's share of alpha: its heavier entries, then its part of the tied entries, which
  // lower ranks (lower indices) fill first.
  double share = 1.0;  // the whole slice, when alpha exceeds the total mass
  if (crossed) {
    const double t = std::bit_cast<double>(threshold);
    double heavier = 0.0;
    std::uint64_t ties = 0, ties_before = 0;
    for (double w : p) {
      const std::uint64_t key = weight_key(w);
      if (key > threshold) heavier += w;
      ties += key == threshold;
    }
    check_mpi(MPI_Exscan(&ties, &ties_before, 1, MPI_UINT64_T, MPI_SUM, comm_), "MPI_Exscan",
              comm_);
    if (rank_ == 0) ties_before = 0;  // MPI leaves rank 0's result undefined
    const double left = alpha - above - static_cast<double>(ties_before) * t;
    share = std::min(1.0, heavier + std::clamp(left, 0.0, static_cast<double>(ties) * t));
  }
  return sum_over_ranks(corvid::cvar(p, e, share), "");
}

std::vector<Solution> DistributedState::top_solutions(std::span<const double> p,
                                                      std::size_t count) const {
  std::string error;
  catching(error, [&] {
    check_same_length(p.size(), "p", amps_.size(), "the local slice");
    check_weights(p, "p");
    return 0.0;
  });
  sum_over_ranks(0.0, error);

  // This rank's best `local` entries, the worst of them on top of the heap.
  const std::size_t local = std::min(count, amps_.size());
  if (local > static_cast<std::size_t>(std::numeric_limits<int>::max() / ranks_)) {
    throw std::invalid_argument("top_solutions: " + std::to_string(count) +
                                " solutions are too many to gather on one rank");
  }
  std::priority_queue<Solution, std::vector<Solution>, decltype(&better)> heap(&better);
  const std::uint64_t first = first_index();
  for (std::size_t i = 0; i < p.size() && local > 0; ++i) {
    const Solution s{first + i, p[i]};
    if (heap.size() < local) {
      heap.push(s);
    } else if (better(s, heap.top())) {
      heap.pop();
      heap.push(s);
    }
  }
  std::vector<double> probs(local);
  std::vector<std::uint64_t> indices(local);
  for (std::size_t i = local; i-- > 0; heap.pop()) {
    probs[i] = heap.top().probability;
    indices[i] = heap.top().index;
  }

  const std::size_t total = local * static_cast<std::size_t>(ranks_);
  std::vector<double> all_probs(rank_ == 0 ? total : 0);
  std::vector<std::uint64_t> all_indices(rank_ == 0 ? total : 0);
  const int n = static_cast<int>(local);
  check_mpi(MPI_Gather(probs.data(), n, MPI_DOUBLE, all_probs.data(), n, MPI_DOUBLE, 0, comm_),
            "MPI_Gather", comm_);
  check_mpi(
      MPI_Gather(indices.data(), n, MPI_UINT64_T, all_indices.data(), n, MPI_UINT64_T, 0, comm_),
      "MPI_Gather", comm_);

  const std::size_t kept = std::min(count, total);
  std::vector<double> top_probs(kept);
  std::vector<std::uint64_t> top_indices(kept);
  if (rank_ == 0) {
    std::vector<Solution> merged(total);
    for (std::size_t i = 0; i < total; ++i) merged[i] = {all_indices[i], all_probs[i]};
    std::partial_sort(merged.begin(), merged.begin() + static_cast<std::ptrdiff_t>(kept),
                      merged.end(), better);
    for (std::size_t i = 0; i < kept; ++i) {
      top_probs[i] = merged[i].probability;
      top_indices[i] = merged[i].index;
    }
  }
  const int k = static_cast<int>(kept);
  check_mpi(MPI_Bcast(top_probs.data(), k, MPI_DOUBLE, 0, comm_), "MPI_Bcast", comm_);
  check_mpi(MPI_Bcast(top_indices.data(), k, MPI_UINT64_T, 0, comm_), "MPI_Bcast", comm_);
  std::vector<Solution> out(kept);
  for (std::size_t i = 0; i < kept; ++i) out[i] = {top_indices[i], top_probs[i]};
  return out;
}

AlignedBuffer<double> local_z_energies(const DistributedState& state,
                                       std::span<const std::uint64_t> masks,
                                       std::span<const double> coeffs) {
  const unsigned n = state.num_qubits();
  const unsigned local = state.local_qubits();
  check_terms(masks, coeffs, static_cast<int>(n), "qubit");
  const std::uint64_t low = (std::uint64_t{1} << local) - 1;
  const std::uint64_t rank = static_cast<std::uint64_t>(state.rank());
  std::vector<std::uint64_t> local_masks(masks.size());
  std::vector<double> local_coeffs(coeffs.size());
  for (std::size_t t = 0; t < masks.size(); ++t) {
    local_masks[t] = masks[t] & low;
    const bool flip = (std::popcount((masks[t] >> local) & rank) & 1) != 0;
    local_coeffs[t] = flip ? -coeffs[t] : coeffs[t];
  }
  return energies_from_z_terms(static_cast<int>(local), local_masks, local_coeffs);
}

}  // namespace corvid::dist
