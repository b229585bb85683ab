// The activity kernels: every ISA against the scalar ones, the scalar block kernel against its
// definition as two plain SADs (the block against itself moved by a column and by a line), and the
// strip kernel's 8-column groups against the block kernel.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "analysis/motion_kernels.h"
#include "platform/cpu.h"
#include "motion_util.h"
#include "test_util.h"

namespace {

TEST(MotionActivityKernel, EveryIsaMatchesTheScalarKernelAndTheSadDefinition) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int kStride = 160, kLines = 72;
  std::vector<uint8_t> pic(kStride * kLines);
  for (int round = 0; round < 3000; ++round) {
    const int fill = round % 3;  // random, random 0 / 255, smooth
    for (size_t i = 0; i < pic.size(); ++i) pic[i] = fill == 0 ? rng() : fill == 1 ? (rng() & 1) * 255 : (i % kStride) / 3;
    const bool wide = round & 1;  // the 16-wide paths
    const uint32_t w = wide ? 16 : 1 + rng() % 64, h = 1 + rng() % 64;
    const uint32_t sx = wide ? 8u << (rng() & 1) : 1 + rng() % w, sy = 1 + rng() % h;
    const ptrdiff_t s = (rng() & 1) ? kStride : -kStride;
    const uint8_t *a = pic.data() + (s < 0 ? 70 * kStride : 0) + rng() % 16;
    uint32_t want[4], across[4], down[4];
    isa.scalar.activity4(a, s, w, h, sx, sy, want);
    isa.scalar.sad_q4(a, s, a + 1, s, w, h, 0, 0, sx, sy, across);
    isa.scalar.sad_q4(a, s, a + s, s, w, h, 0, 0, sx, sy, down);
    for (int q = 0; q < 4; ++q) ASSERT_EQ(want[q], across[q] + down[q]) << w << "x" << h << " part " << q;
    for (const framedsp::MotionKernels &k : isa.simd) {
      uint32_t got[4];
      k.activity4(a, s, w, h, sx, sy, got);
      for (int q = 0; q < 4; ++q) ASSERT_EQ(got[q], want[q]) << w << "x" << h << " split " << sx << "," << sy;
    }
    const uint32_t strip = 1 + rng() % 140, groups = (strip + 7) / 8;
    std::vector<uint32_t> top(groups), bottom(groups), top2(groups), bottom2(groups);
    isa.scalar.activity8(a, s, strip, h, sy, top.data(), bottom.data());
    const uint32_t g = rng() % groups, gw = std::min(8u, strip - 8 * g);
    isa.scalar.activity4(a + 8 * g, s, gw, h, gw, sy, want);
    ASSERT_EQ(top[g], want[0]) << "strip " << strip << " group " << g;
    ASSERT_EQ(bottom[g], want[2]) << "strip " << strip << " group " << g;
    for (const framedsp::MotionKernels &k : isa.simd) {
      k.activity8(a, s, strip, h, sy, top2.data(), bottom2.data());
      ASSERT_EQ(top, top2) << "strip " << strip << "x" << h;
      ASSERT_EQ(bottom, bottom2) << "strip " << strip << "x" << h;
    }
  }
}

}  // namespace
