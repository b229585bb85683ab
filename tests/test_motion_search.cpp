// The motion search's quadrant and bilateral kernels against their scalar twins, and the search
// paths the translation tests do not reach: the exhaustive window, the global candidate that
// carries flat areas, and half-pixel motion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "analysis/motion_kernels.h"
#include "platform/cpu.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp::MotionKernels;

TEST(MotionQuadKernels, EveryIsaMatchesTheScalarKernels) {
  if (!(framedsp::motion_isas_built() & framedsp::cpu_flags())) GTEST_SKIP() << "no SIMD motion kernels";
  MotionKernels c, simd[2];
  framedsp::motion_kernels_init(&c, 0);
  framedsp::motion_kernels_init(&simd[0], framedsp::kCpuSSE2 & framedsp::cpu_flags());
  framedsp::motion_kernels_init(&simd[1], framedsp::cpu_flags());
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int kStride = 160;
  std::vector<uint8_t> a(kStride * 80), f(kStride * 80);
  for (int round = 0; round < 4000; ++round) {
    const int fill = round % 3;  // random, 0 against 255, random 0/255
    for (size_t i = 0; i < a.size(); ++i) {
      a[i] = fill == 0 ? rng() : fill == 1 ? 0 : (rng() & 1) * 255;
      f[i] = fill == 0 ? rng() : fill == 1 ? 255 : (rng() & 1) * 255;
    }
    // Half the rounds take the 16-wide paths (split after 8 columns, or not by columns).
    const bool wide = round & 1;
    const uint32_t w = wide ? 16 : 1 + rng() % 64, h = 1 + rng() % 64;
    const uint32_t sx = wide ? 8u << (rng() & 1) : 1 + rng() % w, sy = 1 + rng() % h, fx = rng() % 4, fy = rng() % 4;
    const ptrdiff_t sa = (rng() & 1) ? kStride : -kStride, sf = (rng() & 1) ? kStride : -kStride;
    // One line and column of margin before the block (sad_b4 reads them).
    const uint8_t *pa = a.data() + (sa < 0 ? 70 * kStride : kStride) + 1 + rng() % 16;
    const uint8_t *pf = f.data() + (sf < 0 ? 70 * kStride : kStride) + 1 + rng() % 16;
    uint32_t want[4], got[4];
    for (const MotionKernels &s : simd) {
      c.sad_q4(pa, sa, pf, sf, w, h, fx, fy, sx, sy, want);
      s.sad_q4(pa, sa, pf, sf, w, h, fx, fy, sx, sy, got);
      ASSERT_EQ(std::memcmp(want, got, sizeof want), 0) << "sad_q4 " << w << "x" << h << " split " << sx << "," << sy;
      // The parts add up to the whole block.
      ASSERT_EQ(want[0] + want[1] + want[2] + want[3], c.sad_q(pa, sa, pf, sf, w, h, fx, fy));
      c.sad_b4(pa, sa, pf, sf, w, h, fx, fy, sx, sy, want);
      s.sad_b4(pa, sa, pf, sf, w, h, fx, fy, sx, sy, got);
      ASSERT_EQ(std::memcmp(want, got, sizeof want), 0)
          << "sad_b4 " << w << "x" << h << " split " << sx << "," << sy << " phase " << fx << "," << fy;
    }
  }
}

TEST(MotionQuadKernels, BilateralSamplesMeetTheirFormula) {
  MotionKernels c;
  framedsp::motion_kernels_init(&c, 0);
  // 2x2 pictures, block of one sample at (1, 1) of a, at (0, 0) of f.
  const uint8_t a[4] = {10, 20, 30, 40}, f[4] = {50, 90, 70, 0};
  uint32_t out[4];
  c.sad_b4(a + 3, 2, f, 2, 1, 1, 0, 0, 1, 1, out);
  EXPECT_EQ(out[0], 10u);  // whole pixels: |40 - 50|
  // Fraction (1, 2): a at (1 - 1/8, 1 - 2/8), f at (1/8, 2/8).
  c.sad_b4(a + 3, 2, f, 2, 1, 1, 1, 2, 1, 1, out);
  const int pa = (7 * 6 * 40 + 1 * 6 * 30 + 7 * 2 * 20 + 1 * 2 * 10 + 32) >> 6;
  const int pf = (7 * 6 * 50 + 1 * 6 * 90 + 7 * 2 * 70 + 1 * 2 * 0 + 32) >> 6;
  EXPECT_EQ(out[0], static_cast<uint32_t>(std::abs(pa - pf)));
  EXPECT_EQ(out[1] + out[2] + out[3], 0u);
}

// ---- the search ---------------------------------------------------------------------------

DSP_HANDLE converter() {
  static DSP_HANDLE h = [] {
    DSP_FRAME_RATE_CONVERTER_PARAMS p{};
    p.ulBaseCount = 1;
    p.lWidth = p.lHeight = 64;
    DSP_HANDLE out = nullptr;
    EXPECT_EQ(DspCreateFrameRateConverter(&p, &out), DSP_S_OK);
    return out;
  }();
  return h;
}

// A sum of sinusoids where x - dx < textured_width, flat elsewhere, all shifted by (dx, dy); the
// flat part is 120 or 121 at random, drawn anew for each picture (`noise`), like a sensor's.
std::vector<uint8_t> picture(int w, int h, double dx, double dy, int textured_width, uint32_t noise) {
  std::mt19937 grain(noise);
  std::mt19937 r(17);
  std::uniform_real_distribution<double> u(0, 1);
  double k[30][3];
  for (auto &wave : k) {
    const double f = 0.05 + 0.4 * u(r), t = 6.283185307179586 * u(r);
    wave[0] = f * std::cos(t), wave[1] = f * std::sin(t), wave[2] = 6.283185307179586 * u(r);
  }
  std::vector<uint8_t> p(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      double v = 120 + (grain() & 1);
      for (int i = 0; i < 30 && x - dx < textured_width; ++i) v += 9 * std::sin(k[i][0] * (x - dx) + k[i][1] * (y - dy) + k[i][2]);
      p[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(std::lround(std::fmin(255, std::fmax(0, v))));
    }
  }
  return p;
}

struct Pair {
  std::vector<std::vector<uint8_t>> planes;
  DSP_MIPMAP_LEVELS lists[2]{};
  Pair(int w, int h, double dx, double dy, int textured_width) {
    for (int side = 0; side < 2; ++side) {
      lists[side].ulCount = 4;
      for (int k = 0, lw = w, lh = h; k < 4; ++k, lw /= 2, lh /= 2) {
        planes.push_back(k ? std::vector<uint8_t>(static_cast<size_t>(lw) * lh)
                           : picture(w, h, side ? dx : 0, side ? dy : 0, textured_width, side + 1));
        DSP_IMAGE &d = lists[side].Levels[k];
        d.Buffer.pBuffer = planes.back().data();
        d.Buffer.Region.ulWidth = d.ulWidth = d.ulPrimaryStrideBytes = static_cast<uint32_t>(lw);
        d.Buffer.Region.ulHeight = d.ulHeight = static_cast<uint32_t>(lh);
        d.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
        d.eInterlace = DSP_INTERLACE_PROGRESSIVE;
      }
      DSP_MIPMAP_PARAMS m{};
      m.Base = lists[side].Levels[0];
      m.pLevels = &lists[side];
      m.eFilter = DSP_SCALER_FILTER_LINEAR;
      EXPECT_EQ(DspCreateMipMaps(converter(), &m), DSP_S_OK);
    }
  }
  // 8x8 blocks both ways with the record's flags and level thresholds.
  std::vector<DSP_MOTION_VECTOR> field(uint32_t flags, uint32_t threshold = 0) const {
    const DSP_IMAGE &l0 = lists[0].Levels[0];
    std::vector<uint8_t> bytes(DSP_VECTOR_FIELD_BYTES(l0.ulWidth, l0.ulHeight, 8, 8));
    DSP_MOTION_VECTORS_PARAMS p{};
    p.pLevelsA = &lists[0];
    p.pLevelsB = &lists[1];
    p.pVectorField = bytes.data();
    p.ulVectorFieldBytes = static_cast<uint32_t>(bytes.size());
    p.ulBlockA = p.ulBlockB = 8;
    p.ulMotionFlags = flags;
    for (uint32_t &t : p.ulLevelThreshold) t = threshold;
    EXPECT_EQ(DspCreateMotionVectors(converter(), &p), DSP_S_OK);
    std::vector<DSP_MOTION_VECTOR> e((bytes.size() - 48) / 8);
    std::memcpy(e.data(), bytes.data() + 48, e.size() * 8);
    return e;
  }
};

// Share of the entries (of one direction, not flagged outside, with the flags `need`, from
// column `first` of 32 on) within a quarter pixel of the truth.
double share(const std::vector<DSP_MOTION_VECTOR> &e, int dir, int tx, int ty, uint16_t need = 0, size_t first = 0) {
  const size_t n = e.size() / 2;
  int good = 0, count = 0;
  for (size_t i = dir * n; i < (dir + 1) * n; ++i) {
    if ((e[i].usFlags & DSP_MV_OUTSIDE) || (e[i].usFlags & need) != need || i % 32 < first) continue;
    ++count;
    good += std::abs(e[i].sX - (dir ? -tx : tx)) <= 1 && std::abs(e[i].sY - (dir ? -ty : ty)) <= 1;
  }
  return count ? static_cast<double>(good) / count : 0;
}

TEST(MotionSearch, HalfPixelMotionIsNotPulledToWholePixels) {
  for (const double d : {2.5, -1.5}) {
    const Pair p(256, 160, d, -d, 256);
    const std::vector<DSP_MOTION_VECTOR> e = p.field(0);
    const int q = static_cast<int>(4 * d);
    EXPECT_GE(share(e, 0, q, -q), 0.98) << d;
    EXPECT_GE(share(e, 1, q, -q), 0.98) << d;
  }
}

TEST(MotionSearch, FlatAreasFollowTheGlobalMotion) {
  // The left 160 columns are textured, the right 96 flat: a pure translation moves both.  The
  // blocks that border the texture's edge (block columns 20 and 21) see it leak into their
  // samples at the true vector; the flat blocks beyond have nothing but the global motion.
  const Pair p(256, 160, 3.25, -2.75, 160);
  const std::vector<DSP_MOTION_VECTOR> with = p.field(0), without = p.field(DSP_MOTION_NO_GLOBAL);
  for (int dir = 0; dir < 2; ++dir) {
    EXPECT_GE(share(with, dir, 13, -11, DSP_MV_FLAT, 22), 0.98) << "direction " << dir;
    EXPECT_LE(share(without, dir, 13, -11, DSP_MV_FLAT, 22), 0.5) << "direction " << dir;
    EXPECT_GE(share(with, dir, 13, -11), 0.9) << "direction " << dir;
  }
}

TEST(MotionSearch, ExhaustiveWindowsPlaceBlocksAsWell) {
  // Threshold 1 sends nearly every block through the exhaustive window, 255 none.
  const Pair p(256, 160, -4.75, 1.25, 256);
  const std::vector<DSP_MOTION_VECTOR> wide = p.field(0, 1), narrow = p.field(0, 255);
  int refined[2] = {0, 0};
  for (size_t i = 0; i < wide.size(); ++i) {
    refined[0] += (wide[i].usFlags & DSP_MV_REFINED) != 0;
    refined[1] += (narrow[i].usFlags & DSP_MV_REFINED) != 0;
  }
  EXPECT_GE(refined[0], static_cast<int>(wide.size() * 9 / 10));
  EXPECT_EQ(refined[1], 0);
  for (int dir = 0; dir < 2; ++dir) EXPECT_GE(share(wide, dir, -19, 5), 0.98) << "direction " << dir;
}

}  // namespace
