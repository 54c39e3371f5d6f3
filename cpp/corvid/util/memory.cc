#include "corvid/util/memory.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "corvid/util/errors.h"

namespace corvid {
namespace {

std::size_t meminfo_available() {
  std::ifstream in("/proc/meminfo");
  std::string key;
  std::size_t kib = 0;
  std::string unit;
  while (in >> key >> kib >> unit) {
    if (key == "MemAvailable:") return kib * 1024;
  }
  return SIZE_MAX;
}

std::size_t read_number(const char* path) {
  std::ifstream in(path);
  std::string text;
  if (!(in >> text) || text == "max") return SIZE_MAX;
  return static_cast<std::size_t>(std::stoull(text));
}

std::size_t cgroup_headroom() {
  std::size_t limit = read_number("/sys/fs/cgroup/memory.max");
  if (limit == SIZE_MAX) return SIZE_MAX;
  std::size_t used = read_number("/sys/fs/cgroup/memory.current");
  if (used == SIZE_MAX || used >= limit) return 0;
  return limit - used;
}

}  // namespace

std::size_t available_memory_bytes() {
  std::size_t a = meminfo_available();
  std::size_t b = cgroup_headroom();
  return a < b ? a : b;
}

std::string format_bytes(std::size_t bytes) {
  const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(bytes);
  int u = 0;
  while (value >= 1024.0 && u < 6) {
    value /= 1024.0;
    ++u;
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f %s", value, units[u]);
  return buf;
}

void require_memory(std::size_t bytes, const std::string& what) {
  std::size_t available = available_memory_bytes();
  if (bytes <= available) return;
  std::ostringstream msg;
  msg << what << " needs " << format_bytes(bytes) << " but only " << format_bytes(available)
      << " of memory is available";
  throw OutOfMemory(msg.str());
}

namespace {

struct Hooks {
  std::mutex mutex;
  std::vector<void (*)()> hooks;
};

Hooks& hooks() {
  static Hooks h;
  return h;
}

}  // namespace

void add_memory_pressure_hook(void (*release)()) {
  std::lock_guard lock(hooks().mutex);
  auto& list = hooks().hooks;
  if (std::find(list.begin(), list.end(), release) == list.end()) list.push_back(release);
}

void release_cached_memory() {
  std::vector<void (*)()> list;
  {
    std::lock_guard lock(hooks().mutex);
    list = hooks().hooks;
  }
  for (auto release : list) release();  // outside the lock: a hook may take its own locks
}

void require_memory_releasing(std::size_t bytes, const std::string& what) {
  try {
    require_memory(bytes, what);
  } catch (const OutOfMemory&) {
    release_cached_memory();
    require_memory(bytes, what);
  }
}

}  // namespace corvid
