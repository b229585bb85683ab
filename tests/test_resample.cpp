// Resampling engine: weight rows, the line kernels against their scalar twins, whole plans
// (constant pictures, ramps, shifts, edges, anti-ringing, bands, ISA levels), the scaler's lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "resample/resample_internal.h"
#include "scale/scale_line_kernels.h"
#include "resample_util.h"
#include "test_util.h"

namespace {

using framedsp::kResampleOne;
using framedsp_test::GuardedBuffer;
using resample_test::Job;
using resample_test::Picture;

const uint32_t kKernels[] = {framedsp::kResampleNearest, framedsp::kResampleLinear, framedsp::kResampleCubic,
                             framedsp::kResampleLanczos3};

TEST(ResampleWeights, EveryRowSumsToOneAndWidensWhenReducing) {
  const int16_t lowpass[5] = {-10, 120, 300, 120, -10};  // sums to 520: normalised away
  for (uint32_t kernel : kKernels) {
    for (uint32_t widen : {65536u, 98304u, 3u * 65536u + 123u}) {
      for (int64_t phase = -70; phase < 70; ++phase) {
        int32_t first = 0, w[framedsp::kResampleMaxTaps];
        const int64_t pos = phase * (framedsp::kResamplePosOne / 64) + 5 * framedsp::kResamplePosOne;
        const int taps = framedsp::resample_weights(kernel, 4000, 6000, 6, pos, widen, &first, w);
        const int radius = kernel == 3 ? 3 : int(kernel);
        ASSERT_EQ(taps, kernel == 0 ? 1 : 2 * int((radius * uint64_t(widen) + 65535) / 65536));
        int64_t sum = 0;
        for (int k = 0; k < taps; ++k) sum += w[k];
        ASSERT_EQ(sum, kResampleOne) << kernel << " " << widen << " " << phase;
        // The row is centred on the position: floor(s) lies in the middle pair of taps.
        if (kernel != 0) {
          ASSERT_EQ(first + taps / 2 - 1, pos >> 32);
        }
        const int conv = framedsp::resample_convolve(w, taps, &first, lowpass, 5);
        sum = 0;
        for (int k = 0; k < conv; ++k) sum += w[k];
        ASSERT_EQ(conv, taps + 4);
        ASSERT_EQ(sum, kResampleOne);
      }
    }
  }
}

// Every level's horizontal kernel of a class writes the bytes of the scalar kernel over the same
// plan, on every length, lead, ratio and edge rule, with adversarial weights (8-bit classes: any
// int16 is exact), guard bytes around the output and the source ending against a protected page.
class ResampleHorzKernel : public ::testing::TestWithParam<uint32_t> {};

TEST_P(ResampleHorzKernel, EveryLevelMatchesTheScalarKernel) {
  const uint32_t cls = GetParam();
  const int32_t px = int32_t(framedsp::resample_group_pixels(cls));
  std::mt19937 rng(framedsp_test::test_seed() + cls);
  int simd_runs = 0;
  const double ratios[] = {0.37, 0.5, 0.71, 1.0, 1.33, 1.5, 2.0, 2.6, 4.3};
  for (int n = 0; n < 160; ++n) {
    const int32_t dw = px * (n < 100 ? 1 + n : 1 + int32_t(rng() % 900));
    const int32_t sw = std::max(px, int32_t(dw * ratios[n % 9]) / px * px);
    Job job(cls, uint32_t(n % 4), sw, 1, dw, 1, int64_t(rng() % 64) << 26);
    job.s.edge = uint32_t(n / 4) % 3;
    job.s.chroma_siting = uint32_t(n & 1);
    job.s.phase_bits = n % 7 == 0 ? 14 : 0;
    const size_t lead = size_t(n) % 16, dlead = size_t(n * 7) % 16;
    for (uint32_t level : framedsp_test::simd_levels()) {
      framedsp::ResamplePlan plan;
      ASSERT_EQ(framedsp::resample_plan_build(job.s, level, &plan), 0);
      framedsp::ResamplePlanData &d = *plan.data();
      if (n % 3 == 1 && cls < 7) {
        std::mt19937 wr{uint32_t(n)};
        for (framedsp::ResampleRowsTable &t : d.hrows)
          for (size_t i = 0; t.w && i < size_t(t.count) * size_t(t.taps); ++i)
            t.w[i] = int16_t(wr() % 2 ? wr() : (wr() % 40000) - 20000);
        if (d.hplan.pairs)  // the blocks rebuilt from them
          framedsp::resample_build_blocks(d.hplan, const_cast<framedsp::ResampleHPair *>(d.hplan.pairs),
                                          const_cast<uint8_t *>(d.hplan.fits));
      }
      const size_t src_bytes = d.hplan.src_bytes + lead, dst_bytes = d.hplan.dst_bytes;
      GuardedBuffer src(src_bytes, 0);
      std::mt19937 data{uint32_t(n)};
      framedsp_test::fill_random(src.data(), src_bytes, data);
      if (n % 11 == 5) std::memset(src.data(), n % 2 ? 255 : 0, src_bytes);
      GuardedBuffer dst(dst_bytes + dlead, 32, 0x5A);
      std::vector<uint8_t> want(dst_bytes);
      d.lines.horz[cls](src.data() + lead, dst.data() + dlead, &d.hplan);
      framedsp::resample_horz_c(src.data() + lead, want.data(), &d.hplan);
      ASSERT_TRUE(dst.intact()) << dst.damage();
      for (size_t i = 0; i < dlead; ++i) ASSERT_EQ(dst[i], 0x5A);
      ASSERT_EQ(0, std::memcmp(dst.data() + dlead, want.data(), dst_bytes))
          << "class " << cls << " level " << level << " " << sw << " -> " << dw << " kernel " << n % 4 << " case " << n
          << "\n" << framedsp_test::hex_diff(want.data(), dst.data() + dlead, dst_bytes);
      simd_runs += d.lines.horz_uses_blocks[cls] && d.hplan.pairs ? 1 : 0;
    }
  }
  if ((framedsp::cpu_flags() & framedsp::kCpuSSE2) && cls < 7) {
    EXPECT_GT(simd_runs, 0) << "no SIMD kernel ran";
  }
}

INSTANTIATE_TEST_SUITE_P(AllClasses, ResampleHorzKernel, ::testing::Range<uint32_t>(0, framedsp::kResampleClasses));

// The vertical kernels: the scalar one against the per-sample formula, every level against it.
TEST(ResampleVertKernel, EveryLevelMatchesTheFormula) {
  std::mt19937 rng(framedsp_test::test_seed() + 77);
  std::vector<uint32_t> all = framedsp_test::simd_levels();
  all.insert(all.begin(), 0u);
  for (uint32_t level : all) {
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
        for (int k = 0; k + 1 < taps; ++k) sum += w[k] = int16_t(int(rng() % 24000) - 8000);
        w[taps - 1] = int16_t(std::clamp(16384 - sum, -32768, 32767));
        for (int k = 0; k < taps; ++k) pos += std::max<int32_t>(w[k], 0);
        if (wide && (sum + w[taps - 1] != 16384 || pos > 32767)) continue;
        for (int k = 0; !wide && n % 5 == 0 && k < taps; ++k) w[k] = int16_t(rng());
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
        const size_t sb = wide ? 2 : 1;
        auto get = [&](const uint8_t *p) { return int64_t(wide ? p[0] | p[1] << 8 : p[0]); };
        for (size_t x = 0; x < bytes; x += sb) {
          int64_t acc = 8192;
          for (int k = 0; k < taps; ++k) acc += int64_t(w[k]) * get(ptr[size_t(k)] + x);
          ASSERT_EQ(get(dst.data() + 3 + x), std::clamp<int64_t>(acc >> 14, 0, wide ? 65535 : 255))
              << "level " << level << " wide " << wide << " bytes " << bytes << " taps " << taps << " x " << x;
        }
      }
    }
  }
}

// Every class, kernel and edge rule: a constant picture stays that constant (fill with the same
// colour), and every ISA level writes the bytes of the scalar code on random pictures.
TEST(ResamplePlan, ConstantInConstantOutAndEveryLevelMatchesScalar) {
  std::mt19937 rng(framedsp_test::test_seed());
  const int sizes[][4] = {{16, 12, 24, 18}, {40, 20, 14, 9}, {6, 4, 50, 30}, {64, 8, 38, 8}, {2, 2, 10, 6}};
  for (uint32_t cls = 0; cls < framedsp::kResampleClasses; ++cls) {
    for (uint32_t kernel : kKernels) {
      for (uint32_t edge = 0; edge < 4; ++edge) {
        const int *sz = sizes[(cls + kernel + edge) % 5];
        Job job(cls, kernel, sz[0], sz[1], sz[2], sz[3], int64_t(rng() % 300) << 24, -(int64_t(rng() % 200) << 24));
        job.s.edge = edge;
        job.s.anti_ringing_q8 = (cls + edge) % 3 == 0 ? 200 : 0;
        job.s.chroma_siting = edge & 1;
        const uint8_t c = uint8_t(rng());
        std::memset(job.s.fill, c, sizeof job.s.fill);
        Picture src(cls, sz[0], sz[1], c), out(cls, sz[2], sz[3], uint8_t(c ^ 0x55));
        ASSERT_EQ(job.run(src, out, framedsp::cpu_flags()), 0);
        for (size_t i = 0; i < out.bytes.size(); ++i) {
          ASSERT_TRUE(out.bytes[i] == c || (edge == 3 && out.bytes[i] == uint8_t(c ^ 0x55)))
              << "class " << cls << " kernel " << kernel << " edge " << edge << " byte " << i;
        }
        framedsp_test::fill_random(src.bytes.data(), src.bytes.size(), rng);
        Picture ref(cls, sz[2], sz[3], 7);
        ASSERT_EQ(job.run(src, ref, 0), 0);
        for (uint32_t level : framedsp_test::simd_levels()) {
          Picture simd(cls, sz[2], sz[3], 7);
          ASSERT_EQ(job.run(src, simd, level), 0);
          ASSERT_EQ(simd.bytes, ref.bytes)
              << "class " << cls << " kernel " << kernel << " edge " << edge << " level " << level << "\n"
              << framedsp_test::hex_diff(ref.bytes.data(), simd.bytes.data(), ref.bytes.size());
        }
      }
    }
  }
}

// A ramp 3x + 7 comes back within 1 at every 1/64 phase, for every kernel that reproduces lines.
TEST(ResamplePlan, RampIsReproducedAtAnyPhase) {
  Picture src(6, 80, 1);
  for (int x = 0; x < 80; ++x) src.bytes[size_t(x)] = uint8_t(3 * x + 7);
  for (uint32_t kernel : {1u, 2u, 3u}) {
    for (int64_t phase = 0; phase < 64; ++phase) {
      Job job(6, kernel, 80, 1, 60, 1);
      for (int32_t j = 0; j < 60; ++j) job.cols[size_t(j)] = (int64_t(j) << 32) + phase * (framedsp::kResamplePosOne / 64);
      Picture out(6, 60, 1);
      ASSERT_EQ(job.run(src, out, framedsp::cpu_flags()), 0);
      for (int j = 4; j < 56; ++j) {
        const double want = 3.0 * (j + phase / 64.0) + 7;
        ASSERT_NEAR(out.bytes[size_t(j)], want, 1.0) << kernel << " phase " << phase << " j " << j;
      }
    }
  }
}

// Reading one source column further equals the source shifted by a column (away from the edges).
TEST(ResamplePlan, OffsetByOneColumnShiftsTheSource) {
  std::mt19937 rng(framedsp_test::test_seed() + 1);
  for (uint32_t cls : {0u, 4u, 5u, 6u, 9u}) {
    const int32_t g = int32_t(framedsp::resample_group_pixels(cls));
    Picture src(cls, 64, 20), shifted(cls, 64, 20);
    framedsp_test::fill_random(src.bytes.data(), src.bytes.size(), rng);
    const size_t gb = framedsp::resample_group_bytes(cls);
    for (int r = 0; r < 20; ++r) std::memcpy(shifted.row(r), src.row(r) + gb, src.stride - gb);
    for (uint32_t kernel : kKernels) {
      Job a(cls, kernel, 64, 20, 90, 30, int64_t(g) << 32), b(cls, kernel, 64, 20, 90, 30);
      Picture oa(cls, 90, 30), ob(cls, 90, 30);
      ASSERT_EQ(a.run(src, oa, framedsp::cpu_flags()), 0);
      ASSERT_EQ(b.run(shifted, ob, framedsp::cpu_flags()), 0);
      for (int r = 0; r < 30; ++r) {
        const size_t from = oa.stride / 8 / gb * gb;
        ASSERT_EQ(0, std::memcmp(oa.row(r) + from, ob.row(r) + from, oa.stride * 3 / 4 - from))
            << cls << " " << kernel << " row " << r;
      }
    }
  }
}

// Source 10 20 30 at -1.5, -0.5, 2.5 and 3.5 (linear): repeat, mirror and fill (colour 0).
TEST(ResamplePlan, EdgeRulesReadTheirSamples) {
  const int64_t half = framedsp::kResamplePosOne / 2;
  const int64_t pos[4] = {-3 * half, -half, 5 * half, 7 * half};
  const uint8_t want[3][4] = {{10, 10, 30, 30}, {15, 10, 30, 25}, {0, 5, 15, 0}};
  for (uint32_t edge = 0; edge < 4; ++edge) {
    Job job(6, 1, 3, 1, 4, 1);
    std::copy(pos, pos + 4, job.cols.begin());
    job.s.edge = edge;
    Picture src(6, 3, 1), out(6, 4, 1, 99);
    src.bytes = {10, 20, 30};
    ASSERT_EQ(job.run(src, out, framedsp::cpu_flags()), 0);
    for (int j = 0; j < 4; ++j) {
      // Untouched: only -0.5 lies inside [-1/2, n - 1/2); the others are left alone.
      const uint8_t w = edge == 3 ? (j == 1 ? want[0][j] : 99) : want[edge][j];
      EXPECT_EQ(out.bytes[size_t(j)], w) << "edge " << edge << " j " << j;
    }
  }
}

// Anti-ringing 256 keeps each output of a Lanczos enlargement inside its 2x2 neighbourhood.
TEST(ResamplePlan, FullAntiRingingStaysInsideTheNeighbourhood) {
  std::mt19937 rng(framedsp_test::test_seed() + 2);
  Picture src(6, 20, 16);
  for (auto &b : src.bytes) b = (rng() & 1) ? 250 : 5;  // hard edges ring most
  Job job(6, 3, 20, 16, 53, 41);
  job.s.anti_ringing_q8 = 256;
  Picture out(6, 53, 41);
  ASSERT_EQ(job.run(src, out, framedsp::cpu_flags()), 0);
  for (int r = 0; r < 41; ++r) {
    const int64_t y = job.rows[size_t(r)] >> 32;
    for (int c = 0; c < 53; ++c) {
      const int64_t x = job.cols[size_t(c)] >> 32;
      auto at = [&](int64_t dy, int64_t dx) {
        return src.bytes[size_t(std::clamp<int64_t>(y + dy, 0, 15) * 20 + std::clamp<int64_t>(x + dx, 0, 19))];
      };
      const auto range = std::minmax({at(0, 0), at(0, 1), at(1, 0), at(1, 1)});
      ASSERT_GE(out.bytes[size_t(r * 53 + c)], range.first) << r << " " << c;
      ASSERT_LE(out.bytes[size_t(r * 53 + c)], range.second) << r << " " << c;
    }
  }
}

// Bands: any split of the rows gives the bytes of one run; the coverage blend touches only the
// first and last row and column unit; work memory is released.
TEST(ResamplePlan, BandsEqualOneRunAndCoverageBlendsOnlyTheBorder) {
  std::mt19937 rng(framedsp_test::test_seed() + 3);
  const framedsp::WorkMemoryStats before = framedsp::work_memory_stats();
  for (uint32_t cls : {0u, 6u, 10u}) {
    Picture src(cls, 30, 22);
    framedsp_test::fill_random(src.bytes.data(), src.bytes.size(), rng);
    Job job(cls, 2, 30, 22, 46, 35, 3 << 20, 5 << 20);
    Picture whole(cls, 46, 35, 1), banded(cls, 46, 35, 1);
    ASSERT_EQ(job.run(src, whole, framedsp::cpu_flags()), 0);
    for (int32_t r0 = 0; r0 < 35;) {
      const int32_t r1 = std::min(35, r0 + 1 + int32_t(rng() % 9));
      ASSERT_EQ(job.run(src, banded, framedsp::cpu_flags(), r0, r1), 0);
      r0 = r1;
    }
    ASSERT_EQ(whole.bytes, banded.bytes) << cls;
    const framedsp::ResampleCoverage cov{4096, 12288, 8192, 16384};
    Picture covered(cls, 46, 35, 200);
    ASSERT_EQ(job.run(src, covered, framedsp::cpu_flags(), 0, 1 << 30, &cov), 0);
    const size_t unit = framedsp::resample_group_bytes(cls);
    for (int r = 0; r < 35; ++r) {
      for (size_t b = 0; b < whole.stride; ++b) {
        const uint32_t cc = b < unit ? 4096 : b >= whole.stride - unit ? 12288 : 16384;
        const uint32_t c = (cc * (r == 0 ? 8192 : 16384) + 8192) >> 14;
        const uint8_t nv = whole.row(r)[b];
        uint8_t want = uint8_t((nv * c + 200 * (16384 - c) + 8192) >> 14);
        if (cls == 10) {  // 16-bit samples blend whole
          const size_t s = b & ~size_t(1);
          const uint32_t v16 = whole.row(r)[s] | (whole.row(r)[s + 1] << 8);
          const uint32_t blended = (v16 * c + 0xC8C8u * (16384 - c) + 8192) >> 14;
          want = uint8_t(b & 1 ? blended >> 8 : blended);
        }
        ASSERT_EQ(covered.row(r)[b], want) << cls << " row " << r << " byte " << b;
      }
    }
  }
  const framedsp::WorkMemoryStats after = framedsp::work_memory_stats();
  EXPECT_EQ(after.allocations - before.allocations, after.releases - before.releases);
}

TEST(ResamplePlan, RefusesWhatItCannotHold) {
  void (*const spoil[])(Job &) = {
      [](Job &j) { j.s.kernel = 4; }, [](Job &j) { j.s.cubic_b_q14 = 16385; }, [](Job &j) { j.s.phase_bits = 15; },
      [](Job &j) { j.s.cls = 0, j.s.cols.count = 19; },  // 4:2:2: whole groups only
      [](Job &j) { j.cols[3] = int64_t{1} << 62; },
      [](Job &j) { j.s.cols.widen_q16 = 200u << 16; }};  // more taps than a row holds
  for (auto f : spoil) {
    Job job(6, 2, 10, 10, 20, 20);
    framedsp::ResamplePlan good, plan;
    ASSERT_EQ(framedsp::resample_plan_build(job.s, 0, &good), 0);
    f(job);
    EXPECT_EQ(framedsp::resample_plan_build(job.s, 0, &plan), framedsp::kInvalidArg);
  }
}

// The scaler's general path in the engine's terms: positions j * step (step = (src << 14) / dst,
// truncated), 14-bit phases, repeated edges; nearest reads floor(j * step), which is the engine's
// floor(s + 1/2) at s = j * step - 1/2.  Every class's line resamplers give the same bytes, and the
// vertical pass is the scaler's blend (a * (16384 - f) + b * f + 8192) >> 14.
TEST(ResamplePlan, ScalerPositionsGiveTheScalerLines) {
  std::mt19937 rng(framedsp_test::test_seed() + 4);
  framedsp::ScaleLineTable lines;
  framedsp::scale_line_table_init(&lines, framedsp::cpu_flags());
  for (uint32_t cls = 0; cls < framedsp::kResampleClasses; ++cls) {
    const int32_t px = int32_t(framedsp::resample_group_pixels(cls));
    for (int linear = 0; linear < 2; ++linear) {
      for (const auto &wh : {std::pair<int, int>{40, 58}, {58, 40}, {16, 16}, {30, 90}, {90, 12}}) {
        const int32_t sw = wh.first * px, dw = wh.second * px;
        const uint64_t step = (uint64_t(sw) << 14) / uint64_t(dw);
        const int64_t shift = linear ? 0 : framedsp::kResamplePosOne / 2;
        Job job(cls, uint32_t(linear), sw, 2, dw, 3);
        std::vector<int64_t> chroma(size_t(dw / 2));
        for (int32_t j = 0; j < dw; ++j) job.cols[size_t(j)] = int64_t((j * step) << 18) - shift;
        for (int32_t g = 0; g < dw / 2; ++g) chroma[size_t(g)] = int64_t((g * step) << 18) - shift;
        const uint64_t vstep = (2u << 14) / 3;
        for (int32_t k = 0; k < 3; ++k) job.rows[size_t(k)] = int64_t((k * vstep) << 18) - shift;
        job.s.chroma_pos = px == 2 ? chroma.data() : nullptr;
        job.s.phase_bits = 14;
        job.s.cols.widen_q16 = job.s.rows.widen_q16 = 65536;  // the scaler never widens
        Picture src(cls, sw, 2), out(cls, dw, 3);
        framedsp_test::fill_random(src.bytes.data(), src.bytes.size(), rng);
        ASSERT_EQ(job.run(src, out, framedsp::cpu_flags()), 0);
        Picture want(cls, dw, 3);
        std::vector<uint8_t> a(want.stride), b(want.stride);
        const auto resample = linear ? lines.linear[cls] : lines.nearest[cls];
        resample(src.row(0), a.data(), uint32_t(step), src.stride, want.stride);
        resample(src.row(1), b.data(), uint32_t(step), src.stride, want.stride);
        for (int32_t k = 0; k < 3; ++k) {
          const bool last = (k * vstep) >> 14 != 0;  // row 1: its successor is clamped to itself
          const uint32_t f = linear && !last ? uint32_t(k * vstep) & 0x3FFF : 0;
          if (f == 0) {
            std::memcpy(want.row(k), last ? b.data() : a.data(), want.stride);
          } else if (cls >= 7) {
            continue;  // the scaler blends the bytes of 16-bit samples one by one: not expressible
          } else {
            framedsp::scale_blend_c(a.data(), b.data(), want.row(k), f, 16384 - f, want.stride);
          }
          ASSERT_EQ(0, std::memcmp(want.row(k), out.row(k), want.stride)) << "class " << cls << " linear " << linear
                                                                           << " " << sw << " -> " << dw << " row " << k;
        }
      }
    }
  }
}

}  // namespace
