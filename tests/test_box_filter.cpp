// Box filter: whole planes through box_filter_plane() against a brute-force window average
// written here (per-component sample lists, clamped windows, the same 2^23 rounding).
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
#include "platform/cpu.h"
#include "platform/work_memory.h"
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

TEST(BoxFilter, EverySizeHorizontally) {
  for (uint32_t n = 1; n <= 256; ++n) {
    SCOPED_TRACE(n);
    expect_box(plane(261, 37, 3, 5, 0, 32, 3), n, 1, n);  // region reaches the image's last byte
    expect_box(plane(21, 20, 2, 2, 1, 18, 1), n, 1, n + 1000);
  }
}

TEST(BoxFilter, EverySizeVertically) {
  for (uint32_t n = 1; n <= 256; ++n) {
    SCOPED_TRACE(n);
    Plane p = plane(261, 6, 41, 1, 5, 5, 36);
    p.orientation = n & 1;
    expect_box(p, 1, n, n);
    p.interlace = 0;
    expect_box(p, 1, n, n + 2000);
  }
}

TEST(BoxFilter, EverySizeBothWays) {
  for (uint32_t n = 1; n <= 256; ++n) {
    SCOPED_TRACE(n);
    expect_box(plane(261, 13, 11, 2, 1, 11, 10), n, 257 - n, n);
    expect_box(plane(0, 7, 9, 0, 2, 7, 7), (n * 37) % 256 + 1, n, n + 3000);
  }
}

TEST(BoxFilter, EveryLayoutClassOrientationAndFieldMode) {
  const uint32_t sizes[][2] = {{5, 3}, {4, 6}, {1, 7}, {8, 1}, {2, 2}, {31, 17}};
  for (const Layout &l : kLayouts) {
    for (uint32_t orientation = 0; orientation < 2; ++orientation) {
      for (uint32_t interlace : {2u, 0u}) {
        for (const auto &sz : sizes) {
          Plane p = plane(l.format, 24, 14, 4, 3, 18, 11);  // bottom-right corner of the image
          p.orientation = orientation;
          p.interlace = interlace;
          expect_box(p, sz[0], sz[1], l.format * 7 + sz[0]);
        }
      }
    }
  }
}

TEST(BoxFilter, LongLinesAndManyLinesKeepTheRunningSums) {
  expect_box(plane(261, 5000, 3, 0, 0, 5000, 3), 255, 3, 1);
  expect_box(plane(129, 1500, 2, 3, 0, 1496, 2), 256, 2, 2);
  expect_box(plane(23, 1200, 2, 0, 0, 1200, 2), 77, 1, 3);
  expect_box(plane(261, 4, 700, 0, 0, 4, 700), 3, 256, 4);
  Plane p = plane(22, 4, 600, 0, 10, 4, 580);
  p.interlace = 0;
  expect_box(p, 2, 101, 5);
}

// Constant components stay constant: any mixing of components would move them.
TEST(BoxFilter, ComponentsAreAveragedSeparately) {
  struct Case {
    uint32_t format;
    std::vector<uint8_t> group;
  } cases[] = {{21, {10, 200, 50, 200}}, {24, {10, 50, 200, 200}}, {25, {200, 10, 200, 50}},
               {1, {1, 128, 254}},       {0, {9, 99, 199, 255}},    {22, {10, 0, 200, 3, 50, 0, 200, 3}}};
  for (const Case &c : cases) {
    Plane p = plane(c.format, 16, 6, 0, 0, 16, 6);
    Images im(p, 1);
    for (size_t i = 0; i < im.bytes(); ++i) im.src()[i] = c.group[i % c.group.size()];
    ASSERT_EQ(framedsp::box_filter_plane(im.record(), 9, 5), DSP_S_OK);
    ASSERT_EQ(0, std::memcmp(im.src(), im.dst(), im.bytes())) << "format " << c.format;
  }
}

// Hand-checked: R(3) = 2796203, R(2) = 4194304.
TEST(BoxFilter, LineEndsRepeatTheEndSample) {
  Plane p = plane(261, 6, 1, 0, 0, 6, 1);
  Images im(p, 1);
  const uint8_t line[6] = {30, 0, 0, 0, 0, 90};
  std::memcpy(im.src(), line, 6);
  ASSERT_EQ(framedsp::box_filter_plane(im.record(), 3, 1), DSP_S_OK);
  const uint8_t want3[6] = {20, 10, 0, 0, 30, 60};
  EXPECT_EQ(0, std::memcmp(want3, im.dst(), 6)) << framedsp_test::hex_diff(want3, im.dst(), 6);
  // An even window reaches one sample further left: (x[i-1] + x[i]) / 2, rounded half up.
  ASSERT_EQ(framedsp::box_filter_plane(im.record(), 2, 1), DSP_S_OK);
  const uint8_t want2[6] = {30, 15, 0, 0, 0, 45};
  EXPECT_EQ(0, std::memcmp(want2, im.dst(), 6)) << framedsp_test::hex_diff(want2, im.dst(), 6);
}

// The vertical window reads image rows above the region, and rows clamp at the image, not at
// the region.
TEST(BoxFilter, VerticalWindowUsesImageRowsOutsideTheRegion) {
  Plane p = plane(261, 4, 12, 0, 4, 4, 4);
  Images im(p, 1);
  std::memset(im.src(), 0, im.bytes());
  std::memset(im.src() + 3 * 4, 255, 4);   // row 3, just above the region
  std::memset(im.src() + 11 * 4, 90, 4);   // last image row, two below the region
  ASSERT_EQ(framedsp::box_filter_plane(im.record(), 1, 3), DSP_S_OK);
  EXPECT_EQ(im.dst()[4 * 4], 85);  // rows 3, 4, 5
  EXPECT_EQ(im.dst()[5 * 4], 0);
  EXPECT_EQ(im.dst()[7 * 4], 0);
  ASSERT_EQ(framedsp::box_filter_plane(im.record(), 1, 9), DSP_S_OK);
  // Row 7: rows 3..11 -> (255 + 90) / 9 = 38.3
  EXPECT_EQ(im.dst()[7 * 4], 38);
  // Top rows clamp to row 0: region at the top, row 0 = 90, vertical 5 at row 0 -> 3 * 90 / 5.
  Plane q = plane(261, 4, 6, 0, 0, 4, 2);
  Images top(q, 2);
  std::memset(top.src(), 0, top.bytes());
  std::memset(top.src(), 90, 4);
  ASSERT_EQ(framedsp::box_filter_plane(top.record(), 1, 5), DSP_S_OK);
  EXPECT_EQ(top.dst()[0], 54);
  EXPECT_EQ(top.dst()[4], 36);  // row 1: rows -1 (as 0), 0, 1, 2, 3
}

TEST(BoxFilter, FieldsAreNeverMixed) {
  for (uint32_t orientation = 0; orientation < 2; ++orientation) {
    Plane p = plane(261, 8, 10, 0, 0, 8, 10);
    p.interlace = 0;
    p.orientation = orientation;
    Images im(p, 1);
    for (uint32_t r = 0; r < 10; ++r) std::memset(im.src() + r * 8, r % 2 ? 255 : 0, 8);
    ASSERT_EQ(framedsp::box_filter_plane(im.record(), 3, 7), DSP_S_OK);
    EXPECT_EQ(0, std::memcmp(im.src(), im.dst(), im.bytes()));
  }
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
// scaled sum to reach 256, which the 8-bit classes clamp.  The 16-bit classes clamp likewise at
// 65535 (65670 unclamped).
TEST(BoxFilter, RoundedUpReciprocalIsClamped) {
  ASSERT_EQ(framedsp::box_reciprocal(146, 245), 235u);
  Plane p = plane(261, 4, 3, 0, 0, 4, 3);
  Images im(p, 1);
  std::memset(im.src(), 255, im.bytes());
  ASSERT_EQ(framedsp::box_filter_plane(im.record(), 146, 245), DSP_S_OK);
  EXPECT_EQ(0, std::memcmp(im.src(), im.dst(), im.bytes()));
  Plane q = plane(22, 4, 3, 0, 0, 4, 3);
  Images wide(q, 1);
  std::memset(wide.src(), 255, wide.bytes());
  ASSERT_EQ(framedsp::box_filter_plane(wide.record(), 146, 245), DSP_S_OK);
  EXPECT_EQ(0, std::memcmp(wide.src(), wide.dst(), wide.bytes()));
}

TEST(BoxFilter, BandsTogetherEqualOneCallAndStayInTheirBand) {
  for (uint32_t interlace : {2u, 0u}) {
    Plane p = plane(25, 12, 24, 2, 2, 10, 18);  // 18 lines: three equal bands
    p.interlace = interlace;
    Images whole(p, 7);
    ASSERT_EQ(framedsp::box_filter_plane(whole.record(), 5, 9), DSP_S_OK);
    Images banded(p, 7);
    size_t changed_total = 0;
    for (uint32_t s = 1; s <= 3; ++s) {
      DSP_BUFFER b = banded.record();
      b.ulSliceCount = 3;
      b.ulSliceNumber = s;
      std::vector<uint8_t> before(banded.dst(), banded.dst() + banded.bytes());
      ASSERT_EQ(framedsp::box_filter_plane(b, 5, 9), DSP_S_OK);
      size_t changed = 0;
      for (size_t r = 0; r < 24; ++r) {
        changed += std::memcmp(before.data() + r * p.stride, banded.dst() + r * p.stride, p.stride) != 0;
      }
      EXPECT_GT(changed, 0u);
      EXPECT_LT(changed, 18u);
      changed_total += changed;
    }
    EXPECT_EQ(changed_total, 18u);
    EXPECT_EQ(0, std::memcmp(whole.dst(), banded.dst(), whole.bytes()));
  }
}

TEST(BoxFilter, WorkMemoryIsReleasedOnEveryPath) {
  Plane p = plane(0, 16, 8, 0, 0, 16, 8);
  Images im(p, 3);
  const auto before = framedsp::work_memory_stats();
  ASSERT_EQ(framedsp::box_filter_plane(im.record(), 3, 3), DSP_S_OK);
  auto after = framedsp::work_memory_stats();
  EXPECT_GT(after.allocations, before.allocations);
  EXPECT_EQ(after.allocations - before.allocations, after.releases - before.releases);
  const uint64_t taken = after.allocations - before.allocations;
  for (uint64_t k = 1; k <= taken; ++k) {
    Images fresh(p, 4);
    const auto b0 = framedsp::work_memory_stats();
    framedsp::work_memory_fail_at(k);
    EXPECT_EQ(framedsp::box_filter_plane(fresh.record(), 3, 3), DSP_E_OUTOFMEMORY);
    framedsp::work_memory_fail_at(0);
    const auto b1 = framedsp::work_memory_stats();
    EXPECT_EQ(b1.allocations - b0.allocations, b1.releases - b0.releases);
    EXPECT_EQ(0, std::memcmp(fresh.original().data(), fresh.dst(), fresh.bytes()));
  }
}

// 16-bit classes average whole words; 32-bit products would wrap above 511.
TEST(BoxFilterKernels, WideClassesAverageWholeWordsAndClamp) {
  for (uint32_t cls : {7u, 8u, 9u, 10u, 11u}) {
    const framedsp::BoxHorzKernel k = framedsp::box_horz_kernel(cls);
    ASSERT_NE(k, nullptr);
    const size_t n = 48;
    std::vector<uint32_t> sums(n, 60000u * 256);
    std::vector<uint8_t> out(2 * n, 0);
    // 256 x 256 window of 60000: R = 128, 60000 * 65536 * 128 >> 23 = 60000
    const framedsp::BoxWindow w{128, 127, framedsp::box_reciprocal(256, 256)};
    k(sums.data(), out.data(), n, w);
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(out[2 * i] | (out[2 * i + 1] << 8), 60000) << cls;
  }
  // Class 11 against the reference with random words, window 7x1.
  std::mt19937 rng(framedsp_test::test_seed());
  const Layout one{262, 2, 11, 1, {0, 0, 0, 0}};
  std::vector<uint32_t> sums(300);
  std::vector<uint64_t> col(300);
  for (size_t i = 0; i < sums.size(); ++i) col[i] = sums[i] = rng() & 0xFFFF;
  std::vector<uint8_t> got(600), want(600);
  framedsp::box_horz_kernel(11)(sums.data(), got.data(), 300,
                                framedsp::BoxWindow{3, 3, framedsp::box_reciprocal(7, 1)});
  reference_line(col, one, true, 7, 1, want.data());
  EXPECT_EQ(got, want);
  // Class 8 (class 2 layout on words) likewise.
  const Layout yuyv16{31, 4, 8, 4, {0, 1, 0, 2}};
  framedsp::box_horz_kernel(8)(sums.data(), got.data(), 300,
                               framedsp::BoxWindow{2, 1, framedsp::box_reciprocal(4, 1)});
  reference_line(col, yuyv16, true, 4, 1, want.data());
  EXPECT_EQ(got, want);
  EXPECT_EQ(framedsp::box_horz_kernel(12), nullptr);
}

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

// Every SIMD row step of every ISA against its scalar twin: lengths 0..300 and a few long ones,
// row offsets 0..15, random, all-0 and all-255 rows, the row ending against the protected page.
TEST(BoxFilterKernels, SimdRowStepsMatchScalar) {
  framedsp::BoxRowKernels c{};
  framedsp::box_row_table_init(&c, 0);
  std::mt19937 rng(framedsp_test::test_seed());
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 300; ++n) lengths.push_back(n);
  for (size_t n : {1023u, 1920u, 4096u, 4099u}) lengths.push_back(n);
  for (const Isa &isa : simd_isas()) {
    framedsp::BoxRowKernels simd{}, narrower{};
    framedsp::box_row_table_init(&simd, isa.mask);
    framedsp::box_row_table_init(&narrower, isa.mask == framedsp::kCpuSSE2 ? 0u : framedsp::kCpuSSE2);
    ASSERT_NE(simd.add_u8, narrower.add_u8) << "no " << isa.name << " row step selected";
    ASSERT_NE(simd.add_u16, narrower.add_u16) << "no " << isa.name << " row step selected";
    struct Entry {
      const char *name;
      framedsp::BoxRowKernel c, simd;
      size_t bytes;
    } entries[] = {{"add_u8", c.add_u8, simd.add_u8, 1}, {"sub_u8", c.sub_u8, simd.sub_u8, 1},
                   {"add_u16", c.add_u16, simd.add_u16, 2}, {"sub_u16", c.sub_u16, simd.sub_u16, 2}};
    for (const Entry &e : entries) {
      for (size_t n : lengths) {
        GuardedBuffer row(n * e.bytes + 15, 0);  // the row ends against the protected page
        for (size_t off = 0; off < 16; off += (n > 64 ? 5 : 1)) {
          for (int kind = 0; kind < 3; ++kind) {
            if (kind == 0) {
              framedsp_test::fill_random(row.data(), row.size(), rng);
            } else {
              std::memset(row.data(), kind == 1 ? 255 : 0, row.size());
            }
            std::vector<uint32_t> a(n + 1), b;
            for (uint32_t &v : a) v = kind == 1 ? 0xFFFF0000u : kind == 2 ? 0xFFFFFFFFu : rng();
            b = a;
            const uint8_t *at = row.data() + (15 - off);  // offset 0 ends at the page
            e.c(a.data(), at, n);
            e.simd(b.data(), at, n);
            ASSERT_EQ(a, b) << isa.name << " " << e.name << " len " << n << " offset " << off << " kind "
                            << kind << " seed " << framedsp_test::test_seed();
          }
        }
      }
    }
  }
}

// Whole planes under every ISA mask (scalar, SSE2, AVX2) against the brute-force average: every
// group class with SIMD kernels plus the others, windows narrower and wider than the region.
TEST(BoxFilterKernels, PlanesMatchTheReferenceUnderEveryIsa) {
  std::vector<uint32_t> masks = {0u};
  for (const Isa &isa : simd_isas()) masks.push_back(isa.mask);
  const uint32_t sizes[][2] = {{6, 13}, {1, 2}, {256, 3}, {2, 256}, {77, 5}};
  for (uint32_t mask : masks) {
    framedsp::set_cpu_mask(mask);
    for (uint32_t format : {21u, 25u, 17u, 0u, 1u, 24u, 22u, 129u}) {
      for (const auto &sz : sizes) {
        SCOPED_TRACE(::testing::Message() << "mask " << mask << " format " << format);
        Plane p = plane(format, 58, 31, 4, 2, 52, 27);
        p.orientation = format & 1;
        expect_box(p, sz[0], sz[1], format * 7 + sz[0]);
        Plane whole = plane(format, 96, 9, 0, 0, 96, 9);  // region = whole lines: direct stores
        expect_box(whole, sz[0], sz[1], format * 11 + sz[1]);
      }
    }
  }
  framedsp::set_cpu_mask(~0u);
}

TEST(BoxFilterKernels, ReciprocalRounding) {
  EXPECT_EQ(framedsp::box_reciprocal(1, 1), 8388608u);
  EXPECT_EQ(framedsp::box_reciprocal(3, 1), 2796203u);  // 2796202.67
  EXPECT_EQ(framedsp::box_reciprocal(256, 256), 128u);
  EXPECT_EQ(framedsp::box_reciprocal(7, 9), 133153u);   // 133152.51
}

}  // namespace

namespace {

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

// Format 28: the 4:2:2 main picture, then one-byte plane lines a secondary stride apart.
TEST(BoxFilterExport, TwoPlaneFormatFiltersBothPlanes) {
  const uint32_t w = 12, h = 8, s1 = 2 * w, s2 = w + 4;
  const size_t bytes = size_t{s1} * h + size_t{s2} * h;
  GuardedBuffer src(bytes, 0), dst(bytes, 64);
  std::mt19937 rng(framedsp_test::test_seed());
  framedsp_test::fill_random(src.data(), bytes, rng);
  std::memset(dst.data(), 0x3C, bytes);
  DSP_BUFFER b{};
  for (DSP_IMAGE *im : {&b.In, &b.Out}) {
    im->Buffer.pBuffer = im == &b.In ? src.data() : dst.data();
    im->Buffer.ulBytes = uint32_t(bytes);
    im->Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
    im->Buffer.Region = DSP_REGION{{0, 0}, w, h};
    im->ulWidth = w;
    im->ulHeight = h;
    im->ePixelFormat = 28;
    im->eInterlace = 2;
    im->ulPrimaryStrideBytes = s1;
    im->ulSecondaryStrideBytes = s2;
  }
  ASSERT_EQ(dsp_box(b, 3, 5), DSP_S_OK);
  EXPECT_TRUE(dst.intact());
  // Each plane on its own through the plane routine.
  GuardedBuffer expect(bytes, 0);
  std::memset(expect.data(), 0x3C, bytes);
  DSP_BUFFER m = b;
  m.Out.Buffer.pBuffer = expect.data();
  m.In.ePixelFormat = m.Out.ePixelFormat = 21;
  ASSERT_EQ(framedsp::box_filter_plane(m, 3, 5), DSP_S_OK);
  DSP_BUFFER k = m;
  k.In.Buffer.pBuffer = src.data() + size_t{s1} * h;
  k.Out.Buffer.pBuffer = expect.data() + size_t{s1} * h;
  k.In.ePixelFormat = k.Out.ePixelFormat = 261;
  k.In.ulPrimaryStrideBytes = k.Out.ulPrimaryStrideBytes = s2;
  ASSERT_EQ(framedsp::box_filter_plane(k, 3, 5), DSP_S_OK);
  EXPECT_EQ(0, std::memcmp(expect.data(), dst.data(), bytes))
      << framedsp_test::hex_diff(expect.data(), dst.data(), bytes);
  // The key plane really was filtered (not copied).
  EXPECT_NE(0, std::memcmp(src.data() + size_t{s1} * h, dst.data() + size_t{s1} * h, size_t{s2} * h));
}

}  // namespace

// The combined row move (acc - leaving row + entering row) of every ISA against the scalar one,
// and the scalar move against a subtract followed by an add; sums may wrap.
TEST(BoxFilterKernels, RowMoveMatchesScalarAndSubtractThenAdd) {
  framedsp::BoxRowKernels c{};
  framedsp::box_row_table_init(&c, 0);
  std::mt19937 rng(framedsp_test::test_seed() + 77);
  for (const Isa &isa : simd_isas())
  for (int wide = 0; wide < 2; ++wide) {
    framedsp::BoxRowKernels simd{}, narrower{};
    framedsp::box_row_table_init(&simd, isa.mask);
    framedsp::box_row_table_init(&narrower, isa.mask == framedsp::kCpuSSE2 ? 0u : framedsp::kCpuSSE2);
    ASSERT_NE(wide ? simd.move_u16 : simd.move_u8, wide ? narrower.move_u16 : narrower.move_u8)
        << "no " << isa.name << " move step selected";
    const auto move_c = wide ? c.move_u16 : c.move_u8;
    const auto move_s = wide ? simd.move_u16 : simd.move_u8;
    for (size_t n = 0; n <= 300; ++n) {
      const size_t bytes = n * (wide ? 2 : 1) + 15;
      GuardedBuffer leave_mem(bytes, 0), enter_mem(bytes, 0);  // both end against a protected page
      for (size_t off = 0; off < 16; off += (n > 40 ? 5 : 1)) {
        for (int kind = 0; kind < 3; ++kind) {
          uint8_t *const leave = leave_mem.data() + (15 - off);  // offset 0 ends at the page
          uint8_t *const enter = enter_mem.data() + (15 - off);
          for (size_t i = 0; i < bytes - 15; ++i) {
            leave[i] = kind == 1 ? 255 : kind == 2 ? 0 : static_cast<uint8_t>(rng());
            enter[i] = kind == 1 ? 0 : kind == 2 ? 255 : static_cast<uint8_t>(rng());
          }
          std::vector<uint32_t> a(n + 1);
          for (uint32_t &v : a) v = kind ? ((rng() & 1) ? 0u : 0xFFFFFFFFu) : rng();
          std::vector<uint32_t> b = a, r = a;
          move_c(a.data(), leave, enter, n);
          move_s(b.data(), leave, enter, n);
          ASSERT_EQ(a, b) << isa.name << (wide ? " u16" : " u8") << " n " << n << " off " << off << " kind " << kind;
          (wide ? c.sub_u16 : c.sub_u8)(r.data(), leave, n);
          (wide ? c.add_u16 : c.add_u8)(r.data(), enter, n);
          ASSERT_EQ(a, r) << "move differs from subtract then add, n " << n;
        }
      }
    }
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
