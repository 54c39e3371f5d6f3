#include "corvid/util/interrupt.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "corvid/util/errors.h"

namespace corvid {
namespace {

using Clock = std::chrono::steady_clock;

class Interrupt : public ::testing::Test {
 protected:
  void TearDown() override { set_interrupt_check({}); }

  // Polls until the installed check is consulted and throws; returns how long that took.
  static Clock::duration time_until_interrupted() {
    const auto start = Clock::now();
    for (;;) {
      try {
        throw_if_interrupted();
      } catch (const Interrupted&) {
        return Clock::now() - start;
      }
      if (Clock::now() - start > std::chrono::seconds(2)) return Clock::duration::max();
    }
  }
};

TEST_F(Interrupt, ChecksAreRateLimited) {
  std::atomic<int> calls{0};
  set_interrupt_check([&] {
    ++calls;
    return false;
  });
  const auto start = Clock::now();
  while (Clock::now() - start < std::chrono::milliseconds(120)) throw_if_interrupted();
  // Millions of polls in 120 ms, but the check itself runs at most once per interval.
  EXPECT_GE(calls.load(), 1);
  EXPECT_LE(calls.load(), 4);
}

TEST_F(Interrupt, RemovedOrReplacedCheckNoLongerFires) {
  set_interrupt_check([] { return true; });
  set_interrupt_check({});
  std::this_thread::sleep_for(kInterruptPollInterval);
  EXPECT_NO_THROW(throw_if_interrupted());

  set_interrupt_check([] { return true; });
  set_interrupt_check([] { return false; });
  std::this_thread::sleep_for(kInterruptPollInterval);
  EXPECT_NO_THROW(throw_if_interrupted());
}

TEST_F(Interrupt, StopsWithinOnePollIntervalOnEveryThread) {
  set_interrupt_check([] { return true; });
  EXPECT_LT(time_until_interrupted(), kInterruptPollInterval + std::chrono::milliseconds(20));
  // The main thread polled just now; a thread that has never polled must still poll at once.
  bool stopped_at_once = false;
  std::thread worker([&] {
    try {
      throw_if_interrupted();
    } catch (const Interrupted&) {
      stopped_at_once = true;
    }
  });
  worker.join();
  EXPECT_TRUE(stopped_at_once);
}

}  // namespace
}  // namespace corvid
