// DspScaler's filtered path (ulOptions bit 1) through the export.  The expectation of every
// accepted call is built here from two calls of the plain operations: DspScaler's general path
// into a picture shaped like the output region, then DspFilter from that picture into the output
// region, with the FIR directions of the scaled axes only.  Both operations are tested against
// per-sample formulas in their own suites.  Also: the dropped filter, the no-scaling cases, every
// refusal, staged mode, two-plane formats, bands, SIMD against scalar, guard bytes, work memory.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "platform/work_memory.h"
#include "framedsp/framedsp.h"
#include "scale_reference.h"
#include "test_util.h"

namespace {

using framedsp_test::GuardedBuffer;
using scale_ref::pixel_bytes;

constexpr uint8_t kFill = 0xEE;
constexpr uint32_t kOff = 100;  // cut-off that turns a direction off

struct Pic {
  uint32_t format, width, height, stride;
  bool bottom_up;
  std::unique_ptr<GuardedBuffer> mem;
  Pic(uint32_t f, uint32_t w, uint32_t h, bool up, uint32_t slack = 6)
      : format(f), width(w), height(h), stride(w * pixel_bytes(f) + slack), bottom_up(up) {
    mem = std::make_unique<GuardedBuffer>(size_t(stride) * h, 48, kFill);
  }
  size_t size() const { return size_t(stride) * height; }
};

DSP_IMAGE image_of(Pic &p, int x, int y, uint32_t rw, uint32_t rh, uint32_t type, uint32_t interlace) {
  DSP_IMAGE im{};
  im.Buffer.pBuffer = p.mem->data();
  im.Buffer.ulBytes = uint32_t(p.size());
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

void fill(Pic &p, std::mt19937 &rng) { framedsp_test::fill_random(p.mem->data(), p.size(), rng); }

// A picture whose bytes start as a copy of another's.
std::unique_ptr<Pic> clone(const Pic &from) {
  auto p = std::make_unique<Pic>(from.format, from.width, from.height, from.bottom_up,
                                 from.stride - from.width * pixel_bytes(from.format));
  std::memcpy(p->mem->data(), from.mem->data(), from.size());
  return p;
}

void expect_same(const Pic &want, const Pic &got, const std::string &what) {
  ASSERT_TRUE(got.mem->intact()) << what << " " << got.mem->damage();
  ASSERT_EQ(0, std::memcmp(want.mem->data(), got.mem->data(), got.size()))
      << what << "\n" << framedsp_test::hex_diff(want.mem->data(), got.mem->data(), got.size());
}

// The expectation: general DspScaler of `p` into a private picture shaped like the output
// region (same buffer type and interlace, top-down), then DspFilter with `fir` from that picture
// into `want`'s output region (want is `p`'s output before the call).
void scale_then_filter(const DSP_SCALER_PARAMS &p, Pic &want, const DSP_FIR_SETTINGS &fir) {
  const DSP_IMAGE &out = p.Buffer.Out;
  Pic t(out.ePixelFormat, out.Buffer.Region.ulWidth, out.Buffer.Region.ulHeight, false);
  DSP_SCALER_PARAMS g = p;
  g.ulOptions = 0;
  g.Buffer.ulSliceCount = 0;
  g.Buffer.ulSliceNumber = 0;
  g.Buffer.Out = image_of(t, 0, 0, t.width, t.height, out.Buffer.eBufferType, out.eInterlace);
  ASSERT_EQ(DspScaler(&g), DSP_S_OK);
  DSP_FILTER_PARAMS f{};
  f.eFilterType = DSP_FILTER_TYPE_FIR;
  f.pSettings = &fir;
  f.Buffer = p.Buffer;
  f.Buffer.In = g.Buffer.Out;
  f.Buffer.Out.Buffer.pBuffer = want.mem->data();
  ASSERT_EQ(DspFilter(&f), DSP_S_OK);
}

DSP_SCALER_PARAMS filtered_params(const DSP_IMAGE &in, const DSP_IMAGE &out, uint32_t filter,
                                  const DSP_FIR_SETTINGS *fir) {
  DSP_SCALER_PARAMS p{};
  p.eFilter = filter;
  p.fHorizontalScale = 1.0f;
  p.fVerticalScale = 1.0f;
  p.eFilterType = DSP_FILTER_TYPE_FIR;
  p.pSettings = fir;
  p.Buffer.In = in;
  p.Buffer.Out = out;
  p.ulOptions = DSP_SCALER_OPTION_FILTERED;
  return p;
}

// ---- progressive frames: formats, modes, up and down, both orientations, SIMD and scalar -------

struct FrameCase {
  uint32_t format;
  uint32_t sw, sh, dw, dh;
};

class FilteredFrameTest : public ::testing::TestWithParam<FrameCase> {};

TEST_P(FilteredFrameTest, EqualsScaleThenFilterOnTheScaledAxes) {
  const FrameCase c = GetParam();
  const bool h_scaled = c.sw != c.dw, v_scaled = c.sh != c.dh;
  // Both directions asked for; the one on an unscaled axis is dropped by the scaler.
  const DSP_FIR_SETTINGS asked{7, 30, 0, 5, 45};
  const DSP_FIR_SETTINGS used{7, h_scaled ? 30u : kOff, 0, 5, v_scaled ? 45u : kOff};
  for (uint32_t filter = 0; filter < 2; ++filter) {
    for (int up = 0; up < 4; ++up) {
      for (int simd = 0; simd < 2; ++simd) {
        std::mt19937 rng(framedsp_test::test_seed() + c.format * 13 + c.dw * 3 + c.dh + filter);
        Pic in(c.format, c.sw + 4, c.sh + 3, (up & 1) != 0);
        Pic out(c.format, c.dw + 6, c.dh + 4, (up & 2) != 0);
        fill(in, rng);
        auto want = clone(out);
        DSP_SCALER_PARAMS p = filtered_params(image_of(in, 2, 1, c.sw, c.sh, 2, 2),
                                              image_of(out, 4, 2, c.dw, c.dh, 2, 2), filter, &asked);
        scale_then_filter(p, *want, used);
        framedsp::set_cpu_mask(simd ? ~0u : 0u);
        const DSP_HRESULT hr = DspScaler(&p);
        framedsp::set_cpu_mask(~0u);
        ASSERT_EQ(hr, DSP_S_OK);
        expect_same(*want, out, "format " + std::to_string(c.format) + " filter " + std::to_string(filter) +
                                    " orientation " + std::to_string(up) + " simd " + std::to_string(simd));
      }
    }
  }
}

std::vector<FrameCase> frame_cases() {
  std::vector<FrameCase> v;
  for (uint32_t f : {21u, 0u, 261u, 25u, 22u}) {
    v.push_back({f, 20, 9, 34, 9});   // horizontal up
    v.push_back({f, 40, 7, 22, 7});   // horizontal down
    v.push_back({f, 18, 8, 18, 15});  // vertical up
    v.push_back({f, 18, 17, 18, 6});  // vertical down
    v.push_back({f, 24, 10, 38, 13}); // both up
    v.push_back({f, 36, 16, 20, 9});  // both down
  }
  return v;
}

INSTANTIATE_TEST_SUITE_P(Formats, FilteredFrameTest, ::testing::ValuesIn(frame_cases()),
                         [](const ::testing::TestParamInfo<FrameCase> &i) {
                           const FrameCase &c = i.param;
                           return "F" + std::to_string(c.format) + "_" + std::to_string(c.sw) + "x" +
                                  std::to_string(c.sh) + "_to_" + std::to_string(c.dw) + "x" + std::to_string(c.dh);
                         });

// ---- fields and interlaced frames: a field is filtered with lines of its own field only ----------

struct FieldCase {
  const char *name;
  uint32_t in_type, in_il, out_type, out_il, flags;
  uint32_t sh, dh;
};

class FilteredFieldTest : public ::testing::TestWithParam<FieldCase> {};

TEST_P(FilteredFieldTest, EqualsScaleThenFilter) {
  const FieldCase c = GetParam();
  const DSP_FIR_SETTINGS fir{5, 40, 0, 7, 35};
  for (uint32_t format : {21u, 0u}) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      for (int up = 0; up < 2; ++up) {
        std::mt19937 rng(framedsp_test::test_seed() + c.sh * 5 + filter + format);
        Pic in(format, 12, c.sh, up != 0);
        Pic out(format, 20, c.dh, up == 0);
        fill(in, rng);
        auto want = clone(out);
        DSP_SCALER_PARAMS p = filtered_params(image_of(in, 0, 0, 12, c.sh, c.in_type, c.in_il),
                                              image_of(out, 0, 0, 20, c.dh, c.out_type, c.out_il), filter, &fir);
        p.Buffer.ulFlags = c.flags;
        scale_then_filter(p, *want, fir);
        ASSERT_EQ(DspScaler(&p), DSP_S_OK);
        expect_same(*want, out, std::string(c.name) + " format " + std::to_string(format) + " filter " +
                                    std::to_string(filter) + " up " + std::to_string(up));
      }
    }
  }
}

const FieldCase kFieldCases[] = {
    {"FrameFieldsDown", 2, 1, 2, 1, 0, 24, 14},
    {"FrameFieldsUp", 2, 1, 2, 1, 0, 12, 22},
    {"FieldAIntoFrame", 0, 2, 2, 1, 0, 9, 28},
    {"FieldBIntoFrame", 1, 2, 2, 1, 0, 10, 16},
    {"FrameIntoFieldA", 2, 1, 0, 1, 0, 20, 13},
    {"FrameIntoFieldB", 2, 1, 1, 1, 0, 26, 9},
    {"SelectFieldA", 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDA, 16, 24},
    {"SelectFieldB", 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDB, 22, 12},
    {"FieldToField", 0, 2, 1, 2, 0, 9, 15},
};

INSTANTIATE_TEST_SUITE_P(Fields, FilteredFieldTest, ::testing::ValuesIn(kFieldCases),
                         [](const ::testing::TestParamInfo<FieldCase> &i) { return std::string(i.param.name); });

// ---- a filter that does not match the scale mode is dropped -------------------------------------

struct DropCase {
  const char *name;
  uint32_t sw, sh, dw, dh;
  DSP_FIR_SETTINGS fir;
};

class FilteredDropTest : public ::testing::TestWithParam<DropCase> {};

TEST_P(FilteredDropTest, EqualsPlainScaling) {
  const DropCase c = GetParam();
  for (uint32_t filter = 0; filter < 2; ++filter) {
    std::mt19937 rng(framedsp_test::test_seed() + filter);
    Pic in(21, c.sw, c.sh, false), plain(21, c.dw + 2, c.dh + 1, true), got(21, c.dw + 2, c.dh + 1, true);
    fill(in, rng);
    DSP_SCALER_PARAMS p = filtered_params(image_of(in, 0, 0, c.sw, c.sh, 2, 2),
                                          image_of(plain, 2, 1, c.dw, c.dh, 2, 2), filter, &c.fir);
    DSP_SCALER_PARAMS g = p;
    g.ulOptions = 0;
    ASSERT_EQ(DspScaler(&g), DSP_S_OK);
    p.Buffer.Out.Buffer.pBuffer = got.mem->data();
    ASSERT_EQ(DspScaler(&p), DSP_S_OK);
    expect_same(plain, got, std::string(c.name) + " filter " + std::to_string(filter));
  }
}

const DropCase kDropCases[] = {
    {"VerticalFilterOnHorizontalScale", 20, 8, 30, 8, {5, kOff, 0, 5, 30}},
    {"HorizontalFilterOnVerticalScale", 20, 8, 20, 13, {5, 30, 0, 5, kOff}},
    {"HorizontalOnlyOnBothScaled", 20, 8, 30, 13, {5, 30, 0, 5, kOff}},
    {"VerticalOnlyOnBothScaled", 20, 8, 12, 5, {5, kOff, 0, 9, 20}},
    {"NoFilterAtAll", 20, 8, 30, 13, {0, kOff, 0, 0, kOff}},
};

INSTANTIATE_TEST_SUITE_P(Drops, FilteredDropTest, ::testing::ValuesIn(kDropCases),
                         [](const ::testing::TestParamInfo<DropCase> &i) { return std::string(i.param.name); });

// ---- nothing scaled: DspFilter, or the copy ----------------------------------------------------

TEST(FilteredNoScaling, FilterWantedEqualsDspFilterAndNoFilterEqualsTheCopy) {
  const DSP_FIR_SETTINGS settings[] = {{5, 30, 0, 7, 40}, {9, 60, 0, 3, kOff}, {3, kOff, 0, 11, 25},
                                       {0, kOff, 0, 0, kOff}};
  struct Geometry {
    uint32_t in_type, in_il, out_type, out_il, sh, dh;
  } geometries[] = {{2, 2, 2, 2, 9, 9}, {2, 1, 2, 1, 10, 10}, {0, 2, 2, 1, 6, 12}, {2, 1, 1, 2, 14, 7}};
  for (const DSP_FIR_SETTINGS &fir : settings) {
    for (const Geometry &g : geometries) {
      for (uint32_t format : {21u, 0u, 261u}) {
        std::mt19937 rng(framedsp_test::test_seed() + format);
        Pic in(format, 16, g.sh + 2, true), got(format, 18, g.dh + 1, false);
        fill(in, rng);
        auto want = clone(got);
        DSP_SCALER_PARAMS p = filtered_params(image_of(in, 0, 1, 16, g.sh, g.in_type, g.in_il),
                                              image_of(got, 2, 1, 16, g.dh, g.out_type, g.out_il), 1, &fir);
        if (fir.ulHorzCutoff == kOff && fir.ulVertCutoff == kOff) {
          DSP_BUFFER copy = p.Buffer;
          copy.Out.Buffer.pBuffer = want->mem->data();
          ASSERT_EQ(DspBufferSmartCopy(&copy), DSP_S_OK);
        } else {
          DSP_FILTER_PARAMS f{};
          f.eFilterType = DSP_FILTER_TYPE_FIR;
          f.pSettings = &fir;
          f.Buffer = p.Buffer;
          f.Buffer.Out.Buffer.pBuffer = want->mem->data();
          ASSERT_EQ(DspFilter(&f), DSP_S_OK);
        }
        ASSERT_EQ(DspScaler(&p), DSP_S_OK);
        expect_same(*want, got, "format " + std::to_string(format) + " cut-offs " +
                                    std::to_string(fir.ulHorzCutoff) + "/" + std::to_string(fir.ulVertCutoff));
      }
    }
  }
}

// Format 263 is one byte a sample to the scaler; its filtered lines are those of 261 on the same
// bytes (DspFilter itself does not take 263), and they differ from the plain scale.
TEST(FilteredMipmapPlane, FilteredLike261) {
  const DSP_FIR_SETTINGS fir{7, 30, 0, 5, 40};
  for (uint32_t filter = 0; filter < 2; ++filter) {
    std::mt19937 rng(21 + filter);
    Pic in(261, 20, 9, false), a(261, 30, 14, false), b(261, 30, 14, false), plain(261, 30, 14, false);
    fill(in, rng);
    DSP_SCALER_PARAMS p = filtered_params(image_of(in, 0, 0, 20, 9, 2, 2), image_of(a, 2, 1, 26, 12, 2, 2), filter, &fir);
    ASSERT_EQ(DspScaler(&p), DSP_S_OK);
    p.Buffer.In.ePixelFormat = p.Buffer.Out.ePixelFormat = DSP_PIXEL_FORMAT_MIPMAP;
    p.Buffer.Out.Buffer.pBuffer = b.mem->data();
    ASSERT_EQ(DspScaler(&p), DSP_S_OK);
    expect_same(a, b, "263 against 261");
    p.ulOptions = 0;
    p.Buffer.Out.Buffer.pBuffer = plain.mem->data();
    ASSERT_EQ(DspScaler(&p), DSP_S_OK);
    EXPECT_NE(0, std::memcmp(plain.mem->data(), b.mem->data(), b.size())) << "263 was not filtered";
  }
}

// ---- refusals ------------------------------------------------------------------------------------

struct ErrorCase {
  const char *name;
  DSP_HRESULT want;
  void (*change)(DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *fir);
};

class FilteredErrorTest : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(FilteredErrorTest, IsRefusedAndWritesNothing) {
  const ErrorCase c = GetParam();
  Pic in(21, 16, 8, false), out(21, 24, 12, false);
  std::mt19937 rng(3);
  fill(in, rng);
  auto before = clone(out);
  DSP_FIR_SETTINGS fir{5, 40, 0, 5, 40};
  DSP_SCALER_PARAMS p = filtered_params(image_of(in, 0, 0, 16, 8, 2, 2), image_of(out, 0, 0, 24, 12, 2, 2), 1, &fir);
  c.change(&p, &fir);
  EXPECT_EQ(DspScaler(&p), c.want);
  expect_same(*before, out, c.name);
}

const ErrorCase kErrors[] = {
    {"FilterTypeBox", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->eFilterType = 2; }},
    {"FilterTypeZero", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->eFilterType = 0; }},
    {"NullSettings", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->pSettings = nullptr; }},
    {"HorzCutoffAbove100", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *, DSP_FIR_SETTINGS *f) { f->ulHorzCutoff = 101; }},
    {"VertCutoffAbove100", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *, DSP_FIR_SETTINGS *f) { f->ulVertCutoff = 250; }},
    {"HorzTapsTwo", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *, DSP_FIR_SETTINGS *f) { f->ulHorzTaps = 2; }},
    {"VertTapsSixteen", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *, DSP_FIR_SETTINGS *f) { f->ulVertTaps = 16; }},
    {"CutoffAbove100OnUnscaledAxis", DSP_E_INVALIDARG,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *f) {
       p->Buffer.Out.Buffer.Region.ulHeight = 8;
       f->ulVertCutoff = 101;
     }},
    {"ReservedFilterCombined", DSP_E_NOTIMPL, [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->eFilter = 2; }},
    {"ReservedFilterDropped", DSP_E_NOTIMPL,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *f) {
       p->eFilter = 2;
       f->ulVertCutoff = kOff;
     }},
    {"ReservedFilterStaged", DSP_E_NOTIMPL,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) {
       p->eFilter = 2;
       p->ulOptions |= DSP_SCALER_OPTION_STAGED;
     }},
    {"FilterThree", DSP_E_INVALIDARG, [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->eFilter = 3; }},
    {"FormatsDiffer", DSP_E_INVALIDARG,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->Buffer.Out.ePixelFormat = 25; }},
    {"OddRegionWidth", DSP_E_INVALIDARG,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->Buffer.Out.Buffer.Region.ulWidth = 23; }},
    {"OddDerivedWidth", DSP_E_INVALIDARG,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) {
       p->ulScaleFlags = DSP_SCALE_FLAG_DERIVE_SIZE;
       p->fHorizontalScale = 1.4375f;  // 16 * 1.4375 = 23
       p->fVerticalScale = 1.5f;
     }},
    {"OutputLargerThanRoom", DSP_E_INVALIDARG,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->Buffer.Out.Buffer.Region.ulHeight = 13; }},
    {"InterlaceZeroWithoutSelection", DSP_E_INVALIDARG,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) { p->Buffer.In.eInterlace = 0; }},
    {"NoScalingFormatTheFilterRefuses", DSP_E_INVALIDARG,
     [](DSP_SCALER_PARAMS *p, DSP_FIR_SETTINGS *) {
       p->Buffer.In.ePixelFormat = p->Buffer.Out.ePixelFormat = 263;
       p->Buffer.In.Buffer.Region.ulWidth = p->Buffer.Out.Buffer.Region.ulWidth = 16;
       p->Buffer.Out.Buffer.Region.ulHeight = 8;
     }},
};

INSTANTIATE_TEST_SUITE_P(Errors, FilteredErrorTest, ::testing::ValuesIn(kErrors),
                         [](const ::testing::TestParamInfo<ErrorCase> &i) { return std::string(i.param.name); });

TEST(FilteredErrors, NullRecordIsEPointer) { EXPECT_EQ(DspScaler(nullptr), DSP_E_POINTER); }

TEST(FilteredErrors, TapsAreNotCheckedOnADirectionThatIsOff) {
  Pic in(21, 16, 8, false), out(21, 24, 12, false);
  std::mt19937 rng(4);
  fill(in, rng);
  const DSP_FIR_SETTINGS fir{99, 40, 0, 0, kOff};
  DSP_SCALER_PARAMS p = filtered_params(image_of(in, 0, 0, 16, 8, 2, 2), image_of(out, 0, 0, 24, 12, 2, 2), 1, &fir);
  EXPECT_EQ(DspScaler(&p), DSP_E_INVALIDARG);  // horizontal is on: 99 taps refused
  const DSP_FIR_SETTINGS off{99, kOff, 0, 5, 40};
  p.pSettings = &off;
  EXPECT_EQ(DspScaler(&p), DSP_S_OK);
}

// ---- staged, two-plane, bands --------------------------------------------------------------------

TEST(FilteredStaged, SameBytesAsDirect) {
  struct S {
    uint32_t format, in_type, in_il, out_type, out_il, flags;
  } cases[] = {{21, 2, 2, 2, 2, 0}, {0, 2, 1, 2, 1, 0}, {25, 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDA},
               {22, 2, 2, 2, 2, 0}, {21, 0, 2, 2, 1, 0}};
  const DSP_FIR_SETTINGS fir{7, 35, 0, 5, 50};
  for (const S &c : cases) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      std::mt19937 rng(5);
      Pic in(c.format, 20, 10, true);
      fill(in, rng);
      Pic direct(c.format, 30, 17, false), staged(c.format, 30, 17, false);
      DSP_SCALER_PARAMS p = filtered_params(image_of(in, 2, 1, 14, 8, c.in_type, c.in_il),
                                            image_of(direct, 4, 2, 26, 13, c.out_type, c.out_il), filter, &fir);
      p.Buffer.ulFlags = c.flags;
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      p.Buffer.Out = image_of(staged, 4, 2, 26, 13, c.out_type, c.out_il);
      p.ulOptions |= DSP_SCALER_OPTION_STAGED;
      const auto before = framedsp::work_memory_stats();
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      const auto after = framedsp::work_memory_stats();
      EXPECT_EQ(after.allocations - before.allocations, after.releases - before.releases);
      expect_same(direct, staged, "staged format " + std::to_string(c.format));
    }
  }
}

TEST(FilteredTwoPlane, EachPlaneIsScaledAndFiltered) {
  struct T {
    uint32_t format, main_bpp;
  } cases[] = {{28, 2}, {30, 2}, {5, 3}};
  const DSP_FIR_SETTINGS fir{5, 30, 0, 7, 45};
  for (const T &c : cases) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      const uint32_t sw = 10, sh = 6, dw = 16, dh = 9, iw = 12, ih = 7, ow = 18, oh = 11;
      const uint32_t is = iw * c.main_bpp + 4, ips = iw + 6, os = ow * c.main_bpp + 2, ops = ow + 10;
      const uint32_t ts = dw * c.main_bpp, tps = dw;
      GuardedBuffer inb(size_t(ih) * (is + ips), 32), outb(size_t(oh) * (os + ops), 32, kFill);
      GuardedBuffer want(outb.size(), 32, kFill), temp(size_t(dh) * (ts + tps), 32);
      std::mt19937 rng(9 + filter);
      framedsp_test::fill_random(inb.data(), inb.size(), rng);
      DSP_SCALER_PARAMS p{};
      p.eFilter = filter;
      p.eFilterType = DSP_FILTER_TYPE_FIR;
      p.pSettings = &fir;
      p.ulOptions = DSP_SCALER_OPTION_FILTERED;
      DSP_IMAGE &in = p.Buffer.In;
      in.Buffer.pBuffer = inb.data();
      in.Buffer.ulBytes = uint32_t(inb.size());
      in.Buffer.eBufferType = 2;
      in.Buffer.Region = {{2, 1}, sw, sh};
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
      out.Buffer.Region = {{2, 1}, dw, dh};
      out.ulWidth = ow;
      out.ulHeight = oh;
      out.ulPrimaryStrideBytes = os;
      out.ulSecondaryStrideBytes = ops;
      // Expectation: general scale into a two-plane picture of the region's size, DspFilter out.
      DSP_SCALER_PARAMS g = p;
      g.ulOptions = 0;
      DSP_IMAGE &t = g.Buffer.Out;
      t.Buffer.pBuffer = temp.data();
      t.Buffer.ulBytes = uint32_t(temp.size());
      t.Buffer.Region = {{0, 0}, dw, dh};
      t.ulWidth = dw;
      t.ulHeight = dh;
      t.ulPrimaryStrideBytes = ts;
      t.ulSecondaryStrideBytes = tps;
      ASSERT_EQ(DspScaler(&g), DSP_S_OK);
      DSP_FILTER_PARAMS f{};
      f.eFilterType = DSP_FILTER_TYPE_FIR;
      f.pSettings = &fir;
      f.Buffer = p.Buffer;
      f.Buffer.In = t;
      f.Buffer.Out.Buffer.pBuffer = want.data();
      ASSERT_EQ(DspFilter(&f), DSP_S_OK);
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      ASSERT_TRUE(outb.intact()) << outb.damage();
      ASSERT_EQ(0, std::memcmp(want.data(), outb.data(), outb.size()))
          << "format " << c.format << "\n" << framedsp_test::hex_diff(want.data(), outb.data(), outb.size());
    }
  }
}

TEST(FilteredBands, BandsTogetherMakeTheWholeCall) {
  const DSP_FIR_SETTINGS fir{9, 25, 0, 9, 25};
  for (uint32_t il : {2u, 1u}) {
    // Band heights that cover the region (the band rule truncates the share of each band).
    for (uint32_t count : {2u, 5u}) {
      std::mt19937 rng(11 + count);
      Pic in(21, 20, 11, false), whole(21, 28, 22, true), banded(21, 28, 22, true);
      fill(in, rng);
      DSP_SCALER_PARAMS p = filtered_params(image_of(in, 0, 0, 20, 11, 2, il),
                                            image_of(whole, 2, 1, 26, 20, 2, il), 1, &fir);
      ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      p.Buffer.Out.Buffer.pBuffer = banded.mem->data();
      p.Buffer.ulSliceCount = count;
      for (uint32_t n = 1; n <= count; ++n) {
        p.Buffer.ulSliceNumber = n;
        ASSERT_EQ(DspScaler(&p), DSP_S_OK);
      }
      expect_same(whole, banded, "interlace " + std::to_string(il) + " bands " + std::to_string(count));
    }
  }
}

// ---- work memory ---------------------------------------------------------------------------------

TEST(FilteredWorkMemory, ReleasedOnSuccessAndOnEveryInjectedFailure) {
  const DSP_FIR_SETTINGS fir{5, 40, 0, 5, 40};
  struct W {
    uint32_t options;
    uint32_t dh;  // 8: horizontal only; 12: both
  } cases[] = {{0, 12}, {DSP_SCALER_OPTION_STAGED, 12}, {0, 8}};
  for (const W &w : cases) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      Pic in(21, 16, 8, false), out(21, 24, 12, false);
      DSP_SCALER_PARAMS p =
          filtered_params(image_of(in, 0, 0, 16, 8, 2, 2), image_of(out, 0, 0, 24, w.dh, 2, 2), filter, &fir);
      p.ulOptions |= w.options;
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
