// DspSubPixelFilter: on random fractional records, the bytes of DspFilter on the truncated record
// wherever the two share their kernels (box, horizontal FIR, the copy); the FIR vertical taps
// against a per-sample formula of their absolute clamp, and vertical then horizontal as DspFilter's
// horizontal pass over that result.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "filter/fir_tables.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::fractional;
using framedsp_test::Pic;

constexpr uint32_t kFir = DSP_FILTER_TYPE_FIR, kBox = DSP_FILTER_TYPE_BOX;

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
// its output, and wherever DspFilter takes the truncated record as well, the bytes are DspFilter's
// (box, horizontal FIR and the copy, converting or not, are the kernels the two share).
TEST(SubPixelFilter, RandomRecordsMatchTheTruncatedWholePixelRecord) {
  std::mt19937 rng(framedsp_test::test_seed());
  const uint32_t formats[] = {0, 1, 21, 24, 25, 261, 28, 22, 23, 129, 30}, types[] = {0, 1, 2, 2};
  const uint32_t cutoffs[] = {10, 45, 100, 100};  // 100 in both directions: the copy
  int compared = 0;
  for (int i = 0; i < 1000; ++i) {
    const uint32_t format = formats[rng() % 11], w = 2 * (1 + rng() % 12), hi = 2 + rng() % 10, ho = 2 + rng() % 10;
    Pic in(format, w, hi), out(format, w, ho, false, 6, 0x3C), out_whole(out);
    in.randomise(rng);
    const uint32_t in_type = types[rng() % 4], out_type = types[rng() % 4];
    DSP_BUFFER whole{};
    whole.In = in.image(0, 0, 0, 0, in_type, rng() % 4, 1 + rng() % 2);
    whole.Out = out_whole.image(0, 0, 0, 0, out_type, rng() % 4, 1 + rng() % 2);
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
    const DSP_BOX_SETTINGS box_settings{uint32_t(rng() % 9), 0, uint32_t(rng() % 9)};
    const DSP_FIR_SETTINGS fir_settings{uint32_t(3 + rng() % 13), cutoffs[rng() % 4], 0, 3, 100};
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
  EXPECT_GT(compared, 200);
}

}  // namespace
