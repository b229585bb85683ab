// DspCreateMotionVectors: the kernels against their scalar twins, known translations of a smooth
// random texture, reach, boundaries, flat areas, scene cuts, odd sizes, ISA independence, refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "analysis/motion_kernels.h"
#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "framedsp/framedsp.h"
#include "motion_util.h"

namespace {

using framedsp::MotionKernels;
using motion_test::converter;
using motion_test::Pyramid;
using Tune = std::function<void(DSP_MOTION_VECTORS_PARAMS &)>;

// Sum of 40 sinusoids with random directions and phases, 0.03..0.48 radians a pixel, amplitude
// falling as 1/sqrt(frequency); about 45 grey levels of deviation around 128.
class Texture {
 public:
  explicit Texture(uint32_t seed) {
    std::mt19937 r(seed);
    std::uniform_real_distribution<double> u(0, 1);
    double power = 0;
    for (int i = 0; i < 40; ++i) {
      const double f = 0.03 * std::pow(2.0, 4.0 * u(r)), t = 6.283185307179586 * u(r);
      waves_.push_back({f * std::cos(t), f * std::sin(t), 6.283185307179586 * u(r), 1 / std::sqrt(f)});
      power += waves_.back().a * waves_.back().a / 2;
    }
    for (Wave &w : waves_) w.a *= 45 / std::sqrt(power);
  }
  uint8_t at(double x, double y) const {
    double v = 128;
    for (const Wave &w : waves_) v += w.a * std::sin(w.kx * x + w.ky * y + w.phase);
    return static_cast<uint8_t>(std::lround(std::fmin(255, std::fmax(0, v))));
  }
  // The picture shifted by (dx, dy): pixel p shows what (p - d) shows unshifted.  Where x - dx is
  // at or past `textured`, a flat 120 or 121 at random (a sensor's grain, drawn from `grain`).
  std::vector<uint8_t> picture(int w, int h, double dx = 0, double dy = 0, int textured = INT_MAX,
                               uint32_t grain = 1) const {
    std::mt19937 g(grain);
    std::vector<uint8_t> p(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        p[static_cast<size_t>(y) * w + x] = x - dx < textured ? at(x - dx, y - dy) : uint8_t(120 + (g() & 1));
    return p;
  }

 private:
  struct Wave {
    double kx, ky, phase, a;
  };
  std::vector<Wave> waves_;
};

struct Field {
  DSP_HRESULT status;
  std::vector<uint8_t> bytes;  // the whole buffer as the call left it (0x5A before)
  DSP_VECTOR_FIELD h{};
  std::vector<DSP_MOTION_VECTOR> e;  // forward, then backward
  int count() const { return static_cast<int>(h.ulColumns * h.ulRows); }
  const DSP_MOTION_VECTOR &at(int dir, int i) const { return e[static_cast<size_t>(dir * count() + i)]; }
  // Bad blocks among those whose match stays inside the picture.
  int bad_inside(int dir) const {
    int bad = 0;
    for (int i = 0; i < count(); ++i) bad += (at(dir, i).usFlags & (DSP_MV_BAD | DSP_MV_OUTSIDE)) == DSP_MV_BAD;
    return bad;
  }
  // Share of the blocks (not flagged outside, with the flags `need`, from block column `first` on)
  // within one quarter pixel of (tx, ty), negated backward.
  double share(int dir, int tx, int ty, uint16_t need = 0, int first = 0) const {
    int good = 0, n = 0;
    for (int i = 0; i < count(); ++i) {
      const DSP_MOTION_VECTOR &v = at(dir, i);
      if ((v.usFlags & DSP_MV_OUTSIDE) || (v.usFlags & need) != need || i % int(h.ulColumns) < first) continue;
      ++n;
      good += std::abs(v.sX - (dir ? -tx : tx)) <= 1 && std::abs(v.sY - (dir ? -ty : ty)) <= 1;
    }
    return n ? static_cast<double>(good) / n : 0;
  }
};

// Estimates A -> B (and back) with the record as `tune` leaves it, into a field buffer of 0x5A
// bytes that ends against a protected page, its margin checked.
Field estimate(const Pyramid &a, const Pyramid &b, int block, const Tune &tune = nullptr, int block_b = 0) {
  const DSP_IMAGE &l0 = a.list.Levels[0];
  block_b = block_b ? block_b : block;
  framedsp_test::GuardedBuffer field(DSP_VECTOR_FIELD_BYTES(l0.ulWidth, l0.ulHeight, block, block_b), 64, 0x5A);
  DSP_MOTION_VECTORS_PARAMS p{};
  p.pLevelsA = &a.list;
  p.pLevelsB = &b.list;
  p.pVectorField = field.data();
  p.ulVectorFieldBytes = static_cast<uint32_t>(field.size());
  p.ulBlockA = static_cast<uint32_t>(block);
  p.ulBlockB = static_cast<uint32_t>(block_b);
  if (tune) tune(p);
  Field r{DspCreateMotionVectors(converter(), &p), {field.data(), field.data() + field.size()}, {}, {}};
  EXPECT_TRUE(field.intact()) << field.damage();
  std::memcpy(&r.h, r.bytes.data(), sizeof r.h);
  r.e.resize((r.bytes.size() - 48) / 8);
  std::memcpy(r.e.data(), r.bytes.data() + 48, r.e.size() * 8);
  return r;
}

Field translate(int w, int h, double dx, double dy, int block, const Tune &tune = nullptr, int textured = INT_MAX) {
  const Texture t(7);
  return estimate(Pyramid(t.picture(w, h, 0, 0, textured, 1), w, h, 4),
                  Pyramid(t.picture(w, h, dx, dy, textured, 2), w, h, 4), block, tune);
}

// ---- kernels ---------------------------------------------------------------------------------

TEST(MotionKernels, EveryIsaMatchesTheScalarKernels) {
  if (!(framedsp::simd_twins_built() & framedsp::cpu_flags())) GTEST_SKIP() << "no SIMD motion kernels";
  MotionKernels c, simd[2];
  framedsp::motion_kernels_init(&c, 0);
  framedsp::motion_kernels_init(&simd[0], framedsp::kCpuSSE2 & framedsp::cpu_flags());
  framedsp::motion_kernels_init(&simd[1], framedsp::cpu_flags());
  std::mt19937 rng(framedsp_test::test_seed());
  constexpr int kStride = 160;
  std::vector<uint8_t> a(kStride * 80), b(kStride * 80), c2(kStride * 80), o1(200), o2(200);
  for (int round = 0; round < 4000; ++round) {
    const int fill = round % 4;  // random, all 0 / all 255 against each other, random 0/255
    for (size_t i = 0; i < a.size(); ++i) {
      a[i] = fill == 0 ? rng() : fill == 1 ? 0 : fill == 2 ? 255 : (rng() & 1) * 255;
      b[i] = fill == 0 ? rng() : fill == 1 ? 255 : fill == 2 ? 0 : (rng() & 1) * 255;
      c2[i] = static_cast<uint8_t>(rng());
    }
    // Half the rounds take the 16-wide paths (split after 8 columns, or not by columns).
    const bool wide = (round / 4) & 1;
    const uint32_t w = wide ? 16 : 1 + rng() % 64, h = 1 + rng() % 64, fx = rng() % 4, fy = rng() % 4;
    const uint32_t sx = wide ? 8u << (rng() & 1) : 1 + rng() % w, sy = 1 + rng() % h;
    // Negative strides read bottom-up pictures; one line and column of margin.
    const ptrdiff_t sa = (rng() & 1) ? kStride : -kStride, sb = (rng() & 1) ? kStride : -kStride;
    const uint8_t *pa = a.data() + (sa < 0 ? 70 * kStride : kStride) + 1 + rng() % 16;
    const uint8_t *pb = b.data() + (sb < 0 ? 70 * kStride : kStride) + 1 + rng() % 16;
    const uint8_t *pc = c2.data() + (sb < 0 ? 70 * kStride : kStride) + 1 + rng() % 16;
    const std::string what = std::to_string(w) + "x" + std::to_string(h) + " split " + std::to_string(sx) + "," +
                             std::to_string(sy) + " phase " + std::to_string(fx) + "," + std::to_string(fy);
    for (const MotionKernels &s : simd) {
      ASSERT_EQ(s.sad(pa, sa, pb, sb, w, h), c.sad(pa, sa, pb, sb, w, h)) << what;
      ASSERT_EQ(s.sad_avg(pa, sa, pb, sb, pc, sb, w, h), c.sad_avg(pa, sa, pb, sb, pc, sb, w, h)) << what;
      ASSERT_EQ(s.sad_q(pa, sa, pb, sb, w, h, fx, fy), c.sad_q(pa, sa, pb, sb, w, h, fx, fy)) << what;
      uint32_t want[4], got[4];
      c.sad_q4(pa, sa, pb, sb, w, h, fx, fy, sx, sy, want);
      s.sad_q4(pa, sa, pb, sb, w, h, fx, fy, sx, sy, got);
      ASSERT_EQ(std::memcmp(want, got, sizeof want), 0) << "sad_q4 " << what;
      ASSERT_EQ(want[0] + want[1] + want[2] + want[3], c.sad_q(pa, sa, pb, sb, w, h, fx, fy)) << "parts " << what;
      const size_t n = rng() % 190;
      s.avg_line(pa, pb, o1.data(), n);
      c.avg_line(pa, pb, o2.data(), n);
      ASSERT_EQ(std::memcmp(o1.data(), o2.data(), n), 0) << n;
    }
  }
}

TEST(MotionKernels, ScalarKernelsMeetTheirFormulas) {
  MotionKernels c;
  framedsp::motion_kernels_init(&c, 0);
  const uint8_t a[4] = {10, 200, 0, 255}, b[4] = {20, 100, 255, 0}, q[4] = {21, 101, 0, 0};
  EXPECT_EQ(c.sad(a, 2, b, 2, 2, 2), 10u + 100 + 255 + 255);
  EXPECT_EQ(c.sad_avg(a, 4, b, 4, q, 4, 4, 1), 11u + 99 + 128 + 255);  // (20 + 21 + 1) >> 1 = 21
  // Phase (2, 2): the rounded mean of four samples; (0, 0): the sample; (1, 3): weights 3, 1, 9, 3.
  const uint8_t f[6] = {0, 10, 0, 20, 30, 0}, zero[1] = {0};
  EXPECT_EQ(c.sad_q(zero, 1, f, 3, 1, 1, 2, 2), (0u + 10 + 20 + 30 + 2) / 4);
  EXPECT_EQ(c.sad_q(zero, 1, f + 1, 3, 1, 1, 0, 0), 10u);
  EXPECT_EQ(c.sad_q(zero, 1, f, 3, 1, 1, 1, 3), (0u * 3 + 10 * 1 + 20 * 9 + 30 * 3 + 8) / 16);
}

// ---- the estimator ---------------------------------------------------------------------------

struct Shift {
  int w, h;
  double dx, dy;
};

class KnownTranslation : public ::testing::TestWithParam<Shift> {};

TEST_P(KnownTranslation, BlocksFollowTheTruthBothWays) {
  const Shift s = GetParam();
  const Field r = translate(s.w, s.h, s.dx, s.dy, 8);
  ASSERT_EQ(r.status, DSP_S_OK);
  const int tx = static_cast<int>(std::lround(4 * s.dx)), ty = static_cast<int>(std::lround(4 * s.dy));
  const double need = tx % 4 == 0 && ty % 4 == 0 ? 0.99 : 0.98;
  EXPECT_GE(r.share(0, tx, ty), need) << "forward";
  EXPECT_GE(r.share(1, tx, ty), need) << "backward";
  EXPECT_LE(r.bad_inside(0) + r.bad_inside(1), r.count() / 50);
}

// Whole, half (not pulled to whole pixels) and quarter pixels, odd sizes.
INSTANTIATE_TEST_SUITE_P(MotionVectors, KnownTranslation,
                         ::testing::Values(Shift{320, 192, 2, -3}, Shift{320, 192, -7, 5}, Shift{256, 160, 2.5, -2.5},
                                           Shift{256, 160, -1.5, 1.5}, Shift{320, 192, 3.25, -1.75},
                                           Shift{256, 256, -5.75, 0.5}, Shift{304, 187, 10.5, -2.25}));

TEST(MotionVectors, MotionBeyondTheReachIsBadNotWrong) {
  // Two levels with ranges of 1 reach 1 + 2 = 3 pixels; the picture moves 6.
  const Texture t(11);
  const Pyramid a(t.picture(256, 160), 256, 160, 2), b(t.picture(256, 160, 6, 0), 256, 160, 2);
  const Field r = estimate(a, b, 16, [](DSP_MOTION_VECTORS_PARAMS &p) { p.ulMotionFlags = DSP_MOTION_FORWARD_ONLY; });
  ASSERT_EQ(r.status, DSP_S_OK);
  int bad = 0;
  for (int i = 0; i < r.count(); ++i) {
    EXPECT_LE(std::abs(r.at(0, i).sX), 12) << "no vector beyond the reach";
    bad += (r.at(0, i).usFlags & DSP_MV_BAD) != 0;
  }
  EXPECT_GE(bad, r.count() * 2 / 3);
  EXPECT_EQ(r.h.ulBadForward, static_cast<uint32_t>(bad));
}

TEST(MotionVectors, SceneCutRaisesTheBadCount) {
  const Texture t(3), other(4);
  const Pyramid a(t.picture(320, 192), 320, 192, 4), same(t.picture(320, 192, 1, 1), 320, 192, 4);
  const Field smooth = estimate(a, same, 16), jump = estimate(a, Pyramid(other.picture(320, 192), 320, 192, 4), 16);
  ASSERT_EQ(jump.status, DSP_S_OK);
  EXPECT_LE(smooth.h.ulBadForward, 2u);
  EXPECT_GE(jump.h.ulBadForward, static_cast<uint32_t>(jump.count() * 8 / 10));
  EXPECT_GE(jump.h.ulBadBackward, static_cast<uint32_t>(jump.count() * 8 / 10));
}

TEST(MotionVectors, AnObjectKeepsItsOwnVectorsUpToItsBoundary) {
  // A 64x64 square of another texture moves (+5, +3) over a still background.
  const int w = 256, h = 192, x0 = 104, y0 = 72, side = 64;  // edges inside 16x16 search blocks
  const Texture back(5), obj(6);
  std::vector<uint8_t> pa = back.picture(w, h), pb = pa;
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      pa[static_cast<size_t>(y0 + y) * w + x0 + x] = obj.at(x, y);
      pb[static_cast<size_t>(y0 + 3 + y) * w + x0 + 5 + x] = obj.at(x, y);
    }
  const Pyramid a(pa, w, h, 3), b(pb, w, h, 3);
  auto right = [&](const Field &r) {
    int good = 0;
    for (int i = 0; i < r.count(); ++i) {
      const int bx = (i % static_cast<int>(r.h.ulColumns)) * 8, by = (i / static_cast<int>(r.h.ulColumns)) * 8;
      const bool in = bx >= x0 && by >= y0 && bx + 8 <= x0 + side && by + 8 <= y0 + side;
      const bool out = bx + 8 <= x0 || by + 8 <= y0 || bx >= x0 + side + 5 || by >= y0 + side + 3;
      const DSP_MOTION_VECTOR &v = r.at(0, i);
      if (in) good += std::abs(v.sX - 20) <= 1 && std::abs(v.sY - 12) <= 1;
      if (out) good += std::abs(v.sX) <= 1 && std::abs(v.sY) <= 1;
    }
    return good;
  };
  const Field split = estimate(a, b, 8), plain = estimate(a, b, 8, [](auto &p) { p.ulMotionFlags = DSP_MOTION_NO_SPLIT; });
  EXPECT_GE(right(split), right(plain) + 4) << "the split stage follows the boundary";
  EXPECT_GE(right(split), static_cast<int>(0.95 * (split.count() - 2 * (side / 8) * (side / 8))));
}

TEST(MotionVectors, FlatAreasFollowTheGlobalMotion) {
  // The left 160 columns are textured, the right 96 flat: a pure translation moves both.  Block
  // columns 20 and 21 see the texture's edge; the flat blocks beyond have only the global motion.
  const Field with = translate(256, 160, 3.25, -2.75, 8, nullptr, 160);
  const Field without = translate(256, 160, 3.25, -2.75, 8, [](auto &p) { p.ulMotionFlags = DSP_MOTION_NO_GLOBAL; }, 160);
  for (int dir = 0; dir < 2; ++dir) {
    EXPECT_GE(with.share(dir, 13, -11, DSP_MV_FLAT, 22), 0.98) << "direction " << dir;
    EXPECT_LE(without.share(dir, 13, -11, DSP_MV_FLAT, 22), 0.5) << "direction " << dir;
    EXPECT_GE(with.share(dir, 13, -11), 0.9) << "direction " << dir;
  }
}

TEST(MotionVectors, ExhaustiveWindowsPlaceBlocksAsWell) {
  // Threshold 1 sends most blocks of the texture through the exhaustive window, 255 none.
  auto threshold = [](uint32_t t) { return [t](DSP_MOTION_VECTORS_PARAMS &p) { for (uint32_t &v : p.ulLevelThreshold) v = t; }; };
  const Field wide = translate(256, 160, -4.5, 1.5, 8, threshold(1)), narrow = translate(256, 160, -4.5, 1.5, 8, threshold(255));
  auto refined = [](const Field &f) {
    return std::count_if(f.e.begin(), f.e.end(), [](const DSP_MOTION_VECTOR &v) { return v.usFlags & DSP_MV_REFINED; });
  };
  EXPECT_GE(refined(wide), static_cast<long>(wide.e.size() * 2 / 3));
  EXPECT_EQ(refined(narrow), 0);
  for (int dir = 0; dir < 2; ++dir) EXPECT_GE(wide.share(dir, -18, 6), 0.98) << "direction " << dir;
}

TEST(MotionVectors, OddSizesGivePartialEdgeBlocks) {
  const Texture t(9);
  // The pyramid's scaler needs even widths down to the last level: 200 = 4 x 50.
  const Pyramid a(t.picture(200, 117), 200, 117, 3), b(t.picture(200, 117, -4, 2), 200, 117, 3);
  const Field r = estimate(a, b, 16, nullptr, 8);
  ASSERT_EQ(r.status, DSP_S_OK);
  EXPECT_EQ(r.h.ulColumns, 13u);
  EXPECT_EQ(r.h.ulRows, 15u);
  EXPECT_EQ(r.h.ulFieldBytes, 48u + 16 * 13 * 15);
  EXPECT_EQ(r.h.ulFieldFlags, DSP_VECTOR_FIELD_FORWARD | DSP_VECTOR_FIELD_BACKWARD);
  EXPECT_GE(r.share(0, -16, 8), 0.99);
  // The 8 x 5 corner block matches two lines below the picture: edge lines repeated.
  const DSP_MOTION_VECTOR &corner = r.at(0, r.count() - 1);
  EXPECT_LE(std::abs(corner.sX + 16) + std::abs(corner.sY - 8), 1);
  EXPECT_TRUE(corner.usFlags & DSP_MV_OUTSIDE);
}

TEST(MotionVectors, EveryIsaWritesTheSameField) {
  const Texture t(12), obj(13);
  std::vector<uint8_t> pb = t.picture(216, 133, 2.75, -1.25);
  for (int y = 40; y < 80; ++y)
    for (int x = 60; x < 120; ++x) pb[static_cast<size_t>(y) * 216 + x] = obj.at(x, y);
  const Pyramid a(t.picture(216, 133), 216, 133, 4), b(pb, 216, 133, 4);
  std::vector<Field> fields;
  for (uint32_t mask : {0u, static_cast<uint32_t>(framedsp::kCpuSSE2), ~0u}) {
    framedsp::set_cpu_mask(mask);
    fields.push_back(estimate(a, b, 8));
  }
  framedsp::set_cpu_mask(~0u);
  for (size_t i = 1; i < fields.size(); ++i) EXPECT_EQ(fields[0].bytes, fields[i].bytes) << "mask " << i;
}

TEST(MotionVectors, PriorFieldMayBeTheFieldBeingWritten) {
  // The previous pair's field feeds the temporal candidates; reading it from a copy or from the
  // very buffer being written gives the same field.
  const Texture t(14);
  const Pyramid a(t.picture(160, 96), 160, 96, 3), b(t.picture(160, 96, 2.5, 1), 160, 96, 3);
  const Field prior = estimate(a, b, 8);
  const Field copy = estimate(a, b, 8, [&](DSP_MOTION_VECTORS_PARAMS &p) { p.pPriorField = prior.bytes.data(); });
  const Field in_place = estimate(a, b, 8, [&](DSP_MOTION_VECTORS_PARAMS &p) {
    std::memcpy(p.pVectorField, prior.bytes.data(), prior.bytes.size());
    p.pPriorField = p.pVectorField;
  });
  ASSERT_EQ(copy.status, DSP_S_OK);
  EXPECT_EQ(in_place.bytes, copy.bytes);
}

// ---- refusals, work memory -----------------------------------------------------------------------

TEST(MotionVectors, RefusedRecordsWriteNothing) {
  const Texture t(1);
  const Pyramid a(t.picture(128, 96), 128, 96, 3), b(t.picture(128, 96, 1, 0), 128, 96, 3);
  const size_t need = DSP_VECTOR_FIELD_BYTES(128, 96, 16, 16);
  using Spoil = std::function<void(DSP_MOTION_VECTORS_PARAMS &, DSP_MIPMAP_LEVELS &)>;
  const std::vector<std::pair<const char *, Spoil>> cases = {
      {"null list", [](auto &p, auto &) { p.pLevelsA = nullptr; }},
      {"count 0", [](auto &, auto &l) { l.ulCount = 0; }},
      {"count 6", [](auto &, auto &l) { l.ulCount = 6; }},
      {"counts differ", [](auto &, auto &l) { l.ulCount = 2; }},
      {"null level", [](auto &, auto &l) { l.Levels[2].Buffer.pBuffer = nullptr; }},
      {"format 261", [](auto &, auto &l) { l.Levels[1].ePixelFormat = DSP_PIXEL_FORMAT_KEY8; }},
      {"other geometry", [](auto &, auto &l) { l.Levels[0].Buffer.Region.ulWidth = 126; }},
      {"region outside", [](auto &, auto &l) { l.Levels[0].Buffer.Region.ptOffset.x = 1; }},
      {"not halved", [](auto &, auto &l) { l.Levels[1].Buffer.Region.ulHeight = 47; }},
      {"ulLevels above the count", [](auto &p, auto &) { p.ulLevels = 4; }},
      {"ulLevels 6", [](auto &p, auto &) { p.ulLevels = 6; }},
      {"block 7", [](auto &p, auto &) { p.ulBlockA = 7; }},
      {"level block 33", [](auto &p, auto &) { p.ulLevelBlockB[4] = 33; }},
      {"range above width / 4", [](auto &p, auto &) { p.ulLevelRangeX[3] = 33; }},
      {"threshold 256", [](auto &p, auto &) { p.ulLevelThreshold[0] = 256; }},
      {"field one byte short", [=](auto &p, auto &) { p.ulVectorFieldBytes = static_cast<uint32_t>(need - 1); }},
      {"null field", [](auto &p, auto &) { p.pVectorField = nullptr; }},
      {"reserved word", [](auto &p, auto &) { p.ulReserved[2] = 1; }},
  };
  for (const auto &c : cases) {  // no work memory taken, no byte written
    DSP_MIPMAP_LEVELS spoilt = b.list;
    const uint64_t before = framedsp::work_memory_stats().allocations;
    const Field r = estimate(a, b, 16, [&](DSP_MOTION_VECTORS_PARAMS &p) {
      p.pLevelsB = &spoilt;
      c.second(p, spoilt);
    });
    EXPECT_EQ(r.status, DSP_E_INVALIDARG) << c.first;
    EXPECT_EQ(framedsp::work_memory_stats().allocations, before) << c.first;
    EXPECT_EQ(r.bytes, std::vector<uint8_t>(need, 0x5A)) << c.first;
  }
  // An accepted record releases its work memory; a failed allocation is reported.
  const framedsp::WorkMemoryStats before = framedsp::work_memory_stats();
  EXPECT_EQ(estimate(a, b, 16).status, DSP_S_OK);
  const framedsp::WorkMemoryStats after = framedsp::work_memory_stats();
  EXPECT_EQ(after.allocations - before.allocations, after.releases - before.releases);
  EXPECT_GT(after.allocations, before.allocations);
  framedsp::work_memory_fail_at(1);
  EXPECT_EQ(estimate(a, b, 16).status, DSP_E_OUTOFMEMORY);
  framedsp::work_memory_fail_at(0);
}

// A whole-pixel pan of a texture interpolated between random values 4 pixels apart: every block
// whose match lies inside the picture gets the exact vector, both ways, with the frame-rate
// converter's settings (3 levels, ranges 2) and with the defaults.
TEST(MotionVectors, WholePixelPansAreExact) {
  constexpr int w = 128, h = 64;
  motion_test::Frames f(w, h, 0, 1);
  f.texture(3);
  const Pyramid a(f.a.data(), w, h, 4);
  for (const auto &[dx, dy] : {std::pair{-5, 3}, {3, 5}, {6, -4}, {-7, -6}, {2, 0}, {0, -3}}) {
    f.shifted(dx, dy);
    const Pyramid b(f.b.data(), w, h, 4);
    for (const bool own : {true, false}) {
      const Field e = estimate(a, b, 16, [&](DSP_MOTION_VECTORS_PARAMS &p) {
        if (own) p.ulLevels = 3, std::fill_n(p.ulLevelRangeX, 5, 2u), std::fill_n(p.ulLevelRangeY, 5, 2u);
      });
      ASSERT_EQ(e.status, DSP_S_OK);
      for (int dir = 0; dir < 2; ++dir)
        for (int i = 0; i < e.count(); ++i) {
          const int vx = dir ? -dx : dx, vy = dir ? -dy : dy, x = i % 8 * 16 + vx, y = i / 8 * 16 + vy;
          const DSP_MOTION_VECTOR &v = e.at(dir, i);
          if (x >= 0 && y >= 0 && x + 16 <= w && y + 16 <= h) {
            EXPECT_TRUE(v.sX == 4 * vx && v.sY == 4 * vy) << "pan " << dx << "," << dy << (own ? " converter's" : " default")
                << " settings, direction " << dir << ", block " << i << ": " << v.sX << "," << v.sY;
          }
        }
    }
  }
}

}  // namespace
