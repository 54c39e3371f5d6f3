#pragma once
/// Parallelism policy: OpenMP threads are used only above a size threshold, where the work
/// outweighs the cost of waking the thread team.

#include <cstddef>
#include <cstdint>

namespace corvid {

/// Loops over fewer elements than this run on the calling thread.
inline constexpr std::size_t kParallelThreshold = std::size_t{1} << 14;

/// True when a loop over `n` elements should use the OpenMP team.
inline bool parallel_worthwhile(std::size_t n) { return n >= kParallelThreshold; }

/// Number of threads kernels use (OMP_NUM_THREADS or set_num_threads).
int num_threads();

/// Sets the number of threads kernels use; n >= 1.
void set_num_threads(int n);

}  // namespace corvid
