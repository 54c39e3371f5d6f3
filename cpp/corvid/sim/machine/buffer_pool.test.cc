// The buffer pool: reuse of free blocks only, bounds, and release under memory pressure.
#include "corvid/sim/machine/buffer_pool.h"

#include <gtest/gtest.h>

#include <vector>

#include "corvid/circuit/program.h"
#include "corvid/process_state.h"
#include "corvid/sim/machine/machine.h"
#include "corvid/util/errors.h"

namespace corvid {
namespace {

TEST(BufferPool, FreedBlockOfTheSameSizeIsReusedOthersAreNot) {
  release_cached_memory();
  const double* first;
  {
    PooledBuffer<double> a(1 << 16);
    first = a.data();
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % 64, 0u);
  }
  EXPECT_EQ(pooled_bytes(), (1u << 16) * sizeof(double));
  PooledBuffer<double> other_size(1 << 15);
  EXPECT_NE(other_size.data(), first);
  PooledBuffer<double> same(1 << 16);
  EXPECT_EQ(same.data(), first);
  EXPECT_EQ(pooled_bytes(), 0u);
}

TEST(BufferPool, KeepsABoundedNumberOfFreeBlocksUntilMemoryIsShort) {
  release_cached_memory();
  {
    std::vector<PooledBuffer<char>> held;
    for (std::size_t i = 0; i < kMaxPooledBlocks + 3; ++i) held.emplace_back(4096);
  }
  EXPECT_EQ(pooled_bytes(), kMaxPooledBlocks * 4096);
  // Memory pressure empties the pool and the diagonal cache.
  const std::vector<PhaseTerm> terms = {{0b11, 1.0}};
  cached_diagonal(terms, 10);
  ASSERT_GT(diagonal_cache_bytes(), 0u);
  release_cached_memory();
  EXPECT_EQ(diagonal_cache_bytes(), 0u);
  EXPECT_EQ(pooled_bytes(), 0u);
}

TEST(BufferPool, MovedBufferReturnsItsBlockOnce) {
  release_cached_memory();
  PooledBuffer<int> a(1024);
  PooledBuffer<int> b = std::move(a);
  EXPECT_EQ(a.data(), nullptr);
  b = PooledBuffer<int>();  // a moved-from and an emptied buffer return nothing more
  EXPECT_EQ(pooled_bytes(), 1024 * sizeof(int));
  EXPECT_THROW(PooledBuffer<double>(SIZE_MAX / 4), OutOfMemory);
}

TEST(BufferPool, TableHeldByACallerIsNeverHandedOutAgain) {
  release_cached_memory();
  Machine m(1);
  const auto q = m.allocate_qubits(12);
  Program p;
  p << Gate(GateKind::H, {q[0]});
  const ProbabilityTable held = m.probabilities(p, q);
  p << Gate(GateKind::X, {q[5]});
  ProbabilityTable next = m.probabilities(p, q);
  EXPECT_NE(held.values.data(), next.values.data());
  EXPECT_DOUBLE_EQ(held.values[1], 0.5);  // the first result is intact
  EXPECT_DOUBLE_EQ(next.values[1], 0.0);
  EXPECT_DOUBLE_EQ(next.values[1 + 32], 0.5);
  // Once the caller drops a table, a machine created afterwards reuses its block.
  const double* freed = next.values.data();
  { const ProbabilityTable gone = std::move(next); }
  Machine fresh(2);
  const auto r = fresh.allocate_qubits(12);
  EXPECT_EQ(fresh.probabilities(Program(), r).values.data(), freed);
}

}  // namespace
}  // namespace corvid
