// DspSubPixelScaler through the export: copies, shifts, constants, symmetry, fields, bands,
// refusals, scalar = SIMD, work memory.  The engine's kernels meet zimg in test_resample_zimg.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

struct FormatBytes {
  uint32_t format, main, plane;  // bytes a pixel of the picture and of the key plane
};
constexpr FormatBytes kFormats[] = {{0, 4, 0},  {1, 3, 0},  {5, 3, 1},  {21, 2, 0},  {22, 4, 0},
                                    {23, 6, 0}, {24, 2, 0}, {25, 2, 0}, {28, 2, 1},  {30, 2, 1},
                                    {31, 4, 0}, {129, 8, 0}, {261, 1, 0}, {262, 2, 0}, {263, 1, 0}};

// Input and output images of one format in guarded memory, and the record that joins them.
struct Rig {
  FormatBytes f;
  uint32_t w, h, stride, stride2;
  GuardedBuffer in, out;
  DSP_IMAGE in_image{}, out_image{};
  DSP_SUBPIXEL_SCALER_PARAMS p{};

  Rig(FormatBytes fb, uint32_t width, uint32_t height, uint32_t seed = 1)
      : f(fb), w(width), h(height), stride(width * fb.main + 16), stride2(width * fb.plane + 8),
        in(size_t(height) * (stride + stride2)), out(size_t(height) * (stride + stride2), 64, 0x3C) {
    std::mt19937 rng(seed);
    framedsp_test::fill_random(in.data(), in.size(), rng);
    for (DSP_IMAGE *im : {&in_image, &out_image}) {
      *im = DSP_IMAGE{{im == &in_image ? in.data() : out.data(), uint32_t(in.size()), DSP_BUFFER_TYPE_FRAME, {{0, 0}, w, h}},
                      0, w, h, f.format, DSP_INTERLACE_PROGRESSIVE, 0, 0, stride, stride2, 0};
    }
    sync();
  }
  void sync() {
    p.Buffer.In = framedsp_test::fractional(in_image);
    p.Buffer.Out = framedsp_test::fractional(out_image);
  }
  void regions(double ix, double iy, double iw, double ih, double ox, double oy, double ow, double oh) {
    p.Buffer.In.Buffer.Region = {{ix, iy}, iw, ih};
    p.Buffer.Out.Buffer.Region = {{ox, oy}, ow, oh};
  }
  std::vector<uint8_t> output() const { return std::vector<uint8_t>(out.data(), out.data() + out.size()); }
  int32_t run() { return DspSubPixelScaler(&p); }
};

// A region copied by whole equal regions: each line of the picture and of the key plane moved by
// hand (the input is bottom-up).
TEST(SubPixelScaler, WholeEqualRegionsCopy) {
  for (const FormatBytes &f : kFormats) {
    for (uint32_t kernel = 0; kernel < 4; ++kernel) {
      SCOPED_TRACE(testing::Message() << "format " << f.format << " kernel " << kernel);
      Rig r(f, 40, 12);
      r.in_image.eImageOrientation = DSP_ORIENTATION_BOTTOM_UP;
      r.sync();
      r.regions(4, 3, 20, 6, 10, 5, 20, 6);
      r.p.eFilter = kernel;
      std::vector<uint8_t> want = r.output();
      ASSERT_EQ(r.run(), DSP_S_OK);
      const size_t key = size_t(r.h) * r.stride;  // the key plane's first byte
      for (uint32_t y = 0; y < 6; ++y) {
        const size_t from = r.h - 1 - (3 + y), to = 5 + y;
        std::memcpy(&want[to * r.stride + 10 * f.main], &r.in[from * r.stride + 4 * f.main], 20 * f.main);
        std::memcpy(&want[key + to * r.stride2 + 10 * f.plane], &r.in[key + from * r.stride2 + 4 * f.plane],
                    20 * f.plane);
      }
      EXPECT_TRUE(r.output() == want);
      // DspBufferSmartCopy of the same whole regions writes the same bytes over them.
      DSP_BUFFER copy = framedsp_test::buffer_of(r.in_image, r.out_image);
      copy.In.Buffer.Region = {{4, 3}, 20, 6}, copy.Out.Buffer.Region = {{10, 5}, 20, 6};
      ASSERT_EQ(DspBufferSmartCopy(&copy), DSP_S_OK);
      EXPECT_TRUE(r.output() == want);
      EXPECT_TRUE(r.out.intact()) << r.out.damage();
    }
  }
}

// Moving the output region by one unit (a pixel, a 4:2:2 pair, a line) moves every written
// sample by exactly that much, whatever the scale and fraction.
TEST(SubPixelScaler, OutputShiftedByAUnitIsAShiftedCopy) {
  for (const FormatBytes &f : {kFormats[0], kFormats[3], kFormats[12], kFormats[13]}) {
    for (uint32_t kernel = 1; kernel < 4; ++kernel) {
      SCOPED_TRACE(testing::Message() << "format " << f.format << " kernel " << kernel);
      const uint32_t unit = (f.format == 21) ? 2 : 1;
      Rig a(f, 48, 20), b(f, 48, 20);
      a.p.eFilter = b.p.eFilter = kernel;
      a.regions(3.3, 2.7, 29.6, 11.2, 4.25, 1.6, 21.5, 13.3);
      b.regions(3.3, 2.7, 29.6, 11.2, 4.25 + unit, 2.6, 21.5, 13.3);
      a.p.ulCoverage = b.p.ulCoverage = 1;
      ASSERT_EQ(a.run(), DSP_S_OK);
      ASSERT_EQ(b.run(), DSP_S_OK);
      for (uint32_t y = 0; y + 1 < a.h; ++y) {
        const uint8_t *ra = a.out.data() + size_t(y) * a.stride, *rb = b.out.data() + size_t(y + 1) * b.stride;
        ASSERT_EQ(0, std::memcmp(ra, rb + unit * f.main, (a.w - unit) * f.main)) << "line " << y;
      }
    }
  }
}

// A picture whose samples are constant per component stays so: every kernel, edge rule, scale.
TEST(SubPixelScaler, ConstantInConstantOut) {
  for (const FormatBytes &f : {kFormats[1], kFormats[3], kFormats[4], kFormats[8], kFormats[11]}) {
    for (uint32_t kernel = 0; kernel < 4; ++kernel) {
      for (uint32_t edge : {0u, 1u, 3u}) {
        SCOPED_TRACE(testing::Message() << "format " << f.format << " kernel " << kernel << " edge " << edge);
        Rig r(f, 36, 16);
        const bool pairs = f.format == 21 || f.format == 22 || f.format == 28;
        const uint32_t group = pairs ? 2 * f.main : f.main;
        // Per component: the second luma sample of a 4:2:2 group repeats the first.
        auto value = [&](uint32_t x) {
          uint32_t k = x % group;
          if (pairs && k >= group * 3 / 4) k -= group / 2;
          return uint8_t(40 + 23 * k);
        };
        for (uint32_t y = 0; y < r.h; ++y) {
          for (uint32_t x = 0; x < r.w * f.main; ++x) r.in[y * r.stride + x] = value(x);
          for (uint32_t x = 0; x < r.w * f.plane; ++x) r.in[r.h * r.stride + y * r.stride2 + x] = 77;
        }
        r.p.eFilter = kernel;
        r.p.ulEdgeMode = edge;
        r.p.ulAntiRingingQ8 = 128;
        r.regions(-2.4, 3.3, 40.7, 7.1, 1.5, 0.75, 31.0, 14.5);
        ASSERT_EQ(r.run(), DSP_S_OK);
        size_t written = 0;
        for (size_t i = 0; i < r.out.size(); ++i) {
          const bool key = i >= r.h * r.stride, picture = !key && i % r.stride < r.w * f.main;
          if (r.out[i] == 0x3C || !(key || picture)) continue;
          written += picture;
          ASSERT_EQ(r.out[i], key ? 77 : value(i % r.stride)) << "byte " << i;
        }
        EXPECT_GT(written, size_t(r.w * f.main));
        EXPECT_TRUE(r.out.intact()) << r.out.damage();
      }
    }
  }
}

// A mirrored picture with mirrored regions gives the mirrored output.
TEST(SubPixelScaler, MirrorSymmetry) {
  for (uint32_t kernel = 0; kernel < 4; ++kernel) {
    Rig a(kFormats[12], 32, 6), b(kFormats[12], 32, 6);
    for (uint32_t y = 0; y < a.h; ++y) {
      for (uint32_t x = 0; x < a.w; ++x) b.in[y * b.stride + x] = a.in[y * a.stride + (a.w - 1 - x)];
    }
    a.p.eFilter = b.p.eFilter = kernel;
    a.p.ulEdgeMode = b.p.ulEdgeMode = DSP_SUBPIXEL_EDGE_MIRROR;
    a.regions(2.3, 0, 21.9, 6, 1.7, 0, 27.1, 6);
    b.regions(32 - 2.3 - 21.9, 0, 21.9, 6, 32 - 1.7 - 27.1, 0, 27.1, 6);
    ASSERT_EQ(a.run(), DSP_S_OK);
    ASSERT_EQ(b.run(), DSP_S_OK);
    for (uint32_t i = 0; i < a.h * a.stride; ++i) {
      if (i % a.stride >= a.w) continue;
      ASSERT_EQ(a.out[i], b.out[i - i % a.stride + a.w - 1 - i % a.stride]) << kernel;
    }
  }
}

// Interleaved frames: a ramp panned and scaled by fractions comes out as the ramp at every
// sample's true place, lines of both fields (no bob) at their heights, within one rounding step.
TEST(SubPixelScaler, FieldsSampledAtTheirTrueLines) {
  Rig r(kFormats[12], 16, 64);
  for (uint32_t y = 0; y < r.h; ++y)
    for (uint32_t x = 0; x < r.w; ++x) r.in[y * r.stride + x] = uint8_t(20 + 3 * y + 2 * x);
  for (DSP_IMAGE *im : {&r.in_image, &r.out_image}) im->eInterlace = DSP_INTERLACE_INTERLEAVED;
  r.sync();
  r.p.eFilter = DSP_SUBPIXEL_FILTER_LINEAR;
  r.regions(1.25, 10.3, 13.5, 36.6, 0, 2, 16, 55);
  ASSERT_EQ(r.run(), DSP_S_OK);
  for (uint32_t y = 2; y < 57; ++y)
    for (uint32_t x = 0; x < 16; ++x) {
      const double sy = 10.3 + (y + 0.5 - 2) * 36.6 / 55 - 0.5, sx = 1.25 + (x + 0.5) * 13.5 / 16 - 0.5;
      ASSERT_NEAR(r.out[y * r.stride + x], 20 + 3 * sy + 2 * sx, 1.0) << "line " << y << " column " << x;
    }
}

TEST(SubPixelScaler, BandsStagedAndScalarEqualOneCall) {
  for (const FormatBytes &f : {kFormats[2], kFormats[3], kFormats[5], kFormats[13]}) {
    for (uint32_t interlace : {DSP_INTERLACE_PROGRESSIVE, DSP_INTERLACE_INTERLEAVED_1}) {
      SCOPED_TRACE(testing::Message() << "format " << f.format << " interlace " << interlace);
      auto setup = [&](Rig &r) {
        for (DSP_IMAGE *im : {&r.in_image, &r.out_image}) im->eInterlace = interlace;
        r.out_image.eImageOrientation = DSP_ORIENTATION_BOTTOM_UP;  // written rows below the top: negative offsets
        r.sync();
        r.p.eFilter = DSP_SUBPIXEL_FILTER_CUBIC;
        r.p.ulCoverage = 1;
        r.p.ulAntiRingingQ8 = 200;
        r.p.ulEdgeMode = DSP_SUBPIXEL_EDGE_FILL;
        r.p.ulFillColor = 0x10801080;
        r.regions(-3.2, 1.9, 44.5, 30.1, 2.6, 1.3, 35.1, 25.9);
      };
      Rig one(f, 40, 30), banded(f, 40, 30), staged(f, 40, 30), scalar(f, 40, 30);
      for (Rig *r : {&one, &banded, &staged, &scalar}) setup(*r);
      staged.p.ulOptions = DSP_SCALER_OPTION_STAGED;
      banded.p.ulSliceCount = 3;
      for (banded.p.ulSliceNumber = 1; banded.p.ulSliceNumber <= 3; ++banded.p.ulSliceNumber) ASSERT_EQ(banded.run(), 0);
      ASSERT_EQ(one.run() | staged.run(), DSP_S_OK);
      framedsp::set_cpu_mask(0);  // scalar kernels only
      const int32_t hr = scalar.run();
      framedsp::set_cpu_mask(~0u);
      ASSERT_EQ(hr, DSP_S_OK);
      for (Rig *r : {&banded, &staged, &scalar}) EXPECT_TRUE(r->output() == one.output() && r->out.intact());
    }
  }
}

// The filtered worker: with both directions off it is the plain worker; on, it low-passes.
TEST(SubPixelScaler, FilteredWorkerFoldsTheLowPass) {
  DSP_FIR_SETTINGS off{7, 100, 0, 7, 100}, on{7, 30, 0, 5, 40};
  Rig plain(kFormats[3], 40, 20), a(kFormats[3], 40, 20), b(kFormats[3], 40, 20);
  for (Rig *r : {&plain, &a, &b}) {
    r->p.eFilter = DSP_SUBPIXEL_FILTER_LANCZOS3;
    r->regions(1.5, 2.25, 30.5, 14.5, 0, 0, 40, 20);
    r->p.eFilterType = DSP_FILTER_TYPE_FIR;
  }
  a.p.ulOptions = b.p.ulOptions = DSP_SCALER_OPTION_FILTERED;
  a.p.pSettings = &off;
  b.p.pSettings = &on;
  ASSERT_EQ(plain.run() | a.run() | b.run(), DSP_S_OK);
  EXPECT_TRUE(a.output() == plain.output());
  auto roughness = [](Rig &r) {  // differences between neighbouring luma samples
    long sum = 0;
    for (uint32_t i = 1; i + 2 < r.h * r.stride; i += 2) sum += std::abs(r.out[i] - r.out[i + 2]);
    return sum;
  };
  EXPECT_LT(roughness(b) * 2, roughness(plain));
  b.p.pSettings = nullptr;
  EXPECT_EQ(b.run(), DSP_E_INVALIDARG);
}

TEST(SubPixelScaler, RefusalsWriteNothingAndReleaseWorkMemory) {
  struct Case {
    const char *what;
    void (*edit)(Rig &);
    int32_t status;
  } cases[] = {
      {"filter", [](Rig &r) { r.p.eFilter = 4; }, DSP_E_INVALIDARG},
      {"edge", [](Rig &r) { r.p.ulEdgeMode = 4; }, DSP_E_INVALIDARG},
      {"field mode", [](Rig &r) { r.p.ulFieldMode = 2; }, DSP_E_INVALIDARG},
      {"anti-ringing", [](Rig &r) { r.p.ulAntiRingingQ8 = 257; }, DSP_E_INVALIDARG},
      {"reserved", [](Rig &r) { r.p.ulReserved2[8] = 1; }, DSP_E_INVALIDARG},
      {"option bit", [](Rig &r) { r.p.ulOptions = 4; }, DSP_E_INVALIDARG},
      {"band", [](Rig &r) { r.p.ulSliceCount = 2, r.p.ulSliceNumber = 3; }, DSP_E_INVALIDARG},
      {"NaN", [](Rig &r) { r.p.Buffer.In.Buffer.Region.ulWidth = std::numeric_limits<double>::quiet_NaN(); }, DSP_E_INVALIDARG},
      {"infinite", [](Rig &r) { r.p.Buffer.Out.Buffer.Region.ptOffset.y = std::numeric_limits<double>::infinity(); }, DSP_E_INVALIDARG},
      {"negative", [](Rig &r) { r.p.Buffer.Out.Buffer.Region.ulHeight = -4; }, DSP_E_INVALIDARG},
      {"derived zero", [](Rig &r) { r.p.ulScaleFlags = 1, r.p.fVerticalScale = 0; }, DSP_E_INVALIDARG},
      {"format", [](Rig &r) { r.p.Buffer.Out.ePixelFormat = 25; }, DSP_E_INVALIDARG},
      {"odd width", [](Rig &r) { r.p.Buffer.In.ulWidth = 23; }, DSP_E_INVALIDARG},
      {"interlace 3", [](Rig &r) { r.p.Buffer.Out.eInterlace = 3; }, DSP_E_INVALIDARG},
      {"too many taps", [](Rig &r) { r.p.Buffer.In.Buffer.Region.ulWidth = 4000, r.p.eFilter = 3; }, DSP_E_INVALIDARG},
      {"null image", [](Rig &r) { r.p.Buffer.Out.Buffer.pBuffer = nullptr; }, DSP_E_POINTER},
      {"out of memory", [](Rig &) { framedsp::work_memory_fail_at(2); }, DSP_E_OUTOFMEMORY},
  };
  for (const Case &c : cases) {
    Rig r(kFormats[3], 24, 8);
    r.p.eFilter = DSP_SUBPIXEL_FILTER_CUBIC;
    r.regions(0.5, 0.5, 20, 6, 0.25, 0.25, 23, 7);
    c.edit(r);
    const auto before = framedsp::work_memory_stats();
    const std::vector<uint8_t> out = r.output();
    EXPECT_EQ(r.run(), c.status) << c.what;
    framedsp::work_memory_fail_at(0);
    const auto after = framedsp::work_memory_stats();
    EXPECT_TRUE(r.output() == out && r.out.intact()) << c.what;
    EXPECT_EQ(after.allocations - before.allocations, after.releases - before.releases) << c.what;
  }
}

}  // namespace
