// Resampling engine, whole plans: weight rows, constant pictures, ramps, shifts, edges,
// anti-ringing, bands and the ISA levels against each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "resample/resample_internal.h"
#include "resample_util.h"
#include "test_util.h"

namespace {

using framedsp::kResampleOne;
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
        resample_test::fill_random(src.bytes, rng);
        Picture ref(cls, sz[2], sz[3], 7);
        ASSERT_EQ(job.run(src, ref, 0), 0);
        for (uint32_t level : {uint32_t(framedsp::kCpuSSE2), framedsp::kCpuSSE2 | framedsp::kCpuSSSE3, ~0u}) {
          Picture simd(cls, sz[2], sz[3], 7);
          ASSERT_EQ(job.run(src, simd, level & framedsp::cpu_flags()), 0);
          ASSERT_EQ(simd.bytes, ref.bytes) << "class " << cls << " kernel " << kernel << " edge " << edge << " level "
                                           << level << "\n"
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
    resample_test::fill_random(src.bytes, rng);
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
      uint8_t lo = 255, hi = 0;
      for (int64_t yy : {y, y + 1}) {
        for (int64_t xx : {x, x + 1}) {
          const uint8_t v = src.bytes[size_t(std::clamp<int64_t>(yy, 0, 15) * 20 + std::clamp<int64_t>(xx, 0, 19))];
          lo = std::min(lo, v);
          hi = std::max(hi, v);
        }
      }
      ASSERT_GE(out.bytes[size_t(r * 53 + c)], lo) << r << " " << c;
      ASSERT_LE(out.bytes[size_t(r * 53 + c)], hi) << r << " " << c;
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
    resample_test::fill_random(src.bytes, rng);
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
  Job job(6, 2, 10, 10, 20, 20);
  framedsp::ResamplePlan plan;
  job.s.kernel = 4;
  EXPECT_EQ(framedsp::resample_plan_build(job.s, 0, &plan), framedsp::kInvalidArg);
  job.s.kernel = 2;
  job.s.cubic_b_q14 = 16385;
  EXPECT_EQ(framedsp::resample_plan_build(job.s, 0, &plan), framedsp::kInvalidArg);
  job.s.cubic_b_q14 = 0;
  job.s.phase_bits = 15;
  EXPECT_EQ(framedsp::resample_plan_build(job.s, 0, &plan), framedsp::kInvalidArg);
  job.s.phase_bits = 0;
  job.s.cls = 0;  // 4:2:2: whole groups only
  job.s.cols.count = 19;
  EXPECT_EQ(framedsp::resample_plan_build(job.s, 0, &plan), framedsp::kInvalidArg);
  job.s.cls = 6;
  job.s.cols.count = 20;
  job.cols[3] = int64_t{1} << 62;
  EXPECT_EQ(framedsp::resample_plan_build(job.s, 0, &plan), framedsp::kInvalidArg);
  job.cols[3] = 0;
  job.s.cols.widen_q16 = 200u << 16;  // more taps than a row holds
  EXPECT_EQ(framedsp::resample_plan_build(job.s, 0, &plan), framedsp::kInvalidArg);
}

}  // namespace

#include "scale/scale_line_kernels.h"

namespace {

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
        resample_test::fill_random(src.bytes, rng);
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
