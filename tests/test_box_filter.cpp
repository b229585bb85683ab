// Box filter: whole planes through box_filter_plane() and DspFilter against a brute-force window
// average written here (per-component sample lists, clamped windows, the same 2^23 rounding), under
// every ISA mask, and the SIMD row steps and horizontal passes against their scalar twins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "filter/box_filter.h"
#include "platform/cpu.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;

struct Layout {
  uint32_t format, bpp, group;
  int ids[4];  // component of each sample of a group, written from the byte layouts
};
const Layout kLayouts[] = {
    {21, 2, 4, {0, 1, 2, 1}}, {24, 2, 4, {0, 1, 2, 2}}, {25, 2, 4, {0, 1, 0, 2}}, {17, 4, 4, {0, 1, 2, 3}},
    {1, 3, 3, {0, 1, 2, 0}},  {0, 4, 4, {0, 1, 2, 3}},  {261, 1, 1, {0, 0, 0, 0}}, {22, 4, 4, {0, 1, 2, 1}},
    {23, 6, 3, {0, 1, 2, 0}}, {129, 8, 4, {0, 1, 2, 3}},
};
const Layout &layout(uint32_t format) { return *std::find_if(std::begin(kLayouts), std::end(kLayouts), [&](const Layout &l) { return l.format == format; }); }
bool wide(uint32_t format) { return format == 22 || format == 23 || format == 129; }

// Brute-force average of a line of column sums, one component at a time.
void reference_line(const std::vector<uint64_t> &col, const Layout &l, bool w16, uint32_t nh, uint32_t nv, uint8_t *dst) {
  const uint64_t r = uint64_t(8388608.0 / (double(nh) * nv) + 0.5);
  const int bh = int(nh / 2), ah = int(nh) - bh - 1;
  for (int c = 0; c < 4; ++c) {
    std::vector<size_t> pos;
    for (size_t k = 0; k < col.size(); ++k) {
      if (l.ids[k % l.group] == c) pos.push_back(k);
    }
    const int m = int(pos.size());
    for (int i = 0; i < m; ++i) {
      uint64_t s = 0;
      for (int j = i - bh; j <= i + ah; ++j) s += col[pos[size_t(std::clamp(j, 0, m - 1))]];
      const uint64_t v = std::min<uint64_t>((s * r + 4194304) >> 23, w16 ? 65535 : 255);
      if (w16) dst[2 * pos[i] + 1] = uint8_t(v >> 8);
      dst[w16 ? 2 * pos[i] : pos[i]] = uint8_t(v);
    }
  }
}

// A plane pair of one geometry: region (x0, y0, w, h) in memory rows; interlace 2 or 0.
struct Plane {
  uint32_t format, width, height, x0, y0, w, h, interlace = 2, orientation = 0;
};

// The source ends against the protected page; the output has canaries.  Rows without padding.
struct Images {
  Images(const Plane &p, uint32_t seed)
      : p(p), src(p.format, p.width, p.height, p.orientation, 0, 0, 0),
        dst(p.format, p.width, p.height, p.orientation, 0, 0, 64), stride(src.stride), bytes(src.size()) {
    std::mt19937 rng(seed ^ framedsp_test::test_seed());
    src.randomise(rng);
    dst.randomise(rng);
    original = dst.bytes();
  }
  DSP_BUFFER record() const {
    return framedsp_test::buffer_of(src.image(int(p.x0), int(p.y0), p.w, p.h, DSP_BUFFER_TYPE_FRAME, p.interlace),
                                    dst.image(int(p.x0), int(p.y0), p.w, p.h, DSP_BUFFER_TYPE_FRAME, p.interlace));
  }
  // The region replaced by the brute-force average of the source.
  std::vector<uint8_t> expected(uint32_t nh, uint32_t nv) const {
    const Layout &l = layout(p.format);
    const bool w16 = wide(p.format);
    const size_t n = size_t{p.w} * l.bpp / (w16 ? 2 : 1);
    const int s = p.interlace == 0 ? 2 : 1, down = p.orientation == 1 ? -s : s, hgt = int(p.height);
    const int bv = int(nv / 2), av = int(nv) - bv - 1;
    std::vector<uint8_t> out = original;
    for (int r = int(p.y0); r < int(p.y0 + p.h); ++r) {
      std::vector<uint64_t> col(n, 0);
      for (int j = -bv; j <= av; ++j) {
        const uint8_t *line = src.data() + size_t(std::clamp(r + j * down, r % s, r + (hgt - 1 - r) / s * s)) * stride +
                              size_t{p.x0} * l.bpp;
        for (size_t k = 0; k < n; ++k) col[k] += w16 ? line[2 * k] | (line[2 * k + 1] << 8) : line[k];
      }
      reference_line(col, l, w16, nh, nv, out.data() + size_t(r) * stride + size_t{p.x0} * l.bpp);
    }
    return out;
  }
  Plane p;
  framedsp_test::Pic src, dst;
  uint32_t stride;
  size_t bytes;
  std::vector<uint8_t> original;
};

Plane plane(uint32_t format, uint32_t width, uint32_t height, uint32_t x0, uint32_t y0, uint32_t w, uint32_t h,
            uint32_t interlace = 2, uint32_t orientation = 0) {
  return Plane{format, width, height, x0, y0, w, h, interlace, orientation};
}

void expect_box(const Plane &p, uint32_t nh, uint32_t nv, uint32_t seed) {
  Images im(p, seed);
  ASSERT_EQ(framedsp::box_filter_plane(im.record(), nh, nv), DSP_S_OK);
  const std::vector<uint8_t> want = im.expected(nh, nv);
  ASSERT_TRUE(im.dst.mem->intact()) << im.dst.mem->damage();
  ASSERT_TRUE(framedsp_test::same_line(want.data(), im.dst.data(), im.bytes))
      << "format " << p.format << " size " << nh << "x" << nv << " interlace " << p.interlace << " orientation "
      << p.orientation << " seed " << seed;
}

TEST(BoxFilter, EverySizeEachWayAndBoth) {
  for (uint32_t n = 1; n <= 256; ++n) {
    SCOPED_TRACE(n);
    expect_box(plane(261, 37, 3, 5, 0, 32, 3), n, 1, n);  // region reaches the image's last byte
    expect_box(plane(21, 20, 2, 2, 1, 18, 1), n, 1, n + 1000);
    expect_box(plane(261, 6, 41, 1, 5, 5, 36, 2, n & 1), 1, n, n);
    expect_box(plane(261, 6, 41, 1, 5, 5, 36, 0, n & 1), 1, n, n + 2000);
    expect_box(plane(261, 13, 11, 2, 1, 11, 10), n, 257 - n, n);
    expect_box(plane(0, 7, 9, 0, 2, 7, 7), (n * 37) % 256 + 1, n, n + 3000);
  }
}

// Every layout, orientation and field mode under every ISA mask; regions at the image's corner and
// regions of whole lines (direct stores); long lines and many lines; fields stored one after the
// other keep to their half; sums of 255 whose rounded-up reciprocal passes 255 are clamped.
TEST(BoxFilter, EveryLayoutOrientationFieldModeAndIsa) {
  std::vector<uint32_t> masks = framedsp_test::simd_levels();
  masks.insert(masks.begin(), 0u);
  const uint32_t sizes[][2] = {{5, 3}, {4, 6}, {1, 7}, {8, 1}, {2, 2}, {31, 17}, {256, 3}, {2, 256}};
  for (uint32_t mask : masks) {
    framedsp::set_cpu_mask(mask);
    for (const Layout &l : kLayouts) {
      for (uint32_t mode = 0; mode < 4; ++mode) {
        for (const auto &sz : sizes) {
          SCOPED_TRACE(::testing::Message() << "mask " << mask << " format " << l.format);
          expect_box(plane(l.format, 24, 14, 4, 3, 18, 11, mode & 1 ? 0 : 2, mode >> 1), sz[0], sz[1], l.format * 7 + sz[0]);
          if (mode == 0) expect_box(plane(l.format, 96, 9, 0, 0, 96, 9), sz[0], sz[1], sz[1]);
        }
      }
    }
  }
  framedsp::set_cpu_mask(~0u);
  expect_box(plane(261, 5000, 3, 0, 0, 5000, 3), 255, 3, 1);
  expect_box(plane(129, 1500, 2, 3, 0, 1496, 2), 256, 2, 2);
  expect_box(plane(261, 4, 700, 0, 0, 4, 700), 3, 256, 4);
  expect_box(plane(22, 4, 600, 0, 10, 4, 580, 0), 2, 101, 5);
  for (uint32_t orientation = 0; orientation < 2; ++orientation) {
    Images im(plane(261, 8, 12, 0, 0, 8, 12, 3, orientation), 1);
    std::memset(im.src.data(), 20, 6 * 8);
    std::memset(im.src.data() + 6 * 8, 240, 6 * 8);
    ASSERT_EQ(framedsp::box_filter_plane(im.record(), 3, 9), DSP_S_OK);
    EXPECT_EQ(0, std::memcmp(im.src.data(), im.dst.data(), im.bytes)) << "stacked fields, orientation " << orientation;
  }
  // 146 x 245: R = trunc(2^23 / 35770 + 0.5) = 235, so 255s scale to past 255.
  EXPECT_EQ(framedsp::box_reciprocal(146, 245), 235u);
  EXPECT_EQ(framedsp::box_reciprocal(7, 9), 133153u);  // 133152.51
  for (uint32_t format : {261u, 22u}) {
    Images im(plane(format, 4, 3, 0, 0, 4, 3), 1);
    std::memset(im.src.data(), 255, im.bytes);
    ASSERT_EQ(framedsp::box_filter_plane(im.record(), 146, 245), DSP_S_OK);
    EXPECT_EQ(0, std::memcmp(im.src.data(), im.dst.data(), im.bytes)) << format;
  }
}

// Whole calls through DspFilter: the caller's record (offsets from the picture's top), the
// temporary frame, a size of 0 switching a direction off, a size past 256 refused with nothing
// written.  (Both planes of a two-plane format go through the plane split the FIR shares.)
DSP_HRESULT dsp_box(const DSP_BUFFER &b, uint32_t h, uint32_t v, uint32_t options = 0) {
  const DSP_BOX_SETTINGS settings{h, 0xDEADBEEFu, v};
  const DSP_FILTER_PARAMS params = framedsp_test::filter_params(DSP_FILTER_TYPE_BOX, &settings, b, options);
  return DspFilter(&params);
}

TEST(BoxFilterExport, WholeCallsMatchTheReference) {
  for (uint32_t orientation = 0; orientation < 2; ++orientation) {
    for (uint32_t options : {0u, DSP_FILTER_OPTION_TEMP_FRAME}) {
      for (uint32_t format : {21u, 0u, 261u, 129u}) {
        Images im(plane(format, 30, 20, 2, 3, 26, 14, 2, orientation), format + 10 * orientation);
        DSP_BUFFER b = im.record();
        if (orientation == 1) b.In.Buffer.Region.ptOffset.y = b.Out.Buffer.Region.ptOffset.y = 20 - 14 - 3;
        ASSERT_EQ(dsp_box(b, 7, 4, options), DSP_S_OK);
        const std::vector<uint8_t> want = im.expected(7, 4);
        EXPECT_TRUE(im.dst.mem->intact());
        EXPECT_TRUE(framedsp_test::same_line(want.data(), im.dst.data(), im.bytes)) << format << " " << orientation;
      }
    }
  }
  const Plane p = plane(25, 16, 12, 0, 0, 16, 12, 0);
  for (const auto &sizes : {std::pair<uint32_t, uint32_t>{0, 6}, {9, 0}, {257, 3}}) {
    Images im(p, sizes.first);
    EXPECT_EQ(dsp_box(im.record(), sizes.first, sizes.second), sizes.first > 256 ? DSP_E_INVALIDARG : DSP_S_OK);
    const std::vector<uint8_t> want =
        sizes.first > 256 ? im.original : im.expected(std::max(sizes.first, 1u), std::max(sizes.second, 1u));
    EXPECT_TRUE(framedsp_test::same_line(want.data(), im.dst.data(), im.bytes)) << sizes.first << "x" << sizes.second;
  }
}

// ---- kernels ------------------------------------------------------------------------------------

// The 16-bit classes average whole words (a 256 x 256 window of 60000 gives 60000: 32-bit products
// would wrap); classes 8 and 11, which no plane format above reaches, against the reference.
TEST(BoxFilterKernels, WideClassesAverageWholeWords) {
  for (uint32_t cls = 7; cls < 12; ++cls) {
    std::vector<uint32_t> sums(48, 60000u * 256);
    std::vector<uint8_t> out(96, 0);
    framedsp::box_horz_kernel(cls)(sums.data(), out.data(), 48, framedsp::BoxWindow{128, 127, 128});
    for (size_t i = 0; i < 48; ++i) ASSERT_EQ(out[2 * i] | (out[2 * i + 1] << 8), 60000) << cls;
  }
  std::mt19937 rng(framedsp_test::test_seed());
  std::vector<uint32_t> sums(300);
  std::vector<uint64_t> col(300);
  for (size_t i = 0; i < sums.size(); ++i) col[i] = sums[i] = rng() & 0xFFFF;
  std::vector<uint8_t> got(600), want(600);
  framedsp::box_horz_kernel(11)(sums.data(), got.data(), 300, framedsp::BoxWindow{3, 3, framedsp::box_reciprocal(7, 1)});
  reference_line(col, Layout{262, 2, 1, {0, 0, 0, 0}}, true, 7, 1, want.data());
  EXPECT_EQ(got, want);
  framedsp::box_horz_kernel(8)(sums.data(), got.data(), 300, framedsp::BoxWindow{2, 1, framedsp::box_reciprocal(4, 1)});
  reference_line(col, Layout{31, 4, 4, {0, 1, 0, 2}}, true, 4, 1, want.data());
  EXPECT_EQ(got, want);
}

// Row steps: add, subtract and the combined move (acc - leaving + entering) against the scalar
// ones, the scalar move against a subtract then an add; rows end against the protected page, sums
// wrap.  Horizontal passes of the four-sample classes: random windows 1..256, full-scale sums under
// the largest windows, 0 / full-scale columns; the sums only read, nothing outside the line written.
TEST(BoxFilterKernels, SimdEqualsScalar) {
  framedsp::BoxRowKernels c{};
  framedsp::box_row_table_init(&c, 0);
  int ran = 0, rows_ran = 0, horz_ran[4] = {0, 0, 0, 0};
  for (uint32_t level : framedsp_test::simd_levels()) {
    framedsp::BoxRowKernels s{}, s2{};
    framedsp::box_row_table_init(&s, level);
    framedsp::box_row_table_init(&s2, framedsp::kCpuSSE2);
    const bool new_rows = level == framedsp::kCpuSSE2 || s.add_u8 != s2.add_u8 || s.move_u8 != s2.move_u8;
    std::mt19937 rng(framedsp_test::test_seed() + level);
    for (int w16 = 0; w16 < 2 && new_rows && s.add_u8 != c.add_u8; ++w16) {
      ++ran;
      rows_ran += (w16 ? s.add_u16 != c.add_u16 && s.sub_u16 != c.sub_u16 && s.move_u16 != c.move_u16
                       : s.sub_u8 != c.sub_u8 && s.move_u8 != c.move_u8);
      const size_t bytes = w16 ? 2 : 1;
      framedsp_test::for_each_line(300, 10, rng, [&](size_t n, size_t lead, int kind) {
        GuardedBuffer &leave = framedsp_test::scratch(0, n * bytes + 15, 0), &enter = framedsp_test::scratch(1, n * bytes + 15, 0);
        framedsp_test::fill_line(leave.data(), leave.size(), kind, rng);
        framedsp_test::fill_line(enter.data(), enter.size(), kind == framedsp_test::kFullLine ? framedsp_test::kZeroLine : kind, rng);
        const uint8_t *l = leave.data() + 15 - lead, *e = enter.data() + 15 - lead;
        std::vector<uint32_t> a(n + 1);
        for (uint32_t &v : a) v = kind == framedsp_test::kRandomLine ? uint32_t(rng()) : 0xFFFFFF00u + kind;
        std::vector<uint32_t> b = a, m = a, ms = a;
        (w16 ? c.add_u16 : c.add_u8)(a.data(), e, n);
        (w16 ? s.add_u16 : s.add_u8)(b.data(), e, n);
        (w16 ? c.sub_u16 : c.sub_u8)(a.data(), l, n);
        (w16 ? s.sub_u16 : s.sub_u8)(b.data(), l, n);
        (w16 ? c.move_u16 : c.move_u8)(m.data(), l, e, n);
        (w16 ? s.move_u16 : s.move_u8)(ms.data(), l, e, n);
        ASSERT_EQ(a, b) << "add/sub w16 " << w16 << " n " << n << " lead " << lead;
        ASSERT_EQ(a, m) << "scalar move, n " << n;
        ASSERT_EQ(m, ms) << "move w16 " << w16 << " n " << n << " lead " << lead;
      });
    }
    for (uint32_t cls : {0u, 2u, 3u, 5u}) {
      const framedsp::BoxHorzKernel hc = framedsp::box_horz_kernel(cls, 0), hs = framedsp::box_horz_kernel(cls, level);
      if (hs == hc || (level != framedsp::kCpuSSE2 && hs == framedsp::box_horz_kernel(cls, framedsp::kCpuSSE2))) continue;
      ++ran;
      ++horz_ran[cls == 0 ? 0 : cls - 1 - (cls == 5)];
      framedsp_test::for_each_line(300, 20, rng, [&](size_t n, size_t lead, int kind) {
        const size_t pad = framedsp::kBoxPad;
        GuardedBuffer &sums_mem = framedsp_test::scratch(0, (2 * pad + 15 + n) * 4, 16, 0x5C);
        GuardedBuffer &a = framedsp_test::scratch(1, n + 15, 16, 0xAB), &b = framedsp_test::scratch(2, n + 15, 16, 0xAB);
        uint32_t nh = 1 + rng() % 256, nv = 1 + rng() % 256;
        if (kind == framedsp_test::kFullLine) nh = 256 - rng() % 8;
        if (kind == framedsp_test::kZeroLine) nh = 1 + rng() % 8, nv = 1 + rng() % 4;
        const framedsp::BoxWindow w{framedsp::box_before(nh), framedsp::box_after(nh), framedsp::box_reciprocal(nh, nv)};
        uint32_t *sums = reinterpret_cast<uint32_t *>(sums_mem.data()) + pad + lead;
        for (size_t i = 0; i < n; ++i) {
          sums[i] = kind == framedsp_test::kRandomLine ? uint32_t(rng())
                    : kind == framedsp_test::kZeroLine ? (rng() % 256) * nv
                                                       : (kind == framedsp_test::kFullLine || rng() % 2 ? 255u * nv : 0u);
        }
        const std::vector<uint32_t> before(sums, sums + n);
        hc(sums, a.data() + lead, n, w);
        hs(sums, b.data() + lead, n, w);
        ASSERT_TRUE(framedsp_test::same_line(a.data(), b.data(), a.size())) << "class " << cls << " n " << n << " lead " << lead;
        ASSERT_TRUE(b.intact() && sums_mem.intact()) << b.damage() << sums_mem.damage();
        ASSERT_TRUE(std::equal(before.begin(), before.end(), sums)) << "sums changed, n " << n;
        for (size_t i = 0; i < b.size(); ++i) {
          if (i < lead || i >= lead + n) {
            ASSERT_EQ(b[i], 0xAB) << "byte " << i << " outside the line";
          }
        }
      });
    }
  }
  if (framedsp::simd_twins_built() && !framedsp_test::simd_levels().empty()) {
    EXPECT_GT(ran, 0) << "no SIMD kernel ran";
    EXPECT_GE(rows_ran, 2) << "a SIMD row step (add, sub, move on bytes or words) is missing";
    for (int k = 0; k < 4; ++k) EXPECT_GT(horz_ran[k], 0) << "no SIMD horizontal pass for class index " << k;
  }
  // SSE2 and AVX2 each install all six row steps of their own.
  for (uint32_t mask : {uint32_t{framedsp::kCpuSSE2}, uint32_t{framedsp::kCpuSSE2 | framedsp::kCpuAVX2}}) {
    if ((framedsp::simd_twins_built() & framedsp::cpu_flags() & mask) != mask) continue;
    framedsp::BoxRowKernels s{}, n{};
    framedsp::box_row_table_init(&s, mask);
    framedsp::box_row_table_init(&n, mask & framedsp::kCpuAVX2 ? uint32_t{framedsp::kCpuSSE2} : 0u);
    EXPECT_TRUE(s.add_u8 != n.add_u8 && s.sub_u8 != n.sub_u8 && s.move_u8 != n.move_u8 && s.add_u16 != n.add_u16 &&
                s.sub_u16 != n.sub_u16 && s.move_u16 != n.move_u16)
        << "a row step of mask " << mask << " is the narrower level's";
  }
}

}  // namespace
