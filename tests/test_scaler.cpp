// DspScaler through the export: every class, scale mode and filter against a reference scaler
// written here (per-sample formulas, per-field line lists), both orientations, fields and
// interlaced frames, bands, the geometry step's derived sizes, every validation error, staged
// mode, two-plane formats, colour conversion and work memory on every path.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "platform/trace.h"
#include "platform/work_memory.h"
#include "framedsp/framedsp.h"
#include "copy/color_kernels.h"
#include "scale_reference.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;
using namespace scale_ref;

constexpr uint8_t kFill = 0xEE;  // output bytes before the call

// One single-plane picture in guarded memory; lines addressed in picture order.
struct Pic {
  uint32_t format, width, height, stride;
  bool bottom_up;
  std::unique_ptr<GuardedBuffer> mem;
  Pic(uint32_t f, uint32_t w, uint32_t h, bool up, uint32_t slack = 8, uint8_t fill = kFill)
      : format(f), width(w), height(h), bottom_up(up) {
    stride = w * pixel_bytes(f) + slack;
    mem = std::make_unique<GuardedBuffer>(size_t(stride) * h, 48, fill);
  }
  uint8_t *line(uint32_t j) { return mem->data() + size_t(bottom_up ? height - 1 - j : j) * stride; }
  std::vector<uint8_t> bytes() const { return std::vector<uint8_t>(mem->data(), mem->data() + size_t(stride) * height); }
};

DSP_IMAGE image_of(Pic &p, int x, int y, uint32_t rw, uint32_t rh, uint32_t type, uint32_t interlace) {
  DSP_IMAGE im{};
  im.Buffer.pBuffer = p.mem->data();
  im.Buffer.ulBytes = uint32_t(size_t(p.stride) * p.height);
  im.Buffer.eBufferType = type;
  im.Buffer.Region.ptOffset.x = x;
  im.Buffer.Region.ptOffset.y = y;
  im.Buffer.Region.ulWidth = rw;
  im.Buffer.Region.ulHeight = rh;
  im.ulWidth = p.width;
  im.ulHeight = p.height;
  im.ePixelFormat = p.format;
  im.eInterlace = interlace;
  im.eImageOrientation = p.bottom_up ? DSP_ORIENTATION_BOTTOM_UP : DSP_ORIENTATION_TOP_DOWN;
  im.ulPrimaryStrideBytes = p.stride;
  return im;
}

DSP_SCALER_PARAMS params_of(const DSP_IMAGE &in, const DSP_IMAGE &out, uint32_t filter) {
  DSP_SCALER_PARAMS p{};
  p.eFilter = filter;
  p.fHorizontalScale = 1.0f;
  p.fVerticalScale = 1.0f;
  p.Buffer.In = in;
  p.Buffer.Out = out;
  return p;
}

// Scales the source lines (each at its region's first byte) into the destination lines.
void ref_scale(uint32_t format, bool linear, const std::vector<const uint8_t *> &src, size_t sb,
               const std::vector<uint8_t *> &dst, size_t db, uint32_t src_pixels, uint32_t dst_pixels,
               uint64_t vstep) {
  const RefLayout &l = layout_of(format);
  const uint32_t hstep = uint32_t((uint64_t(src_pixels) << 14) / dst_pixels);
  std::vector<uint8_t> a(db), b(db);
  const size_t n = src.size();
  for (size_t k = 0; k < dst.size(); ++k) {
    const uint64_t p = uint64_t(k) * vstep;
    const size_t i = std::min<uint64_t>(p >> 14, n - 1);
    const uint32_t f = uint32_t(p & 16383);
    std::copy(dst[k], dst[k] + db, a.begin());  // bytes outside whole groups stay
    reference(l, linear, src[i], sb, a.data(), db, hstep);
    if (linear && f) {
      std::copy(dst[k], dst[k] + db, b.begin());
      reference(l, linear, src[std::min(i + 1, n - 1)], sb, b.data(), db, hstep);
      for (size_t x = 0; x < db; ++x) a[x] = uint8_t((a[x] * (16384 - f) + b[x] * f + 8192) >> 14);
    }
    std::memcpy(dst[k], a.data(), db);
  }
}

// Region lines first, first + step, ... of a picture at column x.
std::vector<const uint8_t *> src_lines(Pic &p, int x, int y, int first, int step, int count) {
  std::vector<const uint8_t *> v;
  for (int i = 0; i < count; ++i) v.push_back(p.line(uint32_t(y + first + i * step)) + size_t(x) * pixel_bytes(p.format));
  return v;
}
std::vector<uint8_t *> dst_lines(Pic &p, int x, int y, int first, int step, int count) {
  std::vector<uint8_t *> v;
  for (int i = 0; i < count; ++i) v.push_back(p.line(uint32_t(y + first + i * step)) + size_t(x) * pixel_bytes(p.format));
  return v;
}

// A copy of the picture bytes as an expectation buffer with the same line addressing.
struct Expect {
  Pic pic;
  explicit Expect(Pic &from) : pic(from.format, from.width, from.height, from.bottom_up, from.stride - from.width * pixel_bytes(from.format)) {
    std::memcpy(pic.mem->data(), from.mem->data(), size_t(from.stride) * from.height);
  }
};

void expect_same(Pic &want, Pic &got, const std::string &what) {
  ASSERT_TRUE(got.mem->intact()) << what << " " << got.mem->damage();
  const size_t n = size_t(got.stride) * got.height;
  ASSERT_EQ(0, std::memcmp(want.mem->data(), got.mem->data(), n))
      << what << "\n" << framedsp_test::hex_diff(want.mem->data(), got.mem->data(), n);
}

void fill_pic(Pic &p, std::mt19937 &rng, int lo = 0, int hi = 255) {
  for (uint32_t j = 0; j < p.height; ++j) {
    for (uint32_t i = 0; i < p.stride; ++i) p.line(j)[i] = uint8_t(lo + int(rng() % uint32_t(hi - lo + 1)));
  }
}

// ---- progressive frames: every class, mode and filter, both orientations --------------------

struct FrameCase {
  uint32_t format;
  uint32_t filter;
  uint32_t sw, sh, dw, dh;
};

class ScalerFrameTest : public ::testing::TestWithParam<FrameCase> {};

TEST_P(ScalerFrameTest, MatchesReferenceInEveryOrientation) {
  const FrameCase c = GetParam();
  std::mt19937 rng(framedsp_test::test_seed() + c.format * 7 + c.sw * 3 + c.dh);
  for (int orient = 0; orient < 4; ++orient) {
    for (int simd = 0; simd < 2; ++simd) {
      framedsp::set_cpu_mask(simd ? ~0u : 0u);
      Pic in(c.format, c.sw + 6, c.sh + 3, orient & 1);
      Pic out(c.format, c.dw + 4, c.dh + 2, (orient >> 1) & 1);
      fill_pic(in, rng);
      Expect want(out);
      const int ix = 2, iy = 1, ox = 2, oy = 1;
      const uint64_t vstep = (uint64_t(c.sh) << 14) / c.dh;
      const size_t bpp = pixel_bytes(c.format);
      ref_scale(c.format, c.filter == 1, src_lines(in, ix, iy, 0, 1, int(c.sh)), c.sw * bpp,
                dst_lines(want.pic, ox, oy, 0, 1, int(c.dh)), c.dw * bpp, c.sw, c.dw,
                c.sh == c.dh ? 16384 : vstep);
      DSP_SCALER_PARAMS p = params_of(image_of(in, ix, iy, c.sw, c.sh, 2, 2), image_of(out, ox, oy, c.dw, c.dh, 2, 2), c.filter);
      const auto before = in.bytes();
      const DSP_SCALER_PARAMS copy = p;
      ASSERT_EQ(DspScaler(&p), DSP_S_OK) << "orientation " << orient;
      framedsp::set_cpu_mask(~0u);
      EXPECT_EQ(0, std::memcmp(&copy, &p, sizeof p)) << "the caller's record changed";
      EXPECT_EQ(before, in.bytes());
      expect_same(want.pic, out, "format " + std::to_string(c.format) + " orientation " + std::to_string(orient) +
                                     " simd " + std::to_string(simd));
    }
  }
}

std::vector<FrameCase> frame_cases() {
  std::vector<FrameCase> v;
  const uint32_t formats[] = {0, 1, 21, 22, 23, 24, 25, 31, 129, 261, 262, 263};
  const uint32_t sizes[][4] = {{20, 12, 14, 9},  {16, 10, 32, 21}, {18, 8, 18, 13}, {18, 8, 30, 8},
                               {24, 9, 10, 9},   {12, 14, 12, 5},  {2, 2, 40, 7},   {40, 7, 2, 3}};
  for (uint32_t f : formats) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      for (const auto &s : sizes) v.push_back({f, filter, s[0], s[1], s[2], s[3]});
    }
  }
  // Odd widths where the format allows them.
  for (uint32_t filter = 0; filter < 2; ++filter) {
    v.push_back({0, filter, 7, 5, 11, 9});
    v.push_back({1, filter, 13, 6, 5, 11});
  }
  return v;
}

std::string frame_case_name(const ::testing::TestParamInfo<FrameCase> &i) {
  const FrameCase &c = i.param;
  return "f" + std::to_string(c.format) + (c.filter ? "_linear_" : "_nearest_") + std::to_string(c.sw) + "x" +
         std::to_string(c.sh) + "_to_" + std::to_string(c.dw) + "x" + std::to_string(c.dh);
}

INSTANTIATE_TEST_SUITE_P(Classes, ScalerFrameTest, ::testing::ValuesIn(frame_cases()), frame_case_name);

// ---- fields ---------------------------------------------------------------------------------

// Field A lines hold 0..99, field B lines 150..249: blends inside one field stay in its range.
// A field buffer holds one field's lines only.
void fill_fields(Pic &p, std::mt19937 &rng, uint32_t type, bool halves) {
  for (uint32_t j = 0; j < p.height; ++j) {
    const bool b = type != 2 ? type == 1 : (halves ? j >= p.height / 2 : (j & 1));
    for (uint32_t i = 0; i < p.stride; ++i) p.line(j)[i] = uint8_t((b ? 150 : 0) + rng() % 100);
  }
}

struct FieldCase {
  const char *name;
  uint32_t in_type, in_il, out_type, out_il, flags;
  uint32_t sh, dh;
};

class ScalerFieldTest : public ::testing::TestWithParam<FieldCase> {};

TEST_P(ScalerFieldTest, EachFieldScalesIntoItsOwnLines) {
  const FieldCase c = GetParam();
  for (uint32_t format : {21u, 0u}) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      for (int up = 0; up < 2; ++up) {
        std::mt19937 rng(framedsp_test::test_seed() + c.sh * 5 + filter);
        const uint32_t sw = 12, dw = 18;
        const bool in_frame = c.in_type == 2, out_frame = c.out_type == 2;
        Pic in(format, sw, c.sh, up);
        Pic out(format, dw, c.dh, !up);
        fill_fields(in, rng, c.in_type, c.in_il == 3);
        Expect want(out);
        const size_t bpp = pixel_bytes(format);
        // Runs: (source lines, destination lines) per field, and the vertical step.
        struct Lines {
          int first, step, count;
        };
        auto side = [](bool frame, uint32_t il, int parity, int h) -> Lines {
          if (!frame) return {0, 1, h};
          if (il == 3) return {parity * (h / 2), 1, parity ? h - h / 2 : h / 2};
          return {parity, 2, (h - parity + 1) / 2};
        };
        std::vector<int> parities;
        if (in_frame && out_frame) {
          if (c.flags & DSP_BUFFER_PROCESS_FIELDA) parities.push_back(0);
          if (c.flags & DSP_BUFFER_PROCESS_FIELDB) parities.push_back(1);
          if (parities.empty()) parities = {0, 1};
        } else {
          parities.push_back(in_frame ? int(c.out_type) : int(c.in_type));
        }
        const int sff = (!in_frame && out_frame) ? 1 : 0, dff = (in_frame && !out_frame) ? 1 : 0;
        const uint64_t vstep = ((uint64_t(c.sh) << 14) << sff) / (uint64_t(c.dh) << dff);
        for (int par : parities) {
          const Lines s = side(in_frame, c.in_il, par, int(c.sh));
          const Lines d = side(out_frame, c.out_il, par, int(c.dh));
          ref_scale(format, filter == 1, src_lines(in, 0, 0, s.first, s.step, s.count), sw * bpp,
                    dst_lines(want.pic, 0, 0, d.first, d.step, d.count), dw * bpp, sw, dw, vstep);
          // The other field's values never reach these lines.
          for (int k = 0; k < d.count; ++k) {
            const uint8_t *l = want.pic.line(uint32_t(d.first + k * d.step));
            for (size_t x = 0; x < dw * bpp; ++x) {
              ASSERT_TRUE(par ? l[x] >= 150 : l[x] < 100) << "reference mixes fields";
            }
          }
        }
        DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, sw, c.sh, c.in_type, c.in_il),
                                        image_of(out, 0, 0, dw, c.dh, c.out_type, c.out_il), filter);
        p.Buffer.ulFlags = c.flags;
        ASSERT_EQ(DspScaler(&p), DSP_S_OK);
        expect_same(want.pic, out, std::string(c.name) + " format " + std::to_string(format) + " filter " +
                                       std::to_string(filter) + " up " + std::to_string(up));
      }
    }
  }
}

const FieldCase kFieldCases[] = {
    {"FrameFieldsDown", 2, 1, 2, 1, 0, 12, 8},
    {"FrameFieldsUp", 2, 1, 2, 1, 0, 8, 14},
    {"FrameFieldsOddOut", 2, 1, 2, 1, 0, 10, 7},
    {"HalvesIntoInterleaved", 2, 3, 2, 1, 0, 12, 18},
    {"InterleavedIntoHalves", 2, 1, 2, 3, 0, 12, 6},
    {"FieldAIntoFrame", 0, 2, 2, 1, 0, 6, 16},
    {"FieldBIntoFrame", 1, 2, 2, 1, 0, 6, 10},
    {"FrameIntoFieldB", 2, 1, 1, 1, 0, 16, 5},
    {"FrameIntoFieldA", 2, 1, 0, 1, 0, 10, 9},
    {"SelectFieldB", 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDB, 12, 8},
    {"SelectFieldA", 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDA, 8, 12},
    {"FieldToField", 0, 2, 1, 2, 0, 7, 11},
};

INSTANTIATE_TEST_SUITE_P(Fields, ScalerFieldTest, ::testing::ValuesIn(kFieldCases),
                         [](const ::testing::TestParamInfo<FieldCase> &i) { return std::string(i.param.name); });

// ---- bands ------------------------------------------------------------------------------------

TEST(ScalerBands, BandsWriteDisjointLinesThatTogetherMakeTheWholeOutput) {
  struct B {
    uint32_t in_il, out_il, count, sh, dh;
  } cases[] = {{2, 2, 3, 20, 12}, {2, 2, 4, 9, 13}, {1, 1, 2, 12, 16}, {1, 1, 3, 16, 12}};
  for (const B &c : cases) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      std::mt19937 rng(framedsp_test::test_seed());
      Pic in(21, 16, c.sh, false);
      fill_pic(in, rng, 0, 200);
      Pic whole(21, 10, c.dh, false), banded(21, 10, c.dh, false);
      DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, 16, c.sh, 2, c.in_il), image_of(whole, 0, 0, 10, c.dh, 2, c.out_il), filter);
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      std::vector<int> owner(c.dh, 0);
      for (uint32_t n = 1; n <= c.count; ++n) {
        Pic one(21, 10, c.dh, false);
        DSP_SCALER_PARAMS q = p;
        q.Buffer.Out = image_of(one, 0, 0, 10, c.dh, 2, c.out_il);
        q.Buffer.ulSliceCount = c.count;
        q.Buffer.ulSliceNumber = n;
        ASSERT_EQ(DspScaler(&q), DSP_S_OK);
        for (uint32_t j = 0; j < c.dh; ++j) {
          bool written = false;
          for (uint32_t x = 0; x < 20; ++x) written |= one.line(j)[x] != kFill;
          if (!written) continue;
          EXPECT_EQ(owner[j], 0) << "line " << j << " written by bands " << owner[j] << " and " << n;
          owner[j] = int(n);
          std::memcpy(banded.line(j), one.line(j), 20);
          EXPECT_EQ(0, std::memcmp(one.line(j), whole.line(j), 20)) << "line " << j << " band " << n;
        }
      }
      for (uint32_t j = 0; j < c.dh; ++j) EXPECT_NE(owner[j], 0) << "line " << j << " in no band";
    }
  }
}

// ---- geometry step ------------------------------------------------------------------------------

// Written extent of the output after a call: columns and lines that differ from the fill.
struct Extent {
  uint32_t w, h;
};
Extent written(Pic &p) {
  Extent e{0, 0};
  const uint32_t bpp = pixel_bytes(p.format);
  for (uint32_t j = 0; j < p.height; ++j) {
    for (uint32_t x = 0; x < p.width * bpp; ++x) {
      if (p.line(j)[x] != kFill) {
        e.h = std::max(e.h, j + 1);
        e.w = std::max(e.w, x / bpp + 1);
      }
    }
  }
  return e;
}

struct DeriveCase {
  uint32_t in_type, out_type, sw, sh;
  float fh, fv;
  uint32_t room_w, room_h;  // output image size (region at the origin)
  uint32_t want_w, want_h;
};

TEST(ScalerGeometry, DerivedSizesRoundClampAndKeepLinePairs) {
  const DeriveCase cases[] = {
      {2, 2, 20, 10, 0.5f, 0.5f, 64, 64, 10, 6},    // 5 lines -> 6 on a frame
      {2, 2, 20, 14, 0.75f, 0.5f, 64, 64, 15, 8},   // 7 -> 8
      {2, 2, 10, 10, 1.25f, 1.25f, 64, 64, 13, 14}, // 12.5 -> 13, 12.5 -> 13 -> 14
      {0, 0, 10, 10, 1.25f, 1.25f, 64, 64, 13, 13}, // a field keeps an odd height
      {2, 0, 20, 12, 1.0f, 1.0f, 64, 64, 20, 6},    // frame -> field: height x 0.5
      {0, 2, 20, 5, 1.0f, 1.0f, 64, 64, 20, 10},    // field -> frame: x 2
      {2, 2, 20, 10, 3.0f, 3.0f, 41, 23, 41, 22},   // clamped to the room; 23 odd at the room -> 22
      {2, 2, 10, 4, 0.04f, 0.04f, 64, 64, 0, 0},    // rounds to nothing
  };
  for (const DeriveCase &c : cases) {
    Pic in(0, c.sw, c.sh, false);
    Pic out(0, c.room_w, c.room_h, false);
    std::mt19937 rng(1);
    fill_pic(in, rng, 0, 200);
    DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, c.sw, c.sh, c.in_type, 2), image_of(out, 0, 0, 1, 1, c.out_type, 2), 1);
    p.fHorizontalScale = c.fh;
    p.fVerticalScale = c.fv;
    p.ulScaleFlags = DSP_SCALE_FLAG_DERIVE_SIZE;
    ASSERT_EQ(DspScaler(&p), DSP_S_OK) << c.sw << "x" << c.sh << " * " << c.fh;
    const Extent e = written(out);
    // A field placed into a frame writes its own lines only: every second line.
    const uint32_t want_h = (c.in_type != 2 && c.out_type == 2) ? c.want_h - 1 : c.want_h;
    EXPECT_EQ(e.w, c.want_w) << c.sw << " * " << c.fh;
    EXPECT_EQ(e.h, want_h) << c.sh << " * " << c.fv;
  }
}

TEST(ScalerGeometry, EqualRegionsBecomeAFormatCopy) {
  std::mt19937 rng(3);
  Pic in(21, 16, 6, false), out(21, 16, 6, true);
  fill_pic(in, rng);
  DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, 16, 6, 2, 2), image_of(out, 0, 0, 16, 6, 2, 2), 1);
  ASSERT_EQ(DspScaler(&p), DSP_S_OK);
  for (uint32_t j = 0; j < 6; ++j) EXPECT_EQ(0, std::memcmp(in.line(j), out.line(j), 32)) << j;
  ASSERT_TRUE(out.mem->intact());
}

// ---- validation -----------------------------------------------------------------------------

struct ErrorCase {
  const char *name;
  void (*edit)(DSP_SCALER_PARAMS *);
  DSP_HRESULT want;
};

const ErrorCase kErrors[] = {
    {"FilterThree", [](DSP_SCALER_PARAMS *p) { p->eFilter = 3; }, DSP_E_INVALIDARG},
    {"FilterReserved", [](DSP_SCALER_PARAMS *p) { p->eFilter = 2; }, DSP_E_NOTIMPL},
    {"UnknownFormat", [](DSP_SCALER_PARAMS *p) { p->Buffer.In.ePixelFormat = p->Buffer.Out.ePixelFormat = 2; }, DSP_E_INVALIDARG},
    {"FormatChanges", [](DSP_SCALER_PARAMS *p) { p->Buffer.Out.ePixelFormat = 25; }, DSP_E_INVALIDARG},
    {"OddRegionWidth", [](DSP_SCALER_PARAMS *p) { p->Buffer.In.Buffer.Region.ulWidth = 15; }, DSP_E_INVALIDARG},
    {"OddImageWidth", [](DSP_SCALER_PARAMS *p) { p->Buffer.Out.ulWidth = 23; }, DSP_E_INVALIDARG},
    {"InterleavedIntoProgressive", [](DSP_SCALER_PARAMS *p) {
       p->Buffer.In.eInterlace = 0; p->Buffer.Out.eInterlace = 2; p->Buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDA; }, DSP_E_INVALIDARG},
    {"InterlaceZeroWithoutSelection", [](DSP_SCALER_PARAMS *p) { p->Buffer.In.eInterlace = 0; }, DSP_E_INVALIDARG},
    {"OutputInterlaceZeroWithoutSelection", [](DSP_SCALER_PARAMS *p) { p->Buffer.Out.eInterlace = 0; }, DSP_E_INVALIDARG},
    {"SelectionWithBothNonzero", [](DSP_SCALER_PARAMS *p) { p->Buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDB; }, DSP_E_INVALIDARG},
    {"InputRegionTooWide", [](DSP_SCALER_PARAMS *p) { p->Buffer.In.Buffer.Region.ptOffset.x = 4; }, DSP_E_INVALIDARG},
    {"InputRegionTooTall", [](DSP_SCALER_PARAMS *p) { p->Buffer.In.Buffer.Region.ptOffset.y = 1; }, DSP_E_INVALIDARG},
    {"NegativeInputOffset", [](DSP_SCALER_PARAMS *p) { p->Buffer.In.Buffer.Region.ptOffset.x = -2; }, DSP_E_INVALIDARG},
    {"OutputRegionPastTheRoom", [](DSP_SCALER_PARAMS *p) { p->Buffer.Out.Buffer.Region.ptOffset.y = 2; }, DSP_E_INVALIDARG},
    {"OutputOriginOutside", [](DSP_SCALER_PARAMS *p) { p->Buffer.Out.Buffer.Region.ptOffset.x = 100; }, DSP_E_INVALIDARG},
    {"NullInputMemory", [](DSP_SCALER_PARAMS *p) { p->Buffer.In.Buffer.pBuffer = nullptr; }, DSP_E_INVALIDARG},
    {"NullOutputMemory", [](DSP_SCALER_PARAMS *p) { p->Buffer.Out.Buffer.pBuffer = nullptr; }, DSP_E_INVALIDARG},
    {"FilteredPathWithoutFirType", [](DSP_SCALER_PARAMS *p) { p->ulOptions = DSP_SCALER_OPTION_FILTERED; }, DSP_E_INVALIDARG},
};

class ScalerErrorTest : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(ScalerErrorTest, IsRefusedAndWritesNothing) {
  Pic in(21, 16, 8, false), out(21, 24, 12, false);
  std::mt19937 rng(2);
  fill_pic(in, rng, 0, 200);
  DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, 16, 8, 2, 2), image_of(out, 0, 0, 24, 12, 2, 2), 1);
  ASSERT_EQ(DspScaler(&p), DSP_S_OK);  // the unedited record is fine
  Pic out2(21, 24, 12, false);
  p.Buffer.Out = image_of(out2, 0, 0, 24, 12, 2, 2);
  GetParam().edit(&p);
  EXPECT_EQ(DspScaler(&p), GetParam().want);
  const Extent e = written(out2);
  EXPECT_EQ(e.w + e.h, 0u);
  ASSERT_TRUE(out2.mem->intact());
}

INSTANTIATE_TEST_SUITE_P(Errors, ScalerErrorTest, ::testing::ValuesIn(kErrors),
                         [](const ::testing::TestParamInfo<ErrorCase> &i) { return std::string(i.param.name); });

TEST(ScalerValidation, NullRecordAndOddWidthRules) {
  EXPECT_EQ(DspScaler(nullptr), DSP_E_POINTER);
  // Odd widths: format 1 accepted, format 21 refused (above).
  Pic in(1, 7, 3, false), out(1, 11, 5, false);
  DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, 7, 3, 2, 2), image_of(out, 0, 0, 11, 5, 2, 2), 0);
  EXPECT_EQ(DspScaler(&p), DSP_S_OK);
  // A derived width past the room is clamped, not refused.
  p.ulScaleFlags = DSP_SCALE_FLAG_DERIVE_SIZE;
  p.fHorizontalScale = 5.0f;
  EXPECT_EQ(DspScaler(&p), DSP_S_OK);
  // The path choice falls back to the general path for a 3:1 ratio.
  p.eScalerPath = DSP_SCALER_PATH_INTEGER_RATIO;
  p.ulScaleFlags = 0;
  p.Buffer.Out.Buffer.Region.ulWidth = 2;
  EXPECT_EQ(DspScaler(&p), DSP_S_OK);
}

TEST(ScalerValidation, RefusalsAreTraced) {
  Pic in(21, 16, 8, false), out(21, 24, 12, false);
  DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, 16, 8, 2, 0), image_of(out, 0, 0, 24, 12, 2, 1), 1);
  framedsp::set_trace_override(1);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(DspScaler(&p), DSP_E_INVALIDARG);
  const std::string text = ::testing::internal::GetCapturedStderr();
  framedsp::set_trace_override(-1);
  EXPECT_NE(text.find("DspScaler: refused: interlace 0 needs"), std::string::npos) << text;
}

// ---- staged mode, two planes, colour, work memory ------------------------------------------------

TEST(ScalerStaged, SameBytesAsDirect) {
  struct S {
    uint32_t format, in_type, in_il, out_type, out_il, flags;
  } cases[] = {{21, 2, 2, 2, 2, 0}, {0, 2, 1, 2, 1, 0}, {25, 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDA},
               {262, 2, 2, 2, 2, 0}, {21, 0, 2, 2, 1, 0}};
  for (const S &c : cases) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      std::mt19937 rng(5);
      Pic in(c.format, 20, 10, true);
      fill_pic(in, rng);
      Pic direct(c.format, 30, 17, false), staged(c.format, 30, 17, false);
      DSP_SCALER_PARAMS p = params_of(image_of(in, 2, 1, 14, 8, c.in_type, c.in_il),
                                      image_of(direct, 4, 2, 26, 13, c.out_type, c.out_il), filter);
      p.Buffer.ulFlags = c.flags;
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      p.Buffer.Out = image_of(staged, 4, 2, 26, 13, c.out_type, c.out_il);
      p.ulOptions = DSP_SCALER_OPTION_STAGED;
      const auto before = framedsp::work_memory_stats();
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      const auto after = framedsp::work_memory_stats();
      EXPECT_EQ(after.allocations - before.allocations, after.releases - before.releases);
      expect_same(direct, staged, "staged format " + std::to_string(c.format));
    }
  }
}

TEST(ScalerTwoPlane, BothPlanesScaleWithTheSameGeometry) {
  struct T {
    uint32_t format, main, plane, main_bpp;
  } cases[] = {{28, 21, 261, 2}, {30, 25, 261, 2}, {5, 1, 261, 3}};
  for (const T &c : cases) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      const uint32_t sw = 10, sh = 6, dw = 16, dh = 9, iw = 12, ih = 7, ow = 18, oh = 11;
      const uint32_t is = iw * c.main_bpp + 4, ips = iw + 6, os = ow * c.main_bpp + 2, ops = ow + 10;
      GuardedBuffer inb(size_t(ih) * (is + ips), 32), outb(size_t(oh) * (os + ops), 32, kFill);
      std::mt19937 rng(9);
      framedsp_test::fill_random(inb.data(), inb.size(), rng);
      std::vector<uint8_t> want(outb.data(), outb.data() + outb.size());
      auto plane_lines = [](uint8_t *base, uint32_t stride, uint32_t first_off, int x, int y, uint32_t bpp, int n) {
        std::vector<uint8_t *> v;
        for (int i = 0; i < n; ++i) v.push_back(base + first_off + size_t(y + i) * stride + size_t(x) * bpp);
        return v;
      };
      const uint64_t vstep = (uint64_t(sh) << 14) / dh;
      auto s1 = plane_lines(inb.data(), is, 0, 1, 1, c.main_bpp, int(sh));
      auto s2 = plane_lines(inb.data(), ips, ih * is, 1, 1, 1, int(sh));
      // Format 28 and 30 need even region edges; x = 2 there.
      const int ox = c.format == 5 ? 1 : 2;
      ref_scale(c.main, filter, std::vector<const uint8_t *>(s1.begin(), s1.end()), sw * c.main_bpp,
                plane_lines(want.data(), os, 0, ox, 1, c.main_bpp, int(dh)), dw * c.main_bpp, sw, dw, vstep);
      ref_scale(c.plane, filter, std::vector<const uint8_t *>(s2.begin(), s2.end()), sw,
                plane_lines(want.data(), ops, oh * os, ox, 1, 1, int(dh)), dw, sw, dw, vstep);
      DSP_SCALER_PARAMS p{};
      p.eFilter = filter;
      DSP_IMAGE &in = p.Buffer.In;
      in.Buffer.pBuffer = inb.data();
      in.Buffer.ulBytes = uint32_t(inb.size());
      in.Buffer.eBufferType = 2;
      in.Buffer.Region = {{1, 1}, sw, sh};
      in.ulWidth = iw;
      in.ulHeight = ih;
      in.ePixelFormat = c.format;
      in.eInterlace = 2;
      in.ulPrimaryStrideBytes = is;
      in.ulSecondaryStrideBytes = ips;
      DSP_IMAGE &out = p.Buffer.Out;
      out = in;
      out.Buffer.pBuffer = outb.data();
      out.Buffer.ulBytes = uint32_t(outb.size());
      out.Buffer.Region = {{ox, 1}, dw, dh};
      out.ulWidth = ow;
      out.ulHeight = oh;
      out.ulPrimaryStrideBytes = os;
      out.ulSecondaryStrideBytes = ops;
      if (c.format != 5) {  // even edges for the 4:2:2 formats
        in.Buffer.Region.ptOffset.x = 2;
        s1 = plane_lines(inb.data(), is, 0, 2, 1, c.main_bpp, int(sh));
        s2 = plane_lines(inb.data(), ips, ih * is, 2, 1, 1, int(sh));
        std::memcpy(want.data(), outb.data(), outb.size());
        ref_scale(c.main, filter, std::vector<const uint8_t *>(s1.begin(), s1.end()), sw * c.main_bpp,
                  plane_lines(want.data(), os, 0, ox, 1, c.main_bpp, int(dh)), dw * c.main_bpp, sw, dw, vstep);
        ref_scale(c.plane, filter, std::vector<const uint8_t *>(s2.begin(), s2.end()), sw,
                  plane_lines(want.data(), ops, oh * os, ox, 1, 1, int(dh)), dw, sw, dw, vstep);
      }
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      ASSERT_TRUE(outb.intact());
      ASSERT_EQ(0, std::memcmp(want.data(), outb.data(), outb.size()))
          << "format " << c.format << "\n" << framedsp_test::hex_diff(want.data(), outb.data(), outb.size());
    }
  }
}

TEST(ScalerColor, ConvertingKernelsScaleThenConvertEachLine) {
  for (uint32_t format : {21u, 25u, 24u}) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      std::mt19937 rng(11);
      Pic in(format, 16, 8, false), out(format, 22, 11, false);
      fill_pic(in, rng);
      Expect want(out);
      ref_scale(format, filter, src_lines(in, 0, 0, 0, 1, 8), 32, dst_lines(want.pic, 0, 0, 0, 1, 11), 44, 16, 22,
                (uint64_t(8) << 14) / 11);
      // BT.601 -> BT.709 with the copy's weights in six fraction bits.
      const framedsp::ColorMatrix &m = framedsp::kBt601ToBt709;
      auto six = [](int w) { return w >= 0 ? (w + 128) / 256 : -((-w + 128) / 256); };
      const int ycb = six(m.y_cb), ycr = six(m.y_cr), bb = six(m.cb_cb), br = six(m.cb_cr), rb = six(m.cr_cb),
                rr = six(m.cr_cr);
      int y0 = 1, y1 = 3, cbo = 0, cro = 2;
      if (format == 25) y0 = 0, y1 = 2, cbo = 1, cro = 3;
      if (format == 24) y0 = 2, y1 = 3, cbo = 0, cro = 1;
      auto cl = [](int v) { return uint8_t(std::max(0, std::min(255, v))); };
      auto s16 = [](int v) { return std::max(-32768, std::min(32767, v)); };
      for (uint32_t j = 0; j < 11; ++j) {
        for (uint32_t g = 0; g < 11; ++g) {
          uint8_t *q = want.pic.line(j) + 4 * g;
          const int cb = q[cbo] - 128, cr = q[cro] - 128;
          q[y0] = cl(s16(64 * q[y0] + ycb * cb + ycr * cr + 32) >> 6);
          q[y1] = cl(s16(64 * q[y1] + ycb * cb + ycr * cr + 32) >> 6);
          q[cbo] = cl(128 + (s16(bb * cb + br * cr + 32) >> 6));
          q[cro] = cl(128 + (s16(rb * cb + rr * cr + 32) >> 6));
        }
      }
      DSP_IMAGE i = image_of(in, 0, 0, 16, 8, 2, 2), o = image_of(out, 0, 0, 22, 11, 2, 2);
      i.eColorSpace = DSP_COLOR_SPACE_BT601;
      o.eColorSpace = DSP_COLOR_SPACE_BT709;
      DSP_SCALER_PARAMS p = params_of(i, o, filter);
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      expect_same(want.pic, out, "colour format " + std::to_string(format));
    }
  }
}

TEST(ScalerWorkMemory, ReleasedOnSuccessAndOnEveryInjectedFailure) {
  for (uint32_t options : {0u, DSP_SCALER_OPTION_STAGED}) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      Pic in(21, 16, 8, false), out(21, 24, 12, false);
      DSP_SCALER_PARAMS p = params_of(image_of(in, 0, 0, 16, 8, 2, 2), image_of(out, 0, 0, 24, 12, 2, 2), filter);
      p.ulOptions = options;
      const auto a = framedsp::work_memory_stats();
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      const auto b = framedsp::work_memory_stats();
      const uint64_t used = b.allocations - a.allocations;
      EXPECT_GT(used, 0u);
      EXPECT_EQ(used, b.releases - a.releases);
      for (uint64_t k = 1; k <= used; ++k) {
        const auto c0 = framedsp::work_memory_stats();
        framedsp::work_memory_fail_at(k);
        EXPECT_EQ(DspScaler(&p), DSP_E_OUTOFMEMORY) << "allocation " << k;
        framedsp::work_memory_fail_at(0);
        const auto c1 = framedsp::work_memory_stats();
        EXPECT_EQ(c1.allocations - c0.allocations, c1.releases - c0.releases) << "allocation " << k;
      }
    }
  }
}

}  // namespace
