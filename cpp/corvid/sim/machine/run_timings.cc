#include "corvid/sim/machine/run_timings.h"

#include <mutex>

namespace corvid {
namespace {

std::mutex latest_mutex;
RunTimings latest;

}  // namespace

RunTimings latest_run_timings() {
  std::lock_guard lock(latest_mutex);
  return latest;
}

void record_latest_run_timings(const RunTimings& timings) {
  std::lock_guard lock(latest_mutex);
  latest = timings;
}

}  // namespace corvid
