// DspScalerHelper through the export: hand-checked answers of each mode, and on random records
// the properties every answer has (the fitted side kept, the picture's shape within a line or a
// column, factors that are the sizes' ratios).  The bit-exact formulas run on the fuzz corpus
// (fuzz/fuzz_scaler_helper.cpp); refusals and null pointers are rows of test_exports.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

DSP_SCALER_HELPER_IN record(uint32_t sn, uint32_t sd, uint32_t sw, uint32_t sh, uint32_t dn, uint32_t dd, uint32_t dw,
                            uint32_t dh, uint32_t flags) {
  DSP_SCALER_HELPER_IN in{sn, sd, sw, sh, 0, 0, 0, dn, dd, dw, dh, 0, 0, 0, flags};
  if (flags & DSP_SCALER_HELPER_FILL) in.ulSrcRegionWidth = sw, in.ulSrcRegionHeight = sh;
  return in;
}

// The answer for `in`, checked against what every answer must be.
DSP_SCALER_HELPER_OUT checked(const DSP_SCALER_HELPER_IN &in) {
  DSP_SCALER_HELPER_OUT o;
  std::memset(&o, 0x5A, sizeof o);
  EXPECT_EQ(DspScalerHelper(&in, &o), DSP_S_OK);
  const double sw = in.ulSrcRegionWidth ? in.ulSrcRegionWidth : in.ulSrcWidth;
  const double sh = in.ulSrcRegionHeight ? in.ulSrcRegionHeight : in.ulSrcHeight;
  const double dw = in.ulDstRegionWidth ? in.ulDstRegionWidth : in.ulDstWidth;
  const double dh = in.ulDstRegionHeight ? in.ulDstRegionHeight : in.ulDstHeight;
  // Height over width of one pixel of each side, from the picture aspects.
  auto shape = [](uint32_t w, uint32_t h, uint32_t n, uint32_t d) { return double(h) * n / (double(w) * d); };
  const double sp = shape(in.ulSrcWidth, in.ulSrcHeight, in.ulSrcAspectNumerator, in.ulSrcAspectDenominator);
  const double dp = shape(in.ulDstWidth, in.ulDstHeight, in.ulDstAspectNumerator, in.ulDstAspectDenominator);
  const double w = o.ulWidth, h = o.ulHeight;
  const bool fill = in.ulFlags & DSP_SCALER_HELPER_FILL;
  const bool fit_width = !fill && (in.ulFlags & DSP_SCALER_HELPER_FIT_WIDTH);
  // The free side is the shape's value x truncated: in (x - 1, x], give or take the rounding of
  // doubles; beyond 32 bits its low bits (left to the fuzz target).
  auto free_side = [](double got, double x) {
    if (x < 4294967295.0) {
      EXPECT_TRUE(got > x - 1 - 1e-9 * x && got <= x + 1e-9 * x) << got << " for " << x;
    }
  };
  if (fill) {  // the part of the source with the destination's shape
    EXPECT_TRUE((w == sw && h <= sh) || (h == sh && w <= sw));
    if (w != sw) free_side(w, dw * dp * sh / (sp * dh));
    if (h != sh) free_side(h, dh * sp * sw / (dp * dw));
  } else if (fit_width) {  // the output with the source's shape
    EXPECT_EQ(w, dw);
    free_side(h, dp * sh * dw / (sp * sw));
  } else {
    EXPECT_EQ(h, dh);
    free_side(w, sp * sw * dh / (dp * sh));
  }
  EXPECT_EQ(o.fHorizontalScale, float(fill ? dw / w : w / sw));
  EXPECT_EQ(o.fVerticalScale, float(fill ? dh / h : h / sh));
  return o;
}

TEST(ScalerHelper, KnownAnswers) {
  struct Known {
    const char *what;
    DSP_SCALER_HELPER_IN in;
    uint32_t width_lo, width_hi, height;
  } known[] = {
      {"SD 4:3 fitted to the HD height", record(4, 3, 720, 486, 16, 9, 1920, 1080, 0), 1440, 1440, 1080},
      // 1920 wide at square pixels from 0.9-wide source pixels: 486 * (1920 / 720) / 0.9 = 1440 rows.
      {"SD 4:3 fitted to the HD width", record(4, 3, 720, 486, 16, 9, 1920, 1080, DSP_SCALER_HELPER_FIT_WIDTH), 1920,
       1920, 1440},
      // A 4:3 source filling a 16:9 destination: the whole width, part of the height.
      {"fill crops a taller source", record(4, 3, 640, 480, 16, 9, 1280, 720, DSP_SCALER_HELPER_FILL), 640, 640, 360},
      // 16:9 HD filling 4:3 PAL: the first test fails (1440 rows needed, 1080 there), the width is cut.
      {"fill crops a wider source", record(16, 9, 1920, 1080, 4, 3, 720, 576, DSP_SCALER_HELPER_FILL), 1439, 1440,
       1080},
      // Regions replace the sizes but not the pixel shapes.
      {"regions", record(4, 3, 720, 486, 16, 9, 1920, 1080, 0), 720, 720, 540},
  };
  known[4].in.ulSrcRegionWidth = 360, known[4].in.ulSrcRegionHeight = 243;
  known[4].in.ulDstRegionWidth = 960, known[4].in.ulDstRegionHeight = 540;
  for (const Known &k : known) {
    SCOPED_TRACE(k.what);
    const DSP_SCALER_HELPER_OUT out = checked(k.in);
    EXPECT_GE(out.ulWidth, k.width_lo);
    EXPECT_LE(out.ulWidth, k.width_hi);
    EXPECT_EQ(out.ulHeight, k.height);
  }
  EXPECT_EQ(checked(known[0].in).fHorizontalScale, 2.0f);
}

TEST(ScalerHelper, ExtraFlagBitsAreIgnored) {
  DSP_SCALER_HELPER_IN plain = record(4, 3, 720, 486, 16, 9, 1920, 1080, 1), extra = plain;
  extra.ulFlags = 0xFFFFFFF9u;  // bit 0 with every bit above 2
  extra.ulReserved1 = extra.ulReserved2 = 0xDEADBEEFu;
  const DSP_SCALER_HELPER_OUT a = checked(plain), b = checked(extra);
  EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

TEST(ScalerHelper, RandomRecordsKeepTheirProperties) {
  std::mt19937 rng(framedsp_test::test_seed());
  const auto pick = [&](uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng); };
  int crops[2] = {0, 0};
  for (int i = 0; i < 600 && !HasFailure(); ++i) {
    SCOPED_TRACE(i);
    const uint32_t flags = pick(0, 3);
    DSP_SCALER_HELPER_IN in = record(pick(1, 64), pick(1, 64), pick(1, 4096), pick(1, 4096), pick(1, 64), pick(1, 64),
                                     pick(1, 4096), pick(1, 4096), flags);
    if (!(flags & DSP_SCALER_HELPER_FILL) && pick(0, 1)) in.ulSrcRegionWidth = pick(1, in.ulSrcWidth);
    if (!(flags & DSP_SCALER_HELPER_FILL) && pick(0, 1)) in.ulSrcRegionHeight = pick(1, in.ulSrcHeight);
    if (pick(0, 1)) in.ulDstRegionWidth = pick(1, in.ulDstWidth);
    if (pick(0, 1)) in.ulDstRegionHeight = pick(1, in.ulDstHeight);
    const DSP_SCALER_HELPER_OUT o = checked(in);
    if (flags & DSP_SCALER_HELPER_FILL) ++crops[o.ulWidth == in.ulSrcWidth && o.ulHeight != in.ulSrcHeight ? 0 : 1];
  }
  EXPECT_GT(crops[0], 10);  // both cropping directions were exercised
  EXPECT_GT(crops[1], 10);
}

}  // namespace
