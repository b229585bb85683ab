// ring_refine: every ISA gives the scalar result, a vector within the rings' reach whose sums are
// block_sad_sub4's at it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "analysis/motion_search.h"
#include "motion_util.h"

namespace {

TEST(MotionRing, EveryIsaRefinesLikeTheScalarKernelToItsOwnSums) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int32_t kW = 96, kH = 96;
  std::vector<uint8_t> pic(kW * kH), src(kW * kH), memory(framedsp::HalfPlanes::bytes(kW, kH));
  for (int round = 0; round < 300; ++round) {
    // Smooth pictures (a ramp plus noise) give rings with clear winners, noise gives ties.
    const int noise = round % 3 ? 8 : 256, tilt = static_cast<int>(rng() % 5);
    for (int32_t i = 0; i < kW * kH; ++i) pic[i] = static_cast<uint8_t>((i % kW) * tilt + (i / kW) + rng() % noise);
    for (uint8_t &v : src) v = static_cast<uint8_t>(rng());
    const framedsp::MotionPlane target{pic.data(), kW, kW, kH};
    framedsp::HalfPlanes half;
    framedsp::make_half_planes(isa.scalar, target, memory.data(), &half);
    framedsp::RingPlanes planes;
    for (int i = 0; i < 4; ++i) planes.data[i] = half.p[i].data, planes.stride[i] = half.p[i].stride;
    framedsp::MotionBlock b[2];
    framedsp::RingBlock rb[2];
    for (int j = 0; j < 2; ++j) {
      const bool wide = (round + j) & 1;  // the 16-wide paths
      const uint32_t w = wide ? 16 : 1 + rng() % 24, h = 1 + rng() % 24;
      const uint32_t sx = wide ? 8u << (rng() & 1) : 1 + rng() % w, sy = 1 + rng() % h;
      // Vectors reach 4 pixels, the rings 2 more.
      b[j].x = 6 + static_cast<int32_t>(rng() % 40), b[j].y = 6 + static_cast<int32_t>(rng() % 40);
      b[j].w = static_cast<int32_t>(w), b[j].h = static_cast<int32_t>(h);
      // The source block is the target's samples a few quarter pixels away, when not noise.
      b[j].a = round % 4 ? src.data() : pic.data() + (b[j].y + 1) * kW + b[j].x + 1, b[j].a_stride = kW;
      b[j].recip = framedsp::recip_of(w * h);
      const int32_t vx = 4 * static_cast<int32_t>(rng() % 9) - 16, vy = 4 * static_cast<int32_t>(rng() % 9) - 16;
      rb[j] = framedsp::RingBlock{b[j].a, b[j].a_stride, b[j].x, b[j].y, w, h, sx, sy, b[j].recip, vx, vy};
    }
    framedsp::RingBest want[2], got[2];
    isa.scalar.ring_refine(planes, rb, 2, want);
    for (int j = 0; j < 2; ++j) {
      ASSERT_LE(std::abs(want[j].vx - rb[j].vx), 3);
      ASSERT_LE(std::abs(want[j].vy - rb[j].vy), 3);
      uint32_t sums[4];
      framedsp::block_sad_sub4(isa.scalar, b[j], target, want[j].vx, want[j].vy, rb[j].sx, rb[j].sy, sums);
      ASSERT_EQ(std::memcmp(sums, want[j].sum, sizeof sums), 0) << rb[j].w << "x" << rb[j].h;
    }
    for (const framedsp::MotionKernels &k : isa.simd) {
      for (uint32_t n = 1; n <= 2; ++n) {
        k.ring_refine(planes, rb, n, got);
        ASSERT_EQ(std::memcmp(want, got, n * sizeof *want), 0) << n << " blocks, " << rb[0].w << "x" << rb[0].h;
      }
    }
  }
}

}  // namespace
