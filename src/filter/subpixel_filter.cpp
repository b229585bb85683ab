#include "filter/subpixel_filter.h"

#include <cstdint>

#include "copy/smart_copy.h"
#include "filter/filter_pass.h"
#include "filter/fir_plane.h"
#include "filter/fir_tables.h"
#include "filter/subpixel_geometry.h"
#include "lines/buffer_rules.h"
#include "lines/pixel_format.h"
#include "platform/trace.h"
#include "platform/work_memory.h"

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

HRESULT subpixel_filter_worker(const DSP_SUBPIXEL_FILTER_PARAMS *params,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t options) {
  worker_entry(kExport);
  FilterPlan plan;
  const HRESULT hr = filter_plan_from_settings(kExport, params->eFilterType, params->pSettings,
                                               subpixel_fir_plane, &plan);
  if (hr != kOk) return hr;
  if (!plan.any_on) return subpixel_copy(*buffer) == kOk ? kOk : kFail;
  // From here on whole rows, columns and bytes: the region values truncated toward zero.
  return filter_run(subpixel_whole_buffer(*buffer), plan, options);
}

}  // namespace framedsp
