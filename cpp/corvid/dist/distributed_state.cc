#include "corvid/dist/distributed_state.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <queue>
#include <random>
#include <stdexcept>
#include <string>

#include "corvid/circuit/gate.h"
#include "corvid/dist/mpi_check.h"
#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/chunks.h"
#include "corvid/qaoa/layer_products.h"
#include "corvid/qaoa/losses.h"
#include "corvid/qaoa/weight_key.h"
#include "corvid/qaoa/z_energies.h"
#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/sim/execute/rotation_layer.h"
#include "corvid/util/errors.h"
#include "corvid/util/memory.h"
#include "corvid/util/parallel.h"

namespace corvid::dist {
namespace {

using Amp = std::complex<double>;
using Index = std::uint64_t;

// Inserts bit `value` at position `bit` of t.
Index insert_bit(Index t, unsigned bit, Index value) {
  const Index low = t & ((Index{1} << bit) - 1);
  return ((t >> bit) << (bit + 1)) | (value << bit) | low;
}

// The per-amplitude values of a diagonal, whatever its form, to `f(i, value)` over [0, size).
template <class F>
void for_each_value(const DiagonalValues& d, Index begin, Index end, const F& f) {
  const std::span<const double> levels = d.levels();
  if (const std::uint8_t* i8 = d.index8()) {
    for (Index i = begin; i < end; ++i) f(i, levels[i8[i]]);
  } else if (const std::uint16_t* i16 = d.index16()) {
    for (Index i = begin; i < end; ++i) f(i, levels[i16[i]]);
  } else {
    const double* v = d.dense();
    for (Index i = begin; i < end; ++i) f(i, v[i]);
  }
}

void check_xy_pairs(std::span<const std::pair<unsigned, unsigned>> pairs, unsigned n,
                    unsigned local) {
  for (const auto& [a, b] : pairs) {
    if (a >= n || b >= n || a == b) {
      throw std::invalid_argument("XY pair (" + std::to_string(a) + ", " + std::to_string(b) +
                                  ") needs two distinct qubits < " + std::to_string(n));
    }
  }
  if (!pairs.empty() && local < 2) {
    throw std::invalid_argument("the XY mixer needs 2 local qubits, the slice has 1");
  }
}

// A non-owning handle on `values`, for the passes that take a DiagonalOp.
std::shared_ptr<const DiagonalValues> borrowed(const DiagonalValues& values) {
  return {std::shared_ptr<void>(), &values};
}

// The X mixer's rotation, RX(-2·beta).
Matrix2 mixer_rotation(double beta) {
  return matrix_of(Gate(GateKind::RX, {Qubit(0)}, -2.0 * beta));
}

void check_gates(std::span<const Gate> gates, unsigned n, unsigned local) {
  for (const Gate& g : gates) {
    for (const std::uint32_t q : g.qubits()) {
      if (q >= n) {
        throw std::invalid_argument("gate " + g.to_string() +
                                    " acts on a qubit >= " + std::to_string(n));
      }
    }
    if (g.num_qubits() > local) {
      throw std::invalid_argument("gate " + g.to_string() + " needs " +
                                  std::to_string(g.num_qubits()) + " local qubits, the slice has " +
                                  std::to_string(local));
    }
  }
}

std::string diagonal_mismatch(const DiagonalValues& d, unsigned local_qubits) {
  if (d.num_qubits() == local_qubits) return "";
  return "the local diagonal covers " + std::to_string(d.num_qubits()) + " qubits, the slice has " +
         std::to_string(local_qubits) + " local qubits";
}

// A counter-based generator: each node of the sampling tree gets its own stream from (seed,
// height, index), so no draw depends on which rank makes it or on the draws before it.
struct SplitMix {
  using result_type = std::uint64_t;
  std::uint64_t state;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return ~result_type{0}; }
  result_type operator()() {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
};

SplitMix node_stream(std::uint64_t seed, unsigned height, Index index) {
  SplitMix mix{seed ^ height};
  SplitMix node{mix() ^ index};
  return SplitMix{node()};
}

// Splits `shots` between the halves of a node of masses left and right.
std::uint64_t left_shots(std::uint64_t shots, double left, double right, SplitMix rng) {
  if (shots == 0 || !(left > 0.0)) return 0;
  if (!(right > 0.0)) return shots;
  std::binomial_distribution<std::uint64_t> draw(shots, std::min(1.0, left / (left + right)));
  return draw(rng);
}

// Pairwise sums of `leaves` (2^height of them) up to the root: level h holds 2^(height-h) sums,
// stored one level after another, leaves first.
std::vector<double> pyramid(std::span<const double> leaves) {
  std::vector<double> out(2 * leaves.size() - 1);
  std::copy(leaves.begin(), leaves.end(), out.begin());
  std::size_t in = 0, at = leaves.size();
  for (std::size_t width = leaves.size() / 2; width > 0; width /= 2) {
    for (std::size_t i = 0; i < width; ++i) out[at + i] = out[in + 2 * i] + out[in + 2 * i + 1];
    in = at;
    at += width;
  }
  return out;
}

// Carries `shots` at the root of a pyramid (from `pyramid`, 2^height leaves, whose leaf 0 is
// global node `first` at height `base`) down to its leaves; out[i] = shots of leaf i.
void split_down(const std::vector<double>& sums, unsigned height, unsigned base, Index first,
                std::uint64_t shots, std::uint64_t seed, std::vector<std::uint64_t>& out) {
  std::vector<std::uint64_t> level{shots}, next;
  // Offset of each level in `sums`, from the root down.
  std::vector<std::size_t> offset(height + 1);
  std::size_t at = 0;
  for (unsigned h = 0; h <= height; ++h) {
    offset[h] = at;
    at += std::size_t{1} << (height - h);
  }
  for (unsigned h = height; h > 0; --h) {
    next.assign(level.size() * 2, 0);
    const std::size_t child = offset[h - 1];
    for (std::size_t i = 0; i < level.size(); ++i) {
      if (level[i] == 0) continue;
      const Index node = (first >> h) + i;  // global index of the node at height base + h
      const std::uint64_t left = left_shots(level[i], sums[child + 2 * i], sums[child + 2 * i + 1],
                                            node_stream(seed, base + h, node));
      next[2 * i] = left;
      next[2 * i + 1] = level[i] - left;
    }
    level.swap(next);
  }
  out = std::move(level);
}

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
    : DistributedState(comm, num_qubits, max_chunk, true) {}

DistributedState::DistributedState(MPI_Comm comm, unsigned num_qubits, std::size_t max_chunk,
                                   bool zero)
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
    // The exchange buffer counts twice: MPI_Sendrecv_replace may stage a message of its size.
    const std::size_t per_rank = (local_size + (ranks > 1 ? 2 * chunk : 0)) * sizeof(Amp);
    if (per_rank > SIZE_MAX / static_cast<std::size_t>(node_ranks)) {
      require_memory(SIZE_MAX, "the distributed state");
    }
    require_memory_releasing(per_rank * static_cast<std::size_t>(node_ranks),
                             "this node's share of the distributed state (" +
                                 std::to_string(node_ranks) + " ranks on this node)");
    amps_ = PooledBuffer<Amp>(local_size, "the local slice of the distributed state");
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
  if (zero) set_zero();
}

DistributedState::~DistributedState() {
  if (comm_ != MPI_COMM_NULL) MPI_Comm_free(&comm_);
}

void DistributedState::fill(Amp value) {
  // In parallel, so that each thread first touches the pages its kernels work on.
  Amp* amps = amps_.data();
  const auto size = static_cast<std::int64_t>(amps_.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(amps_.size()))
  for (std::int64_t i = 0; i < size; ++i) amps[i] = value;
}

void DistributedState::set_zero() {
  fill(Amp{});
  if (rank_ == 0) amps_[0] = 1.0;
}

void DistributedState::set_uniform() {
  fill(Amp{1.0 / std::sqrt(std::ldexp(1.0, static_cast<int>(num_qubits_))), 0.0});
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
  x_layer(mixer_rotation(beta), nullptr, nullptr, nullptr, nullptr);
}

bool DistributedState::transposes(bool kept) const {
  // A transposition sends (1 - 1/2^k) of the slice, pairwise exchanges k slices: kept, it is
  // the cheaper for every k >= 1; undone at once, only for k >= 2.
  const unsigned global = num_qubits_ - local_qubits_;
  return global >= (kept ? 1u : 2u) && local_qubits_ >= global;
}

bool DistributedState::keeps_layout(const DistributedAnsatz& ansatz) const {
  return !ansatz.xy_pairs && ansatz.phase_transposed != nullptr && keeps_x_layout();
}

void DistributedState::x_layer(const Matrix2& rx, const DiagonalPass* before,
                               DistributedState* companion, MixerProducts* watch, double* z,
                               Layout* layout) {
  const unsigned local = local_qubits_;
  const KernelSet& k = active_kernels<double>();
  // The single-process layer kernels on the slice; with a companion, the pair pass that takes
  // the products while both states' tiles are in cache.
  const auto rotate = [&](unsigned from, const DiagonalPass* diagonal, MixerProducts& products) {
    std::vector<QubitMatrix> layer;
    for (unsigned q = from; q < local; ++q) layer.push_back({q, rx});
    if (companion == nullptr) {
      apply_rotation_layer<double>(amps_.data(), local, layer, k, diagonal);
    } else {
      apply_rotation_layer_pair(companion->amps_.data(), amps_.data(), local, layer, k, diagonal,
                                products);
    }
  };
  const auto transpose_both = [&] {
    transpose();
    if (companion != nullptr) companion->transpose();
  };
  const ProductKernels& pk = product_kernels(k);
  MixerProducts top(nullptr, pk, nullptr);
  rotate(0, before, watch != nullptr ? *watch : top);
  if (!transposes(layout != nullptr)) {
    for (unsigned j = 0; j < num_qubits_ - local; ++j) exchange_global(j, rx, companion, z);
    return;
  }
  // The global qubits are the top local ones after a transposition, whichever layout it
  // starts from: the transposition swaps the two sets of positions both ways.
  const unsigned global = num_qubits_ - local;
  transpose_both();
  rotate(local - global, nullptr, top);
  if (z != nullptr) *z += top.mixer();
  if (layout == nullptr) {
    transpose_both();
  } else {
    *layout = *layout == Layout::kCanonical ? Layout::kTransposed : Layout::kCanonical;
  }
}

void DistributedState::transpose() {
  const unsigned global = num_qubits_ - local_qubits_;
  const Index block = Index{1} << (local_qubits_ - global);
  const std::size_t chunk = buffer_.size();
  // Round s pairs rank r with r ^ s: each sends the block its partner's bits name and takes
  // the partner's block named by its own bits, in place.
  for (int s = 1; s < ranks_; ++s) {
    const int partner = rank_ ^ s;
    Amp* mine = amps_.data() + static_cast<Index>(partner) * block;
    for (Index offset = 0; offset < block; offset += chunk) {
      const auto count = static_cast<int>(std::min<Index>(chunk, block - offset));
      check_mpi(MPI_Sendrecv_replace(mine + offset, 2 * count, MPI_DOUBLE, partner, 2, partner, 2,
                                     comm_, MPI_STATUS_IGNORE),
                "MPI_Sendrecv_replace", comm_);
      bytes_exchanged_ += static_cast<std::uint64_t>(count) * sizeof(Amp);
    }
  }
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

void DistributedState::exchange_global(unsigned global_bit, const Matrix2& m,
                                       DistributedState* companion, double* z) {
  const int partner = rank_ ^ (1 << global_bit);
  // This rank holds the amplitudes with the qubit at `mine`; the partner those at 1 - mine.
  const bool mine = ((rank_ >> global_bit) & 1) != 0;
  const Amp keep = mine ? m.m11 : m.m00;
  const Amp take = mine ? m.m10 : m.m01;
  const std::size_t chunk = buffer_.size();
  for (std::size_t offset = 0; offset < amps_.size(); offset += chunk) {
    const std::size_t count = std::min(chunk, amps_.size() - offset);
    const auto n = static_cast<std::int64_t>(count);
    std::vector<DistributedState*> states{this};
    if (companion != nullptr) states.push_back(companion);
    for (DistributedState* s : states) {
      check_mpi(MPI_Sendrecv(s->amps_.data() + offset, static_cast<int>(2 * count), MPI_DOUBLE,
                             partner, 0, s->buffer_.data(), static_cast<int>(2 * count), MPI_DOUBLE,
                             partner, 0, comm_, MPI_STATUS_IGNORE),
                "MPI_Sendrecv", comm_);
      s->bytes_exchanged_ += count * sizeof(Amp);
    }
    if (z != nullptr) {
      const Amp* lambda = companion->amps_.data() + offset;
      const Amp* theirs = buffer_.data();
      double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) if (parallel_worthwhile(count))
      for (std::int64_t i = 0; i < n; ++i) sum += std::imag(std::conj(lambda[i]) * theirs[i]);
      *z += sum;
    }
    for (DistributedState* s : states) {
      Amp* own = s->amps_.data() + offset;
      const Amp* theirs = s->buffer_.data();
#pragma omp parallel for schedule(static) if (parallel_worthwhile(count))
      for (std::int64_t i = 0; i < n; ++i) own[i] = cmul(keep, own[i]) + cmul(take, theirs[i]);
    }
  }
}

void DistributedState::apply_phase(const DiagonalValues& local_diagonal, double gamma) {
  const std::string error = diagonal_mismatch(local_diagonal, local_qubits_);
  if (!error.empty()) throw std::invalid_argument(error);
  const DiagonalOp op{borrowed(local_diagonal), gamma, 0.0};
  DiagonalPass(op).apply_all(amps_.data(), local_qubits_);
}

double DistributedState::expectation(const DiagonalValues& local_diagonal) const {
  const std::string error = diagonal_mismatch(local_diagonal, local_qubits_);
  double sum = 0.0;
  if (error.empty()) {
    constexpr Index kChunk = Index{1} << 12;
    const Index size = amps_.size();
    const auto chunks = static_cast<std::int64_t>((size + kChunk - 1) / kChunk);
    const Amp* amps = amps_.data();
#pragma omp parallel for schedule(static) reduction(+ : sum) if (parallel_worthwhile(size))
    for (std::int64_t c = 0; c < chunks; ++c) {
      double part = 0.0;
      const Index begin = static_cast<Index>(c) * kChunk;
      for_each_value(local_diagonal, begin, std::min(size, begin + kChunk),
                     [&](Index i, double v) { part += std::norm(amps[i]) * v; });
      sum += part;
    }
  }
  return sum_over_ranks(sum, error);
}

void DistributedState::swap_global_local(unsigned global_bit, unsigned local_bit) {
  const int partner = rank_ ^ (1 << global_bit);
  const Index away = 1 - ((static_cast<Index>(rank_) >> global_bit) & 1);
  const Index half = amps_.size() / 2;
  const std::size_t chunk = buffer_.size();
  Amp* amps = amps_.data();
  Amp* buffer = buffer_.data();
  for (Index offset = 0; offset < half; offset += chunk) {
    const auto count = static_cast<std::int64_t>(std::min<Index>(chunk, half - offset));
#pragma omp parallel for schedule(static) if (parallel_worthwhile(count))
    for (std::int64_t i = 0; i < count; ++i) {
      buffer[i] = amps[insert_bit(offset + static_cast<Index>(i), local_bit, away)];
    }
    check_mpi(MPI_Sendrecv_replace(buffer, static_cast<int>(2 * count), MPI_DOUBLE, partner, 1,
                                   partner, 1, comm_, MPI_STATUS_IGNORE),
              "MPI_Sendrecv_replace", comm_);
    bytes_exchanged_ += static_cast<std::uint64_t>(count) * sizeof(Amp);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(count))
    for (std::int64_t i = 0; i < count; ++i) {
      amps[insert_bit(offset + static_cast<Index>(i), local_bit, away)] = buffer[i];
    }
  }
  ++swaps_;
}

void DistributedState::run_ops(std::span<const LocalOp> ops, DistributedState* companion,
                               double* z) {
  const unsigned n = num_qubits_, local = local_qubits_;
  // where[q]: the position of qubit q; who[position]: the qubit there.
  std::vector<unsigned> where(n), who(n);
  std::iota(where.begin(), where.end(), 0u);
  std::iota(who.begin(), who.end(), 0u);
  const auto uses = [](const LocalOp& op, unsigned q) {
    return op.a == q || op.b == static_cast<int>(q);
  };
  const auto swap_positions = [&](unsigned global, unsigned local_position) {
    swap_global_local(global - local, local_position);
    if (companion != nullptr) companion->swap_global_local(global - local, local_position);
    std::swap(who[global], who[local_position]);
    where[who[global]] = global;
    where[who[local_position]] = local_position;
  };
  const auto apply_local = [&](unsigned a, int b, const LocalOp& op) {
    if (op.xy) {
      // The single-process pair pass; with the companion, its product rides along.
      const double product =
          rotate_pair(amps_.data(), companion != nullptr ? companion->amps_.data() : nullptr, local,
                      a, static_cast<unsigned>(b), op.theta);
      if (z != nullptr) *z += product;
      return;
    }
    for (DistributedState* s : {this, companion}) {
      if (s == nullptr) continue;
      if (b < 0) {
        const QubitMatrix gate{a, op.m2};
        apply_rotation_layer<double>(s->amps_.data(), local, std::span(&gate, 1));
      } else {
        apply_matrix4(s->amps_.data(), local, a, static_cast<unsigned>(b), op.m4);
      }
    }
  };
  for (std::size_t i = 0; i < ops.size(); ++i) {
    const LocalOp& op = ops[i];
    for (const int q : {static_cast<int>(op.a), op.b}) {
      if (q < 0 || where[q] < local) continue;
      // Evict the local qubit, not in this gate, whose next use is furthest away.
      unsigned victim = local;
      std::size_t victim_next = 0;
      for (unsigned s = 0; s < local; ++s) {
        if (uses(op, who[s])) continue;
        std::size_t next = i + 1;
        while (next < ops.size() && !uses(ops[next], who[s])) ++next;
        if (victim == local || next > victim_next) {
          victim = s;
          victim_next = next;
        }
      }
      swap_positions(where[q], victim);
    }
    apply_local(where[op.a], op.b < 0 ? -1 : static_cast<int>(where[op.b]), op);
  }
  // Back to the plain layout: global positions first (through a local one where a global qubit
  // sits at another global position), then the local ones by local swaps.
  for (unsigned g = local; g < n; ++g) {
    while (who[g] != g) {
      if (where[g] >= local) swap_positions(where[g], 0);
      swap_positions(g, where[g]);
    }
  }
  LocalOp swap{0, 0, {}, {}};
  swap.m4[0] = swap.m4[6] = swap.m4[9] = swap.m4[15] = 1.0;
  for (unsigned s = 0; s < local; ++s) {
    if (who[s] == s) continue;
    const unsigned t = where[s];
    apply_local(s, static_cast<int>(t), swap);
    std::swap(who[s], who[t]);
    where[who[s]] = s;
    where[who[t]] = t;
  }
}

void DistributedState::apply_gates(std::span<const Gate> gates) {
  check_gates(gates, num_qubits_, local_qubits_);
  std::vector<LocalOp> ops;
  for (const Gate& g : gates) {
    if (g.kind() == GateKind::I) continue;
    if (g.num_qubits() == 1) {
      ops.push_back({g.qubit(0), -1, matrix_of(g), {}});
    } else {
      ops.push_back({g.qubit(0), static_cast<int>(g.qubit(1)), {}, matrix4_of(g)});
    }
  }
  run_ops(ops);
}

std::vector<DistributedState::LocalOp> DistributedState::xy_ops(
    std::span<const std::pair<unsigned, unsigned>> pairs, double beta) {
  std::vector<LocalOp> ops;
  for (const auto& [a, b] : pairs) ops.push_back({a, static_cast<int>(b), {}, {}, true, beta});
  return ops;
}

void DistributedState::apply_xy_mixer(std::span<const std::pair<unsigned, unsigned>> pairs,
                                      double beta) {
  check_xy_pairs(pairs, num_qubits_, local_qubits_);
  run_ops(xy_ops(pairs, beta));
}

void DistributedState::check_ansatz(const DistributedAnsatz& ansatz,
                                    std::span<const double> angles) const {
  if (angles.empty() || angles.size() % 2 != 0) {
    throw std::invalid_argument("angles must hold p gammas then p betas (p >= 1), got " +
                                std::to_string(angles.size()) + " values");
  }
  for (double a : angles) {
    if (!std::isfinite(a)) throw std::invalid_argument("angles must be finite");
  }
  check_ansatz(ansatz);
}

void DistributedState::check_ansatz(const DistributedAnsatz& ansatz) const {
  if (ansatz.initial) check_gates(*ansatz.initial, num_qubits_, local_qubits_);
  if (ansatz.phase == nullptr || ansatz.energies == nullptr) {
    throw std::invalid_argument("the ansatz needs its phase and energies");
  }
  for (const DiagonalValues* d : {ansatz.phase, ansatz.energies, ansatz.phase_transposed}) {
    const std::string error = d != nullptr ? diagonal_mismatch(*d, local_qubits_) : "";
    if (!error.empty()) throw std::invalid_argument(error);
  }
  if (ansatz.xy_pairs) check_xy_pairs(*ansatz.xy_pairs, num_qubits_, local_qubits_);
}

void DistributedState::run_ansatz(const DistributedAnsatz& ansatz, std::span<const double> angles) {
  check_ansatz(ansatz, angles);
  const std::size_t p = angles.size() / 2;
  const bool keep = keeps_layout(ansatz);
  Layout layout = Layout::kCanonical;
  if (ansatz.initial) {
    set_zero();
    apply_gates(*ansatz.initial);
  } else {
    set_uniform();
    // The same state in either layout: start in the one that p layers turn into the canonical.
    if (keep && p % 2 == 1) layout = Layout::kTransposed;
  }
  for (std::size_t j = 0; j < p; ++j) {
    const DiagonalValues& phase =
        layout == Layout::kTransposed ? *ansatz.phase_transposed : *ansatz.phase;
    if (ansatz.xy_pairs) {
      apply_phase(phase, angles[j]);
      apply_xy_mixer(*ansatz.xy_pairs, angles[p + j]);
    } else {
      // The phase rides in the mixer's first pass, as in one process.
      const DiagonalOp op{borrowed(phase), angles[j], 0.0};
      const DiagonalPass pass(op);
      x_layer(mixer_rotation(angles[p + j]), &pass, nullptr, nullptr, nullptr,
              keep ? &layout : nullptr);
    }
  }
  if (layout == Layout::kTransposed) transpose();
}

// With U_j = exp(−i·θ_j·H_j) the 2p factors and λ = U^†·(w∘ψ) carried back beside the state φ,
// the partial in θ_j is 2·Im⟨λ|H_j|φ⟩ where U_j acts: H = D for a phase layer, −ΣX for the X
// mixer, −S for each XY pair. Every rank sums its slice's part; one MPI_Allreduce adds them.
double DistributedState::loss_and_gradient(const DistributedAnsatz& ansatz,
                                           std::span<const double> angles,
                                           const LossSettings& settings,
                                           std::span<double> gradient) {
  check_ansatz(ansatz, angles);
  if (gradient.size() != angles.size()) {
    throw std::invalid_argument("gradient must have as many entries as angles");
  }
  check_loss_settings(settings);
  run_ansatz(ansatz, angles);
  // λ is written whole before it is read (by the loss's own pass or the sweep's first one).
  DistributedState lambda(comm_, num_qubits_, std::max<std::size_t>(buffer_.size(), 1), false);
  const unsigned local = local_qubits_;
  const std::size_t p = angles.size() / 2;
  const KernelSet& k = active_kernels<double>();
  const ProductKernels& pk = product_kernels(k);
  // As in one process: the expectation's and the Gibbs loss's weights ride in the first
  // backward pass of the X mixer (a pass of their own before XY pairs); CVaR's need the whole
  // distribution first.
  const EnergyTable energies(borrowed(*ansatz.energies), 0.0, local);
  const std::optional<LossWeights> weights = weights_over_ranks(energies, settings);
  const double loss = weights ? 0.0 : cvar_cotangent(*ansatz.energies, settings.alpha, &lambda);
  // The 2p partials, then the weighted loss's local figure: one MPI_Allreduce for all.
  std::vector<double> sums(angles.size() + 1, 0.0);
  if (weights && ansatz.xy_pairs)
    sums.back() = weights->all(amps_.data(), lambda.amps_.data(), local);
  Amp* f = amps_.data();
  Amp* l = lambda.amps_.data();

  // The sweep keeps X layers transposed as run_ansatz does, both states alike. Each step undoes
  // the pending phase layer j + 1 and mixer j, taking both layers' products on the way.
  const DiagonalOp phases[2] = {
      {borrowed(*ansatz.phase), 1.0, 0.0},
      {ansatz.phase_transposed != nullptr ? borrowed(*ansatz.phase_transposed)
                                          : borrowed(*ansatz.phase),
       1.0, 0.0}};
  const DiagonalProducts products[2] = {{phases[0], pk}, {phases[1], pk}};
  Layout layout = Layout::kCanonical;
  const bool keep = keeps_layout(ansatz);
  for (std::size_t j = p; j-- > 0;) {
    const double beta = angles[p + j];
    const bool pending = j + 1 < p;
    const auto at = static_cast<std::size_t>(layout == Layout::kTransposed);
    const DiagonalOp undo{phases[at].values, -(pending ? angles[j + 1] : 0.0), 0.0};
    const DiagonalPass pass(undo, k);
    double z = 0.0;
    if (!ansatz.xy_pairs) {
      const bool first = weights && j + 1 == p;
      MixerProducts watch(pending ? &products[at] : nullptr, pk, first ? &*weights : nullptr);
      x_layer(mixer_rotation(-beta), pending ? &pass : nullptr, &lambda, &watch, &z,
              keep ? &layout : nullptr);
      if (first) sums[angles.size()] = watch.weights();
      if (pending) sums[j + 1] = 2.0 * watch.diagonal();
      sums[p + j] = -2.0 * (watch.mixer() + z);
    } else {
      if (pending) {
        pass.apply_all(f, local);
        pass.apply_all(l, local);
      }
      std::vector<std::pair<unsigned, unsigned>> reversed(ansatz.xy_pairs->rbegin(),
                                                          ansatz.xy_pairs->rend());
      run_ops(xy_ops(reversed, -beta), &lambda, &z);
      sums[p + j] = -2.0 * z;
      sums[j] = 2.0 * products[0].all(l, f, local);
    }
  }
  if (!ansatz.xy_pairs) {
    sums[0] = 2.0 * products[layout == Layout::kTransposed].all(l, f, local);
  }
  check_mpi(MPI_Allreduce(MPI_IN_PLACE, sums.data(), static_cast<int>(sums.size()), MPI_DOUBLE,
                          MPI_SUM, comm_),
            "MPI_Allreduce", comm_);
  std::copy(sums.begin(), sums.end() - 1, gradient.begin());
  if (!weights) return loss;
  const double figure = sums.back();
  if (!weights->gibbs) return figure;
  for (double& g : gradient) g /= figure;  // λ was short of the factor 1/Z
  return weights->shift - std::log(figure);
}

void DistributedState::check_loss_settings(const LossSettings& settings) {
  if (settings.kind == LossKind::kCvar && !(settings.alpha >= 0.0 && settings.alpha <= 1.0)) {
    throw std::invalid_argument("alpha must be a number in [0, 1], got " +
                                format_double(settings.alpha));
  }
  const double t = settings.temperature;
  if (settings.kind == LossKind::kGibbs && (!std::isfinite(t) || t == 0.0)) {
    throw std::invalid_argument("temperature must be finite and nonzero");
  }
}

double DistributedState::loss(const DiagonalValues& local_energies,
                              const LossSettings& settings) const {
  check_loss_settings(settings);
  const std::string error = diagonal_mismatch(local_energies, local_qubits_);
  sum_over_ranks(0.0, error);
  return final_loss(local_energies, settings);
}

std::optional<LossWeights> DistributedState::weights_over_ranks(
    const EnergyTable& energies, const LossSettings& settings) const {
  std::optional<LossWeights> weights = loss_weights(energies, settings);
  if (weights && weights->gibbs) {
    // Every rank scales by the same factor: the least shift over all of them.
    check_mpi(MPI_Allreduce(MPI_IN_PLACE, &weights->shift, 1, MPI_DOUBLE, MPI_MIN, comm_),
              "MPI_Allreduce", comm_);
  }
  return weights;
}

double DistributedState::final_loss(const DiagonalValues& e, const LossSettings& settings) const {
  if (settings.kind == LossKind::kExpectation) return expectation(e);
  if (settings.kind == LossKind::kCvar) return cvar_cotangent(e, settings.alpha, nullptr);
  const EnergyTable energies(borrowed(e), 0.0, local_qubits_);
  const LossWeights w = *weights_over_ranks(energies, settings);
  return w.shift - std::log(sum_over_ranks(w.all(amps_.data(), nullptr, local_qubits_), ""));
}

// loss = sum over the entries ahead of the boundary b (heavier, or as heavy and before it) of
// p·(e − e[b]), plus alpha·e[b]; so w = e − e[b] ahead of b and 0 elsewhere. Without a boundary
// (alpha above the total mass) w = e; alpha = 0 gives w = 0.
double DistributedState::cvar_cotangent(const DiagonalValues& e, double alpha,
                                        DistributedState* lambda) const {
  const PooledBuffer<double> p = local_probabilities();
  Amp* l = lambda != nullptr ? lambda->amps_.data() : nullptr;
  const Amp* f = amps_.data();
  const Index size = amps_.size();
  if (alpha == 0.0) {
    if (l != nullptr) std::fill(l, l + size, Amp{});
    return 0.0;
  }
  const CvarCut cut = cvar_cut({p.data(), p.size()}, alpha);
  // The boundary is the tie at which the running mass first reaches alpha, ties in index order.
  std::uint64_t boundary = 0;
  double e_boundary = 0.0;
  if (cut.crossed) {
    const double t = std::bit_cast<double>(cut.threshold);
    std::uint64_t all_ties = 0;
    check_mpi(MPI_Allreduce(&cut.ties, &all_ties, 1, MPI_UINT64_T, MPI_SUM, comm_), "MPI_Allreduce",
              comm_);
    while (boundary + 1 < all_ties && cut.above + static_cast<double>(boundary + 1) * t < alpha) {
      ++boundary;
    }
  }
  // The ties before each chunk of the slice, so that the chunks number theirs in index order in
  // parallel.
  const int chunks = chunk_count(size);
  const auto begin = [&](int c) { return static_cast<Index>(chunk_begin(size, chunks, c)); };
  const auto is_tie = [&](Index x) { return cut.crossed && weight_key(p[x]) == cut.threshold; };
  std::vector<std::uint64_t> ties_before(chunks + 1, 0);
#pragma omp parallel for schedule(static, 1) num_threads(chunks)
  for (int c = 0; c < chunks; ++c) {
    for (Index x = begin(c); x < begin(c + 1); ++x) ties_before[c + 1] += is_tie(x);
  }
  ties_before[0] = cut.ties_before;
  for (int c = 0; c < chunks; ++c) ties_before[c + 1] += ties_before[c];
  if (cut.crossed) {
    for (int c = 0; c < chunks; ++c) {
      if (boundary < ties_before[c] || boundary >= ties_before[c + 1]) continue;
      std::uint64_t ordinal = ties_before[c];
      for_each_value(e, begin(c), begin(c + 1), [&](Index x, double v) {
        if (is_tie(x) && ordinal++ == boundary) e_boundary = v;
      });
    }
    e_boundary = sum_over_ranks(e_boundary, "");  // one rank holds it, the others add 0
  }
  double sum = 0.0;
#pragma omp parallel for schedule(static, 1) num_threads(chunks) reduction(+ : sum)
  for (int c = 0; c < chunks; ++c) {
    std::uint64_t ordinal = ties_before[c];
    double part = 0.0;
    for_each_value(e, begin(c), begin(c + 1), [&](Index x, double v) {
      const std::uint64_t key = weight_key(p[x]);
      const bool ahead =
          !cut.crossed || key > cut.threshold || (key == cut.threshold && ordinal++ < boundary);
      const double w = ahead ? v - e_boundary : 0.0;
      if (l != nullptr) l[x] = w * f[x];
      part += w * p[x];
    });
    sum += part;
  }
  return sum_over_ranks(sum, "") + (cut.crossed ? alpha * e_boundary : 0.0);
}

std::vector<Count> DistributedState::sample(std::uint64_t shots, std::uint64_t seed) const {
  const unsigned n = num_qubits_, local = local_qubits_;
  const unsigned block = std::min({12u, n / 2, local});
  const Index block_size = Index{1} << block;
  const Index blocks = amps_.size() >> block;
  // Each block's own pyramid gives its mass; the blocks' masses, then the ranks', sum pairwise
  // in the same tree, so every node's mass is the same bit for bit whatever the rank count.
  const auto block_sums = [&](Index b) {
    std::vector<double> leaves(block_size);
    for (Index i = 0; i < block_size; ++i) leaves[i] = std::norm(amps_[b * block_size + i]);
    return pyramid(leaves);
  };
  std::vector<double> block_mass(blocks);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(amps_.size()))
  for (std::int64_t b = 0; b < static_cast<std::int64_t>(blocks); ++b) {
    block_mass[b] = block_sums(static_cast<Index>(b)).back();
  }
  const std::vector<double> rank_pyramid = pyramid(block_mass);
  std::vector<double> rank_mass(ranks_);
  check_mpi(
      MPI_Allgather(&rank_pyramid.back(), 1, MPI_DOUBLE, rank_mass.data(), 1, MPI_DOUBLE, comm_),
      "MPI_Allgather", comm_);
  // Every rank draws the same split between the ranks, then splits its own shots down.
  std::vector<std::uint64_t> per_rank, per_block, per_state;
  const unsigned rank_bits = n - local;
  split_down(pyramid(rank_mass), rank_bits, local, 0, shots, seed, per_rank);
  split_down(rank_pyramid, local - block, block, first_index() >> block, per_rank[rank_], seed,
             per_block);
  std::vector<Count> out;
  for (Index b = 0; b < blocks; ++b) {
    if (per_block[b] == 0) continue;
    const Index first = first_index() + b * block_size;
    split_down(block_sums(b), block, 0, first, per_block[b], seed, per_state);
    for (Index i = 0; i < block_size; ++i) {
      if (per_state[i] != 0) out.push_back({first + i, per_state[i]});
    }
  }
  return out;
}

std::vector<Count> DistributedState::sample_all(std::uint64_t shots, std::uint64_t seed) const {
  const std::vector<Count> mine = sample(shots, seed);
  // Rank order is index order: gathering the ranks' lists one after another keeps it.
  std::vector<std::uint64_t> flat;
  for (const Count& c : mine) flat.insert(flat.end(), {c.index, c.shots});
  const int length = static_cast<int>(flat.size());
  std::vector<int> lengths(ranks_), offsets(ranks_, 0);
  check_mpi(MPI_Allgather(&length, 1, MPI_INT, lengths.data(), 1, MPI_INT, comm_), "MPI_Allgather",
            comm_);
  for (int r = 1; r < ranks_; ++r) offsets[r] = offsets[r - 1] + lengths[r - 1];
  std::vector<std::uint64_t> all(static_cast<std::size_t>(offsets.back() + lengths.back()));
  check_mpi(MPI_Allgatherv(flat.data(), length, MPI_UINT64_T, all.data(), lengths.data(),
                           offsets.data(), MPI_UINT64_T, comm_),
            "MPI_Allgatherv", comm_);
  std::vector<Count> out(all.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = {all[2 * i], all[2 * i + 1]};
  return out;
}

PooledBuffer<double> DistributedState::local_probabilities() const {
  PooledBuffer<double> p(amps_.size(), "the local probabilities");
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

  // This rank's share of alpha: its heavier entries, then its part of the tied entries, which
  // lower ranks (lower indices) fill first.
  const CvarCut cut = cvar_cut(p, alpha);
  double share = 1.0;  // the whole slice, when alpha exceeds the total mass
  if (cut.crossed) {
    const double t = std::bit_cast<double>(cut.threshold);
    double heavier = 0.0;
    for (double w : p) heavier += weight_key(w) > cut.threshold ? w : 0.0;
    const double left = alpha - cut.above - static_cast<double>(cut.ties_before) * t;
    share = std::min(1.0, heavier + std::clamp(left, 0.0, static_cast<double>(cut.ties) * t));
  }
  return sum_over_ranks(corvid::cvar(p, e, share), "");
}

DistributedState::CvarCut DistributedState::cvar_cut(std::span<const double> p,
                                                     double alpha) const {
  // The key of the entry that crosses alpha, one byte at a time from the top; `above` is the
  // mass of all heavier keys over all ranks.
  CvarCut cut;
  cut.crossed = true;
  for (int shift = 56; shift >= 0 && cut.crossed; shift -= 8) {
    // One histogram per chunk of the slice, in parallel (the chunks of the single-process
    // selection), summed in chunk order.
    const int chunks = chunk_count(p.size());
    std::vector<double> per_chunk(static_cast<std::size_t>(chunks) * 256, 0.0);
#pragma omp parallel for schedule(static, 1) num_threads(chunks)
    for (int c = 0; c < chunks; ++c) {
      double* h = &per_chunk[static_cast<std::size_t>(c) * 256];
      for (std::size_t i = chunk_begin(p.size(), chunks, c);
           i < chunk_begin(p.size(), chunks, c + 1); ++i) {
        const std::uint64_t key = weight_key(p[i]);
        if (shift < 56 && (key >> (shift + 8)) != (cut.threshold >> (shift + 8))) continue;
        h[(key >> shift) & 255] += p[i];
      }
    }
    std::vector<double> local(256, 0.0), total(256, 0.0);
    for (int c = 0; c < chunks; ++c) {
      for (int b = 0; b < 256; ++b) local[b] += per_chunk[static_cast<std::size_t>(c) * 256 + b];
    }
    check_mpi(MPI_Allreduce(local.data(), total.data(), 256, MPI_DOUBLE, MPI_SUM, comm_),
              "MPI_Allreduce", comm_);
    cut.crossed = false;
    for (int b = 255; b >= 0; --b) {
      if (cut.above + total[b] >= alpha) {
        cut.threshold |= std::uint64_t(b) << shift;
        cut.crossed = true;
        break;
      }
      cut.above += total[b];
    }
  }
  if (!cut.crossed) return cut;
  for (double w : p) cut.ties += weight_key(w) == cut.threshold;
  check_mpi(MPI_Exscan(&cut.ties, &cut.ties_before, 1, MPI_UINT64_T, MPI_SUM, comm_), "MPI_Exscan",
            comm_);
  if (rank_ == 0) cut.ties_before = 0;  // MPI leaves rank 0's result undefined
  return cut;
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

namespace {

// The terms with this rank's global bits folded into the signs of their coefficients; in the
// transposed layout, each mask's global bits and its top k local bits first trade places.
std::vector<PhaseTerm> local_terms(const DistributedState& state,
                                   std::span<const std::uint64_t> masks,
                                   std::span<const double> coeffs,
                                   Layout layout = Layout::kCanonical) {
  check_terms(masks, coeffs, static_cast<int>(state.num_qubits()), "qubit");
  const unsigned local = state.local_qubits();
  const unsigned global = state.num_qubits() - local;
  if (layout == Layout::kTransposed && local < global) {
    throw std::invalid_argument("the transposed layout needs at least as many local qubits (" +
                                std::to_string(local) + ") as global ones (" +
                                std::to_string(global) + ")");
  }
  const std::uint64_t low = (std::uint64_t{1} << local) - 1;
  const std::uint64_t field = (std::uint64_t{1} << global) - 1;
  const std::uint64_t rank = static_cast<std::uint64_t>(state.rank());
  std::vector<PhaseTerm> terms(masks.size());
  for (std::size_t t = 0; t < masks.size(); ++t) {
    std::uint64_t mask = masks[t];
    if (layout == Layout::kTransposed) {
      const std::uint64_t top = (mask >> (local - global)) & field;
      const std::uint64_t ranked = mask >> local;
      mask = (mask & (low >> global)) | (ranked << (local - global)) | (top << local);
    }
    const bool flip = (std::popcount((mask >> local) & rank) & 1) != 0;
    terms[t] = {mask & low, flip ? -coeffs[t] : coeffs[t]};
  }
  return terms;
}

}  // namespace

AlignedBuffer<double> local_z_energies(const DistributedState& state,
                                       std::span<const std::uint64_t> masks,
                                       std::span<const double> coeffs) {
  const std::vector<PhaseTerm> terms = local_terms(state, masks, coeffs);
  std::vector<std::uint64_t> local_masks(terms.size());
  std::vector<double> local_coeffs(terms.size());
  for (std::size_t t = 0; t < terms.size(); ++t) {
    local_masks[t] = terms[t].mask;
    local_coeffs[t] = terms[t].coefficient;
  }
  return energies_from_z_terms(static_cast<int>(state.local_qubits()), local_masks, local_coeffs);
}

DiagonalValues local_diagonal(const DistributedState& state, std::span<const std::uint64_t> masks,
                              std::span<const double> coeffs, Layout layout) {
  return DiagonalValues(state.local_qubits(), local_terms(state, masks, coeffs, layout));
}

}  // namespace corvid::dist
