// The conversion kernels: every SIMD entry against the scalar one on random tiles, rows, weights
// and sources (reading from the end of a protected page), and the filter tables' invariants.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "platform/cpu.h"
#include "framerate/frc_kernels.h"
#include "test_util.h"

namespace {

using namespace framedsp;

std::vector<uint32_t> isa_levels() {
  std::vector<uint32_t> levels;
  for (uint32_t isa : {uint32_t(kCpuSSE2), uint32_t(kCpuSSE2 | kCpuAVX2)})
    if ((frc_isas_built() & isa) == isa && (cpu_flags() & isa) == isa) levels.push_back(isa);
  return levels;
}

TEST(FrameRateKernels, FilterRows) {
  for (uint32_t s = 0; s < 4; ++s) {
    const McFilter &f = mc_filter(s);
    for (int phase = 0; phase < kMcPhases; ++phase) {
      int sum = 0;
      for (int t = 0; t < kMcTaps; ++t) sum += f.rows[phase][t];
      EXPECT_EQ(sum, 16384) << s << "/" << phase;
    }
    for (int t = 0; t < kMcTaps; ++t) EXPECT_EQ(f.rows[0][t], t == kMcLead ? 16384 : 0) << s;
    for (int phase = 1; phase < kMcPhases; ++phase)  // mirror images about the half
      for (int t = 0; t < kMcTaps && s < 3; ++t)
        EXPECT_NEAR(f.rows[phase][t], f.rows[kMcPhases - phase][kMcTaps - 1 - t], 1) << s << "/" << phase;
  }
}

TEST(FrameRateKernels, SimdEqualsScalar) {
  const std::vector<uint32_t> levels = isa_levels();
  if (levels.empty()) GTEST_SKIP() << "no SIMD level on this machine or build";
  std::mt19937 rng(framedsp_test::test_seed());
  FrcKernels c;
  frc_kernels_init(&c, 0);
  for (uint32_t isa : levels) {
    FrcKernels k;
    frc_kernels_init(&k, isa);
    EXPECT_NE(k.tile, c.tile);
    for (int round = 0; round < 3000; ++round) {
      const int w = 1 + int(rng() % kMcMaxTile), h = 1 + int(rng() % kMcMaxTile), step = 1 + int(rng() % 2);
      const int stride = mc_read_width(w, step) + int(rng() % 9);
      const size_t bytes = size_t(h + kMcTaps - 2) * stride + mc_read_width(w, step);
      framedsp_test::GuardedBuffer src(bytes, 0);
      const int kind = round % 3;  // random, all 0, all 255
      if (kind == 0) framedsp_test::fill_random(src.data(), bytes, rng);
      else std::memset(src.data(), kind == 1 ? 0 : 255, bytes);
      const McFilter &f = mc_filter(rng() % 4);
      const int16_t *hr = f.rows[rng() % kMcPhases], *vr = f.rows[rng() % kMcPhases];
      int16_t want[kMcMaxTile * kMcMaxTile], got[kMcMaxTile * kMcMaxTile];
      c.tile(src.data(), stride, w, h, step, hr, vr, want);
      k.tile(src.data(), stride, w, h, step, hr, vr, got);
      for (int y = 0; y < h; ++y)
        ASSERT_EQ(0, std::memcmp(want + y * kMcMaxTile, got + y * kMcMaxTile, size_t(w) * 2))
            << "tile isa " << isa << " " << w << "x" << h << " step " << step << " seed " << framedsp_test::test_seed();
      const int n = 1 + int(rng() % 40), wa = int(rng() % 16385);
      uint8_t bw[48], bg[48];
      int16_t a[48], b[48];
      for (int i = 0; i < n; ++i) a[i] = int16_t(int(rng() % 26000) - 3000), b[i] = int16_t(int(rng() % 26000) - 3000);
      c.blend(a, b, n, wa, 16384 - wa, bw);
      k.blend(a, b, n, wa, 16384 - wa, bg);
      ASSERT_EQ(0, std::memcmp(bw, bg, size_t(n))) << "blend isa " << isa << " n " << n;
    }
  }
}

// A whole-pixel phase reproduces the source (in Q6), whatever the filter.
TEST(FrameRateKernels, WholePixelTileIsTheSource) {
  std::mt19937 rng(3);
  uint8_t src[40 * 48];
  framedsp_test::fill_random(src, sizeof src, rng);
  for (uint32_t isa : {0u, uint32_t(kCpuSSE2), ~0u}) {
    FrcKernels k;
    frc_kernels_init(&k, isa & cpu_flags());
    for (uint32_t s = 0; s < 4; ++s) {
      int16_t out[kMcMaxTile * kMcMaxTile];
      k.tile(src, 48, 17, 9, 1, mc_filter(s).rows[0], mc_filter(s).rows[0], out);
      for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 17; ++x) ASSERT_EQ(out[y * kMcMaxTile + x], 64 * src[(y + 2) * 48 + x + 2]);
    }
  }
}

}  // namespace
