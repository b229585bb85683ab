// DspCompare through the export: random images of every accepted format (both planes of the
// two-plane ones, scalar and SIMD, every base alignment) against a per-byte reference written
// here, the known answers at the extremes, and the degenerate sizes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "frame/cpu.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

// A quiet NaN with a payload nothing computes: a result slot still holding it was not written.
constexpr uint64_t kSentinelBits = 0x7FF8DEADBEEF0001ull;

double sentinel() {
  double d;
  std::memcpy(&d, &kSentinelBits, sizeof d);
  return d;
}

uint64_t bits_of(double d) {
  uint64_t u;
  std::memcpy(&u, &d, sizeof u);
  return u;
}

class CpuMaskScope {
 public:
  explicit CpuMaskScope(uint32_t mask) { framedsp::set_cpu_mask(mask); }
  ~CpuMaskScope() { framedsp::set_cpu_mask(~0u); }
};

// ---- reference ---------------------------------------------------------------------------------

struct Plain {
  uint32_t format;  // one-plane format
  size_t bytes;     // per line
  uint32_t pixel_bytes;
};

Plain plain_of(uint32_t format, uint32_t width) {
  switch (format) {
    case 0: return {0, size_t{width} * 4, 4};
    case 1: return {1, size_t{width} * 3, 3};
    case 21: return {21, size_t{width} * 2 / 2 * 2, 2};
    case 25: return {25, size_t{width} * 2 / 2 * 2, 2};
    case 261: return {261, size_t{width}, 1};
  }
  ADD_FAILURE() << "no plain layout for " << format;
  return {format, 0, 1};
}

// The documented walk, byte by byte, the sums in double as the interface describes them.
void reference_line(uint32_t format, const uint8_t *a, const uint8_t *b, uint8_t *out,
                    size_t bytes, double sum[4]) {
  auto visit = [&](size_t i, int channel) {
    if (i >= bytes) return;  // a trailing partial group has only the bytes that exist
    const int32_t d = int32_t{a[i]} - int32_t{b[i]};
    const int32_t v = d + 128;
    out[i] = static_cast<uint8_t>(v >= 255 ? 255 : (v <= 0 ? 0 : v));
    const int32_t square = d * d;
    sum[channel] += square;
  };
  const size_t groups4 = (bytes + 3) / 4;
  switch (format) {
    case 0:
      for (size_t g = 0; g < groups4; ++g) {
        for (int k = 0; k < 4; ++k) visit(4 * g + k, k);
      }
      break;
    case 1:
      for (size_t g = 0; g < (bytes + 2) / 3; ++g) {
        for (int k = 0; k < 3; ++k) visit(3 * g + k, k);
      }
      break;
    case 21:
      if (bytes >= 2) {
        for (size_t i = 1; i < bytes; i += 2) visit(i, 0);
      }
      for (size_t g = 0; g < groups4; ++g) {
        visit(4 * g, 1);
        visit(4 * g + 2, 2);
      }
      break;
    case 25:
      for (size_t i = 0; i < bytes; i += 2) visit(i, 0);
      if (bytes >= 2) {
        for (size_t g = 0; g < groups4; ++g) {
          visit(4 * g + 1, 1);
          visit(4 * g + 3, 2);
        }
      }
      break;
    case 261: {
      size_t i = 0;
      for (; bytes - i >= 4; i += 4) {
        for (int k = 0; k < 4; ++k) visit(i + k, 3);
      }
      for (; i < bytes; ++i) visit(i, 3);
      break;
    }
  }
}

uint32_t channel_mask(uint32_t plain_format) {
  return plain_format == 0 ? 0xF : (plain_format == 261 ? 0x8 : 0x7);
}

// One plane: the expected difference image (written into `out`, a copy of the output buffer) and
// the results of its channels.
void reference_plane(uint32_t format, uint32_t width, uint32_t height, size_t stride,
                     const uint8_t *a, const uint8_t *b, uint8_t *out, double results[8]) {
  const Plain p = plain_of(format, width);
  double sum[4] = {0, 0, 0, 0};
  for (uint32_t y = 0; y < height; ++y) {
    reference_line(format, a + y * stride, b + y * stride, out + y * stride, p.bytes, sum);
  }
  const double n = static_cast<double>(p.bytes / p.pixel_bytes) * height;
  for (int c = 0; c < 4; ++c) {
    if (!(channel_mask(format) & (1u << c))) continue;
    const double mse = sum[c] / n;
    results[c] = mse;
    results[c + 4] = 20.0 * std::log10(255.0 / std::sqrt(mse + 0.00001));
  }
}

// ---- images ------------------------------------------------------------------------------------

struct Geometry {
  uint32_t format;
  uint32_t width;
  uint32_t height;
  uint32_t stride;      // >= bytes per line of the picture
  uint32_t key_stride;  // two-plane formats: >= width
};

bool two_plane(uint32_t format) { return format == 5 || format == 28 || format == 30; }

uint32_t colour_of(uint32_t format) {
  switch (format) {
    case 5: return 1;
    case 28: return 21;
    case 30: return 25;
  }
  return format;
}

// Bytes from pBuffer to the end of the last line of the last plane.
size_t image_bytes(const Geometry &g) {
  const size_t line = plain_of(colour_of(g.format), g.width).bytes;
  if (!two_plane(g.format)) return g.height ? size_t{g.stride} * (g.height - 1) + line : 0;
  return size_t{g.stride} * g.height +
         (g.height ? size_t{g.key_stride} * (g.height - 1) + g.width : 0);
}

std::string describe(const Geometry &g) {
  std::ostringstream s;
  s << "format " << g.format << " " << g.width << "x" << g.height << " stride " << g.stride
    << " key stride " << g.key_stride << " seed " << framedsp_test::test_seed();
  return s.str();
}

// A and B end against a protected page (an over-read faults); the output has canary margins and
// starts filled with random bytes that must survive outside the lines.
struct Images {
  explicit Images(const Geometry &g)
      : geometry(g), size(image_bytes(g)), a(size, 0), b(size, 0), out(size, 64) {}

  DSP_COMPARE_PARAMS params() {
    DSP_COMPARE_PARAMS p;
    std::memset(&p, 0x3C, sizeof p);  // reserved words hold garbage, as a host may leave them
    p.BufferA.pBuffer = a.data();
    p.BufferB.pBuffer = b.data();
    p.BufferOut.pBuffer = out.data();
    p.BufferA.ulBytes = p.BufferB.ulBytes = p.BufferOut.ulBytes = static_cast<uint32_t>(size);
    p.ulWidth = geometry.width;
    p.ulHeight = geometry.height;
    p.ulImageBytes = static_cast<uint32_t>(size);
    p.ulPrimaryStrideBytes = geometry.stride;
    p.ulSecondaryStrideBytes = geometry.key_stride;
    p.ePixelFormat = geometry.format;
    for (double &r : p.dResults) r = sentinel();
    return p;
  }

  Geometry geometry;
  size_t size;
  GuardedBuffer a, b, out;
};

void expected_for(Images &im, std::vector<uint8_t> *out, double results[8]) {
  const Geometry &g = im.geometry;
  out->assign(im.out.data(), im.out.data() + im.size);
  for (int i = 0; i < 8; ++i) results[i] = sentinel();
  const uint32_t colour = colour_of(g.format);
  reference_plane(colour, g.width, g.height, g.stride, im.a.data(), im.b.data(), out->data(),
                  results);
  if (two_plane(g.format)) {
    const size_t key = size_t{g.stride} * g.height;
    double key_results[8];
    reference_plane(261, g.width, g.height, g.key_stride, im.a.data() + key, im.b.data() + key,
                    out->data() + key, key_results);
    results[3] = key_results[3];
    results[7] = key_results[7];
  }
}

::testing::AssertionResult results_equal(const double expected[8], const double got[8]) {
  for (int i = 0; i < 8; ++i) {
    if (bits_of(expected[i]) != bits_of(got[i])) {
      return ::testing::AssertionFailure()
             << "dResults[" << i << "]: expected " << expected[i] << " (0x" << std::hex
             << bits_of(expected[i]) << ") got " << got[i] << " (0x" << bits_of(got[i]) << ")"
             << std::dec;
    }
  }
  return ::testing::AssertionSuccess();
}

// Runs DspCompare on the images and checks everything against the reference.
void check_against_reference(Images &im, const std::string &what) {
  std::vector<uint8_t> expected_out;
  double expected[8];
  expected_for(im, &expected_out, expected);
  DSP_COMPARE_PARAMS p = im.params();
  const DSP_COMPARE_PARAMS before = p;
  ASSERT_EQ(DspCompare(&p), DSP_S_OK) << what;
  EXPECT_TRUE(results_equal(expected, p.dResults)) << what;
  for (int i = 0; i < 8; ++i) {
    if (std::isnan(expected[i])) continue;  // the bit comparison above covers NaN slots
    EXPECT_EQ(expected[i], p.dResults[i]) << what << " slot " << i;
  }
  EXPECT_EQ(0, std::memcmp(&before, &p, offsetof(DSP_COMPARE_PARAMS, dResults)))
      << what << ": record changed outside dResults";
  EXPECT_EQ(0, std::memcmp(before.ulReserved3, p.ulReserved3, sizeof p.ulReserved3)) << what;
  EXPECT_TRUE(im.out.intact()) << what << ": " << im.out.damage();
  EXPECT_EQ(0, std::memcmp(expected_out.data(), im.out.data(), im.size))
      << what << "\n" << framedsp_test::hex_diff(expected_out.data(), im.out.data(), im.size);
}

void fill_images(Images &im, std::mt19937 &rng) {
  framedsp_test::fill_random(im.a.data(), im.size, rng);
  framedsp_test::fill_random(im.b.data(), im.size, rng);
  framedsp_test::fill_random(im.out.data(), im.size, rng);
}

const uint32_t kAccepted[] = {0, 1, 5, 21, 25, 28, 30, 261};

// ---- random images -----------------------------------------------------------------------------

class CompareRandom : public ::testing::TestWithParam<uint32_t> {};

TEST_P(CompareRandom, MatchesPerByteReference) {
  const uint32_t format = GetParam();
  std::mt19937 rng(framedsp_test::test_seed() + format);
  const uint32_t widths[] = {1, 2, 3, 5, 6, 7, 8, 15, 16, 17, 31, 33, 64, 97, 161, 720};
  const uint32_t heights[] = {1, 2, 3, 7};
  for (uint32_t width : widths) {
    for (uint32_t height : heights) {
      const size_t line = plain_of(colour_of(format), width).bytes;
      Geometry g{format, width, height, static_cast<uint32_t>(line + rng() % 40),
                 width + static_cast<uint32_t>(rng() % 24)};
      for (uint32_t mask : {0u, ~0u}) {  // scalar only, then every ISA the CPU has
        CpuMaskScope scope(mask);
        Images im(g);
        fill_images(im, rng);
        check_against_reference(im, describe(g) + (mask ? " best ISA" : " scalar"));
      }
    }
  }
}

TEST_P(CompareRandom, OffsetBasesAndTightStride) {
  // Base addresses at every alignment (the images are placed at the end of their mappings, so
  // the size decides it) with no slack between lines.
  const uint32_t format = GetParam();
  std::mt19937 rng(framedsp_test::test_seed() ^ (format * 2654435761u));
  for (uint32_t width = 30; width < 46; ++width) {
    const size_t line = plain_of(colour_of(format), width).bytes;
    Geometry g{format, width, 3, static_cast<uint32_t>(line), width};
    Images im(g);
    fill_images(im, rng);
    check_against_reference(im, describe(g));
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, CompareRandom, ::testing::ValuesIn(kAccepted),
                         [](const ::testing::TestParamInfo<uint32_t> &info) {
                           return "format" + std::to_string(info.param);
                         });

// ---- known answers -----------------------------------------------------------------------------

Geometry small_geometry(uint32_t format) {
  const size_t line = plain_of(colour_of(format), 24).bytes;
  return Geometry{format, 24, 5, static_cast<uint32_t>(line + 8), 24 + 12};
}

// Bytes of the lines (both planes), for filling and checking the pictures only.
template <class F>
void for_each_line_byte(const Geometry &g, F f) {
  const size_t line = plain_of(colour_of(g.format), g.width).bytes;
  for (uint32_t y = 0; y < g.height; ++y) {
    for (size_t x = 0; x < line; ++x) f(size_t{y} * g.stride + x, false);
  }
  if (!two_plane(g.format)) return;
  const size_t key = size_t{g.stride} * g.height;
  for (uint32_t y = 0; y < g.height; ++y) {
    for (size_t x = 0; x < g.width; ++x) f(key + size_t{y} * g.key_stride + x, true);
  }
}

TEST(CompareKnownAnswers, IdenticalImagesGiveMidGreyAndZeroError) {
  const double psnr = 20.0 * std::log10(255.0 / std::sqrt(0.00001));
  EXPECT_NEAR(psnr, 98.13, 0.005);
  for (uint32_t format : kAccepted) {
    const Geometry g = small_geometry(format);
    Images im(g);
    std::mt19937 rng(framedsp_test::test_seed());
    framedsp_test::fill_random(im.a.data(), im.size, rng);
    std::memcpy(im.b.data(), im.a.data(), im.size);
    std::memset(im.out.data(), 0x11, im.size);
    DSP_COMPARE_PARAMS p = im.params();
    ASSERT_EQ(DspCompare(&p), DSP_S_OK);
    const uint32_t mask = two_plane(format) ? 0xF : channel_mask(format);
    for (int c = 0; c < 4; ++c) {
      if (mask & (1u << c)) {
        EXPECT_EQ(p.dResults[c], 0.0) << "format " << format << " channel " << c;
        EXPECT_EQ(p.dResults[c + 4], psnr) << "format " << format << " channel " << c;
      } else {
        EXPECT_EQ(bits_of(p.dResults[c]), kSentinelBits) << "format " << format << " slot " << c;
        EXPECT_EQ(bits_of(p.dResults[c + 4]), kSentinelBits) << "format " << format;
      }
    }
    size_t bad = 0;
    for_each_line_byte(g, [&](size_t i, bool) { bad += im.out[i] != 128; });
    EXPECT_EQ(bad, 0u) << "format " << format;
  }
}

TEST(CompareKnownAnswers, OppositeExtremesClamp) {
  for (uint32_t format : kAccepted) {
    for (int a_value : {255, 0}) {
      const Geometry g = small_geometry(format);
      Images im(g);
      std::memset(im.a.data(), a_value, im.size);
      std::memset(im.b.data(), 255 - a_value, im.size);
      DSP_COMPARE_PARAMS p = im.params();
      ASSERT_EQ(DspCompare(&p), DSP_S_OK);
      const uint8_t want = a_value == 255 ? 255 : 0;  // 383 and -127 clamped
      size_t bad = 0;
      for_each_line_byte(g, [&](size_t i, bool) { bad += im.out[i] != want; });
      EXPECT_EQ(bad, 0u) << "format " << format << " a " << a_value;
      // Every sample differs by 255.  4:2:2 chroma has half the samples over the full pixel count.
      const bool half = colour_of(format) == 21 || colour_of(format) == 25;
      const uint32_t mask = two_plane(format) ? 0xF : channel_mask(format);
      for (int c = 0; c < 4; ++c) {
        if (!(mask & (1u << c))) continue;
        const double mse = (half && (c == 1 || c == 2)) ? 32512.5 : 65025.0;
        EXPECT_EQ(p.dResults[c], mse) << "format " << format << " channel " << c;
        EXPECT_EQ(p.dResults[c + 4], 20.0 * std::log10(255.0 / std::sqrt(mse + 0.00001)));
      }
    }
  }
}

// ---- degenerate sizes (the refusals are rows of the export validation table) -------------------

TEST(CompareFrame, ZeroWidthOrHeightGivesNaNAndWritesNoPixel) {
  for (uint32_t format : kAccepted) {
    for (int which = 0; which < 2; ++which) {
      Geometry g = small_geometry(format);
      Images im(g);  // sized for the full geometry; the call gets a zero dimension
      std::mt19937 rng(framedsp_test::test_seed());
      fill_images(im, rng);
      const std::vector<uint8_t> out_before(im.out.data(), im.out.data() + im.size);
      DSP_COMPARE_PARAMS p = im.params();
      (which ? p.ulHeight : p.ulWidth) = 0;
      ASSERT_EQ(DspCompare(&p), DSP_S_OK);
      const uint32_t mask = two_plane(format) ? 0xF : channel_mask(format);
      for (int c = 0; c < 4; ++c) {
        if (!(mask & (1u << c))) continue;
        EXPECT_TRUE(std::isnan(p.dResults[c])) << "format " << format << " channel " << c;
        EXPECT_NE(bits_of(p.dResults[c]), kSentinelBits) << "format " << format;
        EXPECT_TRUE(std::isnan(p.dResults[c + 4])) << "format " << format << " channel " << c;
      }
      EXPECT_EQ(0, std::memcmp(out_before.data(), im.out.data(), im.size)) << "format " << format;
    }
  }
}

}  // namespace
