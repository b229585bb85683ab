// Scaler line kernels at every instruction-set level against per-sample formulas written here from
// the byte layouts: the nearest and linear resamplers of every class, the prepared (byte-shuffle)
// resamplers and the pair kernel of the 8-bit classes, the blender and the colour-space converter
// (whose coefficients are the copy's weights in six fraction bits).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "lines/pixel_format.h"
#include "framedsp/framedsp.h"
#include "copy/color_kernels.h"
#include "scale/scale_line_kernels.h"
#include "scale_reference.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;
using framedsp_test::scratch;
using namespace scale_ref;

// The scalar table and one per SIMD level.
std::vector<framedsp::ScaleLineTable> tables() {
  std::vector<framedsp::ScaleLineTable> t(1);
  framedsp::scale_line_table_init(&t[0], 0);
  for (uint32_t level : framedsp_test::simd_levels()) {
    t.emplace_back();
    framedsp::scale_line_table_init(&t.back(), level);
  }
  return t;
}

const uint32_t kSteps[] = {16384, 24576, 8192, 16383, 16385, 49152, 5461, 32768, 38000, 1, 0, 1u << 22, 20000, 6144};

// Source bytes for dp output samples of the pixel-rate stream at `step`: just enough, one sample
// short (the last ones clamp) or a little longer, never less than one group.
size_t source_bytes(const RefLayout &l, size_t dp, uint32_t step, std::mt19937 &rng) {
  const size_t per = size_t(l.streams[0].per);
  const uint64_t need = dp ? (uint64_t(dp - 1) * step >> 14) + 2 : 1;
  const uint64_t sp = std::max<uint64_t>(1, std::min<uint64_t>(need + rng() % 5 - 2, 4000));
  return size_t((sp + per - 1) / per) * size_t(l.group);
}

class Resampler : public ::testing::TestWithParam<size_t> {};

// Output lengths 0..200 samples at leads 0..15 (every third with a partial group after the whole
// ones, which stays untouched), the steps above, sources ending against a protected page.
TEST_P(Resampler, EveryLevelFollowsTheFormula) {
  const RefLayout l = layouts()[GetParam()];
  ASSERT_EQ(framedsp::format_class(l.format), l.cls);
  for (const framedsp::ScaleLineTable &t : tables()) {
    for (bool linear : {false, true}) {
      const framedsp::ScaleResampler f = linear ? t.linear[l.cls] : t.nearest[l.cls];
      std::mt19937 rng(framedsp_test::test_seed() + 31 * GetParam() + linear);
      const size_t per = size_t(l.streams[0].per);
      for (size_t out = 0; out <= 200; ++out) {
        const size_t lead = out % 16, partial = out % 3 == 1 ? size_t(l.group - 1) : 0;
        const uint32_t step = kSteps[out % 13];
        const size_t db = (out + per - 1) / per * size_t(l.group) + partial;
        const size_t sb = source_bytes(l, db / size_t(l.group) * per, step, rng) + partial;
        GuardedBuffer &src = scratch(0, sb + lead, 0), &dst = scratch(1, db + 16, 32, 0x5A);
        framedsp_test::fill_random(src.data(), sb + lead, rng);
        std::vector<uint8_t> want(db, 0x5A);
        reference(l, linear, src.data() + lead, sb, want.data(), db, step);
        f(src.data() + lead, dst.data() + lead, step, sb, db);
        ASSERT_TRUE(framedsp_test::line_in(dst, lead, want.data(), db, 0x5A))
            << "format " << l.format << " linear " << linear << " step " << step << " " << sb << " -> " << db;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllClasses, Resampler, ::testing::Range(size_t{0}, layouts().size()));

// The prepared resamplers of the 8-bit classes, with and without blocks, and the pair kernel
// (both lines resampled linearly by the formula, then blended by it; weights 1..16383).
class PlannedResampler : public ::testing::TestWithParam<size_t> {};

TEST_P(PlannedResampler, EveryLevelFollowsTheFormula) {
  const RefLayout l = layouts()[GetParam()];
  const uint32_t unit = framedsp::scale_plan_unit(l.cls), weights[] = {1, 8192, 16383, 4096, 12000, 77};
  ASSERT_GT(unit, 0u);
  const std::vector<framedsp::ScaleLineTable> all = tables();
  std::mt19937 rng(framedsp_test::test_seed() + 1000 + GetParam());
  size_t fitting = 0, blocks_total = 0;
  framedsp_test::for_each_line(300, 10, rng, [&](size_t len, size_t lead, int kind) {
    const uint32_t step = kSteps[(len * 16 + lead) % 14], wb = weights[(len + lead) % 6];
    const size_t sb = source_bytes(l, len / size_t(l.group) * size_t(l.streams[0].per), step, rng);
    GuardedBuffer &sa = scratch(0, sb + lead, 0), &sb2 = scratch(1, sb + lead, 0);
    framedsp_test::fill_line(sa.data(), sb + lead, kind, rng);
    framedsp_test::fill_line(sb2.data(), sb + lead, kind, rng);
    const size_t n = framedsp::scale_plan_entries(l.cls, len);
    std::vector<framedsp::ScalePlanEntry> plan(n + 1);
    framedsp::scale_plan_build(l.cls, step, sb, len, plan.data());
    for (int linear = 0; linear < 2; ++linear) {
      std::vector<framedsp::ScaleLineBlock> blocks(n * unit / 16 + 1);
      framedsp::scale_plan_build_blocks(plan.data(), n, unit, sb, linear, blocks.data());
      const framedsp::ScaleLinePlan with{plan.data(), n, unit, blocks.data(), n * unit / 16};
      const framedsp::ScaleLinePlan without{plan.data(), n, unit, nullptr, 0};
      for (size_t k = 0; k < with.block_count; ++k) fitting += blocks[k].fits;
      blocks_total += with.block_count;
      std::vector<uint8_t> ra(len, 0x5A), rb(len, 0x5A), pair(len, 0x5A);
      reference(l, linear, sa.data() + lead, sb, ra.data(), len, step);
      reference(l, linear, sb2.data() + lead, sb, rb.data(), len, step);
      for (size_t i = 0; i < n * unit; ++i) pair[i] = uint8_t((ra[i] * (16384 - wb) + rb[i] * wb + 8192) >> 14);
      for (size_t level = 0; level < all.size(); ++level) {
        const framedsp::ScalePlannedResampler f = (linear ? all[level].planned_linear : all[level].planned_nearest)[l.cls];
        framedsp::ScalePlannedLinearPair p = all[level].planned_linear_pair[l.cls];
        if (level == 0) p = framedsp::scale_planned_linear_pair_c;
        const std::string what = "format " + std::to_string(l.format) + " level " + std::to_string(level) + " step " +
                                 std::to_string(step) + " len " + std::to_string(len) + " lead " + std::to_string(lead);
        // A SIMD level may resample straight from the step; the scalar table has every one.
        ASSERT_TRUE(f || level > 0) << what << " linear " << linear << ": no scalar planned resampler";
        for (const framedsp::ScaleLinePlan *plan_of : {&with, &without}) {
          if (!f) break;
          GuardedBuffer &d = scratch(2, len + 16, 16, 0x5A);
          f(sa.data() + lead, d.data() + lead, plan_of);
          ASSERT_TRUE(framedsp_test::line_in(d, lead, ra.data(), len, 0x5A)) << what << " linear " << linear;
        }
        if (!linear || !p) continue;
        GuardedBuffer &d = scratch(2, len + 16, 16, 0x5A);
        p(sa.data() + lead, sb2.data() + lead, d.data() + lead, &with, wb);
        ASSERT_TRUE(framedsp_test::line_in(d, lead, pair.data(), len, 0x5A)) << what << " pair, weight " << wb;
      }
    }
  });
  EXPECT_GT(fitting, blocks_total / 4) << "the shuffle path itself must run, not only the byte fallback";
}

INSTANTIATE_TEST_SUITE_P(EightBitClasses, PlannedResampler, ::testing::Range(size_t{0}, size_t{7}));

// SSSE3 installs the planned resamplers of every 8-bit class over SSE2's.
TEST(ScaleLineTable, SsseThreeInstallsEveryPlannedResampler) {
  framedsp::ScaleLineTable scalar, sse2, ssse3;
  framedsp::scale_line_table_init(&scalar, 0);
  framedsp::scale_line_table_init(&sse2, framedsp::kCpuSSE2);
  framedsp::scale_line_table_init(&ssse3, framedsp::kCpuSSE2 | framedsp::kCpuSSSE3);
  if (!(framedsp::cpu_flags() & framedsp::kCpuSSSE3) || sse2.blend == scalar.blend) GTEST_SKIP() << "no SSSE3 here";
  for (int c = 0; c <= 6; ++c) {
    EXPECT_NE(ssse3.planned_nearest[c], sse2.planned_nearest[c]) << "class " << c;
    EXPECT_NE(ssse3.planned_linear[c], sse2.planned_linear[c]) << "class " << c;
  }
}

// The blender at every level against its formula: weights summing to one and (every fifth
// length) weights that do not; weight_a 0 copies b.
TEST(ScaleBlender, EveryLevelFollowsTheFormula) {
  const uint32_t weights[] = {0, 1, 8192, 16383, 16384, 5000};
  for (const framedsp::ScaleLineTable &t : tables()) {
    std::mt19937 rng(framedsp_test::test_seed());
    framedsp_test::for_each_line(300, 10, rng, [&](size_t len, size_t lead, int kind) {
      const uint32_t wb = (len + lead) % 7 < 6 ? weights[(len + lead) % 6] : rng() % 16385;
      const uint32_t wa = len % 5 == 4 ? rng() % (16385 - wb) : 16384 - wb;
      GuardedBuffer &a = scratch(0, lead + len, 0), &b = scratch(1, lead + len, 0), &d = scratch(2, 16 + len, 16, 0x33);
      framedsp_test::fill_line(a.data(), lead + len, kind, rng);
      framedsp_test::fill_line(b.data(), lead + len, framedsp_test::kRandomLine, rng);
      std::vector<uint8_t> want(len);
      for (size_t i = 0; i < len; ++i) {
        const uint8_t x = a[lead + i], y = b[lead + i];
        want[i] = wa == 0 && wb == 16384 ? y : uint8_t((x * wa + y * wb + 8192) >> 14);
      }
      t.blend(a.data() + lead, b.data() + lead, d.data() + lead, wb, wa, len);
      ASSERT_TRUE(framedsp_test::line_in(d, lead, want.data(), len, 0x33)) << "len " << len << " lead " << lead << " wb " << wb << " wa " << wa;
    });
  }
}

int six_bits(int w) { return w >= 0 ? (w + 128) / 256 : -((-w + 128) / 256); }

TEST(ScaleColor, CoefficientsAreTheCopysWeightsAndTheConverterFollowsItsFormula) {
  framedsp::ScaleColorCoefficients k;
  std::memset(&k, 0x77, sizeof k);
  ASSERT_FALSE(framedsp::scale_color_coefficients(DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT709, &k));
  EXPECT_EQ(k.w[0][0], 0x7777) << "the block was touched";
  ASSERT_TRUE(framedsp::scale_color_coefficients(DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709, &k));
  const framedsp::ColorMatrix &m = framedsp::kBt601ToBt709;
  const int16_t want[6][4] = {{64, int16_t(six_bits(m.y_cb)), int16_t(six_bits(m.y_cr)), 0},
                              {0, int16_t(six_bits(m.cb_cb)), int16_t(six_bits(m.cb_cr)), 0},
                              {0, int16_t(six_bits(m.cr_cb)), int16_t(six_bits(m.cr_cr)), 0},
                              {0, 128, 128, 32}};
  EXPECT_EQ(0, std::memcmp(want, k.w, sizeof want));
  framedsp::ScaleColorCoefficients big = k;  // extreme coefficients reach the 16-bit saturation
  big.w[0][1] = 300, big.w[1][1] = -300, big.w[2][2] = 300;
  const struct {
    uint32_t cls;
    int y0, y1, cb, cr;
  } layouts4[] = {{0, 1, 3, 0, 2}, {1, 2, 3, 0, 1}, {2, 0, 2, 1, 3}};
  auto sat = [](int v) { return std::max(-32768, std::min(32767, v)); };
  auto c8 = [](int v) { return uint8_t(std::max(0, std::min(255, v))); };
  std::mt19937 rng(framedsp_test::test_seed());
  for (const framedsp::ScaleLineTable &t : tables()) {
    for (uint32_t cls = 3; cls < 12; ++cls) EXPECT_EQ(t.convert[cls], nullptr) << cls;
    for (const framedsp::ScaleColorCoefficients *kk : {&k, &big}) {
      const auto &w = kk->w;
      for (const auto &l : layouts4) {
        for (size_t bytes : {0, 3, 4, 8, 62, 64, 258}) {
          GuardedBuffer &line = scratch(0, bytes, 16);
          framedsp_test::fill_random(line.data(), bytes, rng);
          std::vector<uint8_t> want_line(line.data(), line.data() + bytes);
          for (size_t g = 0; g + 4 <= bytes; g += 4) {
            uint8_t *p = want_line.data() + g;
            const int cb = p[l.cb] - 128, cr = p[l.cr] - 128, dy = w[0][1] * cb + w[0][2] * cr + 32;
            p[l.y0] = c8(sat(64 * p[l.y0] + dy) >> 6);
            p[l.y1] = c8(sat(64 * p[l.y1] + dy) >> 6);
            p[l.cb] = c8(128 + (sat(w[1][1] * cb + w[1][2] * cr + 32) >> 6));
            p[l.cr] = c8(128 + (sat(w[2][1] * cb + w[2][2] * cr + 32) >> 6));
          }
          t.convert[l.cls](line.data(), bytes, kk);
          ASSERT_TRUE(line.intact());
          ASSERT_TRUE(framedsp_test::same_line(want_line.data(), line.data(), bytes)) << "class " << l.cls << " bytes " << bytes;
        }
      }
    }
  }
}

}  // namespace
