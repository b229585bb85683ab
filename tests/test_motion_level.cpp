// The block search's SADs: 16 x 16 blocks (the search's own path) and bottom-up targets on every
// ISA against the scalar kernel; blocks reaching over a picture's edges against the clamped fetch;
// the median of vector components against a sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "analysis/motion_kernels.h"
#include "analysis/motion_search.h"
#include "platform/cpu.h"
#include "motion_util.h"
#include "test_util.h"

namespace {

TEST(MotionLevelKernels, SquareBlocksAndBottomUpTargetsOnEveryIsa) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  std::vector<uint8_t> a(64 * 64), b(64 * 64);
  for (int round = 0; round < 1000; ++round) {
    for (uint8_t &v : a) v = static_cast<uint8_t>(rng());
    for (uint8_t &v : b) v = static_cast<uint8_t>(rng() % 3 == 0 ? 255 * (rng() & 1) : rng());
    const uint32_t w = round % 2 ? 16 : 1 + rng() % 64, h = round % 4 == 1 ? 16 : 1 + rng() % 64;
    const ptrdiff_t sb = (rng() & 1) ? 64 : -64;
    const uint8_t *pb = b.data() + (sb < 0 ? 63 * 64 : 0);
    for (const framedsp::MotionKernels &s : isa.simd) {
      ASSERT_EQ(s.sad(a.data(), 64, pb, sb, w, h), isa.scalar.sad(a.data(), 64, pb, sb, w, h)) << w << "x" << h;
    }
  }
}

// Every edge and corner, targets narrower than the fast path's moves, blocks of every size.
TEST(MotionLevelKernels, EdgeBlocksMatchTheClampedFetch) {
  const motion_test::KernelsPerIsa isa;
  std::mt19937 rng(framedsp_test::test_seed());
  alignas(16) uint8_t fetched[framedsp::kFetchStride * framedsp::kLevelBlockMax];
  std::vector<uint8_t> src(32 * 32), pic(80 * 60);
  for (int round = 0; round < 2000; ++round) {
    for (uint8_t &v : src) v = static_cast<uint8_t>(rng());
    for (uint8_t &v : pic) v = static_cast<uint8_t>(rng());
    const framedsp::MotionPlane t{pic.data(), 80, round % 5 ? 32 + int32_t(rng() % 49) : 1 + int32_t(rng() % 31),
                                  1 + int32_t(rng() % 60)};
    framedsp::MotionBlock b;
    b.w = 1 + int32_t(rng() % 32), b.h = 1 + int32_t(rng() % 32), b.a = src.data(), b.a_stride = 32;
    const int32_t x = int32_t(rng() % (t.width + b.w + 8)) - b.w - 4, y = int32_t(rng() % (t.height + b.h + 8)) - b.h - 4;
    framedsp::fetch_clamped(t, x, y, b.w, b.h, fetched);
    const uint32_t want = isa.scalar.sad(src.data(), 32, fetched, framedsp::kFetchStride, uint32_t(b.w), uint32_t(b.h));
    ASSERT_EQ(framedsp::level_edge_sad(isa.scalar, b, t, x, y), want) << b.w << "x" << b.h << " at " << x << "," << y;
    ASSERT_EQ(framedsp::level_edge_sad(isa.simd[1], b, t, x, y), want) << b.w << "x" << b.h << " at " << x << "," << y;
  }
}

// Short ranges (counted) and long ones (selected), one value held by none to most of them (about
// half: either side of a majority), every count from 1.
TEST(MotionLevelKernels, MedianValueIsTheMiddleOfTheSortedValues) {
  std::mt19937 rng(framedsp_test::test_seed());
  for (int round = 0; round < 800; ++round) {
    const int32_t n = 1 + int32_t(rng() % 300), span = round % 3 == 0 ? 1 << 20 : 1 + int32_t(rng() % 1100);
    const uint32_t held = uint32_t(round % 4);  // in quarters
    std::vector<int32_t> v(size_t(n), int32_t(rng() % 7) - 3);
    for (int32_t &x : v) x = rng() % 4 >= held ? int32_t(rng() % uint32_t(span)) - span / 2 : x;
    std::vector<int32_t> sorted = v;
    std::sort(sorted.begin(), sorted.end());
    ASSERT_EQ(framedsp::median_value(v.data(), n), sorted[size_t(n / 2)]) << n << " values over " << span;
  }
}

}  // namespace
