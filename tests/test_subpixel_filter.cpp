// DspSubPixelFilter: the vertical kernels of the fractional filter (scalar against a per-sample
// formula written here, SIMD against scalar, edge rows included), the export against DspFilter on
// the same whole-pixel records (byte-exact where the two filters share their kernels), the FIR
// vertical path against a 2-D reference written here, truncation of fractional regions, the copy,
// settings errors, guard bytes on every output and work memory released.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "filter/fir_kernels.h"
#include "filter/fir_tables.h"
#include "frame/cpu.h"
#include "frame/trace.h"
#include "framedsp/framedsp.h"
#include "test_util.h"

namespace {

using framedsp::FirTap;
using framedsp_test::GuardedBuffer;

constexpr int kTapCounts[7] = {3, 5, 7, 9, 11, 13, 15};

uint8_t clamp_round(int64_t acc) {
  const int64_t v = (acc + 256) >> 9;
  return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// ---- vertical kernels

// Expected output byte p of centre row r: rows clamped to 0 and max(H - s, 0), picture order.
uint8_t vertical_sample(const std::vector<std::vector<uint8_t>> &rows, int r, size_t p, int s,
                        const std::vector<int16_t> &c) {
  const int h = static_cast<int>(rows.size());
  const int half = static_cast<int>(c.size() - 1) / 2;
  const int last = h - s > 0 ? h - s : 0;
  int64_t acc = int64_t{c[half]} * rows[r][p];
  for (int k = 1; k <= half; ++k) {
    int up = r - k * s, down = r + k * s;
    if (up < 0) up = 0;
    if (down > last) down = last;
    acc += int64_t{c[half - k]} * (rows[up][p] + rows[down][p]);
  }
  return clamp_round(acc);
}

std::vector<FirTap> to_taps(const std::vector<int16_t> &c) {
  std::vector<FirTap> t(c.size());
  for (size_t i = 0; i < c.size(); ++i) {
    for (int l = 0; l < framedsp::kFirLanes; ++l) t[i].lane[l] = c[i];
  }
  return t;
}

std::vector<int16_t> table_row(int taps, uint32_t cutoff) {
  const FirTap *t = framedsp::fir_coefficients(static_cast<uint32_t>(taps), cutoff);
  std::vector<int16_t> c(static_cast<size_t>(taps));
  for (int i = 0; i < taps; ++i) c[static_cast<size_t>(i)] = t[i].lane[0];
  return c;
}

// Large taps of both signs: sums far outside 0..255 on both sides, so the clamp is exercised.
std::vector<int16_t> adversarial_row(int taps) {
  std::vector<int16_t> c(static_cast<size_t>(taps));
  const int half = (taps - 1) / 2;
  for (int i = 0; i <= half; ++i) {
    const int16_t v = static_cast<int16_t>((i % 2 ? -1 : 1) * (3000 + 1700 * i));
    c[static_cast<size_t>(i)] = c[static_cast<size_t>(taps - 1 - i)] = v;
  }
  return c;
}

struct SubTables {
  framedsp::FirSubKernelTable c, simd;
  explicit SubTables(uint32_t isa) {
    framedsp::fir_sub_table_init(&c, 0);
    framedsp::fir_sub_table_init(&simd, framedsp::cpu_flags() & isa);
  }
};

class SubVertKernel : public ::testing::TestWithParam<std::tuple<int, bool, uint32_t>> {};

TEST_P(SubVertKernel, EdgeRowsFollowTheFormulaAndSimdMatchesScalar) {
  const int index = std::get<0>(GetParam());
  const bool lanes = std::get<1>(GetParam());
  const uint32_t isa = std::get<2>(GetParam());
  if (isa == framedsp::kCpuSSE2 && !(framedsp::cpu_flags() & framedsp::kCpuSSE2)) {
    GTEST_SKIP() << "no SSE2";
  }
  const int taps = kTapCounts[index];
  SubTables t(isa);
  const framedsp::FirSubVertKernel kc = lanes ? t.c.vert16[index] : t.c.vert[index];
  const framedsp::FirSubVertKernel ks = lanes ? t.simd.vert16[index] : t.simd.vert[index];
  ASSERT_NE(kc, nullptr);
  ASSERT_NE(ks, nullptr);
  if (framedsp::cpu_flags() & framedsp::kCpuSSE2) {
    EXPECT_NE(kc, ks) << "no SIMD entry installed";
  }
  const uint32_t seed = framedsp_test::test_seed() + static_cast<uint32_t>(index * 2 + lanes);
  std::mt19937 rng(seed);
  const std::vector<int16_t> rows_of_coefs[2] = {table_row(taps, 35), adversarial_row(taps)};
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 70; ++n) lengths.push_back(n);
  lengths.push_back(257);
  for (size_t n : lengths) {
    GuardedBuffer dc(n, 16, 0x77), ds(n, 16, 0x77);
    std::vector<uint8_t> want(n);
    for (int h : {1, 2, 3, 4, 5, 6, 7, 10, 17}) {
      const size_t pitch = n + 3;
      GuardedBuffer plane(pitch * static_cast<size_t>(h), 0);  // the last row ends at the page
      for (int shift = 0; shift <= 1; ++shift) {
        for (int bottom_up = 0; bottom_up <= 1; ++bottom_up) {
          framedsp_test::fill_random(plane.data(), plane.size(), rng);
          if (n % 5 == 0) std::memset(plane.data(), n % 10 ? 255 : 0, plane.size());
          // Picture rows: row y in memory row y, or h - 1 - y bottom-up.
          std::vector<std::vector<uint8_t>> rows(static_cast<size_t>(h));
          for (int y = 0; y < h; ++y) {
            const size_t my = static_cast<size_t>(bottom_up ? h - 1 - y : y);
            rows[static_cast<size_t>(y)].assign(plane.data() + my * pitch,
                                                plane.data() + my * pitch + n);
          }
          const uint8_t *row0 = plane.data() + (bottom_up ? size_t(h - 1) * pitch : 0);
          const ptrdiff_t row_pitch = bottom_up ? -static_cast<ptrdiff_t>(pitch) : ptrdiff_t(pitch);
          const ptrdiff_t stride = row_pitch * (ptrdiff_t{1} << shift);
          const int s = 1 << shift;
          for (int set = 0; set < 2; ++set) {
            const std::vector<FirTap> coef = to_taps(rows_of_coefs[set]);
            for (int r = 0; r < h; ++r) {
              const size_t lead = rng() % 16, trail = rng() % 16;
              kc(row0, dc.data(), h, r, n, stride, coef.data(), 0xFFFFFFFFu, lead, trail, shift);
              ks(row0, ds.data(), h, r, n, stride, coef.data(), 0xFFFFFFFFu, lead, trail, shift);
              const auto where = [&] {
                return ::testing::Message() << "taps " << taps << " lanes " << lanes << " H " << h << " f " << shift
                                            << " up " << bottom_up << " len " << n << " lead " << lead << " row "
                                            << r << " set " << set << " seed " << seed;
              };
              ASSERT_TRUE(dc.intact()) << where() << " scalar " << dc.damage();
              ASSERT_TRUE(ds.intact()) << where() << " simd " << ds.damage();
              for (size_t p = 0; p < n; ++p) {
                want[p] = lanes && (p & 1) ? 0 : vertical_sample(rows, r, p, s, rows_of_coefs[set]);
              }
              ASSERT_EQ(0, n ? std::memcmp(want.data(), dc.data(), n) : 0)
                  << where() << "\n" << framedsp_test::hex_diff(want.data(), dc.data(), n);
              ASSERT_EQ(0, n ? std::memcmp(dc.data(), ds.data(), n) : 0)
                  << where() << "\n" << framedsp_test::hex_diff(dc.data(), ds.data(), n);
            }
          }
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Entries, SubVertKernel,
    ::testing::Combine(::testing::Range(0, 7), ::testing::Bool(),
                       ::testing::Values(framedsp::kCpuSSE2, ~0u)),
    [](const ::testing::TestParamInfo<std::tuple<int, bool, uint32_t>> &info) {
      return std::string(std::get<1>(info.param) ? "fir_sv16_t" : "fir_sv_t") +
             std::to_string(kTapCounts[std::get<0>(info.param)]) +
             (std::get<2>(info.param) == framedsp::kCpuSSE2 ? "_sse2" : "_best");
    });

// Two hand-made cases of the absolute clamp, H = 10: s = 1, row 8 reads row 9 below (not row 8, as
// the whole-pixel kernel would); s = 2, row 9 (field B) reads row 8 (field A) below and row 1 row
// 0 above.
TEST(SubVertKernel, AbsoluteClampReachesTheOtherField) {
  framedsp::FirSubKernelTable t;
  framedsp::fir_sub_table_init(&t, 0);
  std::vector<uint8_t> plane(10);
  for (int y = 0; y < 10; ++y) plane[static_cast<size_t>(y)] = static_cast<uint8_t>(10 * y);
  // Taps {128, 256, 128}: out = (up + 2 * centre + down) / 4, rounded.
  const std::vector<FirTap> coef = to_taps({128, 256, 128});
  uint8_t out = 0;
  t.vert[0](plane.data(), &out, 10, 8, 1, 1, coef.data(), 0, 0, 0, 0);
  EXPECT_EQ(out, (70 + 160 + 90 + 2) / 4);
  t.vert[0](plane.data(), &out, 10, 9, 1, 2, coef.data(), 0, 0, 0, 1);
  EXPECT_EQ(out, (70 + 180 + 80 + 2) / 4);
  t.vert[0](plane.data(), &out, 10, 1, 1, 2, coef.data(), 0, 0, 0, 1);
  EXPECT_EQ(out, (0 + 20 + 30 + 2) / 4);
  t.vert[0](plane.data(), &out, 10, 0, 1, 1, coef.data(), 0, 0, 0, 0);
  EXPECT_EQ(out, (0 + 0 + 10 + 2) / 4);
}

// ---- the export

using framedsp_test::main_bytes;

// A picture whose record is the whole picture with the given type, interlace and orientation.
struct Img : framedsp_test::Pic {
  Img(uint32_t f, uint32_t width, uint32_t height) : Pic(f, width, height, false, 7, 0) {}
  DSP_IMAGE image(uint32_t type, uint32_t interlace, uint32_t orientation) const {
    DSP_IMAGE d = Pic::image(0, 0, 0, 0, type, interlace);
    d.eImageOrientation = orientation;
    return d;
  }
  size_t bytes() const { return size(); }
};

struct Geometry {
  const char *label;
  uint32_t in_type, in_interlace, in_h;
  uint32_t out_type, out_interlace, out_h;
  uint32_t flags;
};

struct SameCase {
  const char *label;
  uint32_t format;
  uint32_t filter_type;
  uint32_t a, b, c, d;  // FIR: horizontal taps, cut-off, vertical taps, cut-off; box: sizes
  Geometry geometry;
  uint32_t in_orientation, out_orientation;
  uint32_t options;
  uint32_t in_space, out_space;
  bool region;  // a region inside the image (offset 2,1) rather than all of it
};

void PrintTo(const SameCase &c, std::ostream *os) { *os << c.label; }

const Geometry kProgressive{"progressive", 2, 2, 14, 2, 2, 14, 0};
const Geometry kInterleaved{"interleaved", 2, 0, 14, 2, 0, 14, 0};
const Geometry kSeparate{"separate", 2, 3, 14, 2, 3, 14, 0};
const Geometry kFrameToFieldA{"frame_to_field_a", 2, 0, 14, 0, 2, 7, 0};
const Geometry kFieldBToFrame{"field_b_to_frame", 1, 2, 7, 2, 0, 14, 0};
const Geometry kDominance{"dominance_change", 2, 0, 14, 2, 0, 14,
                          DSP_BUFFER_IN_FIELD2_DOMINANCE | DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP};

struct Outcome {
  std::vector<uint8_t> bytes;
  DSP_HRESULT status;
  bool intact;
};

template <class Call>
Outcome run_case(const SameCase &c, double fraction, Call call) {
  const Geometry &g = c.geometry;
  const uint32_t w = 22;
  Img in(c.format, w, g.in_h), out(c.format, w, g.out_h);
  std::mt19937 rng(1234 + c.format);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  std::memset(out.data(), 0x3C, out.bytes());
  DSP_BUFFER b{};
  b.In = in.image(g.in_type, g.in_interlace, c.in_orientation);
  b.Out = out.image(g.out_type, g.out_interlace, c.out_orientation);
  b.In.eColorSpace = c.in_space;
  b.Out.eColorSpace = c.out_space;
  b.ulFlags = g.flags;
  if (c.region) {
    for (DSP_IMAGE *d : {&b.In, &b.Out}) {
      d->Buffer.Region.ptOffset.x = 2;
      d->Buffer.Region.ptOffset.y = d->Buffer.eBufferType == 2 ? 2 : 1;
      d->Buffer.Region.ulWidth = w - 6;
      d->Buffer.Region.ulHeight = d->ulHeight - (d->Buffer.eBufferType == 2 ? 4 : 2);
    }
  }
  DSP_FIR_SETTINGS fir{c.a, c.b, 0, c.c, c.d};
  DSP_BOX_SETTINGS box{c.a, 0, c.c};
  const void *settings = c.filter_type == DSP_FILTER_TYPE_FIR ? static_cast<const void *>(&fir)
                                                              : static_cast<const void *>(&box);
  Outcome r;
  r.status = call(b, settings, fraction);
  r.intact = out.mem->intact() && in.mem->intact();
  r.bytes.assign(out.data(), out.data() + out.bytes());
  return r;
}

Outcome with_whole(const SameCase &c) {
  return run_case(c, 0.0, [&](const DSP_BUFFER &b, const void *settings, double) {
    DSP_FILTER_PARAMS p{};
    p.eFilterType = c.filter_type;
    p.pSettings = settings;
    p.Buffer = b;
    p.ulOptions = c.options;
    return DspFilter(&p);
  });
}

Outcome with_fractional(const SameCase &c, double fraction) {
  return run_case(c, fraction, [&](const DSP_BUFFER &b, const void *settings, double f) {
    DSP_SUBPIXEL_FILTER_PARAMS p{};
    p.eFilterType = c.filter_type;
    p.pSettings = settings;
    // The same fraction on both sides keeps the widths equal and the heights in ratio.
    const double fh_in = b.In.Buffer.eBufferType == 2 && b.Out.Buffer.eBufferType != 2 ? 2 * f : f;
    const double fh_out = b.Out.Buffer.eBufferType == 2 && b.In.Buffer.eBufferType != 2 ? 2 * f : f;
    p.Buffer.In = framedsp_test::fractional(b.In, f, f, f, fh_in);
    p.Buffer.Out = framedsp_test::fractional(b.Out, f, f, f, fh_out);
    p.Buffer.ulFlags = b.ulFlags;
    p.ulOptions = c.options;
    return DspSubPixelFilter(&p);
  });
}

class SubPixelSameAsFilter : public ::testing::TestWithParam<SameCase> {};

TEST_P(SubPixelSameAsFilter, ByteExact) {
  const SameCase &c = GetParam();
  const Outcome want = with_whole(c);
  ASSERT_EQ(want.status, DSP_S_OK);
  ASSERT_TRUE(want.intact);
  // Something was written: the output is not all the fill byte.
  bool written = false;
  for (uint8_t v : want.bytes) written = written || v != 0x3C;
  ASSERT_TRUE(written);
  for (double fraction : {0.0, 0.25, 0.999}) {
    const Outcome got = with_fractional(c, fraction);
    ASSERT_EQ(got.status, DSP_S_OK) << "fraction " << fraction;
    ASSERT_TRUE(got.intact) << "fraction " << fraction;
    ASSERT_EQ(want.bytes.size(), got.bytes.size());
    ASSERT_TRUE(want.bytes == got.bytes)
        << "fraction " << fraction << "\n"
        << framedsp_test::hex_diff(want.bytes.data(), got.bytes.data(), want.bytes.size());
  }
}

constexpr uint32_t kFir = DSP_FILTER_TYPE_FIR, kBox = DSP_FILTER_TYPE_BOX;
constexpr uint32_t kTemp = DSP_FILTER_OPTION_TEMP_FRAME;

const SameCase kSameCases[] = {
    {"fir_h_bgra", 0, kFir, 7, 30, 3, 100, kProgressive, 0, 0, 0, 0, 0, false},
    {"fir_h_bgr24", 1, kFir, 5, 40, 3, 100, kProgressive, 0, 0, 0, 0, 0, true},
    {"fir_h_uyvy", 21, kFir, 15, 20, 3, 100, kProgressive, 0, 0, 0, 0, 0, true},
    {"fir_h_f22", 22, kFir, 9, 45, 3, 100, kProgressive, 0, 0, 0, 0, 0, false},
    {"fir_h_f23", 23, kFir, 7, 30, 3, 100, kProgressive, 0, 0, 0, 0, 0, false},
    {"fir_h_f24", 24, kFir, 11, 10, 3, 100, kProgressive, 0, 0, 0, 0, 0, true},
    {"fir_h_f25", 25, kFir, 7, 60, 3, 100, kProgressive, 0, 0, 0, 0, 0, false},
    {"fir_h_f129", 129, kFir, 5, 30, 3, 100, kProgressive, 0, 0, 0, 0, 0, false},
    {"fir_h_gray", 261, kFir, 13, 25, 3, 100, kProgressive, 0, 0, 0, 0, 0, true},
    {"fir_h_two_plane", 28, kFir, 7, 30, 3, 100, kProgressive, 0, 0, 0, 0, 0, false},
    {"fir_h_bottom_up_in", 21, kFir, 7, 30, 3, 100, kProgressive, 1, 0, 0, 0, 0, true},
    {"fir_h_bottom_up_both", 0, kFir, 7, 30, 3, 100, kProgressive, 1, 1, 0, 0, 0, false},
    {"fir_h_temp", 21, kFir, 7, 30, 3, 100, kProgressive, 0, 0, kTemp, 0, 0, true},
    {"fir_h_interleaved", 21, kFir, 7, 30, 3, 100, kInterleaved, 0, 0, 0, 0, 0, false},
    {"fir_h_frame_to_field", 261, kFir, 7, 30, 3, 100, kFrameToFieldA, 0, 0, 0, 0, 0, false},
    {"fir_h_field_to_frame", 21, kFir, 7, 30, 3, 100, kFieldBToFrame, 0, 0, 0, 0, 0, false},
    {"box_bgra", 0, kBox, 5, 0, 3, 0, kProgressive, 0, 0, 0, 0, 0, false},
    {"box_uyvy_region", 21, kBox, 4, 0, 5, 0, kProgressive, 0, 0, 0, 0, 0, true},
    {"box_gray_vertical", 261, kBox, 0, 0, 7, 0, kProgressive, 0, 0, 0, 0, 0, false},
    {"box_two_plane", 28, kBox, 3, 0, 3, 0, kProgressive, 0, 0, 0, 0, 0, false},
    {"box_f22", 22, kBox, 3, 0, 2, 0, kProgressive, 0, 0, 0, 0, 0, false},
    {"box_interleaved", 21, kBox, 3, 0, 3, 0, kInterleaved, 0, 0, 0, 0, 0, false},
    {"box_separate", 0, kBox, 3, 0, 3, 0, kSeparate, 0, 0, 0, 0, 0, false},
    {"box_frame_to_field", 21, kBox, 3, 0, 3, 0, kFrameToFieldA, 0, 0, 0, 0, 0, true},
    {"box_field_to_frame", 261, kBox, 5, 0, 3, 0, kFieldBToFrame, 0, 0, 0, 0, 0, false},
    {"box_dominance", 21, kBox, 3, 0, 3, 0, kDominance, 0, 0, 0, 0, 0, false},
    {"box_temp_bottom_up", 0, kBox, 3, 0, 5, 0, kProgressive, 1, 0, kTemp, 0, 0, false},
    {"box_temp_interleaved", 21, kBox, 3, 0, 3, 0, kInterleaved, 0, 0, kTemp, 0, 0, false},
    {"copy_fir_off", 21, kFir, 0, 100, 0, 100, kProgressive, 0, 1, 0, 0, 0, true},
    {"copy_box_off", 0, kBox, 0, 0, 0, 0, kInterleaved, 0, 0, 0, 0, 0, false},
    {"copy_colour_space", 21, kFir, 3, 100, 3, 100, kProgressive, 0, 0, 0, 1, 2, false},
    {"copy_two_plane_field", 28, kBox, 0, 0, 0, 0, kFrameToFieldA, 0, 0, 0, 0, 0, false},
};

INSTANTIATE_TEST_SUITE_P(Cases, SubPixelSameAsFilter, ::testing::ValuesIn(kSameCases),
                         [](const ::testing::TestParamInfo<SameCase> &info) {
                           return std::string(info.param.label);
                         });

// ---- FIR with vertical taps against a reference written here

// Vertical (absolute clamps, row step s over the whole plane) then horizontal.
std::vector<std::vector<uint8_t>> reference(const std::vector<std::vector<uint8_t>> &rows,
                                            uint32_t format, const std::vector<int16_t> &hc,
                                            const std::vector<int16_t> &vc, int s) {
  std::vector<std::vector<uint8_t>> mid = rows;
  if (!vc.empty()) {
    for (size_t r = 0; r < rows.size(); ++r) {
      for (size_t p = 0; p < rows[r].size(); ++p) {
        mid[r][p] = vertical_sample(rows, static_cast<int>(r), p, s, vc);
      }
    }
  }
  if (hc.empty()) return mid;
  std::vector<std::vector<uint8_t>> out = mid;
  const int half = static_cast<int>(hc.size() - 1) / 2;
  for (size_t r = 0; r < mid.size(); ++r) {
    const long n = static_cast<long>(mid[r].size());
    for (long p = 0; p < n; ++p) {
      int d = 0;
      switch (format) {
        case 21: d = p % 2 ? 2 : 4; break;
        case 0: d = 4; break;
        case 1: d = 3; break;
        case 261: d = 1; break;
      }
      const int x0 = mid[r][static_cast<size_t>(p)];
      int64_t acc = int64_t{hc[static_cast<size_t>(half)]} * x0;
      for (int k = 1; k <= half; ++k) {
        const long left = p - k * d, right = p + k * d;
        acc += int64_t{hc[static_cast<size_t>(half - k)]} *
               ((left >= 0 ? mid[r][static_cast<size_t>(left)] : x0) +
                (right + 1 < n ? mid[r][static_cast<size_t>(right)] : x0));
      }
      out[r][static_cast<size_t>(p)] = clamp_round(acc);
    }
  }
  return out;
}

TEST(SubPixelFilterFir, RandomImagesMatchReference) {
  const uint32_t seed = framedsp_test::test_seed();
  std::mt19937 rng(seed);
  for (uint32_t format : {21u, 0u, 1u, 261u}) {
    for (int bottom_up = 0; bottom_up <= 1; ++bottom_up) {
      for (int interleaved = 0; interleaved <= 1; ++interleaved) {
        for (int taps : {3, 7, 15}) {
          for (int horizontal = 0; horizontal <= 1; ++horizontal) {
            const uint32_t w = 2 * (3 + rng() % 40), h = 1 + rng() % 24;
            Img in(format, w, h), out(format, w, h);
            framedsp_test::fill_random(in.data(), in.bytes(), rng);
            std::memset(out.data(), 0x3C, out.bytes());
            const uint32_t il = interleaved ? DSP_INTERLACE_INTERLEAVED : DSP_INTERLACE_PROGRESSIVE;
            DSP_FIR_SETTINGS fir{horizontal ? 5u : 3u, horizontal ? 40u : 100u, 0,
                                 static_cast<uint32_t>(taps), 25};
            DSP_SUBPIXEL_FILTER_PARAMS p{};
            p.eFilterType = DSP_FILTER_TYPE_FIR;
            p.pSettings = &fir;
            p.Buffer.In = framedsp_test::fractional(in.image(2, il, bottom_up), 0, 0, 0.5, 0.5);
            p.Buffer.Out = framedsp_test::fractional(out.image(2, il, bottom_up), 0, 0, 0.5, 0.5);
            ASSERT_EQ(DSP_S_OK, DspSubPixelFilter(&p));
            ASSERT_TRUE(out.mem->intact()) << out.mem->damage();
            std::vector<std::vector<uint8_t>> rows(h);
            const size_t n = size_t{w} * main_bytes(format);
            for (uint32_t y = 0; y < h; ++y) {
              const size_t my = bottom_up ? h - 1 - y : y;
              rows[y].assign(in.data() + my * in.stride, in.data() + my * in.stride + n);
            }
            const auto want = reference(rows, format,
                                        horizontal ? table_row(5, 40) : std::vector<int16_t>{},
                                        table_row(taps, 25), interleaved ? 2 : 1);
            for (uint32_t y = 0; y < h; ++y) {
              const size_t my = bottom_up ? h - 1 - y : y;
              const uint8_t *line = out.data() + my * out.stride;
              ASSERT_EQ(0, std::memcmp(want[y].data(), line, n))
                  << "format " << format << " bottom_up " << bottom_up << " interleaved "
                  << interleaved << " taps " << taps << " h " << h << " row " << y << " seed "
                  << seed << "\n"
                  << framedsp_test::hex_diff(want[y].data(), line, n);
              for (size_t x = n; x < out.stride; ++x) ASSERT_EQ(0x3C, line[x]) << "row " << y;
            }
          }
        }
      }
    }
  }
}

// The vertical taps differ from DspFilter's only near the top and bottom: rows far enough from both
// edges come out the same.
TEST(SubPixelFilterFir, InteriorRowsEqualTheWholePixelFilter) {
  std::mt19937 rng(77);
  const uint32_t w = 40, h = 30;
  Img in(21, w, h), a(21, w, h), b(21, w, h);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  DSP_FIR_SETTINGS fir{7, 30, 0, 7, 30};
  DSP_FILTER_PARAMS whole{};
  whole.eFilterType = DSP_FILTER_TYPE_FIR;
  whole.pSettings = &fir;
  whole.Buffer.In = in.image(2, 2, 0);
  whole.Buffer.Out = a.image(2, 2, 0);
  ASSERT_EQ(DSP_S_OK, DspFilter(&whole));
  DSP_SUBPIXEL_FILTER_PARAMS sub{};
  sub.eFilterType = DSP_FILTER_TYPE_FIR;
  sub.pSettings = &fir;
  sub.Buffer.In = framedsp_test::fractional(in.image(2, 2, 0), 0, 0, 0, 0);
  sub.Buffer.Out = framedsp_test::fractional(b.image(2, 2, 0), 0, 0, 0, 0);
  ASSERT_EQ(DSP_S_OK, DspSubPixelFilter(&sub));
  int differing = 0;
  for (uint32_t y = 0; y < h; ++y) {
    const bool same = std::memcmp(a.data() + y * a.stride, b.data() + y * b.stride, w * 2) == 0;
    if (y >= 3 && y + 6 < h) {
      EXPECT_TRUE(same) << "row " << y;
    }
    differing += !same;
  }
  EXPECT_GT(differing, 0);  // the bottom rows do differ (rows H - 6 .. H - 2)
}

// ---- validation, settings, memory

DSP_SUBPIXEL_FILTER_PARAMS record(Img &in, Img &out, const void *settings, uint32_t type) {
  DSP_SUBPIXEL_FILTER_PARAMS p{};
  p.eFilterType = type;
  p.pSettings = settings;
  p.Buffer.In = framedsp_test::fractional(in.image(2, 2, 0), 0, 0, 0, 0);
  p.Buffer.Out = framedsp_test::fractional(out.image(2, 2, 0), 0, 0, 0, 0);
  return p;
}

struct Verdict {
  const char *label;
  uint32_t format;
  double in_width, out_width;
  bool accepted;
};

void PrintTo(const Verdict &v, std::ostream *os) { *os << v.label; }

class SubPixelWidths : public ::testing::TestWithParam<Verdict> {};

TEST_P(SubPixelWidths, FilteredOrUntouched) {
  const Verdict &v = GetParam();
  Img in(v.format, 800, 4), out(v.format, 800, 4);
  std::mt19937 rng(3);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  std::memset(out.data(), 0x3C, out.bytes());
  DSP_BOX_SETTINGS box{3, 0, 0};
  DSP_SUBPIXEL_FILTER_PARAMS p = record(in, out, &box, DSP_FILTER_TYPE_BOX);
  p.Buffer.In.Buffer.Region.ulWidth = v.in_width;
  p.Buffer.Out.Buffer.Region.ulWidth = v.out_width;
  framedsp::set_trace_override(1);
  ::testing::internal::CaptureStderr();
  const DSP_HRESULT hr = DspSubPixelFilter(&p);
  const std::string trace = ::testing::internal::GetCapturedStderr();
  framedsp::set_trace_override(-1);
  EXPECT_EQ(hr, DSP_S_OK);
  EXPECT_TRUE(out.mem->intact()) << out.mem->damage();
  bool untouched = true;
  for (size_t i = 0; i < out.bytes(); ++i) untouched = untouched && out.data()[i] == 0x3C;
  EXPECT_EQ(untouched, !v.accepted);
  if (v.accepted) {
    EXPECT_EQ(trace, "");
    // The whole part of the width is filtered and nothing beyond it.
    const size_t n = static_cast<size_t>(v.in_width) * main_bytes(v.format);
    for (uint32_t y = 0; y < 4; ++y) {
      const uint8_t *line = out.data() + y * out.stride;
      EXPECT_TRUE(line[n - 1] != 0x3C || line[n - 2] != 0x3C || line[n - 3] != 0x3C) << y;
      for (size_t x = n; x < out.stride; ++x) ASSERT_EQ(out.data()[y * out.stride + x], 0x3C);
    }
  } else {
    EXPECT_EQ(trace.rfind("DspSubPixelFilter: refused: ", 0), 0u) << trace;
  }
}

const Verdict kVerdicts[] = {  // (the refused widths are rows of the export validation table)
    {"uyvy_720_0_and_720_0", 21, 720.0, 720.0, true},
    {"uyvy_720_5", 21, 720.5, 720.5, true},
    {"bgra_721_5", 0, 721.5, 721.5, true},
    {"bgra_721_5_and_721_25", 0, 721.5, 721.25, false},
};

INSTANTIATE_TEST_SUITE_P(Validation, SubPixelWidths, ::testing::ValuesIn(kVerdicts),
                         [](const ::testing::TestParamInfo<Verdict> &info) {
                           return std::string(info.param.label);
                         });

TEST(SubPixelFilter, WorkMemoryReleasedOnEveryPath) {
  Img in(21, 48, 12), out(21, 48, 12);
  std::mt19937 rng(8);
  framedsp_test::fill_random(in.data(), in.bytes(), rng);
  const DSP_FIR_SETTINGS fir{7, 30, 0, 5, 50};
  const DSP_BOX_SETTINGS box{5, 0, 5};
  for (uint32_t options : {0u, DSP_FILTER_OPTION_TEMP_FRAME}) {
    for (int is_box = 0; is_box < 2; ++is_box) {
      DSP_SUBPIXEL_FILTER_PARAMS p = is_box ? record(in, out, &box, DSP_FILTER_TYPE_BOX)
                                            : record(in, out, &fir, DSP_FILTER_TYPE_FIR);
      p.ulOptions = options;
      SCOPED_TRACE(std::to_string(options) + " box " + std::to_string(is_box));
      framedsp_test::expect_released_on_every_failure([&] { return DspSubPixelFilter(&p); });
      EXPECT_TRUE(out.mem->intact());
    }
  }
}

// Random fractional records, regions reaching outside the images included: every call stays inside
// its output (guards), and wherever DspFilter accepts the truncated record as well, the bytes are
// DspFilter's (box and horizontal-only FIR share every kernel).
TEST(SubPixelFilter, RandomRecordsMatchTheTruncatedWholePixelRecord) {
  const uint32_t seed = framedsp_test::test_seed();
  std::mt19937 rng(seed);
  const uint32_t formats[] = {0, 1, 21, 24, 25, 261, 28, 22};
  const uint32_t types[] = {0, 1, 2, 2};
  int compared = 0;
  for (int i = 0; i < 400; ++i) {
    const uint32_t format = formats[rng() % 8];
    const uint32_t w = 2 * (1 + rng() % 12), hi = 2 + rng() % 10, ho = 2 + rng() % 10;
    Img in(format, w, hi), out(format, w, ho), out_whole(format, w, ho);
    framedsp_test::fill_random(in.data(), in.bytes(), rng);
    std::memset(out.data(), 0x3C, out.bytes());
    std::memset(out_whole.data(), 0x3C, out_whole.bytes());
    const uint32_t in_type = types[rng() % 4], out_type = types[rng() % 4];
    DSP_BUFFER whole{};
    whole.In = in.image(in_type, rng() % 4, rng() % 2);
    whole.Out = out_whole.image(out_type, rng() % 4, rng() % 2);
    whole.ulFlags = rng() % 32;
    DSP_SUBPIXEL_FILTER_PARAMS sub{};
    sub.Buffer.In = framedsp_test::fractional(whole.In, 0, 0, 0, 0);
    sub.Buffer.Out = framedsp_test::fractional(out.image(out_type, whole.Out.eInterlace,
                                          whole.Out.eImageOrientation), 0, 0, 0, 0);
    sub.Buffer.ulFlags = whole.ulFlags;
    const auto value = [&](double lo, double hi_) {
      return lo + (hi_ - lo) * static_cast<double>(rng() % 10000) / 10000.0;
    };
    const double width = value(-4, w + 6), x_in = value(-5, w), x_out = value(-5, w);
    const double h_out = value(-2, ho + 4);
    const double factor = in_type == 2 && out_type != 2 ? 2.0 : (out_type == 2 && in_type != 2 ? 0.5 : 1.0);
    DSP_SUBPIXEL_REGION &ri = sub.Buffer.In.Buffer.Region, &ro = sub.Buffer.Out.Buffer.Region;
    ri = {{x_in, value(-3, hi)}, width, h_out * factor};
    ro = {{x_out, value(-3, ho)}, width, h_out};
    // The truncated record for DspFilter.
    for (int side = 0; side < 2; ++side) {
      const DSP_SUBPIXEL_REGION &r = side ? ro : ri;
      DSP_REGION &d = side ? whole.Out.Buffer.Region : whole.In.Buffer.Region;
      d.ptOffset.x = static_cast<int32_t>(static_cast<int64_t>(r.ptOffset.x));
      d.ptOffset.y = static_cast<int32_t>(static_cast<int64_t>(r.ptOffset.y));
      d.ulWidth = static_cast<uint32_t>(static_cast<int64_t>(r.ulWidth));
      d.ulHeight = static_cast<uint32_t>(static_cast<int64_t>(r.ulHeight));
    }
    const bool box = rng() % 2;
    const uint32_t box_w = static_cast<uint32_t>(rng() % 6), box_h = static_cast<uint32_t>(rng() % 6);
    const uint32_t taps = static_cast<uint32_t>(3 + rng() % 13);
    const uint32_t cutoff = rng() % 2 ? 30u : 100u;
    DSP_BOX_SETTINGS box_settings{box_w, 0, box_h};
    DSP_FIR_SETTINGS fir_settings{taps, cutoff, 0, 3, 100};
    sub.eFilterType = box ? DSP_FILTER_TYPE_BOX : DSP_FILTER_TYPE_FIR;
    sub.pSettings = box ? static_cast<const void *>(&box_settings) : &fir_settings;
    sub.ulOptions = rng() % 2;
    DSP_FILTER_PARAMS p{};
    p.eFilterType = sub.eFilterType;
    p.pSettings = sub.pSettings;
    p.Buffer = whole;
    p.ulOptions = sub.ulOptions;
    const DSP_HRESULT got = DspSubPixelFilter(&sub);
    ASSERT_TRUE(out.mem->intact()) << "case " << i << " seed " << seed << " " << out.mem->damage();
    // The temporary frame is sized from the truncated region as given (a negative width reads as
    // a huge unsigned one), as DspFilter sizes it: work memory can then not be had.
    ASSERT_TRUE(got == DSP_S_OK || (sub.ulOptions == 1 && got == DSP_E_OUTOFMEMORY))
        << "case " << i << " status " << got;
    // Accepted by DspFilter's rules: exact equal widths are kept by truncation; heights may not be.
    const bool whole_accepts = whole.In.Buffer.Region.ulWidth == whole.Out.Buffer.Region.ulWidth &&
                               double(whole.Out.Buffer.Region.ulHeight) * factor ==
                                   double(whole.In.Buffer.Region.ulHeight);
    const bool sub_accepts = !(in_type == 2 && whole.In.eInterlace == 0 && out_type == 2 &&
                               whole.Out.eInterlace == 2) &&
                             (format == 0 || format == 1 ||
                              ((static_cast<int64_t>(width) & 1) == 0));
    if (whole_accepts && sub_accepts) {
      ASSERT_EQ(got, DspFilter(&p)) << "case " << i << " seed " << seed;
      ASSERT_TRUE(out_whole.mem->intact());
      ASSERT_EQ(0, std::memcmp(out.data(), out_whole.data(), out.bytes()))
          << "case " << i << " seed " << seed << "\n"
          << framedsp_test::hex_diff(out_whole.data(), out.data(), out.bytes());
      ++compared;
    }
  }
  EXPECT_GT(compared, 40);
}

}  // namespace
