// DspSubPixelScalerHelper through the export: hand-checked rectangles, the path between two views
// (exact ends, geometric zoom, linear centre, ease), keep-inside, independence from the FPU's
// rounding mode, quiet refusals (null pointers: test_exports.cpp).
#include <gtest/gtest.h>

#include <array>
#include <cfenv>
#include <cmath>
#include <cstring>
#include <random>

#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using In = DSP_SUBPIXEL_SCALER_HELPER_IN;
using Out = DSP_SUBPIXEL_SCALER_HELPER_OUT;
using Rect = std::array<double, 4>;  // x, y, width, height
constexpr uint32_t kCentre = DSP_SUBPIXEL_SCALER_HELPER_CENTRE;

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
Rect src(const Out &o) { return {o.dSrcX, o.dSrcY, o.dSrcWidth, o.dSrcHeight}; }
Rect dst(const Out &o) { return {o.dDstX, o.dDstY, o.dDstWidth, o.dDstHeight}; }
bool same(const Out &a, const Out &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(SubPixelScalerHelper, HandCheckedRectangles) {
  Out o = run(record(kCentre));  // fit to height, pillarbox
  EXPECT_EQ(dst(o), (Rect{240, 0, 1440, 1080}));
  EXPECT_EQ(src(o), (Rect{0, 0, 720, 486}));
  EXPECT_EQ(o.fHorizontalScale, 2.0f);
  EXPECT_FLOAT_EQ(o.fVerticalScale, 1080.0f / 486.0f);
  o = run(record(DSP_SUBPIXEL_SCALER_HELPER_FILL));  // 3/4 of the lines, from the middle
  EXPECT_EQ(src(o), (Rect{0, 60.75, 720, 364.5}));
  EXPECT_EQ(dst(o), (Rect{0, 0, 1920, 1080}));
  In wide = record(DSP_SUBPIXEL_SCALER_HELPER_FIT_WIDTH | kCentre);  // 16:9 onto 4:3: letterbox
  std::swap(wide.ulSrcAspectNumerator, wide.ulDstAspectNumerator);
  std::swap(wide.ulSrcAspectDenominator, wide.ulDstAspectDenominator);
  EXPECT_EQ(dst(run(wide)), (Rect{0, 135, 1920, 810}));
  In right = record(0, 32768, 32768);
  EXPECT_EQ(src(run(right)), (Rect{180, 121.5, 360, 243}));
  right.ViewA.lCentreXQ14 = 8192;  // centred on the right edge, or slid back inside
  EXPECT_EQ(run(right).dSrcX, 540.0);
  right.ulModeFlags = DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE;
  EXPECT_EQ(run(right).dSrcX, 360.0);
}

TEST(SubPixelScalerHelper, PathIsGeometricInZoomAndLinearInCentre) {
  In in = record(0, 16384, 65536, 8192);  // 1 -> 4: exactly 2 halfway, eased or not
  EXPECT_EQ(run(in).dSrcWidth, 360.0);
  in.ulEase = DSP_SUBPIXEL_SCALER_HELPER_EASE_SMOOTHSTEP;
  EXPECT_EQ(run(in).dSrcWidth, 360.0);
  in.ulPhaseQ14 = 4096;  // smoothstep(1/4) = 5/32: linear phase 2560
  const Out eased = run(in);
  in.ulEase = 0, in.ulPhaseQ14 = 2560;
  EXPECT_TRUE(same(eased, run(in)));
  in = record(0, 16384 * 3 / 2, 16384 * 200);
  in.ViewA.lCentreXQ14 = -5000, in.ViewB.lCentreXQ14 = 7000;
  Out prev = run(in);
  for (uint32_t k = 1; k <= 16; ++k) {
    in.ulPhaseQ14 = 1024 * k;
    const Out o = run(in);
    EXPECT_NEAR(prev.dSrcWidth / o.dSrcWidth / std::pow(200 / 1.5, 1.0 / 16), 1.0, 1e-12) << k;
    const double moved = o.dSrcX + o.dSrcWidth / 2 - prev.dSrcX - prev.dSrcWidth / 2;
    EXPECT_NEAR(moved, 720.0 * 12000 / 16384 / 16, 1e-9) << k;
    prev = o;
  }
}

// Random records: the ends are the views, keep-inside stays inside, the rounding mode changes nothing.
TEST(SubPixelScalerHelper, RandomRecords) {
  std::mt19937 rng(framedsp_test::test_seed());
  auto any = [&](uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng); };
  auto centre = [&] { return static_cast<int32_t>(any(0, 16384)) - 8192; };
  auto view = [&] { return DSP_SUBPIXEL_VIEW{any(16384, any(0, 1) ? 200000 : ~0u), centre(), centre()}; };
  for (int i = 0; i < 400; ++i) {
    In in{any(1, 64), any(1, 64), any(1, 64), any(1, 64), any(1, 4096), any(1, 4096), any(1, 4096),
          any(1, 4096), any(0, 15), view(), view(), any(0, 16384), any(0, 1), {}};
    In a = in, b = in;
    a.ulPhaseQ14 = 0, b.ulPhaseQ14 = 16384;
    const Out at_a = run(a), at_b = run(b);
    a.ViewB = a.ViewA, b.ViewA = b.ViewB;
    EXPECT_TRUE(same(at_a, run(a)) && same(at_b, run(b))) << i;
    const Out o = run(in);
    if (in.ulModeFlags & DSP_SUBPIXEL_SCALER_HELPER_KEEP_INSIDE) {
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
  Out untouched;
  std::memset(&untouched, 0xA5, sizeof untouched);  // as run() leaves it
  In in = record(kCentre);
  for (auto edit : edits) {
    In refused = in;
    edit(refused);
    EXPECT_TRUE(same(run(refused), untouched));
  }
}

}  // namespace
