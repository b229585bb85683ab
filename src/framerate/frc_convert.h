// The conversion behind DspFrameRateConvert.
#pragma once

#include "framedsp/framedsp.h"
#include "platform/status.h"

namespace framedsp {

// Checks the record (nothing written on a refusal) and produces the frame at its phase.  Reads
// the converter's settings only, so any number of calls may run at once on one converter.
HRESULT frame_rate_convert(const DSP_FRAME_RATE_CONVERTER_PARAMS &settings,
                           const DSP_FRAME_RATE_CONVERT_PARAMS *params);

}  // namespace framedsp
