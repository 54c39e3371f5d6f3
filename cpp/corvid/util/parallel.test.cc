#include "corvid/util/parallel.h"

#include <gtest/gtest.h>

#include <omp.h>

#include <stdexcept>
#include <thread>

namespace corvid {
namespace {

// Size of the team that a kernel-style region over n items forked by the calling thread gets.
int team_size(std::size_t n = kParallelThreshold) {
  int size = 0;
#pragma omp parallel if (parallel_worthwhile(n))
  {
#pragma omp single
    size = omp_get_num_threads();
  }
  return size;
}

class ThreadCount : public ::testing::Test {
 protected:
  void SetUp() override { before_ = num_threads(); }
  void TearDown() override { set_num_threads(before_); }
  int before_ = 1;
};

TEST_F(ThreadCount, RefusesCountsOutsideTheRange) {
  for (int n : {0, -1, kMaxThreads + 1}) EXPECT_THROW(set_num_threads(n), std::invalid_argument);
  EXPECT_EQ(num_threads(), before_);
}

TEST_F(ThreadCount, AppliesToEveryThreadOfTheProcess) {
  for (int n : {1, 2, 3}) {
    set_num_threads(n);
    EXPECT_EQ(team_size(), n);
    EXPECT_EQ(team_size(kParallelThreshold - 1), 1);  // small loops stay on the calling thread
    // OpenMP alone would leave a thread that did not make the call at its default count.
    int seen = 0, team = 0;
    std::thread other([&] {
      seen = num_threads();
      team = team_size();
    });
    other.join();
    EXPECT_EQ(seen, n);
    EXPECT_EQ(team, n);
  }
}

TEST_F(ThreadCount, RunsInProgressShareTheThreads) {
  set_num_threads(4);
  {
    const ConcurrentRun first;
    EXPECT_EQ(team_size(), 4);
    const ConcurrentRun second;
    EXPECT_EQ(team_size(), 2);
  }
  EXPECT_EQ(team_size(), 4);
}

TEST_F(ThreadCount, KeepsACountGivenToOpenMPElsewhere) {
  set_num_threads(3);
  omp_set_num_threads(1);  // as threadpoolctl does on the calling thread
  EXPECT_EQ(num_threads(), 1);
  set_num_threads(2);  // a later request wins again
  EXPECT_EQ(num_threads(), 2);
}

}  // namespace
}  // namespace corvid
