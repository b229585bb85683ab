// DspSubPixelFilter on records built from the fuzz input: a line call drawn as for DspFilter, its
// regions turned into doubles with fractions, negative zeros, huge values, NaN and infinities.
// The write map is DspFilter's line map for the record whose region values are truncated toward
// zero to 64-bit integers (low 32 bits kept; NaN, infinities and values no 64-bit integer holds
// count as 0), over the whole region (the record has no bands).
#include <cmath>
#include <cstring>
#include <limits>

#include "filter/subpixel_filter.h"
#include "line_call.h"

namespace {

double draw_value(fuzz::Reader &r, int64_t base) {
  static const double kFractions[] = {0.0, 0.5, 0.25, 0.999, 0.0001};
  const uint8_t c = r.u8();
  if (c < 170) return static_cast<double>(base);
  if (c < 220) return static_cast<double>(base) + r.pick(kFractions);
  if (c < 230) return static_cast<double>(base) - r.pick(kFractions);
  if (c < 236) return -0.0;
  if (c < 242) return std::numeric_limits<double>::quiet_NaN();
  if (c < 246) return r.flag() ? HUGE_VAL : -HUGE_VAL;
  if (c < 250) return r.flag() ? 9.3e18 : 4294967296.0 + static_cast<double>(base);
  uint64_t bits = uint64_t{r.u32()} | (uint64_t{r.u32()} << 32);
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

// The same image with its region drawn around the integer one (read in the order x, y, w, h).
void to_subpixel(fuzz::Reader &r, const DSP_IMAGE &src, DSP_SUBPIXEL_IMAGE *dst) {
  const DSP_REGION &g = src.Buffer.Region;
  *dst = {{src.Buffer.pBuffer, src.Buffer.ulBytes, src.Buffer.eBufferType,
           {{draw_value(r, g.ptOffset.x), draw_value(r, g.ptOffset.y)}, draw_value(r, g.ulWidth),
            draw_value(r, g.ulHeight)}},
          r.u32(), src.ulWidth, src.ulHeight, src.ePixelFormat, src.eInterlace, src.eImageOrientation, src.eColorSpace,
          src.ulPrimaryStrideBytes, src.ulSecondaryStrideBytes, src.ulFlags};
}

void truncate_region(const DSP_SUBPIXEL_IMAGE &src, DSP_IMAGE *dst) {
  const DSP_SUBPIXEL_REGION &g = src.Buffer.Region;
  dst->Buffer.Region = {{int32_t(fuzz::low32_of_trunc(g.ptOffset.x)), int32_t(fuzz::low32_of_trunc(g.ptOffset.y))},
                        fuzz::low32_of_trunc(g.ulWidth), fuzz::low32_of_trunc(g.ulHeight)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  fuzz::draw_cpu_mask(r);
  DSP_SUBPIXEL_FILTER_PARAMS p{};
  DSP_FIR_SETTINGS fir{};
  DSP_BOX_SETTINGS box{};
  const uint8_t type = r.u8();
  p.eFilterType = type < 120 ? DSP_FILTER_TYPE_FIR : type < 240 ? DSP_FILTER_TYPE_BOX : r.u32();
  const bool wild = r.u8() >= 240;
  fir.ulHorzTaps = wild ? r.u32() : r.range(0, 16);
  fir.ulVertTaps = wild ? r.u32() : r.range(0, 16);
  fir.ulHorzCutoff = wild ? r.u32() : r.range(0, 100);
  fir.ulVertCutoff = wild ? r.u32() : r.range(0, 100);
  box.ulHorzSize = wild ? r.u32() : r.range(0, 260);
  box.ulVertSize = wild ? r.u32() : r.range(0, 260);
  p.pSettings = r.u8() < 250 ? (p.eFilterType == DSP_FILTER_TYPE_BOX ? static_cast<const void *>(&box)
                                                                     : static_cast<const void *>(&fir))
                             : nullptr;
  p.ulOptions = r.u8() & 3u;
  p.ulReserved = r.u32();

  fuzz::LineCall call;
  fuzz::draw_line_call(r, fuzz::RegionRule::kFieldFactor, &call);
  // The whole region: no bands in this record.  Rebuild the write map for the truncated regions.
  DSP_BUFFER whole = call.buffer;
  whole.ulSliceCount = whole.ulSliceNumber = 0;
  to_subpixel(r, whole.In, &p.Buffer.In);
  to_subpixel(r, whole.Out, &p.Buffer.Out);
  p.Buffer.ulFlags = whole.ulFlags;
  truncate_region(p.Buffer.In, &whole.In);
  truncate_region(p.Buffer.Out, &whole.Out);
  call.output.reset(new fuzz::OutputImage(call.output->size(), r.flag(), r.u32()));
  p.Buffer.Out.Buffer.pBuffer = call.output->data();
  whole.Out.Buffer.pBuffer = call.output->data();
  fuzz::allow_line_operation(whole, call.output.get());
  call.buffer = whole;

  const DSP_SUBPIXEL_FILTER_PARAMS before = p;
  const DSP_FIR_SETTINGS fir_before = fir;
  const DSP_BOX_SETTINGS box_before = box;
  const bool refused = framedsp::subpixel_filter_validate(&p) != DSP_S_OK;
  const DSP_HRESULT hr = DspSubPixelFilter(&p);
  fuzz::set_failure_context(&whole);
  // Compare the bytes (NaN regions make a value comparison useless).
  fuzz::require(std::memcmp(&before, &p, sizeof p) == 0, "DspSubPixelFilter", "the record changed");
  fuzz::require(std::memcmp(&fir_before, &fir, sizeof fir) == 0 &&
                    std::memcmp(&box_before, &box, sizeof box) == 0,
                "DspSubPixelFilter", "the settings changed");
  if (refused) fuzz::require(hr == DSP_S_OK, "DspSubPixelFilter", "refused record answered other than S_OK");
  fuzz::require(hr == DSP_S_OK || hr == DSP_E_INVALIDARG, "DspSubPixelFilter", "unexpected status");
  fuzz::check_line_call("DspSubPixelFilter", call, whole, refused || hr == DSP_E_INVALIDARG);
  return 0;
}
