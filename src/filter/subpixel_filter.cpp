#include "filter/subpixel_filter.h"

#include <cstdint>

#include "frame/guard.h"
#include "frame/buffer_rules.h"

namespace framedsp {

namespace {

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
  if (!copy_formats_ok(in, out)) return kInvalidArg;
  if (interleaved_frame_into_progressive(in, out)) return kInvalidArg;
  const double factor = region_height_factor(in, out);
  // Exact comparisons: the fractional regions must match to the last bit (NaN never does).
  const double in_width = in.Buffer.Region.ulWidth;
  const double out_width = out.Buffer.Region.ulWidth;
  const double in_height = in.Buffer.Region.ulHeight;
  const double out_height = out.Buffer.Region.ulHeight;
  if (in_width != out_width) return kInvalidArg;
  if (out_height * factor != in_height) return kInvalidArg;
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  if (odd(in.ulWidth) || odd(out.ulWidth) || !integer_part_even(in_width) ||
      !integer_part_even(out_width)) {
    return kInvalidArg;
  }
  return kOk;
}

HRESULT subpixel_filter_worker(const DSP_SUBPIXEL_FILTER_PARAMS *params,
                               const DSP_SUBPIXEL_BUFFER *buffer, uint32_t options) {
  worker_entry("DspSubPixelFilter");
  (void)params;
  (void)buffer;
  (void)options;
  return kNotImpl;  // needs the sub-pixel line geometry, which lands in a later release
}

}  // namespace framedsp
