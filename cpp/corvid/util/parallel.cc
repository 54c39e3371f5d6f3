#include "corvid/util/parallel.h"

#include <omp.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>

namespace corvid {
namespace {

std::atomic<int> requested{0};           // 0: set_num_threads was never called
std::atomic<unsigned> request_count{0};  // bumped by every set_num_threads
std::atomic<int> runs_in_progress{0};

// The calling thread's view: the count it bases its share on, the count it last gave OpenMP
// and the request it last saw.
thread_local int base = 0;
thread_local int given = 0;
thread_local unsigned seen_request = ~0u;

int affinity_cores() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) != 0) return omp_get_num_procs();
  return std::max(1, CPU_COUNT(&set));
}

// cgroup v2 "cpu.max": "<quota> <period>" or "max <period>". Read once: quotas rarely change
// under a running process, and a mistake only costs speed.
int quota_cores() {
  std::ifstream file("/sys/fs/cgroup/cpu.max");
  std::string quota;
  double period = 0;
  if (!(file >> quota >> period) || quota == "max" || period <= 0) return kMaxThreads;
  try {
    const double cores = std::stod(quota) / period;
    return std::clamp(static_cast<int>(cores + 0.999), 1, kMaxThreads);
  } catch (const std::exception&) {
    return kMaxThreads;
  }
}

}  // namespace

int available_cores() {
  static const int cores = std::min({affinity_cores(), quota_cores(), kMaxThreads});
  return cores;
}

int adopt_thread_count() {
  const int current = omp_get_max_threads();
  const unsigned request = request_count.load(std::memory_order_relaxed);
  if (request != seen_request) {
    seen_request = request;
    const int n = requested.load(std::memory_order_relaxed);
    base = n != 0 ? n : std::clamp(current, 1, available_cores());
  } else if (current != given) {
    base = std::clamp(current, 1, kMaxThreads);  // changed by someone else on this thread
  }
  const int runs = std::max(1, runs_in_progress.load(std::memory_order_relaxed));
  const int share = std::max(1, base / runs);
  if (share != current) omp_set_num_threads(share);
  given = share;
  return share;
}

int num_threads() { return adopt_thread_count(); }

void set_num_threads(int n) {
  if (n < 1 || n > kMaxThreads) {
    throw std::invalid_argument("number of threads must be at least 1 and at most " +
                                std::to_string(kMaxThreads) + ", got " + std::to_string(n));
  }
  requested.store(n, std::memory_order_relaxed);
  request_count.fetch_add(1, std::memory_order_relaxed);
  adopt_thread_count();
}

ConcurrentRun::ConcurrentRun() { runs_in_progress.fetch_add(1, std::memory_order_relaxed); }
ConcurrentRun::~ConcurrentRun() { runs_in_progress.fetch_sub(1, std::memory_order_relaxed); }

}  // namespace corvid
