// Box filter: whole planes through box_filter_plane() and DspFilter against a brute-force window
// average written here (per-component sample lists, clamped windows, the same 2^23 rounding), and
// every SIMD row and line kernel against its scalar twin.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "filter/box_filter.h"
#include "filter/filter_planes.h"
#include "frame/cpu.h"
#include "frame/work_memory.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

struct Layout {
  uint32_t format;
  uint32_t bpp;
  uint32_t cls;
  uint32_t group;       // samples per repeating group
  int ids[4];           // component of each sample of a group
};

// Sample order within a group, written from the byte layouts (not from the kernels' strides).
const Layout kLayouts[] = {
    {21, 2, 0, 4, {0, 1, 2, 1}},  {24, 2, 1, 4, {0, 1, 2, 2}},  {25, 2, 2, 4, {0, 1, 0, 2}},
    {17, 4, 3, 4, {0, 1, 2, 3}},  {1, 3, 4, 3, {0, 1, 2, 0}},   {0, 4, 5, 4, {0, 1, 2, 3}},
    {261, 1, 6, 1, {0, 0, 0, 0}}, {22, 4, 7, 4, {0, 1, 2, 1}},  {23, 6, 9, 3, {0, 1, 2, 0}},
    {129, 8, 10, 4, {0, 1, 2, 3}},
};
const Layout &layout(uint32_t format) {
  for (const Layout &l : kLayouts) {
    if (l.format == format) return l;
  }
  return kLayouts[0];
}

uint32_t sample_at(const uint8_t *p, size_t k, bool wide) {
  return wide ? p[2 * k] | (uint32_t{p[2 * k + 1]} << 8) : p[k];
}

// Brute-force average of a horizontal line of column sums, one component at a time.
void reference_line(const std::vector<uint64_t> &col, const Layout &l, bool wide, uint32_t nh,
                    uint32_t nv, uint8_t *dst) {
  const uint32_t r = static_cast<uint32_t>(8388608.0 / (double(nh) * nv) + 0.5);
  const int bh = int(nh / 2), ah = int(nh) - int(nh / 2) - 1;
  for (int c = 0; c < 4; ++c) {
    std::vector<size_t> pos;
    for (size_t k = 0; k < col.size(); ++k) {
      if (l.ids[k % l.group] == c) pos.push_back(k);
    }
    const int m = int(pos.size());
    for (int i = 0; i < m; ++i) {
      uint64_t s = 0;
      for (int j = i - bh; j <= i + ah; ++j) s += col[pos[std::clamp(j, 0, m - 1)]];
      const uint64_t v = std::min<uint64_t>((s * r + 4194304) >> 23, wide ? 65535 : 255);
      if (wide) {
        dst[2 * pos[i]] = uint8_t(v);
        dst[2 * pos[i] + 1] = uint8_t(v >> 8);
      } else {
        dst[pos[i]] = uint8_t(v);
      }
    }
  }
}

// An image pair with identical geometry on both sides; region given in memory rows.
struct Plane {
  uint32_t format, width, height, stride;
  uint32_t x0, y0, w, h;
  uint32_t interlace = 2;    // 2 progressive, 0 interleaved fields
  uint32_t orientation = 0;  // 1 bottom-up
  uint32_t slices = 1, slice = 1;
};

class Images {
 public:
  Images(const Plane &p, uint32_t seed)
      : p_(p), bytes_(size_t{p.stride} * p.height), src_(bytes_, 0), dst_(bytes_, 64) {
    std::mt19937 rng(seed);
    framedsp_test::fill_random(src_.data(), bytes_, rng);
    framedsp_test::fill_random(dst_.data(), bytes_, rng);
    original_.assign(dst_.data(), dst_.data() + bytes_);
  }
  uint8_t *src() { return src_.data(); }
  uint8_t *dst() { return dst_.data(); }
  const std::vector<uint8_t> &original() const { return original_; }
  size_t bytes() const { return bytes_; }
  bool intact() const { return dst_.intact(); }

  DSP_BUFFER record() {
    DSP_BUFFER b{};
    side(&b.In, src_.data());
    side(&b.Out, dst_.data());
    b.ulSliceCount = p_.slices;
    b.ulSliceNumber = p_.slice;
    return b;
  }

  // The expected destination: the region replaced by the brute-force average of the source.
  std::vector<uint8_t> expected(uint32_t nh, uint32_t nv) const {
    const Layout &l = layout(p_.format);
    const bool wide = l.cls >= 7;
    const size_t sb = wide ? 2 : 1;
    const size_t n = size_t{p_.w} * l.bpp / sb;
    const int s = p_.interlace == 0 ? 2 : 1;
    const int down = p_.orientation == 1 ? -s : s;  // memory rows per picture line down
    const int bv = int(nv / 2), av = int(nv) - int(nv / 2) - 1;
    const int hgt = int(p_.height);
    std::vector<uint8_t> out = original_;
    for (int r = int(p_.y0); r < int(p_.y0 + p_.h); ++r) {
      const int lo = r % s, hi = r + (hgt - 1 - r) / s * s;
      std::vector<uint64_t> col(n, 0);
      for (int j = -bv; j <= av; ++j) {
        const int row = std::clamp(r + j * down, lo, hi);
        const uint8_t *line = src_.data() + size_t(row) * p_.stride + size_t{p_.x0} * l.bpp;
        for (size_t k = 0; k < n; ++k) col[k] += sample_at(line, k, wide);
      }
      reference_line(col, l, wide, nh, nv, out.data() + size_t(r) * p_.stride + size_t{p_.x0} * l.bpp);
    }
    return out;
  }

 private:
  void side(DSP_IMAGE *im, uint8_t *data) const {
    im->Buffer.pBuffer = data;
    im->Buffer.ulBytes = uint32_t(bytes_);
    im->Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
    im->Buffer.Region.ptOffset.x = int32_t(p_.x0);
    im->Buffer.Region.ptOffset.y = int32_t(p_.y0);
    im->Buffer.Region.ulWidth = p_.w;
    im->Buffer.Region.ulHeight = p_.h;
    im->ulWidth = p_.width;
    im->ulHeight = p_.height;
    im->ePixelFormat = p_.format;
    im->eInterlace = p_.interlace;
    im->eImageOrientation = p_.orientation;
    im->ulPrimaryStrideBytes = p_.stride;
  }

  Plane p_;
  size_t bytes_;
  GuardedBuffer src_;  // ends against the protected page: an over-read faults
  GuardedBuffer dst_;  // canaries on both sides
  std::vector<uint8_t> original_;
};

// The ISAs whose kernels a test compares with the scalar ones: each mask selects that ISA's
// kernels over the narrower ones.  Only ISAs both built and present are returned.
struct Isa {
  const char *name;
  uint32_t mask;
};
std::vector<Isa> simd_isas() {
  std::vector<Isa> out;
  const uint32_t have = framedsp::box_isas_built() & framedsp::cpu_flags();
  if (have & framedsp::kCpuSSE2) out.push_back({"sse2", framedsp::kCpuSSE2});
  if ((have & framedsp::kCpuSSE2) && (have & framedsp::kCpuAVX2)) {
    out.push_back({"avx2", framedsp::kCpuSSE2 | framedsp::kCpuAVX2});
  }
  return out;
}

Plane plane(uint32_t format, uint32_t width, uint32_t height, uint32_t x0, uint32_t y0, uint32_t w,
            uint32_t h) {
  return Plane{format, width, height, width * layout(format).bpp, x0, y0, w, h};
}

void expect_box(Plane p, uint32_t nh, uint32_t nv, uint32_t seed) {
  Images im(p, seed ^ framedsp_test::test_seed());
  const DSP_BUFFER b = im.record();
  ASSERT_EQ(framedsp::box_filter_plane(b, nh, nv), DSP_S_OK);
  const std::vector<uint8_t> want = im.expected(nh, nv);
  ASSERT_TRUE(im.intact());
  ASSERT_EQ(0, std::memcmp(want.data(), im.dst(), im.bytes()))
      << "format " << p.format << " size " << nh << "x" << nv << " interlace " << p.interlace
      << " orientation " << p.orientation << " seed " << (seed ^ framedsp_test::test_seed()) << "\n"
      << framedsp_test::hex_diff(want.data(), im.dst(), im.bytes());
}


TEST(BoxFilter, EverySizeEachWayAndBoth) {
  for (uint32_t n = 1; n <= 256; ++n) {
    SCOPED_TRACE(n);
    expect_box(plane(261, 37, 3, 5, 0, 32, 3), n, 1, n);  // region reaches the image's last byte
    expect_box(plane(21, 20, 2, 2, 1, 18, 1), n, 1, n + 1000);
    Plane p = plane(261, 6, 41, 1, 5, 5, 36);
    p.orientation = n & 1;
    expect_box(p, 1, n, n);
    p.interlace = 0;
    expect_box(p, 1, n, n + 2000);
    expect_box(plane(261, 13, 11, 2, 1, 11, 10), n, 257 - n, n);
    expect_box(plane(0, 7, 9, 0, 2, 7, 7), (n * 37) % 256 + 1, n, n + 3000);
  }
}

// Every layout class, orientation and field mode under every ISA mask (scalar, SSE2, AVX2); regions
// at the image's corner and regions of whole lines (direct stores); long lines and many lines.
TEST(BoxFilter, EveryLayoutClassOrientationFieldModeAndIsa) {
  std::vector<uint32_t> masks = {0u};
  for (const Isa &isa : simd_isas()) masks.push_back(isa.mask);
  const uint32_t sizes[][2] = {{5, 3}, {4, 6}, {1, 7}, {8, 1}, {2, 2}, {31, 17}, {256, 3}, {2, 256}};
  for (uint32_t mask : masks) {
    framedsp::set_cpu_mask(mask);
    for (const Layout &l : kLayouts) {
      for (uint32_t orientation = 0; orientation < 2; ++orientation) {
        for (uint32_t interlace : {2u, 0u}) {
          for (const auto &sz : sizes) {
            SCOPED_TRACE(::testing::Message() << "mask " << mask << " format " << l.format);
            Plane p = plane(l.format, 24, 14, 4, 3, 18, 11);  // bottom-right corner of the image
            p.orientation = orientation;
            p.interlace = interlace;
            expect_box(p, sz[0], sz[1], l.format * 7 + sz[0]);
            if (interlace == 2 && orientation == 0) expect_box(plane(l.format, 96, 9, 0, 0, 96, 9), sz[0], sz[1], sz[1]);
          }
        }
      }
    }
  }
  framedsp::set_cpu_mask(~0u);
  expect_box(plane(261, 5000, 3, 0, 0, 5000, 3), 255, 3, 1);
  expect_box(plane(129, 1500, 2, 3, 0, 1496, 2), 256, 2, 2);
  expect_box(plane(23, 1200, 2, 0, 0, 1200, 2), 77, 1, 3);
  expect_box(plane(261, 4, 700, 0, 0, 4, 700), 3, 256, 4);
  Plane p = plane(22, 4, 600, 0, 10, 4, 580);
  p.interlace = 0;
  expect_box(p, 2, 101, 5);
}

// Fields stored one after the other: each half is its own field, and the window clamps at the
// half it started in.
TEST(BoxFilter, StackedFieldsKeepToTheirHalf) {
  for (uint32_t orientation = 0; orientation < 2; ++orientation) {
    Plane p = plane(261, 8, 12, 0, 0, 8, 12);
    p.interlace = 3;
    p.orientation = orientation;
    Images im(p, 1);
    std::memset(im.src(), 20, 6 * 8);
    std::memset(im.src() + 6 * 8, 240, 6 * 8);
    ASSERT_EQ(framedsp::box_filter_plane(im.record(), 3, 9), DSP_S_OK);
    EXPECT_EQ(0, std::memcmp(im.src(), im.dst(), im.bytes())) << orientation;
  }
}

// 146 x 245 samples of 255: R = trunc(2^23 / 35770 + 0.5) = 235 rounds up far enough for the
// scaled sum to reach 256, which the 8-bit classes clamp; the 16-bit classes clamp at 65535.
TEST(BoxFilter, RoundedUpReciprocalIsClamped) {
  EXPECT_EQ(framedsp::box_reciprocal(1, 1), 8388608u);
  EXPECT_EQ(framedsp::box_reciprocal(3, 1), 2796203u);  // 2796202.67
  EXPECT_EQ(framedsp::box_reciprocal(256, 256), 128u);
  EXPECT_EQ(framedsp::box_reciprocal(7, 9), 133153u);  // 133152.51
  ASSERT_EQ(framedsp::box_reciprocal(146, 245), 235u);
  for (uint32_t format : {261u, 22u}) {
    Images im(plane(format, 4, 3, 0, 0, 4, 3), 1);
    std::memset(im.src(), 255, im.bytes());
    ASSERT_EQ(framedsp::box_filter_plane(im.record(), 146, 245), DSP_S_OK);
    EXPECT_EQ(0, std::memcmp(im.src(), im.dst(), im.bytes())) << format;
  }
}

TEST(BoxFilter, WorkMemoryFailureLeavesTheOutputAlone) {
  Plane p = plane(0, 16, 8, 0, 0, 16, 8);
  Images im(p, 3);
  framedsp_test::expect_released_on_every_failure([&] { return framedsp::box_filter_plane(im.record(), 3, 3); });
  Images fresh(p, 4);
  framedsp::work_memory_fail_at(1);
  EXPECT_EQ(framedsp::box_filter_plane(fresh.record(), 3, 3), DSP_E_OUTOFMEMORY);
  framedsp::work_memory_fail_at(0);
  EXPECT_EQ(0, std::memcmp(fresh.original().data(), fresh.dst(), fresh.bytes()));
}

// 16-bit classes average whole words; 32-bit products would wrap above 511.
TEST(BoxFilterKernels, WideClassesAverageWholeWordsAndClamp) {
  for (uint32_t cls : {7u, 8u, 9u, 10u, 11u}) {
    const size_t n = 48;
    std::vector<uint32_t> sums(n, 60000u * 256);
    std::vector<uint8_t> out(2 * n, 0);
    // 256 x 256 window of 60000: R = 128, 60000 * 65536 * 128 >> 23 = 60000
    framedsp::box_horz_kernel(cls)(sums.data(), out.data(), n, framedsp::BoxWindow{128, 127, 128});
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(out[2 * i] | (out[2 * i + 1] << 8), 60000) << cls;
  }
  std::mt19937 rng(framedsp_test::test_seed());
  std::vector<uint32_t> sums(300);
  std::vector<uint64_t> col(300);
  for (size_t i = 0; i < sums.size(); ++i) col[i] = sums[i] = rng() & 0xFFFF;
  std::vector<uint8_t> got(600), want(600);
  const Layout one{262, 2, 11, 1, {0, 0, 0, 0}}, yuyv16{31, 4, 8, 4, {0, 1, 0, 2}};
  framedsp::box_horz_kernel(11)(sums.data(), got.data(), 300, framedsp::BoxWindow{3, 3, framedsp::box_reciprocal(7, 1)});
  reference_line(col, one, true, 7, 1, want.data());
  EXPECT_EQ(got, want);
  framedsp::box_horz_kernel(8)(sums.data(), got.data(), 300, framedsp::BoxWindow{2, 1, framedsp::box_reciprocal(4, 1)});
  reference_line(col, yuyv16, true, 4, 1, want.data());
  EXPECT_EQ(got, want);
  EXPECT_EQ(framedsp::box_horz_kernel(12), nullptr);
}

// Every SIMD row step (add, subtract, and the combined move acc - leaving + entering) of every ISA
// against its scalar twin, and the scalar move against a subtract then an add: lengths 0..300 and
// long ones, row offsets 0..15, random, all-0 and all-255 rows ending against the protected page,
// sums that wrap.
TEST(BoxFilterKernels, SimdRowStepsMatchScalar) {
  framedsp::BoxRowKernels c{};
  framedsp::box_row_table_init(&c, 0);
  std::mt19937 rng(framedsp_test::test_seed());
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 300; ++n) lengths.push_back(n);
  for (size_t n : {1023u, 1920u, 4099u}) lengths.push_back(n);
  for (const Isa &isa : simd_isas()) {
    framedsp::BoxRowKernels s{}, narrower{};
    framedsp::box_row_table_init(&s, isa.mask);
    framedsp::box_row_table_init(&narrower, isa.mask == framedsp::kCpuSSE2 ? 0u : framedsp::kCpuSSE2);
    for (int wide = 0; wide < 2; ++wide) {
      const size_t bytes = wide ? 2 : 1;
      const auto add_c = wide ? c.add_u16 : c.add_u8, sub_c = wide ? c.sub_u16 : c.sub_u8;
      const auto add_s = wide ? s.add_u16 : s.add_u8, sub_s = wide ? s.sub_u16 : s.sub_u8;
      const auto move_c = wide ? c.move_u16 : c.move_u8, move_s = wide ? s.move_u16 : s.move_u8;
      ASSERT_NE(add_s, wide ? narrower.add_u16 : narrower.add_u8) << "no " << isa.name << " row step selected";
      ASSERT_NE(move_s, wide ? narrower.move_u16 : narrower.move_u8) << "no " << isa.name << " move selected";
      for (size_t n : lengths) {
        GuardedBuffer leave_mem(n * bytes + 15, 0), enter_mem(n * bytes + 15, 0);  // end at the page
        for (size_t off = 0; off < 16; off += (n > 64 ? 5 : 1)) {
          for (int kind = 0; kind < 3; ++kind) {
            uint8_t *const leave = leave_mem.data() + (15 - off), *const enter = enter_mem.data() + (15 - off);
            for (size_t i = 0; i < n * bytes; ++i) {
              leave[i] = kind == 1 ? 255 : kind == 2 ? 0 : static_cast<uint8_t>(rng());
              enter[i] = kind == 1 ? 0 : kind == 2 ? 255 : static_cast<uint8_t>(rng());
            }
            std::vector<uint32_t> a(n + 1);
            for (uint32_t &v : a) v = kind == 1 ? 0xFFFF0000u : kind == 2 ? 0xFFFFFFFFu : rng();
            const std::vector<uint32_t> start = a;
            std::vector<uint32_t> b = a, r = a;
            add_c(a.data(), enter, n);
            add_s(b.data(), enter, n);
            sub_c(a.data(), leave, n);
            sub_s(b.data(), leave, n);
            ASSERT_EQ(a, b) << isa.name << " add/sub wide " << wide << " n " << n << " off " << off << " kind " << kind;
            move_c(r.data(), leave, enter, n);
            ASSERT_EQ(a, r) << "scalar move differs from add then subtract, n " << n;
            b = start;
            move_s(b.data(), leave, enter, n);
            ASSERT_EQ(r, b) << isa.name << " move wide " << wide << " n " << n << " off " << off << " kind " << kind;
          }
        }
      }
    }
  }
}

// Whole calls: the caller's record (picture-top offsets) through DspFilter.
DSP_HRESULT dsp_box(DSP_BUFFER b, uint32_t h, uint32_t v, uint32_t options = 0) {
  const DSP_BOX_SETTINGS settings{h, 0xDEADBEEFu, v};
  DSP_FILTER_PARAMS params{};
  params.eFilterType = DSP_FILTER_TYPE_BOX;
  params.pSettings = &settings;
  params.Buffer = b;
  params.ulOptions = options;
  return DspFilter(&params);
}

TEST(BoxFilterExport, WholeCallsMatchTheReference) {
  for (uint32_t orientation = 0; orientation < 2; ++orientation) {
    for (uint32_t options : {0u, DSP_FILTER_OPTION_TEMP_FRAME}) {
      for (uint32_t format : {21u, 0u, 261u, 129u}) {
        Plane p = plane(format, 30, 20, 2, 3, 26, 14);  // y0: memory row of the region's top
        p.orientation = orientation;
        Images im(p, format + 10 * orientation);
        DSP_BUFFER b = im.record();
        if (orientation == 1) {  // the caller counts from the picture's top
          b.In.Buffer.Region.ptOffset.y = b.Out.Buffer.Region.ptOffset.y = int32_t(20 - 14 - 3);
        }
        ASSERT_EQ(dsp_box(b, 7, 4, options), DSP_S_OK);
        const std::vector<uint8_t> want = im.expected(7, 4);
        EXPECT_TRUE(im.intact());
        EXPECT_EQ(0, std::memcmp(want.data(), im.dst(), im.bytes()))
            << "format " << format << " orientation " << orientation << " options " << options << "\n"
            << framedsp_test::hex_diff(want.data(), im.dst(), im.bytes());
      }
    }
  }
}

TEST(BoxFilterExport, SizeZeroSwitchesADirectionOff) {
  Plane p = plane(25, 16, 12, 0, 0, 16, 12);
  p.interlace = 0;
  Images a(p, 5);
  ASSERT_EQ(dsp_box(a.record(), 0, 6), DSP_S_OK);
  std::vector<uint8_t> want = a.expected(1, 6);
  EXPECT_EQ(0, std::memcmp(want.data(), a.dst(), a.bytes()));
  Images b(p, 6);
  ASSERT_EQ(dsp_box(b.record(), 9, 0), DSP_S_OK);
  want = b.expected(9, 1);
  EXPECT_EQ(0, std::memcmp(want.data(), b.dst(), b.bytes()));
  Images c(p, 7);
  EXPECT_EQ(dsp_box(c.record(), 257, 3), DSP_E_INVALIDARG);
  EXPECT_EQ(0, std::memcmp(c.original().data(), c.dst(), c.bytes()));
}

DSP_BUFFER buffer_of(const framedsp_test::Pic &in, const framedsp_test::Pic &out) {
  DSP_BUFFER b{};
  b.In = in.image();
  b.Out = out.image();
  return b;
}

// Format 28: the 4:2:2 picture and its key plane each filter as their own format.
TEST(BoxFilterExport, TwoPlaneFormatFiltersEachPlaneAsItsOwnFormat) {
  using framedsp_test::Pic;
  std::mt19937 rng(framedsp_test::test_seed());
  Pic in(28, 12, 8), out(28, 12, 8), main_in(21, 12, 8), key_in(261, 12, 8), main_out(main_in), key_out(key_in);
  in.randomise(rng);
  for (uint32_t y = 0; y < 8; ++y) {
    std::memcpy(main_in.row(y), in.row(y), 24);
    std::memcpy(key_in.row(y), in.row(y, true), 12);
  }
  ASSERT_EQ(dsp_box(buffer_of(in, out), 3, 5), DSP_S_OK);
  ASSERT_EQ(dsp_box(buffer_of(main_in, main_out), 3, 5), DSP_S_OK);
  ASSERT_EQ(dsp_box(buffer_of(key_in, key_out), 3, 5), DSP_S_OK);
  EXPECT_TRUE(out.mem->intact());
  for (uint32_t y = 0; y < 8; ++y) {
    EXPECT_EQ(0, std::memcmp(out.row(y), main_out.row(y), 24)) << y;
    EXPECT_EQ(0, std::memcmp(out.row(y, true), key_out.row(y), 12)) << y;
    EXPECT_NE(0, std::memcmp(out.row(y, true), in.row(y, true), 12)) << "key row " << y << " not filtered";
  }
}

// The SIMD horizontal passes of the four-sample-group classes (0, 2, 3, 5), each ISA against the
// scalar kernel of the class: every line length 0..300 and long lines, every lead 0..15 (sums and
// destination both shifted), random windows 1..256 with wrapping random sums, full-scale sums
// under the largest windows, small windows, and alternating 0 / full-scale columns.  The sums are
// only read (their padding may be written), the destination's bytes outside the line keep their
// fill, and the sums' buffer ends against a protected page.
class BoxHorzSimd : public ::testing::TestWithParam<std::tuple<uint32_t, int>> {};

TEST_P(BoxHorzSimd, MatchesScalarOnEveryLengthLeadAndWindow) {
  const uint32_t cls = std::get<0>(GetParam());
  const std::vector<Isa> isas = simd_isas();
  const size_t which = static_cast<size_t>(std::get<1>(GetParam()));
  if (which >= isas.size()) GTEST_SKIP() << "ISA not built or not present";
  const Isa isa = isas[which];
  const framedsp::BoxHorzKernel c = framedsp::box_horz_kernel(cls);
  const framedsp::BoxHorzKernel s = framedsp::box_horz_kernel(cls, isa.mask);
  const framedsp::BoxHorzKernel narrower =
      framedsp::box_horz_kernel(cls, isa.mask == framedsp::kCpuSSE2 ? 0u : framedsp::kCpuSSE2);
  ASSERT_NE(s, narrower) << "class " << cls << ": no " << isa.name << " kernel selected";
  ASSERT_EQ(c, framedsp::box_horz_kernel(cls, 0)) << "a zero mask must give the scalar kernel";

  std::mt19937 rng(framedsp_test::test_seed() + 5 + cls);
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 300; ++n) lengths.push_back(n);
  for (size_t n : {1024u, 3840u, 7680u, 7683u}) lengths.push_back(n);
  const size_t pad = framedsp::kBoxPad;
  for (size_t n : lengths) {
    // One set of buffers per length, for the largest lead: the sums' padding ends against the
    // protected page, the destinations carry canaries.
    const size_t words = 2 * pad + 15 + n;
    GuardedBuffer sums_mem(words * 4, 16, 0x5C);
    GuardedBuffer a(n + 15, 16, 0xAB), b(n + 15, 16, 0xAB);
    for (size_t lead = 0; lead < 16; lead += (n > 300 ? 7 : 1)) {
      for (int mode = 0; mode < 4; ++mode) {
        uint32_t nh = 1 + rng() % 256, nv = 1 + rng() % 256;
        if (mode == 1) nh = 256 - rng() % 8;
        if (mode == 2) {
          nh = 1 + rng() % 8;
          nv = 1 + rng() % 4;
        }
        const framedsp::BoxWindow w{framedsp::box_before(nh), framedsp::box_after(nh),
                                    framedsp::box_reciprocal(nh, nv)};
        uint32_t *const sums = reinterpret_cast<uint32_t *>(sums_mem.data()) + pad + lead;
        for (size_t i = 0; i < n; ++i) {
          const uint32_t full = 255u * nv;
          sums[i] = mode == 0 ? rng() : mode == 1 ? full : mode == 2 ? (rng() % 256) * nv
                                                                     : ((rng() & 1) ? full : 0u);
        }
        const std::vector<uint32_t> before(sums, sums + n);
        std::memset(a.data(), 0xAB, a.size());
        std::memset(b.data(), 0xAB, b.size());
        c(sums, a.data() + lead, n, w);
        s(sums, b.data() + lead, n, w);
        ASSERT_TRUE(std::memcmp(a.data(), b.data(), a.size()) == 0)
            << isa.name << " class " << cls << " n " << n << " lead " << lead << " nh " << nh << " nv " << nv
            << " mode " << mode << "\n" << framedsp_test::hex_diff(a.data(), b.data(), a.size());
        ASSERT_TRUE(b.intact()) << b.damage();
        ASSERT_TRUE(sums_mem.intact()) << sums_mem.damage();
        ASSERT_TRUE(std::equal(before.begin(), before.end(), sums)) << "sums changed, n " << n;
        for (size_t i = 0; i < lead; ++i) ASSERT_EQ(b[i], 0xAB) << "lead byte " << i << " written";
        for (size_t i = lead + n; i < b.size(); ++i) ASSERT_EQ(b[i], 0xAB) << "byte " << i << " past the line written";
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(GroupClasses, BoxHorzSimd,
                         ::testing::Combine(::testing::Values(0u, 2u, 3u, 5u), ::testing::Values(0, 1)),
                         [](const ::testing::TestParamInfo<std::tuple<uint32_t, int>> &info) {
                           return "class" + std::to_string(std::get<0>(info.param)) +
                                  (std::get<1>(info.param) == 0 ? "_sse2" : "_avx2");
                         });

}  // namespace
