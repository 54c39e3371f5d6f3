// Time per QAOA evaluation of the distributed state: uniform start, p phase-and-mixer layers,
// probabilities and the energy expectation, on a random graph's MaxCut-like ZZ terms.
// Usage: mpirun -n R evaluation_time N P [REPEATS]; rank 0 prints the slowest rank's time.
#include <mpi.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "corvid/dist/distributed_state.h"

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank = 0, ranks = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);
  if (argc < 3) {
    if (rank == 0) std::fprintf(stderr, "usage: evaluation_time N P [REPEATS]\n");
    MPI_Finalize();
    return 2;
  }
  const unsigned n = static_cast<unsigned>(std::stoul(argv[1]));
  const int layers = std::stoi(argv[2]);
  const int repeats = argc > 3 ? std::stoi(argv[3]) : 3;
  try {
    corvid::dist::DistributedState state(MPI_COMM_WORLD, n);
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
    const auto energies = corvid::dist::local_z_energies(state, masks, coeffs);
    double best = 1e300, loss = 0.0;
    for (int r = 0; r < repeats; ++r) {
      MPI_Barrier(MPI_COMM_WORLD);
      const auto start = std::chrono::steady_clock::now();
      state.set_uniform();
      for (int l = 0; l < layers; ++l) {
        state.apply_phase({energies.data(), energies.size()}, 0.3 + 0.1 * l);
        state.apply_x_mixer(0.4 - 0.05 * l);
      }
      const auto p = state.local_probabilities();
      loss = state.expectation({p.data(), p.size()}, {energies.data(), energies.size()});
      double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      double slowest = 0.0;
      MPI_Allreduce(&seconds, &slowest, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
      best = std::min(best, slowest);
    }
    // CVaR on its own: its selection passes come on top of an evaluation.
    double cvar_best = 1e300;
    const auto p = state.local_probabilities();
    for (int r = 0; r < repeats; ++r) {
      MPI_Barrier(MPI_COMM_WORLD);
      const auto start = std::chrono::steady_clock::now();
      state.cvar({p.data(), p.size()}, {energies.data(), energies.size()}, 0.1);
      double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      double slowest = 0.0;
      MPI_Allreduce(&seconds, &slowest, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
      cvar_best = std::min(cvar_best, slowest);
    }
    // Peak resident memory of the largest rank, against its slice of 16-byte amplitudes.
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    double peak_mib = static_cast<double>(usage.ru_maxrss) / 1024.0, max_peak_mib = 0.0;
    MPI_Reduce(&peak_mib, &max_peak_mib, 1, MPI_DOUBLE, MPI_MAX, 0, MPI_COMM_WORLD);
    if (rank == 0) {
      const double slice_mib = std::ldexp(16.0, static_cast<int>(state.local_qubits()) - 20);
      const double sent_mib = static_cast<double>(state.bytes_exchanged()) / repeats / (1 << 20);
      std::printf(
          "n=%u p=%d ranks=%d chunk=%zu ms/eval=%.1f cvar-ms=%.1f MiB-sent/eval/rank=%.1f "
          "slice-MiB=%.1f "
          "peak-MiB=%.1f loss=%.12f\n",
          n, layers, ranks, state.chunk_size(), 1e3 * best, 1e3 * cvar_best, sent_mib, slice_mib,
          max_peak_mib, loss);
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "rank %d: %s\n", rank, e.what());
    MPI_Finalize();
    return 1;
  }
  MPI_Finalize();
  return 0;
}
