// Sub-pixel motion: the half-pixel and averaging kernels against their scalar twins and formulas,
// and exact quarter-pixel vectors on a detailed translated texture.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "analysis/motion_kernels.h"
#include "platform/cpu.h"
#include "framedsp/framedsp.h"
#include "motion_util.h"
#include "test_util.h"

namespace {

using framedsp::MotionKernels;

TEST(MotionSubpelKernels, EveryIsaMatchesTheScalarKernels) {
  if (!(framedsp::simd_twins_built() & framedsp::cpu_flags())) GTEST_SKIP() << "no SIMD motion kernels";
  const motion_test::KernelsPerIsa isa;
  const auto &c = isa.scalar;
  const auto &simd = isa.simd;
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int kStride = 160, kLines = 80;
  std::vector<uint8_t> pic[3], want(kStride), got(kStride);
  for (int round = 0; round < 2000; ++round) {
    const int fill = round % 3;  // random, random 0 / 255, all 0 against all 255
    for (int p = 0; p < 3; ++p) {
      pic[p].resize(kStride * kLines);
      for (uint8_t &v : pic[p]) v = fill == 0 ? rng() : fill == 1 ? (rng() & 1) * 255 : (p ? 255 : 0);
    }
    const bool wide = round & 1;  // the 16-wide paths
    const uint32_t w = wide ? 16 : 1 + rng() % 64, h = 1 + rng() % 64;
    const uint32_t sx = wide ? 8u << (rng() & 1) : 1 + rng() % w, sy = 1 + rng() % h;
    auto origin = [&](int p, ptrdiff_t stride) { return pic[p].data() + (stride < 0 ? 70 * kStride : 0) + rng() % 16; };
    const ptrdiff_t sa = (rng() & 1) ? kStride : -kStride, sb = (rng() & 1) ? kStride : -kStride;
    const uint8_t *a = origin(0, sa), *b = origin(1, sb), *cc = (rng() & 3) ? origin(2, sb) : b;
    const size_t n = rng() % 150, at = 2 + rng() % 6;
    const uint8_t *rows[6];
    for (int i = 0; i < 6; ++i) rows[i] = pic[rng() % 3].data() + (rng() % kLines) * kStride + rng() % 8;
    for (const MotionKernels &s : simd) {
      uint32_t x[4], y[4];
      c.sad_avg4(a, sa, b, sb, cc, sb, w, h, sx, sy, x);
      s.sad_avg4(a, sa, b, sb, cc, sb, w, h, sx, sy, y);
      ASSERT_EQ(std::memcmp(x, y, sizeof x), 0) << w << "x" << h << " split " << sx << "," << sy;
      ASSERT_EQ(x[0] + x[1] + x[2] + x[3], c.sad_avg(a, sa, b, sb, cc, sb, w, h));
      uint32_t rx[9][4], ry[9][4];
      ptrdiff_t qs[4];
      const uint8_t *q[4];
      for (int i = 0; i < 4; ++i) qs[i] = (rng() & 1) ? kStride : -kStride, q[i] = origin(i % 3, qs[i]);
      const uint32_t mode = rng() % 3;
      c.sad_ring(a, sa, q, qs, mode, w, h, sx, sy, rx);
      s.sad_ring(a, sa, q, qs, mode, w, h, sx, sy, ry);
      ASSERT_EQ(std::memcmp(rx, ry, sizeof rx), 0) << "sad_ring mode " << mode << " " << w << "x" << h;
      c.half_h(pic[0].data() + at, want.data(), n);
      s.half_h(pic[0].data() + at, got.data(), n);
      ASSERT_EQ(std::memcmp(want.data(), got.data(), n), 0) << "half_h " << n;
      c.half_v(rows, want.data(), n);
      s.half_v(rows, got.data(), n);
      ASSERT_EQ(std::memcmp(want.data(), got.data(), n), 0) << "half_v " << n;
    }
  }
}

TEST(MotionSubpelKernels, HalfSamplesOfARampAreItsMidpointsAndEdgesClamp) {
  MotionKernels k;
  framedsp::motion_kernels_init(&k, framedsp::cpu_flags());
  std::vector<uint8_t> ramp(80), out(70);
  for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<uint8_t>(3 * i);
  k.half_h(ramp.data() + 2, out.data(), out.size());
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], 3 * i + 8) << i;  // 3i + 7.5, halves up
  const uint8_t *rows[6] = {&ramp[0], &ramp[1], &ramp[2], &ramp[3], &ramp[4], &ramp[5]};
  k.half_v(rows, out.data(), 40);
  for (size_t i = 0; i < 40; ++i) ASSERT_EQ(out[i], 3 * i + 8) << i;  // between lines 2 and 3
  // The filter under- and overshoots a step: clamped to 0..255.
  const uint8_t step[8] = {0, 0, 0, 0, 255, 255, 255, 255};
  uint8_t edge[3];
  k.half_h(step + 2, edge, 3);
  EXPECT_EQ(edge[0], 0);  // (-5 x 255 + 16) >> 5 < 0
  EXPECT_EQ(edge[1], 128);
  EXPECT_EQ(edge[2], 255);
}

// A detailed texture (24 sinusoids of 0.1 to 1.2 radians a pixel, about 40 grey levels of
// deviation) moved by quarter pixels: the blocks whose match lies inside the picture get the exact
// vector both ways, on every ISA level.
TEST(MotionSubpel, DetailedTranslationsGiveExactVectors) {
  constexpr int w = 256, h = 160;
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> u(0, 1);
  double wave[24][4];
  for (auto &v : wave) v[0] = 0.1 + 1.1 * u(rng), v[1] = 6.283185307179586 * u(rng), v[2] = 6.283185307179586 * u(rng), v[3] = 11 + 6 * u(rng);
  auto picture = [&](double dx, double dy) {
    std::vector<uint8_t> p(w * h);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        double v = 128;
        for (const auto &c : wave) v += c[3] * std::sin(c[0] * (std::cos(c[1]) * (x - dx) + std::sin(c[1]) * (y - dy)) + c[2]);
        p[y * w + x] = static_cast<uint8_t>(std::lround(std::fmin(255, std::fmax(0, v))));
      }
    return p;
  };
  const motion_test::Pyramid a(picture(0, 0), w, h, 4);
  for (const auto &[dx, dy] : {std::pair{1.25, -0.75}, {-2.5, 0.25}, {0.75, 3.5}, {-5.25, -1.5}}) {
    const motion_test::Pyramid b(picture(dx, dy), w, h, 4);
    for (uint32_t mask : {0u, static_cast<uint32_t>(framedsp::kCpuSSE2), ~0u}) {
      framedsp::set_cpu_mask(mask);
      std::vector<uint8_t> bytes(DSP_VECTOR_FIELD_BYTES(w, h, 8, 8));
      DSP_MOTION_VECTORS_PARAMS p{};
      p.pLevelsA = &a.list;
      p.pLevelsB = &b.list;
      p.pVectorField = bytes.data();
      p.ulVectorFieldBytes = static_cast<uint32_t>(bytes.size());
      p.ulBlockA = p.ulBlockB = 8;
      ASSERT_EQ(DspCreateMotionVectors(motion_test::converter(), &p), DSP_S_OK);
      const int n = (w / 8) * (h / 8);
      int exact = 0, counted = 0;
      for (int i = 0; i < 2 * n; ++i) {
        DSP_MOTION_VECTOR v;
        std::memcpy(&v, bytes.data() + 48 + 8 * i, 8);
        const double tx = i < n ? dx : -dx, ty = i < n ? dy : -dy;
        const int x = (i % n) % (w / 8) * 8, y = (i % n) / (w / 8) * 8;
        if (x + tx < 3 || y + ty < 3 || x + 8 + tx > w - 3 || y + 8 + ty > h - 3) continue;  // the filter's reach
        ++counted;
        exact += v.sX == std::lround(4 * tx) && v.sY == std::lround(4 * ty);
      }
      EXPECT_GE(exact, counted * 99 / 100) << "(" << dx << ", " << dy << ") mask " << mask;
    }
  }
  framedsp::set_cpu_mask(~0u);
}

}  // namespace
