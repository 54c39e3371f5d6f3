#include "corvid/util/interrupt.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "corvid/util/errors.h"

namespace corvid {
namespace {

using Clock = std::chrono::steady_clock;
using Check = std::function<bool()>;

std::mutex check_mutex;
std::shared_ptr<const Check> installed_check;  // guarded by check_mutex
std::atomic<bool> has_check{false};

// Per thread: each caller paces its own polls, so a busy thread cannot starve another's.
thread_local Clock::time_point last_poll{};

std::shared_ptr<const Check> current_check() {
  std::lock_guard lock(check_mutex);
  return installed_check;
}

}  // namespace

void set_interrupt_check(Check check) {
  auto replacement = check ? std::make_shared<const Check>(std::move(check)) : nullptr;
  std::lock_guard lock(check_mutex);
  has_check.store(replacement != nullptr, std::memory_order_release);
  installed_check = std::move(replacement);
}

void throw_if_interrupted() {
  if (!has_check.load(std::memory_order_acquire)) return;
  const Clock::time_point now = Clock::now();
  if (now - last_poll < kInterruptPollInterval) return;
  last_poll = now;
  // The check runs without the lock (it may wait for a host lock such as Python's GIL); the
  // shared pointer keeps it alive even if it is replaced meanwhile.
  const std::shared_ptr<const Check> check = current_check();
  if (check && (*check)()) throw Interrupted();
}

}  // namespace corvid
