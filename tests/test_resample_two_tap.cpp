// The resampling engine's two-tap kernels (rows of one or two taps, and the pair kernel that
// blends two such lines) against the scalar formulas: every 8-bit class, level, length, lead,
// ratio and edge rule, the plan's own rows and adversarial two-tap rows (negative weights, a tap
// of 16384, rows that are not two-tap at all), guard bytes around the output and the source
// ending against a protected page.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "platform/cpu.h"
#include "resample/resample_internal.h"
#include "resample_util.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

// Rows w0 + w1 = 16384 with w0 anywhere in int16 range that keeps w1 there too; one row breaks
// the sum (its block must fall back to the scalar formula).
void spoil_rows(framedsp::ResampleRowsTable &t, std::mt19937 &rng) {
  for (int32_t j = 0; j < t.count; ++j) {
    int16_t *w = t.w + size_t(j) * size_t(t.taps);
    const int32_t w0 = rng() % 4 == 0 ? (rng() % 2 ? 0 : 16384) : int32_t(rng() % 49150) - 16383;
    w[0] = int16_t(w0);
    if (t.taps == 2) w[1] = int16_t(16384 - w0 + (j == t.count / 3 ? 1 : 0));
  }
}

TEST(ResampleTwoTap, EveryLevelMatchesTheScalarFormula) {
  std::mt19937 rng(framedsp_test::test_seed() + 22);
  int simd_blocks = 0;
  const double ratios[] = {0.45, 0.6, 0.9, 1.0, 1.2, 1.5, 1.9, 2.0};
  for (uint32_t cls = 0; cls <= 6; ++cls) {
    const int32_t px = int32_t(framedsp::resample_group_pixels(cls));
    for (int n = 0; n < 120; ++n) {
      const int32_t dw = px * (n < 80 ? 1 + n : 1 + int32_t(rng() % 900));
      const int32_t sw = std::max(px, int32_t(dw * ratios[n % 8]) / px * px);
      resample_test::Job job(cls, uint32_t(n % 5 != 0), sw, 1, dw, 1, int64_t(rng() % 64) << 26);
      job.s.cols.widen_q16 = 65536;  // linear keeps two taps
      job.s.edge = uint32_t(n / 5) % 3;
      job.s.phase_bits = n % 3 == 0 ? 14 : 0;
      const size_t lead = size_t(n) % 16, dlead = size_t(n * 5) % 16;
      for (uint32_t level : {framedsp::kCpuSSE2 | framedsp::kCpuSSSE3, ~0u}) {
        framedsp::ResamplePlan plan;
        ASSERT_EQ(framedsp::resample_plan_build(job.s, level & framedsp::cpu_flags(), &plan), 0);
        framedsp::ResamplePlanData &d = *plan.data();
        if (!d.hplan.two_tap) continue;
        auto *blocks = const_cast<framedsp::ResampleHTwoTap *>(d.hplan.two_tap);
        if (n % 2) {
          for (framedsp::ResampleRowsTable &t : d.hrows) if (t.w) spoil_rows(t, rng);
          framedsp::resample_build_two_tap(d.hplan, blocks);
        }
        for (size_t b = 0; b < d.hplan.two_tap_blocks; ++b) simd_blocks += int(blocks[b].fits);
        GuardedBuffer src(d.hplan.src_bytes + lead, 0), dst(d.hplan.dst_bytes + dlead, 32, 0x5A);
        framedsp_test::fill_random(src.data(), src.size(), rng);
        if (n % 9 == 4) std::memset(src.data(), n % 2 ? 255 : 0, src.size());
        std::vector<uint8_t> want(d.hplan.dst_bytes);
        d.horz(src.data() + lead, dst.data() + dlead, &d.hplan);
        framedsp::resample_horz_c(src.data() + lead, want.data(), &d.hplan);
        ASSERT_TRUE(dst.intact()) << dst.damage();
        for (size_t i = 0; i < dlead; ++i) ASSERT_EQ(dst[i], 0x5A);
        ASSERT_EQ(0, std::memcmp(dst.data() + dlead, want.data(), want.size()))
            << "class " << cls << " level " << level << " " << sw << " -> " << dw << " case " << n << "\n"
            << framedsp_test::hex_diff(want.data(), dst.data() + dlead, want.size());
        if (!d.lines.horz_pair[cls]) continue;
        // The pair kernel: two lines, then a vertical two-tap row (any split of 16384).
        GuardedBuffer src2(src.size(), 0);
        framedsp_test::fill_random(src2.data(), src2.size(), rng);
        const int32_t v0 = n % 4 ? int32_t(rng() % 16385) : int32_t(rng() % 49150) - 16383;
        const int16_t w[2] = {int16_t(v0), int16_t(16384 - v0)};
        std::vector<uint8_t> want2(want.size());
        framedsp::resample_horz_c(src2.data() + lead, want2.data(), &d.hplan);
        const uint8_t *lines[2] = {want.data(), want2.data()};
        framedsp::resample_vert8_c(lines, w, 2, want.data(), want.size());
        dst.reset(0x5A);
        d.lines.horz_pair[cls](src.data() + lead, src2.data() + lead, dst.data() + dlead, &d.hplan, w);
        ASSERT_TRUE(dst.intact()) << dst.damage();
        ASSERT_EQ(0, std::memcmp(dst.data() + dlead, want.data(), want.size()))
            << "pair: class " << cls << " " << sw << " -> " << dw << " w " << w[0] << " case " << n << "\n"
            << framedsp_test::hex_diff(want.data(), dst.data() + dlead, want.size());
      }
    }
  }
  if (framedsp::cpu_flags() & framedsp::kCpuSSSE3) {
    EXPECT_GT(simd_blocks, 0) << "no two-tap block ran";
  }
}

// The vertical kernels' two-tap rows: multiples of 128 (linear rows of coarse phases), any split
// of 16384 and the ends 0 / 16384, every length and alignment.
TEST(ResampleTwoTap, VerticalRowsMatchTheFormula) {
  std::mt19937 rng(framedsp_test::test_seed() + 23);
  for (uint32_t level : {framedsp::kCpuSSE2 | framedsp::kCpuSSSE3, ~0u}) {
    framedsp::ResampleLineTable t;
    framedsp::resample_line_table_init(&t, level & framedsp::cpu_flags());
    for (size_t n = 0; n < 300; ++n) {
      const size_t bytes = n < 200 ? n : size_t(rng() % 5000), lead = n % 32;
      const int32_t w0 = n % 3 ? int32_t(rng() % 129) * 128 : int32_t(rng() % 49150) - 16383;
      const int16_t w[2] = {int16_t(w0), int16_t(16384 - w0)};
      GuardedBuffer a(bytes + lead, 0), b(bytes + lead, 0), dst(bytes + lead, 32, 0x5A);
      framedsp_test::fill_random(a.data(), a.size(), rng);
      framedsp_test::fill_random(b.data(), b.size(), rng);
      const uint8_t *lines[2] = {a.data() + lead, b.data() + lead};
      t.vert8(lines, w, 2, dst.data() + lead, bytes);
      ASSERT_TRUE(dst.intact()) << dst.damage();
      for (size_t x = 0; x < bytes; ++x) {
        const int32_t v = (w[0] * lines[0][x] + w[1] * lines[1][x] + 8192) >> 14;
        ASSERT_EQ(dst[lead + x], std::clamp(v, 0, 255)) << "level " << level << " w " << w[0] << " x " << x;
      }
    }
  }
}

// Runs whose rows repeat source lines (nearest and linear enlargements, whole-line rows of a
// reduction), with a finishing step that changes the line: each output row is the plain run's
// row finished once, in any band split.
TEST(ResampleTwoTap, RepeatedLinesAreFinishedOnce) {
  std::mt19937 rng(framedsp_test::test_seed() + 24);
  auto finish = [](void *, uint8_t *line, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) line[i] = uint8_t(line[i] * 7 + 1);
  };
  for (uint32_t kernel : {framedsp::kResampleNearest, framedsp::kResampleLinear}) {
    for (const int sh : {5, 12, 40}) {
      resample_test::Picture src(0, 48, sh);
      framedsp_test::fill_random(src.bytes.data(), src.bytes.size(), rng);
      resample_test::Job job(0, kernel, 48, sh, 64, 24);
      job.s.rows.widen_q16 = 65536;
      for (int32_t k = 0; k < 24; ++k) job.rows[size_t(k)] = int64_t(k * sh / 24) << 32;  // whole lines
      resample_test::Picture plain(0, 64, 24), done(0, 64, 24);
      ASSERT_EQ(job.run(src, plain, framedsp::cpu_flags()), 0);
      framedsp::ResamplePlan plan;
      ASSERT_EQ(framedsp::resample_plan_build(job.s, framedsp::cpu_flags(), &plan), 0);
      for (int32_t r0 = 0; r0 < 24;) {
        const int32_t r1 = std::min(24, r0 + 1 + int32_t(rng() % 7));
        framedsp::resample_plan_run(&plan, {src.bytes.data(), ptrdiff_t(src.stride)},
                                    {done.bytes.data(), ptrdiff_t(done.stride)}, r0, r1, nullptr, finish, nullptr);
        r0 = r1;
      }
      finish(nullptr, plain.bytes.data(), plain.bytes.size());
      ASSERT_EQ(plain.bytes, done.bytes) << "kernel " << kernel << " source rows " << sh;
    }
  }
}

}  // namespace
