// DspFilter with FIR settings through the export: copies, known answers, the
// temporary-frame path, two-plane formats, fields, guard bytes, and random images against a 2-D
// reference written here (vertical then horizontal, with both edge rules).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "filter/fir_tables.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {


// A picture whose record is the whole picture with the given type, interlace and orientation.
struct Img : framedsp_test::Pic {
  uint32_t w, h, main_bpp, plane_stride;
  Img(uint32_t f, uint32_t width, uint32_t height, uint32_t slack = 5)
      : Pic(f, width, height, false, slack, 0, 64), w(width), h(height), main_bpp(framedsp_test::main_bytes(f)),
        plane_stride(stride2) {}
  DSP_IMAGE image(uint32_t type = DSP_BUFFER_TYPE_FRAME, uint32_t interlace = DSP_INTERLACE_PROGRESSIVE,
                  uint32_t orientation = 0) const {
    DSP_IMAGE d = Pic::image(0, 0, 0, 0, type, interlace);
    d.eImageOrientation = orientation;
    return d;
  }
  size_t bytes() const { return size(); }
};

struct Fir {
  DSP_FIR_SETTINGS s;
  DSP_FILTER_PARAMS p;
  Fir(uint32_t ht, uint32_t hc, uint32_t vt, uint32_t vc) : s{ht, hc, 0, vt, vc}, p{} {
    p.eFilterType = DSP_FILTER_TYPE_FIR;
    p.pSettings = &s;
  }
};

int dist(uint32_t f, size_t p) {
  switch (f) {
    case 21: return p % 2 ? 2 : 4;
    case 25: return p % 2 ? 4 : 2;
    case 24: return p % 4 < 2 ? 4 : 0;
    case 0: return 4;
    case 1: return 3;
    case 261: return 1;
    case 262: return p % 2 ? 0 : 2;
    case 22: return p % 2 ? 0 : (p % 4 == 0 ? 8 : 4);
  }
  return -1;
}

uint8_t clampv(int64_t acc) {
  const int64_t v = (acc + 256) >> 9;
  return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// Independent 2-D reference of a whole top-down plane: rows[y] of `n` bytes, h rows, row step s
// (fields), vertical then horizontal.
std::vector<std::vector<uint8_t>> reference(const std::vector<std::vector<uint8_t>> &rows,
                                            uint32_t format, const int16_t *hc, int hn,
                                            const int16_t *vc, int vn, int s) {
  const int h = static_cast<int>(rows.size());
  const size_t n = rows[0].size();
  std::vector<std::vector<uint8_t>> mid = rows, out = rows;
  if (vc) {
    const int half = (vn - 1) / 2;
    for (int r = 0; r < h; ++r) {
      int up = 0, down = 0;
      std::vector<int> ups(half + 1), downs(half + 1);
      for (int k = 1; k <= half; ++k) {
        up = r >= k * s ? -k * s : up;
        down = r + k * s <= h - k * s - 1 ? k * s : down;
        ups[k] = up;
        downs[k] = down;
      }
      for (size_t p = 0; p < n; ++p) {
        int64_t acc = int64_t{vc[half]} * rows[r][p];
        for (int k = 1; k <= half; ++k) acc += int64_t{vc[half - k]} * (rows[r + ups[k]][p] + rows[r + downs[k]][p]);
        mid[r][p] = clampv(acc);
      }
    }
  }
  out = mid;
  if (hc) {
    const int half = (hn - 1) / 2;
    for (int r = 0; r < h; ++r) {
      for (size_t p = 0; p < n; ++p) {
        const int d = dist(format, p);
        if (d == 0) continue;
        const int x0 = mid[r][p];
        int64_t acc = int64_t{hc[half]} * x0;
        for (int k = 1; k <= half; ++k) {
          const long l = static_cast<long>(p) - k * d, rr = static_cast<long>(p) + k * d;
          acc += int64_t{hc[half - k]} * ((l >= 0 ? mid[r][l] : x0) + (rr + 1 < static_cast<long>(n) ? mid[r][rr] : x0));
        }
        out[r][p] = clampv(acc);
      }
    }
  }
  return out;
}

std::vector<int16_t> row_of(uint32_t taps, uint32_t cut) {
  const framedsp::FirTap *t = framedsp::fir_coefficients(taps, cut);
  const int n = framedsp::fir_table_taps(taps);
  std::vector<int16_t> v(n);
  for (int i = 0; i < n; ++i) v[i] = t[i].lane[0];
  return v;
}

std::vector<std::vector<uint8_t>> read_rows(Img &im, int bottom_up) {
  std::vector<std::vector<uint8_t>> rows(im.h);
  for (uint32_t y = 0; y < im.h; ++y) {
    const uint32_t my = bottom_up ? im.h - 1 - y : y;
    rows[y].assign(im.data() + size_t{my} * im.stride, im.data() + size_t{my} * im.stride + im.w * im.main_bpp);
  }
  return rows;
}

TEST(FilterFir, RandomImagesMatchReference) {
  std::mt19937 rng(framedsp_test::test_seed());
  const uint32_t formats[] = {21, 25, 24, 0, 1, 261, 22};  // 262: no bytes per pixel in the format table
  for (uint32_t f : formats) {
    for (int bottom_up = 0; bottom_up <= 1; ++bottom_up) {
      for (uint32_t taps : {3u, 7u, 15u}) {
        const uint32_t w = 2 * (5 + rng() % 60), h = 3 + rng() % 30;
        Img in(f, w, h), out(f, w, h, 9);
        framedsp_test::fill_random(in.data(), in.bytes(), rng);
        const uint8_t before_fill = 0x11;
        std::memset(out.data(), before_fill, out.bytes());
        Fir fir(taps, 40, taps == 7 ? 9 : taps, 60);
        fir.p.Buffer.In = in.image(DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_PROGRESSIVE, bottom_up);
        fir.p.Buffer.Out = out.image(DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_PROGRESSIVE, bottom_up);
        ASSERT_EQ(DSP_S_OK, DspFilter(&fir.p));
        const std::vector<int16_t> hc = row_of(taps, 40), vc = row_of(fir.s.ulVertTaps, 60);
        const auto want = reference(read_rows(in, bottom_up), f, hc.data(), static_cast<int>(hc.size()),
                                    vc.data(), static_cast<int>(vc.size()), 1);
        const auto got = read_rows(out, bottom_up);
        for (uint32_t y = 0; y < h; ++y) {
          ASSERT_EQ(want[y], got[y]) << "format " << f << " bottom_up " << bottom_up << " taps " << taps
                                     << " row " << y << "\n"
                                     << framedsp_test::hex_diff(want[y].data(), got[y].data(), want[y].size());
          for (uint32_t x = w * out.main_bpp; x < out.stride; ++x) ASSERT_EQ(before_fill, out.data()[y * out.stride + x]);
        }
        ASSERT_TRUE(out.mem->intact()) << out.mem->damage();
      }
    }
  }
}

TEST(FilterFir, CutoffHundredIsCopy) {
  std::mt19937 rng(1);
  Img in(21, 40, 9), out(21, 40, 9);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  Fir fir(0, 100, 0, 100);
  fir.p.Buffer.In = in.image();
  fir.p.Buffer.Out = out.image();
  ASSERT_EQ(DSP_S_OK, DspFilter(&fir.p));
  for (uint32_t y = 0; y < 9; ++y) ASSERT_EQ(0, std::memcmp(in.data() + y * in.stride, out.data() + y * out.stride, 80));
}

std::vector<uint8_t> run(uint32_t f, uint32_t ht, uint32_t hc, uint32_t vt, uint32_t vc, uint32_t options,
                         uint32_t seed, uint32_t interlace = DSP_INTERLACE_PROGRESSIVE) {
  std::mt19937 rng(seed);
  Img in(f, 48, 20), out(f, 48, 20);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  Fir fir(ht, hc, vt, vc);
  fir.p.ulOptions = options;
  fir.p.Buffer.In = in.image(DSP_BUFFER_TYPE_FRAME, interlace);
  fir.p.Buffer.Out = out.image(DSP_BUFFER_TYPE_FRAME, interlace);
  EXPECT_EQ(DSP_S_OK, DspFilter(&fir.p));
  EXPECT_TRUE(out.mem->intact());
  return std::vector<uint8_t>(out.data(), out.data() + out.bytes());
}

TEST(FilterFir, EvenTapsUseLowerTable) {
  EXPECT_EQ(run(21, 4, 30, 4, 30, 0, 7), run(21, 3, 30, 3, 30, 0, 7));
  EXPECT_EQ(run(21, 14, 30, 14, 30, 0, 7), run(21, 13, 30, 13, 30, 0, 7));
  EXPECT_NE(run(21, 5, 30, 5, 30, 0, 7), run(21, 3, 30, 3, 30, 0, 7));
}

TEST(FilterFir, TempFramePathEqualsDirect) {
  for (uint32_t f : {21u, 0u, 261u}) {
    for (uint32_t il : {DSP_INTERLACE_PROGRESSIVE, DSP_INTERLACE_INTERLEAVED}) {
      EXPECT_EQ(run(f, 7, 30, 5, 50, 0, 3, il), run(f, 7, 30, 5, 50, DSP_FILTER_OPTION_TEMP_FRAME, 3, il))
          << "format " << f << " interlace " << il;
    }
  }
}

// A field filtered into a frame through the temporary frame: the field's lines equal the direct
// path and the other field's lines of the output keep what they held.
TEST(FilterFir, TempFrameFieldIntoFrameLeavesTheOtherField) {
  for (uint32_t type : {DSP_BUFFER_TYPE_FIELD_A, DSP_BUFFER_TYPE_FIELD_B}) {
    std::vector<uint8_t> results[2];
    for (uint32_t options : {0u, DSP_FILTER_OPTION_TEMP_FRAME}) {
      std::mt19937 rng(11);
      Img in(21, 32, 6), out(21, 32, 12);
      framedsp_test::fill_random(in.data(), in.bytes(), rng);
      std::memset(out.data(), 0x5A, out.bytes());
      Fir fir(5, 40, 3, 60);
      fir.p.ulOptions = options;
      fir.p.Buffer.In = in.image(type, DSP_INTERLACE_PROGRESSIVE);
      fir.p.Buffer.Out = out.image(DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_INTERLEAVED);
      ASSERT_EQ(DSP_S_OK, DspFilter(&fir.p));
      EXPECT_TRUE(out.mem->intact());
      for (uint32_t y = 1 - type; y < 12; y += 2) {
        for (uint32_t x = 0; x < out.stride; ++x) {
          ASSERT_EQ(0x5A, out.data()[y * out.stride + x]) << "other field, line " << y;
        }
      }
      results[options != 0] = std::vector<uint8_t>(out.data(), out.data() + out.bytes());
    }
    EXPECT_EQ(results[0], results[1]) << "field type " << type;
  }
}

TEST(FilterFir, FlatFieldKeepsRowGain) {
  // Find a 3..15-tap row summing to 510.
  uint32_t taps = 0, cut = 0;
  for (uint32_t t = 3; t <= 15 && !taps; t += 2) {
    for (uint32_t c = 0; c < 100 && !taps; c += 5) {
      int sum = 0;
      for (int16_t v : row_of(t, c)) sum += v;
      if (sum == 510) { taps = t; cut = c; }
    }
  }
  ASSERT_NE(0u, taps);
  Img in(261, 32, 8), out(261, 32, 8);
  std::memset(in.data(), 255, in.bytes());
  Fir fir(taps, cut, 0, 100);
  fir.p.Buffer.In = in.image();
  fir.p.Buffer.Out = out.image();
  ASSERT_EQ(DSP_S_OK, DspFilter(&fir.p));
  for (uint32_t y = 0; y < 8; ++y) for (uint32_t x = 0; x < 32; ++x) ASSERT_EQ(254, out.data()[y * out.stride + x]);
}

TEST(FilterFir, TwoPlaneFormatFiltersBothPlanes) {
  std::mt19937 rng(5);
  Img in(28, 40, 12), out(28, 40, 12);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  Fir fir(5, 50, 5, 50);
  fir.p.Buffer.In = in.image();
  fir.p.Buffer.Out = out.image();
  ASSERT_EQ(DSP_S_OK, DspFilter(&fir.p));
  const auto hc = row_of(5, 50);
  const auto want_main = reference(read_rows(in, 0), 21, hc.data(), 5, hc.data(), 5, 1);
  for (uint32_t y = 0; y < 12; ++y) ASSERT_EQ(0, std::memcmp(want_main[y].data(), out.data() + y * out.stride, 80));
  std::vector<std::vector<uint8_t>> plane(12);
  const size_t off = size_t{12} * in.stride;
  for (uint32_t y = 0; y < 12; ++y) plane[y].assign(in.data() + off + y * in.plane_stride, in.data() + off + y * in.plane_stride + 40);
  const auto want_plane = reference(plane, 261, hc.data(), 5, hc.data(), 5, 1);
  for (uint32_t y = 0; y < 12; ++y) {
    ASSERT_EQ(0, std::memcmp(want_plane[y].data(), out.data() + off + y * out.plane_stride, 40)) << "plane row " << y;
  }
  ASSERT_TRUE(out.mem->intact());
}

TEST(FilterFir, InterlacedFramesNeverMixFields) {
  std::mt19937 rng(9);
  Img in(261, 32, 16), out(261, 32, 16);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  Fir fir(0, 100, 7, 20);
  fir.p.Buffer.In = in.image(DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_INTERLEAVED);
  fir.p.Buffer.Out = out.image(DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_INTERLEAVED);
  ASSERT_EQ(DSP_S_OK, DspFilter(&fir.p));
  const auto vc = row_of(7, 20);
  const auto want = reference(read_rows(in, 0), 261, nullptr, 0, vc.data(), 7, 2);
  for (uint32_t y = 0; y < 16; ++y) ASSERT_EQ(want[y], read_rows(out, 0)[y]) << "row " << y;
}

}  // namespace
