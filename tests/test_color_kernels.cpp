// The colour-matrix kernels: the matrices against the BT.601 / BT.709 conversion derived here in
// double precision; the scalar kernels against that conversion and against an integer formula
// written here; every SIMD entry against the scalar kernel of its layout, byte for byte; and a
// BT.601 -> BT.709 -> BT.601 round trip.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "frame/cpu.h"
#include "framedsp/framedsp.h"
#include "lines/color_kernels.h"
#include "test_util.h"

namespace {

using framedsp::ColorKernelTable;
using framedsp::ColorLineKernel;
using framedsp::ColorMatrix;
using framedsp_test::GuardedBuffer;

constexpr uint8_t kOutFill = 0xC3;

ColorKernelTable table_for(uint32_t flags) {
  ColorKernelTable t;
  framedsp::color_table_init(&t, flags);
  return t;
}

// ---- layouts and matrices ----------------------------------------------------------------------

enum LayoutId : int { kUyvy = 0, kYuyv = 1 };
const char *layout_name(int l) { return l == kUyvy ? "uyvy" : "yuyv"; }

struct Offsets {
  int cb, y0, cr, y1;
};
Offsets offsets(int l) { return l == kUyvy ? Offsets{0, 1, 2, 3} : Offsets{1, 0, 3, 2}; }

ColorLineKernel pick(const ColorKernelTable &t, int l) { return l == kUyvy ? t.uyvy : t.yuyv; }

enum MatrixId : int { k601To709 = 0, k709To601 = 1, kNoMatrix = 2 };
const char *matrix_name(int m) {
  static const char *const kNames[] = {"601to709", "709to601", "copy"};
  return kNames[m];
}
const ColorMatrix *matrix_ptr(int m) {
  if (m == k601To709) return &framedsp::kBt601ToBt709;
  if (m == k709To601) return &framedsp::kBt709ToBt601;
  return nullptr;
}

using Mat3 = std::array<std::array<double, 3>, 3>;

// Studio-range R'G'B' -> Y'CbCr with the scale of 8-bit samples (Y 219, chroma 224).
Mat3 rgb_to_ycbcr(double kr, double kb) {
  const double kg = 1.0 - kr - kb;
  return {{{219 * kr, 219 * kg, 219 * kb},
           {224 * -kr / (2 * (1 - kb)), 224 * -kg / (2 * (1 - kb)), 224 * 0.5},
           {224 * 0.5, 224 * -kg / (2 * (1 - kr)), 224 * -kb / (2 * (1 - kr))}}};
}

Mat3 inverse(const Mat3 &a) {
  const double det = a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) -
                     a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
                     a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
  Mat3 r;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      const int r0 = (j + 1) % 3, r1 = (j + 2) % 3, c0 = (i + 1) % 3, c1 = (i + 2) % 3;
      r[i][j] = (a[r0][c0] * a[r1][c1] - a[r0][c1] * a[r1][c0]) / det;
    }
  }
  return r;
}

Mat3 multiply(const Mat3 &a, const Mat3 &b) {
  Mat3 r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[i][j] += a[i][k] * b[k][j];
  return r;
}

// The exact conversion on (Y, Cb - 128, Cr - 128).
Mat3 derived(int m) {
  const Mat3 bt601 = rgb_to_ycbcr(0.299, 0.114);
  const Mat3 bt709 = rgb_to_ycbcr(0.2126, 0.0722);
  return m == k601To709 ? multiply(bt709, inverse(bt601)) : multiply(bt601, inverse(bt709));
}

TEST(ColorMatrix, WeightsAreWithinOneUnitOfTheDerivedConversion) {
  for (int m : {k601To709, k709To601}) {
    const Mat3 d = derived(m);
    // The kernels keep Y at weight 1 and give chroma no Y term: the derivation must agree.
    EXPECT_NEAR(d[0][0], 1.0, 1e-12) << matrix_name(m);
    EXPECT_NEAR(d[1][0], 0.0, 1e-12) << matrix_name(m);
    EXPECT_NEAR(d[2][0], 0.0, 1e-12) << matrix_name(m);
    const ColorMatrix &c = *matrix_ptr(m);
    const int16_t got[3][2] = {{c.y_cb, c.y_cr}, {c.cb_cb, c.cb_cr}, {c.cr_cb, c.cr_cr}};
    for (int row = 0; row < 3; ++row) {
      for (int col = 0; col < 2; ++col) {
        EXPECT_LE(std::fabs(got[row][col] - d[row][col + 1] * 16384.0), 1.0)
            << matrix_name(m) << " row " << row << " weight " << col << " exact "
            << d[row][col + 1] * 16384.0;
      }
    }
  }
}

TEST(ColorMatrix, OnlyTheTwoConvertingPairsHaveAMatrix) {
  EXPECT_EQ(framedsp::color_matrix(DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709),
            &framedsp::kBt601ToBt709);
  EXPECT_EQ(framedsp::color_matrix(DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT601),
            &framedsp::kBt709ToBt601);
  for (uint32_t in = 0; in < 5; ++in) {
    for (uint32_t out = 0; out < 5; ++out) {
      if ((in == 2 && out == 1) || (in == 1 && out == 2)) continue;
      EXPECT_EQ(framedsp::color_matrix(in, out), nullptr) << in << " -> " << out;
    }
  }
}

// ---- test data ---------------------------------------------------------------------------------

enum class Data { kRandom, kZeros, kOnes, kExtremeChroma, kExtremeAll };
const char *data_name(Data d) {
  switch (d) {
    case Data::kRandom: return "random";
    case Data::kZeros: return "all-0";
    case Data::kOnes: return "all-255";
    case Data::kExtremeChroma: return "chroma 0/255";
    case Data::kExtremeAll: return "bytes 0/255";
  }
  return "?";
}

// n bytes of a line of layout l.  Extreme chroma keeps random Y, so Y + dy leaves 0..255 often.
void fill(Data d, int l, uint8_t *p, size_t n, std::mt19937 &rng) {
  const Offsets o = offsets(l);
  for (size_t i = 0; i < n; ++i) {
    const int k = static_cast<int>(i % 4);
    const bool chroma = k == o.cb || k == o.cr;
    switch (d) {
      case Data::kRandom: p[i] = static_cast<uint8_t>(rng()); break;
      case Data::kZeros: p[i] = 0; break;
      case Data::kOnes: p[i] = 255; break;
      case Data::kExtremeChroma:
        p[i] = chroma ? ((rng() & 1) ? 255 : 0) : static_cast<uint8_t>(rng());
        break;
      case Data::kExtremeAll: p[i] = (rng() & 1) ? 255 : 0; break;
    }
  }
}

// ---- scalar kernels against the formula and the exact conversion -------------------------------

int64_t floor_div(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }
int64_t clamp255(int64_t v) { return std::min<int64_t>(255, std::max<int64_t>(0, v)); }

// The documented arithmetic, one sample at a time; counts the samples that were clamped.
std::vector<uint8_t> integer_reference(int l, const ColorMatrix &m, const uint8_t *src,
                                       size_t pixels, size_t *clamped) {
  std::vector<uint8_t> out(src, src + pixels * 2);
  const Offsets o = offsets(l);
  const int w[3][2] = {{m.y_cb, m.y_cr}, {m.cb_cb, m.cb_cr}, {m.cr_cb, m.cr_cr}};
  for (size_t p = 0; p + 1 < pixels; p += 2) {
    const uint8_t *s = src + 2 * p;
    const int64_t cb = s[o.cb] - 128, cr = s[o.cr] - 128;
    int64_t v[3];
    for (int r = 0; r < 3; ++r) v[r] = floor_div(w[r][0] * cb + w[r][1] * cr + 8192, 16384);
    const int64_t exact[4] = {s[o.y0] + v[0], s[o.y1] + v[0], 128 + v[1], 128 + v[2]};
    const int at[4] = {o.y0, o.y1, o.cb, o.cr};
    for (int k = 0; k < 4; ++k) {
      out[2 * p + at[k]] = static_cast<uint8_t>(clamp255(exact[k]));
      *clamped += exact[k] != clamp255(exact[k]);
    }
  }
  return out;
}

// The conversion in double with the derived (unrounded) weights, rounded and clamped.
std::vector<uint8_t> float_reference(int l, int m, const uint8_t *src, size_t pixels) {
  const Mat3 d = derived(m);
  std::vector<uint8_t> out(src, src + pixels * 2);
  const Offsets o = offsets(l);
  auto to8 = [](double v) {
    return static_cast<uint8_t>(std::min(255.0, std::max(0.0, std::floor(v + 0.5))));
  };
  for (size_t p = 0; p + 1 < pixels; p += 2) {
    const uint8_t *s = src + 2 * p;
    const double cb = s[o.cb] - 128.0, cr = s[o.cr] - 128.0;
    const double dy = d[0][1] * cb + d[0][2] * cr;
    out[2 * p + o.y0] = to8(s[o.y0] + dy);
    out[2 * p + o.y1] = to8(s[o.y1] + dy);
    out[2 * p + o.cb] = to8(128.0 + d[1][1] * cb + d[1][2] * cr);
    out[2 * p + o.cr] = to8(128.0 + d[2][1] * cb + d[2][2] * cr);
  }
  return out;
}

TEST(ColorKernelScalar, MatchesFormulaExactlyAndConversionWithinOne) {
  const ColorKernelTable c = table_for(0);
  std::mt19937 rng(framedsp_test::test_seed() + 1);
  for (int l : {kUyvy, kYuyv}) {
    for (int m : {k601To709, k709To601}) {
      size_t clamped = 0, off_by_one = 0;
      for (Data d : {Data::kRandom, Data::kExtremeChroma, Data::kExtremeAll, Data::kZeros,
                     Data::kOnes}) {
        for (size_t pixels = 0; pixels <= 301; ++pixels) {
          GuardedBuffer src(pixels * 2, 0), dst(pixels * 2, 16, kOutFill);
          fill(d, l, src.data(), pixels * 2, rng);
          pick(c, l)(src.data(), dst.data(), pixels, matrix_ptr(m));
          const std::string what = std::string(layout_name(l)) + "_c " + matrix_name(m) +
                                   " pixels " + std::to_string(pixels) + " " + data_name(d);
          ASSERT_TRUE(dst.intact()) << what << " " << dst.damage();
          const auto want = integer_reference(l, *matrix_ptr(m), src.data(), pixels, &clamped);
          ASSERT_TRUE(std::equal(want.begin(), want.end(), dst.data()))
              << what << "\n" << framedsp_test::hex_diff(want.data(), dst.data(), want.size());
          const auto approx = float_reference(l, m, src.data(), pixels);
          for (size_t i = 0; i < approx.size(); ++i) {
            ASSERT_LE(std::abs(approx[i] - dst[i]), 1) << what << " byte " << i;
            off_by_one += approx[i] != dst[i];
          }
        }
      }
      // The data must reach the clamps, or the saturation cases above were not exercised.
      EXPECT_GT(clamped, 0u) << layout_name(l) << " " << matrix_name(m);
      RecordProperty(std::string(layout_name(l)) + "_" + matrix_name(m) + "_off_by_one",
                     static_cast<int>(off_by_one));
    }
  }
}

// A null matrix copies (an odd last pixel is copied by the formula test above).
TEST(ColorKernelScalar, NullMatrixCopies) {
  std::mt19937 rng(framedsp_test::test_seed() + 2);
  for (int l : {kUyvy, kYuyv}) {
    for (size_t pixels : {0, 1, 2, 3, 7, 8, 9, 31, 640, 1921}) {
      GuardedBuffer src(pixels * 2, 0), dst(pixels * 2, 16, kOutFill);
      fill(Data::kRandom, l, src.data(), pixels * 2, rng);
      pick(table_for(0), l)(src.data(), dst.data(), pixels, nullptr);
      ASSERT_TRUE(dst.intact()) << pixels << " " << dst.damage();
      EXPECT_EQ(0, pixels ? std::memcmp(src.data(), dst.data(), pixels * 2) : 0) << pixels;
    }
  }
}

// ---- SIMD against scalar -----------------------------------------------------------------------

struct SimdCase {
  int layout;
  const char *isa;
  uint32_t flags;
};

void PrintTo(const SimdCase &c, std::ostream *os) { *os << layout_name(c.layout) << "_" << c.isa; }

std::vector<SimdCase> simd_cases() {
  std::vector<SimdCase> cases;
  for (int l : {kUyvy, kYuyv}) {
    cases.push_back({l, "sse2", framedsp::kCpuSSE2});
    cases.push_back({l, "avx2", framedsp::kCpuSSE2 | framedsp::kCpuAVX2});
  }
  return cases;
}

class ColorKernelSimd : public ::testing::TestWithParam<SimdCase> {
 protected:
  void SetUp() override {
    const SimdCase &c = GetParam();
    if ((framedsp::cpu_flags() & c.flags) != c.flags) GTEST_SKIP() << c.isa << " not on this CPU";
    const uint32_t narrower = c.flags == framedsp::kCpuSSE2 ? 0u : framedsp::kCpuSSE2;
    test_ = pick(table_for(c.flags), c.layout);
    reference_ = pick(table_for(0), c.layout);
    if (test_ == pick(table_for(narrower), c.layout)) GTEST_SKIP() << "no " << c.isa << " entry";
  }

  // One line of `pixels` at source offset `so` (15 ends it against the protected page) and
  // destination offset `dso` inside a canary-guarded area; the whole area must match.
  // Buffers of pixels * 2 + 15 bytes: src without margin, dst with canaries.
  void check(size_t pixels, size_t so, size_t dso, int m, Data d, std::mt19937 &rng,
             GuardedBuffer &src, GuardedBuffer &dst) {
    // The pattern starts at the line, so extreme chroma lands on the chroma bytes.
    fill(Data::kRandom, GetParam().layout, src.data(), src.size(), rng);
    fill(d, GetParam().layout, src.data() + so, pixels * 2, rng);
    std::memset(dst.data(), kOutFill, dst.size());
    std::vector<uint8_t> want(dst.data(), dst.data() + dst.size());
    reference_(src.data() + so, want.data() + dso, pixels, matrix_ptr(m));
    test_(src.data() + so, dst.data() + dso, pixels, matrix_ptr(m));
    if (dst.intact() && std::memcmp(want.data(), dst.data(), want.size()) == 0) return;
    std::ostringstream s;
    s << layout_name(GetParam().layout) << "_" << GetParam().isa << " " << matrix_name(m)
      << " pixels " << pixels << " src offset " << so << " dst offset " << dso << " data "
      << data_name(d) << " seed " << framedsp_test::test_seed() << " (FRAMEDSP_SEED)";
    ADD_FAILURE() << s.str() << (dst.intact() ? "" : "\nguard: " + dst.damage())
                  << "\n(offsets from the destination area start)\n"
                  << framedsp_test::hex_diff(want.data(), dst.data(), want.size());
  }

  ColorLineKernel test_ = nullptr;
  ColorLineKernel reference_ = nullptr;
};

// Every length to 300 at every source and destination offset, random lengths to 4096, and flat
// and extreme lines of every length, with each matrix and none.
TEST_P(ColorKernelSimd, EveryLengthAtEveryOffsetAndFlatLines) {
  std::mt19937 rng(framedsp_test::test_seed() + 10 + GetParam().layout);
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 300; ++n) lengths.push_back(n);
  for (int i = 0; i < 100; ++i) lengths.push_back(301 + rng() % (4096 - 300));
  lengths.insert(lengths.end(), {1919, 1920, 4095, 4096});
  for (int m : {k601To709, k709To601, kNoMatrix}) {
    for (size_t pixels : lengths) {
      GuardedBuffer src(pixels * 2 + 15, 0), dst(pixels * 2 + 15, 64);
      for (size_t so = 0; so < 16; so += (pixels <= 300 ? 1 : 15)) {
        for (size_t dso = 0; dso < (pixels <= 300 ? 16u : 1u); ++dso) {
          check(pixels, so, pixels <= 300 ? dso : rng() % 16, m, Data::kRandom, rng, src, dst);
        }
      }
      for (Data d : {Data::kZeros, Data::kOnes, Data::kExtremeChroma, Data::kExtremeAll}) {
        check(pixels, pixels % 16, (pixels * 7) % 16, m, d, rng, src, dst);
        check(pixels, 15, (pixels * 3) % 16, m, d, rng, src, dst);
      }
      if (HasFailure()) return;
    }
  }
}

TEST_P(ColorKernelSimd, InPlace) {
  // The copy always converts into a work line, but nothing stops a caller converting in place.
  std::mt19937 rng(framedsp_test::test_seed() + 30);
  for (size_t pixels : {1, 8, 33, 1920}) {
    for (int m : {k601To709, k709To601, kNoMatrix}) {
      std::vector<uint8_t> a(pixels * 2), b;
      fill(Data::kRandom, GetParam().layout, a.data(), a.size(), rng);
      b = a;
      std::vector<uint8_t> want(a.size());
      reference_(a.data(), want.data(), pixels, matrix_ptr(m));
      test_(b.data(), b.data(), pixels, matrix_ptr(m));
      EXPECT_EQ(want, b) << pixels << " " << matrix_name(m);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Table, ColorKernelSimd, ::testing::ValuesIn(simd_cases()),
                         [](const ::testing::TestParamInfo<SimdCase> &info) {
                           return std::string(layout_name(info.param.layout)) + "_" +
                                  info.param.isa;
                         });

TEST(ColorKernelRegistry, SimdEntriesExistOnSse2Machines) {
  const uint32_t flags = framedsp::cpu_flags();
  if (!(flags & framedsp::kCpuSSE2)) GTEST_SKIP() << "no SSE2";
  if (!framedsp::color_isas_built()) GTEST_SKIP() << "library built without SIMD kernels";
  const ColorKernelTable c = table_for(0);
  const ColorKernelTable sse2 = table_for(framedsp::kCpuSSE2);
  EXPECT_NE(sse2.uyvy, c.uyvy) << "no SSE2 uyvy kernel: the SIMD checks test nothing";
  EXPECT_NE(sse2.yuyv, c.yuyv) << "no SSE2 yuyv kernel: the SIMD checks test nothing";
  if (flags & framedsp::kCpuAVX2) {
    const ColorKernelTable avx2 = table_for(framedsp::kCpuSSE2 | framedsp::kCpuAVX2);
    EXPECT_NE(avx2.uyvy, sse2.uyvy) << "no AVX2 uyvy kernel";
    EXPECT_NE(avx2.yuyv, sse2.yuyv) << "no AVX2 yuyv kernel";
  }
}

// ---- round trip --------------------------------------------------------------------------------

// 601 -> 709 -> 601 returns every sample within 1 for Y 48..208 and Cb, Cr 16..240 (no clamping
// on the way: |dy| <= 42).  Every (Cb, Cr) of that square, with Y at both ends and the middle.
TEST(ColorKernelRoundTrip, Bt601ToBt709AndBackWithinOne) {
  for (uint32_t flags : {0u, framedsp::cpu_flags()}) {
    const ColorKernelTable t = table_for(flags);
    for (int l : {kUyvy, kYuyv}) {
      const Offsets o = offsets(l);
      std::vector<uint8_t> line, mid, back;
      for (int cb = 16; cb <= 240; ++cb) {
        for (int cr = 16; cr <= 240; ++cr) {
          for (int y : {48, 128, 208}) {
            uint8_t pair[4];
            pair[o.cb] = static_cast<uint8_t>(cb);
            pair[o.cr] = static_cast<uint8_t>(cr);
            pair[o.y0] = static_cast<uint8_t>(y);
            pair[o.y1] = static_cast<uint8_t>(255 - y);
            line.insert(line.end(), pair, pair + 4);
          }
        }
      }
      const size_t pixels = line.size() / 2;
      mid.resize(line.size());
      back.resize(line.size());
      pick(t, l)(line.data(), mid.data(), pixels, &framedsp::kBt601ToBt709);
      pick(t, l)(mid.data(), back.data(), pixels, &framedsp::kBt709ToBt601);
      int worst = 0;
      size_t changed = 0;
      for (size_t i = 0; i < line.size(); ++i) {
        worst = std::max(worst, std::abs(line[i] - back[i]));
        changed += line[i] != back[i];
      }
      EXPECT_LE(worst, 1) << layout_name(l) << " flags " << flags;
      EXPECT_NE(line, mid) << "the forward conversion changed nothing";
      RecordProperty(std::string("round_trip_changed_") + layout_name(l),
                     static_cast<int>(changed));
    }
  }
}

}  // namespace
