// DspBufferSmartCopy through the export: region copies between pictures of either orientation,
// both planes of the two-plane formats, BT.601 <-> BT.709 as the plain copy followed by the colour
// kernel with the scalar and the SIMD kernels, overlapping regions, fields end to end.  (A failed
// work line is a row of the operations' work-memory table.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "copy/color_kernels.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::CpuLevel;
using framedsp_test::Pic;
using framedsp_test::same_bytes;

constexpr uint32_t k601 = DSP_COLOR_SPACE_BT601, k709 = DSP_COLOR_SPACE_BT709;

struct Region {
  int32_t x, y;
  uint32_t w, h;
};

DSP_IMAGE describe(const Pic &p, Region r, uint32_t colour = 0, uint32_t type = DSP_BUFFER_TYPE_FRAME,
                   uint32_t interlace = DSP_INTERLACE_PROGRESSIVE) {
  return p.image(r.x, r.y, r.w, r.h, type, interlace, colour);
}

DSP_HRESULT copy(const DSP_IMAGE &in, const DSP_IMAGE &out) {
  DSP_BUFFER b{};
  b.In = in;
  b.Out = out;
  return DspBufferSmartCopy(&b);
}

// The progressive copy of a region, row for row and plane by plane: destination rows run to the
// end of the output region or picture; source rows past the input's last row repeat that row.
void model_copy(const Pic &in, Region ir, const Pic &want, Region orr, bool key_plane_only = false) {
  const uint32_t rows = std::min<uint32_t>(orr.h, want.height - orr.y);
  for (int plane = key_plane_only ? 1 : 0; plane <= (framedsp_test::plane_bytes(in.format) ? 1 : 0); ++plane) {
    const uint32_t bpp = plane ? 1 : framedsp_test::main_bytes(in.format);
    for (uint32_t r = 0; r < rows; ++r) {
      std::memcpy(want.row(orr.y + r, plane) + orr.x * bpp,
                  in.row(std::min<uint32_t>(ir.y + r, in.height - 1), plane) + ir.x * bpp, size_t{orr.w} * bpp);
    }
  }
}

// ---- progressive region copies, with colour pairs that convert nothing --------------------------

struct GeometryCase {
  const char *name;
  uint32_t format, in_w, in_h, in_slack;
  Region ir;
  bool in_up;
  uint32_t out_w, out_h, out_slack;
  Region orr;
  bool out_up;
  uint32_t in_space = 0, out_space = 0;
};

class RegionCopy : public ::testing::TestWithParam<GeometryCase> {};

TEST_P(RegionCopy, MatchesTheModel) {
  const GeometryCase &c = GetParam();
  std::mt19937 rng(framedsp_test::test_seed());
  Pic in(c.format, c.in_w, c.in_h, c.in_up, c.in_slack), out(c.format, c.out_w, c.out_h, c.out_up, c.out_slack);
  in.randomise(rng);
  out.randomise(rng);
  const Pic source(in), want(out);
  model_copy(in, c.ir, want, c.orr);
  DSP_BUFFER b{};
  b.In = describe(in, c.ir, c.in_space);
  b.Out = describe(out, c.orr, c.out_space);
  const DSP_BUFFER before = b;
  ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
  EXPECT_EQ(std::memcmp(&b, &before, sizeof b), 0) << "the caller's record changed";
  EXPECT_TRUE(same_bytes(source, in)) << "the input changed";
  EXPECT_TRUE(same_bytes(want, out));
}

const GeometryCase kGeometry[] = {
    {"uyvy_whole_frame", 21, 64, 16, 0, {0, 0, 64, 16}, false, 64, 16, 0, {0, 0, 64, 16}, false},
    {"uyvy_region_slack", 21, 72, 20, 24, {6, 3, 40, 9}, false, 90, 30, 8, {20, 12, 40, 9}, false},
    {"yuyv_region_odd_rows", 25, 36, 13, 4, {2, 1, 30, 11}, false, 40, 15, 0, {8, 2, 30, 11}, false},
    {"bgr24_odd_width", 1, 37, 9, 5, {3, 2, 31, 5}, false, 41, 12, 1, {7, 6, 31, 5}, false},
    {"bgra_region", 0, 33, 10, 12, {1, 1, 17, 8}, false, 20, 9, 0, {3, 0, 17, 8}, false},
    {"y416_region", 129, 20, 6, 8, {2, 1, 10, 4}, false, 16, 8, 0, {4, 3, 10, 4}, false},
    {"key8_region", 261, 50, 7, 3, {4, 0, 22, 7}, false, 30, 9, 0, {6, 1, 22, 7}, false},
    {"uyvy_out_region_past_bottom", 21, 32, 12, 0, {0, 0, 32, 12}, false, 32, 8, 0, {0, 3, 32, 12}, false},
    {"top_down_to_bottom_up_frame", 21, 48, 10, 0, {0, 0, 48, 10}, false, 48, 10, 0, {0, 0, 48, 10}, true},
    {"top_down_to_bottom_up_region", 25, 60, 18, 16, {10, 4, 24, 7}, false, 44, 14, 4, {6, 2, 24, 7}, true},
    {"bottom_up_to_top_down_region", 1, 25, 11, 3, {5, 6, 13, 4}, true, 19, 9, 0, {2, 1, 13, 4}, false},
    {"bottom_up_to_bottom_up_region", 21, 40, 12, 8, {4, 2, 20, 9}, true, 30, 20, 2, {10, 5, 20, 9}, true},
    {"bgr24_key_planes", 5, 23, 9, 4, {3, 2, 15, 6}, false, 27, 10, 0, {1, 3, 15, 6}, false},
    {"uyvy_key_planes", 28, 40, 8, 16, {4, 1, 24, 6}, false, 30, 9, 2, {2, 2, 24, 6}, false},
    {"yuyv_key_planes", 30, 34, 7, 0, {0, 0, 34, 7}, false, 34, 7, 6, {0, 0, 34, 7}, false},
    {"uyvy_key_planes_bottom_up_out", 28, 36, 10, 4, {2, 1, 20, 8}, false, 24, 12, 0, {2, 3, 20, 8}, true},
    // Pairs without a matrix, and formats that are never converted: the bytes arrive unchanged.
    {"uyvy_601_601", 21, 24, 6, 4, {2, 1, 20, 5}, false, 30, 8, 0, {6, 2, 20, 5}, false, k601, k601},
    {"uyvy_unspecified_709", 21, 24, 6, 4, {2, 1, 20, 5}, false, 30, 8, 0, {6, 2, 20, 5}, false, 0, k709},
    {"bgr24_709_601", 1, 24, 6, 4, {2, 1, 20, 5}, false, 30, 8, 0, {6, 2, 20, 5}, false, k709, k601},
    {"bgra_601_709", 0, 24, 6, 4, {2, 1, 20, 5}, false, 30, 8, 0, {6, 2, 20, 5}, false, k601, k709},
    {"key8_601_709", 261, 24, 6, 4, {2, 1, 20, 5}, false, 30, 8, 0, {6, 2, 20, 5}, false, k601, k709},
    {"y216_601_709", 22, 24, 6, 4, {2, 1, 20, 5}, false, 30, 8, 0, {6, 2, 20, 5}, false, k601, k709},
    {"y416_709_601", 129, 24, 6, 4, {2, 1, 20, 5}, false, 30, 8, 0, {6, 2, 20, 5}, false, k709, k601},
};
INSTANTIATE_TEST_SUITE_P(Progressive, RegionCopy, ::testing::ValuesIn(kGeometry),
                         [](const auto &info) { return std::string(info.param.name); });

// A source region reaching past the last line of its picture keeps reading that line; the source
// ends against a protected page, so a read past its last byte faults.
TEST(SmartCopyEdges, ClampedLastLineReadsNothingBeyond) {
  for (bool bottom_up : {false, true}) {
    std::mt19937 rng(framedsp_test::test_seed());
    Pic in(21, 32, 10, bottom_up, 0, 0, 0), out(21, 32, 12, false, 0);
    in.randomise(rng);
    const Pic want(out);
    model_copy(in, {16, 7, 16, 6}, want, {0, 2, 16, 6});
    ASSERT_EQ(copy(describe(in, {16, 7, 16, 6}), describe(out, {0, 2, 16, 6})), DSP_S_OK);
    EXPECT_TRUE(same_bytes(want, out)) << bottom_up;
  }
}

// Regions of different widths pass validation; only the narrower width moves, at the right edge
// of the source's last line (against the protected page), and the rest is left alone.
TEST(SmartCopyEdges, WiderOutputRegionMovesOnlyTheInputWidth) {
  for (bool convert : {false, true}) {
    Pic in(21, 16, 4, false, 0, 0, 0), out(21, 32, 4, false, 0);
    std::mt19937 rng(7);
    in.randomise(rng);
    out.randomise(rng);
    const Pic before(out);
    ASSERT_EQ(copy(describe(in, {8, 0, 8, 4}, convert ? k601 : 0), describe(out, {4, 0, 24, 4}, convert ? k709 : 0)),
              DSP_S_OK);
    for (uint32_t row = 0; row < 4; ++row) {
      if (!convert) { EXPECT_EQ(std::memcmp(out.row(row) + 8, in.row(row) + 16, 16), 0) << "row " << row; }
      EXPECT_EQ(std::memcmp(out.row(row), before.row(row), 8), 0) << "row " << row;
      EXPECT_EQ(std::memcmp(out.row(row) + 24, before.row(row) + 24, 40), 0) << "right of the input width, row " << row;
    }
    EXPECT_TRUE(out.mem->intact()) << out.mem->damage();
  }
}

// An interleaved frame gives field A from its even lines and field B from its odd lines (a field
// buffer described either way); placing both fields into a frame rebuilds the original, each
// placement writing only its own field's lines.
TEST(SmartCopyFields, FrameToFieldsAndBack) {
  constexpr uint32_t kW = 40, kH = 14, kA = DSP_BUFFER_TYPE_FIELD_A, kB = DSP_BUFFER_TYPE_FIELD_B;
  const uint32_t kFrame = DSP_BUFFER_TYPE_FRAME, kIl = DSP_INTERLACE_INTERLEAVED;
  for (uint32_t field_il : {DSP_INTERLACE_PROGRESSIVE, DSP_INTERLACE_INTERLEAVED}) {
    std::mt19937 rng(framedsp_test::test_seed());
    Pic frame(21, kW, kH, false, 8), a(21, kW, kH / 2, false, 4), b(21, kW, kH / 2), rebuilt(21, kW, kH, false, 2);
    for (Pic *p : {&frame, &a, &b, &rebuilt}) p->randomise(rng);
    const Region whole{0, 0, kW, kH}, half{0, 0, kW, kH / 2};
    ASSERT_EQ(copy(describe(frame, whole, 0, kFrame, kIl), describe(a, half, 0, kA, field_il)), DSP_S_OK);
    ASSERT_EQ(copy(describe(frame, whole, 0, kFrame, kIl), describe(b, half, 0, kB, field_il)), DSP_S_OK);
    for (uint32_t k = 0; k < kH / 2; ++k) {
      EXPECT_EQ(std::memcmp(a.row(k), frame.row(2 * k), 2 * kW), 0) << "field A line " << k;
      EXPECT_EQ(std::memcmp(b.row(k), frame.row(2 * k + 1), 2 * kW), 0) << "field B line " << k;
    }
    const Pic before(rebuilt);
    ASSERT_EQ(copy(describe(a, half, 0, kA, field_il), describe(rebuilt, whole, 0, kFrame, kIl)), DSP_S_OK);
    for (uint32_t y = 1; y < kH; y += 2) EXPECT_EQ(std::memcmp(rebuilt.row(y), before.row(y), rebuilt.stride), 0);
    ASSERT_EQ(copy(describe(b, half, 0, kB, field_il), describe(rebuilt, whole, 0, kFrame, kIl)), DSP_S_OK);
    for (uint32_t y = 0; y < kH; ++y) EXPECT_EQ(std::memcmp(rebuilt.row(y), frame.row(y), 2 * kW), 0) << y;
    for (Pic *p : {&a, &b, &rebuilt}) EXPECT_TRUE(p->mem->intact()) << p->mem->damage();
  }
}

// Source and destination regions in one buffer: every line behaves as memmove of that line.  With
// neutral chroma the converting pass leaves the bytes as they are, so both passes expect the same.
TEST(SmartCopyOverlap, SameBufferMovesLikeMemmove) {
  const Region shifts[][2] = {{{2, 1, 40, 6}, {6, 1, 40, 6}}, {{10, 2, 36, 5}, {4, 2, 36, 5}},
                              {{0, 3, 48, 5}, {0, 1, 48, 5}}};
  for (uint32_t space_out : {k601, k709}) {
    for (const auto &s : shifts) {
      std::mt19937 rng(framedsp_test::test_seed());
      Pic image(21, 48, 9);
      image.randomise(rng);
      for (size_t i = 0; i < image.size(); i += 2) image.data()[i] = 128;
      Pic want(image);
      for (uint32_t r = 0; r < s[1].h; ++r) {
        std::memmove(want.row(s[1].y + r) + 2 * s[1].x, want.row(s[0].y + r) + 2 * s[0].x, 2 * s[1].w);
      }
      ASSERT_EQ(copy(describe(image, s[0], k601), describe(image, s[1], space_out)), DSP_S_OK);
      EXPECT_TRUE(same_bytes(want, image)) << s[0].x << "," << s[0].y << " space " << space_out;
    }
  }
}

// ---- colour conversion: the plain copy, then the copy's colour kernel on each output line ----------

// (The kernels and their matrices are checked against the formula and the exact conversion in
// test_color_kernels.cpp.)  The key plane of a two-plane format is copied as it is.  The same bytes
// with the scalar and the SIMD kernels, on lines off 16-byte alignment.
TEST(SmartCopyColor, IsThePlainCopyThenTheKernelOnEveryLine) {
  const struct {
    uint32_t format, in_space, out_space;
    bool out_up;
  } cases[] = {{21, k601, k709, false}, {21, k709, k601, false}, {25, k601, k709, false},
               {25, k709, k601, true},  {28, k601, k709, false}, {30, k709, k601, false}};
  framedsp::ColorKernelTable kernels;
  framedsp::color_table_init(&kernels, 0);
  for (const auto &c : cases) {
    for (bool simd : {false, true}) {
      std::mt19937 rng(framedsp_test::test_seed());
      Pic in(c.format, 50, 12, false, 6), out(c.format, 60, 14, c.out_up, 2);
      in.randomise(rng);
      out.randomise(rng);
      const Region ir{4, 2, 38, 9}, orr{10, 3, 38, 9};
      const Pic want(out);
      model_copy(in, ir, want, orr);
      const bool yuyv = c.format == 25 || c.format == 30;
      for (uint32_t r = 0; r < orr.h; ++r) {
        uint8_t *line = want.row(orr.y + r) + 2 * orr.x;
        (yuyv ? kernels.yuyv : kernels.uyvy)(line, line, orr.w, framedsp::color_matrix(c.in_space, c.out_space));
      }
      {
        CpuLevel level(simd);
        ASSERT_EQ(copy(describe(in, ir, c.in_space), describe(out, orr, c.out_space)), DSP_S_OK);
      }
      EXPECT_TRUE(same_bytes(want, out)) << c.format << " simd " << simd;
    }
  }
}

}  // namespace
