#pragma once
/// Parallelism policy: OpenMP threads are used only above a size threshold, where the work
/// outweighs the cost of waking the thread team.
///
/// set_num_threads() is process-wide. OpenMP itself keeps the thread count per calling thread,
/// so every thread adopts the process-wide count when it next asks (parallel_worthwhile or
/// num_threads), just before it forks a team.

#include <cstddef>
#include <cstdint>

namespace corvid {

/// Loops over fewer elements than this run on the calling thread.
inline constexpr std::size_t kParallelThreshold = std::size_t{1} << 14;

/// The largest thread count set_num_threads() accepts.
inline constexpr int kMaxThreads = 1024;

/// Applies the count of set_num_threads() to the calling thread's OpenMP teams, if it has not
/// yet. One atomic load when nothing changed.
void adopt_thread_count();

/// True when a loop over `n` elements should use the OpenMP team. Evaluated by the thread that
/// is about to fork, so it also brings that thread's team size up to date.
inline bool parallel_worthwhile(std::size_t n) {
  if (n < kParallelThreshold) return false;
  adopt_thread_count();
  return true;
}

/// Number of threads a team forked now by the calling thread has (OMP_NUM_THREADS or one per
/// core by default, else the value of set_num_threads).
int num_threads();

/// Sets the number of threads kernels use, for every thread of the process; 1 <= n <=
/// kMaxThreads, else std::invalid_argument.
void set_num_threads(int n);

}  // namespace corvid
