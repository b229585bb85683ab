// DspSubPixelFilter: on whole-pixel records with fractions the truncation removes, the bytes of
// DspFilter wherever the two share their kernels (box, horizontal FIR, the copy), also for random
// records reaching outside the images; the FIR vertical taps against a per-sample formula of their
// absolute clamp, and vertical then horizontal as DspFilter's horizontal pass over that result.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "filter/fir_tables.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::fractional;
using framedsp_test::Pic;

struct Geometry {
  uint32_t in_type, in_il, in_h, out_type, out_il, out_h, flags;
};
const Geometry kProgressive{2, 2, 14, 2, 2, 14, 0}, kInterleaved{2, 0, 14, 2, 0, 14, 0}, kSeparate{2, 3, 14, 2, 3, 14, 0},
    kFrameToFieldA{2, 0, 14, 0, 2, 7, 0}, kFieldBToFrame{1, 2, 7, 2, 0, 14, 0},
    kDominance{2, 0, 14, 2, 0, 14, DSP_BUFFER_IN_FIELD2_DOMINANCE | DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP};

struct SameCase {
  const char *label;
  uint32_t format, type, a, b, c, d;  // FIR: horizontal taps, cut-off, vertical taps, cut-off; box: sizes a, c
  Geometry g;
  bool in_up, out_up, temp;
  uint32_t in_space, out_space;
  bool region;  // a region inside the image (offset 2,1) rather than all of it
};

// The call on a 22-pixel-wide picture pair; `fraction` < 0: DspFilter on the whole-pixel record,
// else DspSubPixelFilter with that fraction added to every offset and size.
std::vector<uint8_t> run(const SameCase &c, double fraction) {
  const Geometry &g = c.g;
  Pic in(c.format, 22, g.in_h, c.in_up, 7, 0), out(c.format, 22, g.out_h, c.out_up, 7, 0x3C);
  std::mt19937 rng(1234 + c.format);
  in.randomise(rng);
  DSP_BUFFER b{};
  b.In = in.image(0, 0, 0, 0, g.in_type, g.in_il, c.in_space);
  b.Out = out.image(0, 0, 0, 0, g.out_type, g.out_il, c.out_space);
  b.ulFlags = g.flags;
  for (DSP_IMAGE *d : {&b.In, &b.Out}) {
    if (!c.region) continue;
    const bool frame = d->Buffer.eBufferType == 2;
    d->Buffer.Region = DSP_REGION{{2, frame ? 2 : 1}, 16, d->ulHeight - (frame ? 4 : 2)};
  }
  const DSP_FIR_SETTINGS fir{c.a, c.b, 0, c.c, c.d};
  const DSP_BOX_SETTINGS box{c.a, 0, c.c};
  const void *settings = c.type == DSP_FILTER_TYPE_FIR ? static_cast<const void *>(&fir) : &box;
  const uint32_t options = c.temp ? DSP_FILTER_OPTION_TEMP_FRAME : 0;
  DSP_HRESULT status;
  if (fraction < 0) {
    DSP_FILTER_PARAMS p = framedsp_test::filter_params(c.type, settings, b, options);
    status = DspFilter(&p);
  } else {
    // The same fraction on both sides keeps the widths equal and the heights in ratio.
    const double f = fraction, fi = g.in_type == 2 && g.out_type != 2 ? 2 * f : f;
    const double fo = g.out_type == 2 && g.in_type != 2 ? 2 * f : f;
    DSP_SUBPIXEL_FILTER_PARAMS p{};
    p.eFilterType = c.type;
    p.pSettings = settings;
    p.ulOptions = options;
    p.Buffer.In = fractional(b.In, f, f, f, fi);
    p.Buffer.Out = fractional(b.Out, f, f, f, fo);
    p.Buffer.ulFlags = b.ulFlags;
    status = DspSubPixelFilter(&p);
  }
  EXPECT_EQ(status, DSP_S_OK);
  EXPECT_TRUE(out.mem->intact() && in.mem->intact()) << out.mem->damage();
  return out.bytes();
}

class SubPixelSameAsFilter : public ::testing::TestWithParam<SameCase> {};

TEST_P(SubPixelSameAsFilter, ByteExact) {
  const std::vector<uint8_t> want = run(GetParam(), -1);
  ASSERT_NE(want, std::vector<uint8_t>(want.size(), 0x3C)) << "DspFilter wrote nothing";
  for (double fraction : {0.0, 0.25, 0.999}) {
    const std::vector<uint8_t> got = run(GetParam(), fraction);
    ASSERT_TRUE(framedsp_test::same_line(want.data(), got.data(), want.size())) << "fraction " << fraction;
  }
}

constexpr uint32_t kFir = DSP_FILTER_TYPE_FIR, kBox = DSP_FILTER_TYPE_BOX;
const SameCase kSameCases[] = {
    {"fir_h_bgra", 0, kFir, 7, 30, 3, 100, kProgressive, false, false, false, 0, 0, false},
    {"fir_h_bgr24", 1, kFir, 5, 40, 3, 100, kProgressive, false, false, false, 0, 0, true},
    {"fir_h_uyvy", 21, kFir, 15, 20, 3, 100, kProgressive, false, false, false, 0, 0, true},
    {"fir_h_f22", 22, kFir, 9, 45, 3, 100, kProgressive, false, false, false, 0, 0, false},
    {"fir_h_f23", 23, kFir, 7, 30, 3, 100, kProgressive, false, false, false, 0, 0, false},
    {"fir_h_f24", 24, kFir, 11, 10, 3, 100, kProgressive, false, false, false, 0, 0, true},
    {"fir_h_f129", 129, kFir, 5, 30, 3, 100, kProgressive, false, false, false, 0, 0, false},
    {"fir_h_gray", 261, kFir, 13, 25, 3, 100, kProgressive, false, false, false, 0, 0, true},
    {"fir_h_two_plane", 28, kFir, 7, 30, 3, 100, kProgressive, false, false, false, 0, 0, false},
    {"fir_h_bottom_up_temp", 21, kFir, 7, 30, 3, 100, kProgressive, true, false, true, 0, 0, true},
    {"fir_h_interleaved", 25, kFir, 7, 30, 3, 100, kInterleaved, true, true, false, 0, 0, false},
    {"fir_h_frame_to_field", 261, kFir, 7, 30, 3, 100, kFrameToFieldA, false, false, false, 0, 0, false},
    {"fir_h_field_to_frame", 21, kFir, 7, 30, 3, 100, kFieldBToFrame, false, false, false, 0, 0, false},
    {"box_bgra", 0, kBox, 5, 0, 3, 0, kProgressive, false, false, false, 0, 0, false},
    {"box_uyvy_region", 21, kBox, 7, 0, 5, 0, kProgressive, false, true, false, 0, 0, true},
    {"box_gray_vertical", 261, kBox, 0, 0, 7, 0, kProgressive, false, false, false, 0, 0, false},
    {"box_two_plane", 28, kBox, 3, 0, 3, 0, kProgressive, false, false, false, 0, 0, false},
    {"box_y216", 22, kBox, 3, 0, 4, 0, kInterleaved, false, false, false, 0, 0, false},
    {"box_separate", 1, kBox, 3, 0, 3, 0, kSeparate, false, false, false, 0, 0, false},
    {"box_frame_to_field", 21, kBox, 3, 0, 3, 0, kFrameToFieldA, false, false, false, 0, 0, true},
    {"box_field_to_frame", 261, kBox, 5, 0, 3, 0, kFieldBToFrame, false, false, false, 0, 0, false},
    {"box_dominance", 21, kBox, 3, 0, 3, 0, kDominance, false, false, false, 0, 0, false},
    {"box_temp_bottom_up", 0, kBox, 3, 0, 5, 0, kProgressive, true, false, true, 0, 0, false},
    {"box_temp_interleaved", 21, kBox, 3, 0, 3, 0, kInterleaved, false, false, true, 0, 0, false},
    {"copy_fir_off", 21, kFir, 0, 100, 0, 100, kProgressive, false, true, false, 0, 0, true},
    {"copy_box_off", 0, kBox, 0, 0, 0, 0, kInterleaved, false, false, false, 0, 0, false},
    {"copy_colour_space", 21, kFir, 3, 100, 3, 100, kProgressive, false, false, false, 1, 2, false},
    {"copy_two_plane_field", 28, kBox, 0, 0, 0, 0, kFrameToFieldA, false, false, false, 0, 0, false},
};
INSTANTIATE_TEST_SUITE_P(Cases, SubPixelSameAsFilter, ::testing::ValuesIn(kSameCases),
                         [](const auto &info) { return std::string(info.param.label); });

// ---- FIR with vertical taps -----------------------------------------------------------------------

// Picture row r of the vertical pass: taps at rows max(r - k*s, 0) and min(r + k*s, max(H - s, 0)).
std::vector<uint8_t> vertical(const Pic &in, uint32_t taps, uint32_t cutoff, int s, size_t n) {
  const framedsp::FirTap *c = framedsp::fir_coefficients(taps, cutoff);
  const int h = int(in.height), half = int(taps - 1) / 2, last = std::max(h - s, 0);
  std::vector<uint8_t> out(size_t(h) * n);
  for (int r = 0; r < h; ++r) {
    for (size_t p = 0; p < n; ++p) {
      int64_t acc = int64_t{c[half].lane[0]} * in.row(uint32_t(r))[p];
      for (int k = 1; k <= half; ++k) {
        acc += int64_t{c[half - k].lane[0]} *
               (in.row(uint32_t(std::max(r - k * s, 0)))[p] + in.row(uint32_t(std::min(r + k * s, last)))[p]);
      }
      out[size_t(r) * n + p] = uint8_t(std::min<int64_t>(255, std::max<int64_t>(0, (acc + 256) >> 9)));
    }
  }
  return out;
}

TEST(SubPixelFilterFir, VerticalTapsFollowTheFormulaThenTheHorizontalPass) {
  std::mt19937 rng(framedsp_test::test_seed());
  for (uint32_t format : {21u, 0u, 1u, 261u}) {
    for (int variant = 0; variant < 4; ++variant) {
      const bool bottom_up = variant & 1, interleaved = variant & 2;
      for (uint32_t taps : {3u, 7u, 15u}) {
        const uint32_t w = 2 * (3 + rng() % 40), h = 1 + rng() % 24, il = interleaved ? 0 : 2;
        Pic in(format, w, h, bottom_up), v_only(format, w, h, bottom_up, 6, 0x3C), both(v_only), want(v_only);
        in.randomise(rng);
        auto call = [&](const Pic &out, uint32_t ht, uint32_t hc) {
          const DSP_FIR_SETTINGS fir{ht, hc, 0, taps, 25};
          DSP_SUBPIXEL_FILTER_PARAMS p{};
          p.eFilterType = kFir;
          p.pSettings = &fir;
          p.Buffer.In = fractional(in.image(0, 0, 0, 0, 2, il), 0, 0, 0.5, 0.5);
          p.Buffer.Out = fractional(out.image(0, 0, 0, 0, 2, il), 0, 0, 0.5, 0.5);
          ASSERT_EQ(DSP_S_OK, DspSubPixelFilter(&p));
        };
        call(v_only, 3, 100);
        call(both, 5, 40);
        const size_t n = size_t{w} * framedsp_test::main_bytes(format);
        const std::vector<uint8_t> rows = vertical(in, taps, 25, interleaved ? 2 : 1, n);
        for (uint32_t y = 0; y < h; ++y) {
          ASSERT_TRUE(framedsp_test::same_line(&rows[y * n], v_only.row(y), n))
              << "format " << format << " variant " << variant << " taps " << taps << " row " << y;
          for (size_t x = n; x < v_only.stride; ++x) ASSERT_EQ(0x3C, v_only.row(y)[x]) << "row " << y;
        }
        const DSP_FIR_SETTINGS h_only{5, 40, 0, 3, 100};
        DSP_FILTER_PARAMS f = framedsp_test::filter_params(
            kFir, &h_only, framedsp_test::buffer_of(v_only.image(0, 0, 0, 0, 2, il), want.image(0, 0, 0, 0, 2, il)));
        ASSERT_EQ(DSP_S_OK, DspFilter(&f));
        ASSERT_TRUE(framedsp_test::same_bytes(want, both)) << "format " << format << " variant " << variant;
      }
    }
  }
}

// Random fractional records, regions reaching outside the images included: every call stays inside
// its output, and wherever DspFilter takes the truncated record as well, the bytes are DspFilter's.
TEST(SubPixelFilter, RandomRecordsMatchTheTruncatedWholePixelRecord) {
  std::mt19937 rng(framedsp_test::test_seed());
  const uint32_t formats[] = {0, 1, 21, 24, 25, 261, 28, 22}, types[] = {0, 1, 2, 2};
  int compared = 0;
  for (int i = 0; i < 400; ++i) {
    const uint32_t format = formats[rng() % 8], w = 2 * (1 + rng() % 12), hi = 2 + rng() % 10, ho = 2 + rng() % 10;
    Pic in(format, w, hi), out(format, w, ho, false, 6, 0x3C), out_whole(out);
    in.randomise(rng);
    const uint32_t in_type = types[rng() % 4], out_type = types[rng() % 4];
    DSP_BUFFER whole{};
    whole.In = in.image(0, 0, 0, 0, in_type, rng() % 4);
    whole.Out = out_whole.image(0, 0, 0, 0, out_type, rng() % 4);
    whole.In.eImageOrientation = rng() % 2;
    whole.Out.eImageOrientation = rng() % 2;
    whole.ulFlags = rng() % 32;
    const auto value = [&](double lo, double hi_) { return lo + (hi_ - lo) * double(rng() % 10000) / 10000.0; };
    const double factor = in_type == 2 && out_type != 2 ? 2.0 : out_type == 2 && in_type != 2 ? 0.5 : 1.0;
    const double width = value(-4, w + 6), h_out = value(-2, ho + 4);
    DSP_SUBPIXEL_FILTER_PARAMS sub{};
    sub.Buffer.In = fractional(whole.In);
    sub.Buffer.Out = fractional(whole.Out);
    sub.Buffer.Out.Buffer.pBuffer = out.data();
    sub.Buffer.ulFlags = whole.ulFlags;
    sub.Buffer.In.Buffer.Region = {{value(-5, w), value(-3, hi)}, width, h_out * factor};
    sub.Buffer.Out.Buffer.Region = {{value(-5, w), value(-3, ho)}, width, h_out};
    for (int side = 0; side < 2; ++side) {  // the truncated record for DspFilter
      const DSP_SUBPIXEL_REGION &r = (side ? sub.Buffer.Out : sub.Buffer.In).Buffer.Region;
      DSP_REGION &d = (side ? whole.Out : whole.In).Buffer.Region;
      d = {{int32_t(int64_t(r.ptOffset.x)), int32_t(int64_t(r.ptOffset.y))}, uint32_t(int64_t(r.ulWidth)),
           uint32_t(int64_t(r.ulHeight))};
    }
    const bool box = rng() % 2;
    const DSP_BOX_SETTINGS box_settings{uint32_t(rng() % 6), 0, uint32_t(rng() % 6)};
    const DSP_FIR_SETTINGS fir_settings{uint32_t(3 + rng() % 13), rng() % 2 ? 30u : 100u, 0, 3, 100};
    sub.eFilterType = box ? kBox : kFir;
    sub.pSettings = box ? static_cast<const void *>(&box_settings) : &fir_settings;
    sub.ulOptions = rng() % 2;
    const DSP_HRESULT got = DspSubPixelFilter(&sub);
    ASSERT_TRUE(out.mem->intact()) << "case " << i << " " << out.mem->damage();
    // The temporary frame is sized from the truncated region as given (a negative width reads as
    // a huge unsigned one), as DspFilter sizes it: work memory can then not be had.
    ASSERT_TRUE(got == DSP_S_OK || (sub.ulOptions == 1 && got == DSP_E_OUTOFMEMORY)) << "case " << i << " " << got;
    const bool whole_accepts = whole.In.Buffer.Region.ulWidth == whole.Out.Buffer.Region.ulWidth &&
                               double(whole.Out.Buffer.Region.ulHeight) * factor == double(whole.In.Buffer.Region.ulHeight);
    const bool sub_accepts = !(in_type == 2 && whole.In.eInterlace == 0 && out_type == 2 && whole.Out.eInterlace == 2) &&
                             (format == 0 || format == 1 || (int64_t(width) & 1) == 0);
    if (!whole_accepts || !sub_accepts) continue;
    DSP_FILTER_PARAMS p = framedsp_test::filter_params(sub.eFilterType, sub.pSettings, whole, sub.ulOptions);
    ASSERT_EQ(got, DspFilter(&p)) << "case " << i;
    ASSERT_TRUE(framedsp_test::same_bytes(out_whole, out)) << "case " << i;
    ++compared;
  }
  EXPECT_GT(compared, 40);
}

}  // namespace
