#pragma once
/// A STREAM-style measurement of the memory bandwidth this process sees, so that simulation
/// timings can be read as multiples of the time one pass over the state must take.

#include <cstddef>

namespace corvid {

struct Bandwidth {
  double copy_bytes_per_second;   ///< b[i] = a[i]: bytes read plus bytes written, per second
  double triad_bytes_per_second;  ///< a[i] = b[i] + s·c[i]: 2 reads + 1 write per element
};

/// Best of `repetitions` runs over arrays of `bytes_per_array` bytes each (three arrays), using
/// the kernels' thread team. Allocation is refused with OutOfMemory when it does not fit.
Bandwidth measure_bandwidth(std::size_t bytes_per_array = std::size_t{256} << 20,
                            int repetitions = 5);

}  // namespace corvid
