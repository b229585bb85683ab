// DspScaler through the export, general and filtered paths.  The general path meets a reference
// scaler written here from the layouts (per-sample formulas, per-field line lists); the filtered
// path (ulOptions bit 1) meets the composition of two plain calls: the general scale into a
// picture shaped like the output region, then DspFilter on the scaled axes; both direct and in
// staged mode, two-plane formats and colour conversion included.  Also the derived sizes and every
// refusal (work memory: the operations' table).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "framedsp/framedsp.h"
#include "lines/pixel_format.h"
#include "platform/work_memory.h"
#include "scale/scale_line_kernels.h"
#include "scale_reference.h"
#include "test_util.h"

namespace {

using framedsp_test::CpuLevel;
using framedsp_test::kFill;
using framedsp_test::main_bytes;
using framedsp_test::Pic;
using framedsp_test::same_bytes;
using namespace scale_ref;

constexpr uint32_t kOff = 100;  // cut-off that turns a filter direction off

DSP_SCALER_PARAMS params_of(const DSP_IMAGE &in, const DSP_IMAGE &out, uint32_t filter,
                            const DSP_FIR_SETTINGS *fir = nullptr) {
  DSP_SCALER_PARAMS p{};
  p.eFilter = filter;
  p.fHorizontalScale = p.fVerticalScale = 1.0f;
  p.Buffer.In = in;
  p.Buffer.Out = out;
  if (fir) {
    p.eFilterType = DSP_FILTER_TYPE_FIR;
    p.pSettings = fir;
    p.ulOptions = DSP_SCALER_OPTION_FILTERED;
  }
  return p;
}

// Scales the source lines (each at its region's first byte) into the destination lines.
void ref_scale(uint32_t format, bool linear, const std::vector<uint8_t *> &src, size_t sb,
               const std::vector<uint8_t *> &dst, size_t db, uint32_t src_pixels, uint32_t dst_pixels,
               uint64_t vstep) {
  const RefLayout &l = layout_of(format);
  const uint32_t hstep = uint32_t((uint64_t(src_pixels) << 14) / dst_pixels);
  std::vector<uint8_t> a(db), b(db);
  for (size_t k = 0; k < dst.size(); ++k) {
    const uint64_t p = uint64_t(k) * vstep;
    const size_t i = std::min<uint64_t>(p >> 14, src.size() - 1);
    const uint32_t f = uint32_t(p & 16383);
    std::copy(dst[k], dst[k] + db, a.begin());  // bytes outside whole groups stay
    reference(l, linear, src[i], sb, a.data(), db, hstep);
    if (linear && f) {
      std::copy(dst[k], dst[k] + db, b.begin());
      reference(l, linear, src[std::min(i + 1, src.size() - 1)], sb, b.data(), db, hstep);
      for (size_t x = 0; x < db; ++x) a[x] = uint8_t((a[x] * (16384 - f) + b[x] * f + 8192) >> 14);
    }
    std::memcpy(dst[k], a.data(), db);
  }
}

// Rows first, first + step, ... of region (x, y).
std::vector<uint8_t *> rows(const Pic &p, int x, int y, int first, int step, int count, bool plane = false) {
  std::vector<uint8_t *> v;
  const uint32_t bpp = plane ? 1 : framedsp_test::main_bytes(p.format);
  for (int i = 0; i < count; ++i) v.push_back(p.row(uint32_t(y + first + i * step), plane) + size_t(x) * bpp);
  return v;
}

// The filtered path's expectation: the general scale of `p` into a private top-down picture of
// the output region's shape, then DspFilter with `fir` from it into `want`.
void scale_then_filter(const DSP_SCALER_PARAMS &p, const Pic &want, const DSP_FIR_SETTINGS &fir) {
  const DSP_IMAGE &out = p.Buffer.Out;
  Pic t(out.ePixelFormat, out.Buffer.Region.ulWidth, out.Buffer.Region.ulHeight);
  DSP_SCALER_PARAMS g = p;
  g.ulOptions = 0;
  g.Buffer.ulSliceCount = g.Buffer.ulSliceNumber = 0;
  g.Buffer.Out = t.image(0, 0, 0, 0, out.Buffer.eBufferType, out.eInterlace, out.eColorSpace);
  ASSERT_EQ(DspScaler(&g), DSP_S_OK);
  DSP_FILTER_PARAMS f = framedsp_test::filter_params(DSP_FILTER_TYPE_FIR, &fir, p.Buffer);
  f.Buffer.In = g.Buffer.Out;
  f.Buffer.Out.Buffer.pBuffer = want.data();
  ASSERT_EQ(DspFilter(&f), DSP_S_OK);
}

// ---- progressive frames: every class, mode and filter, both orientations, SIMD, scalar, staged --

struct FrameCase {
  uint32_t format, filter, sw, sh, dw, dh;
  bool filtered;
};

class ScalerFrame : public ::testing::TestWithParam<FrameCase> {};

TEST_P(ScalerFrame, MatchesTheReferenceInEveryOrientation) {
  const FrameCase c = GetParam();
  // Both directions asked, or one of them off (varied over the cases).  Only the directions of
  // scaled axes are kept, and where both axes scale only both together (else the plain scale).
  const uint32_t off = (c.format + c.filter + c.sw) % 3;
  const bool h_on = off != 1, v_on = off != 2, sx = c.sw != c.dw, sy = c.sh != c.dh;
  const DSP_FIR_SETTINGS asked{7, h_on ? 30u : kOff, 0, 5, v_on ? 45u : kOff};
  const DSP_FIR_SETTINGS used{7, sx && h_on && (!sy || v_on) ? 30u : kOff, 0, 5,
                              sy && v_on && (!sx || h_on) ? 45u : kOff};
  // Half the cases convert BT.601 to BT.709: the scale, then the line converter on every output
  // line of the picture plane (none for the formats that are never converted).
  const uint32_t main = c.format == 28 ? 21 : c.format == 30 ? 25 : c.format == 5 ? 1 : c.format;
  const uint32_t from = (c.sw + c.sh + c.dw + c.dh + c.filter) % 2 ? DSP_COLOR_SPACE_BT601 : 0;
  const uint32_t to = from ? DSP_COLOR_SPACE_BT709 : 0;
  framedsp::ScaleLineTable lines;
  framedsp::scale_line_table_init(&lines, 0);
  framedsp::ScaleColorCoefficients k;
  const framedsp::ScaleColorConverter convert = framedsp::scale_color_coefficients(from, to, &k)
                                                    ? lines.convert[layout_of(main).cls]
                                                    : nullptr;
  std::mt19937 rng(framedsp_test::test_seed() + c.format * 7 + c.sw * 3 + c.dh);
  for (int orient = 0; orient < 4; ++orient) {
    for (int mode = 0; mode < 3; ++mode) {  // scalar, SIMD, SIMD in staged mode
      Pic in(c.format, c.sw + 6, c.sh + 3, orient & 1), out(c.format, c.dw + 4, c.dh + 2, orient & 2);
      in.randomise(rng);
      Pic want(out);
      DSP_SCALER_PARAMS p = params_of(in.image(2, 1, c.sw, c.sh, 2, 2, from), out.image(2, 1, c.dw, c.dh, 2, 2, to),
                                      c.filter, c.filtered ? &asked : nullptr);
      if (c.filtered) {  // the pyramid's plane (263, which DspFilter does not take) is filtered as 261
        DSP_SCALER_PARAMS as261 = p;
        if (c.format == 263) as261.Buffer.In.ePixelFormat = as261.Buffer.Out.ePixelFormat = 261;
        scale_then_filter(as261, want, used);
      } else {  // a two-plane picture: its picture plane in the one-plane format, its key plane as 261
        const uint64_t vstep = c.sh == c.dh ? 16384 : (uint64_t(c.sh) << 14) / c.dh;
        for (bool key : {false, true}) {
          if (key && !framedsp_test::plane_bytes(c.format)) break;
          const size_t bpp = key ? 1 : main_bytes(main);
          ref_scale(key ? 261 : main, c.filter == 1, rows(in, 2, 1, 0, 1, int(c.sh), key), c.sw * bpp,
                    rows(want, 2, 1, 0, 1, int(c.dh), key), c.dw * bpp, c.sw, c.dw, vstep);
        }
        for (uint8_t *line : rows(want, 2, 1, 0, 1, convert ? int(c.dh) : 0)) convert(line, c.dw * 2, &k);
      }
      const auto before = in.bytes();
      if (mode == 2) p.ulOptions |= DSP_SCALER_OPTION_STAGED;
      const DSP_SCALER_PARAMS copy = p;
      {
        CpuLevel level(mode > 0);
        ASSERT_EQ(DspScaler(&p), DSP_S_OK) << "orientation " << orient;
      }
      EXPECT_EQ(0, std::memcmp(&copy, &p, sizeof p)) << "the caller's record changed";
      EXPECT_EQ(before, in.bytes());
      ASSERT_TRUE(same_bytes(want, out)) << "orientation " << orient << " mode " << mode;
    }
  }
}

std::vector<FrameCase> frame_cases() {
  std::vector<FrameCase> v;
  const uint32_t sizes[][4] = {{20, 12, 14, 9}, {16, 10, 32, 21}, {18, 8, 18, 13}, {18, 8, 30, 8},
                               {24, 9, 10, 9},  {12, 14, 12, 5},  {2, 2, 40, 7},   {40, 7, 2, 3}};
  for (uint32_t f : {0u, 1u, 5u, 21u, 22u, 23u, 24u, 25u, 28u, 30u, 31u, 129u, 261u, 262u, 263u}) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      for (const auto &s : sizes) v.push_back({f, filter, s[0], s[1], s[2], s[3], false});
    }
  }
  for (uint32_t filter = 0; filter < 2; ++filter) {  // odd widths where the format allows them
    v.push_back({0, filter, 7, 5, 11, 9, false});
    v.push_back({1, filter, 13, 6, 5, 11, false});
    v.push_back({5, filter, 9, 4, 7, 6, false});
  }
  const uint32_t filtered_sizes[][4] = {{20, 9, 34, 9},  {40, 7, 22, 7},  {18, 8, 18, 15},
                                        {18, 17, 18, 6}, {24, 10, 38, 13}, {36, 16, 20, 9}};
  for (uint32_t f : {21u, 0u, 261u, 25u, 22u, 28u, 263u}) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      for (const auto &s : filtered_sizes) v.push_back({f, filter, s[0], s[1], s[2], s[3], true});
    }
  }
  return v;
}

INSTANTIATE_TEST_SUITE_P(Classes, ScalerFrame, ::testing::ValuesIn(frame_cases()),
                         [](const ::testing::TestParamInfo<FrameCase> &i) {
                           const FrameCase &c = i.param;
                           return std::string(c.filtered ? "filtered_f" : "f") + std::to_string(c.format) +
                                  (c.filter ? "_linear_" : "_nearest_") + std::to_string(c.sw) + "x" +
                                  std::to_string(c.sh) + "_to_" + std::to_string(c.dw) + "x" + std::to_string(c.dh);
                         });

// ---- fields: each field scales into its own lines, and is filtered with its own lines --------

struct FieldCase {
  const char *name;
  uint32_t in_type, in_il, out_type, out_il, flags, sh, dh;
};

// Field A lines hold 0..99, field B lines 150..249: a blend inside one field stays in its range.
void fill_fields(Pic &p, std::mt19937 &rng, uint32_t type, bool halves) {
  for (uint32_t j = 0; j < p.height; ++j) {
    const bool b = type != 2 ? type == 1 : (halves ? j >= p.height / 2 : (j & 1));
    for (uint32_t i = 0; i < p.stride; ++i) p.row(j)[i] = uint8_t((b ? 150 : 0) + rng() % 100);
  }
}

void expect_fields(const FieldCase &c, bool filtered) {
  const DSP_FIR_SETTINGS fir{5, 40, 0, 7, 35};
  for (uint32_t format : {21u, 0u}) {
    for (uint32_t filter = 0; filter < 2; ++filter) {
      for (int up = 0; up < 2; ++up) {
        SCOPED_TRACE(std::string(c.name) + " format " + std::to_string(format) + " filter " +
                     std::to_string(filter) + " up " + std::to_string(up));
        std::mt19937 rng(framedsp_test::test_seed() + c.sh * 5 + filter);
        const uint32_t sw = 12, dw = 18;
        const bool in_frame = c.in_type == 2, out_frame = c.out_type == 2;
        Pic in(format, sw, c.sh, up), out(format, dw, c.dh, !up);
        fill_fields(in, rng, c.in_type, c.in_il == 3);
        const Pic blank(out), want(out);
        DSP_SCALER_PARAMS p = params_of(in.image(0, 0, 0, 0, c.in_type, c.in_il),
                                        out.image(0, 0, 0, 0, c.out_type, c.out_il), filter, filtered ? &fir : nullptr);
        p.Buffer.ulFlags = c.flags;
        if (filtered) {
          scale_then_filter(p, want, fir);
        } else {
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
          const size_t bpp = main_bytes(format);
          for (int par : parities) {
            const Lines s = side(in_frame, c.in_il, par, int(c.sh)), d = side(out_frame, c.out_il, par, int(c.dh));
            ref_scale(format, filter == 1, rows(in, 0, 0, s.first, s.step, s.count), sw * bpp,
                      rows(want, 0, 0, d.first, d.step, d.count), dw * bpp, sw, dw, vstep);
            for (int k = 0; k < d.count; ++k) {  // the other field's values never reach these lines
              const uint8_t *l = want.row(uint32_t(d.first + k * d.step));
              for (size_t x = 0; x < dw * bpp; ++x) ASSERT_TRUE(par ? l[x] >= 150 : l[x] < 100);
            }
          }
        }
        for (uint32_t staged : {0u, DSP_SCALER_OPTION_STAGED}) {
          const Pic got(blank);
          p.Buffer.Out.Buffer.pBuffer = got.data();
          p.ulOptions |= staged;
          ASSERT_EQ(DspScaler(&p), DSP_S_OK);
          ASSERT_TRUE(same_bytes(want, got)) << "staged " << staged;
        }
      }
    }
  }
}

const FieldCase kFieldCases[] = {
    {"FrameFieldsDown", 2, 1, 2, 1, 0, 12, 8},        {"FrameFieldsUp", 2, 1, 2, 1, 0, 8, 14},
    {"FrameFieldsOddOut", 2, 1, 2, 1, 0, 10, 7},      {"HalvesIntoInterleaved", 2, 3, 2, 1, 0, 12, 18},
    {"InterleavedIntoHalves", 2, 1, 2, 3, 0, 12, 6},  {"FieldAIntoFrame", 0, 2, 2, 1, 0, 6, 16},
    {"FieldBIntoFrame", 1, 2, 2, 1, 0, 6, 10},        {"FrameIntoFieldB", 2, 1, 1, 1, 0, 16, 5},
    {"FrameIntoFieldA", 2, 1, 0, 1, 0, 10, 9},        {"SelectFieldB", 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDB, 12, 8},
    {"SelectFieldA", 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDA, 8, 12}, {"FieldToField", 0, 2, 1, 2, 0, 7, 11},
    {"FilteredFramesDown", 2, 1, 2, 1, 0, 24, 14},    {"FilteredFieldAIntoFrame", 0, 2, 2, 1, 0, 9, 28},
    {"FilteredFrameIntoFieldB", 2, 1, 1, 1, 0, 26, 9},
    {"FilteredSelectFieldB", 2, 0, 2, 0, DSP_BUFFER_PROCESS_FIELDB, 22, 12},
};

class ScalerField : public ::testing::TestWithParam<FieldCase> {};
TEST_P(ScalerField, GeneralPath) { expect_fields(GetParam(), false); }
TEST_P(ScalerField, FilteredPath) { expect_fields(GetParam(), true); }
INSTANTIATE_TEST_SUITE_P(Fields, ScalerField, ::testing::ValuesIn(kFieldCases),
                         [](const ::testing::TestParamInfo<FieldCase> &i) { return std::string(i.param.name); });

// ---- the filtered path without scaling -----------------------------------------------------------

TEST(ScalerFiltered, WithoutScalingItIsDspFilterOrTheCopy) {
  const DSP_FIR_SETTINGS settings[] = {{5, 30, 0, 7, 40}, {9, 60, 0, 3, kOff}, {3, kOff, 0, 11, 25},
                                       {0, kOff, 0, 0, kOff}};
  struct {
    uint32_t in_type, in_il, out_type, out_il, sh, dh;
  } geometries[] = {{2, 2, 2, 2, 9, 9}, {2, 1, 2, 1, 10, 10}, {0, 2, 2, 1, 6, 12}, {2, 1, 1, 2, 14, 7}};
  for (const DSP_FIR_SETTINGS &fir : settings) {
    for (const auto &g : geometries) {
      for (uint32_t format : {21u, 0u, 261u}) {
        std::mt19937 rng(framedsp_test::test_seed() + format);
        Pic in(format, 16, g.sh + 2, true), got(format, 18, g.dh + 1), want(got);
        in.randomise(rng);
        DSP_SCALER_PARAMS p = params_of(in.image(0, 1, 16, g.sh, g.in_type, g.in_il),
                                        got.image(2, 1, 16, g.dh, g.out_type, g.out_il), 1, &fir);
        DSP_FILTER_PARAMS f = framedsp_test::filter_params(DSP_FILTER_TYPE_FIR, &fir, p.Buffer);
        f.Buffer.Out.Buffer.pBuffer = want.data();
        ASSERT_EQ(fir.ulHorzCutoff == kOff && fir.ulVertCutoff == kOff ? DspBufferSmartCopy(&f.Buffer) : DspFilter(&f),
                  DSP_S_OK);
        ASSERT_EQ(DspScaler(&p), DSP_S_OK);
        EXPECT_TRUE(same_bytes(want, got)) << "format " << format << " cut-offs " << fir.ulHorzCutoff << "/"
                                           << fir.ulVertCutoff;
      }
    }
  }
}

// ---- derived sizes --------------------------------------------------------------------------------

// Columns and lines written (bytes that differ from the fill).
std::pair<uint32_t, uint32_t> written(const Pic &p) {
  uint32_t w = 0, h = 0;
  const uint32_t bpp = main_bytes(p.format);
  for (uint32_t j = 0; j < p.height; ++j) {
    for (uint32_t x = 0; x < p.width * bpp; ++x) {
      if (p.row(j)[x] != kFill) h = std::max(h, j + 1), w = std::max(w, x / bpp + 1);
    }
  }
  return {w, h};
}

TEST(ScalerGeometry, DerivedSizesRoundClampAndKeepLinePairs) {
  struct {
    uint32_t in_type, out_type, sw, sh;
    float fh, fv;
    uint32_t room_w, room_h, want_w, want_h;
  } cases[] = {
      {2, 2, 20, 10, 0.5f, 0.5f, 64, 64, 10, 6},     // 5 lines -> 6 on a frame
      {2, 2, 20, 14, 0.75f, 0.5f, 64, 64, 15, 8},    // 7 -> 8
      {2, 2, 10, 10, 1.25f, 1.25f, 64, 64, 13, 14},  // 12.5 -> 13, 12.5 -> 13 -> 14
      {0, 0, 10, 10, 1.25f, 1.25f, 64, 64, 13, 13},  // a field keeps an odd height
      {2, 0, 20, 12, 1.0f, 1.0f, 64, 64, 20, 6},     // frame -> field: height x 0.5
      {0, 2, 20, 5, 1.0f, 1.0f, 64, 64, 20, 9},      // field -> frame: x 2, its own lines only
      {2, 2, 20, 10, 3.0f, 3.0f, 41, 23, 41, 22},    // clamped to the room; 23 odd at the room -> 22
      {2, 2, 10, 4, 0.04f, 0.04f, 64, 64, 0, 0},     // rounds to nothing
      {2, 2, 10, 4, NAN, NAN, 64, 64, 0, 0},         // NaN factors give nothing
  };
  for (const auto &c : cases) {
    Pic in(0, c.sw, c.sh), out(0, c.room_w, c.room_h);
    std::mt19937 rng(1);
    in.randomise(rng);
    DSP_SCALER_PARAMS p = params_of(in.image(0, 0, 0, 0, c.in_type, 2), out.image(0, 0, 1, 1, c.out_type, 2), 1);
    p.fHorizontalScale = c.fh;
    p.fVerticalScale = c.fv;
    p.ulScaleFlags = DSP_SCALE_FLAG_DERIVE_SIZE;
    ASSERT_EQ(DspScaler(&p), DSP_S_OK) << c.sw << "x" << c.sh << " * " << c.fh;
    EXPECT_EQ(written(out), std::make_pair(c.want_w, c.want_h)) << c.sw << "x" << c.sh << " * " << c.fh;
  }
}

TEST(ScalerGeometry, EqualRegionsBecomeAFormatCopy) {
  std::mt19937 rng(3);
  Pic in(21, 16, 6), out(21, 16, 6, true);
  in.randomise(rng);
  DSP_SCALER_PARAMS p = params_of(in.image(), out.image(), 1);
  ASSERT_EQ(DspScaler(&p), DSP_S_OK);
  for (uint32_t j = 0; j < 6; ++j) EXPECT_EQ(0, std::memcmp(in.row(j), out.row(j), 32)) << j;
  ASSERT_TRUE(out.mem->intact());
}

// ---- refusals: the status, the trace, and not a byte written -------------------------------------

struct ErrorCase {
  const char *name;
  bool filtered;
  DSP_HRESULT want;
  void (*edit)(DSP_SCALER_PARAMS *, DSP_FIR_SETTINGS *);
};

#define EDIT [](DSP_SCALER_PARAMS * p, DSP_FIR_SETTINGS * f) { (void)p, (void)f;
const DSP_HRESULT kArg = DSP_E_INVALIDARG;
const ErrorCase kErrors[] = {
    {"FilterThree", false, kArg, EDIT p->eFilter = 3; }},
    {"FilterReserved", false, DSP_E_NOTIMPL, EDIT p->eFilter = 2; }},
    {"UnknownFormat", false, kArg, EDIT p->Buffer.In.ePixelFormat = p->Buffer.Out.ePixelFormat = 2; }},
    {"FormatChanges", false, kArg, EDIT p->Buffer.Out.ePixelFormat = 25; }},
    {"OddRegionWidth", false, kArg, EDIT p->Buffer.In.Buffer.Region.ulWidth = 15; }},
    {"OddImageWidth", false, kArg, EDIT p->Buffer.Out.ulWidth = 23; }},
    {"InterleavedIntoProgressive", false, kArg, EDIT p->Buffer.In.eInterlace = 0; p->Buffer.Out.eInterlace = 2;
       p->Buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDA; }},
    {"InterlaceZeroWithoutSelection", false, kArg, EDIT p->Buffer.In.eInterlace = 0; }},
    {"OutputInterlaceZeroWithoutSelection", false, kArg, EDIT p->Buffer.Out.eInterlace = 0; }},
    {"SelectionWithBothNonzero", false, kArg, EDIT p->Buffer.ulFlags = DSP_BUFFER_PROCESS_FIELDB; }},
    {"InputRegionTooWide", false, kArg, EDIT p->Buffer.In.Buffer.Region.ptOffset.x = 4; }},
    {"InputRegionTooTall", false, kArg, EDIT p->Buffer.In.Buffer.Region.ptOffset.y = 1; }},
    {"NegativeInputOffset", false, kArg, EDIT p->Buffer.In.Buffer.Region.ptOffset.x = -2; }},
    {"OutputRegionPastTheRoom", false, kArg, EDIT p->Buffer.Out.Buffer.Region.ptOffset.y = 2; }},
    {"OutputOriginOutside", false, kArg, EDIT p->Buffer.Out.Buffer.Region.ptOffset.x = 100; }},
    {"NullInputMemory", false, kArg, EDIT p->Buffer.In.Buffer.pBuffer = nullptr; }},
    {"NullOutputMemory", false, kArg, EDIT p->Buffer.Out.Buffer.pBuffer = nullptr; }},
    {"FilteredPathWithoutFirType", false, kArg, EDIT p->ulOptions = DSP_SCALER_OPTION_FILTERED; }},
    {"FilterTypeBox", true, kArg, EDIT p->eFilterType = 2; }},
    {"FilterTypeZero", true, kArg, EDIT p->eFilterType = 0; }},
    {"NullSettings", true, kArg, EDIT p->pSettings = nullptr; }},
    {"HorzCutoffAbove100", true, kArg, EDIT f->ulHorzCutoff = 101; }},
    {"VertCutoffAbove100", true, kArg, EDIT f->ulVertCutoff = 250; }},
    {"HorzTapsTwo", true, kArg, EDIT f->ulHorzTaps = 2; }},
    {"VertTapsSixteen", true, kArg, EDIT f->ulVertTaps = 16; }},
    {"HorzTaps99", true, kArg, EDIT f->ulHorzTaps = 99; f->ulVertCutoff = kOff; }},
    {"CutoffAbove100OnUnscaledAxis", true, kArg, EDIT p->Buffer.Out.Buffer.Region.ulHeight = 8;
       f->ulVertCutoff = 101; }},
    {"ReservedFilterCombined", true, DSP_E_NOTIMPL, EDIT p->eFilter = 2; }},
    {"ReservedFilterDropped", true, DSP_E_NOTIMPL, EDIT p->eFilter = 2; f->ulVertCutoff = kOff; }},
    {"ReservedFilterStaged", true, DSP_E_NOTIMPL, EDIT p->eFilter = 2; p->ulOptions |= DSP_SCALER_OPTION_STAGED; }},
    {"FilteredFormatsDiffer", true, kArg, EDIT p->Buffer.Out.ePixelFormat = 25; }},  // the general rules, once
    {"OddDerivedWidth", true, kArg, EDIT p->ulScaleFlags = DSP_SCALE_FLAG_DERIVE_SIZE;
       p->fHorizontalScale = 1.4375f; p->fVerticalScale = 1.5f; }},  // 16 * 1.4375 = 23
    {"OutputLargerThanRoom", true, kArg, EDIT p->Buffer.Out.Buffer.Region.ulHeight = 13; }},
    {"NoScalingFormatTheFilterRefuses", true, kArg, EDIT
       p->Buffer.In.ePixelFormat = p->Buffer.Out.ePixelFormat = 263;
       p->Buffer.In.Buffer.Region.ulWidth = p->Buffer.Out.Buffer.Region.ulWidth = 16;
       p->Buffer.Out.Buffer.Region.ulHeight = 8; }},
};
#undef EDIT

class ScalerRefusal : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(ScalerRefusal, StatusAndNothingWritten) {
  const ErrorCase &c = GetParam();
  Pic in(21, 16, 8), out(21, 24, 12), before(out);
  std::mt19937 rng(2);
  in.randomise(rng);
  DSP_FIR_SETTINGS fir{5, 40, 0, 5, 40};
  DSP_SCALER_PARAMS p = params_of(in.image(), out.image(), 1, c.filtered ? &fir : nullptr);
  if (!c.filtered) {  // the unedited record is taken
    Pic scratch(out);
    DSP_SCALER_PARAMS q = p;
    q.Buffer.Out.Buffer.pBuffer = scratch.data();
    ASSERT_EQ(DspScaler(&q), DSP_S_OK);
  }
  c.edit(&p, &fir);
  const uint64_t allocations = framedsp::work_memory_stats().allocations;
  const std::string text = framedsp_test::traced(1, [&] { EXPECT_EQ(DspScaler(&p), c.want); });
  EXPECT_TRUE(same_bytes(before, out));
  // An invalid record is traced with a line naming the export and takes no work memory; the
  // reserved filter is not traced.
  EXPECT_EQ(text.find("DspScaler: refused: ") != std::string::npos, c.want == kArg) << text;
  if (c.want == kArg) { EXPECT_EQ(framedsp::work_memory_stats().allocations, allocations); }
}

INSTANTIATE_TEST_SUITE_P(Errors, ScalerRefusal, ::testing::ValuesIn(kErrors),
                         [](const ::testing::TestParamInfo<ErrorCase> &i) { return std::string(i.param.name); });

// A record the chosen fixed-ratio path does not fit (3:1) takes the general path; the taps of a
// filter direction that is off are not read.
TEST(ScalerValidation, PathFallbackAndTapsOfAnOffDirection) {
  Pic in(1, 6, 3), out(1, 11, 5);
  DSP_SCALER_PARAMS p = params_of(in.image(), out.image(0, 0, 2, 5), 0);
  p.eScalerPath = DSP_SCALER_PATH_INTEGER_RATIO;
  EXPECT_EQ(DspScaler(&p), DSP_S_OK);
  const DSP_FIR_SETTINGS off{99, kOff, 0, 5, 40};
  Pic a(21, 16, 8), b(21, 24, 12);
  p = params_of(a.image(), b.image(), 1, &off);
  EXPECT_EQ(DspScaler(&p), DSP_S_OK);
}

// A null buffer on a record that is otherwise fit for a fixed-ratio path is refused before that
// path steps to the second plane.
TEST(ScalerValidation, NullBufferOnAFastPathRecordIsRefused) {
  for (uint32_t path : {1u, 2u}) {
    for (uint32_t format : {0u, 28u}) {
      for (int null_out = 0; null_out < 2; ++null_out) {
        // Integer ratio: 64 -> 32 pixels, 8 -> 4 lines.  HD width: 1440 -> 1920, 4 lines.
        Pic in(format, path == 1 ? 64 : 1440, path == 1 ? 8 : 4, false, 16),
            out(format, path == 1 ? 32 : 1920, 4, false, 16), before(out), probe(out);
        std::mt19937 rng(5);
        in.randomise(rng);
        DSP_SCALER_PARAMS p = params_of(in.image(), probe.image(), 0);
        p.eScalerPath = path;
        ASSERT_EQ(DspScaler(&p), DSP_S_OK);
        ASSERT_NE(probe.bytes(), before.bytes()) << "the record with both buffers wrote nothing";
        p.Buffer.Out.Buffer.pBuffer = out.data();
        (null_out ? p.Buffer.Out : p.Buffer.In).Buffer.pBuffer = nullptr;
        const auto in_before = in.bytes();
        EXPECT_EQ(DspScaler(&p), DSP_E_INVALIDARG) << path << " " << format << " " << null_out;
        EXPECT_EQ(in.bytes(), in_before);
        EXPECT_TRUE(same_bytes(before, out));
      }
    }
  }
}

}  // namespace
