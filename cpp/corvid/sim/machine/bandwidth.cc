#include "corvid/sim/machine/bandwidth.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <stdexcept>

#include "corvid/util/aligned_buffer.h"

namespace corvid {
namespace {

template <class Body>
double seconds(Body body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

Bandwidth measure_bandwidth(std::size_t bytes_per_array, int repetitions) {
  if (repetitions < 1) throw std::invalid_argument("repetitions must be at least 1");
  const std::size_t count = std::max<std::size_t>(bytes_per_array / sizeof(double), 1);
  AlignedBuffer<double> a(count, "bandwidth buffer"), b(count, "bandwidth buffer"),
      c(count, "bandwidth buffer");
  double* pa = a.data();
  double* pb = b.data();
  double* pc = c.data();
  const auto n = static_cast<std::int64_t>(count);
#pragma omp parallel for schedule(static)
  for (std::int64_t i = 0; i < n; ++i) pa[i] = pb[i] = pc[i] = 1.0;

  double best_copy = 1e300, best_triad = 1e300;
  for (int r = 0; r < repetitions; ++r) {
    best_copy = std::min(best_copy, seconds([&] {
#pragma omp parallel for schedule(static)
                           for (std::int64_t i = 0; i < n; ++i) pb[i] = pa[i];
                         }));
    best_triad = std::min(best_triad, seconds([&] {
#pragma omp parallel for schedule(static)
                            for (std::int64_t i = 0; i < n; ++i) pa[i] = pb[i] + 0.5 * pc[i];
                          }));
  }
  const double bytes = static_cast<double>(count * sizeof(double));
  return {2 * bytes / best_copy, 3 * bytes / best_triad};
}

}  // namespace corvid
