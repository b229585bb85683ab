// The scaler's fixed-ratio fast paths: whole images through integer_ratio_scale / hd_width_scale
// against a per-component model written here, eligibility and status rules, and the line kernels
// (scalar against the model, SIMD against scalar) on the kernel-check lines.
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

#include "platform/cpu.h"
#include "lines/buffer_record.h"
#include "lines/pixel_format.h"
#include "scale/fast_paths.h"
#include "scale/fixed_ratio_kernels.h"
#include "test_util.h"

using namespace framedsp;
using framedsp_test::Pic;

namespace {

struct Comp {
  size_t first, spacing, pixels;  // byte of sample 0, bytes between samples, pixels a sample
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
size_t bpp_of(uint32_t f) { return f == 0 ? 4 : f == 1 ? 3 : f == 21 || f == 25 ? 2 : 1; }

enum class Op { kNearest, kHalfLinear, kHd };

// One output line of out_px pixels from lines a (and b) of in_px pixels.
void model_line(uint32_t f, Op op, const uint8_t *a, const uint8_t *b, size_t in_px, size_t out_px, uint8_t *out) {
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
        const int x = sa(q / 4), y = sa(q / 4 + 1), w = int(q % 4);
        v = w == 0 ? x : w == 1 ? (3 * x + y) / 4 : w == 2 ? (x + y) / 2 : (x + 3 * y) / 4;
      }
      out[c.first + j * c.spacing] = uint8_t(v);
    }
  }
  if (op == Op::kHd && out_px > in_px && out_px > 0) {
    const size_t unit = (f == 21 || f == 25) ? 4 : bpp_of(f), n = out_px * bpp_of(f);
    std::memcpy(out + n - unit, out + n - 2 * unit, unit);
  }
}

enum class Vertical { kHalf, kQuarter, kDouble, kQuadruple, kNearestLines };

struct Geometry {
  uint32_t format, rw_in, rh_in, rw_out, rh_out;
  uint32_t in_x = 0, in_y = 0, out_x = 0, out_y = 0, margin_w = 0, margin_h = 0;
  uint32_t interlace = 2, flags = 0;
  bool in_up = false, out_up = false;
};

// Source region lines (picture order) of output region line y, or -1 when it is not produced.
std::pair<int64_t, int64_t> pick_line(const Geometry &g, Vertical v, uint32_t y) {
  const uint32_t sel = g.flags & (DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB);
  int64_t parity = 0, step = 1, k = y, n_src = g.rh_in, n_dst = g.rh_out;
  if (g.interlace == 0) {
    parity = y & 1;
    if ((sel == DSP_BUFFER_PROCESS_FIELDA && parity == 1) || (sel == DSP_BUFFER_PROCESS_FIELDB && parity == 0)) return {-1, -1};
    step = 2, k = y / 2, n_src = (g.rh_in - parity + 1) / 2, n_dst = (g.rh_out + 1) / 2;
  }
  const int64_t m = v == Vertical::kHalf ? 2 * k : v == Vertical::kQuarter ? 4 * k : v == Vertical::kDouble ? k / 2
                    : v == Vertical::kQuadruple ? k / 4 : (k * ((n_src << 14) / n_dst)) >> 14;
  return {parity + step * std::min(m, n_src - 1), parity + step * std::min(m + 1, n_src - 1)};
}

// Runs the path and checks every byte of the output image (outside the region: unchanged).
void check_image(const Geometry &g, Op op, Vertical v, HRESULT (*run)(const FastPathCall &)) {
  const std::string what = "format " + std::to_string(g.format) + " " + std::to_string(g.rw_in) + "x" +
                           std::to_string(g.rh_in) + " -> " + std::to_string(g.rw_out) + "x" + std::to_string(g.rh_out) +
                           " interlace " + std::to_string(g.interlace) + " flags " + std::to_string(g.flags) + " op " +
                           std::to_string(int(op)) + " up " + std::to_string(g.in_up) + std::to_string(g.out_up);
  std::mt19937 rng(framedsp_test::test_seed() ^ g.format ^ (g.rw_in << 8) ^ (g.rw_out << 20));
  Pic in(g.format, g.rw_in + g.in_x + g.margin_w, g.rh_in + g.in_y + g.margin_h, g.in_up, 12),
      out(g.format, g.rw_out + g.out_x + g.margin_w, g.rh_out + g.out_y + g.margin_h, g.out_up, 12);
  in.randomise(rng);
  out.randomise(rng);
  Pic want(out);
  const Pic source(in);
  uint32_t main_f = g.format, plane_f = g.format;
  split_format(g.format, &main_f, &plane_f);
  for (int p = 0; p < (is_two_plane(g.format) ? 2 : 1); ++p) {
    const uint32_t f = p ? plane_f : main_f;
    for (uint32_t y = 0; y < g.rh_out; ++y) {
      const auto pk = pick_line(g, v, y);
      if (pk.first < 0) continue;
      model_line(f, op, in.row(g.in_y + uint32_t(pk.first), p) + g.in_x * bpp_of(f),
                 in.row(g.in_y + uint32_t(pk.second), p) + g.in_x * bpp_of(f), g.rw_in, g.rw_out,
                 want.row(g.out_y + y, p) + g.out_x * bpp_of(f));
    }
  }
  DSP_SCALER_PARAMS params{};
  params.eFilter = op == Op::kNearest ? DSP_SCALER_FILTER_NEAREST : DSP_SCALER_FILTER_LINEAR;
  FastPathCall call{&params, {}, 1.0f, 0};
  call.buffer.In = in.image(int(g.in_x), int(g.in_y), g.rw_in, g.rh_in, DSP_BUFFER_TYPE_FRAME, g.interlace);
  call.buffer.Out = out.image(int(g.out_x), int(g.out_y), g.rw_out, g.rh_out, DSP_BUFFER_TYPE_FRAME, g.interlace);
  call.buffer.ulFlags = g.flags;
  normalise_orientation(&call.buffer);  // what the driver hands over
  ASSERT_EQ(run(call), kOk) << what;
  ASSERT_TRUE(framedsp_test::same_bytes(source, in)) << what << ": input changed";
  ASSERT_TRUE(framedsp_test::same_bytes(want, out)) << what;
}

const uint32_t kHdWidths[][2] = {{1440, 1920}, {960, 1280}, {1280, 1920}, {1280, 960}, {1920, 1440}, {1920, 1280}};

class FastPathImage : public ::testing::TestWithParam<uint32_t> {};

// Every ratio in regions at offsets (down-scales with one line more: the last pair is clamped),
// both orientations on either side; one field or both of interleaved frames; the HD widths, with
// equal heights or lines picked by the nearest rule.
TEST_P(FastPathImage, EveryRatioFieldAndHdWidth) {
  const uint32_t f = GetParam();
  const struct {
    uint32_t in_units, out_units;
    Vertical v;
  } ratios[] = {{4, 1, Vertical::kQuarter}, {2, 1, Vertical::kHalf}, {1, 2, Vertical::kDouble}, {1, 4, Vertical::kQuadruple}};
  for (const auto &r : ratios) {
    if (f == 263 && r.v != Vertical::kHalf && r.v != Vertical::kDouble) continue;
    for (uint32_t base : {4u, 10u, 26u}) {
      for (int up = 0; up < 2; ++up) {
        Geometry g{f, base * r.in_units, 3 * r.in_units + (base == 10 && r.in_units > 1), base * r.out_units, 3 * r.out_units};
        g.in_x = 2, g.in_y = 1, g.out_x = 4, g.out_y = 3, g.margin_w = 4, g.margin_h = 2;
        g.in_up = up, g.out_up = up ^ (base == 26);
        check_image(g, Op::kNearest, r.v, integer_ratio_scale);
        if (r.v == Vertical::kHalf) check_image(g, Op::kHalfLinear, r.v, integer_ratio_scale);
      }
    }
    if (f != 21 && f != 261) continue;
    for (uint32_t sel : {DSP_BUFFER_PROCESS_FIELDA, DSP_BUFFER_PROCESS_FIELDB, DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB}) {
      Geometry g{f, 8 * r.in_units, 9 * r.in_units, 8 * r.out_units, 9 * r.out_units};
      g.out_x = 2, g.out_y = 2, g.interlace = 0, g.flags = sel;
      check_image(g, Op::kNearest, r.v, integer_ratio_scale);
      if (r.v == Vertical::kHalf) check_image(g, Op::kHalfLinear, r.v, integer_ratio_scale);
    }
  }
  if (f == 263) return;
  for (const auto &w : kHdWidths) {
    Geometry g{f, w[0], 3, w[1], 3};
    g.in_x = 2, g.in_y = 1, g.out_y = 1, g.margin_w = 2, g.margin_h = 1;
    check_image(g, Op::kHd, Vertical::kNearestLines, hd_width_scale);
  }
  if (f != 21) return;
  for (uint32_t il : {2u, 0u}) {
    for (auto hh : {std::pair<uint32_t, uint32_t>{7, 5}, {4, 9}, {6, 6}}) {
      Geometry g{21, 960, hh.first, 1280, hh.second};
      g.interlace = il, g.flags = il == 0 ? DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB : 0;
      check_image(g, Op::kHd, Vertical::kNearestLines, hd_width_scale);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, FastPathImage, ::testing::Values(0u, 1u, 5u, 21u, 25u, 28u, 30u, 261u, 263u),
                         [](const auto &info) { return "fmt" + std::to_string(info.param); });

// ---- eligibility and status rules ------------------------------------------------------------

struct Record {
  DSP_SCALER_PARAMS params{};
  FastPathCall call{};
  alignas(16) static inline uint8_t pixels[8192];
  Record(uint32_t f, uint32_t wi, uint32_t wo, uint32_t hi, uint32_t ho, uint32_t filter = 0) {
    params.eFilter = filter;
    call.params = &params;
    call.field_factor = 1.0f;
    for (DSP_IMAGE *d : {&call.buffer.In, &call.buffer.Out}) {
      d->Buffer.pBuffer = pixels;
      d->Buffer.ulBytes = sizeof pixels;
      d->Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
      d->ePixelFormat = f;
      d->eInterlace = DSP_INTERLACE_PROGRESSIVE;
      d->ulWidth = std::max(wi, wo);
      d->ulHeight = std::max(hi, ho);
      d->ulPrimaryStrideBytes = 8192 / d->ulHeight;
      d->ulSecondaryStrideBytes = 64;
    }
    call.buffer.In.Buffer.Region.ulWidth = wi;
    call.buffer.Out.Buffer.Region.ulWidth = wo;
    call.buffer.In.Buffer.Region.ulHeight = hi;
    call.buffer.Out.Buffer.Region.ulHeight = ho;
  }
};

// Each flip breaks exactly one condition of an eligible record (path 1: 21, 16 -> 8 pixels, 4 -> 2
// lines; path 2: 21, 1440 -> 1920, 4 lines).
TEST(FastPathRules, EachEligibilityConditionFlipped) {
  using Flip = void (*)(FastPathCall &);
  const struct {
    int path;
    const char *name;
    Flip flip;
  } flips[] = {
      {3, "format 22", [](FastPathCall &c) { c.buffer.In.ePixelFormat = c.buffer.Out.ePixelFormat = 22; }},
      {1, "format 24", [](FastPathCall &c) { c.buffer.In.ePixelFormat = c.buffer.Out.ePixelFormat = 24; }},
      {3, "out format differs", [](FastPathCall &c) { c.buffer.Out.ePixelFormat = 25; }},
      {3, "in field buffer", [](FastPathCall &c) { c.buffer.In.Buffer.eBufferType = 0; }},
      {3, "out field buffer", [](FastPathCall &c) { c.buffer.Out.Buffer.eBufferType = 1; }},
      {3, "interlace 3", [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 3; }},
      {1, "interlace 1", [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 1; }},
      {3, "interlace differs", [](FastPathCall &c) { c.buffer.Out.eInterlace = 0; }},
      {3, "interlace 0 without selection", [](FastPathCall &c) { c.buffer.In.eInterlace = c.buffer.Out.eInterlace = 0; }},
      {3, "selection, progressive", [](FastPathCall &c) { c.buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDA; }},
      {1, "ratio 3", [](FastPathCall &c) { c.buffer.In.Buffer.Region.ulWidth = 24; }},
      {1, "ratio 8", [](FastPathCall &c) { c.buffer.Out.Buffer.Region.ulWidth = 2; }},
      {1, "width 1:1", [](FastPathCall &c) { c.buffer.Out.Buffer.Region.ulWidth = 16; }},
      {1, "odd output width", [](FastPathCall &c) { c.buffer.In.Buffer.Region.ulWidth = 6, c.buffer.Out.Buffer.Region.ulWidth = 3; }},
      {1, "odd input width", [](FastPathCall &c) { c.buffer.In.Buffer.Region.ulWidth = 3, c.buffer.Out.Buffer.Region.ulWidth = 6; }},
      {2, "width pair 1440->1080", [](FastPathCall &c) { c.buffer.Out.Buffer.Region.ulWidth = 1080; }},
      {2, "width pair 1920->960", [](FastPathCall &c) { c.buffer.In.Buffer.Region.ulWidth = 1920, c.buffer.Out.Buffer.Region.ulWidth = 960; }},
      {2, "width pair 1280->1440", [](FastPathCall &c) { c.buffer.In.Buffer.Region.ulWidth = 1280, c.buffer.Out.Buffer.Region.ulWidth = 1440; }},
      {2, "output not 16-byte aligned", [](FastPathCall &c) { c.buffer.Out.Buffer.pBuffer = Record::pixels + 4; }},
  };
  for (int path = 1; path <= 2; ++path) {
    auto eligible = [&](const Record &r) { return path == 1 ? integer_ratio_eligible(r.call) : hd_width_eligible(r.call); };
    const auto base = [&] { return path == 1 ? Record(21, 16, 8, 4, 2) : Record(21, 1440, 1920, 4, 4); };
    EXPECT_TRUE(eligible(base()));
    for (const auto &f : flips) {
      if (!(f.path & path)) continue;
      Record r = base();
      f.flip(r.call);
      EXPECT_FALSE(eligible(r)) << "path " << path << ": " << f.name;
    }
    Record sel = base();  // a field selection with interleaved fields is eligible
    sel.call.buffer.In.eInterlace = sel.call.buffer.Out.eInterlace = 0;
    sel.call.buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDB;
    EXPECT_TRUE(eligible(sel)) << path;
  }
  for (uint32_t f : {0u, 1u, 5u, 21u, 25u, 28u, 30u, 261u, 263u}) EXPECT_TRUE(integer_ratio_eligible(Record(f, 16, 64, 4, 16).call)) << f;
  EXPECT_TRUE(integer_ratio_eligible(Record(1, 6, 3, 4, 2).call));  // odd widths where the format has them
  EXPECT_TRUE(integer_ratio_eligible(Record(263, 5, 20, 4, 2).call));
  for (const auto &w : kHdWidths) EXPECT_TRUE(hd_width_eligible(Record(0, w[0], w[1], 2, 2).call)) << w[0];
  // Other input widths pass the HD rule (and the work refuses them); 263 passes too.
  EXPECT_TRUE(hd_width_eligible(Record(0, 720, 1920, 2, 2).call));
  EXPECT_TRUE(hd_width_eligible(Record(263, 1440, 1920, 2, 2).call));
}

TEST(FastPathRules, StatusOfTheWorkAndNothingWrittenWhenRefused) {
  const struct {
    int path;
    uint32_t format, wi, wo, hi, ho, filter;
    HRESULT want;
  } cases[] = {
      {1, 21, 16, 8, 4, 2, 1, kOk},          {1, 21, 16, 8, 4, 3, 0, kInvalidArg},  // height ratio off by more than 0.1
      {1, 21, 16, 8, 10, 6, 0, kOk},         {1, 21, 24, 8, 6, 2, 0, kInvalidArg},  // ratio 3
      {1, 0, 32, 4, 16, 2, 0, kInvalidArg},  {1, 0, 4, 32, 2, 16, 0, kInvalidArg},  // 1/8 and 8
      {1, 0, 8, 8, 2, 2, 0, kInvalidArg},    {1, 0, 0, 0, 2, 2, 0, kInvalidArg},
      {1, 21, 16, 4, 8, 2, 1, kNotImpl},     {1, 21, 8, 16, 2, 4, 1, kNotImpl},     {1, 0, 8, 32, 2, 8, 1, kNotImpl},
      {1, 21, 16, 8, 4, 2, 2, kFail},        {1, 21, 16, 8, 4, 2, 7, kFail},
      {1, 263, 16, 4, 8, 2, 0, kInvalidArg}, {1, 263, 4, 16, 2, 8, 0, kInvalidArg}, {1, 263, 16, 8, 4, 2, 0, kOk},
      {1, 22, 16, 8, 4, 2, 0, kInvalidArg},  {1, 24, 16, 8, 4, 2, 0, kInvalidArg},
      {2, 263, 1440, 1920, 1, 1, 0, kInvalidArg}, {2, 22, 1440, 1920, 1, 1, 0, kInvalidArg},
      {2, 21, 720, 960, 1, 1, 0, kInvalidArg},    {2, 21, 1442, 1920, 1, 1, 0, kInvalidArg},
      {2, 21, 1440, 1904, 1, 1, 0, kInvalidArg},  {2, 21, 1920, 960, 1, 1, 0, kInvalidArg},
  };
  for (const auto &c : cases) {
    std::memset(Record::pixels, 0x77, sizeof Record::pixels);
    Record r(c.format, c.wi, c.wo, c.hi, c.ho, c.filter);
    const HRESULT got = c.path == 1 ? integer_ratio_scale(r.call) : hd_width_scale(r.call);
    EXPECT_EQ(got, c.want) << c.path << ": " << c.format << " " << c.wi << "x" << c.hi << " -> " << c.wo << "x" << c.ho;
    if (c.want != kOk) {
      EXPECT_TRUE(std::all_of(std::begin(Record::pixels), std::end(Record::pixels), [](uint8_t v) { return v == 0x77; }));
    }
  }
}

// ----- line kernels -------------------------------------------------------------------------------

class LineKernel : public ::testing::TestWithParam<int> {};  // ratios, then HD ratios, times slots

TEST_P(LineKernel, ScalarFollowsTheModelAndSimdEqualsScalar) {
  const bool hd = GetParam() >= kFixedRatioCount * kFixedFormatCount;
  const int index = hd ? GetParam() - kFixedRatioCount * kFixedFormatCount : GetParam();
  const int ratio = index / kFixedFormatCount, slot = index % kFixedFormatCount;
  static const uint32_t kFormats[kFixedFormatCount] = {0, 1, 21, 25, 261};
  const uint32_t f = kFormats[slot];
  auto pick = [&](uint32_t flags) {
    FixedRatioTable t;
    fixed_ratio_table_init(&t, flags);
    return hd ? t.hd[ratio][slot] : t.ratio[ratio][slot];
  };
  const FixedLineKernel scalar = pick(0);
  std::vector<FixedLineKernel> simd;
  for (uint32_t level : framedsp_test::simd_levels()) {
    if (pick(level) != scalar && std::find(simd.begin(), simd.end(), pick(level)) == simd.end()) simd.push_back(pick(level));
  }
  if ((slot != kFixedRgb || hd) && (cpu_flags() & (hd ? kCpuSSSE3 : kCpuSSE2))) { EXPECT_FALSE(simd.empty()) << "no SIMD entry"; }
  const Op op = hd ? Op::kHd : ratio == kRatioHalfLinear ? Op::kHalfLinear : Op::kNearest;
  const size_t g = fixed_group_bytes(slot);
  const size_t out_per = hd ? hd_group_out_bytes(ratio, slot) : ratio == kRatioDouble ? 2 * g : ratio == kRatioQuadruple ? 4 * g : g;
  const size_t in_per = hd ? hd_group_in_bytes(ratio, slot) : ratio == kRatioQuarter ? 4 * g : ratio == kRatioDouble || ratio == kRatioQuadruple ? g : 2 * g;
  std::mt19937 rng(framedsp_test::test_seed() + 7);
  framedsp_test::for_each_line(48, 20, rng, [&](size_t units, size_t lead, int kind) {
    const size_t nout = (units % 301) * out_per, nin = (units % 301) * in_per;
    if (nout > 6000) return;
    framedsp_test::GuardedBuffer &ga = framedsp_test::scratch(0, nin + 1, 0), &gb = framedsp_test::scratch(1, nin + 1, 0);
    uint8_t *a = ga.data() + 1, *b = gb.data() + 1;  // both lines end against a protected page
    framedsp_test::fill_line(a, nin, kind, rng);
    framedsp_test::fill_line(b, nin, kind, rng);
    // The output at every alignment: the buffers' size does not depend on the lead.
    framedsp_test::GuardedBuffer &want = framedsp_test::scratch(2, nout + 16, 32, 0xA5), &got = framedsp_test::scratch(3, nout + 16, 32, 0xA5);
    std::vector<uint8_t> model(nout + 16, 0xA5);
    model_line(f, op, a, b, nin / bpp_of(f), nout / bpp_of(f), model.data() + lead);
    scalar(a, b, want.data() + lead, nout);
    const std::string what = "entry " + std::to_string(GetParam()) + " units " + std::to_string(units) + " lead " + std::to_string(lead);
    ASSERT_TRUE(want.intact()) << what;
    ASSERT_TRUE(framedsp_test::same_line(model.data(), want.data(), model.size())) << what << " scalar";
    for (FixedLineKernel k : simd) {
      got.reset(0xA5);
      k(a, b, got.data() + lead, nout);
      ASSERT_TRUE(got.intact()) << what << " " << got.damage();
      ASSERT_TRUE(framedsp_test::same_line(want.data(), got.data(), want.size())) << what << " simd";
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Entries, LineKernel,
                         ::testing::Range(0, (kFixedRatioCount + kHdRatioCount) * kFixedFormatCount));

}  // namespace
