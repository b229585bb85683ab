// Scaler line kernels: every class's nearest and linear resampler against per-sample formulas
// written here from the byte layouts, the SSE2 blender against the scalar one on every length and
// alignment, and the colour-space line converter against its formula.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/cpu.h"
#include "frame/pixel_format.h"
#include "framedsp/framedsp.h"
#include "lines/color_kernels.h"
#include "scale/scale_lines.h"
#include "scale_reference.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;
using namespace scale_ref;

struct ResampleCase {
  size_t layout;
  bool linear;
};

class ResamplerTest : public ::testing::TestWithParam<ResampleCase> {};

TEST_P(ResamplerTest, MatchesPerSampleFormula) {
  const RefLayout l = layouts()[GetParam().layout];
  const bool linear = GetParam().linear;
  framedsp::ScaleLineTable t;
  framedsp::scale_line_table_init(&t, framedsp::cpu_flags());
  ASSERT_EQ(framedsp::format_class(l.format), l.cls);
  const framedsp::ScaleResampler f = linear ? t.linear[l.cls] : t.nearest[l.cls];
  std::mt19937 rng(framedsp_test::test_seed() + GetParam().layout * 2 + linear);
  // Sizes in groups: down, up, equal, 1 group, odd ratios; a partial group on each side.
  const int sizes[][2] = {{1, 1}, {1, 7}, {7, 1}, {2, 3}, {3, 2}, {10, 10}, {16, 9}, {9, 16}, {40, 17},
                          {17, 40}, {64, 128}, {128, 64}, {33, 100}, {5, 0}, {0, 5}};
  for (const auto &sz : sizes) {
    for (int partial = 0; partial < 2; ++partial) {
      const size_t extra = partial ? size_t(l.group > 1 ? l.group - 1 : 0) : 0;
      const size_t sb = size_t(sz[0]) * l.group + extra;
      const size_t db = size_t(sz[1]) * l.group + extra;
      // Units of the step: samples of the pixel-rate stream per output sample.
      const size_t sp = sb / l.group * l.streams[0].per, dp = db / l.group * l.streams[0].per;
      const uint32_t step = dp ? uint32_t((uint64_t(sp) << 14) / dp) : 16384;
      GuardedBuffer src(sb, 0);  // the source ends against the protected page
      framedsp_test::fill_random(src.data(), sb, rng);
      GuardedBuffer dst(db, 32, 0x5A);
      std::vector<uint8_t> expected(db, 0x5A);
      reference(l, linear, src.data(), sb, expected.data(), db, step);
      f(src.data(), dst.data(), step, sb, db);
      ASSERT_TRUE(dst.intact()) << dst.damage();
      ASSERT_TRUE(db == 0 || std::memcmp(expected.data(), dst.data(), db) == 0)
          << "format " << l.format << " " << sb << " -> " << db << "\n"
          << framedsp_test::hex_diff(expected.data(), dst.data(), db);
    }
  }
}

// The line resamplers of every instruction-set level against the per-sample formula: output
// lengths 0..200 samples at leads 0..15, steps that shrink, copy, grow and reach the extremes
// (0: every output takes sample 0), sources from one sample to longer than needed (short ones
// clamp to their last sample) ending against a protected page.
TEST_P(ResamplerTest, EveryLevelMatchesTheFormulaOnEveryLengthLeadAndStep) {
  const RefLayout l = layouts()[GetParam().layout];
  const bool linear = GetParam().linear;
  const uint32_t steps[] = {16384, 24576, 8192, 16383, 16385, 49152, 5461, 32768, 1, 0, 1u << 22, 20000};
  for (const uint32_t level : {0u, uint32_t(framedsp::kCpuSSE2), uint32_t(framedsp::kCpuSSE2 | framedsp::kCpuSSSE3),
                               framedsp::cpu_flags()}) {
    if ((level & framedsp::cpu_flags()) != level) continue;
    SCOPED_TRACE(level);
    framedsp::ScaleLineTable t;
    framedsp::scale_line_table_init(&t, level);
    const framedsp::ScaleResampler f = linear ? t.linear[l.cls] : t.nearest[l.cls];
    std::mt19937 rng(framedsp_test::test_seed() + 31 * GetParam().layout + linear);
    const size_t per = l.streams[0].per;
    for (size_t out = 0; out <= 200; ++out) {
      const size_t lead = out % 16;
      const uint32_t step = steps[out % (sizeof steps / sizeof steps[0])];
      const size_t db = (out + per - 1) / per * l.group;
      const size_t dp = db / l.group * per;
      const uint64_t need = dp ? (uint64_t(dp - 1) * step >> 14) + 2 : 1;
      const uint64_t sp = std::max<uint64_t>(1, std::min<uint64_t>(need + (rng() % 5) - 2, 4000));
      const size_t sb = size_t((sp + per - 1) / per) * l.group;
      GuardedBuffer src(sb + lead, 0);
      framedsp_test::fill_random(src.data(), sb + lead, rng);
      GuardedBuffer dst(db + lead, 32, 0x5A);
      std::vector<uint8_t> expected(db, 0x5A);
      reference(l, linear, src.data() + lead, sb, expected.data(), db, step);
      f(src.data() + lead, dst.data() + lead, step, sb, db);
      ASSERT_TRUE(dst.intact()) << dst.damage();
      for (size_t i = 0; i < lead; ++i) ASSERT_EQ(dst[i], 0x5A);
      ASSERT_TRUE(db == 0 || std::memcmp(expected.data(), dst.data() + lead, db) == 0)
          << "format " << l.format << " step " << step << " " << sb << " -> " << db << " lead " << lead << "\n"
          << framedsp_test::hex_diff(expected.data(), dst.data() + lead, db);
    }
  }
}

std::vector<ResampleCase> resample_cases() {
  std::vector<ResampleCase> v;
  for (size_t i = 0; i < layouts().size(); ++i) {
    v.push_back({i, false});
    v.push_back({i, true});
  }
  return v;
}
INSTANTIATE_TEST_SUITE_P(AllClasses, ResamplerTest, ::testing::ValuesIn(resample_cases()));

TEST(ScaleResampler, SixteenBitLinearInterpolatesWholeSamples) {
  framedsp::ScaleLineTable t;
  framedsp::scale_line_table_init(&t, framedsp::cpu_flags());
  // Format 262: samples 0x00FF and 0x0101; half way is (0xFF + 0x101 + 1) / 2 = 0x100, which a
  // byte-wise blend (0x80, 0x80 -> 0x8080) would not give.
  const uint8_t src[4] = {0xFF, 0x00, 0x01, 0x01};
  uint8_t dst[4] = {};
  t.linear[11](src, dst, 8192, 4, 4);
  EXPECT_EQ(dst[0], 0xFF);
  EXPECT_EQ(dst[1], 0x00);
  EXPECT_EQ(dst[2], 0x00);
  EXPECT_EQ(dst[3], 0x01);
}

// ---- blender -------------------------------------------------------------------------------

uint8_t blend_ref(uint8_t a, uint8_t b, uint32_t wa, uint32_t wb) {
  return uint8_t((uint32_t(a) * wa + uint32_t(b) * wb + 8192) >> 14);
}

// The instruction-set levels whose kernels this machine can run: SSE2 alone, up to SSSE3, and
// everything it has (AVX2 where present); each level's table must give the scalar bytes.
std::vector<uint32_t> isa_levels() {
  const uint32_t have = framedsp::cpu_flags();
  std::vector<uint32_t> levels;
  for (uint32_t want : {uint32_t(framedsp::kCpuSSE2), uint32_t(framedsp::kCpuSSE2 | framedsp::kCpuSSSE3), have}) {
    const uint32_t level = want & have;
    if (level == 0) continue;
    bool seen = false;
    for (uint32_t l : levels) seen = seen || l == level;
    if (!seen) levels.push_back(level);
  }
  return levels;
}

TEST(ScaleBlender, SimdEqualsScalarOnEveryLengthAndLead) {
  if (isa_levels().empty()) GTEST_SKIP() << "no SIMD blender on this machine";
  for (const uint32_t level : isa_levels()) {
  SCOPED_TRACE(level);
  framedsp::ScaleLineTable simd;
  framedsp::scale_line_table_init(&simd, level);
  std::mt19937 rng(framedsp_test::test_seed());
  const uint32_t weights[] = {0, 1, 8192, 16383, 16384, 5000};
  for (size_t len = 0; len <= 300; ++len) {
    for (size_t lead = 0; lead < 16; ++lead) {
      // Weights summing to one, and (every fifth length) weights that do not.
      const uint32_t wb = (len + lead) % 7 < 6 ? weights[(len + lead) % 6] : rng() % 16385;
      const uint32_t wa = len % 5 == 4 ? rng() % (16385 - wb) : 16384 - wb;
      GuardedBuffer a(lead + len, 16), b(lead + len, 16), d1(lead + len, 16, 0x33), d2(lead + len, 16, 0x33);
      framedsp_test::fill_random(a.data(), lead + len, rng);
      framedsp_test::fill_random(b.data(), lead + len, rng);
      simd.blend(a.data() + lead, b.data() + lead, d1.data() + lead, wb, wa, len);
      framedsp::scale_blend_c(a.data() + lead, b.data() + lead, d2.data() + lead, wb, wa, len);
      ASSERT_TRUE(d1.intact() && d2.intact()) << len << " " << lead;
      for (size_t i = 0; i < lead; ++i) ASSERT_EQ(d1[i], 0x33);
      for (size_t i = 0; i < len; ++i) {
        const uint8_t want = wa == 0 && wb == 16384 ? b[lead + i] : blend_ref(a[lead + i], b[lead + i], wa, wb);
        ASSERT_EQ(d1[lead + i], want) << "len " << len << " lead " << lead << " i " << i << " wb " << wb;
        ASSERT_EQ(d2[lead + i], want);
      }
    }
  }}
}

// ---- colour-space converter ------------------------------------------------------------------

// Six-fraction-bit weights of the exact studio-range conversion (Y scaled 219, chroma 224).
void exact_weights(double kr_in, double kb_in, double kr_out, double kb_out, double w[3][2]) {
  // RGB from Y'CbCr of the input space (normalised), then Y'CbCr of the output space; the luma
  // row keeps Y itself with weight 1.
  const double kg_in = 1 - kr_in - kb_in, kg_out = 1 - kr_out - kb_out;
  // R = Y + 2(1-kr) cr, B = Y + 2(1-kb) cb, G = (Y - kr R - kb B) / kg
  const double r_cr = 2 * (1 - kr_in), b_cb = 2 * (1 - kb_in);
  const double g_cb = -kb_in * b_cb / kg_in, g_cr = -kr_in * r_cr / kg_in;
  // Y' = kr R + kg G + kb B -> Y + (..) cb + (..) cr   (Y and chroma in 219 / 224 units)
  const double ycb = (kg_out * g_cb + kb_out * b_cb) * 219.0 / 224.0;  // chroma in 224 units
  const double ycr = (kr_out * r_cr + kg_out * g_cr) * 219.0 / 224.0;
  // Cb' = (B - Y') / (2(1-kb_out)), Cr' = (R - Y') / (2(1-kr_out)), in chroma units.
  const double cb_cb = (b_cb - (kg_out * g_cb + kb_out * b_cb)) / (2 * (1 - kb_out));
  const double cb_cr = (0 - (kr_out * r_cr + kg_out * g_cr)) / (2 * (1 - kb_out));
  const double cr_cb = (0 - (kg_out * g_cb + kb_out * b_cb)) / (2 * (1 - kr_out));
  const double cr_cr = (r_cr - (kr_out * r_cr + kg_out * g_cr)) / (2 * (1 - kr_out));
  w[0][0] = ycb * 64;
  w[0][1] = ycr * 64;
  w[1][0] = cb_cb * 64;
  w[1][1] = cb_cr * 64;
  w[2][0] = cr_cb * 64;
  w[2][1] = cr_cr * 64;
}

TEST(ScaleColor, CoefficientsAreTheStudioRangeConversionInSixBits) {
  framedsp::ScaleColorCoefficients k;
  ASSERT_FALSE(framedsp::scale_color_coefficients(DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT709, &k));
  ASSERT_FALSE(framedsp::scale_color_coefficients(DSP_COLOR_SPACE_UNSPECIFIED, DSP_COLOR_SPACE_BT709, &k));
  struct Pair {
    uint32_t in, out;
    double kr_in, kb_in, kr_out, kb_out;
  } pairs[] = {{DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709, 0.299, 0.114, 0.2126, 0.0722},
               {DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT601, 0.2126, 0.0722, 0.299, 0.114}};
  for (const Pair &p : pairs) {
    ASSERT_TRUE(framedsp::scale_color_coefficients(p.in, p.out, &k));
    double w[3][2];
    exact_weights(p.kr_in, p.kb_in, p.kr_out, p.kb_out, w);
    EXPECT_EQ(k.w[0][0], 64);
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 2; ++c) EXPECT_NEAR(k.w[r][c + 1], w[r][c], 1.0) << r << " " << c;
      EXPECT_EQ(k.w[r][3], 0);
    }
    EXPECT_EQ(k.w[3][0], 0);
    EXPECT_EQ(k.w[3][1], 128);
    EXPECT_EQ(k.w[3][2], 128);
    EXPECT_EQ(k.w[3][3], 32);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(k.w[4][i] | k.w[5][i], 0);
  }
}

int sat16(int v) { return std::max(-32768, std::min(32767, v)); }
uint8_t c8(int v) { return uint8_t(std::max(0, std::min(255, v))); }

TEST(ScaleColor, ConverterFollowsItsFormulaInEveryLayout) {
  framedsp::ScaleLineTable t;
  framedsp::scale_line_table_init(&t, framedsp::cpu_flags());
  framedsp::ScaleColorCoefficients k;
  ASSERT_TRUE(framedsp::scale_color_coefficients(DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709, &k));
  // Extreme coefficients too, so that the 16-bit saturation is reached.
  framedsp::ScaleColorCoefficients big = k;
  big.w[0][1] = 300;
  big.w[1][1] = -300;
  big.w[2][2] = 300;
  struct L {
    uint32_t cls;
    int y0, y1, cb, cr;
  } ls[] = {{0, 1, 3, 0, 2}, {1, 2, 3, 0, 1}, {2, 0, 2, 1, 3}};
  std::mt19937 rng(framedsp_test::test_seed());
  for (const auto *kk : {&k, &big}) {
    for (const L &l : ls) {
      ASSERT_NE(t.convert[l.cls], nullptr);
      for (size_t bytes : {0, 3, 4, 8, 62, 64, 258}) {
        GuardedBuffer line(bytes, 16);
        framedsp_test::fill_random(line.data(), bytes, rng);
        std::vector<uint8_t> want(line.data(), line.data() + bytes);
        for (size_t g = 0; g + 4 <= bytes; g += 4) {
          uint8_t *p = want.data() + g;
          const int cb = p[l.cb] - 128, cr = p[l.cr] - 128;
          const auto &w = kk->w;
          const int y0 = c8(sat16(64 * p[l.y0] + w[0][1] * cb + w[0][2] * cr + 32) >> 6);
          const int y1 = c8(sat16(64 * p[l.y1] + w[0][1] * cb + w[0][2] * cr + 32) >> 6);
          const int ncb = c8(128 + (sat16(w[1][1] * cb + w[1][2] * cr + 32) >> 6));
          const int ncr = c8(128 + (sat16(w[2][1] * cb + w[2][2] * cr + 32) >> 6));
          p[l.y0] = uint8_t(y0);
          p[l.y1] = uint8_t(y1);
          p[l.cb] = uint8_t(ncb);
          p[l.cr] = uint8_t(ncr);
        }
        t.convert[l.cls](line.data(), bytes, kk);
        ASSERT_TRUE(line.intact());
        ASSERT_TRUE(bytes == 0 || std::memcmp(want.data(), line.data(), bytes) == 0) << "class " << l.cls << " bytes " << bytes;
      }
    }
  }
  for (uint32_t cls = 3; cls < 12; ++cls) EXPECT_EQ(t.convert[cls], nullptr) << cls;
}

}  // namespace

namespace {

// ---- prepared resamplers ---------------------------------------------------------------------

// Classes above 6 (16-bit samples) have no prepared resamplers; the others plan one entry per
// sample (4:2:2 classes) or per pixel.
TEST(ScalePlanned, EntriesPerClass) {
  framedsp::ScaleLineTable t;
  framedsp::scale_line_table_init(&t, framedsp::cpu_flags());
  for (const RefLayout &l : layouts()) {
    const size_t db = 7 * l.group + l.group - 1;
    EXPECT_EQ(framedsp::scale_plan_entries(l.cls, db), l.cls > 6 ? 0u : 7 * l.group / (l.cls <= 2 ? 1 : l.group));
    if (l.cls > 6) { EXPECT_EQ(t.planned_linear[l.cls], nullptr); }
  }
}

// The block (byte-shuffle) resamplers of the 8-bit classes against the per-sample formulas and the
// scalar byte routine: every output length 0..300 bytes at every lead 0..15 (source and
// destination), steps that upscale, downscale, copy (16384) and go to extremes, random and 0/255
// data, the source line ending against a protected page.
class PlannedBlockTest : public ::testing::TestWithParam<size_t> {};

TEST_P(PlannedBlockTest, SimdEqualsScalarAndFormulaOnEveryLengthAndLead) {
  const RefLayout l = layouts()[GetParam()];
  for (const uint32_t level : isa_levels()) {
  SCOPED_TRACE(level);
  framedsp::ScaleLineTable simd, scalar;
  framedsp::scale_line_table_init(&simd, level);
  framedsp::scale_line_table_init(&scalar, 0);
  const uint32_t unit = framedsp::scale_plan_unit(l.cls);
  ASSERT_GT(unit, 0u);
  std::mt19937 rng(framedsp_test::test_seed() + 1000 + GetParam());
  const uint32_t steps[] = {16384, 8192, 6144, 24576, 16383, 16385, 32768, 38000, 49152, 5461, 1, 100, 1u << 20};
  size_t blocks_fitting = 0, blocks_total = 0;
  for (size_t len = 0; len <= 300; ++len) {
    for (size_t lead = 0; lead < 16; ++lead) {
      const size_t pick = len * 16 + lead;
      const uint32_t step = steps[pick % (sizeof steps / sizeof steps[0])];
      const size_t dp = len / l.group * l.streams[0].per;  // pixel-rate samples out
      const uint64_t need = (uint64_t(dp) * step >> 14) + 1;
      // Source: just long enough, one short (the last samples clamp) or a little longer.
      const size_t per = l.streams[0].per;
      uint64_t sp = need + (rng() % 3) - 1;
      sp = std::max<uint64_t>(std::min<uint64_t>(sp, 20000), 1);
      const size_t sb = size_t((sp + per - 1) / per) * l.group;
      GuardedBuffer src(sb + lead, 0);
      if (pick % 5 == 0) {
        for (size_t i = 0; i < sb + lead; ++i) src[i] = (rng() % 2) ? 255 : 0;
      } else {
        framedsp_test::fill_random(src.data(), sb + lead, rng);
      }
      const uint8_t *line_src = src.data() + lead;
      const size_t n = framedsp::scale_plan_entries(l.cls, len);
      std::vector<framedsp::ScalePlanEntry> plan(n + 1);
      framedsp::scale_plan_build(l.cls, step, sb, len, plan.data());
      for (int linear = 0; linear < 2; ++linear) {
        const framedsp::ScalePlannedResampler fs = (linear ? simd.planned_linear : simd.planned_nearest)[l.cls];
        const framedsp::ScalePlannedResampler fc = (linear ? scalar.planned_linear : scalar.planned_nearest)[l.cls];
        if (!fs) continue;  // resampled straight from the step at this level
        std::vector<framedsp::ScaleLineBlock> blocks(n * unit / 16 + 1);
        framedsp::scale_plan_build_blocks(plan.data(), n, unit, sb, linear, blocks.data());
        const framedsp::ScaleLinePlan with{plan.data(), n, unit, blocks.data(), n * unit / 16};
        const framedsp::ScaleLinePlan without{plan.data(), n, unit, nullptr, 0};
        for (size_t k = 0; k < with.block_count; ++k) blocks_fitting += blocks[k].fits;
        blocks_total += with.block_count;

        std::vector<uint8_t> expected(len, 0x5A);
        reference(l, linear, line_src, sb, expected.data(), len, step);
        GuardedBuffer d1(len + lead, 16, 0x5A), d2(len + lead, 16, 0x5A), d3(len + lead, 16, 0x5A);
        fs(line_src, d1.data() + lead, &with);
        fs(line_src, d2.data() + lead, &without);
        fc(line_src, d3.data() + lead, &with);
        ASSERT_TRUE(d1.intact() && d2.intact() && d3.intact()) << len << " " << lead;
        for (size_t i = 0; i < lead; ++i) ASSERT_EQ(d1[i], 0x5A);
        ASSERT_TRUE(len == 0 || std::memcmp(expected.data(), d1.data() + lead, len) == 0)
            << "format " << l.format << " step " << step << " " << sb << " -> " << len << " lead " << lead << "\n"
            << framedsp_test::hex_diff(expected.data(), d1.data() + lead, len);
        ASSERT_TRUE(len == 0 || std::memcmp(expected.data(), d2.data() + lead, len) == 0) << len;
        ASSERT_TRUE(len == 0 || std::memcmp(expected.data(), d3.data() + lead, len) == 0) << len;
      }
    }
  }
  // The shuffle path itself must have been exercised, not only the byte fallback.
  EXPECT_GT(blocks_fitting, blocks_total / 4) << blocks_fitting << " of " << blocks_total;
  }
}

// The pair kernel (two lines resampled by one plan, then blended) against resampling each line by
// the formula and blending by the formula: every length 0..300 at every lead, the steps above,
// vertical weights from 1 to 16383, both lines ending against protected pages.
TEST_P(PlannedBlockTest, PairEqualsResamplingBothLinesThenBlending) {
  const RefLayout l = layouts()[GetParam()];
  const uint32_t unit = framedsp::scale_plan_unit(l.cls);
  const uint32_t steps[] = {16384, 24576, 8192, 16383, 49152, 5461, 38000, 1};
  const uint32_t weights[] = {1, 8192, 16383, 4096, 12000, 77};
  size_t levels_with_pairs = 0;
  for (const uint32_t level : {0u, framedsp::cpu_flags()}) {
    SCOPED_TRACE(level);
    framedsp::ScaleLineTable t;
    framedsp::scale_line_table_init(&t, level);
    framedsp::ScalePlannedLinearPair pair = t.planned_linear_pair[l.cls];
    if (level == 0) pair = framedsp::scale_planned_linear_pair_c;
    if (!pair) continue;
    ++levels_with_pairs;
    std::mt19937 rng(framedsp_test::test_seed() + 5000 + GetParam());
    for (size_t len = 0; len <= 300; ++len) {
      const size_t lead = (len * 7) % 16;
      const uint32_t step = steps[len % (sizeof steps / sizeof steps[0])];
      const uint32_t wb = weights[len % (sizeof weights / sizeof weights[0])];
      const size_t per = l.streams[0].per;
      const size_t dp = len / l.group * per;
      const uint64_t need = (uint64_t(dp) * step >> 14) + 1 + rng() % 2;
      const size_t sb = size_t((std::min<uint64_t>(need, 20000) + per - 1) / per) * l.group;
      GuardedBuffer sa(sb + lead, 0), sb2(sb + lead, 0);
      framedsp_test::fill_random(sa.data(), sb + lead, rng);
      framedsp_test::fill_random(sb2.data(), sb + lead, rng);
      const size_t n = framedsp::scale_plan_entries(l.cls, len);
      std::vector<framedsp::ScalePlanEntry> plan(n + 1);
      framedsp::scale_plan_build(l.cls, step, sb, len, plan.data());
      std::vector<framedsp::ScaleLineBlock> blocks(n * unit / 16 + 1);
      framedsp::scale_plan_build_blocks(plan.data(), n, unit, sb, true, blocks.data());
      const framedsp::ScaleLinePlan with{plan.data(), n, unit, blocks.data(), n * unit / 16};
      std::vector<uint8_t> ra(len, 0), rb(len, 0), expected(len, 0x5A);
      reference(l, true, sa.data() + lead, sb, ra.data(), len, step);
      reference(l, true, sb2.data() + lead, sb, rb.data(), len, step);
      const size_t covered = n * unit;  // bytes of whole groups; the rest stays untouched
      for (size_t i = 0; i < covered; ++i) {
        expected[i] = uint8_t((ra[i] * (16384 - wb) + rb[i] * wb + 8192) >> 14);
      }
      GuardedBuffer d(len + lead, 16, 0x5A);
      pair(sa.data() + lead, sb2.data() + lead, d.data() + lead, &with, wb);
      ASSERT_TRUE(d.intact()) << len << " " << lead;
      for (size_t i = 0; i < lead; ++i) ASSERT_EQ(d[i], 0x5A);
      ASSERT_TRUE(len == 0 || std::memcmp(expected.data(), d.data() + lead, len) == 0)
          << "format " << l.format << " step " << step << " weight " << wb << " " << sb << " -> " << len << "\n"
          << framedsp_test::hex_diff(expected.data(), d.data() + lead, len);
    }
  }
  EXPECT_GT(levels_with_pairs, 0u);
}

std::vector<size_t> planned_cases() {
  std::vector<size_t> v;
  for (size_t i = 0; i < layouts().size(); ++i) {
    if (layouts()[i].cls <= 6) v.push_back(i);
  }
  return v;
}
INSTANTIATE_TEST_SUITE_P(EightBitClasses, PlannedBlockTest, ::testing::ValuesIn(planned_cases()));

TEST(ScalePlanned, BlockWindowsStayInsideTheLine) {
  // 4:2:2 downscale by 1.5 of a 64-byte line: every window starts in the line and ends by its end,
  // and the indices point at the samples of the entries.
  const size_t sb = 64, db = 48;
  const uint32_t step = uint32_t((uint64_t(32) << 14) / 24);
  std::vector<framedsp::ScalePlanEntry> plan(framedsp::scale_plan_entries(0, db));
  framedsp::scale_plan_build(0, step, sb, db, plan.data());
  std::vector<framedsp::ScaleLineBlock> blocks(3);
  framedsp::scale_plan_build_blocks(plan.data(), plan.size(), 1, sb, true, blocks.data());
  for (size_t k = 0; k < 3; ++k) {
    ASSERT_EQ(blocks[k].fits, 1u) << k;
    for (int h = 0; h < 2; ++h) EXPECT_LE(blocks[k].base[h] + 16, sb);
    for (int i = 0; i < 16; ++i) {
      const size_t t = k * 16 + size_t(i);
      const uint32_t base = blocks[k].base[i / 8];
      EXPECT_EQ(base + (blocks[k].index_a[i] & 15u), plan[t].a);
      EXPECT_EQ(base + (blocks[k].index_b[i] & 15u), plan[t].b);
      EXPECT_EQ((blocks[k].index_a[i] & 0x80) != 0, i >= 8);
      EXPECT_EQ(blocks[k].f2[i], int(2 * plan[t].f));
    }
  }
  // A line shorter than a window has no shuffle blocks.
  std::vector<framedsp::ScalePlanEntry> small(framedsp::scale_plan_entries(5, 16));
  framedsp::scale_plan_build(5, 8192, 12, 16, small.data());
  framedsp::scale_plan_build_blocks(small.data(), small.size(), 4, 12, true, blocks.data());
  EXPECT_EQ(blocks[0].fits, 0u);
}

}  // namespace
