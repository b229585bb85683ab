// DspBufferSmartCopy on records built from the fuzz input.
#include <cstring>

#include "line_call.h"
#include "copy/smart_copy.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  fuzz::draw_cpu_mask(r);
  fuzz::LineCall call;
  fuzz::draw_line_call(r, fuzz::RegionRule::kFree, &call);
  const DSP_BUFFER before = call.buffer;
  const bool refused = framedsp::smart_copy_validate(&call.buffer) != DSP_S_OK;
  const DSP_HRESULT hr = DspBufferSmartCopy(&call.buffer);
  fuzz::require(hr == DSP_S_OK, "DspBufferSmartCopy", "status other than S_OK");
  fuzz::check_line_call("DspBufferSmartCopy", call, before, refused);
  return 0;
}
