#include "filter/filter.h"

#include "frame/guard.h"
#include "frame/pixel_format.h"

namespace framedsp {

namespace {

bool odd(uint32_t value) { return (value & 1u) != 0; }

}  // namespace

HRESULT filter_validate(const DSP_FILTER_PARAMS *params) {
  const DSP_IMAGE &in = params->Buffer.In;
  const DSP_IMAGE &out = params->Buffer.Out;
  if (!copy_filter_format(in.ePixelFormat) || out.ePixelFormat != in.ePixelFormat) {
    return kInvalidArg;
  }
  const bool in_frame = in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  const bool out_frame = out.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  // As for the copy: interlace 0 into a progressive frame is refused, interlace 1 is not.
  if (in_frame && in.eInterlace == DSP_INTERLACE_INTERLEAVED && out_frame &&
      out.eInterlace == DSP_INTERLACE_PROGRESSIVE) {
    return kInvalidArg;
  }
  // A frame holds two fields' lines: frame -> field halves the height, field -> frame doubles it.
  double factor = 1.0;
  if (in_frame && !out_frame) factor = 2.0;
  if (out_frame && !in_frame) factor = 0.5;
  if (in.Buffer.Region.ulWidth != out.Buffer.Region.ulWidth) return kInvalidArg;
  // In doubles, so that an odd frame height against a field can never compare equal.
  if (static_cast<double>(out.Buffer.Region.ulHeight) * factor !=
      static_cast<double>(in.Buffer.Region.ulHeight)) {
    return kInvalidArg;
  }
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  if (odd(in.ulWidth) || odd(in.Buffer.Region.ulWidth) || odd(out.ulWidth) ||
      odd(out.Buffer.Region.ulWidth)) {
    return kInvalidArg;
  }
  return kOk;
}

HRESULT filter_worker(const DSP_FILTER_PARAMS *params, const DSP_BUFFER *buffer, uint32_t options) {
  worker_entry("DspFilter");
  (void)params;
  (void)buffer;
  (void)options;
  return kNotImpl;  // the FIR and box kernels land in a later release
}

}  // namespace framedsp
