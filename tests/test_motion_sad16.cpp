// The packed 16 x 16 SAD of every ISA against the general SAD, on random and extreme samples.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "motion_util.h"

TEST(MotionSad16, EveryIsaEqualsTheGeneralSad) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int kStride = 80;
  alignas(32) uint8_t a[256];
  std::vector<uint8_t> b(kStride * 40);
  for (int round = 0; round < 600; ++round) {
    const int fill = round % 3;  // random, random 0 / 255, all 255 against all 0
    for (uint8_t &v : a) v = fill == 0 ? rng() : fill == 1 ? (rng() & 1) * 255 : 255;
    for (uint8_t &v : b) v = fill == 0 ? rng() : fill == 1 ? (rng() & 1) * 255 : 0;
    const ptrdiff_t stride = (round & 1) ? kStride : -kStride;  // bottom-up targets too
    const uint8_t *at = b.data() + (stride < 0 ? 39 * kStride : 0) + rng() % 64;
    const uint32_t want = isa.scalar.sad(a, 16, at, stride, 16, 16);
    ASSERT_EQ(isa.scalar.sad16(a, at, stride), want);
    for (const framedsp::MotionKernels &s : isa.simd) ASSERT_EQ(s.sad16(a, at, stride), want) << round;
  }
}
