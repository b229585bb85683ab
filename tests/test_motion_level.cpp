// The block search's SADs: 16 x 16 blocks (the search's own path) and stride 0 (the edge line read
// for every line, over a picture's edge) on every ISA, against the scalar kernel and the sum of
// the lines one by one.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "analysis/motion_kernels.h"
#include "platform/cpu.h"
#include "motion_util.h"
#include "test_util.h"

namespace {

TEST(MotionLevelKernels, SquareBlocksAndStrideZeroOnEveryIsa) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  std::vector<uint8_t> a(64 * 64), b(64 * 64);
  for (int round = 0; round < 1000; ++round) {
    for (uint8_t &v : a) v = static_cast<uint8_t>(rng());
    for (uint8_t &v : b) v = static_cast<uint8_t>(rng() % 3 == 0 ? 255 * (rng() & 1) : rng());
    const uint32_t w = round % 2 ? 16 : 1 + rng() % 64, h = round % 4 == 1 ? 16 : 1 + rng() % 64;
    const ptrdiff_t sb = (rng() & 1) ? 64 : -64;
    const uint8_t *pb = b.data() + (sb < 0 ? 63 * 64 : 0);
    uint32_t lines = 0;
    for (uint32_t y = 0; y < h; ++y) lines += isa.scalar.sad(a.data() + 64 * y, 64, b.data(), 64, w, 1);
    ASSERT_EQ(isa.scalar.sad(a.data(), 64, b.data(), 0, w, h), lines) << w << "x" << h;
    for (const framedsp::MotionKernels &s : isa.simd) {
      ASSERT_EQ(s.sad(a.data(), 64, b.data(), 0, w, h), lines) << w << "x" << h;
      ASSERT_EQ(s.sad(a.data(), 64, pb, sb, w, h), isa.scalar.sad(a.data(), 64, pb, sb, w, h)) << w << "x" << h;
    }
  }
}

}  // namespace
