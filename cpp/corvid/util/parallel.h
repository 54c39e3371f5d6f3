#pragma once
/// Parallelism policy: OpenMP threads are used only above a size threshold, where the work
/// outweighs the cost of waking the thread team, and the threads are shared among the calls
/// that run at the same time, so that a user's own threads never multiply the team.
///
/// The count a thread's teams get is
///   - the count of set_num_threads(), once called (process-wide);
///   - else the count someone else gave OpenMP on this thread (omp_set_num_threads, for example
///     through threadpoolctl);
///   - else OMP_NUM_THREADS or one per available core, at most the cores this process may use
///     (its affinity mask and its cgroup's CPU quota): an environment asking for more cannot
///     create thousands of threads;
/// divided among the machine runs in progress (each holds a ConcurrentRun), at least one.
/// OpenMP keeps the count per calling thread, so every thread brings its own count up to date
/// when it next asks (parallel_worthwhile or num_threads), just before it forks a team.

#include <cstddef>
#include <cstdint>

namespace corvid {

/// Loops over fewer elements than this run on the calling thread. Measured on the 2-core
/// machine with idle threads sleeping: p = 2 evaluations at n = 14, 15, 16 took 0.32, 0.47,
/// 0.71 ms on one thread against 0.42, 0.55, 0.73 ms on two; at n = 17 and 18, 1.09 and 1.94
/// against 0.99 and 1.53 ms.
inline constexpr std::size_t kParallelThreshold = std::size_t{1} << 17;

/// The largest thread count set_num_threads() accepts.
inline constexpr int kMaxThreads = 1024;

/// Brings the calling thread's OpenMP team size up to date (see above); returns it. A few
/// relaxed atomic loads when nothing changed.
int adopt_thread_count();

/// True when a loop over `n` elements should use the OpenMP team. Evaluated by the thread that
/// is about to fork, so it also brings that thread's team size up to date.
inline bool parallel_worthwhile(std::size_t n) {
  if (n < kParallelThreshold) return false;
  adopt_thread_count();
  return true;
}

/// Number of threads a team forked now by the calling thread has.
int num_threads();

/// Sets the number of threads kernels use, for every thread of the process; 1 <= n <=
/// kMaxThreads, else std::invalid_argument.
void set_num_threads(int n);

/// Cores this process may run on: its affinity mask, capped by its cgroup's CPU quota.
int available_cores();

/// Marks a run in progress for its lifetime; runs in progress share the threads.
class ConcurrentRun {
 public:
  ConcurrentRun();
  ~ConcurrentRun();
  ConcurrentRun(const ConcurrentRun&) = delete;
  ConcurrentRun& operator=(const ConcurrentRun&) = delete;
};

}  // namespace corvid
