// DspScalerHelper against a double-precision calculation written out here, on hand-checked
// examples and on random records (bit-exact sizes and factors).  Its refusals and null pointers
// are rows of the export tables in test_exports.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

struct Expected {
  uint32_t width;
  uint32_t height;
  float horz;
  float vert;
};

// Truncation toward zero to int64, low 32 bits; out-of-range values as 0.
uint32_t low32_of_trunc(double x) {
  if (std::isnan(x) || std::fabs(x) >= 9223372036854775808.0) return 0;
  const double t = std::trunc(x);
  return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(t)));
}

Expected reference(const DSP_SCALER_HELPER_IN &in) {
  const double src_w = in.ulSrcRegionWidth ? double(in.ulSrcRegionWidth) : double(in.ulSrcWidth);
  const double src_h =
      in.ulSrcRegionHeight ? double(in.ulSrcRegionHeight) : double(in.ulSrcHeight);
  const double dst_w = in.ulDstRegionWidth ? double(in.ulDstRegionWidth) : double(in.ulDstWidth);
  const double dst_h =
      in.ulDstRegionHeight ? double(in.ulDstRegionHeight) : double(in.ulDstHeight);
  const double src_shape = double(in.ulSrcHeight) * double(in.ulSrcAspectNumerator) /
                           (double(in.ulSrcWidth) * double(in.ulSrcAspectDenominator));
  const double dst_shape = double(in.ulDstHeight) * double(in.ulDstAspectNumerator) /
                           (double(in.ulDstWidth) * double(in.ulDstAspectDenominator));
  if (in.ulFlags & 2u) {
    const double across = dst_w / src_w;
    const uint32_t rows = low32_of_trunc(dst_h * src_shape / (across * dst_shape));
    if (src_h >= double(rows)) {
      return {uint32_t(src_w), rows, float(across), float(dst_h / double(rows))};
    }
    const double down = dst_h / src_h;
    const uint32_t cols = low32_of_trunc(dst_shape * dst_w / (src_shape * down));
    if (src_w >= double(cols)) {
      return {cols, uint32_t(src_h), float(dst_w / double(cols)), float(down)};
    }
    return {uint32_t(src_w), uint32_t(src_h), float(dst_w / src_w), float(dst_h / src_h)};
  }
  if (in.ulFlags & 1u) {
    const double across = dst_w / src_w;
    const uint32_t rows = low32_of_trunc(dst_shape * src_h * across / src_shape);
    return {uint32_t(dst_w), rows, float(across), float(double(rows) / src_h)};
  }
  const double down = dst_h / src_h;
  const uint32_t cols = low32_of_trunc(src_shape * src_w * down / dst_shape);
  return {cols, uint32_t(dst_h), float(double(cols) / src_w), float(down)};
}

DSP_SCALER_HELPER_IN record(uint32_t sn, uint32_t sd, uint32_t sw, uint32_t sh, uint32_t dn,
                            uint32_t dd, uint32_t dw, uint32_t dh, uint32_t flags) {
  DSP_SCALER_HELPER_IN in{};
  in.ulSrcAspectNumerator = sn;
  in.ulSrcAspectDenominator = sd;
  in.ulSrcWidth = sw;
  in.ulSrcHeight = sh;
  in.ulDstAspectNumerator = dn;
  in.ulDstAspectDenominator = dd;
  in.ulDstWidth = dw;
  in.ulDstHeight = dh;
  in.ulFlags = flags;
  if (flags & DSP_SCALER_HELPER_FILL) {
    in.ulSrcRegionWidth = sw;
    in.ulSrcRegionHeight = sh;
  }
  return in;
}

std::string describe(const DSP_SCALER_HELPER_IN &in) {
  char text[256];
  std::snprintf(text, sizeof text,
                "src %u:%u %ux%u region %ux%u -> dst %u:%u %ux%u region %ux%u flags %u",
                in.ulSrcAspectNumerator, in.ulSrcAspectDenominator, in.ulSrcWidth, in.ulSrcHeight,
                in.ulSrcRegionWidth, in.ulSrcRegionHeight, in.ulDstAspectNumerator,
                in.ulDstAspectDenominator, in.ulDstWidth, in.ulDstHeight, in.ulDstRegionWidth,
                in.ulDstRegionHeight, in.ulFlags);
  return text;
}

// Bit equality of the floats (infinities and NaNs included).
void expect_result(const DSP_SCALER_HELPER_OUT &got, const Expected &want,
                   const std::string &what) {
  EXPECT_EQ(got.ulWidth, want.width) << what;
  EXPECT_EQ(got.ulHeight, want.height) << what;
  uint32_t g = 0, w = 0;
  std::memcpy(&g, &got.fHorizontalScale, 4);
  std::memcpy(&w, &want.horz, 4);
  EXPECT_EQ(g, w) << what << ": horizontal " << got.fHorizontalScale << " vs " << want.horz;
  std::memcpy(&g, &got.fVerticalScale, 4);
  std::memcpy(&w, &want.vert, 4);
  EXPECT_EQ(g, w) << what << ": vertical " << got.fVerticalScale << " vs " << want.vert;
}

DSP_SCALER_HELPER_OUT sentinel() {
  DSP_SCALER_HELPER_OUT out;
  std::memset(&out, 0x5A, sizeof out);
  return out;
}

// Hand-checked answers (a width range where the double rounding is not pinned; scale 0: not
// checked by hand), each also against the reference.
struct Known {
  const char *what;
  DSP_SCALER_HELPER_IN in;
  uint32_t width_lo, width_hi, height;
  float horz, vert;
};

DSP_SCALER_HELPER_IN with_regions(DSP_SCALER_HELPER_IN in, uint32_t sw, uint32_t sh, uint32_t dw, uint32_t dh) {
  in.ulSrcRegionWidth = sw;
  in.ulSrcRegionHeight = sh;
  in.ulDstRegionWidth = dw;
  in.ulDstRegionHeight = dh;
  return in;
}

TEST(ScalerHelper, KnownAnswers) {
  const Known known[] = {
      {"SD 4:3 fitted to the HD height", record(4, 3, 720, 486, 16, 9, 1920, 1080, 0), 1440, 1440, 1080, 2.0f,
       static_cast<float>(1080.0 / 486.0)},
      // 1920 wide at square pixels from 0.9-wide source pixels: 486 * (1920 / 720) / 0.9 = 1440 rows.
      {"SD 4:3 fitted to the HD width", record(4, 3, 720, 486, 16, 9, 1920, 1080, DSP_SCALER_HELPER_FIT_WIDTH),
       1920, 1920, 1440, 0, 0},
      // A 4:3 source filling a 16:9 destination: the whole width, part of the height.
      {"fill crops a taller source", record(4, 3, 640, 480, 16, 9, 1280, 720, DSP_SCALER_HELPER_FILL), 640, 640,
       360, 2.0f, 2.0f},
      // 16:9 HD filling 4:3 PAL: the first test fails (1440 rows needed, 1080 there), the width is cut.
      {"fill crops a wider source", record(16, 9, 1920, 1080, 4, 3, 720, 576, DSP_SCALER_HELPER_FILL), 1439, 1440,
       1080, 0, 0},
      // Regions replace the sizes but not the pixel shapes.
      {"regions", with_regions(record(4, 3, 720, 486, 16, 9, 1920, 1080, 0), 360, 243, 960, 540), 720, 720, 540,
       2.0f, 0},
  };
  for (const Known &k : known) {
    DSP_SCALER_HELPER_OUT out = sentinel();
    ASSERT_EQ(DspScalerHelper(&k.in, &out), DSP_S_OK) << k.what;
    EXPECT_GE(out.ulWidth, k.width_lo) << k.what;
    EXPECT_LE(out.ulWidth, k.width_hi) << k.what;
    EXPECT_EQ(out.ulHeight, k.height) << k.what;
    if (k.horz != 0) { EXPECT_EQ(out.fHorizontalScale, k.horz) << k.what; }
    if (k.vert != 0) { EXPECT_EQ(out.fVerticalScale, k.vert) << k.what; }
    expect_result(out, reference(k.in), describe(k.in));
  }
}

TEST(ScalerHelper, ExtraFlagBitsAreIgnored) {
  DSP_SCALER_HELPER_IN plain = record(4, 3, 720, 486, 16, 9, 1920, 1080, 1);
  DSP_SCALER_HELPER_IN extra = plain;
  extra.ulFlags = 0xFFFFFFF9u;  // bit 0 with every bit above 2
  extra.ulReserved1 = extra.ulReserved2 = 0xDEADBEEFu;
  DSP_SCALER_HELPER_OUT a = sentinel(), b = sentinel();
  ASSERT_EQ(DspScalerHelper(&plain, &a), DSP_S_OK);
  ASSERT_EQ(DspScalerHelper(&extra, &b), DSP_S_OK);
  EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

TEST(ScalerHelper, RandomRecordsMatchTheReference) {
  const uint32_t seed = framedsp_test::test_seed();
  std::mt19937 rng(seed);
  const auto pick = [&](uint32_t lo, uint32_t hi) {
    return std::uniform_int_distribution<uint32_t>(lo, hi)(rng);
  };
  int fill_steps[3] = {0, 0, 0};
  for (int i = 0; i < 600; ++i) {
    const uint32_t flags = pick(0, 3);
    DSP_SCALER_HELPER_IN in =
        record(pick(1, 64), pick(1, 64), pick(1, 4096), pick(1, 4096), pick(1, 64), pick(1, 64),
               pick(1, 4096), pick(1, 4096), flags);
    if (!(flags & DSP_SCALER_HELPER_FILL)) {
      if (pick(0, 1)) in.ulSrcRegionWidth = pick(1, in.ulSrcWidth);
      if (pick(0, 1)) in.ulSrcRegionHeight = pick(1, in.ulSrcHeight);
    }
    if (pick(0, 1)) in.ulDstRegionWidth = pick(1, in.ulDstWidth);
    if (pick(0, 1)) in.ulDstRegionHeight = pick(1, in.ulDstHeight);
    if (i % 50 == 0) {  // now and then the whole 32-bit range
      in.ulSrcWidth = in.ulSrcRegionWidth = rng() | 1u;
      in.ulDstAspectNumerator = rng() | 1u;
    }
    DSP_SCALER_HELPER_OUT out = sentinel();
    ASSERT_EQ(DspScalerHelper(&in, &out), DSP_S_OK) << describe(in);
    const Expected want = reference(in);
    expect_result(out, want, describe(in) + " seed " + std::to_string(seed));
    if (flags & DSP_SCALER_HELPER_FILL) {
      const uint32_t sw = in.ulSrcWidth, sh = in.ulSrcHeight;
      ++fill_steps[want.width == sw && want.height != sh ? 0 : (want.height == sh && want.width != sw ? 1 : 2)];
    }
    if (HasFailure()) return;
  }
  // Both cropping directions were exercised.
  EXPECT_GT(fill_steps[0], 10);
  EXPECT_GT(fill_steps[1], 10);
}

}  // namespace
