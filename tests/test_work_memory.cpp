// Work memory: the aligned start of a work line and block ownership
// (every block committed is released exactly once, injected failures leak nothing).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/work_memory.h"
#include "test_os.h"

namespace {

using framedsp::WorkBlock;
using framedsp::WorkLine;

TEST(WorkMemory, AlignedStartForEveryOffset) {
  alignas(16) static uint8_t storage[64];
  for (uintptr_t offset = 0; offset < 16; ++offset) {
    uint8_t *p = storage + offset;
    uint8_t *start = framedsp::aligned_start(p);
    uint8_t *expected = offset == 0 ? storage : storage + 16;
    EXPECT_EQ(start, expected) << "offset " << offset;
  }
  EXPECT_EQ(framedsp::aligned_start(nullptr), nullptr);
}

// Every block committed is released once: by release() (twice is once), by a new allocate(), by
// the destructor; an empty owner (never allocated, released, or refused size 0) releases nothing.
TEST(WorkMemory, EachBlockIsReleasedExactlyOnce) {
  const auto before = framedsp::work_memory_stats();
  {
    WorkBlock released, reallocated, empty;
    ASSERT_TRUE(released.allocate(4096));
    released.release();
    EXPECT_FALSE(static_cast<bool>(released));
    EXPECT_EQ(released.data(), nullptr);
    released.release();
    ASSERT_TRUE(reallocated.allocate(100));
    ASSERT_TRUE(reallocated.allocate(200));  // gives the first block back
    EXPECT_EQ(reallocated.size(), 200u);
    const auto mid = framedsp::work_memory_stats();
    EXPECT_EQ(mid.allocations - before.allocations, 3u);
    EXPECT_EQ(mid.releases - before.releases, 2u);
    EXPECT_FALSE(empty.allocate(0));
    EXPECT_EQ(empty.data(), nullptr);
  }
  const auto after = framedsp::work_memory_stats();
  EXPECT_EQ(after.allocations - before.allocations, 3u);
  EXPECT_EQ(after.releases - before.releases, 3u);
}

TEST(WorkMemory, InjectedFailureOfTheKthAllocation) {
  const auto before = framedsp::work_memory_stats();
  framedsp::work_memory_fail_at(3);
  {
    WorkBlock a, b, c, d;
    EXPECT_TRUE(a.allocate(64));
    EXPECT_TRUE(b.allocate(64));
    EXPECT_FALSE(c.allocate(64));
    EXPECT_FALSE(static_cast<bool>(c));
    EXPECT_EQ(c.data(), nullptr);
    EXPECT_EQ(c.size(), 0u);
    EXPECT_TRUE(d.allocate(64));  // one failure only
  }
  const auto after = framedsp::work_memory_stats();
  EXPECT_EQ(after.allocations - before.allocations, 3u);
  EXPECT_EQ(after.allocations - before.allocations, after.releases - before.releases);

  framedsp::work_memory_fail_at(1);
  WorkLine line;
  EXPECT_FALSE(line.allocate(720));
  EXPECT_EQ(line.data(), nullptr);
  EXPECT_TRUE(line.allocate(720));
  framedsp::work_memory_fail_at(0);
}

// Blocks start on a page, lines on 16 bytes, and both hold every byte asked for (a short mapping
// faults).
TEST(WorkMemory, BlocksAndLinesAreAlignedAndHoldTheirWholeSize) {
  const size_t page = framedsp_test::page_size();
  for (size_t bytes : {size_t{1}, size_t{15}, size_t{17}, size_t{1440}, size_t{3841}, page - 1, page, page + 1,
                       size_t{1} << 20}) {
    WorkBlock block;
    WorkLine line;
    ASSERT_TRUE(block.allocate(bytes) && line.allocate(bytes)) << bytes;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block.data()) % page, 0u) << bytes;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(line.data()) % 16, 0u) << bytes;
    std::memset(block.data(), 0x5A, bytes);
    std::memset(line.data(), 0x5A, bytes);
  }
}

}  // namespace
