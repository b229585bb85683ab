// DspFrameRateConvert: the kernels against their scalar twins, refusals, exact phases, identity,
// shifts, blends, refinement, the overlay, NV16 against its components, the converter's own field,
// bands, threads and ISA levels, every frame ending against a protected page.  Random records with
// wild vectors against guard pages: fuzz/fuzz_frame_rate.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "framedsp/framedsp.h"
#include "platform/cpu.h"
#include "platform/handle.h"
#include "framerate/frc_kernels.h"
#include "motion_util.h"

namespace {

using framedsp_test::GuardedBuffer;
using motion_test::Frames;
using motion_test::plane;
using namespace framedsp;

// ---- kernels ---------------------------------------------------------------------------------

TEST(FrameRateKernels, FilterRows) {
  for (uint32_t s = 0; s < 4; ++s) {
    const McFilter &f = mc_filter(s);
    for (int phase = 0; phase < kMcPhases; ++phase) {
      int sum = 0;
      for (int t = 0; t < kMcTaps; ++t) {
        sum += f.rows[phase][t];
        // Whole pixels give the source; the other rows are mirror images about the half.
        const int mirror = phase ? f.rows[kMcPhases - phase][kMcTaps - 1 - t] : t == kMcLead ? 16384 : 0;
        EXPECT_NEAR(f.rows[phase][t], mirror, phase && s < 3 ? 1 : phase ? 1 << 20 : 0) << s << "/" << phase;
      }
      EXPECT_EQ(sum, 16384) << s << "/" << phase;
    }
  }
}

TEST(FrameRateKernels, SimdEqualsScalar) {
  std::mt19937 rng(framedsp_test::test_seed());
  FrcKernels c;
  frc_kernels_init(&c, 0);
  int levels = 0;
  for (uint32_t isa : {uint32_t(kCpuSSE2), uint32_t(kCpuSSE2 | kCpuAVX2)}) {
    if ((simd_twins_built() & isa) != isa || (cpu_flags() & isa) != isa) continue;
    ++levels;
    FrcKernels k;
    frc_kernels_init(&k, isa);
    EXPECT_NE(k.tile, c.tile);
    for (int round = 0; round < 3000; ++round) {
      const int w = 1 + int(rng() % kMcMaxTile), h = 1 + int(rng() % kMcMaxTile), step = 1 + int(rng() % 2);
      const int stride = mc_read_width(w, step) + int(rng() % 9);
      const size_t bytes = size_t(h + kMcTaps - 2) * stride + mc_read_width(w, step);
      GuardedBuffer src(bytes, 0);  // ends against a protected page
      if (round % 3 == 0) framedsp_test::fill_random(src.data(), bytes, rng);
      else std::memset(src.data(), round % 3 == 1 ? 0 : 255, bytes);
      const McFilter &f = mc_filter(rng() % 4);
      const int16_t *hr = f.rows[rng() % kMcPhases], *vr = f.rows[rng() % kMcPhases];
      int16_t want[kMcMaxTile * kMcMaxTile], got[kMcMaxTile * kMcMaxTile];
      c.tile(src.data(), stride, w, h, step, hr, vr, want);
      k.tile(src.data(), stride, w, h, step, hr, vr, got);
      for (int y = 0; y < h; ++y)
        ASSERT_EQ(0, std::memcmp(want + y * kMcMaxTile, got + y * kMcMaxTile, size_t(w) * 2))
            << "tile isa " << isa << " " << w << "x" << h << " step " << step;
      const int n = 1 + int(rng() % 40), wa = int(rng() % 16385);
      uint8_t bw[48], bg[48];
      int16_t a[48], b[48];
      for (int i = 0; i < n; ++i) a[i] = int16_t(int(rng() % 26000) - 3000), b[i] = int16_t(int(rng() % 26000) - 3000);
      c.blend(a, b, n, wa, 16384 - wa, bw);
      k.blend(a, b, n, wa, 16384 - wa, bg);
      ASSERT_EQ(0, std::memcmp(bw, bg, size_t(n))) << "blend isa " << isa << " n " << n;
    }
  }
  if (!levels) GTEST_SKIP() << "no SIMD level on this machine or build";
}

// ---- the export --------------------------------------------------------------------------------

struct Handle {
  explicit Handle(uint32_t mode = 0, uint32_t block = 0) {
    std::memset(&p, 0, sizeof p);
    p.ulBaseCount = 1;
    p.lWidth = p.lHeight = 4096;
    p.eConvertMode = mode;
    p.ulLevels = 3;
    p.ulBlockA = p.ulBlockB = block;
    for (int k = 0; k < 5; ++k) p.ulLevelRangeX[k] = p.ulLevelRangeY[k] = 2;
    EXPECT_EQ(DspCreateFrameRateConverter(&p, &h), DSP_S_OK);
  }
  ~Handle() { HandleObject::lookup(h)->release(); }  // the creation reference: no export drops it
  DSP_FRAME_RATE_CONVERTER_PARAMS p;
  DSP_HANDLE h = nullptr;
};

// The record over the three frames, with `field` (if any) as its vector field.
DSP_FRAME_RATE_CONVERT_PARAMS record(Frames &f, uint32_t phase, uint8_t flags = 0,
                                     std::vector<uint8_t> *field = nullptr) {
  DSP_FRAME_RATE_CONVERT_PARAMS p;
  std::memset(&p, 0, sizeof p);
  p.FrameA = plane(f.a.data(), uint32_t(f.w), uint32_t(f.h), uint32_t(f.s), f.bytes);
  p.FrameB = plane(f.b.data(), uint32_t(f.w), uint32_t(f.h), uint32_t(f.s), f.bytes);
  p.FrameOut = plane(f.out.data(), uint32_t(f.w), uint32_t(f.h), uint32_t(f.s), f.bytes);
  p.ulPhaseQ14 = phase;
  p.bConvertFlags = flags;
  p.pVectorField = field ? field->data() : nullptr;
  p.ulVectorFieldBytes = field ? uint32_t(field->size()) : 0;
  return p;
}

// A uniform field (both directions) of v quarter pixels.
std::vector<uint8_t> uniform_field(int w, int h, int bw, int bh, int vx, int vy, uint16_t cost = 0, uint16_t flags = 0) {
  const int cols = (w + bw - 1) / bw, rows = (h + bh - 1) / bh;
  std::vector<uint8_t> bytes(DSP_VECTOR_FIELD_BYTES(uint32_t(w), uint32_t(h), uint32_t(bw), uint32_t(bh)));
  DSP_VECTOR_FIELD hd = {uint32_t(bytes.size()), uint32_t(w), uint32_t(h), uint32_t(bw), uint32_t(bh), uint32_t(cols),
                         uint32_t(rows), DSP_VECTOR_FIELD_FORWARD | DSP_VECTOR_FIELD_BACKWARD, 0, 0, 400, 0};
  std::memcpy(bytes.data(), &hd, sizeof hd);
  auto *e = reinterpret_cast<DSP_MOTION_VECTOR *>(bytes.data() + sizeof hd);
  for (int i = 0; i < cols * rows; ++i) {
    e[i] = {int16_t(vx), int16_t(vy), cost, flags};
    e[i + cols * rows] = {int16_t(-vx), int16_t(-vy), cost, flags};
  }
  return bytes;
}

std::vector<uint8_t> bytes_of(const GuardedBuffer &g) { return {g.data(), g.data() + g.size()}; }

TEST(FrameRateConvert, RefusalsWriteNothing) {
  Handle conv;
  Frames f(64, 32);
  f.texture(1);
  f.shifted(4, 2);
  std::vector<uint8_t> field = uniform_field(64, 32, 16, 16, 16, 8);
  using Mutate = void (*)(DSP_FRAME_RATE_CONVERT_PARAMS &, std::vector<uint8_t> &);
  const std::pair<const char *, Mutate> cases[] = {
      {"null_A", [](auto &p, auto &) { p.FrameA.Buffer.pBuffer = nullptr; }},
      {"null_out", [](auto &p, auto &) { p.FrameOut.Buffer.pBuffer = nullptr; }},
      {"phase", [](auto &p, auto &) { p.ulPhaseQ14 = 16385; }},
      {"sampling", [](auto &p, auto &) { p.eSampling = 4; }},
      {"flags", [](auto &p, auto &) { p.bConvertFlags = 0x10; }},
      {"reserved", [](auto &p, auto &) { p.ulReserved = 1; }},
      {"band", [](auto &p, auto &) { p.ulSliceCount = 2, p.ulSliceNumber = 3; }},
      {"stride", [](auto &p, auto &) { p.FrameB.ulPrimaryStrideBytes = 63; }},
      {"zero_height", [](auto &p, auto &) { p.FrameB.ulHeight = 0; }},
      {"short_A", [](auto &p, auto &) { p.FrameA.Buffer.ulBytes -= 1; }},
      {"short_out", [](auto &p, auto &) { p.FrameOut.Buffer.ulBytes -= 1; }},
      {"odd_nv16", [](auto &p, auto &) { p.FrameB.ulWidth = 63; }},
      {"field_size", [](auto &, auto &fl) { reinterpret_cast<DSP_VECTOR_FIELD *>(fl.data())->ulWidth = 48; }},
      {"field_blocks", [](auto &, auto &fl) { reinterpret_cast<DSP_VECTOR_FIELD *>(fl.data())->ulColumns = 5; }},
      {"field_longer", [](auto &p, auto &) { p.ulVectorFieldBytes -= 8; }},
      {"field_header", [](auto &p, auto &) { p.ulVectorFieldBytes = 47; }},
  };
  const std::vector<uint8_t> before = bytes_of(f.out);
  for (const auto &c : cases) {
    std::vector<uint8_t> fl = field;
    DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, 8192, 0, &fl);
    c.second(p, fl);
    EXPECT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_E_INVALIDARG) << c.first;
    EXPECT_EQ(bytes_of(f.out), before) << c.first;
  }
  EXPECT_EQ(DspFrameRateConvert(conv.h, nullptr, 0), DSP_E_POINTER);
  Handle bad_mode(3);
  DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, 8192);
  EXPECT_EQ(DspFrameRateConvert(bad_mode.h, &p, 0), DSP_E_INVALIDARG);
  EXPECT_EQ(bytes_of(f.out), before);
  EXPECT_TRUE(f.out.intact());
}

// A equal to B gives A at every phase and every sampling.  B moved by an even number of pixels:
// phases 0 and 16384 copy A and B, and at 1/2 the output is A moved by half of it, away from the
// border strips, whether the field is given or estimated.
TEST(FrameRateConvert, IdentityExactPhasesAndEvenPanAtHalf) {
  Handle conv;
  Frames f(128, 64), want(128, 64);
  f.texture(3);
  std::memcpy(f.b.data(), f.a.data(), f.bytes);
  for (uint8_t sampling = 0; sampling < 4; ++sampling)
    for (uint32_t phase : {1u, 3277u, 8192u, 13107u, 16383u}) {
      DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, phase);
      p.eSampling = sampling;
      ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
      ASSERT_EQ(bytes_of(f.out), bytes_of(f.a)) << "sampling " << int(sampling) << " phase " << phase;
    }
  const int dx = 6, dy = -4;
  f.shifted(dx, dy);
  for (uint32_t phase : {0u, 16384u}) {
    DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, phase);
    ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
    EXPECT_EQ(bytes_of(f.out), bytes_of(phase ? f.b : f.a));
  }
  std::memcpy(want.a.data(), f.a.data(), f.bytes);
  want.shifted(dx / 2, dy / 2);
  for (int given = 0; given < 2; ++given)
    for (uint8_t sampling = 0; sampling < 4; ++sampling) {
      std::vector<uint8_t> field = uniform_field(128, 64, 16, 8, dx * 4, dy * 4);
      DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, 8192, DSP_CONVERT_PLAIN_PLANE2, given ? &field : nullptr);
      p.eSampling = sampling;
      ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
      for (int pl = 0; pl < 2; ++pl)
        for (int y = 8; y < 56; ++y)
          ASSERT_EQ(0, std::memcmp(f.plane(f.out, pl) + y * 128 + 8, want.plane(want.b, pl) + y * 128 + 8, 112))
              << "given " << given << " sampling " << int(sampling) << " plane " << pl << " line " << y;
    }
}

// The blend (wA a + wB b + 8192) >> 14 of mode 1, of a field whose bad share is above the fallback
// threshold (a scene cut) and of a picture too small to search; mode 2 takes the nearer frame.
TEST(FrameRateConvert, BlendsAndNearest) {
  Handle moving, blend(1), nearest(2);
  Frames f(64, 32, 0, 1);
  f.texture(8);
  f.shifted(4, 2);
  const uint32_t phase = 5000;
  auto blended = [&](const uint8_t *a, const uint8_t *b, const uint8_t *out, size_t n) {
    for (size_t i = 0; i < n; ++i)
      if (out[i] != ((16384 - phase) * a[i] + phase * b[i] + 8192) >> 14) return false;
    return true;
  };
  for (int cut = 0; cut < 2; ++cut) {  // 1 bad block of 8 is below 40 / 256, 8 of 8 above it
    std::vector<uint8_t> field = uniform_field(64, 32, 16, 16, 16, 8, 0, 0);
    auto *e = reinterpret_cast<DSP_MOTION_VECTOR *>(field.data() + 48);
    for (int i = 0; i < (cut ? 8 : 1); ++i) e[i].usFlags = DSP_MV_BAD;
    DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, phase, DSP_CONVERT_LUMA_ONLY, &field);
    p.ulFallbackThreshold = 40;
    ASSERT_EQ(DspFrameRateConvert(moving.h, &p, 0), DSP_S_OK);
    EXPECT_EQ(blended(f.a.data(), f.b.data(), f.out.data(), f.bytes), bool(cut)) << "scene cut " << cut;
  }
  DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, phase, DSP_CONVERT_LUMA_ONLY);
  ASSERT_EQ(DspFrameRateConvert(blend.h, &p, 0), DSP_S_OK);
  EXPECT_TRUE(blended(f.a.data(), f.b.data(), f.out.data(), f.bytes)) << "mode 1";
  for (uint32_t ph : {8191u, 8192u}) {
    p.ulPhaseQ14 = ph;
    ASSERT_EQ(DspFrameRateConvert(nearest.h, &p, 0), DSP_S_OK);
    EXPECT_EQ(bytes_of(f.out), bytes_of(ph < 8192 ? f.a : f.b)) << "mode 2 at " << ph;
  }
  uint8_t a[9], b[9], out[9];  // 3 x 3: no search window fits
  for (int i = 0; i < 9; ++i) a[i] = uint8_t(20 * i), b[i] = uint8_t(250 - 7 * i);
  p.FrameA = plane(a, 3, 3, 3, 9), p.FrameB = plane(b, 3, 3, 3, 9), p.FrameOut = plane(out, 3, 3, 3, 9);
  p.ulPhaseQ14 = phase;
  ASSERT_EQ(DspFrameRateConvert(moving.h, &p, 0), DSP_S_OK);
  EXPECT_TRUE(blended(a, b, out, 9)) << "3 x 3";
}

double psnr(const uint8_t *x, const uint8_t *y, int w, int h, int margin) {
  double sum = 0;
  for (int r = margin; r < h - margin; ++r)
    for (int c = margin; c < w - margin; ++c) sum += (x[r * w + c] - y[r * w + c]) * (x[r * w + c] - y[r * w + c]);
  return 10 * std::log10(255.0 * 255.0 * (w - 2 * margin) * (h - 2 * margin) / std::max(sum, 1e-9));
}

// Refinement off follows the field verbatim (a zero field blends A and B byte by byte); a
// threshold below the field's cost searches again and comes close to the true middle frame.
TEST(FrameRateConvert, RefinementReplacesBadVectors) {
  Handle conv;
  Frames f(128, 64, 0, 1), truth(128, 64, 0, 1);
  f.texture(4);
  f.shifted(6, 2);
  std::memcpy(truth.a.data(), f.a.data(), f.bytes);
  truth.shifted(3, 1);
  std::vector<uint8_t> field = uniform_field(128, 64, 16, 16, 0, 0, 300);
  DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, 8192, DSP_CONVERT_LUMA_ONLY, &field);
  p.ulRefineThreshold = 300;
  ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
  for (size_t i = 0; i < f.bytes; ++i) ASSERT_EQ(f.out[i], (f.a[i] + f.b[i] + 1) >> 1) << i;
  const double verbatim = psnr(f.out.data(), truth.b.data(), 128, 64, 8);
  p.bConvertFlags |= DSP_CONVERT_REFINE;  // 300 is not above 300: still verbatim
  ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
  EXPECT_EQ(psnr(f.out.data(), truth.b.data(), 128, 64, 8), verbatim);
  p.ulRefineThreshold = 299;
  ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
  EXPECT_GT(psnr(f.out.data(), truth.b.data(), 128, 64, 8), verbatim + 15);
}

// The drawing rule on a 32 x 32 picture of four 16 x 16 blocks: each block's drawing covers the
// blocks before it and itself, later blocks are produced over it, lines are clipped.
TEST(FrameRateConvert, OverlayPixels) {
  Handle conv;
  Frames f(32, 32, 0, 1);
  f.texture(5);
  std::memcpy(f.b.data(), f.a.data(), f.bytes);
  std::vector<uint8_t> field = uniform_field(32, 32, 16, 16, 0, 0);
  auto *e = reinterpret_cast<DSP_MOTION_VECTOR *>(field.data() + 48);
  e[0].sX = 80;             // block 0: 20 pixels right, through block 1 (drawn over by block 1)
  e[1].sX = 160;            // block 1: 40 pixels right, clipped at the picture's edge
  e[3].sX = e[3].sY = -40;  // block 3: 10 pixels up-left, into block 0 (drawn last, stays)
  DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, 8192, DSP_CONVERT_LUMA_ONLY | DSP_CONVERT_NO_OCCLUSION, &field);
  ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
  const std::vector<uint8_t> plain = bytes_of(f.out);
  p.bOverlay = 1;
  ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
  auto at = [&](int x, int y) { return int(f.out[size_t(y) * 32 + x]); };
  for (int x = 8; x <= 15; ++x) EXPECT_EQ(at(x, 8), 255) << x;       // block 0's line in block 0
  for (int x = 16; x <= 22; ++x) EXPECT_EQ(at(x, 8), plain[8 * 32 + x]) << x;  // produced over by block 1
  for (int x = 24; x <= 31; ++x) EXPECT_EQ(at(x, 8), 255) << x;      // block 1's own line, clipped
  for (int d = 0; d <= 10; ++d) EXPECT_EQ(at(24 - d, 24 - d), 255) << d;  // block 3 into block 0
  for (const auto &xy : {std::pair<int, int>{7, 7}, {9, 9}, {23, 7}, {25, 25}, {25, 23}}) EXPECT_EQ(at(xy.first, xy.second), 0);
  EXPECT_EQ(at(8, 24), 255);  // block 2's centre (zero vector)
  EXPECT_EQ(at(2, 2), plain[2 * 32 + 2]);
}

// Plane 2 as NV16: each of Cb and Cr is converted as a picture of its own, half as wide, moved by
// half the horizontal motion.
TEST(FrameRateConvert, Nv16MatchesItsComponents) {
  Handle conv;
  Frames f(64, 32);
  f.texture(6);
  f.shifted(4, 1);
  std::vector<uint8_t> field = uniform_field(64, 32, 16, 8, 6, 3);
  DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, 5461, DSP_CONVERT_NO_OCCLUSION, &field);
  ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
  for (int comp = 0; comp < 2; ++comp) {
    Frames c(32, 32, 0, 1);
    for (int i = 0; i < 32 * 32; ++i) {
      c.a[size_t(i)] = f.plane(f.a, 1)[2 * i + comp];
      c.b[size_t(i)] = f.plane(f.b, 1)[2 * i + comp];
    }
    std::vector<uint8_t> half = uniform_field(32, 32, 8, 8, 3, 3);
    DSP_FRAME_RATE_CONVERT_PARAMS q = record(c, 5461, DSP_CONVERT_LUMA_ONLY | DSP_CONVERT_NO_OCCLUSION, &half);
    ASSERT_EQ(DspFrameRateConvert(conv.h, &q, 0), DSP_S_OK);
    for (int i = 0; i < 32 * 32; ++i)
      ASSERT_EQ(f.plane(f.out, 1)[2 * i + comp], c.out[size_t(i)]) << "component " << comp << " at " << i;
  }
}

// Without a field the converter follows the field a host makes itself with DspCreateMipMaps
// (linear, levels halved) and DspCreateMotionVectors under the converter's search settings.
TEST(FrameRateConvert, OwnFieldIsTheMotionVectorField) {
  Handle conv(0, 8);
  constexpr uint32_t kW = 192, kH = 128;
  Frames f(kW, kH, 0, 1);
  f.texture(17);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t x = 0; x < kW; ++x) {  // B: A's left half moved by (7, 6), its right half by (-7, 6)
      const uint32_t sx = x < kW / 2 ? std::max(int(x) - 7, 0) : std::min(x + 7, kW - 1);
      f.b[y * kW + x] = f.a[std::max(int(y) - 6, 0) * kW + sx];
    }
  const motion_test::Pyramid pa(f.a.data(), kW, kH, int(conv.p.ulLevels)),
      pb(f.b.data(), kW, kH, int(conv.p.ulLevels));
  std::vector<uint8_t> field(DSP_VECTOR_FIELD_BYTES(kW, kH, 8u, 8u));
  DSP_MOTION_VECTORS_PARAMS mv{};
  mv.pLevelsA = &pa.list, mv.pLevelsB = &pb.list;
  mv.pVectorField = field.data(), mv.ulVectorFieldBytes = uint32_t(field.size());
  std::memcpy(&mv.ulLevels, &conv.p.ulLevels,
              offsetof(DSP_MOTION_VECTORS_PARAMS, ulReserved) - offsetof(DSP_MOTION_VECTORS_PARAMS, ulLevels));
  ASSERT_EQ(DspCreateMotionVectors(conv.h, &mv), DSP_S_OK);
  const auto *fwd = reinterpret_cast<const DSP_MOTION_VECTOR *>(field.data() + DSP_VECTOR_FIELD_HEADER_BYTES);
  int found = 0;
  for (int i = 48; i < 144; ++i) found += fwd[i].sX == (i % 24 < 12 ? 28 : -28) && fwd[i].sY == 24;  // block rows 2..5
  EXPECT_GE(found, 72) << "the field sees the pan (beyond level 0's window): " << fwd[60].sX << "," << fwd[60].sY;
  for (uint32_t phase : {3000u, 8192u, 13000u}) {
    DSP_FRAME_RATE_CONVERT_PARAMS p = record(f, phase, DSP_CONVERT_LUMA_ONLY);
    ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
    const std::vector<uint8_t> own = bytes_of(f.out);
    p = record(f, phase, DSP_CONVERT_LUMA_ONLY, &field);
    ASSERT_EQ(DspFrameRateConvert(conv.h, &p, 0), DSP_S_OK);
    EXPECT_TRUE(own == bytes_of(f.out)) << "phase " << phase;
  }
}

// A textured pair with an object moving over a panning background, estimated by the converter.
struct Scene {
  Scene(int w, int h, int stride) : f(w, h, stride) {
    f.texture(7);
    f.shifted(5, 2);
    for (int y = 20; y < 44; ++y)  // an object moving the other way
      for (int x = 30; x < 70; ++x) f.b[size_t(y) * f.s + x - 9] = f.a[size_t(y) * f.s + x] = uint8_t(x * 5 + y * 3);
  }
  Frames f;
};

std::vector<uint8_t> convert_all(DSP_HANDLE h, Scene &s, uint32_t bands, uint8_t overlay, uint8_t sampling) {
  std::vector<uint8_t> result(s.f.bytes, 0);
  for (uint32_t n = 1; n <= bands; ++n) {
    std::memset(s.f.out.data(), 0x5A, s.f.bytes);
    DSP_FRAME_RATE_CONVERT_PARAMS p = record(s.f, 6000, DSP_CONVERT_REFINE);
    p.ulRefineThreshold = 200;
    p.bOverlay = overlay;
    p.eSampling = sampling;
    p.ulSliceCount = bands, p.ulSliceNumber = n;
    EXPECT_EQ(DspFrameRateConvert(h, &p, 0), DSP_S_OK);
    const int y0 = int((n - 1) * uint32_t(s.f.h) / bands), y1 = int(n * uint32_t(s.f.h) / bands);
    for (size_t o = 0; o < s.f.bytes; ++o) {
      const int y = int(o / size_t(s.f.s) % size_t(s.f.h));
      if (y >= y0 && y < y1) result[o] = s.f.out[o];
      else EXPECT_EQ(s.f.out[o], 0x5A) << "band " << n << " of " << bands << " wrote line " << y;
    }
  }
  EXPECT_TRUE(s.f.out.intact());
  return result;
}

// Any split into bands gives the bytes of one call, also with the bands of several splits running
// on threads at once through one converter.
TEST(FrameRateConvert, OneConverterOnSeveralThreads) {
  Handle conv;
  Scene s(100, 60, 104);
  const std::vector<uint8_t> whole = convert_all(conv.h, s, 1, 1, 0);
  std::vector<std::unique_ptr<Scene>> scenes;
  std::vector<std::thread> threads;
  for (uint32_t bands : {2u, 3u, 7u, 2u}) {
    scenes.push_back(std::make_unique<Scene>(100, 60, 104));
    threads.emplace_back([&conv, &whole, bands, sc = scenes.back().get()] {
      for (int i = 0; i < 3; ++i) EXPECT_EQ(convert_all(conv.h, *sc, bands, 1, 0), whole) << bands;
    });
  }
  for (std::thread &t : threads) t.join();
}

TEST(FrameRateConvert, EveryIsaGivesTheScalarBytes) {
  Handle conv;
  Scene s(100, 60, 104);
  for (uint8_t sampling = 0; sampling < 4; ++sampling) {
    const std::vector<uint8_t> simd = convert_all(conv.h, s, 1, 0, sampling);
    set_cpu_mask(kCpuSSE2);
    const std::vector<uint8_t> sse2 = convert_all(conv.h, s, 1, 0, sampling);
    set_cpu_mask(0);
    const std::vector<uint8_t> scalar = convert_all(conv.h, s, 1, 0, sampling);
    set_cpu_mask(~0u);
    EXPECT_EQ(simd, scalar) << int(sampling);
    EXPECT_EQ(sse2, scalar) << int(sampling);
  }
}

}  // namespace
