// Kernel checker of the resampling engine's line kernels: every level's horizontal kernel of every
// class and the vertical kernels against per-sample formulas written here from the layouts, on
// every length, lead and source offset, with adversarial weights, guard bytes around the output
// and the source line ending against a protected page.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "platform/cpu.h"
#include "resample/resample_internal.h"
#include "resample_util.h"
#include "scale_reference.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

std::vector<uint32_t> levels() {
  std::vector<uint32_t> v = {0};
  for (uint32_t l : {uint32_t(framedsp::kCpuSSE2), framedsp::kCpuSSE2 | framedsp::kCpuSSSE3, ~0u}) {
    const uint32_t have = l & framedsp::cpu_flags();
    if (have && std::find(v.begin(), v.end(), have) == v.end()) v.push_back(have);
  }
  return v;
}

// Output sample t of a line by the layout of scale_reference.h: stream s, sample j of the stream.
int64_t expected_sample(const scale_ref::RefLayout &l, const framedsp::ResamplePlanData &d, const uint8_t *src, size_t t) {
  const int per_group = int(l.group) / l.streams[0].bytes;  // samples a group
  const size_t g = t / size_t(per_group);
  const int lane = int(t % size_t(per_group)) * l.streams[0].bytes;
  for (size_t s = 0; s < l.streams.size(); ++s) {
    const scale_ref::RefStream &st = l.streams[s];
    for (int k = 0; k < st.per; ++k) {
      if (st.offset + k * st.spacing != lane) continue;
      const framedsp::ResampleRowsTable &rows = d.hrows[s > 0 && l.streams[0].per == 2 ? 1 : 0];
      const size_t j = g * size_t(st.per) + size_t(k);
      int64_t acc = 8192;
      for (int tap = 0; tap < rows.taps; ++tap) {
        const size_t i = size_t(rows.first[j] + tap);
        const uint8_t *p = src + (i / size_t(st.per)) * size_t(l.group) + size_t(st.offset) + (i % size_t(st.per)) * size_t(st.spacing);
        acc += int64_t(rows.w[j * size_t(rows.taps) + size_t(tap)]) * scale_ref::get(p, st.bytes);
      }
      const int64_t max = st.bytes == 1 ? 255 : 65535;
      return std::clamp<int64_t>(acc >> 14, 0, max);
    }
  }
  ADD_FAILURE() << "no stream for lane " << lane;
  return 0;
}

class ResampleHorzKernel : public ::testing::TestWithParam<size_t> {};

TEST_P(ResampleHorzKernel, EveryLevelMatchesTheFormula) {
  const scale_ref::RefLayout l = scale_ref::layouts()[GetParam()];
  const uint32_t cls = l.cls;
  const int32_t px = int32_t(framedsp::resample_group_pixels(cls));
  const int sb = l.streams[0].bytes;
  std::mt19937 rng(framedsp_test::test_seed() + uint32_t(cls));
  int simd_runs = 0;
  const double ratios[] = {0.37, 0.5, 0.71, 1.0, 1.33, 1.5, 2.0, 2.6, 4.3};
  for (int n = 0; n < 160; ++n) {
    const int32_t dw = px * (n < 100 ? 1 + n : 1 + int32_t(rng() % 900));
    const double ratio = ratios[n % 9];
    const int32_t sw = std::max(px, int32_t(dw * ratio) / px * px);
    resample_test::Job job(cls, uint32_t(n % 4), sw, 1, dw, 1, int64_t(rng() % 64) << 26);
    job.s.edge = uint32_t(n / 4) % 4 == 3 ? 0 : uint32_t(n / 4) % 4;
    job.s.chroma_siting = uint32_t(n & 1);
    job.s.phase_bits = n % 7 == 0 ? 14 : 0;
    const size_t lead = size_t(n) % 16, dlead = size_t(n * 7) % 16;
    for (uint32_t level : levels()) {
      framedsp::ResamplePlan plan;
      ASSERT_EQ(framedsp::resample_plan_build(job.s, level, &plan), 0);
      framedsp::ResamplePlanData &d = *plan.data();
      // Adversarial weights (8-bit classes: any int16 is exact); blocks rebuilt from them.
      if (n % 3 == 1 && sb == 1) {
        std::mt19937 wr{uint32_t(n)};
        for (int s = 0; s < 2; ++s) {
          framedsp::ResampleRowsTable &t = d.hrows[s];
          if (!t.w) {
            continue;
          }
          for (size_t i = 0; i < size_t(t.count) * size_t(t.taps); ++i) t.w[i] = int16_t(wr() % 2 ? wr() : (wr() % 40000) - 20000);
        }
        if (d.hplan.pairs) {
          framedsp::resample_build_blocks(d.hplan, const_cast<framedsp::ResampleHPair *>(d.hplan.pairs),
                                          const_cast<uint8_t *>(d.hplan.fits));
        }
      }
      const size_t src_bytes = d.hplan.src_bytes, dst_bytes = d.hplan.dst_bytes;
      GuardedBuffer src(src_bytes + lead, 0);  // ends against the protected page
      std::mt19937 data{uint32_t(n)};
      framedsp_test::fill_random(src.data(), src_bytes + lead, data);
      if (n % 11 == 5) std::memset(src.data(), n % 2 ? 255 : 0, src_bytes + lead);
      GuardedBuffer dst(dst_bytes + dlead, 32, 0x5A);
      d.lines.horz[cls](src.data() + lead, dst.data() + dlead, &d.hplan);
      ASSERT_TRUE(dst.intact()) << dst.damage();
      for (size_t i = 0; i < dlead; ++i) ASSERT_EQ(dst[i], 0x5A);
      const size_t samples = dst_bytes / size_t(sb);
      for (size_t t = 0; t < samples; ++t) {
        const int64_t want = expected_sample(l, d, src.data() + lead, t);
        const uint8_t *got = dst.data() + dlead + t * size_t(sb);
        ASSERT_EQ(scale_ref::get(got, sb), uint32_t(want))
            << "class " << cls << " level " << level << " " << sw << " -> " << dw << " kernel " << n % 4 << " sample " << t
            << " case " << n << " seed " << framedsp_test::test_seed();
      }
      simd_runs += level != 0 && d.lines.horz_uses_blocks[cls] && d.hplan.pairs ? 1 : 0;
    }
  }
  if ((framedsp::cpu_flags() & framedsp::kCpuSSE2) && sb == 1) {
    EXPECT_GT(simd_runs, 0) << "no SIMD kernel ran";
  }
}

INSTANTIATE_TEST_SUITE_P(AllClasses, ResampleHorzKernel, ::testing::Range<size_t>(0, 12));

TEST(ResampleVertKernel, EveryLevelMatchesTheFormula) {
  std::mt19937 rng(framedsp_test::test_seed() + 77);
  for (uint32_t level : levels()) {
    framedsp::ResampleLineTable t;
    framedsp::resample_line_table_init(&t, level);
    for (int wide = 0; wide < 2; ++wide) {
      for (size_t n = 0; n < 260; ++n) {
        const size_t bytes = (n < 200 ? n : size_t(rng() % 4000)) & (wide ? ~size_t(1) : ~size_t(0));
        const int taps = 1 + int(n % 13);
        // Rows summing to 16384 with positive weights below 32768 (what plans hold); the 8-bit
        // kernel also takes any int16 row.
        int16_t w[16];
        int32_t sum = 0, pos = 0;
        for (int k = 0; k + 1 < taps; ++k) {
          w[k] = int16_t(int(rng() % 24000) - 8000);
          sum += w[k];
        }
        w[taps - 1] = int16_t(std::clamp(16384 - sum, -32768, 32767));
        for (int k = 0; k < taps; ++k) pos += std::max<int32_t>(w[k], 0);
        if (wide && (sum + w[taps - 1] != 16384 || pos > 32767)) continue;
        if (!wide && n % 5 == 0) {
          for (int k = 0; k < taps; ++k) w[k] = int16_t(rng());
        }
        std::vector<std::unique_ptr<GuardedBuffer>> lines;
        std::vector<const uint8_t *> ptr;
        for (int k = 0; k < taps; ++k) {
          lines.push_back(std::make_unique<GuardedBuffer>(bytes + n % 16, 0));
          framedsp_test::fill_random(lines.back()->data(), bytes + n % 16, rng);
          if (n % 17 == 3) std::memset(lines.back()->data(), k % 2 ? 255 : 0, bytes + n % 16);
          ptr.push_back(lines.back()->data() + n % 16);
        }
        GuardedBuffer dst(bytes + 3, 32, 0x5A);
        (wide ? t.vert16 : t.vert8)(ptr.data(), w, taps, dst.data() + 3, bytes);
        ASSERT_TRUE(dst.intact()) << dst.damage();
        const int sbytes = wide ? 2 : 1;
        for (size_t x = 0; x < bytes; x += size_t(sbytes)) {
          int64_t acc = 8192;
          for (int k = 0; k < taps; ++k) acc += int64_t(w[k]) * scale_ref::get(ptr[size_t(k)] + x, sbytes);
          const int64_t want = std::clamp<int64_t>(acc >> 14, 0, wide ? 65535 : 255);
          ASSERT_EQ(scale_ref::get(dst.data() + 3 + x, sbytes), uint32_t(want))
              << "level " << level << " wide " << wide << " bytes " << bytes << " taps " << taps << " x " << x;
        }
      }
    }
  }
}

}  // namespace
