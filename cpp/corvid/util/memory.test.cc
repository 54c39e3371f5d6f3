#include "corvid/util/memory.h"

#include <gmock/gmock.h>

#include <cstdint>

#include "corvid/util/aligned_buffer.h"
#include "corvid/util/errors.h"

namespace corvid {

TEST(Memory, RefusesBeforeAllocating) {
  EXPECT_THROW(require_memory(SIZE_MAX / 2, "state vector"), OutOfMemory);
  EXPECT_THAT([] { AlignedBuffer<double>(SIZE_MAX / 4, "state vector of 62 qubits"); },
              ::testing::ThrowsMessage<OutOfMemory>(::testing::HasSubstr("of 62 qubits needs")));
}

TEST(Memory, AlignedBufferIsAlignedAndMovable) {
  AlignedBuffer<double> a(1000);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.data()) % kBufferAlignment, 0u);
  a[999] = 3.0;
  AlignedBuffer<double> b = std::move(a);
  EXPECT_EQ(b.size(), 1000u);
  EXPECT_EQ(b[999], 3.0);
  EXPECT_EQ(a.data(), nullptr);
}

TEST(Memory, FormatsSizes) {
  EXPECT_EQ(format_bytes(512), "512.0 B");
  EXPECT_EQ(format_bytes(std::size_t{3} << 30), "3.0 GiB");
}

}  // namespace corvid
