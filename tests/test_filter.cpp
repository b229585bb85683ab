// DspFilter with FIR settings: random pictures of every layout, orientation, field mode and both
// planes of a two-plane format against a 2-D reference written here (vertical, then horizontal,
// with both edge rules); even tap counts, cut-off 100 and the temporary-frame path as properties.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "filter/fir_tables.h"
#include "fir_formula.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::Pic;

// One plane of picture rows of format f (n bytes each, row step s for fields), vertical taps then
// horizontal, each pass rounded to bytes.
std::vector<std::vector<uint8_t>> reference(std::vector<std::vector<uint8_t>> rows, uint32_t f, uint32_t taps,
                                            uint32_t vtaps, int s) {
  const int cls = f == 21 ? 0 : f == 24 ? 1 : f == 25 ? 2 : f == 1 ? 4 : f == 0 ? 5 : f == 22 ? 7 : 6;  // 6: 261
  const framedsp::FirTap *hc = framedsp::fir_coefficients(taps, 40), *vc = framedsp::fir_coefficients(vtaps, 60);
  const int h = int(rows.size());
  std::vector<std::vector<uint8_t>> mid = rows;
  auto row = [&](int y) { return rows[size_t(y)].data(); };
  for (int r = 0; r < h; ++r) {
    for (size_t p = 0; p < mid[0].size(); ++p) {
      mid[r][p] = fir_formula::vertical(vc, int(vtaps), row, h, r, p, s, false);
    }
  }
  for (int r = 0; r < h; ++r) fir_formula::horizontal(hc, int(taps), cls, mid[r].data(), mid[r].size(), rows[r].data());
  return rows;
}

std::vector<std::vector<uint8_t>> read_rows(const Pic &p, bool plane) {
  const size_t n = size_t{p.width} * (plane ? 1 : framedsp_test::main_bytes(p.format));
  std::vector<std::vector<uint8_t>> rows;
  for (uint32_t y = 0; y < p.height; ++y) rows.emplace_back(p.row(y, plane), p.row(y, plane) + n);
  return rows;
}

// The input frame (or field of in_type 0 / 1) filtered into the output; a colour space on each side.
DSP_HRESULT fir(const Pic &in, const Pic &out, uint32_t ht, uint32_t hc, uint32_t vt, uint32_t vc, uint32_t il = 2,
                uint32_t options = 0, uint32_t in_type = 2, uint32_t in_cs = 0, uint32_t out_cs = 0) {
  const DSP_FIR_SETTINGS s{ht, hc, 0, vt, vc};
  const DSP_FILTER_PARAMS p = framedsp_test::filter_params(
      DSP_FILTER_TYPE_FIR, &s,
      framedsp_test::buffer_of(in.image(0, 0, 0, 0, in_type, in_type == 2 ? il : 2, in_cs),
                               out.image(0, 0, 0, 0, 2, il, out_cs)),
      options);
  return DspFilter(&p);
}

TEST(FilterFir, RandomPicturesMatchTheReference) {
  std::mt19937 rng(framedsp_test::test_seed());
  for (uint32_t f : {21u, 25u, 24u, 0u, 1u, 261u, 22u, 28u}) {
    for (int variant = 0; variant < 4; ++variant) {
      const bool bottom_up = variant & 1, interleaved = variant & 2;
      for (uint32_t taps : {3u, 7u, 15u}) {
        const uint32_t w = 2 * (5 + rng() % 60), h = 3 + rng() % 30, vtaps = taps == 7 ? 9 : taps;
        Pic in(f, w, h, bottom_up), out(f, w, h, bottom_up, 9, 0x11);
        in.randomise(rng);
        ASSERT_EQ(DSP_S_OK, fir(in, out, taps, 40, vtaps, 60, interleaved ? 0 : 2, 0));
        ASSERT_TRUE(out.mem->intact()) << out.mem->damage();
        for (bool plane : {false, true}) {
          if (plane && f != 28) continue;
          const auto want = reference(read_rows(in, plane), plane ? 261 : f == 28 ? 21 : f, taps, vtaps, interleaved ? 2 : 1);
          const auto got = read_rows(out, plane);
          for (uint32_t y = 0; y < h; ++y) {
            ASSERT_TRUE(framedsp_test::same_line(want[y].data(), got[y].data(), want[y].size()))
                << "format " << f << " variant " << variant << " taps " << taps << " plane " << plane << " row " << y;
            for (size_t x = want[y].size(); x < (plane ? out.stride2 : out.stride); ++x) ASSERT_EQ(0x11, out.row(y, plane)[x]);
          }
        }
      }
    }
  }
}

// Even tap counts take the next lower odd table; cut-off 100 turns a direction off (both: the copy);
// the temporary frame gives the direct path's bytes, a field into a frame leaving the other field.
TEST(FilterFir, TapCountsCutoffsAndTheTemporaryFrame) {
  std::mt19937 rng(7);
  for (uint32_t f : {21u, 0u, 261u}) {
    Pic in(f, 48, 20), a(f, 48, 20), b(a), field(f, 48, 10);
    in.randomise(rng);
    field.randomise(rng);
    ASSERT_EQ(DSP_S_OK, fir(in, a, 4, 30, 14, 30));
    ASSERT_EQ(DSP_S_OK, fir(in, b, 3, 30, 13, 30));
    EXPECT_TRUE(framedsp_test::same_bytes(a, b)) << f;
    ASSERT_EQ(DSP_S_OK, fir(in, b, 5, 30, 13, 30));
    EXPECT_NE(a.bytes(), b.bytes());
    ASSERT_EQ(DSP_S_OK, fir(in, a, 0, 100, 0, 100));
    for (uint32_t y = 0; y < 20; ++y) ASSERT_EQ(0, std::memcmp(in.row(y), a.row(y), 48 * framedsp_test::main_bytes(f)));
    for (uint32_t il : {2u, 0u}) {
      ASSERT_EQ(DSP_S_OK, fir(in, a, 7, 30, 5, 50, il));
      ASSERT_EQ(DSP_S_OK, fir(in, b, 7, 30, 5, 50, il, DSP_FILTER_OPTION_TEMP_FRAME));
      EXPECT_TRUE(framedsp_test::same_bytes(a, b)) << "format " << f << " interlace " << il;
    }
    // Colours are never converted, through the temporary frame neither, whatever the orientations.
    for (int v = 0; v < 4; ++v) {
      Pic src(f, 48, 20, v & 1), direct(f, 48, 20, v & 2), temp(direct);
      src.randomise(rng);
      for (const Pic *o : {&direct, &temp}) {
        const uint32_t option = o == &temp ? DSP_FILTER_OPTION_TEMP_FRAME : 0;
        ASSERT_EQ(DSP_S_OK, fir(src, *o, 7, 30, 5, 50, 2, option, 2, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709));
      }
      EXPECT_TRUE(framedsp_test::same_bytes(direct, temp)) << "format " << f << " orientations " << v;
    }
    for (uint32_t type : {0u, 1u}) {
      Pic direct(f, 48, 20, false, 6, 0x5A), temp(direct);
      ASSERT_EQ(DSP_S_OK, fir(field, direct, 5, 40, 3, 60, 0, 0, type));
      ASSERT_EQ(DSP_S_OK, fir(field, temp, 5, 40, 3, 60, 0, DSP_FILTER_OPTION_TEMP_FRAME, type));
      EXPECT_TRUE(framedsp_test::same_bytes(direct, temp)) << "field " << type;
      for (uint32_t y = 1 - type; y < 20; y += 2) {
        for (uint32_t x = 0; x < temp.stride; ++x) ASSERT_EQ(0x5A, temp.row(y)[x]) << "other field, line " << y;
      }
    }
  }
}

}  // namespace
