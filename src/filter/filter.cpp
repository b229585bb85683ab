#include "filter/filter.h"

#include "frame/guard.h"
#include "frame/buffer_rules.h"

namespace framedsp {

HRESULT filter_validate(const DSP_FILTER_PARAMS *params) {
  const DSP_IMAGE &in = params->Buffer.In;
  const DSP_IMAGE &out = params->Buffer.Out;
  if (!copy_formats_ok(in, out)) return kInvalidArg;
  if (interleaved_frame_into_progressive(in, out)) return kInvalidArg;
  if (in.Buffer.Region.ulWidth != out.Buffer.Region.ulWidth) return kInvalidArg;
  // In doubles, so that an odd frame height against a field can never compare equal.
  if (static_cast<double>(out.Buffer.Region.ulHeight) * region_height_factor(in, out) !=
      static_cast<double>(in.Buffer.Region.ulHeight)) {
    return kInvalidArg;
  }
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  return integer_widths_even(in, out) ? kOk : kInvalidArg;
}

HRESULT filter_worker(const DSP_FILTER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t options) {
  worker_entry("DspFilter");
  (void)params;
  (void)buffer;
  (void)options;
  return kNotImpl;  // the FIR and box kernels land in a later release
}

}  // namespace framedsp
