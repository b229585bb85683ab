// DspScaler on records built from the fuzz input: the general path (nearest, linear, staged,
// two-plane formats, fields, bands, derived sizes), both fixed-ratio fast paths with ratios that
// often look eligible, and the filtered path (ulOptions bit 1); DspNonUniformScaler (every mode
// and kernel) on the same records.  Any documented status is
// accepted; E_INVALIDARG and E_NOTIMPL leave the output untouched, and every call writes only
// inside the output region the geometry step gives (computed here from the public header).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "line_call.h"

namespace {

// Bytes per pixel of the main picture as the scaler addresses it, and the plane's bytes per pixel.
struct ScaleFormat {
  uint32_t bytes;
  uint32_t plane_bytes;  // 0: one plane
  bool pairs;            // 4:2:2 layouts: widths even, left edges in pixel pairs
};

ScaleFormat scale_format(uint32_t f) {
  switch (f) {
    case 0: return {4, 0, false};
    case 1: return {3, 0, false};
    case 5: return {3, 1, false};
    case 22: case 31: return {4, 0, true};
    case 23: return {6, 0, true};
    case 28: case 30: return {2, 1, true};
    case 129: return {8, 0, true};
    case 261: case 263: return {1, 0, true};
    default: return {2, 0, true};  // 21, 24, 25, 262 and the formats the scaler refuses
  }
}

uint32_t draw_scale_format(fuzz::Reader &r) {
  static const uint32_t kScaled[] = {0, 1, 5, 21, 22, 23, 24, 25, 28, 30, 31, 129, 261, 262, 263};
  static const uint32_t kOther[] = {2, 3, 4, 16, 26, 27, 29, 64, 128, 132, 258, 264, 512};
  const uint8_t c = r.u8();
  if (c < 240) return r.pick(kScaled);
  if (c < 252) return r.pick(kOther);
  return r.u32();
}

// Strides and byte size of one side for the scaler's pixel sizes.
void size_side(fuzz::Reader &r, DSP_IMAGE *im, size_t *bytes) {
  const ScaleFormat sf = scale_format(im->ePixelFormat);
  const uint32_t slack = r.u8() < 128 ? 0 : r.range(0, 48);
  im->ulPrimaryStrideBytes = im->ulWidth * sf.bytes + slack;
  if (r.u8() < 6) im->ulPrimaryStrideBytes = r.range(0, im->ulWidth * sf.bytes + 16);  // short
  im->ulSecondaryStrideBytes = sf.plane_bytes ? im->ulWidth * sf.plane_bytes + r.range(0, 16) : r.range(0, 8);
  *bytes = size_t{im->ulHeight} * im->ulPrimaryStrideBytes;
  if (sf.plane_bytes) *bytes += size_t{im->ulHeight} * im->ulSecondaryStrideBytes;
  im->Buffer.ulBytes = static_cast<uint32_t>(*bytes);
}

uint32_t floor_half(double x) {
  const double v = std::floor(x + 0.5);
  if (!(v == v)) return 0;
  double m = std::fmod(v, 4294967296.0);
  if (m < 0) m += 4294967296.0;
  return static_cast<uint32_t>(m);
}

float draw_factor(fuzz::Reader &r) {
  static const float kNice[] = {0.25f, 0.5f, 1.0f, 2.0f, 4.0f, 0.75f, 1.5f, 4.0f / 3.0f, 2.0f / 3.0f, 0.0f};
  const uint8_t c = r.u8();
  if (c < 150) return r.pick(kNice);
  if (c < 230) return static_cast<float>(r.range(0, 4000)) / 1000.0f;
  if (c < 240) return -1.0f;
  uint32_t bits = r.u32();
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;  // anything, NaN and infinities included
}

// The output region the geometry step leaves, from the header; false when it refuses.
bool derive_output_region(const DSP_SCALER_PARAMS &p, DSP_REGION *out_region) {
  const DSP_BUFFER &b = p.Buffer;
  if (p.eFilter > 2) return false;
  const bool in_field = b.In.Buffer.eBufferType <= 1, in_frame = b.In.Buffer.eBufferType == 2;
  const bool out_field = b.Out.Buffer.eBufferType <= 1, out_frame = b.Out.Buffer.eBufferType == 2;
  const double factor = (in_field && out_frame) ? 2.0 : (in_frame && out_field) ? 0.5 : 1.0;
  const DSP_REGION &ir = b.In.Buffer.Region;
  if (ir.ptOffset.x < 0 || ir.ptOffset.y < 0) return false;
  if (int64_t{ir.ptOffset.x} + ir.ulWidth > b.In.ulWidth) return false;
  if (int64_t{ir.ptOffset.y} + ir.ulHeight > b.In.ulHeight) return false;
  DSP_REGION r = b.Out.Buffer.Region;
  if (r.ptOffset.x < 0 || r.ptOffset.y < 0) return false;
  if (static_cast<uint32_t>(r.ptOffset.x) > b.Out.ulWidth || static_cast<uint32_t>(r.ptOffset.y) > b.Out.ulHeight) {
    return false;
  }
  const uint32_t room_w = b.Out.ulWidth - static_cast<uint32_t>(r.ptOffset.x);
  const uint32_t room_h = b.Out.ulHeight - static_cast<uint32_t>(r.ptOffset.y);
  if (p.ulScaleFlags & DSP_SCALE_FLAG_DERIVE_SIZE) {
    const uint32_t w = floor_half(static_cast<double>(ir.ulWidth) * double{p.fHorizontalScale});
    const uint32_t h = floor_half(static_cast<double>(ir.ulHeight) * factor * double{p.fVerticalScale});
    r.ulWidth = w < room_w ? w : room_w;
    r.ulHeight = h < room_h ? h : room_h;
    if (out_frame && (r.ulHeight & 1u)) r.ulHeight = r.ulHeight < room_h ? r.ulHeight + 1 : r.ulHeight - 1;
  } else if (r.ulWidth > room_w || r.ulHeight > room_h) {
    return false;
  }
  *out_region = r;
  return true;
}

// Every byte of the region's lines (both planes), columns clipped to the stride.  Bands and field
// selections narrow what is written; this map does not narrow them.
void allow_region(const DSP_IMAGE &o, const DSP_REGION &r, fuzz::OutputImage *out) {
  const ScaleFormat sf = scale_format(o.ePixelFormat);
  int64_t x = r.ptOffset.x;
  if (sf.pairs) x &= ~int64_t{1};
  const int64_t x_end = int64_t{r.ptOffset.x} + r.ulWidth;
  const int64_t H = o.ulHeight;
  const int64_t s1 = o.ulPrimaryStrideBytes, s2 = o.ulSecondaryStrideBytes;
  for (int64_t j = 0; j < r.ulHeight; ++j) {
    const int64_t p = r.ptOffset.y + j;
    if (p < 0 || p >= H) continue;
    const int64_t m = o.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP ? H - 1 - p : p;
    const int64_t lo = x * sf.bytes, hi = std::min<int64_t>(x_end * sf.bytes, s1);
    if (hi > lo) out->allow(m * s1 + lo, hi - lo);
    if (sf.plane_bytes) {
      const int64_t plo = x * sf.plane_bytes, phi = std::min<int64_t>(x_end * sf.plane_bytes, s2);
      if (phi > plo) out->allow(H * s1 + m * s2 + plo, phi - plo);
    }
  }
}

// FUZZ_STATUS_COUNTS=1 prints how often each status came back (is the fuzzer reaching the
// kernels, or only the refusals?).
struct StatusCounts {
  unsigned long long ok = 0, invalid = 0, notimpl = 0, fail = 0, other = 0, fast = 0, nonuniform = 0;
  ~StatusCounts() {
    if (!std::getenv("FUZZ_STATUS_COUNTS")) return;
    std::fprintf(stderr, "statuses: S_OK %llu (fast-path shaped %llu, DspNonUniformScaler %llu), E_INVALIDARG %llu, "
                 "E_NOTIMPL %llu, E_FAIL %llu, other %llu\n", ok, fast, nonuniform, invalid, notimpl, fail, other);
  }
};
StatusCounts g_counts;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  fuzz::draw_cpu_mask(r);
  DSP_SCALER_PARAMS p{};
  static const uint32_t kPaths[] = {0, 0, 1, 1, 2, 2, 3};
  p.eScalerPath = r.u8() < 245 ? r.pick(kPaths) : r.u32();
  p.eFilter = r.u8() < 245 ? r.range(0, 2) : r.u32();
  p.ulScaleFlags = r.u8() < 240 ? (r.u8() & 5u) : r.u32();
  p.fHorizontalScale = draw_factor(r);
  p.fVerticalScale = r.u8() < 128 ? p.fHorizontalScale : draw_factor(r);
  const uint8_t opt = r.u8();
  p.ulOptions = opt < 120 ? 0 : opt < 200 ? 1 : opt < 240 ? 2 : r.u32();
  const uint32_t taps_h = r.range(0, 16), taps_v = r.range(0, 16);
  DSP_FIR_SETTINGS fir{taps_h, r.range(0, 100), 0, taps_v, r.range(0, 100)};  // drawn left to right
  p.eFilterType = r.u8() < 220 ? DSP_FILTER_TYPE_FIR : r.u32();
  p.pSettings = r.u8() < 240 ? &fir : nullptr;
  p.ulReserved = r.u32();

  // Geometry: a free draw, or a fast-path-looking pair (frames, same format, interlace 0 with a
  // field selection or 2 without, widths in an integer ratio or an HD pair).
  DSP_BUFFER &b = p.Buffer;
  const uint32_t format = draw_scale_format(r);
  const uint8_t shape = r.u8() % 3;
  fuzz::ImageSide in, out;
  static const uint32_t kDims[] = {4, 8, 16, 33, 64, 64, 130, 300};
  if (shape == 0) {
    const uint32_t max_dim = r.pick(kDims);
    fuzz::draw_image(r, format, max_dim, &in);
    fuzz::draw_image(r, r.u8() < 245 ? format : draw_scale_format(r), max_dim, &out);
    // Mostly regions inside their images (the scaler refuses the rest) and interlace values the
    // field rules accept, so that the kernels run.
    for (fuzz::ImageSide *side : {&in, &out}) {
      DSP_IMAGE &im = side->image;
      DSP_REGION &reg = im.Buffer.Region;
      if (r.u8() < 210) {
        reg.ptOffset.x = std::min<int32_t>(std::max<int32_t>(reg.ptOffset.x, 0), static_cast<int32_t>(im.ulWidth));
        reg.ptOffset.y = std::min<int32_t>(std::max<int32_t>(reg.ptOffset.y, 0), static_cast<int32_t>(im.ulHeight));
        reg.ulWidth = std::min(reg.ulWidth, im.ulWidth - static_cast<uint32_t>(reg.ptOffset.x));
        reg.ulHeight = std::min(reg.ulHeight, im.ulHeight - static_cast<uint32_t>(reg.ptOffset.y));
        if (scale_format(format).pairs) {
          reg.ptOffset.x &= ~1;
          reg.ulWidth &= ~1u;
          im.ulWidth &= ~1u;
          reg.ulWidth = std::min(reg.ulWidth, (im.ulWidth - std::min<uint32_t>(reg.ptOffset.x, im.ulWidth)) & ~1u);
        }
      }
      if (r.u8() < 160 && im.eInterlace == 0) im.eInterlace = r.range(1, 3);
    }
  } else {
    static const uint32_t kHd[][2] = {{1440, 1920}, {960, 1280}, {1280, 1920}, {1280, 960},
                                      {1920, 1440}, {1920, 1280}, {720, 1280}, {1920, 1920}};
    static const uint32_t kRatio[][2] = {{1, 2}, {1, 4}, {2, 1}, {4, 1}, {1, 1}, {3, 2}};
    uint32_t wi, wo, hi, ho;
    if (shape == 1) {
      const uint32_t *pair = kRatio[r.u8() % 6];
      const uint32_t unit = r.range(1, 40) * 2;
      wi = unit * pair[0];
      wo = unit * pair[1];
      const uint32_t hunit = r.range(0, 30);
      hi = hunit * pair[0];
      ho = hunit * pair[1] + (r.u8() < 40 ? r.range(0, 3) : 0);
    } else {
      const uint32_t *pair = kHd[r.u8() % 8];
      wi = pair[0];
      wo = pair[1];
      hi = r.range(0, 12);
      ho = r.u8() < 160 ? hi : r.range(0, 12);
    }
    for (fuzz::ImageSide *side : {&in, &out}) {
      DSP_IMAGE &im = side->image;
      im = DSP_IMAGE{};
      im.ePixelFormat = format;
      const uint32_t rw = side == &in ? wi : wo, rh = side == &in ? hi : ho;
      const uint32_t extra_w = r.u8() < 128 ? 0 : r.range(0, 8) * 2, extra_h = r.u8() < 128 ? 0 : r.range(0, 6);
      im.ulWidth = rw + extra_w;
      im.ulHeight = rh + extra_h;
      im.Buffer.eBufferType = r.u8() < 230 ? DSP_BUFFER_TYPE_FRAME : r.range(0, 3);
      im.eInterlace = r.u8() < 230 ? 0 : r.range(0, 4);
      im.eImageOrientation = r.range(0, 1);
      im.eColorSpace = r.range(0, 1);
      im.Buffer.Region.ulWidth = rw;
      im.Buffer.Region.ulHeight = rh;
      im.Buffer.Region.ptOffset.x = static_cast<int32_t>(r.range(0, extra_w / 2) * 2);
      im.Buffer.Region.ptOffset.y = static_cast<int32_t>(r.range(0, extra_h));
    }
    const uint32_t il = r.flag() ? 0 : 2;
    if (r.u8() < 220) in.image.eInterlace = out.image.eInterlace = il;
    b.ulFlags = il == 0 ? (r.flag() ? DSP_BUFFER_PROCESS_FIELDA : DSP_BUFFER_PROCESS_FIELDB) : 0;
    if (il == 0 && r.u8() < 60) b.ulFlags = DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB;
  }
  out.image.ePixelFormat = shape == 0 ? out.image.ePixelFormat : format;
  size_side(r, &in.image, &in.bytes);
  size_side(r, &out.image, &out.bytes);
  b.In = in.image;
  b.Out = out.image;
  if (shape == 0 || r.u8() < 30) b.ulFlags = r.u8() < 240 ? (r.u8() & 0x1F) : r.u32();
  if (r.u8() >= 128) {
    b.ulSliceCount = r.range(0, 9);
    b.ulSliceNumber = r.range(0, b.ulSliceCount + 1);
  }

  fuzz::LineCall call;
  call.input.reset(new fuzz::PageBuffer(in.bytes, r.flag(), 0));
  fuzz::fill_from(r, call.input->data(), in.bytes);
  call.input_copy.assign(call.input->data(), call.input->data() + in.bytes);
  call.output.reset(new fuzz::OutputImage(out.bytes, r.flag(), r.u32()));
  b.In.Buffer.pBuffer = call.input->data();
  b.Out.Buffer.pBuffer = call.output->data();
  const uint8_t nulls = r.u8();
  if (nulls == 255) b.In.Buffer.pBuffer = nullptr;
  if (nulls == 254) b.Out.Buffer.pBuffer = nullptr;
  call.buffer = b;

  // Past the end of the input (zeros): DspScaler.  Otherwise mostly DspNonUniformScaler on the
  // same record, its settings in the first five words (the layouts agree from word 5 on): mode,
  // filter, centre width and scale (folding pairs included), the reserved word.
  const bool nonuniform = r.u8() >= 160;
  if (nonuniform) {
    const bool odd = r.u8() >= 250;
    const uint32_t words[5] = {odd ? r.u32() : r.range(0, 2), odd ? r.u32() : r.range(0, 3),
                               r.u8() < 220 ? r.range(0, 12000) : r.u32(), r.u8() < 220 ? r.range(9000, 40000) : r.u32(),
                               r.u8() < 245 ? 0 : r.u32()};
    std::memcpy(&p, words, sizeof words);
  }
  DSP_SCALER_PARAMS shape_of = p;  // what the geometry step sees: sizes as given, a filter it takes
  if (nonuniform) shape_of.eFilter = 0;
  DSP_REGION region{};
  const bool geometry_ok = derive_output_region(shape_of, &region);
  if (geometry_ok) allow_region(b.Out, region, call.output.get());

  const DSP_SCALER_PARAMS before = p;
  const DSP_FIR_SETTINGS fir_before = fir;
  DSP_NONUNIFORM_SCALER_PARAMS n;
  static_assert(sizeof n == sizeof p, "the two records share one layout");
  std::memcpy(&n, &p, sizeof n);
  const char *name = nonuniform ? "DspNonUniformScaler" : "DspScaler";
  const DSP_HRESULT hr = nonuniform ? DspNonUniformScaler(&n) : DspScaler(&p);
  fuzz::set_failure_context(&before.Buffer);
  fuzz::require(std::memcmp(&before, nonuniform ? static_cast<const void *>(&n) : &p, sizeof p) == 0, name,
                "the record changed");
  fuzz::require(std::memcmp(&fir_before, &fir, sizeof fir) == 0, name, "the settings changed");
  char detail[200];
  std::snprintf(detail, sizeof detail,
                "status 0x%08x (path/mode %u, filter %u, scale flags 0x%x, factors %g x %g, options 0x%x)",
                static_cast<unsigned>(hr), p.eScalerPath, p.eFilter, p.ulScaleFlags,
                static_cast<double>(p.fHorizontalScale), static_cast<double>(p.fVerticalScale), p.ulOptions);
  // E_FAIL: a failed copy, a missing FIR row, an eFilter other than 0 and 1 on the integer-ratio path.
  fuzz::require(hr == DSP_S_OK || hr == DSP_E_INVALIDARG || hr == DSP_E_NOTIMPL || hr == DSP_E_FAIL ||
                    hr == DSP_E_OUTOFMEMORY,
                name, detail);
  if (hr == DSP_S_OK) fuzz::require(geometry_ok, name, detail);
  ++(hr == DSP_S_OK ? g_counts.ok : hr == DSP_E_INVALIDARG ? g_counts.invalid : hr == DSP_E_NOTIMPL ? g_counts.notimpl
     : hr == DSP_E_FAIL ? g_counts.fail : g_counts.other);
  g_counts.fast += hr == DSP_S_OK && shape != 0;
  g_counts.nonuniform += hr == DSP_S_OK && nonuniform;
  // Settings errors and the reserved filter are answered before any line is written; every
  // other status may leave a partly written region, never a byte outside it.
  fuzz::check_line_call(name, call, before.Buffer, hr == DSP_E_INVALIDARG || hr == DSP_E_NOTIMPL);
  return 0;
}
