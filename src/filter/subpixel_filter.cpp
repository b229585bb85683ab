#include "filter/subpixel_filter.h"

#include <cstdint>

#include "filter/box_filter.h"
#include "filter/filter_planes.h"
#include "filter/fir_tables.h"
#include "filter/subpixel_geometry.h"
#include "frame/buffer_rules.h"
#include "frame/guard.h"
#include "frame/pixel_format.h"
#include "frame/trace.h"
#include "frame/work_memory.h"
#include "lines/smart_copy.h"

namespace framedsp {

namespace {

constexpr const char *kExport = "DspSubPixelFilter";

// Whether the integer part (truncated toward zero) of a fractional width is even.  Converting a
// NaN, an infinity or a value outside int64 to an integer is undefined, so widths outside the open
// range (-2^63, 2^63) are not converted at all: they count as odd and the record is refused.
bool integer_part_even(double width) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (!(width > -kLimit && width < kLimit)) return false;
  const int64_t whole = static_cast<int64_t>(width);
  return (whole & 1) == 0;
}

}  // namespace

HRESULT subpixel_filter_validate(const DSP_SUBPIXEL_FILTER_PARAMS *params) {
  const DSP_SUBPIXEL_IMAGE &in = params->Buffer.In;
  const DSP_SUBPIXEL_IMAGE &out = params->Buffer.Out;
  if (!copy_formats_ok(in, out)) {
    refuse(kExport, "pixel formats %u -> %u: not a filter format, or the output differs",
           in.ePixelFormat, out.ePixelFormat);
    return kInvalidArg;
  }
  if (interleaved_frame_into_progressive(in, out)) {
    refuse(kExport, "a frame of interleaved fields into a progressive frame");
    return kInvalidArg;
  }
  const double factor = region_height_factor(in, out);
  // Exact comparisons: the fractional regions must match to the last bit (NaN never does).
  const double in_width = in.Buffer.Region.ulWidth;
  const double out_width = out.Buffer.Region.ulWidth;
  const double in_height = in.Buffer.Region.ulHeight;
  const double out_height = out.Buffer.Region.ulHeight;
  if (in_width != out_width) {
    refuse(kExport, "region widths %.17g and %.17g differ", in_width, out_width);
    return kInvalidArg;
  }
  if (out_height * factor != in_height) {
    refuse(kExport, "output region height %.17g times %g is not the input's %.17g", out_height,
           factor, in_height);
    return kInvalidArg;
  }
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  if (odd(in.ulWidth) || odd(out.ulWidth)) {
    refuse(kExport, "image widths %u and %u must be even in format %u", in.ulWidth, out.ulWidth,
           in.ePixelFormat);
    return kInvalidArg;
  }
  if (!integer_part_even(in_width) || !integer_part_even(out_width)) {
    refuse(kExport, "whole part of the region width %.17g must be even in format %u", in_width,
           in.ePixelFormat);
    return kInvalidArg;
  }
  return kOk;
}

namespace {

struct FilterPlan {
  bool fir;
  const FirTap *horz;  // FIR rows, null for a direction that is off
  const FirTap *vert;
  int horz_taps;
  int vert_taps;
  uint32_t horz_size;  // box windows, 1 for a direction that is off
  uint32_t vert_size;
};

HRESULT run_plane(const DSP_BUFFER &buffer, const FilterPlan &plan) {
  if (plan.fir) {
    return subpixel_fir_plane(buffer, plan.horz, plan.horz_taps, plan.vert, plan.vert_taps);
  }
  return box_filter_plane(buffer, plan.horz_size, plan.vert_size);
}

void set_formats(DSP_BUFFER *buffer, uint32_t format) {
  buffer->In.ePixelFormat = buffer->Out.ePixelFormat = format;
}

// The second plane follows the main picture, its lines a secondary stride apart.
void move_to_plane(DSP_IMAGE *image) {
  const uint32_t main_bytes = image->ulHeight * image->ulPrimaryStrideBytes;
  image->Buffer.pBuffer = static_cast<uint8_t *>(image->Buffer.pBuffer) + main_bytes;
  image->Buffer.ulBytes = image->Buffer.ulBytes > main_bytes ? image->Buffer.ulBytes - main_bytes : 0;
  image->ulPrimaryStrideBytes = image->ulSecondaryStrideBytes;
}

// Both planes of a two-plane format, each with its own plane format and stride.
HRESULT run_planes(DSP_BUFFER copy, const FilterPlan &plan) {
  const uint32_t format = copy.Out.ePixelFormat;
  if (!is_two_plane(format)) return run_plane(copy, plan);
  uint32_t main_format = format, plane_format = format;
  split_format(format, &main_format, &plane_format);
  set_formats(&copy, main_format);
  const HRESULT hr = run_plane(copy, plan);
  if (hr != kOk) return hr;
  move_to_plane(&copy.In);
  move_to_plane(&copy.Out);
  set_formats(&copy, plane_format);
  return run_plane(copy, plan);
}

uint32_t round16(uint64_t bytes) { return static_cast<uint32_t>((bytes + 15) & ~uint64_t{15}); }

// Filters into work memory shaped like the (whole-pixel) input region, then copies that image into
// the caller's output, as the whole-pixel filter does: the filtering pass keeps the input's buffer
// type and interlace, the copy-out does the line geometry.
HRESULT filter_through_temp(const DSP_BUFFER &buffer, const FilterPlan &plan) {
  const DSP_IMAGE &in = buffer.In;
  const DSP_IMAGE &out = buffer.Out;
  const uint64_t product = uint64_t{bytes_per_pixel(out.ePixelFormat)} * in.Buffer.Region.ulWidth;
  const uint32_t a = round16(product);
  const uint32_t b = out.ulSecondaryStrideBytes != 0 ? round16(product) : 0;
  const uint64_t size = (uint64_t{a} + b) * in.Buffer.Region.ulHeight;
  WorkBlock block;  // released by its destructor on every path
  if (size > 0xFFFFFFFFu || (size != 0 && !block.allocate(static_cast<size_t>(size)))) {
    return kOutOfMemory;
  }

  DSP_IMAGE temp = in;
  temp.Buffer.pBuffer = block.data();
  temp.Buffer.ulBytes = static_cast<uint32_t>(size);
  temp.Buffer.Region.ptOffset.x = 0;
  temp.Buffer.Region.ptOffset.y = 0;
  temp.ulWidth = in.Buffer.Region.ulWidth;
  temp.ulHeight = in.Buffer.Region.ulHeight;
  temp.eImageOrientation = DSP_ORIENTATION_TOP_DOWN;
  temp.eColorSpace = out.eColorSpace;  // the filter never converts colours
  temp.ulPrimaryStrideBytes = a;
  temp.ulSecondaryStrideBytes = b;

  constexpr uint32_t kGeometryFlags = DSP_BUFFER_IN_FIELD2_DOMINANCE |
                                      DSP_BUFFER_OUT_FIELD2_DOMINANCE |
                                      DSP_BUFFER_DOMINANCE_BY_SHIFTING_UP |
                                      DSP_BUFFER_PROCESS_FIELDA | DSP_BUFFER_PROCESS_FIELDB;
  DSP_BUFFER filter_pass = buffer;
  filter_pass.Out = temp;
  filter_pass.ulFlags &= ~kGeometryFlags;
  normalise_orientation(&filter_pass);
  if (size != 0) {
    const HRESULT hr = run_planes(filter_pass, plan);
    if (hr != kOk) return hr;
  }

  DSP_BUFFER copy_out = buffer;
  copy_out.In = temp;
  if (size != 0 && smart_copy(&copy_out) != kOk) return kFail;
  block.release();
  return kOk;
}

}  // namespace

HRESULT subpixel_filter_worker(const DSP_SUBPIXEL_FILTER_PARAMS *params,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t options) {
  worker_entry(kExport);
  FilterPlan plan{false, nullptr, nullptr, 0, 0, 1, 1};
  bool horz_on = false, vert_on = false;
  if (params->eFilterType == DSP_FILTER_TYPE_FIR) {
    if (!params->pSettings) return kInvalidArg;
    const DSP_FIR_SETTINGS &s = *static_cast<const DSP_FIR_SETTINGS *>(params->pSettings);
    if (s.ulHorzCutoff > kFirCutoffOff || s.ulVertCutoff > kFirCutoffOff) return kInvalidArg;
    horz_on = s.ulHorzCutoff != kFirCutoffOff;
    vert_on = s.ulVertCutoff != kFirCutoffOff;
    const auto taps_ok = [](uint32_t t) { return t >= kFirMinTaps && t <= kFirMaxTaps; };
    if ((horz_on && !taps_ok(s.ulHorzTaps)) || (vert_on && !taps_ok(s.ulVertTaps))) {
      return kInvalidArg;
    }
    plan.fir = true;
    if (horz_on) {
      plan.horz = fir_coefficients(s.ulHorzTaps, s.ulHorzCutoff);
      plan.horz_taps = fir_table_taps(s.ulHorzTaps);
      if (!plan.horz) return kFail;
    }
    if (vert_on) {
      plan.vert = fir_coefficients(s.ulVertTaps, s.ulVertCutoff);
      plan.vert_taps = fir_table_taps(s.ulVertTaps);
      if (!plan.vert) return kFail;
    }
  } else if (params->eFilterType == DSP_FILTER_TYPE_BOX) {
    if (!params->pSettings) return kInvalidArg;
    const DSP_BOX_SETTINGS &s = *static_cast<const DSP_BOX_SETTINGS *>(params->pSettings);
    if (s.ulHorzSize > kBoxMaxSize || s.ulVertSize > kBoxMaxSize) return kInvalidArg;
    // A size of 1 averages one sample: the direction is on but leaves that direction as it is.
    horz_on = s.ulHorzSize != 0;
    vert_on = s.ulVertSize != 0;
    plan.horz_size = horz_on ? s.ulHorzSize : 1;
    plan.vert_size = vert_on ? s.ulVertSize : 1;
  } else {
    return kInvalidArg;
  }

  if (!horz_on && !vert_on) return subpixel_copy(*buffer) == kOk ? kOk : kFail;

  // From here on whole rows, columns and bytes: the region values truncated toward zero.
  const DSP_BUFFER whole = subpixel_whole_buffer(*buffer);
  const uint32_t out_format = whole.Out.ePixelFormat;
  if ((options & DSP_FILTER_OPTION_TEMP_FRAME) && !is_two_plane(out_format) &&
      out_format != DSP_PIXEL_FORMAT_BGR24) {
    return filter_through_temp(whole, plan);
  }
  DSP_BUFFER copy = whole;
  normalise_orientation(&copy);
  return run_planes(copy, plan);
}

}  // namespace framedsp
