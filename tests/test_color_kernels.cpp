// The colour-matrix kernels of the copy: the matrices against the BT.601 / BT.709 conversion
// derived here in double precision (so the kernels, which follow the integer formula written here,
// are within one step of the exact conversion), and every SIMD entry against its scalar twin.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "framedsp/framedsp.h"
#include "copy/color_kernels.h"
#include "test_util.h"

namespace {

using framedsp::ColorMatrix;
using framedsp_test::GuardedBuffer;
using Mat3 = std::array<std::array<double, 3>, 3>;

// Byte offsets of Cb, Y0, Cr, Y1 in a pair of pixels of each layout.
struct Offsets {
  int cb, y0, cr, y1;
};
const Offsets kLayouts[2] = {{0, 1, 2, 3}, {1, 0, 3, 2}};  // U Y V Y, Y U Y V

framedsp::ColorLineKernel pick(uint32_t flags, int layout) {
  framedsp::ColorKernelTable t;
  framedsp::color_table_init(&t, flags);
  return layout ? t.yuyv : t.uyvy;
}
const ColorMatrix *matrix(int m) {
  return m == 0 ? &framedsp::kBt601ToBt709 : m == 1 ? &framedsp::kBt709ToBt601 : nullptr;
}

// Studio-range R'G'B' -> Y'CbCr in 8-bit units (Y 219, chroma 224), and the exact conversion of
// matrix m on (Y, Cb - 128, Cr - 128).
Mat3 rgb_to_ycbcr(double kr, double kb) {
  const double kg = 1 - kr - kb;
  return {{{219 * kr, 219 * kg, 219 * kb},
           {-112 * kr / (1 - kb), -112 * kg / (1 - kb), 112},
           {112, -112 * kg / (1 - kr), -112 * kb / (1 - kr)}}};
}
Mat3 derived(int m) {
  const Mat3 from = m ? rgb_to_ycbcr(0.2126, 0.0722) : rgb_to_ycbcr(0.299, 0.114);
  const Mat3 to = m ? rgb_to_ycbcr(0.299, 0.114) : rgb_to_ycbcr(0.2126, 0.0722);
  const Mat3 &a = from;
  const double det = a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
                     a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
  Mat3 inv{}, r{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      inv[i][j] = (a[(j + 1) % 3][(i + 1) % 3] * a[(j + 2) % 3][(i + 2) % 3] -
                   a[(j + 1) % 3][(i + 2) % 3] * a[(j + 2) % 3][(i + 1) % 3]) / det;
    }
  }
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[i][j] += to[i][k] * inv[k][j];
  return r;
}

TEST(ColorMatrix, WeightsAreTheDerivedConversionWithinOneUnit) {
  for (int m : {0, 1}) {
    const Mat3 d = derived(m);
    // The kernels keep Y at weight 1 and give chroma no Y term: the derivation must agree.
    EXPECT_NEAR(d[0][0], 1.0, 1e-12);
    EXPECT_NEAR(d[1][0], 0.0, 1e-12);
    EXPECT_NEAR(d[2][0], 0.0, 1e-12);
    const ColorMatrix &c = *matrix(m);
    const int16_t got[3][2] = {{c.y_cb, c.y_cr}, {c.cb_cb, c.cb_cr}, {c.cr_cb, c.cr_cr}};
    for (int row = 0; row < 3; ++row) {
      for (int col = 0; col < 2; ++col) EXPECT_LE(std::fabs(got[row][col] - d[row][col + 1] * 16384.0), 1.0) << m << row << col;
    }
  }
  for (uint32_t in = 0; in < 5; ++in) {
    for (uint32_t out = 0; out < 5; ++out) {
      const ColorMatrix *want = in == DSP_COLOR_SPACE_BT601 && out == DSP_COLOR_SPACE_BT709   ? matrix(0)
                               : in == DSP_COLOR_SPACE_BT709 && out == DSP_COLOR_SPACE_BT601 ? matrix(1)
                                                                                             : nullptr;
      EXPECT_EQ(framedsp::color_matrix(in, out), want) << in << " -> " << out;
    }
  }
}

// The documented arithmetic on each pair (an odd last pixel is copied); counts clamped samples.
std::vector<uint8_t> formula(int layout, const ColorMatrix *m, const uint8_t *src, size_t pixels, size_t *clamped) {
  std::vector<uint8_t> out(src, src + 2 * pixels);
  const Offsets o = kLayouts[layout];
  for (size_t p = 0; m && p + 1 < pixels; p += 2) {
    const uint8_t *s = src + 2 * p;
    const int cb = s[o.cb] - 128, cr = s[o.cr] - 128;
    const int w[3][2] = {{m->y_cb, m->y_cr}, {m->cb_cb, m->cb_cr}, {m->cr_cb, m->cr_cr}};
    int v[3];
    for (int r = 0; r < 3; ++r) v[r] = int(std::floor((w[r][0] * cb + w[r][1] * cr + 8192) / 16384.0));
    const int exact[4] = {s[o.y0] + v[0], s[o.y1] + v[0], 128 + v[1], 128 + v[2]};
    const int at[4] = {o.y0, o.y1, o.cb, o.cr};
    for (int k = 0; k < 4; ++k) {
      out[2 * p + at[k]] = uint8_t(std::min(255, std::max(0, exact[k])));
      *clamped += exact[k] < 0 || exact[k] > 255;
    }
  }
  return out;
}

TEST(ColorKernel, ScalarFollowsTheFormula) {
  std::mt19937 rng(framedsp_test::test_seed());
  for (int layout : {0, 1}) {
    for (int m : {0, 1, 2}) {
      size_t clamped = 0;
      for (int kind = 0; kind < 4; ++kind) {
        for (size_t pixels = 0; pixels <= 301; ++pixels) {
          GuardedBuffer &src = framedsp_test::scratch(0, 2 * pixels, 0), &dst = framedsp_test::scratch(1, 2 * pixels, 16, 0xC3);
          framedsp_test::fill_line(src.data(), src.size(), kind, rng);
          pick(0, layout)(src.data(), dst.data(), pixels, matrix(m));
          const std::string what = "layout " + std::to_string(layout) + " matrix " + std::to_string(m) + " pixels " +
                                   std::to_string(pixels) + " kind " + std::to_string(kind);
          ASSERT_TRUE(dst.intact()) << what << " " << dst.damage();
          const std::vector<uint8_t> want = formula(layout, matrix(m), src.data(), pixels, &clamped);
          ASSERT_TRUE(framedsp_test::same_line(want.data(), dst.data(), want.size())) << what;
        }
      }
      if (m < 2) {
        EXPECT_GT(clamped, 0u) << "the data never reached the clamps";
      }
    }
  }
}

// Every length to 300 at every lead and flat lines, random lengths to 4096, with each matrix and
// none; the source ends against a protected page, the destination has canaries; and in place.
TEST(ColorKernel, SimdEqualsScalar) {
  int ran[2] = {0, 0};
  for (uint32_t level : framedsp_test::simd_levels()) {
    for (int layout : {0, 1}) {
      const framedsp::ColorLineKernel scalar = pick(0, layout), simd = pick(level, layout);
      if (simd == scalar || (level != framedsp::kCpuSSE2 && simd == pick(framedsp::kCpuSSE2, layout))) continue;
      ++ran[layout];
      for (int m : {0, 1, 2}) {
        SCOPED_TRACE("level " + std::to_string(level) + " layout " + std::to_string(layout) + " matrix " + std::to_string(m));
        std::mt19937 rng(framedsp_test::test_seed() + layout);
        framedsp_test::for_each_line(300, 40, rng, [&](size_t pixels, size_t lead, int kind) {
          GuardedBuffer &src = framedsp_test::scratch(0, 2 * pixels + 15, 0),
                        &dst = framedsp_test::scratch(1, 2 * pixels + 15, 64, 0xC3);
          framedsp_test::fill_line(src.data(), src.size(), kind, rng);
          std::vector<uint8_t> want(dst.data(), dst.data() + dst.size());
          const size_t at = (pixels * 7 + lead) % 16;
          scalar(src.data() + 15 - lead, want.data() + at, pixels, matrix(m));
          simd(src.data() + 15 - lead, dst.data() + at, pixels, matrix(m));
          ASSERT_TRUE(dst.intact()) << pixels << " " << lead << " " << dst.damage();
          ASSERT_TRUE(framedsp_test::same_line(want.data(), dst.data(), dst.size())) << pixels << " lead " << lead;
        });
        std::vector<uint8_t> line(2 * 1921), want(line.size());
        framedsp_test::fill_line(line.data(), line.size(), 0, rng);
        scalar(line.data(), want.data(), 1921, matrix(m));
        simd(line.data(), line.data(), 1921, matrix(m));
        EXPECT_EQ(want, line) << "in place";
      }
    }
  }
  if (framedsp::simd_twins_built() && !framedsp_test::simd_levels().empty()) {
    EXPECT_GT(ran[0], 0) << "no SIMD uyvy kernel ran";
    EXPECT_GT(ran[1], 0) << "no SIMD yuyv kernel ran";
  }
}

// The levels every kernel check runs are the machine's: detection agrees with the compiler's own
// (which also checks that the OS saves the YMM state), and a zero mask forces the scalar kernels.
TEST(Cpu, DetectionAgreesWithTheCompiler) {
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
  const uint32_t flags = framedsp::cpu_flags();
  EXPECT_EQ((flags & framedsp::kCpuSSE2) != 0, __builtin_cpu_supports("sse2") != 0);
  EXPECT_EQ((flags & framedsp::kCpuSSSE3) != 0, __builtin_cpu_supports("ssse3") != 0);
  EXPECT_EQ((flags & framedsp::kCpuAVX2) != 0, __builtin_cpu_supports("avx2") != 0);
#endif
  framedsp::set_cpu_mask(0);
  EXPECT_EQ(framedsp::cpu_flags(), 0u);
  framedsp::set_cpu_mask(~0u);
}

}  // namespace
