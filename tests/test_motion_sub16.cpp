// sad_sub16 of every ISA against sad_avg4 over half-pixel planes made whole, on random and extreme
// pictures stored top-down and bottom-up.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "analysis/motion_search.h"
#include "motion_util.h"

TEST(MotionSub16, EveryIsaEqualsTheAverageOfWholePlanes) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int32_t kW = 48, kH = 80;
  std::vector<uint8_t> pic(kW * kH), src(16 * 64), memory(framedsp::HalfPlanes::bytes(kW, kH));
  for (int round = 0; round < 40; ++round) {
    const bool extreme = round % 2;  // 0 / 255 samples drive the filter to both clamps
    for (uint8_t &v : pic) v = static_cast<uint8_t>(extreme ? (rng() & 1) * 255 : rng());
    for (uint8_t &v : src) v = static_cast<uint8_t>(rng());
    const ptrdiff_t stride = round % 4 < 2 ? kW : -kW;
    const framedsp::MotionPlane p{pic.data() + (stride < 0 ? (kH - 1) * kW : 0), stride, kW, kH};
    framedsp::HalfPlanes half;
    framedsp::make_half_planes(isa.scalar, p, memory.data(), &half);
    for (int t = 0; t < 30; ++t) {
      const uint32_t kinds = rng() % 16, h = 1 + rng() % 64, sx = rng() % 2 ? 8 : 16, sy = 1 + rng() % h;
      const uint8_t *f[2], *b[2];
      for (int i = 0; i < 2; ++i) {
        const int32_t x = 2 + static_cast<int32_t>(rng() % (kW - 20)), y = 2 + static_cast<int32_t>(rng() % (kH - h - 4));
        const framedsp::MotionPlane &plane = half.p[(kinds >> (2 * i)) & 3];
        f[i] = p.data + y * stride + x;
        b[i] = plane.data + y * plane.stride + x;
      }
      uint32_t want[4], got[4];
      framedsp::sad_avg4_c(src.data(), 16, b[0], half.p[kinds & 3].stride, b[1], half.p[kinds >> 2].stride, 16, h,
                           sx, sy, want);
      for (const framedsp::MotionKernels *k : {&isa.scalar, &isa.simd[0], &isa.simd[1]}) {
        k->sad_sub16(src.data(), 16, f, stride, kinds, h, sx, sy, got);
        ASSERT_EQ(std::vector<uint32_t>(got, got + 4), std::vector<uint32_t>(want, want + 4))
            << "kinds " << kinds << " h " << h << " split " << sx << "," << sy << " round " << round;
      }
    }
  }
}

// Sources whose farthest reads (column 18 of line h + 2, or of line -2 bottom-up) end the
// buffer, a protected page after it: every ISA reads no further than its reach.
TEST(MotionSub16, ReadsEndAtTheReachOfTheFilters) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int32_t kW = 21;
  uint8_t src[16 * 17];
  for (uint8_t &v : src) v = static_cast<uint8_t>(rng());
  for (uint32_t h : {1u, 2u, 7u, 16u, 17u}) {
    framedsp_test::GuardedBuffer pic(kW * (h + 5), 0);
    framedsp_test::fill_random(pic.data(), pic.size(), rng);
    for (const ptrdiff_t stride : {ptrdiff_t{kW}, ptrdiff_t{-kW}}) {
      const uint8_t *line0 = pic.data() + (stride > 0 ? 2 : h + 2) * kW + 2;
      const uint8_t *f[2] = {line0, line0};
      for (uint32_t kinds = 0; kinds < 16; ++kinds) {
        uint32_t want[4], got[4];
        framedsp::sad_sub16_c(src, 16, f, stride, kinds, h, 8, (h + 1) / 2, want);
        for (const framedsp::MotionKernels *k : {&isa.simd[0], &isa.simd[1]}) {
          k->sad_sub16(src, 16, f, stride, kinds, h, 8, (h + 1) / 2, got);
          ASSERT_EQ(std::vector<uint32_t>(got, got + 4), std::vector<uint32_t>(want, want + 4))
              << "kinds " << kinds << " h " << h;
        }
      }
    }
  }
}
