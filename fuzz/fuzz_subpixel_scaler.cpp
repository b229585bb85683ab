// DspSubPixelScaler on records built from the fuzz input: small real images in every scaled format,
// fractional regions (fractions, negative zeros, edge-of-range values, NaN, infinities, random
// bits), every kernel, edge mode, siting and field mode, coverage, anti-ringing, cubic B and C,
// bands, reserved words, the staged and filtered workers, and now and then a refused work-memory
// block.  Checks: a documented status; a setting out of range refused; a refusal writes nothing;
// no call writes outside the units and lines whose centres lie in the output region (the band's
// share of those lines), computed here from the header; all work memory released.
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "line_call.h"
#include "platform/work_memory.h"

namespace {

constexpr const char *kTarget = "DspSubPixelScaler";
constexpr int64_t kOne = int64_t{1} << 32, kHalf = kOne / 2;
constexpr double kLimit = 268435456.0;  // 2^28

// Bytes per pixel as the scaler addresses the picture, the key plane's, and pixels per unit.
struct Fmt { uint32_t code, bytes, plane, px; };
constexpr Fmt kFormats[] = {{0, 4, 0, 1},  {1, 3, 0, 1},   {5, 3, 1, 1},   {21, 2, 0, 2},  {22, 4, 0, 2},
                            {23, 6, 0, 1}, {24, 2, 0, 2},  {25, 2, 0, 2},  {28, 2, 1, 2},  {30, 2, 1, 2},
                            {31, 4, 0, 2}, {129, 8, 0, 1}, {261, 1, 0, 1}, {262, 2, 0, 1}, {263, 1, 0, 1}};
const Fmt *find(uint32_t code) {
  for (const Fmt &f : kFormats) if (f.code == code) return &f;
  return nullptr;
}

double draw_value(fuzz::Reader &r, double base) {
  static const double kFractions[] = {0.5, 0.25, 0.999, 0.0001, 1.0 / 3};
  static const double kEdges[] = {kLimit, -kLimit, kLimit + 0.5, 1e-12, std::ldexp(1.0, -32),
                                  std::ldexp(1.0, -33), 1e300, -5e-324};
  const uint8_t c = r.u8();
  if (c < 120) return base;
  if (c < 200) return base + ((c & 1) ? 1 : -1) * r.pick(kFractions);
  if (c < 210) return -0.0;
  if (c < 218) return std::numeric_limits<double>::quiet_NaN();
  if (c < 224) return (c & 1) ? HUGE_VAL : -HUGE_VAL;
  if (c < 236) return r.pick(kEdges);
  if (c < 246) return base * r.range(2, 5000);
  uint64_t bits = uint64_t{r.u32()} | (uint64_t{r.u32()} << 32);
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

// One image of a small size, its strides (now and then too short) and a fractional region.
size_t draw_side(fuzz::Reader &r, const Fmt &f, uint32_t max_dim, DSP_SUBPIXEL_IMAGE *im) {
  static const uint32_t kTypes[] = {2, 2, 2, 2, 0, 1, 3}, kInterlace[] = {2, 2, 0, 1, 3, 4};
  im->ulWidth = r.u8() < 4 ? 0 : r.range(1, max_dim);
  if (f.px == 2 && r.u8() < 240) im->ulWidth = (im->ulWidth + 1) & ~1u;
  im->ulHeight = r.u8() < 4 ? 0 : r.range(1, max_dim);
  im->ulPrimaryStrideBytes = im->ulWidth * f.bytes + (r.flag() ? 0 : r.range(0, 40));
  if (r.u8() < 6) im->ulPrimaryStrideBytes = r.range(0, im->ulWidth * f.bytes);
  im->ulSecondaryStrideBytes = im->ulWidth * f.plane + r.range(0, 16);
  if (f.plane && r.u8() < 6) im->ulSecondaryStrideBytes = r.range(0, im->ulWidth * f.plane);
  im->Buffer.eBufferType = r.pick(kTypes);
  im->eInterlace = r.pick(kInterlace);
  im->eImageOrientation = r.range(0, 1);
  im->eColorSpace = r.range(0, 3);
  im->ulFlags = r.u32();
  im->ulReserved = r.u32();
  DSP_SUBPIXEL_REGION &g = im->Buffer.Region;
  const bool whole = r.u8() < 64;
  g.ptOffset.x = draw_value(r, whole ? 0 : int32_t(r.range(0, im->ulWidth + 4)) - 2);
  g.ptOffset.y = draw_value(r, whole ? 0 : int32_t(r.range(0, im->ulHeight + 4)) - 2);
  g.ulWidth = draw_value(r, whole ? im->ulWidth : r.range(1, im->ulWidth + 2));
  g.ulHeight = draw_value(r, whole ? im->ulHeight : r.range(1, im->ulHeight + 2));
  const size_t bytes = size_t{im->ulHeight} * (im->ulPrimaryStrideBytes + (f.plane ? im->ulSecondaryStrideBytes : 0));
  im->Buffer.ulBytes = uint32_t(bytes);
  return bytes;
}

// A region value rounded once to Q32; false for what the scaler refuses.
bool q32(double v, bool size, int64_t *q) {
  if (!(v >= -kLimit && v <= kLimit)) return false;
  *q = std::llround(std::ldexp(v, 32));
  return !size || *q > 0;
}

// Both regions in Q32 (the output's size derived from the factors when asked); false: refused.
bool regions(const DSP_SUBPIXEL_SCALER_PARAMS &p, int64_t *q) {
  const DSP_SUBPIXEL_REGION &ri = p.Buffer.In.Buffer.Region, &ro = p.Buffer.Out.Buffer.Region;
  double w = ro.ulWidth, h = ro.ulHeight;
  if (p.ulScaleFlags & DSP_SCALE_FLAG_DERIVE_SIZE) {
    w = ri.ulWidth * double{p.fHorizontalScale};
    h = ri.ulHeight * (p.Buffer.In.Buffer.eBufferType < 2 ? 2 : 1) * double{p.fVerticalScale} /
        (p.Buffer.Out.Buffer.eBufferType < 2 ? 2 : 1);
  }
  return q32(ri.ptOffset.x, false, q) && q32(ri.ptOffset.y, false, q + 1) && q32(ri.ulWidth, true, q + 2) &&
         q32(ri.ulHeight, true, q + 3) && q32(ro.ptOffset.x, false, q + 4) && q32(ro.ptOffset.y, false, q + 5) &&
         q32(w, true, q + 6) && q32(h, true, q + 7);
}

bool image_refused(const DSP_SUBPIXEL_IMAGE &im, const Fmt &f) {
  return im.Buffer.eBufferType > 2 || (im.Buffer.eBufferType == 2 && im.eInterlace > 2) || !im.ulWidth ||
         !im.ulHeight || im.ulWidth % f.px || im.ulPrimaryStrideBytes < im.ulWidth * f.bytes ||
         (f.plane && im.ulSecondaryStrideBytes < im.ulWidth * f.plane);
}

bool must_refuse(const DSP_SUBPIXEL_SCALER_PARAMS &p, const Fmt *f, int64_t *q) {
  const DSP_SUBPIXEL_IMAGE &in = p.Buffer.In, &out = p.Buffer.Out;
  bool bad = p.eFilter > 3 || p.ulEdgeMode > 3 || p.ulAntiRingingQ8 > 256 || p.ulChromaSiting > 1 ||
             p.ulFieldMode > 1 || p.ulCubicBQ14 > 16384 || p.ulCubicCQ14 > 16384 ||
             std::max(p.ulSliceNumber, 1u) > std::max(p.ulSliceCount, 1u) || (p.ulScaleFlags & ~1u) ||
             (p.ulOptions & ~3u) || !f || out.ePixelFormat != in.ePixelFormat || !regions(p, q);
  for (uint32_t w : p.ulReserved2) bad = bad || w != 0;
  if (bad) return true;
  return image_refused(in, *f) || image_refused(out, *f) ||
         (in.Buffer.eBufferType == 2 && in.eInterlace == 0 && out.Buffer.eBufferType == 2 && out.eInterlace == 2);
}

// Marks the units whose centre lies in the output region on the lines whose centre does (fields
// placed by the field mode, picked by the field flags), narrowed to the call's band.
void allow_written(const DSP_SUBPIXEL_SCALER_PARAMS &p, const Fmt &f, const int64_t *q, fuzz::OutputImage *out) {
  const DSP_SUBPIXEL_IMAGE &in = p.Buffer.In, &o = p.Buffer.Out;
  const int64_t x = q[4], y = q[5], w = q[6], h = q[7], H = o.ulHeight, px = f.px;
  const uint32_t type = o.Buffer.eBufferType, pick = p.Buffer.ulFlags & 0x18u;
  std::vector<int64_t> lines;
  for (int64_t L = 0; L < H; ++L) {
    int64_t c = L * kOne + kHalf, lo = y, hi = y + h;
    if (type < 2) {  // a field buffer: lines in field units, region in frame lines
      c = p.ulFieldMode ? (2 * L + 1) * kOne : (2 * L + type) * kOne + kHalf;
      lo = 2 * y, hi = 2 * (y + h);
    } else if (o.eInterlace != 2) {  // an interleaved frame, field by field
      const uint32_t t = uint32_t(L & 1);
      if ((pick && !(pick & (t ? 0x10u : 0x08u))) || (in.Buffer.eBufferType < 2 && in.Buffer.eBufferType != t)) continue;
      if (p.ulFieldMode) c = (L | 1) * kOne;
    }
    if (c >= lo && c < hi) lines.push_back(L);
  }
  int64_t band_lo = INT64_MIN, band_hi = INT64_MAX;
  if (!lines.empty() && p.ulEdgeMode != DSP_SUBPIXEL_EDGE_UNTOUCHED && in.ulHeight > 1) {
    const int64_t count = std::max(p.ulSliceCount, 1u), n = std::max(p.ulSliceNumber, 1u);
    const int64_t f0 = lines.front(), span = lines.back() + 1 - f0;
    band_lo = f0 + span * (n - 1) / count, band_hi = f0 + span * n / count;
  }
  const int64_t s1 = o.ulPrimaryStrideBytes, s2 = o.ulSecondaryStrideBytes;
  for (int64_t u = 0; u < o.ulWidth / px; ++u) {
    const int64_t c = u * px * kOne + px * kHalf;
    if (c < x || c >= x + w) continue;
    for (int64_t L : lines) {
      if (L < band_lo || L >= band_hi) continue;
      const int64_t m = o.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP ? H - 1 - L : L;
      out->allow(m * s1 + u * px * f.bytes, px * f.bytes);
      if (f.plane) out->allow(H * s1 + m * s2 + u * px * f.plane, px * f.plane);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  fuzz::draw_cpu_mask(r);
  DSP_SUBPIXEL_SCALER_PARAMS p{};
  static const float kScales[] = {1, 0.5f, 2, 0.3f, 3.7f, 0.01f, 40, 0, -1, NAN, INFINITY};
  static const uint32_t kCubic[] = {0, 0, 5461, 8192, 16384, 16385};
  p.eScalerPath = r.u32();
  p.ulReserved = r.u32();
  p.eFilter = r.u8() < 250 ? r.range(0, 3) : r.u32();
  const uint8_t sf = r.u8();
  p.ulScaleFlags = sf < 190 ? 0 : sf < 250 ? DSP_SCALE_FLAG_DERIVE_SIZE : r.u32();
  p.fHorizontalScale = r.pick(kScales);
  p.fVerticalScale = r.flag() ? p.fHorizontalScale : r.pick(kScales);
  p.ulEdgeMode = r.u8() < 250 ? r.range(0, 3) : r.u32();
  p.ulFillColor = r.u32();
  p.ulCoverage = r.flag() ? 0 : r.u32();
  const uint8_t ar = r.u8();
  p.ulAntiRingingQ8 = ar < 120 ? 0 : ar < 250 ? r.range(0, 256) : r.u32();
  p.ulChromaSiting = r.u8() < 250 ? r.range(0, 1) : r.u32();
  p.ulFieldMode = r.u8() < 250 ? r.range(0, 1) : r.u32();
  p.ulCubicBQ14 = r.u8() < 200 ? r.pick(kCubic) : r.range(0, 16400);
  p.ulCubicCQ14 = r.u8() < 200 ? r.pick(kCubic) : r.range(0, 16400);
  p.ulSliceCount = r.flag() ? 0 : r.range(0, 6);
  p.ulSliceNumber = r.range(0, p.ulSliceCount + 1);
  if (r.u8() >= 248) p.ulReserved2[r.u8() % 9] = r.u32() | 1;
  const uint8_t opt = r.u8();
  p.ulOptions = opt < 100 ? 0 : opt < 160 ? 1 : opt < 220 ? 2 : opt < 245 ? 3 : r.u32();
  static const uint32_t kCutoffs[] = {100, 100, 90, 50, 20, 0, 101};
  DSP_FIR_SETTINGS fir{};
  fir.ulHorzTaps = r.range(0, 16);
  fir.ulVertTaps = r.range(0, 16);
  fir.ulHorzCutoff = r.pick(kCutoffs);
  fir.ulVertCutoff = r.pick(kCutoffs);
  p.eFilterType = r.u8() < 240 ? DSP_FILTER_TYPE_FIR : r.u32();
  p.pSettings = r.u8() < 250 ? &fir : nullptr;

  const uint8_t fc = r.u8();
  const uint32_t format = fc < 250 ? kFormats[fc % 15].code : r.u32() % 300;
  const Fmt *f = find(format);
  const Fmt &sized = f ? *f : kFormats[0];
  static const uint32_t kDims[] = {2, 4, 8, 16, 33, 64};
  const uint32_t max_dim = r.pick(kDims);
  DSP_SUBPIXEL_IMAGE &in = p.Buffer.In, &out = p.Buffer.Out;
  in.ePixelFormat = format;
  out.ePixelFormat = r.u8() < 250 ? format : kFormats[r.u8() % 15].code;
  const size_t in_bytes = draw_side(r, sized, max_dim, &in);
  const size_t out_bytes = draw_side(r, sized, r.flag() ? max_dim : r.pick(kDims), &out);
  p.Buffer.ulFlags = r.u8() < 240 ? (r.u8() & 0x18u) : r.u32();

  fuzz::PageBuffer input(in_bytes, r.flag(), 0);
  fuzz::fill_from(r, input.data(), in_bytes);
  const std::vector<uint8_t> input_copy(input.data(), input.data() + in_bytes);
  fuzz::OutputImage output(out_bytes, r.flag(), r.u32());
  const uint8_t nulls = r.u8();
  in.Buffer.pBuffer = nulls == 255 ? nullptr : input.data();
  out.Buffer.pBuffer = nulls == 254 ? nullptr : output.data();
  const uint8_t oom = r.u8();
  const uint64_t fail_at = oom < 232 ? 0 : oom % 8 + 1;

  int64_t q[8] = {};
  const bool refuse = must_refuse(p, f, q);
  if (!refuse) allow_written(p, *f, q, &output);
  const DSP_SUBPIXEL_SCALER_PARAMS before = p;
  const DSP_FIR_SETTINGS fir_before = fir;
  const framedsp::WorkMemoryStats m0 = framedsp::work_memory_stats();
  framedsp::work_memory_fail_at(fail_at);
  const DSP_HRESULT hr = DspSubPixelScaler(&p);
  framedsp::work_memory_fail_at(0);
  const framedsp::WorkMemoryStats m1 = framedsp::work_memory_stats();

  fuzz::require(m1.allocations - m0.allocations == m1.releases - m0.releases, kTarget, "work memory not released");
  fuzz::require(std::memcmp(&before, &p, sizeof p) == 0 && std::memcmp(&fir_before, &fir, sizeof fir) == 0, kTarget,
                "the record changed");
  fuzz::require(!in_bytes || std::memcmp(input_copy.data(), input.data(), in_bytes) == 0, kTarget, "the input changed");
  fuzz::require(hr == DSP_S_OK || hr == DSP_E_INVALIDARG || (hr == DSP_E_POINTER && nulls >= 254) ||
                    (hr == DSP_E_OUTOFMEMORY && fail_at),
                kTarget, "status outside the documented set");
  fuzz::require(!refuse || hr == DSP_E_INVALIDARG || hr == DSP_E_POINTER, kTarget, "a record out of range ran");
  output.check(kTarget, refuse || hr == DSP_E_INVALIDARG || hr == DSP_E_POINTER);
  return 0;
}
