// DspCompare: random images of every accepted format (both planes of the two-plane ones, scalar
// and SIMD, random strides and base alignments) against a per-byte reference written here from
// the header, and zero sizes; and every SIMD comparison kernel against its scalar twin, byte- and
// bit-identical.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "analysis/compare_kernels.h"
#include "platform/cpu.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

// A quiet NaN with a payload nothing computes: a result slot still holding it was not written.
constexpr uint64_t kSentinelBits = 0x7FF8DEADBEEF0001ull;

uint64_t bits_of(double d) {
  uint64_t u;
  std::memcpy(&u, &d, sizeof u);
  return u;
}
double sentinel() {
  double d;
  std::memcpy(&d, &kSentinelBits, sizeof d);
  return d;
}

bool two_plane(uint32_t format) { return format == 5 || format == 28 || format == 30; }
uint32_t picture_format(uint32_t format) { return format == 5 ? 1 : format == 28 ? 21 : format == 30 ? 25 : format; }
size_t line_bytes(uint32_t format, uint32_t width) {
  const uint32_t f = picture_format(format);
  return f == 0 ? 4 * width : f == 1 ? 3 * width : f == 261 ? width : 2 * width;
}
uint32_t channel_mask(uint32_t format) { return two_plane(format) ? 0xF : format == 0 ? 0xF : format == 261 ? 0x8 : 0x7; }

// The documented walk of one line, byte by byte: the difference image and each channel's sum.
void reference_line(uint32_t format, const uint8_t *a, const uint8_t *b, uint8_t *out, size_t bytes, double sum[4]) {
  auto visit = [&](size_t i, int channel) {
    if (i >= bytes) return;  // a trailing partial group has only the bytes that exist
    const int d = a[i] - b[i];
    out[i] = uint8_t(std::min(255, std::max(0, d + 128)));
    sum[channel] += d * d;
  };
  switch (format) {
    case 0: for (size_t i = 0; i < bytes; ++i) visit(i, int(i % 4)); break;
    case 1: for (size_t i = 0; i < bytes; ++i) visit(i, int(i % 3)); break;
    case 21:
      if (bytes >= 2) for (size_t i = 1; i < bytes; i += 2) visit(i, 0);
      for (size_t g = 0; g < bytes; g += 4) visit(g, 1), visit(g + 2, 2);
      break;
    case 25:
      for (size_t i = 0; i < bytes; i += 2) visit(i, 0);
      if (bytes >= 2) for (size_t g = 0; g < bytes; g += 4) visit(g + 1, 1), visit(g + 3, 2);
      break;
    case 261: for (size_t i = 0; i < bytes; ++i) visit(i, 3); break;
  }
}

struct Geometry {
  uint32_t format, width, height, stride, key_stride;
};

// A and B end against a protected page (an over-read faults); the output has canary margins and
// starts with random bytes that must survive outside the lines.
struct Images {
  explicit Images(const Geometry &g, std::mt19937 &rng)
      : g(g), size(bytes_of(g)), a(size, 0), b(size, 0), out(size, 64) {
    for (GuardedBuffer *m : {&a, &b, &out}) framedsp_test::fill_random(m->data(), size, rng);
  }
  static size_t bytes_of(const Geometry &g) {
    const size_t line = line_bytes(g.format, g.width);
    if (!two_plane(g.format)) return g.height ? size_t{g.stride} * (g.height - 1) + line : 0;
    return size_t{g.stride} * g.height + (g.height ? size_t{g.key_stride} * (g.height - 1) + g.width : 0);
  }
  DSP_COMPARE_PARAMS params() {
    DSP_COMPARE_PARAMS p;
    std::memset(&p, 0x3C, sizeof p);  // reserved words hold garbage, as a host may leave them
    p.BufferA.pBuffer = a.data();
    p.BufferB.pBuffer = b.data();
    p.BufferOut.pBuffer = out.data();
    p.ulWidth = g.width;
    p.ulHeight = g.height;
    p.ulPrimaryStrideBytes = g.stride;
    p.ulSecondaryStrideBytes = g.key_stride;
    p.ePixelFormat = g.format;
    for (double &r : p.dResults) r = sentinel();
    return p;
  }
  // The expected difference image and results.
  void expected(std::vector<uint8_t> *image, double results[8]) {
    image->assign(out.data(), out.data() + size);
    for (int i = 0; i < 8; ++i) results[i] = sentinel();
    for (int plane = 0; plane < (two_plane(g.format) ? 2 : 1); ++plane) {
      const uint32_t f = plane ? 261 : picture_format(g.format);
      const size_t start = plane ? size_t{g.stride} * g.height : 0, stride = plane ? g.key_stride : g.stride;
      double sum[4] = {0, 0, 0, 0};
      for (uint32_t y = 0; y < g.height; ++y) {
        const size_t at = start + y * stride;
        reference_line(f, a.data() + at, b.data() + at, image->data() + at, line_bytes(f, g.width), sum);
      }
      const double n = double(g.width) * g.height;
      for (int c = 0; c < 4; ++c) {
        if (!(channel_mask(f) & (1u << c))) continue;
        results[c] = sum[c] / n;
        results[c + 4] = 20.0 * std::log10(255.0 / std::sqrt(results[c] + 0.00001));
      }
    }
  }
  Geometry g;
  size_t size;
  GuardedBuffer a, b, out;
};

const uint32_t kAccepted[] = {0, 1, 5, 21, 25, 28, 30, 261};

class CompareImages : public ::testing::TestWithParam<uint32_t> {};

TEST_P(CompareImages, MatchTheReferenceScalarAndSimd) {
  const uint32_t format = GetParam();
  std::mt19937 rng(framedsp_test::test_seed() + format);
  for (uint32_t width : {1, 2, 3, 5, 7, 8, 15, 16, 17, 31, 33, 37, 42, 45, 97, 161, 720}) {
    for (uint32_t height : {1u, 3u}) {
      const size_t line = line_bytes(format, width);
      const Geometry g{format, width, height, uint32_t(line + (width % 3 ? rng() % 40 : 0)),
                       width + uint32_t(width % 3 ? rng() % 24 : 0)};  // every third one tight
      for (bool simd : {false, true}) {
        framedsp_test::CpuLevel level(simd);
        Images im(g, rng);
        std::vector<uint8_t> want;
        double results[8];
        im.expected(&want, results);
        DSP_COMPARE_PARAMS p = im.params();
        const DSP_COMPARE_PARAMS before = p;
        ASSERT_EQ(DspCompare(&p), DSP_S_OK);
        const std::string what = "width " + std::to_string(width) + " height " + std::to_string(height) +
                                 (simd ? " simd" : " scalar");
        for (int i = 0; i < 8; ++i) {
          EXPECT_EQ(bits_of(results[i]), bits_of(p.dResults[i])) << what << " slot " << i << ": " << p.dResults[i];
        }
        EXPECT_EQ(0, std::memcmp(&before, &p, offsetof(DSP_COMPARE_PARAMS, dResults))) << what;
        EXPECT_EQ(0, std::memcmp(before.ulReserved3, p.ulReserved3, sizeof p.ulReserved3)) << what;
        EXPECT_TRUE(im.out.intact()) << what << ": " << im.out.damage();
        ASSERT_TRUE(framedsp_test::same_line(want.data(), im.out.data(), im.size)) << what;
      }
    }
  }
}

// A zero width or height gives NaN in the slots of the format's channels and writes no pixel.
TEST_P(CompareImages, ZeroSizeGivesNaNAndWritesNothing) {
  const uint32_t format = GetParam();
  std::mt19937 rng(framedsp_test::test_seed());
  const Geometry g{format, 24, 5, uint32_t(line_bytes(format, 24) + 8), 36};
  for (int which = 0; which < 2; ++which) {
    Images im(g, rng);
    const std::vector<uint8_t> before(im.out.data(), im.out.data() + im.size);
    DSP_COMPARE_PARAMS p = im.params();
    (which ? p.ulHeight : p.ulWidth) = 0;
    ASSERT_EQ(DspCompare(&p), DSP_S_OK);
    for (int c = 0; c < 8; ++c) {
      if (!(channel_mask(format) & (1u << (c % 4)))) continue;
      EXPECT_TRUE(std::isnan(p.dResults[c]) && bits_of(p.dResults[c]) != kSentinelBits) << c;
    }
    EXPECT_EQ(0, std::memcmp(before.data(), im.out.data(), im.size));
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, CompareImages, ::testing::ValuesIn(kAccepted),
                         [](const auto &info) { return "format" + std::to_string(info.param); });

// ---- kernels ------------------------------------------------------------------------------------

framedsp::CompareKernelTable table_for(uint32_t flags) {
  framedsp::CompareKernelTable t;
  framedsp::compare_table_init(&t, flags);
  return t;
}

class CompareKernel : public ::testing::TestWithParam<uint32_t> {};

// Runs both kernels over `lines` lines of `len` bytes `stride` apart, each into its own copy of a
// canary-guarded output area (`at` bytes in), and compares the areas and the results bit for bit.
::testing::AssertionResult same_run(framedsp::CompareKernel test, framedsp::CompareKernel reference,
                                    const uint8_t *a, const uint8_t *b, GuardedBuffer &out, size_t at,
                                    uint32_t lines, size_t len, size_t stride) {
  std::memset(out.data(), 0xC3, out.size());
  std::vector<uint8_t> want(out.data(), out.data() + out.size());
  double r_want[8], r_got[8];
  for (int i = 0; i < 8; ++i) r_want[i] = r_got[i] = sentinel();
  reference(a, b, want.data() + at, lines, len, stride, r_want);
  test(a, b, out.data() + at, lines, len, stride, r_got);
  if (!out.intact()) return ::testing::AssertionFailure() << "guard bytes: " << out.damage();
  if (std::memcmp(r_want, r_got, sizeof r_want) != 0) return ::testing::AssertionFailure() << "results differ";
  return framedsp_test::same_line(want.data(), out.data(), out.size());
}

// Every length to 200 at every lead (A and B at different alignments, their lines ending against
// a protected page) and flat lines of every length, several lines with stride slack whose bytes
// must stay, and lines long enough for a lane kept past its flush bound to wrap.
TEST_P(CompareKernel, SimdEqualsScalar) {
  const uint32_t id = GetParam();
  const framedsp::CompareKernel scalar = table_for(0).kernel[id];
  int ran = 0;
  for (uint32_t level : framedsp_test::simd_levels()) {
    const framedsp::CompareKernel simd = table_for(level).kernel[id];
    if (simd == scalar || (level != framedsp::kCpuSSE2 && simd == table_for(framedsp::kCpuSSE2).kernel[id])) continue;
    ++ran;
    SCOPED_TRACE(std::string(framedsp::compare_kernel_name(id)) + " level " + std::to_string(level));
    std::mt19937 rng(framedsp_test::test_seed() + id);
    framedsp_test::for_each_line(200, 60, rng, [&](size_t len, size_t lead, int kind) {
      GuardedBuffer &ga = framedsp_test::scratch(0, len + 15, 0), &gb = framedsp_test::scratch(1, len + 15, 0),
                    &go = framedsp_test::scratch(2, len + 15);
      framedsp_test::fill_line(ga.data(), len + 15, kind, rng);
      framedsp_test::fill_line(gb.data(), len + 15, kind == framedsp_test::kFullLine ? framedsp_test::kZeroLine : kind, rng);
      ASSERT_TRUE(same_run(simd, scalar, ga.data() + 15 - lead, gb.data() + (lead * 5 + 3) % 16, go, (lead * 5 + len) % 16,
                           1, len, len + 7))
          << "len " << len << " lead " << lead << " kind " << kind;
    });
    for (int i = 0; i < 100; ++i) {
      const uint32_t lines = 1 + rng() % 5;
      const size_t len = rng() % 400, stride = len + rng() % 40, span = stride * (lines - 1) + len;
      GuardedBuffer ga(span, 0), gb(span, 0), go(span + 15, 64);
      framedsp_test::fill_line(ga.data(), span, i % 5 == 4 ? framedsp_test::kExtremeLine : 0, rng);
      framedsp_test::fill_line(gb.data(), span, i % 5 == 4 ? framedsp_test::kExtremeLine : 0, rng);
      ASSERT_TRUE(same_run(simd, scalar, ga.data(), gb.data(), go, rng() % 16, lines, len, stride)) << i;
    }
    // 3.5 MiB lines: more than 2^32 / (2 * 255^2) steps of 96 bytes, the longest step.
    const size_t len = 3 * 1024 * 1024 + 512 * 1024 + 37, stride = len + 3;
    GuardedBuffer ga(stride + len, 0), gb(stride + len, 0), go(stride + len, 64);
    std::memset(ga.data(), 255, ga.size());
    std::memset(gb.data(), 0, gb.size());
    EXPECT_TRUE(same_run(simd, scalar, ga.data(), gb.data(), go, 0, 2, len, stride));
  }
  if (framedsp::simd_twins_built() && !framedsp_test::simd_levels().empty()) {
    EXPECT_GT(ran, 0) << "no SIMD kernel: the check tests nothing";
  }
}

INSTANTIATE_TEST_SUITE_P(Kernels, CompareKernel, ::testing::Range(0u, uint32_t{framedsp::kCompareKernelCount}),
                         [](const auto &info) { return std::string(framedsp::compare_kernel_name(info.param)); });

}  // namespace
