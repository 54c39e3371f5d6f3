// Time per QAOA evaluation of the distributed state: uniform start, p phase-and-mixer layers
// (X mixer, or the XY ring mixer), and the energy expectation straight from the amplitudes, on a
// random graph's MaxCut-like ZZ terms (the diagonal kept as 8-bit level indices). With
// `evaluation` the same ansatz runs through QaoaEvaluation::loss, the path Python takes.
// Usage: mpirun -n R evaluation_time N P [REPEATS] [x|xy-ring] [state|evaluation]; rank 0
// prints one table row.
#include <mpi.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "corvid/dist/distributed_state.h"
#include "corvid/dist/qaoa_evaluation.h"

namespace {

double slowest_rank(double value) {
  double out = 0.0;
  MPI_Allreduce(&value, &out, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank = 0, ranks = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);
  if (argc < 3) {
    if (rank == 0) std::fprintf(stderr, "usage: evaluation_time N P [REPEATS] [x|xy-ring]\n");
    MPI_Finalize();
    return 2;
  }
  const unsigned n = static_cast<unsigned>(std::stoul(argv[1]));
  const int layers = std::stoi(argv[2]);
  const int repeats = argc > 3 ? std::stoi(argv[3]) : 3;
  const bool xy = argc > 4 && std::string(argv[4]) == "xy-ring";
  const bool through_evaluation = argc > 5 && std::string(argv[5]) == "evaluation";
  try {
    std::mt19937_64 rng(7);
    std::uniform_int_distribution<unsigned> qubit(0, n - 1);
    std::vector<std::uint64_t> masks;
    std::vector<double> coeffs;
    while (masks.size() < 3 * n / 2) {
      const unsigned a = qubit(rng), b = qubit(rng);
      if (a == b) continue;
      masks.push_back((std::uint64_t{1} << a) | (std::uint64_t{1} << b));
      coeffs.push_back(0.5);
    }
    std::vector<std::pair<unsigned, unsigned>> ring;
    for (unsigned first : {0u, 1u}) {
      for (unsigned i = first; i + 1 < n; i += 2) ring.emplace_back(i, i + 1);
    }
    ring.emplace_back(n - 1, 0);
    // Only the path being measured is built, so that the peak is its own.
    std::optional<corvid::dist::DistributedState> own_state;
    std::optional<corvid::DiagonalValues> diagonal, transposed;
    corvid::dist::DistributedAnsatz ansatz;
    std::optional<corvid::dist::QaoaEvaluation> evaluation;
    std::vector<double> angles(2 * layers);
    for (int l = 0; l < layers; ++l) {
      angles[l] = 0.3 + 0.1 * l;
      angles[layers + l] = 0.4 - 0.05 * l;
    }
    if (through_evaluation) {
      const corvid::TermList terms{masks, coeffs};
      evaluation.emplace(MPI_COMM_WORLD, n, terms, corvid::dist::EnergyForm::kZTerms, terms,
                         xy ? std::optional(ring) : std::nullopt);
    } else {
      own_state.emplace(MPI_COMM_WORLD, n);
      diagonal.emplace(corvid::dist::local_diagonal(*own_state, masks, coeffs));
      // The X mixer keeps its transposed layout between layers.
      if (!xy && own_state->keeps_x_layout()) {
        transposed.emplace(corvid::dist::local_diagonal(*own_state, masks, coeffs,
                                                        corvid::dist::Layout::kTransposed));
      }
      ansatz = {&*diagonal, &*diagonal, xy ? std::optional(ring) : std::nullopt, std::nullopt,
                transposed ? &*transposed : nullptr};
    }
    const corvid::dist::DistributedState& state = evaluation ? evaluation->state() : *own_state;
    double best = 1e300, loss = 0.0;
    std::uint64_t sent_per_layer = 0;
    for (int r = 0; r < repeats; ++r) {
      MPI_Barrier(MPI_COMM_WORLD);
      const auto start = std::chrono::steady_clock::now();
      const std::uint64_t sent_before = state.bytes_exchanged();
      if (evaluation) {
        loss = evaluation->loss(angles, {});
      } else {
        own_state->run_ansatz(ansatz, angles);
        loss = own_state->expectation(*diagonal);
      }
      const double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      best = std::min(best, slowest_rank(seconds));
      sent_per_layer = (state.bytes_exchanged() - sent_before) / layers;
    }
    // Peak resident memory (VmHWM) of the largest rank, MPI's own included.
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double peak_mib = slowest_rank(static_cast<double>(usage.ru_maxrss) / 1024.0);
    const double max_sent = slowest_rank(static_cast<double>(sent_per_layer)) / (1 << 20);
    if (rank == 0) {
      const double slice_mib = std::ldexp(16.0, static_cast<int>(state.local_qubits()) - 20);
      // The least any layout can send per layer: every amplitude whose global qubits must meet
      // other values leaves its rank once, (1 - 1/R) of the slice (one transposition per layer,
      // the permuted layout kept). The X mixer sends that (the uniform start is the same in
      // both layouts, so no transposition back is needed for odd p).
      const double minimum_mib = slice_mib * (1.0 - 1.0 / ranks);
      std::printf(
          "| %u | %d | %s%s | %d | %.0f | %.0f | %.0f | %.2f | %.0f | %.0f | %.2f | %.12f |\n", n,
          ranks, xy ? "XY ring" : "X", through_evaluation ? " (QaoaEvaluation)" : "", layers,
          1e3 * best, max_sent, minimum_mib, minimum_mib > 0 ? max_sent / minimum_mib : 0.0,
          slice_mib, peak_mib, peak_mib / slice_mib, loss);
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "rank %d: %s\n", rank, e.what());
    MPI_Finalize();
    return 1;
  }
  MPI_Finalize();
  return 0;
}
