#include "corvid/util/parallel.h"

#include <omp.h>

#include <atomic>
#include <stdexcept>
#include <string>

namespace corvid {
namespace {

std::atomic<int> requested{0};  // 0: never set, OpenMP's default applies
thread_local int adopted = 0;   // the count this thread last handed to OpenMP

}  // namespace

void adopt_thread_count() {
  const int n = requested.load(std::memory_order_relaxed);
  if (n != 0 && n != adopted) {
    omp_set_num_threads(n);
    adopted = n;
  }
}

int num_threads() {
  adopt_thread_count();
  return omp_get_max_threads();
}

void set_num_threads(int n) {
  if (n < 1 || n > kMaxThreads) {
    throw std::invalid_argument("number of threads must be at least 1 and at most " +
                                std::to_string(kMaxThreads) + ", got " + std::to_string(n));
  }
  requested.store(n, std::memory_order_relaxed);
  adopt_thread_count();
}

}  // namespace corvid
