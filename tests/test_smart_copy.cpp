// DspBufferSmartCopy through the export: region copies between frames of either orientation,
// both planes of the two-plane formats, BT.601 <-> BT.709 against a floating-point conversion,
// work memory on every path, overlapping regions, C-only against SIMD, and fields end to end.
// Every expectation is computed here from the input bytes, never by the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

// Bytes per pixel of the formats used here (main picture and plane formats).
uint32_t bpp(uint32_t format) {
  switch (format) {
    case 0:
      return 4;
    case 1:
      return 3;
    case 21:
    case 24:
    case 25:
      return 2;
    case 22:
      return 4;
    case 129:
      return 8;
    case 261:
      return 1;
    default:
      return 0;
  }
}

struct Split {
  uint32_t main, plane;  // plane 0: one plane
};
Split split(uint32_t format) {
  switch (format) {
    case 5:
      return {1, 261};
    case 28:
      return {21, 261};
    case 30:
      return {25, 261};
    default:
      return {format, 0};
  }
}

// One image in guarded memory: the picture, then for two-plane formats the plane.
struct Image {
  uint32_t format, width, height, stride, plane_stride;
  std::unique_ptr<GuardedBuffer> mem;

  Image(uint32_t f, uint32_t w, uint32_t h, uint32_t slack, uint32_t plane_slack = 0,
        size_t margin = 64)
      : format(f), width(w), height(h) {
    stride = w * bpp(split(f).main) + slack;
    plane_stride = split(f).plane ? w * bpp(split(f).plane) + plane_slack : 0;
    mem = std::make_unique<GuardedBuffer>(bytes(), margin);
  }
  size_t main_bytes() const { return size_t{height} * stride; }
  size_t bytes() const { return main_bytes() + size_t{height} * plane_stride; }
  uint8_t *data() { return mem->data(); }
  std::vector<uint8_t> snapshot() const {
    return std::vector<uint8_t>(mem->data(), mem->data() + bytes());
  }
  void randomise(std::mt19937 &rng) { framedsp_test::fill_random(data(), bytes(), rng); }
};

struct Region {
  int32_t x, y;
  uint32_t w, h;
};

DSP_IMAGE describe(Image &image, Region r, uint32_t orientation = DSP_ORIENTATION_TOP_DOWN,
                   uint32_t space = DSP_COLOR_SPACE_UNSPECIFIED,
                   uint32_t type = DSP_BUFFER_TYPE_FRAME,
                   uint32_t interlace = DSP_INTERLACE_PROGRESSIVE) {
  DSP_IMAGE d;
  std::memset(&d, 0, sizeof d);
  d.Buffer.pBuffer = image.data();
  d.Buffer.ulBytes = static_cast<uint32_t>(image.bytes());
  d.Buffer.eBufferType = type;
  d.Buffer.Region.ptOffset.x = r.x;
  d.Buffer.Region.ptOffset.y = r.y;
  d.Buffer.Region.ulWidth = r.w;
  d.Buffer.Region.ulHeight = r.h;
  d.ulWidth = image.width;
  d.ulHeight = image.height;
  d.ePixelFormat = image.format;
  d.eInterlace = interlace;
  d.eImageOrientation = orientation;
  d.eColorSpace = space;
  d.ulPrimaryStrideBytes = image.stride;
  d.ulSecondaryStrideBytes = image.plane_stride;
  return d;
}

DSP_BUFFER record(const DSP_IMAGE &in, const DSP_IMAGE &out, uint32_t flags = 0) {
  DSP_BUFFER b;
  std::memset(&b, 0, sizeof b);
  b.In = in;
  b.Out = out;
  b.ulFlags = flags;
  return b;
}

// One plane of an image as the model sees it: memory line of a picture row, by orientation.
struct PlaneView {
  size_t offset;
  uint32_t stride, height, bpp;
  bool bottom_up;
  size_t line(uint32_t row) const {
    return offset + size_t{bottom_up ? height - 1 - row : row} * stride;
  }
};

std::vector<PlaneView> planes(const Image &image, bool bottom_up) {
  const Split s = split(image.format);
  std::vector<PlaneView> v{{0, image.stride, image.height, bpp(s.main), bottom_up}};
  if (s.plane)
    v.push_back({image.main_bytes(), image.plane_stride, image.height, bpp(s.plane), bottom_up});
  return v;
}

// The progressive copy of a region, row for row: destination rows run to the end of the output
// region or image; source rows past the input image's last row repeat that row.
void model_copy(const std::vector<uint8_t> &in, const PlaneView &ip, Region ir,
                std::vector<uint8_t> &out, const PlaneView &op, Region orr) {
  const uint32_t rows = std::min<uint32_t>(orr.h, op.height - orr.y);
  const size_t bytes = size_t{orr.w} * op.bpp;
  for (uint32_t r = 0; r < rows; ++r) {
    const uint32_t src_row = std::min<uint32_t>(ir.y + r, ip.height - 1);
    std::memcpy(&out[op.line(orr.y + r) + size_t(orr.x) * op.bpp],
                &in[ip.line(src_row) + size_t(ir.x) * ip.bpp], bytes);
  }
}

::testing::AssertionResult same_bytes(const std::vector<uint8_t> &expected, const uint8_t *got) {
  if (std::memcmp(expected.data(), got, expected.size()) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "seed " << framedsp_test::test_seed() << "\n"
         << framedsp_test::hex_diff(expected.data(), got, expected.size());
}

// ---- progressive region copies --------------------------------------------------------------

struct GeometryCase {
  const char *name;
  uint32_t format;
  uint32_t in_w, in_h, in_slack;
  Region in_region;
  bool in_up;
  uint32_t out_w, out_h, out_slack;
  Region out_region;
  bool out_up;
};

void PrintTo(const GeometryCase &c, std::ostream *os) { *os << c.name; }

class RegionCopy : public ::testing::TestWithParam<GeometryCase> {};

TEST_P(RegionCopy, MatchesTheModel) {
  const GeometryCase &c = GetParam();
  std::mt19937 rng(framedsp_test::test_seed());
  Image in(c.format, c.in_w, c.in_h, c.in_slack, 5);
  Image out(c.format, c.out_w, c.out_h, c.out_slack, 11);
  in.randomise(rng);
  out.randomise(rng);
  const std::vector<uint8_t> source = in.snapshot();
  std::vector<uint8_t> expected = out.snapshot();
  const auto ip = planes(in, c.in_up), op = planes(out, c.out_up);
  for (size_t p = 0; p < ip.size(); ++p)
    model_copy(source, ip[p], c.in_region, expected, op[p], c.out_region);

  DSP_BUFFER b = record(describe(in, c.in_region, c.in_up), describe(out, c.out_region, c.out_up));
  const DSP_BUFFER before = b;
  ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
  EXPECT_EQ(std::memcmp(&b, &before, sizeof b), 0) << "the caller's record changed";
  EXPECT_TRUE(same_bytes(source, in.data())) << "the input changed";
  EXPECT_TRUE(same_bytes(expected, out.data()));
  EXPECT_TRUE(out.mem->intact()) << out.mem->damage();
}

const GeometryCase kGeometry[] = {
    {"uyvy_whole_frame", 21, 64, 16, 0, {0, 0, 64, 16}, false, 64, 16, 0, {0, 0, 64, 16}, false},
    {"uyvy_region_slack", 21, 72, 20, 24, {6, 3, 40, 9}, false, 90, 30, 8, {20, 12, 40, 9}, false},
    {"yuyv_region_odd_rows",
     25,
     36,
     13,
     4,
     {2, 1, 30, 11},
     false,
     40,
     15,
     0,
     {8, 2, 30, 11},
     false},
    {"bgr24_odd_width", 1, 37, 9, 5, {3, 2, 31, 5}, false, 41, 12, 1, {7, 6, 31, 5}, false},
    {"bgra_region", 0, 33, 10, 12, {1, 1, 17, 8}, false, 20, 9, 0, {3, 0, 17, 8}, false},
    {"y416_region", 129, 20, 6, 8, {2, 1, 10, 4}, false, 16, 8, 0, {4, 3, 10, 4}, false},
    {"key8_region", 261, 50, 7, 3, {4, 0, 22, 7}, false, 30, 9, 0, {6, 1, 22, 7}, false},
    {"uyvy_out_region_past_bottom",
     21,
     32,
     12,
     0,
     {0, 0, 32, 12},
     false,
     32,
     8,
     0,
     {0, 3, 32, 12},
     false},
    {"top_down_to_bottom_up_frame",
     21,
     48,
     10,
     0,
     {0, 0, 48, 10},
     false,
     48,
     10,
     0,
     {0, 0, 48, 10},
     true},
    {"top_down_to_bottom_up_region",
     25,
     60,
     18,
     16,
     {10, 4, 24, 7},
     false,
     44,
     14,
     4,
     {6, 2, 24, 7},
     true},
    {"bottom_up_to_top_down_region",
     1,
     25,
     11,
     3,
     {5, 6, 13, 4},
     true,
     19,
     9,
     0,
     {2, 1, 13, 4},
     false},
    {"bottom_up_to_bottom_up_region",
     21,
     40,
     12,
     8,
     {4, 2, 20, 9},
     true,
     30,
     20,
     2,
     {10, 5, 20, 9},
     true},
    {"bgr24_key_planes", 5, 23, 9, 4, {3, 2, 15, 6}, false, 27, 10, 0, {1, 3, 15, 6}, false},
    {"uyvy_key_planes", 28, 40, 8, 16, {4, 1, 24, 6}, false, 30, 9, 2, {2, 2, 24, 6}, false},
    {"yuyv_key_planes", 30, 34, 7, 0, {0, 0, 34, 7}, false, 34, 7, 6, {0, 0, 34, 7}, false},
    {"uyvy_key_planes_bottom_up_out",
     28,
     36,
     10,
     4,
     {2, 1, 20, 8},
     false,
     24,
     12,
     0,
     {2, 3, 20, 8},
     true},
};
INSTANTIATE_TEST_SUITE_P(Progressive, RegionCopy, ::testing::ValuesIn(kGeometry),
                         [](const auto &info) { return std::string(info.param.name); });

// A source region that reaches past the last line of its image keeps reading that line: the
// source ends against a protected page, so a read past its last byte faults.
TEST(SmartCopyEdges, ClampedLastLineReadsNothingBeyond) {
  for (bool bottom_up : {false, true}) {
    SCOPED_TRACE(bottom_up ? "bottom-up source" : "top-down source");
    std::mt19937 rng(framedsp_test::test_seed());
    Image in(21, 32, 10, 0, 0, 0);
    Image out(21, 32, 12, 0);
    in.randomise(rng);
    const Region ir{16, 7, 16, 6}, orr{0, 2, 16, 6};
    std::vector<uint8_t> expected = out.snapshot();
    model_copy(in.snapshot(), planes(in, bottom_up)[0], ir, expected, planes(out, false)[0], orr);
    DSP_BUFFER b = record(describe(in, ir, bottom_up), describe(out, orr));
    ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
    EXPECT_TRUE(same_bytes(expected, out.data()));
    EXPECT_TRUE(out.mem->intact()) << out.mem->damage();
  }
}

// Regions of different widths pass validation.  Only the narrower width moves: an output region
// wider than the input, at the right edge of the source's last line (the source ends against a
// protected page, margin 0), reads nothing beyond the input region and leaves the rest alone.
TEST(SmartCopyEdges, WiderOutputRegionMovesOnlyTheInputWidth) {
  for (bool convert : {false, true}) {
    SCOPED_TRACE(convert ? "converting pass" : "plain pass");
    Image in(21, 16, 4, 0, 0, 0), out(21, 32, 4, 0);
    std::mt19937 rng(7);
    in.randomise(rng);
    out.randomise(rng);
    const std::vector<uint8_t> before = out.snapshot();
    DSP_BUFFER b = record(describe(in, {8, 0, 8, 4}), describe(out, {4, 0, 24, 4}));
    if (convert) {
      b.In.eColorSpace = DSP_COLOR_SPACE_BT601;
      b.Out.eColorSpace = DSP_COLOR_SPACE_BT709;
    }
    ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
    for (uint32_t row = 0; row < 4; ++row) {
      const uint8_t *dst = out.data() + row * out.stride;
      const uint8_t *src = in.data() + row * in.stride + 16;
      if (!convert) {
        EXPECT_EQ(std::memcmp(dst + 8, src, 16), 0) << "row " << row;
      }
      EXPECT_EQ(std::memcmp(dst, before.data() + row * out.stride, 8), 0) << "row " << row;
      EXPECT_EQ(std::memcmp(dst + 24, before.data() + row * out.stride + 24, 40), 0)
          << "bytes right of the input width changed, row " << row;
    }
    EXPECT_TRUE(out.mem->intact()) << out.mem->damage();
  }
}

TEST(SmartCopyEdges, OddSubsampledWidthIsRefusedQuietly) {
  for (uint32_t format : {21u, 25u, 28u}) {
    Image in(format, 34, 4, 4), out(format, 34, 4, 4);
    std::mt19937 rng(format);
    in.randomise(rng);
    out.randomise(rng);
    const std::vector<uint8_t> before = out.snapshot();
    DSP_BUFFER b = record(describe(in, {0, 0, 33, 4}), describe(out, {0, 0, 33, 4}));
    EXPECT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
    EXPECT_TRUE(same_bytes(before, out.data())) << "format " << format;
  }
}

// Bands: the bands of one copy together equal the whole copy (2 bands over an odd height, the
// last taking the odd line; 4 over an even one).
TEST(SmartCopyEdges, BandsTogetherEqualOneCall) {
  for (uint32_t bands : {2u, 4u}) {
    const uint32_t h = bands == 2 ? 23 : 24;
    std::mt19937 rng(framedsp_test::test_seed());
    Image in(21, 40, h, 8), whole(21, 40, h, 0), banded(21, 40, h, 0);
    in.randomise(rng);
    const Region r{0, 0, 40, h};
    DSP_BUFFER b = record(describe(in, r), describe(whole, r));
    ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
    b.Out = describe(banded, r);
    b.ulSliceCount = bands;
    for (uint32_t n = 1; n <= bands; ++n) {
      b.ulSliceNumber = n;
      ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
    }
    EXPECT_TRUE(same_bytes(whole.snapshot(), banded.data())) << bands << " bands";
  }
}

// ---- fields end to end -------------------------------------------------------------------------

// An interleaved frame gives field A from its even lines and field B from its odd lines (for a
// field buffer described either way); placing both fields into a frame rebuilds the original,
// each placement writing only its own field's lines.
TEST(SmartCopyFields, FrameToFieldsAndBack) {
  constexpr uint32_t kW = 40, kH = 14;
  for (uint32_t field_interlace : {DSP_INTERLACE_PROGRESSIVE, DSP_INTERLACE_INTERLEAVED}) {
    SCOPED_TRACE("field buffers with interlace " + std::to_string(field_interlace));
    std::mt19937 rng(framedsp_test::test_seed());
    Image frame(21, kW, kH, 8), a(21, kW, kH / 2, 4), b(21, kW, kH / 2, 0), rebuilt(21, kW, kH, 2);
    frame.randomise(rng);
    a.randomise(rng);
    b.randomise(rng);
    rebuilt.randomise(rng);
    const DSP_IMAGE whole_frame =
        describe(frame, {0, 0, kW, kH}, 0, 0, DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_INTERLEAVED);
    const DSP_IMAGE field_a =
        describe(a, {0, 0, kW, kH / 2}, 0, 0, DSP_BUFFER_TYPE_FIELD_A, field_interlace);
    const DSP_IMAGE field_b =
        describe(b, {0, 0, kW, kH / 2}, 0, 0, DSP_BUFFER_TYPE_FIELD_B, field_interlace);

    DSP_BUFFER rec = record(whole_frame, field_a);
    ASSERT_EQ(DspBufferSmartCopy(&rec), DSP_S_OK);
    rec = record(whole_frame, field_b);
    ASSERT_EQ(DspBufferSmartCopy(&rec), DSP_S_OK);
    std::vector<uint8_t> expect_a = a.snapshot(), expect_b = b.snapshot();
    for (uint32_t k = 0; k < kH / 2; ++k) {
      std::memcpy(&expect_a[k * a.stride], frame.data() + 2 * k * frame.stride, 2 * kW);
      std::memcpy(&expect_b[k * b.stride], frame.data() + (2 * k + 1) * frame.stride, 2 * kW);
    }
    EXPECT_TRUE(same_bytes(expect_a, a.data())) << "field A";
    EXPECT_TRUE(same_bytes(expect_b, b.data())) << "field B";

    const DSP_IMAGE target =
        describe(rebuilt, {0, 0, kW, kH}, 0, 0, DSP_BUFFER_TYPE_FRAME, DSP_INTERLACE_INTERLEAVED);
    std::vector<uint8_t> expected = rebuilt.snapshot();
    for (uint32_t k = 0; k < kH / 2; ++k) {
      std::memcpy(&expected[2 * k * rebuilt.stride], a.data() + k * a.stride, 2 * kW);
    }
    rec = record(field_a, target);
    ASSERT_EQ(DspBufferSmartCopy(&rec), DSP_S_OK);
    EXPECT_TRUE(same_bytes(expected, rebuilt.data())) << "field A placed: odd lines untouched";
    rec = record(field_b, target);
    ASSERT_EQ(DspBufferSmartCopy(&rec), DSP_S_OK);
    for (uint32_t y = 0; y < kH; ++y) {
      EXPECT_EQ(
          std::memcmp(rebuilt.data() + y * rebuilt.stride, frame.data() + y * frame.stride, 2 * kW),
          0)
          << "frame line " << y;
    }
    for (Image *image : {&a, &b, &rebuilt})
      EXPECT_TRUE(image->mem->intact()) << image->mem->damage();
  }
}

// ---- overlapping source and destination ----------------------------------------------------

// Source and destination regions in one buffer: every line behaves as memmove of that line.
TEST(SmartCopyOverlap, SameBufferMovesLikeMemmove) {
  struct Shift {
    const char *name;
    Region in, out;
  };
  const Shift shifts[] = {
      {"right", {2, 1, 40, 6}, {6, 1, 40, 6}},
      {"left", {10, 2, 36, 5}, {4, 2, 36, 5}},
      {"up", {0, 3, 48, 5}, {0, 1, 48, 5}},
  };
  for (uint32_t space_out : {DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709}) {
    for (const Shift &s : shifts) {
      SCOPED_TRACE(std::string(s.name) +
                   (space_out == DSP_COLOR_SPACE_BT601 ? " plain" : " converting"));
      std::mt19937 rng(framedsp_test::test_seed());
      Image image(21, 48, 9, 6);
      image.randomise(rng);
      // Neutral chroma: the converting pass then leaves every byte as it is, so both passes have
      // the same expected result.
      for (size_t i = 0; i < image.bytes(); i += 2) image.data()[i] = 128;
      const std::vector<uint8_t> original = image.snapshot();
      std::vector<uint8_t> expected = original;
      for (uint32_t r = 0; r < s.out.h; ++r) {
        std::memmove(&expected[size_t(s.out.y + r) * image.stride + 2 * s.out.x],
                     &expected[size_t(s.in.y + r) * image.stride + 2 * s.in.x], 2 * s.out.w);
      }
      DSP_BUFFER b = record(describe(image, s.in, 0, DSP_COLOR_SPACE_BT601),
                            describe(image, s.out, 0, space_out));
      ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
      EXPECT_TRUE(same_bytes(expected, image.data()));
      EXPECT_TRUE(image.mem->intact()) << image.mem->damage();
    }
  }
}

// ---- colour conversion ------------------------------------------------------------------------

struct Luma {
  double kr, kb;
};
constexpr Luma kRec601{0.299, 0.114};
constexpr Luma kRec709{0.2126, 0.0722};

// Limited-range Y'CbCr of one standard to the other through R'G'B', in double.
void convert_pixel(double y, double cb, double cr, Luma from, Luma to, double out[3]) {
  const double yy = (y - 16) / 219, pb = (cb - 128) / 224, pr = (cr - 128) / 224;
  const double r = yy + 2 * (1 - from.kr) * pr, b = yy + 2 * (1 - from.kb) * pb;
  const double g = (yy - from.kr * r - from.kb * b) / (1 - from.kr - from.kb);
  const double y2 = to.kr * r + (1 - to.kr - to.kb) * g + to.kb * b;
  out[0] = 16 + 219 * y2;
  out[1] = 128 + 224 * (b - y2) / (2 * (1 - to.kb));
  out[2] = 128 + 224 * (r - y2) / (2 * (1 - to.kr));
}

double clamp255(double v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

// Expected bytes of one converted 4:2:2 line of `pixels` pixels; (y0, cb, y1, cr) byte positions
// within a 4-byte pair by component order.
void model_convert_line(const uint8_t *src, double *dst, uint32_t pixels, uint32_t format,
                        Luma from, Luma to) {
  const int iy0 = format == 25 ? 0 : 1, icb = format == 25 ? 1 : 0;
  const int iy1 = iy0 + 2, icr = icb + 2;
  for (uint32_t p = 0; p + 1 < pixels; p += 2) {
    const uint8_t *s = src + 2 * p;
    double *d = dst + 2 * p;
    double a[3], b[3];
    convert_pixel(s[iy0], s[icb], s[icr], from, to, a);
    convert_pixel(s[iy1], s[icb], s[icr], from, to, b);
    d[iy0] = clamp255(a[0]);
    d[iy1] = clamp255(b[0]);
    d[icb] = clamp255(a[1]);  // chroma does not depend on Y: a and b agree
    d[icr] = clamp255(a[2]);
  }
}

struct ColorCase {
  const char *name;
  uint32_t format;
  uint32_t in_space, out_space;
  bool out_up;
};
void PrintTo(const ColorCase &c, std::ostream *os) { *os << c.name; }

class ColorCopy : public ::testing::TestWithParam<ColorCase> {};

TEST_P(ColorCopy, MatchesTheFloatingPointConversion) {
  const ColorCase &c = GetParam();
  const Split s = split(c.format);
  std::mt19937 rng(framedsp_test::test_seed());
  Image in(c.format, 50, 12, 6, 3), out(c.format, 60, 14, 2, 1);
  in.randomise(rng);
  out.randomise(rng);
  const Region ir{4, 2, 38, 9}, orr{10, 3, 38, 9};
  const std::vector<uint8_t> source = in.snapshot(), before = out.snapshot();
  // Outside the region: untouched; key plane: a plain copy.
  std::vector<uint8_t> expected = before;
  const auto ip = planes(in, false), op = planes(out, c.out_up);
  if (s.plane) model_copy(source, ip[1], ir, expected, op[1], orr);

  DSP_BUFFER b = record(describe(in, ir, 0, c.in_space), describe(out, orr, c.out_up, c.out_space));
  ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
  EXPECT_TRUE(out.mem->intact()) << out.mem->damage();

  const Luma from = c.in_space == DSP_COLOR_SPACE_BT601 ? kRec601 : kRec709;
  const Luma to = c.out_space == DSP_COLOR_SPACE_BT601 ? kRec601 : kRec709;
  std::vector<double> line(2 * ir.w);
  int worst = 0, changed = 0;
  for (uint32_t r = 0; r < orr.h; ++r) {
    model_convert_line(&source[ip[0].line(ir.y + r) + 2 * ir.x], line.data(), ir.w, s.main, from,
                       to);
    const size_t at = op[0].line(orr.y + r) + 2 * orr.x;
    for (uint32_t i = 0; i < 2 * orr.w; ++i) {
      const int got = out.data()[at + i];
      const int diff = static_cast<int>(std::lround(std::fabs(got - line[i]) * 1000));
      worst = std::max(worst, diff);
      changed += got != source[ip[0].line(ir.y + r) + 2 * ir.x + i];
      expected[at + i] = out.data()[at + i];  // checked here, not by the byte comparison below
    }
  }
  EXPECT_LE(worst, 1000) << "largest difference from the float conversion, in 1/1000";
  EXPECT_GT(changed, 100) << "the conversion left the picture nearly unchanged";
  EXPECT_TRUE(same_bytes(expected, out.data())) << "outside the region or in the key plane";
}

const ColorCase kColorCases[] = {
    {"uyvy_601_to_709", 21, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709, false},
    {"uyvy_709_to_601", 21, DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT601, false},
    {"yuyv_601_to_709", 25, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709, false},
    {"yuyv_709_to_601_bottom_up", 25, DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT601, true},
    {"uyvy_key_601_to_709", 28, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709, false},
    {"yuyv_key_709_to_601", 30, DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT601, false},
};
INSTANTIATE_TEST_SUITE_P(Convert, ColorCopy, ::testing::ValuesIn(kColorCases),
                         [](const auto &info) { return std::string(info.param.name); });

// Pairs without a matrix, and formats that are never converted: the bytes arrive unchanged.
TEST(SmartCopyColor, UnchangedWhereNothingConverts) {
  struct Case {
    uint32_t format, in_space, out_space;
  };
  const Case cases[] = {
      {21, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT601},
      {25, DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT709},
      {21, DSP_COLOR_SPACE_UNSPECIFIED, DSP_COLOR_SPACE_BT709},
      {1, DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT601},
      {1, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709},
      {0, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709},
      {5, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709},
      {261, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709},
      {22, DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709},
      {129, DSP_COLOR_SPACE_BT709, DSP_COLOR_SPACE_BT601},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE("format " + std::to_string(c.format) + " spaces " + std::to_string(c.in_space) +
                 "->" + std::to_string(c.out_space));
    std::mt19937 rng(framedsp_test::test_seed());
    Image in(c.format, 24, 6, 4, 2), out(c.format, 30, 8, 0, 0);
    in.randomise(rng);
    out.randomise(rng);
    const Region ir{2, 1, 20, 5}, orr{6, 2, 20, 5};
    std::vector<uint8_t> expected = out.snapshot();
    const auto ip = planes(in, false), op = planes(out, false);
    for (size_t p = 0; p < ip.size(); ++p)
      model_copy(in.snapshot(), ip[p], ir, expected, op[p], orr);
    DSP_BUFFER b = record(describe(in, ir, 0, c.in_space), describe(out, orr, 0, c.out_space));
    ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
    EXPECT_TRUE(same_bytes(expected, out.data()));
    EXPECT_TRUE(out.mem->intact()) << out.mem->damage();
  }
}

// ---- scalar against SIMD ------------------------------------------------------------------------

class SmartCopyIsa : public ::testing::Test {
 protected:
  ~SmartCopyIsa() override { framedsp::set_cpu_mask(~0u); }
};

TEST_F(SmartCopyIsa, ScalarAndSimdGiveIdenticalBytes) {
  for (uint32_t format : {21u, 25u, 28u, 1u}) {
    for (uint32_t out_space : {DSP_COLOR_SPACE_BT601, DSP_COLOR_SPACE_BT709}) {
      for (uint32_t width : {2u, 6u, 18u, 34u, 66u, 130u}) {
        SCOPED_TRACE("format " + std::to_string(format) + " out space " +
                     std::to_string(out_space) + " width " + std::to_string(width));
        std::mt19937 rng(framedsp_test::test_seed() + width);
        Image in(format, width + 8, 5, 7, 3), scalar(format, width + 4, 5, 1, 1),
            simd(format, width + 4, 5, 1, 1);
        in.randomise(rng);
        // Odd x offsets move the source off 16-byte alignment (formats 1: any byte).
        const Region ir{format == 1 ? 3 : 2, 0, width, 5}, orr{2, 0, width, 5};
        DSP_BUFFER b =
            record(describe(in, ir, 0, DSP_COLOR_SPACE_BT601), describe(scalar, orr, 0, out_space));
        framedsp::set_cpu_mask(0);
        ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
        framedsp::set_cpu_mask(~0u);
        b.Out = describe(simd, orr, 0, out_space);
        ASSERT_EQ(DspBufferSmartCopy(&b), DSP_S_OK);
        EXPECT_TRUE(same_bytes(scalar.snapshot(), simd.data()));
      }
    }
  }
}

// ---- work memory --------------------------------------------------------------------------------

class SmartCopyWorkMemory : public ::testing::Test {
 protected:
  ~SmartCopyWorkMemory() override { framedsp::work_memory_fail_at(0); }

  // Copies 21 or 28 between the given spaces; returns the status and the blocks taken and freed.
  struct Outcome {
    DSP_HRESULT status;
    uint64_t allocated, released;
    bool output_untouched, plane_untouched;
  };
  Outcome run(uint32_t format, uint32_t out_space, uint64_t fail_at) {
    std::mt19937 rng(framedsp_test::test_seed());
    Image in(format, 40, 6, 8), out(format, 40, 6, 0);
    in.randomise(rng);
    out.randomise(rng);
    const std::vector<uint8_t> before = out.snapshot();
    DSP_BUFFER b = record(describe(in, {0, 0, 40, 6}, 0, DSP_COLOR_SPACE_BT601),
                          describe(out, {0, 0, 40, 6}, 0, out_space));
    const framedsp::WorkMemoryStats s0 = framedsp::work_memory_stats();
    framedsp::work_memory_fail_at(fail_at);
    Outcome o;
    o.status = DspBufferSmartCopy(&b);
    framedsp::work_memory_fail_at(0);
    const framedsp::WorkMemoryStats s1 = framedsp::work_memory_stats();
    o.allocated = s1.allocations - s0.allocations;
    o.released = s1.releases - s0.releases;
    o.output_untouched = std::memcmp(before.data(), out.data(), out.main_bytes()) == 0;
    o.plane_untouched = std::memcmp(before.data() + out.main_bytes(), out.data() + out.main_bytes(),
                                    out.bytes() - out.main_bytes()) == 0;
    EXPECT_TRUE(out.mem->intact()) << out.mem->damage();
    return o;
  }
};

TEST_F(SmartCopyWorkMemory, PlainCopyTakesNone) {
  const Outcome o = run(21, DSP_COLOR_SPACE_BT601, 0);
  EXPECT_EQ(o.status, DSP_S_OK);
  EXPECT_EQ(o.allocated, 0u);
  EXPECT_EQ(o.released, 0u);
}

TEST_F(SmartCopyWorkMemory, ConversionTakesOneLineAndFreesIt) {
  for (uint32_t format : {21u, 28u}) {
    const Outcome o = run(format, DSP_COLOR_SPACE_BT709, 0);
    EXPECT_EQ(o.status, DSP_S_OK);
    EXPECT_EQ(o.allocated, 1u) << "format " << format;  // the key plane is moved, not converted
    EXPECT_EQ(o.released, 1u) << "format " << format;
    EXPECT_FALSE(o.output_untouched);
  }
}

TEST_F(SmartCopyWorkMemory, RefusedAllocationFailsTheCopy) {
  for (uint32_t format : {21u, 28u}) {
    const Outcome o = run(format, DSP_COLOR_SPACE_BT709, 1);
    EXPECT_EQ(o.status, DSP_E_FAIL) << "format " << format;
    EXPECT_EQ(o.allocated, 0u);
    EXPECT_EQ(o.released, 0u);
    EXPECT_TRUE(o.output_untouched);
    EXPECT_TRUE(o.plane_untouched) << "the plane was copied after the picture failed";
  }
}

TEST_F(SmartCopyWorkMemory, APendingFailureDoesNotTouchThePlainCopy) {
  const Outcome o = run(28, DSP_COLOR_SPACE_BT601, 1);
  EXPECT_EQ(o.status, DSP_S_OK);
  EXPECT_EQ(o.allocated, 0u);
  EXPECT_FALSE(o.output_untouched);
  EXPECT_FALSE(o.plane_untouched);
}

}  // namespace
