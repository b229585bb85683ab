#include "lines/smart_copy.h"

#include "frame/guard.h"
#include "frame/pixel_format.h"

namespace framedsp {

namespace {

bool odd(uint32_t value) { return (value & 1u) != 0; }

}  // namespace

HRESULT smart_copy_validate(const DSP_BUFFER *buffer) {
  const DSP_IMAGE &in = buffer->In;
  const DSP_IMAGE &out = buffer->Out;
  if (!copy_filter_format(in.ePixelFormat)) return kInvalidArg;
  // The copy never changes the pixel format.
  if (out.ePixelFormat != in.ePixelFormat) return kInvalidArg;
  // Interlace 0 into a progressive frame is refused; interlace 1, its twin elsewhere, is not.
  const bool in_frame = in.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  const bool out_frame = out.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
  if (in_frame && in.eInterlace == DSP_INTERLACE_INTERLEAVED && out_frame &&
      out.eInterlace == DSP_INTERLACE_PROGRESSIVE) {
    return kInvalidArg;
  }
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  // Subsampled chroma: a pixel pair shares its chroma, so no width may split a pair.
  if (odd(in.ulWidth) || odd(in.Buffer.Region.ulWidth) || odd(out.ulWidth) ||
      odd(out.Buffer.Region.ulWidth)) {
    return kInvalidArg;
  }
  return kOk;
}

HRESULT smart_copy(const DSP_BUFFER *buffer) {
  worker_entry("DspBufferSmartCopy");
  (void)buffer;
  return kNotImpl;  // the line engine lands in a later release
}

}  // namespace framedsp
