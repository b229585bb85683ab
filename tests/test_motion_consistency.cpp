// The consistency kernel: every ISA against the scalar one on random rows (any length, vectors
// reaching outside the picture), and only the flag bit ever changes.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "motion_util.h"
#include "test_util.h"

TEST(MotionConsistencyKernel, EveryIsaMatchesTheScalarKernel) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  for (int round = 0; round < 2000; ++round) {
    const uint32_t bw = 8 + rng() % 25, bh = 8 + rng() % 25, cols = 1 + rng() % 40, rows = 1 + rng() % 8;
    const int32_t spread = 1 << (rng() % 9);
    std::vector<int16_t> field(8 * cols * rows);
    for (int16_t &v : field) v = static_cast<int16_t>(static_cast<int32_t>(rng() % (2 * spread + 1)) - spread);
    const uint32_t n = (round & 1) ? 8 * (rng() % (cols / 8 + 1)) : rng() % (cols + 1);
    const int32_t last = static_cast<int32_t>(rng() % (4 * cols * bw));  // any column's centre
    const framedsp::ConsistencyRow r{static_cast<int32_t>(2 * bw + 2), static_cast<int32_t>(4 * bw), last,
                                     static_cast<int32_t>(4 * (rng() % rows) * bh + 2 * bh + 2), cols * bw, rows * bh,
                                     (1u << 20) / bw + 1, (1u << 20) / bh + 1, cols, 4, 0x100};
    std::vector<int16_t> want(field.begin(), field.begin() + 4 * cols), got = want;
    isa.scalar.consistency(reinterpret_cast<uint8_t *>(want.data()), reinterpret_cast<uint8_t *>(&field[4 * cols]), n, r);
    for (uint32_t j = 0; j < 4 * cols; ++j) ASSERT_EQ(want[j] & ~0x100, field[j] & ~0x100) << j;
    for (const framedsp::MotionKernels &k : isa.simd) {
      std::vector<int16_t> mine = got;
      k.consistency(reinterpret_cast<uint8_t *>(mine.data()), reinterpret_cast<uint8_t *>(&field[4 * cols]), n, r);
      ASSERT_EQ(mine, want) << "n " << n << " block " << bw << "x" << bh;
    }
  }
}
