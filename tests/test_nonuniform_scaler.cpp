// DspNonUniformScaler: mode 0 is DspScaler, a centre scale of 1 is DspSubPixelScaler, mirror
// symmetry, the column mapping's properties, the round trip, refusals, and the variants (scalar,
// staged, bands) that must not change a byte.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "scale/panorama_map.h"
#include "test_util.h"

namespace {

using framedsp_test::Pic;
constexpr uint32_t kC = 3277, kR = 13926;  // 0.2, 0.85
constexpr int64_t kOne = int64_t{1} << 32;

DSP_NONUNIFORM_SCALER_PARAMS params(uint32_t mode, uint32_t filter, const DSP_BUFFER &b, uint32_t options = 0,
                                    uint32_t c = kC, uint32_t r = kR) {
  DSP_NONUNIFORM_SCALER_PARAMS p{};
  p.eStretchMode = mode, p.eFilter = filter, p.ulCentreWidthQ14 = c, p.ulCentreScaleQ14 = r;
  p.Buffer = b, p.ulOptions = options;
  return p;
}

Pic random_pic(uint32_t format, uint32_t w, uint32_t h, uint32_t seed = 7) {
  Pic p(format, w, h);
  std::mt19937 rng(seed);
  p.randomise(rng);
  return p;
}

TEST(NonUniformScaler, UniformModeIsDspScaler) {
  const DSP_FIR_SETTINGS fir{7, 40, 0, 5, 60};
  for (uint32_t format : {21u, 0u, 28u}) {
    for (uint32_t options : {0u, 1u, 2u}) {
      SCOPED_TRACE(testing::Message() << "format " << format << " options " << options);
      Pic in = random_pic(format, 90, 24), a(format, 160, 36), b(a);
      DSP_SCALER_PARAMS s{};
      s.eFilter = options == 1 ? 0 : 1, s.eFilterType = DSP_FILTER_TYPE_FIR, s.pSettings = &fir, s.ulOptions = options;
      s.Buffer = framedsp_test::buffer_of(in.image(4, 2, 80, 20, 2, 1), a.image(2, 0, 150, 36, 2, 1));
      DSP_NONUNIFORM_SCALER_PARAMS p = params(0, s.eFilter, s.Buffer, options);
      p.Buffer.Out.Buffer.pBuffer = b.data(), p.eFilterType = s.eFilterType, p.pSettings = &fir;
      ASSERT_EQ(DspScaler(&s), DSP_S_OK);
      ASSERT_EQ(DspNonUniformScaler(&p), DSP_S_OK);
      EXPECT_TRUE(framedsp_test::same_bytes(a, b));
    }
  }
}

// Mode 0 keeps DspScaler's top-left positions with every kernel: at 2x, even columns and lines
// are the source samples (Catmull-Rom and Lanczos-3 interpolate).
TEST(NonUniformScaler, UniformCubicKeepsScalerPositions) {
  for (uint32_t filter : {2u, 3u}) {
    Pic in = random_pic(0, 16, 5), out(0, 32, 10);
    DSP_NONUNIFORM_SCALER_PARAMS p = params(0, filter, framedsp_test::buffer_of(in.image(), out.image()));
    ASSERT_EQ(DspNonUniformScaler(&p), DSP_S_OK);
    for (uint32_t y = 0; y < 5; ++y) {
      for (uint32_t x = 0; x < 16; ++x) ASSERT_EQ(0, std::memcmp(in.row(y) + 4 * x, out.row(2 * y) + 8 * x, 4));
    }
  }
}

struct Case {
  uint32_t format, iw, ow, filter, options, colour;
};

// A centre scale of 1 on equal heights is the uniform stretch in the centre convention.
TEST(NonUniformScaler, CentreScaleOneIsSubPixelScaler) {
  const DSP_FIR_SETTINGS fir{5, 50, 0, 3, 70};
  for (const Case &k : {Case{21, 64, 150, 1, 0, 0}, Case{0, 60, 34, 2, 0, 0}, Case{261, 50, 128, 3, 0, 0},
                        Case{21, 64, 100, 2, 2, 0}, Case{21, 80, 120, 1, 0, 1}, Case{0, 90, 41, 1, 2, 0}}) {
    SCOPED_TRACE(testing::Message() << "format " << k.format << " " << k.iw << " -> " << k.ow << " filter " << k.filter);
    Pic in = random_pic(k.format, k.iw, 6), a(k.format, k.ow, 6), b(a);
    const DSP_BUFFER buf = framedsp_test::buffer_of(in.image(0, 0, 0, 0, 2, 2, k.colour), a.image(0, 0, 0, 0, 2, 2, 2 * k.colour));
    DSP_NONUNIFORM_SCALER_PARAMS p = params(1, k.filter, buf, k.options, kC, 0);
    p.eFilterType = DSP_FILTER_TYPE_FIR, p.pSettings = &fir;
    DSP_SUBPIXEL_SCALER_PARAMS s{};
    s.eFilter = k.filter, s.eFilterType = DSP_FILTER_TYPE_FIR, s.pSettings = &fir, s.ulOptions = k.options;
    s.Buffer.In = framedsp_test::fractional(buf.In), s.Buffer.Out = framedsp_test::fractional(b.image(0, 0, 0, 0, 2, 2, 2 * k.colour));
    ASSERT_EQ(DspNonUniformScaler(&p), DSP_S_OK);
    ASSERT_EQ(DspSubPixelScaler(&s), DSP_S_OK);
    EXPECT_TRUE(framedsp_test::same_bytes(b, a));
  }
}

TEST(NonUniformScaler, MirroredInputGivesMirroredOutput) {
  for (const Case &k : {Case{0, 48, 80, 2, 1, 0}, Case{0, 80, 48, 1, 2, 0}, Case{261, 46, 78, 3, 1, 0}}) {
    const uint32_t bpp = k.format ? 1 : 4;
    Pic in = random_pic(k.format, k.iw, 4), flipped(in), a(k.format, k.ow, 4), b(a);
    for (uint32_t y = 0; y < 4; ++y) {
      for (uint32_t x = 0; x < k.iw; ++x) std::memcpy(flipped.row(y) + bpp * x, in.row(y) + bpp * (k.iw - 1 - x), bpp);
    }
    DSP_NONUNIFORM_SCALER_PARAMS p = params(k.options, k.filter, framedsp_test::buffer_of(in.image(), a.image()));
    DSP_NONUNIFORM_SCALER_PARAMS q = params(k.options, k.filter, framedsp_test::buffer_of(flipped.image(), b.image()));
    ASSERT_EQ(DspNonUniformScaler(&p), DSP_S_OK);
    ASSERT_EQ(DspNonUniformScaler(&q), DSP_S_OK);
    for (uint32_t y = 0; y < 4; ++y) {
      for (uint32_t x = 0; x < k.ow; ++x) ASSERT_EQ(0, std::memcmp(a.row(y) + bpp * x, b.row(y) + bpp * (k.ow - 1 - x), bpp)) << x;
    }
  }
}

// Monotone, mirror-symmetric, the region's edges within half a step of the end columns, the
// centre's slope 1 / (r k), and mode 2 undoing mode 1.
TEST(NonUniformScaler, ColumnMappingProperties) {
  struct Shape { uint32_t c, r, narrow, wide; };
  for (const Shape &s : {Shape{kC, kR, 720, 1920}, Shape{0, 19661, 100, 333}, Shape{5000, 14000, 640, 853}, Shape{8000, 24576, 300, 400}}) {
    SCOPED_TRACE(testing::Message() << "c " << s.c << " r " << s.r << " " << s.narrow << " <-> " << s.wide);
    std::vector<int64_t> p1(s.wide), p2(s.narrow);
    ASSERT_TRUE(framedsp::panorama_columns(1, s.c, s.r, s.narrow, s.wide, p1.data(), nullptr));
    ASSERT_TRUE(framedsp::panorama_columns(2, s.c, s.r, s.wide, s.narrow, p2.data(), nullptr));
    for (const auto *v : {&p1, &p2}) {
      const std::vector<int64_t> &p = *v;
      const int64_t wi = v == &p1 ? s.narrow : s.wide, n = int64_t(p.size());
      for (int64_t j = 0; j < n; ++j) {
        if (j) {
          ASSERT_LT(p[j - 1], p[j]) << j;
        }
        ASSERT_EQ(p[j] + p[n - 1 - j], (wi - 1) * kOne) << j;
      }
      EXPECT_TRUE(p[0] >= -kOne / 2 && 2 * p[0] - p[1] <= -kOne / 2) << p[0] << " " << p[1];
    }
    const double slope = 16384.0 * s.narrow / (double(s.r) * s.wide);
    for (int64_t j = 0; (2 * j + 3 - int64_t(s.wide)) * 16384 <= int64_t(s.c) * s.wide; ++j) {
      if ((int64_t(s.wide) - 2 * j - 1) * 16384 > int64_t(s.c) * s.wide) continue;
      EXPECT_NEAR(double(p1[j + 1] - p1[j]) / double(kOne), slope, 1.0 / 16384) << j;
    }
    for (size_t j = 0; j < p2.size(); ++j) {
      const double at = double(p2[j]) / double(kOne);
      const size_t i = size_t(std::max(0.0, std::floor(at)));
      if (i + 1 >= p1.size()) continue;
      const double t = at - double(i), back = (double(p1[i]) + t * double(p1[i + 1] - p1[i])) / double(kOne);
      EXPECT_NEAR(back, double(j), 1.0 / 64) << j;
    }
  }
}

// 4:3 -> panorama -> 4:3: the centre band comes back at 40 dB or better.
TEST(NonUniformScaler, PanoramaThenInverseRestoresTheCentre) {
  Pic in(261, 240, 4), wide(261, 320, 4), back(261, 240, 4);
  for (uint32_t y = 0; y < 4; ++y) {
    for (uint32_t x = 0; x < 240; ++x) in.row(y)[x] = uint8_t(128 + 60 * std::sin(x / 5.0 + y) + 40 * std::cos(x / 11.0));
  }
  DSP_NONUNIFORM_SCALER_PARAMS p = params(1, 2, framedsp_test::buffer_of(in.image(), wide.image()));
  DSP_NONUNIFORM_SCALER_PARAMS q = params(2, 2, framedsp_test::buffer_of(wide.image(), back.image()));
  ASSERT_EQ(DspNonUniformScaler(&p), DSP_S_OK);
  ASSERT_EQ(DspNonUniformScaler(&q), DSP_S_OK);
  double se = 0;
  int n = 0;
  for (uint32_t y = 0; y < 4; ++y) {
    for (uint32_t x = 96; x < 144; ++x, ++n) se += std::pow(double(in.row(y)[x]) - back.row(y)[x], 2);
  }
  EXPECT_GE(10 * std::log10(255.0 * 255.0 * n / std::max(se, 1e-9)), 40.0);
}

TEST(NonUniformScaler, BadSettingsWriteNothing) {
  using Edit = void (*)(DSP_NONUNIFORM_SCALER_PARAMS &);
  for (Edit edit : std::initializer_list<Edit>{
           [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.eStretchMode = 3; }, [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.eFilter = 4; },
           [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.ulCentreWidthQ14 = 16384; },
           [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.ulCentreScaleQ14 = 65537; },
           [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.ulCentreWidthQ14 = 9010; },  // folds with r = 0.85
           [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.ulReserved = 1; }, [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.ulOptions = 4; },
           [](DSP_NONUNIFORM_SCALER_PARAMS &p) { p.eStretchMode = 0, p.ulCentreScaleQ14 = 10922; }}) {
    Pic in = random_pic(21, 64, 8), out(21, 96, 8), before(out);
    DSP_NONUNIFORM_SCALER_PARAMS p = params(1, 2, framedsp_test::buffer_of(in.image(), out.image()));
    edit(p);
    EXPECT_EQ(DspNonUniformScaler(&p), DSP_E_INVALIDARG);
    EXPECT_TRUE(framedsp_test::same_bytes(before, out));
  }
}

// Scalar kernels, staged mode and three bands give the bytes of one plain SIMD call, inside the
// guards: formats, both panorama modes, fields, two planes, 16-bit samples.
TEST(NonUniformScaler, ScalarStagedAndBandsMatchOneCall) {
  struct V { uint32_t format, mode, filter, iw, ow, in_type, interlace; };
  for (const V &v : {V{21, 1, 1, 90, 160, 2, 2}, V{0, 2, 3, 160, 90, 2, 2}, V{28, 1, 2, 90, 160, 2, 2},
                     V{22, 1, 2, 64, 96, 2, 2}, V{21, 1, 2, 90, 160, 2, 1}, V{25, 2, 1, 160, 90, 0, 1}, V{1, 0, 2, 50, 80, 2, 2}}) {
    SCOPED_TRACE(testing::Message() << "format " << v.format << " mode " << v.mode << " filter " << v.filter);
    Pic in = random_pic(v.format, v.iw + 6, 20), want(v.format, v.ow + 4, 38);
    const DSP_BUFFER b = framedsp_test::buffer_of(in.image(4, 1, v.iw, v.in_type == 2 ? 18 : 19, v.in_type, v.interlace),
                                                  want.image(2, 1, v.ow, 36, 2, v.interlace));
    DSP_NONUNIFORM_SCALER_PARAMS p = params(v.mode, v.filter, b);
    ASSERT_EQ(DspNonUniformScaler(&p), DSP_S_OK);
    auto again = [&](uint32_t options, uint32_t bands, bool simd) {
      Pic got(v.format, v.ow + 4, 38);
      framedsp_test::CpuLevel level(simd);
      for (uint32_t n = 1; n <= bands; ++n) {
        DSP_NONUNIFORM_SCALER_PARAMS q = params(v.mode, v.filter, b, options);
        q.Buffer.Out.Buffer.pBuffer = got.data(), q.Buffer.ulSliceCount = bands, q.Buffer.ulSliceNumber = n;
        EXPECT_EQ(DspNonUniformScaler(&q), DSP_S_OK);
      }
      EXPECT_TRUE(framedsp_test::same_bytes(want, got)) << "options " << options << " bands " << bands << " simd " << simd;
    };
    again(0, 1, false);
    again(1, 1, true);
    again(0, 3, true);
  }
}

}  // namespace
