// The scaler's fixed-ratio fast paths: eligibility, the status rules of the work, whole images
// through integer_ratio_scale / hd_width_scale against a per-component model written here, and the
// line kernels (SIMD against scalar, scalar against the model) on every length and alignment.
//
// The model splits a line into one sample row per component (luma, U, V of the 4:2:2 formats, the
// bytes of a pixel otherwise), scales each row on its own and puts the rows back:
//   nearest ratios: out[j] = in[floor(j * n_in / n_out)]
//   half linear:    out[j] = (a[2j] + a[2j+1] + b[2j] + b[2j+1] + 2) / 4 over two source lines
//   HD width:       position j * n_in / n_out rounded to the nearest quarter q; a = in[q / 4],
//                   b = in[q / 4 + 1]; a, (3a + b) / 4, (a + b) / 2 or (a + 3b) / 4 truncated for
//                   q % 4 = 0..3; for the two up-scales the last pixel (4-byte word for 21 / 25)
//                   of the line repeats the one before it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "frame/cpu.h"
#include "frame/pixel_format.h"
#include "scale/fast_paths.h"
#include "scale/fixed_ratio_kernels.h"
#include "test_util.h"

using namespace framedsp;
using framedsp_test::GuardedBuffer;

namespace {

// ----- the model -------------------------------------------------------------------------------

struct Comp {
  size_t first;    // byte of sample 0
  size_t spacing;  // bytes between samples
  size_t pixels;   // pixels per sample
};

std::vector<Comp> comps_of(uint32_t f) {
  switch (f) {
    case 0: return {{0, 4, 1}, {1, 4, 1}, {2, 4, 1}, {3, 4, 1}};
    case 1: return {{0, 3, 1}, {1, 3, 1}, {2, 3, 1}};
    case 21: return {{1, 2, 1}, {0, 4, 2}, {2, 4, 2}};
    case 25: return {{0, 2, 1}, {1, 4, 2}, {3, 4, 2}};
    default: return {{0, 1, 1}};  // 261, 263
  }
}

size_t bpp_of(uint32_t f) {
  switch (f) {
    case 0: return 4;
    case 1: return 3;
    case 21: case 25: return 2;
    default: return 1;
  }
}

enum class Op { kNearest, kHalfLinear, kHd };

// One output line of out_px pixels from lines a (and b) of in_px pixels.
void model_line(uint32_t f, Op op, const uint8_t *a, const uint8_t *b, size_t in_px, size_t out_px,
                uint8_t *out) {
  for (const Comp &c : comps_of(f)) {
    const size_t n_in = in_px / c.pixels, n_out = out_px / c.pixels;
    auto sa = [&](size_t i) { return int{a[c.first + std::min(i, n_in - 1) * c.spacing]}; };
    auto sb = [&](size_t i) { return int{b[c.first + std::min(i, n_in - 1) * c.spacing]}; };
    for (size_t j = 0; j < n_out; ++j) {
      int v = 0;
      if (op == Op::kNearest) {
        v = sa(j * n_in / n_out);
      } else if (op == Op::kHalfLinear) {
        v = (sa(2 * j) + sa(2 * j + 1) + sb(2 * j) + sb(2 * j + 1) + 2) / 4;
      } else {
        const size_t q = (8 * j * n_in + n_out) / (2 * n_out);
        const int x = sa(q / 4), y = sa(q / 4 + 1);
        const int w = static_cast<int>(q % 4);
        v = w == 0 ? x : w == 1 ? (3 * x + y) / 4 : w == 2 ? (x + y) / 2 : (x + 3 * y) / 4;
      }
      out[c.first + j * c.spacing] = static_cast<uint8_t>(v);
    }
  }
  if (op == Op::kHd && out_px > in_px && out_px > 0) {
    const size_t unit = (f == 21 || f == 25) ? 4 : bpp_of(f);
    const size_t n = out_px * bpp_of(f);
    std::memcpy(out + n - unit, out + n - 2 * unit, unit);
  }
}

using framedsp_test::Pic;

Pic make_image(uint32_t format, uint32_t w, uint32_t h, uint32_t orientation, std::mt19937 &rng) {
  Pic p(format, w, h, orientation == 1, 12);
  p.randomise(rng);
  return p;
}

DSP_IMAGE describe(const Pic &im, uint32_t x, uint32_t y, uint32_t rw, uint32_t rh, uint32_t interlace) {
  return im.image(static_cast<int>(x), static_cast<int>(y), rw, rh, DSP_BUFFER_TYPE_FRAME, interlace);
}

struct Geometry {
  uint32_t format;
  uint32_t in_w, in_h, in_x, in_y, rw_in, rh_in;
  uint32_t out_w, out_h, out_x, out_y, rw_out, rh_out;
  uint32_t interlace = 2;
  uint32_t flags = 0;  // DSP_BUFFER ulFlags
  uint32_t in_orient = 0, out_orient = 0;
};

// Source region line (picture order, relative to the region top) of output region line y.
// `rule`: source sample of output sample j in a row (the horizontal nearest rule of the op).
struct VerticalPick {
  int64_t line;   // -1: output line not produced
  int64_t second;
};

enum class Vertical { kHalf, kQuarter, kDouble, kQuadruple, kNearestLines };

VerticalPick pick_line(const Geometry &g, Vertical v, uint32_t y) {
  const bool fields = g.interlace == 0;
  const uint32_t sel = g.flags & (DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB);
  int64_t parity = 0, step = 1, k = y, n_src = g.rh_in, n_dst = g.rh_out;
  if (fields) {
    parity = y & 1;
    if (sel == DSP_BUFFER_PROCESS_FIELDA && parity == 1) return {-1, -1};
    if (sel == DSP_BUFFER_PROCESS_FIELDB && parity == 0) return {-1, -1};
    step = 2;
    k = y / 2;
    n_src = (g.rh_in - parity + 1) / 2;
    n_dst = (g.rh_out + 1) / 2;
  }
  int64_t m = 0;
  switch (v) {
    case Vertical::kHalf: m = 2 * k; break;
    case Vertical::kQuarter: m = 4 * k; break;
    case Vertical::kDouble: m = k / 2; break;
    case Vertical::kQuadruple: m = k / 4; break;
    default: m = (k * ((n_src << 14) / n_dst)) >> 14; break;
  }
  const int64_t a = std::min(m, n_src - 1), b = std::min(m + 1, n_src - 1);
  return {parity + step * a, parity + step * b};
}

// Runs `call` and checks every byte of the output image (outside the region: unchanged).
void check_image(const Geometry &g, Op op, Vertical v, uint32_t filter,
                 HRESULT (*run)(const FastPathCall &), const char *what) {
  std::mt19937 rng(framedsp_test::test_seed() ^ g.format ^ (g.rw_in << 8) ^ (g.rw_out << 20));
  Pic in = make_image(g.format, g.in_w, g.in_h, g.in_orient, rng);
  Pic out = make_image(g.format, g.out_w, g.out_h, g.out_orient, rng);
  std::vector<uint8_t> expected = out.bytes();
  const std::vector<uint8_t> in_copy = in.bytes();

  // Expected bytes: each plane, each produced line.
  uint32_t main_f = g.format, plane_f = g.format;
  split_format(g.format, &main_f, &plane_f);
  const int planes = is_two_plane(g.format) ? 2 : 1;
  for (int p = 0; p < planes; ++p) {
    const uint32_t f = p ? plane_f : main_f;
    const size_t b = bpp_of(f);
    for (uint32_t y = 0; y < g.rh_out; ++y) {
      const VerticalPick pk = pick_line(g, v, y);
      if (pk.line < 0) continue;
      const uint8_t *sa = in.row(g.in_y + static_cast<uint32_t>(pk.line), p == 1) + g.in_x * b;
      const uint8_t *sb = in.row(g.in_y + static_cast<uint32_t>(pk.second), p == 1) + g.in_x * b;
      uint8_t *dst_row = out.row(g.out_y + y, p == 1);
      const size_t off = static_cast<size_t>(dst_row - out.mem->data()) + g.out_x * b;
      model_line(f, op, sa, sb, g.rw_in, g.rw_out, expected.data() + off);
    }
  }

  DSP_SCALER_PARAMS params{};
  params.eFilter = filter;
  FastPathCall call{};
  call.params = &params;
  call.buffer.In = describe(in, g.in_x, g.in_y, g.rw_in, g.rh_in, g.interlace);
  call.buffer.Out = describe(out, g.out_x, g.out_y, g.rw_out, g.rh_out, g.interlace);
  call.buffer.ulFlags = g.flags;
  normalise_orientation(&call.buffer);  // what the driver hands over
  call.field_factor = 1.0f;
  ASSERT_EQ(run(call), kOk) << what;
  ASSERT_TRUE(out.mem->intact()) << what << " " << out.mem->damage();
  ASSERT_EQ(0, std::memcmp(in.mem->data(), in_copy.data(), in_copy.size())) << what << ": input changed";
  ASSERT_EQ(0, std::memcmp(out.mem->data(), expected.data(), expected.size()))
      << what << "\n" << framedsp_test::hex_diff(expected.data(), out.mem->data(), expected.size());
}

std::string name_of(const Geometry &g) {
  char t[160];
  std::snprintf(t, sizeof t, "fmt %u %ux%u->%ux%u at (%u,%u)->(%u,%u) il %u flags 0x%x orient %u/%u",
                g.format, g.rw_in, g.rh_in, g.rw_out, g.rh_out, g.in_x, g.in_y, g.out_x, g.out_y,
                g.interlace, g.flags, g.in_orient, g.out_orient);
  return t;
}

// ----- integer ratios on whole images ----------------------------------------------------------

struct RatioCase {
  int in_units, out_units;  // region widths in units of 4 pixels
  Vertical v;
};

const RatioCase kRatios[] = {{4, 1, Vertical::kQuarter}, {2, 1, Vertical::kHalf},
                             {1, 2, Vertical::kDouble}, {1, 4, Vertical::kQuadruple}};

class IntegerRatioImage : public ::testing::TestWithParam<uint32_t> {};

TEST_P(IntegerRatioImage, EveryRatioAgainstModel) {
  const uint32_t f = GetParam();
  for (const RatioCase &rc : kRatios) {
    for (uint32_t base : {4u, 10u, 26u}) {
      if (f == 263 && (rc.v == Vertical::kQuarter || rc.v == Vertical::kQuadruple)) continue;
      Geometry g{};
      g.format = f;
      g.rw_in = 4 * base * rc.in_units / 4;
      g.rw_out = 4 * base * rc.out_units / 4;
      // Down-scales also get one line more: the last output line's pair is clamped.
      g.rh_in = 3 * rc.in_units + (base == 10 && rc.in_units > rc.out_units ? 1 : 0);
      g.rh_out = 3 * rc.out_units;
      g.in_x = 2; g.in_y = 1; g.out_x = 4; g.out_y = 3;
      g.in_w = g.rw_in + 6; g.in_h = g.rh_in + 2; g.out_w = g.rw_out + 8; g.out_h = g.rh_out + 5;
      for (uint32_t orient : {0u, 1u}) {
        g.in_orient = orient;
        g.out_orient = orient ^ (base == 26 ? 1u : 0u);
        check_image(g, Op::kNearest, rc.v, DSP_SCALER_FILTER_NEAREST, integer_ratio_scale,
                    name_of(g).c_str());
        if (rc.v == Vertical::kHalf) {
          check_image(g, Op::kHalfLinear, rc.v, DSP_SCALER_FILTER_LINEAR, integer_ratio_scale,
                      ("linear " + name_of(g)).c_str());
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, IntegerRatioImage,
                         ::testing::Values(0u, 1u, 5u, 21u, 25u, 28u, 30u, 261u, 263u),
                         [](const auto &info) { return "fmt" + std::to_string(info.param); });

// Fields: one field of an interleaved frame is scaled into the same field of the output, the other
// field's lines are left alone; both selected: each field from its own lines.
TEST(FastPathFields, IntegerRatioScalesFieldIntoField) {
  for (uint32_t sel : {DSP_BUFFER_PROCESS_FIELDA, DSP_BUFFER_PROCESS_FIELDB,
                       DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB}) {
    for (const RatioCase &rc : kRatios) {
      for (uint32_t f : {21u, 261u}) {
        Geometry g{};
        g.format = f;
        g.interlace = 0;
        g.flags = sel;
        g.rw_in = 8 * rc.in_units; g.rw_out = 8 * rc.out_units;
        g.rh_in = 9 * rc.in_units; g.rh_out = 9 * rc.out_units;
        g.in_w = g.rw_in; g.in_h = g.rh_in; g.out_w = g.rw_out + 2; g.out_h = g.rh_out + 2;
        g.out_x = 2; g.out_y = 2;
        check_image(g, Op::kNearest, rc.v, DSP_SCALER_FILTER_NEAREST, integer_ratio_scale,
                    name_of(g).c_str());
        if (rc.v == Vertical::kHalf) {
          check_image(g, Op::kHalfLinear, rc.v, DSP_SCALER_FILTER_LINEAR, integer_ratio_scale,
                      ("linear " + name_of(g)).c_str());
        }
      }
    }
  }
}

// ----- HD widths on whole images ---------------------------------------------------------------

struct HdCase {
  uint32_t in_w, out_w;
};
const HdCase kHd[] = {{1440, 1920}, {960, 1280}, {1280, 1920}, {1280, 960}, {1920, 1440}, {1920, 1280}};

class HdWidthImage : public ::testing::TestWithParam<uint32_t> {};

TEST_P(HdWidthImage, EveryRatioAgainstModel) {
  const uint32_t f = GetParam();
  for (const HdCase &hc : kHd) {
    Geometry g{};
    g.format = f;
    g.rw_in = hc.in_w; g.rw_out = hc.out_w;
    g.rh_in = 3; g.rh_out = 3;
    g.in_x = 2; g.in_y = 1; g.out_x = 0; g.out_y = 1;
    g.in_w = g.rw_in + 4; g.in_h = g.rh_in + 1; g.out_w = g.rw_out + 2; g.out_h = g.rh_out + 2;
    check_image(g, Op::kHd, Vertical::kNearestLines, DSP_SCALER_FILTER_LINEAR, hd_width_scale,
                name_of(g).c_str());
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, HdWidthImage, ::testing::Values(0u, 1u, 5u, 21u, 25u, 28u, 30u, 261u),
                         [](const auto &info) { return "fmt" + std::to_string(info.param); });

// Heights differ: lines are picked by the nearest rule (truncated positions), per field too.
TEST(HdWidthLines, NearestLinesWhenHeightsDiffer) {
  for (uint32_t il : {2u, 0u}) {
    for (auto hh : {std::pair<uint32_t, uint32_t>{7, 5}, {4, 9}, {6, 6}}) {
      Geometry g{};
      g.format = 21;
      g.interlace = il;
      g.flags = il == 0 ? DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB : 0;
      g.rw_in = 960; g.rw_out = 1280;
      g.rh_in = hh.first; g.rh_out = hh.second;
      g.in_w = 960; g.in_h = hh.first; g.out_w = 1280; g.out_h = hh.second;
      check_image(g, Op::kHd, Vertical::kNearestLines, DSP_SCALER_FILTER_NEAREST, hd_width_scale,
                  name_of(g).c_str());
    }
  }
}

// ----- eligibility and status rules ------------------------------------------------------------

struct Record {
  DSP_SCALER_PARAMS params{};
  FastPathCall call{};
  alignas(16) uint8_t pixels[64];
  Record(uint32_t f, uint32_t wi, uint32_t wo, uint32_t hi, uint32_t ho) {
    params.eFilter = 0;
    call.params = &params;
    DSP_BUFFER &b = call.buffer;
    for (DSP_IMAGE *d : {&b.In, &b.Out}) {
      d->Buffer.pBuffer = pixels;
      d->Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
      d->ePixelFormat = f;
      d->eInterlace = DSP_INTERLACE_PROGRESSIVE;
    }
    b.In.Buffer.Region.ulWidth = wi;
    b.Out.Buffer.Region.ulWidth = wo;
    b.In.Buffer.Region.ulHeight = hi;
    b.Out.Buffer.Region.ulHeight = ho;
    call.field_factor = 1.0f;
  }
};

struct Flip {
  const char *name;
  void (*apply)(FastPathCall &);
};

// Each flip breaks exactly one condition of the integer-ratio rule on an eligible record.
const Flip kRatioFlips[] = {
    {"format 22", [](FastPathCall &c) { c.buffer.In.ePixelFormat = c.buffer.Out.ePixelFormat = 22; }},
    {"format 24", [](FastPathCall &c) { c.buffer.In.ePixelFormat = c.buffer.Out.ePixelFormat = 24; }},
    {"out format differs", [](FastPathCall &c) { c.buffer.Out.ePixelFormat = 25; }},
    {"in field buffer", [](FastPathCall &c) { c.buffer.In.Buffer.eBufferType = 0; }},
    {"out field buffer", [](FastPathCall &c) { c.buffer.Out.Buffer.eBufferType = 1; }},
    {"interlace 3", [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 3; }},
    {"interlace 1", [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 1; }},
    {"interlace differs", [](FastPathCall &c) { c.buffer.Out.eInterlace = 0; }},
    {"ratio 3", [](FastPathCall &c) { c.buffer.In.Buffer.Region.ulWidth = 3 * 8; }},
    {"ratio 8", [](FastPathCall &c) { c.buffer.Out.Buffer.Region.ulWidth = 2; }},
    {"width 1:1", [](FastPathCall &c) { c.buffer.Out.Buffer.Region.ulWidth = 16; }},
    {"field selection, progressive", [](FastPathCall &c) { c.buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDA; }},
    {"interlace 0 without selection",
     [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 0; }},
};

TEST(FastPathEligibility, IntegerRatioEachConditionFlipped) {
  Record base(21, 16, 8, 4, 2);
  EXPECT_TRUE(integer_ratio_eligible(base.call));
  for (const Flip &flip : kRatioFlips) {
    Record r(21, 16, 8, 4, 2);
    flip.apply(r.call);
    EXPECT_FALSE(integer_ratio_eligible(r.call)) << flip.name;
  }
  // Odd pixel groups: 21 needs even region widths on both sides, 1 does not.
  EXPECT_FALSE(integer_ratio_eligible(Record(21, 6, 3, 4, 2).call));
  EXPECT_FALSE(integer_ratio_eligible(Record(21, 3, 6, 4, 2).call));
  EXPECT_TRUE(integer_ratio_eligible(Record(1, 6, 3, 4, 2).call));
  EXPECT_TRUE(integer_ratio_eligible(Record(263, 5, 20, 4, 2).call));
  // Field selection with interleaved fields is eligible.
  Record sel(21, 16, 8, 4, 2);
  sel.call.buffer.In.eInterlace = sel.call.buffer.Out.eInterlace = 0;
  sel.call.buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDB;
  EXPECT_TRUE(integer_ratio_eligible(sel.call));
  for (uint32_t f : {0u, 1u, 5u, 21u, 25u, 28u, 30u, 261u, 263u}) {
    EXPECT_TRUE(integer_ratio_eligible(Record(f, 16, 64, 4, 16).call)) << f;
  }
}

TEST(FastPathEligibility, HdWidthEachConditionFlipped) {
  Record base(21, 1440, 1920, 4, 4);
  EXPECT_TRUE(hd_width_eligible(base.call));
  const Flip flips[] = {
      {"format 22", [](FastPathCall &c) { c.buffer.In.ePixelFormat = c.buffer.Out.ePixelFormat = 22; }},
      {"out format differs", [](FastPathCall &c) { c.buffer.Out.ePixelFormat = 0; }},
      {"in field buffer", [](FastPathCall &c) { c.buffer.In.Buffer.eBufferType = 1; }},
      {"out field buffer", [](FastPathCall &c) { c.buffer.Out.Buffer.eBufferType = 0; }},
      {"interlace 3", [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 3; }},
      {"interlace differs", [](FastPathCall &c) { c.buffer.In.eInterlace = 0; }},
      {"width pair 1440->1080", [](FastPathCall &c) { c.buffer.Out.Buffer.Region.ulWidth = 1080; }},
      {"output not 16-byte aligned",
       [](FastPathCall &c) { c.buffer.Out.Buffer.pBuffer = static_cast<uint8_t *>(c.buffer.Out.Buffer.pBuffer) + 4; }},
      {"field selection, progressive", [](FastPathCall &c) { c.buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDA; }},
      {"interlace 0 without selection",
       [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 0; }},
  };
  for (const Flip &flip : flips) {
    Record r(21, 1440, 1920, 4, 4);
    flip.apply(r.call);
    EXPECT_FALSE(hd_width_eligible(r.call)) << flip.name;
  }
  for (const HdCase &hc : kHd) EXPECT_TRUE(hd_width_eligible(Record(0, hc.in_w, hc.out_w, 2, 2).call));
  EXPECT_FALSE(hd_width_eligible(Record(0, 1920, 960, 2, 2).call));
  EXPECT_FALSE(hd_width_eligible(Record(0, 1280, 1440, 2, 2).call));
  // Other input widths pass the rule (and the work refuses them); 263 passes too.
  EXPECT_TRUE(hd_width_eligible(Record(0, 720, 1920, 2, 2).call));
  EXPECT_TRUE(hd_width_eligible(Record(263, 1440, 1920, 2, 2).call));
}

struct StatusCase {
  const char *name;
  uint32_t format, wi, wo, hi, ho, filter;
  HRESULT expected;
};

class IntegerRatioStatus : public ::testing::TestWithParam<StatusCase> {};

TEST_P(IntegerRatioStatus, Returns) {
  const StatusCase &s = GetParam();
  alignas(16) static uint8_t in_pixels[4096], out_pixels[4096];
  std::memset(out_pixels, 0x77, sizeof out_pixels);
  Record r(s.format, s.wi, s.wo, s.hi, s.ho);
  r.params.eFilter = s.filter;
  for (DSP_IMAGE *d : {&r.call.buffer.In, &r.call.buffer.Out}) {
    d->ulWidth = 64;
    d->ulHeight = 16;
    d->ulPrimaryStrideBytes = 256;
    d->ulSecondaryStrideBytes = 64;
    d->Buffer.ulBytes = 4096;
  }
  r.call.buffer.In.Buffer.pBuffer = in_pixels;
  r.call.buffer.Out.Buffer.pBuffer = out_pixels;
  EXPECT_EQ(integer_ratio_scale(r.call), s.expected) << s.name;
  if (s.expected != kOk) {
    // A refused call writes nothing.
    EXPECT_TRUE(std::all_of(out_pixels, out_pixels + sizeof out_pixels, [](uint8_t v) { return v == 0x77; }))
        << s.name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IntegerRatioStatus,
    ::testing::Values(StatusCase{"half nearest", 21, 16, 8, 4, 2, 0, kOk},
                      StatusCase{"half linear", 21, 16, 8, 4, 2, 1, kOk},
                      StatusCase{"height ratio off by more than 0.1", 21, 16, 8, 4, 3, 0, kInvalidArg},
                      StatusCase{"height ratio within 0.1", 21, 16, 8, 10, 6, 0, kOk},
                      StatusCase{"ratio 3 (code 5)", 21, 24, 8, 6, 2, 0, kInvalidArg},
                      StatusCase{"ratio 1/8 (code 2)", 0, 32, 4, 16, 2, 0, kInvalidArg},
                      StatusCase{"ratio 8 (code 128)", 0, 4, 32, 2, 16, 0, kInvalidArg},
                      StatusCase{"ratio 1 (code 16)", 0, 8, 8, 2, 2, 0, kInvalidArg},
                      StatusCase{"zero width", 0, 0, 0, 2, 2, 0, kInvalidArg},
                      StatusCase{"quarter linear", 21, 16, 4, 8, 2, 1, kNotImpl},
                      StatusCase{"double linear", 21, 8, 16, 2, 4, 1, kNotImpl},
                      StatusCase{"quadruple linear", 0, 8, 32, 2, 8, 1, kNotImpl},
                      StatusCase{"filter 2", 21, 16, 8, 4, 2, 2, kFail},
                      StatusCase{"filter 7", 21, 16, 8, 4, 2, 7, kFail},
                      StatusCase{"quarter 263", 263, 16, 4, 8, 2, 0, kInvalidArg},
                      StatusCase{"quadruple 263", 263, 4, 16, 2, 8, 0, kInvalidArg},
                      StatusCase{"half 263", 263, 16, 8, 4, 2, 0, kOk},
                      StatusCase{"format 22", 22, 16, 8, 4, 2, 0, kInvalidArg},
                      StatusCase{"format 24", 24, 16, 8, 4, 2, 0, kInvalidArg}),
    [](const auto &info) {
      std::string n = info.param.name;
      for (char &ch : n) if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
      return n;
    });

TEST(HdWidthStatus, RefusedWidthsAndFormats) {
  alignas(16) static uint8_t pixels[8192];
  std::memset(pixels, 0x77, sizeof pixels);
  auto run = [&](uint32_t f, uint32_t wi, uint32_t wo) {
    Record r(f, wi, wo, 1, 1);
    for (DSP_IMAGE *d : {&r.call.buffer.In, &r.call.buffer.Out}) {
      d->Buffer.pBuffer = pixels;
      d->ulWidth = 1920;
      d->ulHeight = 1;
      d->ulPrimaryStrideBytes = 8192;
    }
    return hd_width_scale(r.call);
  };
  EXPECT_EQ(run(263, 1440, 1920), kInvalidArg);
  EXPECT_EQ(run(22, 1440, 1920), kInvalidArg);
  EXPECT_EQ(run(21, 720, 960), kInvalidArg);
  EXPECT_EQ(run(21, 1442, 1920), kInvalidArg);
  EXPECT_EQ(run(21, 1440, 1904), kInvalidArg);  // the kernel makes 1920, nothing else
  EXPECT_EQ(run(21, 1920, 960), kInvalidArg);
  EXPECT_TRUE(std::all_of(pixels, pixels + sizeof pixels, [](uint8_t v) { return v == 0x77; }));
}

// ----- line kernels: scalar against the model, SIMD against scalar -----------------------------

struct KernelEntry {
  bool hd;
  int ratio;
  int slot;
};

uint32_t format_of_slot(int slot) {
  static const uint32_t kFormats[kFixedFormatCount] = {0, 1, 21, 25, 261};
  return kFormats[slot];
}

// Output and input bytes of a line of `units` units.
void line_sizes(const KernelEntry &e, size_t units, size_t *out_bytes, size_t *in_bytes) {
  if (e.hd) {
    *out_bytes = units * hd_group_out_bytes(e.ratio, e.slot);
    *in_bytes = units * hd_group_in_bytes(e.ratio, e.slot);
    return;
  }
  const size_t g = fixed_group_bytes(e.slot);
  switch (e.ratio) {
    case kRatioQuarter: *out_bytes = units * g; *in_bytes = 4 * units * g; break;
    case kRatioDouble: *out_bytes = 2 * units * g; *in_bytes = units * g; break;
    case kRatioQuadruple: *out_bytes = 4 * units * g; *in_bytes = units * g; break;
    default: *out_bytes = units * g; *in_bytes = 2 * units * g; break;
  }
}

std::vector<KernelEntry> all_entries() {
  std::vector<KernelEntry> v;
  for (int s = 0; s < kFixedFormatCount; ++s) {
    for (int r = 0; r < kFixedRatioCount; ++r) v.push_back({false, r, s});
    for (int r = 0; r < kHdRatioCount; ++r) v.push_back({true, r, s});
  }
  return v;
}

std::string entry_name(const KernelEntry &e) {
  static const char *kR[] = {"quarter", "half", "double", "quadruple", "half_linear"};
  static const char *kH[] = {"x4_3", "x3_2", "x3_4", "x2_3"};
  return std::string(e.hd ? kH[e.ratio] : kR[e.ratio]) + "_fmt" + std::to_string(format_of_slot(e.slot));
}

class LineKernel : public ::testing::TestWithParam<KernelEntry> {
 protected:
  void SetUp() override {
    set_cpu_mask(0);
    fixed_ratio_table_init(&scalar_, cpu_flags());
    set_cpu_mask(kCpuSSE2 | kCpuSSSE3);  // the 16-byte steps even where AVX2 replaces some
    fixed_ratio_table_init(&sse_, cpu_flags());
    set_cpu_mask(~0u);
    fixed_ratio_table_init(&simd_, cpu_flags());
  }
  void TearDown() override { set_cpu_mask(~0u); }
  FixedLineKernel pick(const FixedRatioTable &t) const {
    const KernelEntry &e = GetParam();
    return e.hd ? t.hd[e.ratio][e.slot] : t.ratio[e.ratio][e.slot];
  }
  FixedRatioTable scalar_{}, sse_{}, simd_{};
};

TEST_P(LineKernel, ScalarMatchesModelAndSimdMatchesScalar) {
  const KernelEntry e = GetParam();
  std::mt19937 rng(framedsp_test::test_seed() + 7);
  const FixedLineKernel sc = pick(scalar_), sv = pick(simd_), ss = pick(sse_);
  if ((e.slot != kFixedRgb || e.hd) && (cpu_flags() & (e.hd ? kCpuSSSE3 : kCpuSSE2))) { EXPECT_NE(sc, sv) << "no SIMD entry"; }
  constexpr size_t kGuard = 32;
  const uint32_t f = format_of_slot(e.slot);
  const Op op = e.hd ? Op::kHd : (e.ratio == kRatioHalfLinear ? Op::kHalfLinear : Op::kNearest);
  for (size_t units = 0; units <= 300; ++units) {
    size_t nout, nin;
    line_sizes(e, units, &nout, &nin);
    if (nout > 6000) break;
    GuardedBuffer ga(nin + 1, 0), gb(nin + 1, 0);  // both lines end against a protected page
    uint8_t *a = ga.data() + 1, *b = gb.data() + 1;
    framedsp_test::fill_random(a, nin, rng);
    framedsp_test::fill_random(b, nin, rng);
    if (units == 1) std::fill(a, a + nin, 255);  // all-255: no overflow in the box
    if (units <= 40) {  // the scalar kernel against the model
      std::vector<uint8_t> want(nout + 32, 0x3C), got(nout + 32, 0x3C);
      model_line(f, op, a, b, nin / bpp_of(f), nout / bpp_of(f), want.data() + 16);
      sc(a, b, got.data() + 16, nout);
      ASSERT_EQ(want, got) << entry_name(e) << " units " << units << "\n"
                           << framedsp_test::hex_diff(want.data(), got.data(), got.size());
    }
    const size_t leads = units <= 48 ? 16 : 1;
    for (size_t l = 0; l < leads; ++l) {
      const size_t lead = leads == 1 ? units % 16 : l;
      std::vector<uint8_t> want(nout + 2 * kGuard + 16, 0xA5), got(want);
      uint8_t *base_w = want.data() + kGuard, *base_g = got.data() + kGuard;
      // The same lead against a 16-byte boundary for both.
      uint8_t *dw = base_w + ((16 - (reinterpret_cast<uintptr_t>(base_w) & 15)) & 15) + lead;
      uint8_t *dg = base_g + ((16 - (reinterpret_cast<uintptr_t>(base_g) & 15)) & 15) + lead;
      sc(a, b, dw, nout);
      if (ss != sv) {  // the 16-byte steps first, then the widest
        ss(a, b, dg, nout);
        ASSERT_EQ(0, std::memcmp(dw, dg, nout)) << entry_name(e) << " (SSE) units " << units
                                                << " lead " << lead << "\n"
                                                << framedsp_test::hex_diff(dw, dg, nout);
        std::memset(dg, 0xA5, nout);
      }
      sv(a, b, dg, nout);
      const size_t off_w = static_cast<size_t>(dw - want.data());
      const size_t off_g = static_cast<size_t>(dg - got.data());
      ASSERT_EQ(0, std::memcmp(dw, dg, nout)) << entry_name(e) << " units " << units << " lead " << lead
                                              << "\n" << framedsp_test::hex_diff(dw, dg, nout);
      for (size_t i = 0; i < got.size(); ++i) {
        if (i >= off_g && i < off_g + nout) continue;
        ASSERT_EQ(got[i], 0xA5) << entry_name(e) << " SIMD wrote byte " << i << " outside the line";
      }
      for (size_t i = 0; i < want.size(); ++i) {
        if (i >= off_w && i < off_w + nout) continue;
        ASSERT_EQ(want[i], 0xA5) << entry_name(e) << " scalar wrote byte " << i << " outside the line";
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Entries, LineKernel, ::testing::ValuesIn(all_entries()),
                         [](const auto &info) { return entry_name(info.param); });

// Two slices of one call produce the same image as one call.
TEST(FastPathBands, TwoBandsEqualOneCall) {
  std::mt19937 rng(framedsp_test::test_seed());
  Pic in = make_image(21, 32, 20, 0, rng), one = make_image(21, 16, 10, 0, rng), two(one);
  DSP_SCALER_PARAMS params{};
  FastPathCall call{};
  call.params = &params;
  call.field_factor = 1.0f;
  call.buffer.In = describe(in, 0, 0, 32, 20, 2);
  call.buffer.Out = describe(one, 0, 0, 16, 10, 2);
  ASSERT_EQ(integer_ratio_scale(call), kOk);
  call.buffer.Out = describe(two, 0, 0, 16, 10, 2);
  call.buffer.ulSliceCount = 2;
  for (call.buffer.ulSliceNumber = 1; call.buffer.ulSliceNumber <= 2; ++call.buffer.ulSliceNumber) {
    ASSERT_EQ(integer_ratio_scale(call), kOk);
  }
  EXPECT_TRUE(framedsp_test::same_bytes(one, two));
}

}  // namespace
