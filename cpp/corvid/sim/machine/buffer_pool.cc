#include "corvid/sim/machine/buffer_pool.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <vector>

#include "corvid/util/errors.h"
#include "corvid/util/memory.h"

namespace corvid {
namespace {

constexpr std::size_t kAlignment = 64;
constexpr std::size_t kHugePage = std::size_t{2} << 20;

struct Block {
  void* data;
  std::size_t bytes;
};

void free_all(std::vector<Block>& blocks) {
  for (const Block& b : blocks) std::free(b.data);
  blocks.clear();
}

// False once the pool is destroyed at exit: a buffer released after that is freed directly.
std::atomic<bool> pool_alive{false};

struct Pool {
  std::mutex mutex;
  std::vector<Block> free;  // oldest first
  std::size_t bytes = 0;

  Pool() {
    add_memory_pressure_hook(&release_pooled_blocks);
    pool_alive = true;
  }
  ~Pool() {
    pool_alive = false;
    std::lock_guard lock(mutex);
    free_all(free);
  }
};

Pool& pool() {
  static Pool p;
  return p;
}

std::size_t rounded(std::size_t bytes) {
  return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

void* allocate(std::size_t bytes) {
  // Large blocks are aligned to huge pages so that the kernel can back them with 2 MiB pages.
  const std::size_t alignment = bytes >= kHugePage ? kHugePage : kAlignment;
  const std::size_t size = (bytes + alignment - 1) / alignment * alignment;
  void* p = std::aligned_alloc(alignment, size);
  if (p == nullptr) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
  if (alignment == kHugePage) madvise(p, size, MADV_HUGEPAGE);  // advice only: failure is fine
#endif
  return p;
}

// The pooled free block of exactly `bytes` (rounded), or end(); call with the mutex held.
std::vector<Block>::iterator pooled_block(Pool& p, std::size_t bytes) {
  return std::find_if(p.free.begin(), p.free.end(),
                      [&](const Block& b) { return b.bytes == bytes; });
}

}  // namespace

void* acquire_block(std::size_t bytes, const std::string& what) {
  if (bytes > SIZE_MAX - kHugePage) require_memory(SIZE_MAX, what);  // throws OutOfMemory
  bytes = rounded(bytes);
  Pool& p = pool();
  {
    std::lock_guard lock(p.mutex);
    if (auto it = pooled_block(p, bytes); it != p.free.end()) {
      void* data = it->data;
      p.bytes -= it->bytes;
      p.free.erase(it);
      return data;
    }
  }
  require_memory_releasing(bytes, what);
  return allocate(bytes);
}

void require_block(std::size_t bytes, const std::string& what) {
  if (bytes > SIZE_MAX - kHugePage) require_memory(SIZE_MAX, what);  // throws OutOfMemory
  {
    std::lock_guard lock(pool().mutex);
    if (pooled_block(pool(), rounded(bytes)) != pool().free.end()) return;
  }
  require_memory_releasing(bytes, what);
}

void release_block(void* block, std::size_t bytes) noexcept {
  if (!pool_alive) return std::free(block);
  bytes = rounded(bytes);
  Pool& p = pool();
  std::vector<Block> dropped;
  {
    std::lock_guard lock(p.mutex);
    p.free.push_back({block, bytes});
    p.bytes += bytes;
    const std::size_t budget = available_memory_bytes() / 2;
    while (!p.free.empty() && (p.free.size() > kMaxPooledBlocks || p.bytes > budget)) {
      dropped.push_back(p.free.front());
      p.bytes -= p.free.front().bytes;
      p.free.erase(p.free.begin());
    }
  }
  free_all(dropped);
}

void release_pooled_blocks() {
  std::vector<Block> dropped;
  {
    std::lock_guard lock(pool().mutex);
    dropped.swap(pool().free);
    pool().bytes = 0;
  }
  free_all(dropped);
}

std::size_t pooled_bytes() {
  std::lock_guard lock(pool().mutex);
  return pool().bytes;
}

}  // namespace corvid
