#include "lines/smart_copy.h"

#include "frame/guard.h"
#include "frame/buffer_rules.h"

namespace framedsp {

HRESULT smart_copy_validate(const DSP_BUFFER *buffer) {
  const DSP_IMAGE &in = buffer->In;
  const DSP_IMAGE &out = buffer->Out;
  if (!copy_formats_ok(in, out)) return kInvalidArg;
  if (interleaved_frame_into_progressive(in, out)) return kInvalidArg;
  if (has_full_chroma(in.ePixelFormat)) return kOk;
  return integer_widths_even(in, out) ? kOk : kInvalidArg;
}

HRESULT smart_copy(const DSP_BUFFER *buffer) {
  worker_entry("DspBufferSmartCopy");
  (void)buffer;
  return kNotImpl;  // the line engine lands in a later release
}

}  // namespace framedsp
