// DspSubPixelScalerHelper through the export: hand-checked rectangles of each mode, the path between
// two views (exact ends, geometric zoom, linear centre, ease), keep-inside, independence from the
// FPU's rounding mode, and quiet refusals.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstring>
#include <random>

#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using In = DSP_SUBPIXEL_SCALER_HELPER_IN;
using Out = DSP_SUBPIXEL_SCALER_HELPER_OUT;
constexpr uint32_t kCentre = DSP_SUBPIXEL_SCALER_HELPER_CENTRE;
constexpr uint32_t kKeep = DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE;

// 720x486 at 4:3 onto 1920x1080 at 16:9.
In record(uint32_t mode, uint32_t zoom_a = 16384, uint32_t zoom_b = 16384, uint32_t phase = 0) {
  return In{4, 3, 16, 9, 720, 486, 1920, 1080, mode, {zoom_a, 0, 0}, {zoom_b, 0, 0}, phase, 0, {}};
}

Out run(const In &in) {
  Out out;
  std::memset(&out, 0xA5, sizeof out);
  EXPECT_EQ(DspSubPixelScalerHelper(&in, &out), DSP_S_OK);
  return out;
}

bool same(const Out &a, const Out &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(SubPixelScalerHelper, RectanglesOfEachMode) {
  Out o = run(record(kCentre));  // fit to height: pillarbox
  EXPECT_EQ(o.dDstX, 240.0);
  EXPECT_EQ(o.dDstWidth, 1440.0);
  EXPECT_EQ(o.dDstY, 0.0);
  EXPECT_EQ(o.dDstHeight, 1080.0);
  EXPECT_EQ(o.dSrcWidth, 720.0);
  EXPECT_EQ(o.dSrcHeight, 486.0);
  EXPECT_EQ(o.fHorizontalScale, 2.0f);
  EXPECT_FLOAT_EQ(o.fVerticalScale, 1080.0f / 486.0f);
  o = run(record(DSP_SUBPIXEL_SCALER_HELPER_FILL | kCentre));  // crop 486 * 3/4 lines, centred
  EXPECT_EQ(o.dSrcY, 60.75);
  EXPECT_EQ(o.dSrcHeight, 364.5);
  EXPECT_EQ(o.dDstX, 0.0);
  EXPECT_EQ(o.dDstWidth, 1920.0);
  In wide = record(DSP_SUBPIXEL_SCALER_HELPER_FIT_WIDTH | kCentre);  // 16:9 into 4:3
  std::swap(wide.ulSrcAspectNumerator, wide.ulDstAspectNumerator);
  std::swap(wide.ulSrcAspectDenominator, wide.ulDstAspectDenominator);
  o = run(wide);
  EXPECT_EQ(o.dDstY, 135.0);  // 1080 * 3/4 lines, centred
  EXPECT_EQ(o.dDstHeight, 810.0);
}

TEST(SubPixelScalerHelper, ZoomAndKeepInside) {
  const Out o = run(record(0, 32768, 32768));
  EXPECT_EQ(o.dSrcX, 180.0);
  EXPECT_EQ(o.dSrcY, 121.5);
  EXPECT_EQ(o.dSrcWidth, 360.0);
  EXPECT_EQ(o.dSrcHeight, 243.0);
  In right = record(0, 32768, 32768);
  right.ViewA.lCentreXQ14 = 8192;  // centred on the right edge
  EXPECT_EQ(run(right).dSrcX, 540.0);
  right.ulModeFlags = kKeep;
  EXPECT_EQ(run(right).dSrcX, 360.0);
}

TEST(SubPixelScalerHelper, PathIsGeometricInZoomAndLinearInCentre) {
  In in = record(0, 16384, 65536, 8192);  // 1 -> 4: exactly 2 halfway, eased or not
  EXPECT_EQ(run(in).dSrcWidth, 360.0);
  in.ulEase = DSP_SUBPIXEL_SCALER_HELPER_EASE_SMOOTHSTEP;
  EXPECT_EQ(run(in).dSrcWidth, 360.0);
  in.ulPhaseQ14 = 4096;  // smoothstep(1/4) = 5/32, so linear phase 2560
  const Out eased = run(in);
  in.ulEase = 0;
  in.ulPhaseQ14 = 2560;
  EXPECT_TRUE(same(eased, run(in)));

  in = record(0, 16384 * 3 / 2, 16384 * 200, 0);
  in.ViewA.lCentreXQ14 = -5000;
  in.ViewB.lCentreXQ14 = 7000;
  double zoom[17], centre[17];
  for (int k = 0; k <= 16; ++k) {
    in.ulPhaseQ14 = 1024u * k;
    const Out o = run(in);
    zoom[k] = 720.0 / o.dSrcWidth;
    centre[k] = o.dSrcX + o.dSrcWidth / 2;
  }
  const double step = std::pow(200.0 / 1.5, 1.0 / 16);
  for (int k = 1; k <= 16; ++k) {
    EXPECT_NEAR(zoom[k] / zoom[k - 1] / step, 1.0, 1e-12) << k;
    EXPECT_NEAR(centre[k] - centre[k - 1], 720.0 * 12000 / 16384 / 16, 1e-9) << k;
  }
}

// Random records: the ends are the views, the factors are the rectangles' ratios, keep-inside
// stays inside, and the FPU's rounding mode changes nothing.
TEST(SubPixelScalerHelper, RandomRecords) {
  std::mt19937 rng(framedsp_test::test_seed());
  auto any = [&](uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng); };
  auto view = [&] {
    const int32_t cx = static_cast<int32_t>(any(0, 16384)) - 8192, cy = static_cast<int32_t>(any(0, 16384)) - 8192;
    return DSP_SUBPIXEL_VIEW{any(16384, any(0, 1) ? 200000 : 0xFFFFFFFFu), cx, cy};
  };
  for (int i = 0; i < 400; ++i) {
    In in{any(1, 64), any(1, 64), any(1, 64), any(1, 64), any(1, 4096), any(1, 4096), any(1, 4096),
          any(1, 4096), any(0, 15), view(), view(), any(0, 16384), any(0, 1), {}};
    const Out o = run(in);
    In a = in, b = in;
    a.ulPhaseQ14 = 0, b.ulPhaseQ14 = 16384;
    In only_a = a, only_b = b;
    only_a.ViewB = a.ViewA, only_b.ViewA = b.ViewB;
    EXPECT_TRUE(same(run(a), run(only_a)) && same(run(b), run(only_b))) << i;
    EXPECT_NEAR(o.fHorizontalScale / (o.dDstWidth / o.dSrcWidth), 1.0, 1e-7) << i;
    EXPECT_NEAR(o.fVerticalScale / (o.dDstHeight / o.dSrcHeight), 1.0, 1e-7) << i;
    if (in.ulModeFlags & kKeep) {
      EXPECT_TRUE(o.dSrcX >= 0 && o.dSrcX + o.dSrcWidth <= in.ulSrcWidth * (1 + 1e-15)) << i;
      EXPECT_TRUE(o.dSrcY >= 0 && o.dSrcY + o.dSrcHeight <= in.ulSrcHeight * (1 + 1e-15)) << i;
    }
    const int mode = std::fegetround();
    std::fesetround(i % 2 ? FE_UPWARD : FE_TOWARDZERO);
    const Out other_rounding = run(in);
    std::fesetround(mode);
    EXPECT_TRUE(same(o, other_rounding)) << i;
  }
}

TEST(SubPixelScalerHelper, RefusalsLeaveTheResultAlone) {
  void (*const edits[])(In &) = {
      [](In &r) { r.ulDstAspectDenominator = 0; }, [](In &r) { r.ulSrcHeight = 0; },
      [](In &r) { r.ulModeFlags = 16; },           [](In &r) { r.ViewB.ulZoomQ14 = 16383; },
      [](In &r) { r.ViewA.lCentreXQ14 = -8193; },  [](In &r) { r.ViewB.lCentreYQ14 = 8193; },
      [](In &r) { r.ulPhaseQ14 = 16385; },         [](In &r) { r.ulEase = 2; },
      [](In &r) { r.ulReserved[1] = 1; }};
  for (auto edit : edits) {
    In in = record(kCentre);
    edit(in);
    Out out, before;
    std::memset(&out, 0x5C, sizeof out);
    before = out;
    EXPECT_EQ(DspSubPixelScalerHelper(&in, &out), DSP_S_OK);
    EXPECT_TRUE(same(out, before));
  }
  Out out;
  const In in = record(0);
  EXPECT_EQ(DspSubPixelScalerHelper(nullptr, &out), DSP_E_POINTER);
  EXPECT_EQ(DspSubPixelScalerHelper(&in, nullptr), DSP_E_POINTER);
}

}  // namespace
